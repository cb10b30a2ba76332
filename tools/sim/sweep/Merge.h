#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/sim/report/Objective.h"
#include "tools/sim/sweep/Plan.h"

namespace TalvexSim {

struct SweepRow {
    size_t run = 0;                   // from 1
    std::vector<std::string> values;  // one per setting
    std::string status;               // ok, refused, failed, or missing (no run.json found)
    std::string message;              // why it is not ok
    MetricValues metrics;             // ok rows only
    std::string config;               // ok rows: the online configuration it ran with
};

struct SweepResult {
    SweepDefinition definition;
    Objective objective;
    std::vector<SweepRow> rows;     // in run order
    std::vector<size_t> ranked;     // rows meeting the constraints, best first
    std::vector<size_t> front;      // rows on the Pareto front, coolest first
    std::optional<size_t> closest;  // when no row meets the constraints: the nearest miss

    size_t Count(const std::string& status) const;
};

// The points no other point beats on both: (lower is better, higher is better), here peak
// temperature and mean FPS. Returns their indices, by ascending first value; equal points are
// all kept.
std::vector<size_t> ParetoFront(const std::vector<std::pair<double, double>>& points);

// Reads one sweep from its folders (sweep.json and runs/; several folders when the runs were
// spread over machines, a run found in more than one taken from the first) and writes
// sweep.csv, sweep.md, pareto.svg and, when a run meets the constraints, recommended.json into
// `outputDirectory` at once; a recommendation left by an earlier merge is removed otherwise.
// The outputs depend on the run folders alone. Throws InputError when the folders do not hold
// one sweep.
SweepResult MergeSweep(const std::vector<std::string>& directories,
                       const std::string& outputDirectory);

// The block on standard output after a sweep or a merge.
std::string FormatSweepResult(const SweepResult& result, const std::string& directory);

}  // namespace TalvexSim
