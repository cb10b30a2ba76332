#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace TalvexSim {

// `talvex-sim sweep` and `talvex-sim merge` behind the command line; `executable` is the program
// each run starts (talvex-sim itself). Throw InputError for bad arguments or input; return 1 when
// a run failed or is missing, 0 otherwise.
int RunSweepCommand(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err,
                    const std::string& executable);
int RunMergeCommand(const std::vector<std::string>& arguments, std::FILE* out);
// The running program's own file.
std::string CurrentExecutable();

}  // namespace TalvexSim
