#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/sim/loop/Timeline.h"

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

// compare.svg: the displayed frame rate (frames shown per second of each row) and the device's
// temperature of several runs of one scenario, on shared axes, one colour per run.
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

// display-intervals.svg: the present-to-present intervals each run showed, in whole refresh
// periods of the panel's top rate, as shares of that run's intervals; a group of bars per
// period, a bar per run in the colours of compare.svg.
struct IntervalHistogramSeries {
    std::string name;
    std::array<std::uint64_t, ShownFrames::kPeriodBins> periods{};  // the last: that many or more
};
struct IntervalHistogramInput {
    std::string title;
    std::string subtitle;
    int refreshRate_Hz = 60;
    std::vector<IntervalHistogramSeries> series;
};
std::string RenderIntervalHistogram(const IntervalHistogramInput& input);

// pareto.svg: one point per run of a sweep, its peak temperature against its mean FPS; the
// Pareto front joined and labelled, the best run under the objective ringed, the objective's
// bounds on either metric drawn, and the runs without a point listed under the plot.
struct ParetoChartPoint {
    std::string label;
    double peakTemperature_C = 0.0;
    double meanFps = 0.0;
    bool onFront = false;
    bool best = false;
};
struct ParetoChartInput {
    std::string title;
    std::string subtitle;
    std::vector<ParetoChartPoint> points;
    std::vector<std::string> apart;  // "run 3: refused"
    std::optional<double> temperatureLimit_C;
    std::optional<double> fpsFloor;
};
std::string RenderParetoChart(const ParetoChartInput& input);

}  // namespace TalvexSim
