#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace TalvexSim {

// One setting a sweep varies, written "category,key=v1|v2|...".
struct SweepAxis {
    std::string category;
    std::string key;
    std::vector<std::string> values;

    std::string Text() const;
    std::string Column() const { return category + "/" + key; }
};

// Throws std::invalid_argument naming what is wrong with the text.
SweepAxis ParseAxis(const std::string& text);

// Every combination of the axes' values, the last axis varying fastest; each combination is its
// setting records, "category,key,value", in the axes' order.
std::vector<std::vector<std::string>> ExpandGrid(const std::vector<SweepAxis>& axes);

// What a sweep is, kept as sweep.json beside its runs: enough to merge and check them without
// the command line that planned them.
struct SweepDefinition {
    std::string scenario;  // the scenario's name
    std::string policy;
    std::vector<SweepAxis> axes;
    std::string objective;  // as Objective::Text() writes it

    size_t Runs() const;
};
std::string SweepJson(const SweepDefinition& definition);
// Throws InputError naming the file.
SweepDefinition ReadSweepJson(const std::string& path);

// The folder of run `run` (from 1) of a sweep: "<sweep>/runs/007".
std::string RunFolder(const std::string& sweepDirectory, size_t run, size_t runs);

// A planned sweep: one self-contained command per run, each a `sweep-run` of the program.
struct SweepPlan {
    SweepDefinition definition;
    std::string executable;    // absolute
    std::string scenarioPath;  // absolute; empty for the embedded default scenario
    std::string directory;     // the sweep's folder, absolute
    double timeout_s = 0.0;    // per run
};
std::vector<std::vector<std::string>> PlanCommands(const SweepPlan& plan);
// One command as a line for a POSIX shell.
std::string ShellLine(const std::vector<std::string>& command);

// Removes the run folders an earlier sweep left in `sweepDirectory`, so that a merge of this
// one cannot pick them up. Only folders holding a run.json are touched.
void RemoveEarlierRuns(const std::string& sweepDirectory);

// Runs the commands, at most `jobs` at once, and calls `done` with how many have finished.
// Throws std::runtime_error when a process cannot be started.
void RunCommands(const std::vector<std::vector<std::string>>& commands, unsigned jobs,
                 const std::function<void(size_t finished)>& done);

// `talvex-sim sweep-run`: one run of a sweep in a child process, under a time limit. The child
// is an ordinary run (scenario, --policy, --set, --out); its outcome, ok, refused (the library
// refused a record: its message) or failed (a crash, a hang, any other error), goes into the
// run folder's run.json, which is what a merge reads. Exit status 0 when the outcome was
// recorded and the run was not failed, 1 otherwise, 2 for bad arguments.
int RunSweepWorker(const std::vector<std::string>& arguments, std::FILE* err);

// `talvex-sim sweep` and `talvex-sim merge` behind the command line; `executable` is the program
// each run starts (talvex-sim itself). Throw InputError for bad arguments or input; return 1 when
// a run failed or is missing, 0 otherwise.
int RunSweepCommand(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err,
                    const std::string& executable);
int RunMergeCommand(const std::vector<std::string>& arguments, std::FILE* out);
// The running program's own file.
std::string CurrentExecutable();

}  // namespace TalvexSim
