#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace TalvexSim {

struct FrameStats {
    double mean_ms = 0.0;
    double p50_ms = 0.0;
    double p99_ms = 0.0;
};

// Nearest-rank percentiles; nothing for no frames.
std::optional<FrameStats> ComputeFrameStats(std::vector<float> lengths_ms);

// One host tick as the outputs show it.
struct TimelineRow {
    double time_s = 0.0;
    bool paused = false;
    double temperature_C = 0.0;  // the readings handed to the library
    double current_mA = 0.0;
    int ofps = 0;
    std::optional<int> efps;  // as the FPS manager stated it; nothing when it did not tick
    int gfps = -1;
    int sfps = -1;  // reported, with its sign
    std::string node;
    int exploringTicks = 0;            // host ticks of this row with a negative reported SFPS
    int exploringSfps = -1;            // the last such SFPS, for the chart
    std::optional<FrameStats> frames;  // of the frames that ended in this tick
};

void WriteTimelineCsv(std::ostream& out, const std::vector<TimelineRow>& rows);

}  // namespace TalvexSim
