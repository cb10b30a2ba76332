#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace TalvexSim {

// The whole program behind main(): 0 when the outputs were written, 1 when they could not be,
// 2 for bad arguments or a bad scenario or replay file (nothing is written then).
int RunCommandLine(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err);

}  // namespace TalvexSim
