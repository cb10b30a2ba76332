#pragma once

#include <string>
#include <utility>
#include <vector>

namespace TalvexSim {

// Puts a set of files into a folder so that a failure leaves none of them half-written: each is
// written to a hidden temporary file beside its place and renamed over it once every one of
// them was written completely. Throws std::runtime_error naming the file that failed, after
// removing the temporary files.
void WriteOutputFiles(const std::string& directory,
                      const std::vector<std::pair<std::string, std::string>>& files);

}  // namespace TalvexSim
