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

// compare.svg: the frame rate and the device's temperature of several runs of one scenario, on
// shared axes, one colour per run.
struct ComparisonSeries {
    std::string name;
    const std::vector<TimelineRow>* rows = nullptr;
};
struct ComparisonChartInput {
    std::string title;
    std::string subtitle;
    std::vector<ComparisonSeries> series;
    int refreshRate_Hz = 60;
    double temperatureUpperBound_C = 45.0;
};
std::string RenderComparisonChart(const ComparisonChartInput& input);

}  // namespace TalvexSim
