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

}  // namespace TalvexSim
