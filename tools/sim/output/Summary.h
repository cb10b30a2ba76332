#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/sim/loop/Timeline.h"

namespace TalvexSim {

// The figures a person tuning the settings looks at first.
struct Summary {
    std::optional<double> firstDecrease_s;  // first tick stabilizing below the GFPS
    std::optional<int> lowestSfps;          // lowest SFPS applied (reported positive)
    double meanFps = 0.0;                   // frames per running second (replay: mean OFPS)
    std::optional<FrameStats> frameTimes;   // over every frame of the run
    double stabilizedShare = 0.0;           // share of running ticks with a positive SFPS
    double exploringShare = 0.0;            // share of host ticks with a negative SFPS
    std::uint64_t frames = 0;
    double running_s = 0.0;
};

// Fed one row at a time, so that a streamed run needs no copy of its rows.
class SummaryBuilder {
  public:
    void Add(const TimelineRow& row);
    Summary Finish(const FrameHistogram& frames, double running_s, std::uint64_t hostTicks,
                   std::uint64_t exploringTicks) const;

  private:
    Summary summary;
    size_t runningTicks = 0;
    size_t stabilizedTicks = 0;
    double ofpsSum = 0.0;
};

Summary Summarize(const std::vector<TimelineRow>& rows, const FrameHistogram& frames,
                  double running_s, std::uint64_t hostTicks, std::uint64_t exploringTicks);

// What the summary block on standard output says besides the figures.
struct SummaryContext {
    std::string scenario;
    std::uint64_t seed = 0;
    std::string replayFile;  // empty for a closed-loop run
    double simulated_s = 0.0;
    double wall_s = 0.0;
    std::optional<std::uint64_t> efpsMaxWrites;
    std::optional<std::uint64_t> eglBufWrites;
    size_t libraryErrors = 0;
    size_t libraryWarnings = 0;
    std::string outputDirectory;
    std::vector<std::string> outputFiles;
};

std::string FormatSummary(const Summary& summary, const SummaryContext& context);

// The summary block's formatting, for other blocks of the same output.
std::string FormatNumber(const char* pattern, double value);  // one double through snprintf
std::string GroupThousands(std::uint64_t value);              // 1234567 as "1,234,567"
// "  label" padded to a column, then the value and a line feed.
std::string SummaryLine(const std::string& label, const std::string& value);

}  // namespace TalvexSim
