#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/sim/report/Report.h"

namespace TalvexSim {

// What the summary block on standard output says besides the report's figures.
struct SummaryContext {
    std::string replayFile;  // empty for a closed-loop run
    double wall_s = 0.0;
    std::optional<std::uint64_t> efpsMaxWrites;
    std::optional<std::uint64_t> eglBufWrites;
    size_t libraryErrors = 0;
    size_t libraryWarnings = 0;
    std::string outputDirectory;
    std::vector<std::string> outputFiles;
};

// The figures a person tuning the settings looks at first, all of them the report's.
std::string FormatSummary(const Report& report, const SummaryContext& context);

}  // namespace TalvexSim
