#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace TalvexSim {

// One setting a sweep varies and its values, written "category,key=v1|v2|...".
struct SweepSetting {
    std::string category;
    std::string key;
    std::vector<std::string> values;

    std::string Text() const;
    std::string Column() const { return category + "/" + key; }
};

// One axis of a sweep's grid: a setting, or several that vary together, written joined by ';',
// value i of each going into the same run. Varying a GFPS list with the SFPS list made for it
// spares the runs of the pairs the library refuses.
struct SweepAxis {
    std::vector<SweepSetting> settings;

    size_t Size() const { return settings.empty() ? 0 : settings.front().values.size(); }
    std::string Text() const;
};

// Throws std::invalid_argument naming what is wrong with the text.
SweepAxis ParseAxis(const std::string& text);

// The axes' settings in order: a sweep's columns.
std::vector<SweepSetting> AxisSettings(const std::vector<SweepAxis>& axes);

// Throws std::invalid_argument naming a setting varied twice, in one axis or across them.
void RefuseRepeatedSettings(const std::vector<SweepAxis>& axes);

// Every combination of the axes' values, the last axis varying fastest; each combination is its
// setting records, "category,key,value", in the settings' order.
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
