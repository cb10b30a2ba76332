#pragma once

#include <string>
#include <vector>

#include "tools/sim/input/Policy.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/run/SessionRun.h"

namespace TalvexSim {

// The folder of a policy's run under compare/: its name, with ':' (fixed:45) made '-'.
std::string PolicyFolder(const Policy& policy);

// compare.md, compare.csv (a row per policy, the report's metrics as columns), compare.svg and
// display-intervals.svg.
void WriteComparison(OutputSet& outputs, const Scenario& scenario,
                     const std::vector<SessionRecord>& records);

// The block on standard output after a comparison.
std::string FormatComparison(const Scenario& scenario, const std::vector<SessionRecord>& records,
                             const std::string& directory, double wall_s);

}  // namespace TalvexSim
