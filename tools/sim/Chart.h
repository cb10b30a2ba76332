#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "tools/sim/Timeline.h"

namespace TalvexSim {

struct ChartInput {
    std::string title;
    std::string subtitle;
    const std::vector<TimelineRow>* rows = nullptr;
    int refreshRate_Hz = 60;
    double tick_s = 1.0;
    double temperatureLowerBound_C = 40.0;
    double temperatureUpperBound_C = 45.0;
    double currentThreshold_mA = std::nan("");  // none drawn when NaN
};

// chart.svg: the frame rates (OFPS, GFPS, the SFPS applied and the SFPS while exploring) above
// the temperature with the decider's bounds and the current with its threshold, on one time
// axis, with the pauses shaded.
std::string RenderChart(const ChartInput& input);

}  // namespace TalvexSim
