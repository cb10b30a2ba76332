#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace TalvexSim {

// The program's own command line, which a worker runs in its child: passed in by the command
// line itself, so that the sweep does not depend on it.
using CommandLineRunner =
    std::function<int(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err)>;

// Runs the commands, at most `jobs` at once, and calls `done` with how many have finished.
// Throws std::runtime_error when a process cannot be started.
void RunCommands(const std::vector<std::vector<std::string>>& commands, unsigned jobs,
                 const std::function<void(size_t finished)>& done);

// `talvex-sim sweep-run`: one run of a sweep in a child process, under a time limit. The child
// is an ordinary run (scenario, --policy, --set, --out); its outcome, ok, refused (the library
// refused a record: its message) or failed (a crash, a hang, any other error), goes into the
// run folder's run.json, which is what a merge reads. Exit status 0 when the outcome was
// recorded and the run was not failed, 1 otherwise, 2 for bad arguments.
int RunSweepWorker(const std::vector<std::string>& arguments, std::FILE* err,
                   const CommandLineRunner& runOne);

}  // namespace TalvexSim
