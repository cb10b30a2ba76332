#include "tools/sim/output/Chart.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>
#include <numeric>
#include <optional>

#include "tools/sim/base/Text.h"

namespace TalvexSim {
namespace {

constexpr double kWidth = 1000.0;
constexpr double kLeft = 70.0;
constexpr double kRight = 30.0;
constexpr double kPlotWidth = kWidth - kLeft - kRight;

struct Point {
    double x;
    double y;
};

struct Range {
    double low;
    double high;
};

struct Panel {
    double top;
    double height;
    Range values;
    std::string title;
};

using Value = std::function<std::optional<double>(const TimelineRow&)>;

std::string number(double value) { return Fixed(value, 1); }

std::string label(double value) { return ShortNumber(value); }

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

// 1, 2 or 5 times a power of ten, giving about `count` steps over the span.
double niceStep(double span, int count) {
    if (!(span > 0.0)) return 1.0;
    const double raw = span / count;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (raw <= factor * power) return factor * power;
    }
    return 10.0 * power;
}

// Grid values from low to high, high included despite rounding.
std::vector<double> ticks(double low, double high, double step) {
    std::vector<double> values;
    double value = low;
    while (value <= high + step / 1e6) {
        values.push_back(value);
        value += step;
    }
    return values;
}

Range niceRange(double low, double high, int count) {
    if (!(high > low)) high = low + 1.0;
    const double step = niceStep(high - low, count);
    return {std::floor(low / step) * step, std::ceil(high / step) * step};
}

class Svg {
  public:
    Svg(double duration_s, double timeUnit_s) : duration_s(duration_s), timeUnit_s(timeUnit_s) {}

    double X(double time_s) const { return kLeft + time_s / duration_s * kPlotWidth; }
    static double Y(const Panel& panel, double value) {
        const double share = (value - panel.values.low) / (panel.values.high - panel.values.low);
        return panel.top + panel.height * (1.0 - std::clamp(share, 0.0, 1.0));
    }

    void Raw(const std::string& text) { body += text; }

    void Text(double x, double y, const std::string& text, const char* anchor = "start",
              int size = 12, const char* extra = "") {
        body += "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" text-anchor=\"" + anchor +
                "\" font-size=\"" + std::to_string(size) + "\"" + extra + ">" + escaped(text) +
                "</text>\n";
    }

    void Line(double x1, double y1, double x2, double y2, const char* style) {
        body += "<line x1=\"" + number(x1) + "\" y1=\"" + number(y1) + "\" x2=\"" + number(x2) +
                "\" y2=\"" + number(y2) + "\" " + style + "/>\n";
    }

    void Polyline(const std::vector<Point>& points, const char* style) {
        if (points.size() < 2) return;
        body += "<polyline fill=\"none\" " + std::string(style) + " points=\"";
        for (const Point& p : points) body += number(p.x) + "," + number(p.y) + " ";
        body.back() = '"';
        body += "/>\n";
    }

    // Grid lines about five values apart unless `valueStep` says how far.
    void Frame(const Panel& panel, double timeStep, double valueStep = 0.0) {
        body += "<rect x=\"" + number(kLeft) + "\" y=\"" + number(panel.top) + "\" width=\"" +
                number(kPlotWidth) + "\" height=\"" + number(panel.height) +
                "\" fill=\"none\" stroke=\"#999\"/>\n";
        if (!(valueStep > 0.0)) valueStep = niceStep(panel.values.high - panel.values.low, 5);
        for (const double v : ticks(panel.values.low, panel.values.high, valueStep)) {
            const double y = Y(panel, v);
            Line(kLeft, y, kLeft + kPlotWidth, y, "stroke=\"#e4e4e4\"");
            Text(kLeft - 6, y + 4, label(v), "end", 11);
        }
        for (const double t : ticks(0.0, duration_s / timeUnit_s, timeStep)) {
            const double x = X(t * timeUnit_s);
            Line(x, panel.top, x, panel.top + panel.height, "stroke=\"#e4e4e4\"");
        }
        Text(kLeft + 6, panel.top + 16, panel.title, "start", 13, " font-weight=\"bold\"");
    }

    std::string body;

  private:
    double duration_s;
    double timeUnit_s;
};

// A value holds from its tick to the next one, so it is drawn as steps; runs break where the
// value is missing.
std::vector<std::vector<Point>> stepRuns(const Svg& svg, const Panel& panel,
                                         const std::vector<TimelineRow>& rows, const Value& value) {
    std::vector<std::vector<Point>> runs;
    std::optional<double> previous;
    for (const TimelineRow& row : rows) {
        const std::optional<double> current = value(row);
        const double x = svg.X(row.time_s);
        if (previous) runs.back().push_back({x, Svg::Y(panel, *previous)});
        if (current) {
            if (!previous) runs.emplace_back();
            runs.back().push_back({x, Svg::Y(panel, *current)});
        }
        previous = current;
    }
    return runs;
}

std::vector<std::vector<Point>> lineRuns(const Svg& svg, const Panel& panel,
                                         const std::vector<TimelineRow>& rows, const Value& value) {
    std::vector<std::vector<Point>> runs;
    bool open = false;
    for (const TimelineRow& row : rows) {
        const std::optional<double> current = value(row);
        if (!current) {
            open = false;
            continue;
        }
        if (!open) runs.emplace_back();
        open = true;
        runs.back().push_back({svg.X(row.time_s), Svg::Y(panel, *current)});
    }
    return runs;
}

// Exploring lasts a few frames at a time, so each row that saw it gets a short mark at the
// SFPS the node showed negated.
std::vector<std::vector<Point>> exploringMarks(const Svg& svg, const Panel& panel,
                                               const std::vector<TimelineRow>& rows) {
    std::vector<std::vector<Point>> marks;
    for (const TimelineRow& row : rows) {
        if (row.paused || row.exploringTicks == 0 || !IsExploringSfps(row.exploringSfps)) continue;
        const double x = svg.X(row.time_s);
        const double y = Svg::Y(panel, -row.exploringSfps);
        marks.push_back({{x, y - 7.0}, {x, y + 7.0}});
    }
    return marks;
}

struct Series {
    const char* name;
    const char* style;
    std::vector<std::vector<Point>> runs;
};

struct LegendEntry {
    std::string text;
    const char* style;  // of the swatch's line
};

// In one row ending at the plot's right edge, in the order given; `y` is the text's baseline.
void drawLegend(Svg& svg, double y, const std::vector<LegendEntry>& entries) {
    double x = kLeft + kPlotWidth - 8;
    for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
        x -= 40.0 + 6.6 * static_cast<double>(it->text.size());
        svg.Line(x, y - 4, x + 22, y - 4, it->style);
        svg.Text(x + 26, y, it->text, "start", 11);
    }
}

// The first series given ends up on top.
void drawLines(Svg& svg, const std::vector<Series>& series) {
    for (auto it = series.rbegin(); it != series.rend(); ++it) {
        for (const auto& run : it->runs) svg.Polyline(run, it->style);
    }
}

// A legend only where a panel holds more than one series; the panel's title names a lone one.
void drawSeries(Svg& svg, const Panel& panel, const std::vector<Series>& series) {
    drawLines(svg, series);
    std::vector<LegendEntry> entries;
    entries.reserve(series.size());
    for (const Series& s : series) entries.push_back({s.name, s.style});
    if (series.size() > 1) drawLegend(svg, panel.top + 16, entries);
}

void drawBound(Svg& svg, const Panel& panel, double value, const std::string& text) {
    if (!std::isfinite(value)) return;
    const double y = Svg::Y(panel, value);
    svg.Line(kLeft, y, kLeft + kPlotWidth, y,
             "stroke=\"#d62728\" stroke-width=\"1\" stroke-dasharray=\"6,4\"");
    // A white halo keeps the label readable where the data crosses it.
    svg.Text(kLeft + kPlotWidth - 6, y - 4, text, "end", 11,
             " fill=\"#d62728\" stroke=\"white\" stroke-width=\"3\" paint-order=\"stroke\"");
}

// The time axis of a chart: minutes from three minutes on, about ten labelled steps.
struct TimeScale {
    double duration_s;
    double unit_s;
    double step;
};

TimeScale timeScaleFor(double duration_s) {
    const double unit_s = duration_s >= 180.0 ? 60.0 : 1.0;
    return {duration_s, unit_s, niceStep(duration_s / unit_s, 10)};
}

void timeAxis(Svg& svg, const Panel& lowest, const TimeScale& scale) {
    for (const double t : ticks(0.0, scale.duration_s / scale.unit_s, scale.step)) {
        svg.Text(svg.X(t * scale.unit_s), lowest.top + lowest.height + 16, label(t), "middle", 11);
    }
    svg.Text(kLeft + kPlotWidth / 2.0, lowest.top + lowest.height + 38,
             scale.unit_s > 1.0 ? "time (min)" : "time (s)", "middle", 12);
}

std::string document(const Svg& svg, double height, const std::string& title,
                     const std::string& subtitle) {
    std::string out = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + number(kWidth) +
                      "\" height=\"" + number(height) + "\" viewBox=\"0 0 " + number(kWidth) + " " +
                      number(height) + "\" font-family=\"sans-serif\">\n";
    out += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    Svg header(1.0, 1.0);
    header.Text(kLeft, 28, title, "start", 18, " font-weight=\"bold\"");
    header.Text(kLeft, 48, subtitle, "start", 12, " fill=\"#555\"");
    return out + header.body + svg.body + "</svg>\n";
}

// Shaded under every panel, so drawn first.
void pauseBands(Svg& svg, const std::vector<TimelineRow>& rows, double tick_s, const Panel& first,
                double bottom) {
    const double top = first.top;
    for (size_t i = 0; i < rows.size(); ++i) {
        if (!rows[i].paused) continue;
        size_t last = i;
        while (last + 1 < rows.size() && rows[last + 1].paused) ++last;
        const double x1 = svg.X(std::max(0.0, rows[i].time_s - tick_s));
        const double x2 = svg.X(rows[last].time_s);
        svg.Raw("<rect x=\"" + number(x1) + "\" y=\"" + number(top) + "\" width=\"" +
                number(x2 - x1) + "\" height=\"" + number(bottom - top) +
                "\" fill=\"#eeeeee\"/>\n");
        svg.Text((x1 + x2) / 2.0, top + first.height - 8, "paused", "middle", 11, " fill=\"#777\"");
        i = last;
    }
}

void frameRatePanel(Svg& svg, const Panel& fps, const std::vector<TimelineRow>& rows) {
    const auto running = [](const TimelineRow& row) { return !row.paused; };
    drawSeries(svg, fps,
               {{"OFPS", "stroke=\"#8c8c8c\" stroke-width=\"1\"",
                 lineRuns(svg, fps, rows,
                          [&](const TimelineRow& r) -> std::optional<double> {
                              if (!running(r)) return std::nullopt;
                              return r.ofps;
                          })},
                {"GFPS", "stroke=\"#1f77b4\" stroke-width=\"1.5\" stroke-dasharray=\"5,3\"",
                 stepRuns(svg, fps, rows,
                          [&](const TimelineRow& r) -> std::optional<double> {
                              if (!running(r) || r.gfps < 1) return std::nullopt;
                              return r.gfps;
                          })},
                {"SFPS applied", "stroke=\"#d62728\" stroke-width=\"2.5\"",
                 stepRuns(svg, fps, rows,
                          [&](const TimelineRow& r) -> std::optional<double> {
                              if (!running(r) || !IsHeldSfps(r.sfps)) return std::nullopt;
                              return r.sfps;
                          })},
                {"SFPS while exploring (negative on the node)",
                 "stroke=\"#9467bd\" stroke-width=\"1.2\" stroke-opacity=\"0.7\"",
                 exploringMarks(svg, fps, rows)}});
}

void temperaturePanel(Svg& svg, const Panel& temperature, const std::vector<TimelineRow>& rows,
                      double lowerBound_C, double upperBound_C) {
    drawBound(svg, temperature, lowerBound_C, "lower bound " + label(lowerBound_C) + " \u00b0C");
    drawBound(svg, temperature, upperBound_C, "upper bound " + label(upperBound_C) + " \u00b0C");
    drawSeries(
        svg, temperature,
        {{"temperature", "stroke=\"#ff7f0e\" stroke-width=\"2\"",
          lineRuns(svg, temperature, rows, [](const TimelineRow& r) -> std::optional<double> {
              return r.temperature_C;
          })}});
}

void currentPanel(Svg& svg, const Panel& current, const std::vector<TimelineRow>& rows,
                  double threshold_mA) {
    drawBound(svg, current, threshold_mA, "threshold " + label(threshold_mA) + " mA");
    drawSeries(svg, current,
               {{"current", "stroke=\"#2ca02c\" stroke-width=\"1.2\"",
                 lineRuns(svg, current, rows, [](const TimelineRow& r) -> std::optional<double> {
                     return r.current_mA;
                 })}});
}

// What the axes of a timeline must hold, widened row by row from where the chart starts.
struct Extents {
    double duration_s;
    double highestFps;
    double lowTemperature;
    double highTemperature;

    void Take(double time_s, double fps, double temperature_C) {
        duration_s = std::max(duration_s, time_s);
        highestFps = std::max(highestFps, fps);
        lowTemperature = std::min(lowTemperature, temperature_C);
        highTemperature = std::max(highTemperature, temperature_C);
    }
};

// The top panel of both timelines: frame rates from 0 to a little above the highest.
Panel frameRatePanelAbove(double highestFps, const char* title) {
    return {70.0, 250.0, niceRange(0.0, highestFps + 5.0, 6), title};
}

// Each run of a comparison in its own colour, the same in every chart of the comparison.
const char* seriesColour(size_t index) {
    static constexpr const char* kColours[] = {"#d62728", "#1f77b4", "#7f7f7f", "#2ca02c",
                                               "#9467bd", "#ff7f0e", "#8c564b", "#e377c2"};
    return kColours[index % (sizeof kColours / sizeof kColours[0])];
}

// What reached the glass over a row's stretch: a frame rendered but never shown counts in the
// OFPS and not here.
std::optional<double> displayedFps(const TimelineRow& row) {
    if (row.paused || !(row.interval_s > 0.0)) return std::nullopt;
    return row.shownFrames / row.interval_s;
}

// The older device model leaves its clocks at zero: nothing to draw then.
bool hasClocks(const std::vector<TimelineRow>& rows) {
    return std::any_of(rows.begin(), rows.end(),
                       [](const TimelineRow& row) { return row.cpu_MHz > 0.0; });
}

double highestClock(const std::vector<TimelineRow>& rows) {
    double highest = 0.0;
    for (const TimelineRow& row : rows) highest = std::max({highest, row.cpu_MHz, row.gpu_MHz});
    return highest;
}

std::optional<double> cpuClock(const TimelineRow& row) {
    if (row.paused || !(row.cpu_MHz > 0.0)) return std::nullopt;
    return row.cpu_MHz;
}

std::optional<double> gpuClock(const TimelineRow& row) {
    if (row.paused || !(row.gpu_MHz > 0.0)) return std::nullopt;
    return row.gpu_MHz;
}

// The rounded top is a whole grid step, so the highest clock has a grid line at or above it.
Panel clockPanelBelow(const Panel& above, double highest_MHz) {
    return {above.top + above.height + 30.0, 150.0, niceRange(0.0, highest_MHz, 5), "Clocks (MHz)"};
}

constexpr const char* kDashed = " stroke-dasharray=\"5,3\"";

void clockPanel(Svg& svg, const Panel& clocks, const std::vector<TimelineRow>& rows) {
    const std::string gpu = std::string("stroke=\"#8c564b\" stroke-width=\"1.5\"") + kDashed;
    drawSeries(
        svg, clocks,
        {{"CPU", "stroke=\"#17becf\" stroke-width=\"1.5\"", lineRuns(svg, clocks, rows, cpuClock)},
         {"GPU", gpu.c_str(), lineRuns(svg, clocks, rows, gpuClock)}});
}

// Each run in its colour, its CPU solid and its GPU dashed; the legend names only the dashes,
// the panels above name the colours.
void comparisonClocks(Svg& svg, const Panel& clocks, const std::vector<ComparisonSeries>& runs) {
    std::vector<std::string> styles;  // Series points at them, so they must not move
    styles.reserve(2 * runs.size());
    std::vector<Series> lines;
    lines.reserve(2 * runs.size());
    for (size_t i = 0; i < runs.size(); ++i) {
        styles.push_back(std::string("stroke=\"") + seriesColour(i) + "\" stroke-width=\"1.5\"");
        styles.push_back(styles.back() + kDashed);
        lines.push_back({runs[i].name.c_str(), styles[2 * i].c_str(),
                         lineRuns(svg, clocks, *runs[i].rows, cpuClock)});
        lines.push_back({runs[i].name.c_str(), styles[2 * i + 1].c_str(),
                         lineRuns(svg, clocks, *runs[i].rows, gpuClock)});
    }
    drawLines(svg, lines);
    const std::string gpu = std::string("stroke=\"#555\" stroke-width=\"1.5\"") + kDashed;
    drawLegend(svg, clocks.top + 16,
               {{"CPU", "stroke=\"#555\" stroke-width=\"1.5\""}, {"GPU", gpu.c_str()}});
}

}  // namespace

std::string RenderChart(const ChartInput& input) {
    const std::vector<TimelineRow>& rows = *input.rows;
    Extents extents{input.tick_s, static_cast<double>(input.refreshRate_Hz),
                    input.temperatureLowerBound_C, input.temperatureUpperBound_C};
    double highestCurrent =
        std::isfinite(input.currentThreshold_mA) ? input.currentThreshold_mA : 0;
    for (const TimelineRow& row : rows) {
        extents.Take(row.time_s,
                     std::max({static_cast<double>(row.ofps), static_cast<double>(row.gfps),
                               std::abs(1.0 * row.sfps)}),
                     row.temperature_C);
        highestCurrent = std::max(highestCurrent, row.current_mA);
    }

    const TimeScale scale = timeScaleFor(extents.duration_s);
    Svg svg(scale.duration_s, scale.unit_s);

    const Panel fps = frameRatePanelAbove(extents.highestFps, "Frame rate (FPS)");
    const Panel temperature{
        350.0, 150.0, niceRange(extents.lowTemperature - 1.0, extents.highTemperature + 3.0, 5),
        "Temperature (\u00b0C)"};
    const Panel current{530.0, 110.0, niceRange(0.0, highestCurrent * 1.3 + 1.0, 4),
                        "Electric current (mA)"};
    const bool clocked = hasClocks(rows);
    const Panel clocks = clockPanelBelow(current, highestClock(rows));
    const Panel& lowest = clocked ? clocks : current;

    pauseBands(svg, rows, input.tick_s, fps, lowest.top + lowest.height);
    for (const Panel* panel : {&fps, &temperature, &current}) svg.Frame(*panel, scale.step);
    if (clocked) svg.Frame(clocks, scale.step);
    frameRatePanel(svg, fps, rows);
    temperaturePanel(svg, temperature, rows, input.temperatureLowerBound_C,
                     input.temperatureUpperBound_C);
    currentPanel(svg, current, rows, input.currentThreshold_mA);
    if (clocked) clockPanel(svg, clocks, rows);
    timeAxis(svg, lowest, scale);
    return document(svg, lowest.top + lowest.height + 50.0, input.title, input.subtitle);
}

std::string RenderComparisonChart(const ComparisonChartInput& input) {
    Extents extents{1.0, static_cast<double>(input.refreshRate_Hz), input.temperatureUpperBound_C,
                    input.temperatureUpperBound_C};
    bool clocked = false;
    double highest_MHz = 0.0;
    for (const ComparisonSeries& series : input.series) {
        for (const TimelineRow& row : *series.rows) {
            extents.Take(row.time_s, displayedFps(row).value_or(0.0), row.deviceTemperature_C);
        }
        clocked = clocked || hasClocks(*series.rows);
        highest_MHz = std::max(highest_MHz, highestClock(*series.rows));
    }
    const TimeScale scale = timeScaleFor(extents.duration_s);
    Svg svg(scale.duration_s, scale.unit_s);
    const Panel fps = frameRatePanelAbove(extents.highestFps, "Frame rate (displayed FPS)");
    const Panel temperature{
        350.0, 200.0, niceRange(extents.lowTemperature - 1.0, extents.highTemperature + 2.0, 5),
        "Device temperature (\u00b0C)"};
    const Panel clocks = clockPanelBelow(temperature, highest_MHz);
    const Panel& lowest = clocked ? clocks : temperature;
    for (const Panel* panel : {&fps, &temperature}) svg.Frame(*panel, scale.step);
    if (clocked) svg.Frame(clocks, scale.step);
    drawBound(svg, temperature, input.temperatureUpperBound_C,
              "upper bound " + label(input.temperatureUpperBound_C) + " \u00b0C");

    std::vector<Series> rates;
    std::vector<Series> temperatures;
    std::vector<std::string> styles;  // Series points at them, so they must not move
    styles.reserve(input.series.size());
    for (size_t i = 0; i < input.series.size(); ++i) {
        const ComparisonSeries& series = input.series[i];
        styles.push_back(std::string("stroke=\"") + seriesColour(i) + "\" stroke-width=\"1.5\"");
        rates.push_back({series.name.c_str(), styles.back().c_str(),
                         lineRuns(svg, fps, *series.rows, displayedFps)});
        temperatures.push_back({series.name.c_str(), styles.back().c_str(),
                                lineRuns(svg, temperature, *series.rows,
                                         [](const TimelineRow& r) -> std::optional<double> {
                                             return r.deviceTemperature_C;
                                         })});
    }
    drawSeries(svg, fps, rates);
    drawSeries(svg, temperature, temperatures);
    if (clocked) comparisonClocks(svg, clocks, input.series);
    timeAxis(svg, lowest, scale);
    return document(svg, lowest.top + lowest.height + 50.0, input.title, input.subtitle);
}

namespace {

// The pareto chart's plot: peak temperature across, displayed FPS up, both ranges wide enough for
// the points and the objective's bounds.
struct ParetoPlot {
    Range temperatures;
    double temperatureStep;
    Panel fps;
};

ParetoPlot paretoPlot(const ParetoChartInput& input) {
    double lowT = input.temperatureLimit_C.value_or(std::numeric_limits<double>::max());
    double highT = input.temperatureLimit_C.value_or(std::numeric_limits<double>::lowest());
    double lowFps = input.fpsFloor.value_or(std::numeric_limits<double>::max());
    double highFps = input.fpsFloor.value_or(std::numeric_limits<double>::lowest());
    for (const ParetoChartPoint& point : input.points) {
        lowT = std::min(lowT, point.peakTemperature_C);
        highT = std::max(highT, point.peakTemperature_C);
        lowFps = std::min(lowFps, point.meanFps);
        highFps = std::max(highFps, point.meanFps);
    }
    if (lowT > highT) lowT = highT = 45.0;
    if (lowFps > highFps) lowFps = highFps = 60.0;
    return {niceRange(lowT - 0.5, highT + 0.5, 6), niceStep(highT - lowT + 1.0, 6),
            Panel{70.0, 420.0, niceRange(lowFps - 1.0, highFps + 1.0, 6),
                  "Displayed FPS against peak temperature, one point per run"}};
}

void paretoBounds(Svg& svg, const ParetoPlot& plot, const ParetoChartInput& input,
                  const std::function<double(double)>& x) {
    const double bottom = plot.fps.top + plot.fps.height;
    if (input.fpsFloor) {
        drawBound(svg, plot.fps, *input.fpsFloor, "objective: at least " + label(*input.fpsFloor));
    }
    if (input.temperatureLimit_C) {
        const double limit = x(*input.temperatureLimit_C);
        svg.Line(limit, plot.fps.top, limit, bottom,
                 "stroke=\"#d62728\" stroke-width=\"1\" stroke-dasharray=\"6,4\"");
        svg.Text(limit - 4, plot.fps.top + 34,
                 "objective: at most " + label(*input.temperatureLimit_C) + " \u00b0C", "end", 11,
                 " fill=\"#d62728\"");
    }
}

void paretoPoints(Svg& svg, const ParetoPlot& plot, const ParetoChartInput& input,
                  const std::function<double(double)>& x) {
    std::vector<Point> front;
    for (const ParetoChartPoint& point : input.points) {
        if (point.onFront)
            front.push_back({x(point.peakTemperature_C), Svg::Y(plot.fps, point.meanFps)});
    }
    std::sort(front.begin(), front.end(), [](const Point& a, const Point& b) { return a.x < b.x; });
    svg.Polyline(front, "stroke=\"#d62728\" stroke-width=\"1.5\" stroke-dasharray=\"4,3\"");
    for (const ParetoChartPoint& point : input.points) {
        const double px = x(point.peakTemperature_C);
        const double py = Svg::Y(plot.fps, point.meanFps);
        const char* fill = point.onFront ? "#d62728" : "#8c8c8c";
        svg.Raw("<circle cx=\"" + number(px) + "\" cy=\"" + number(py) + "\" r=\"" +
                (point.onFront ? "5" : "4") + "\" fill=\"" + fill + "\"/>\n");
        if (point.best) {
            svg.Raw("<circle cx=\"" + number(px) + "\" cy=\"" + number(py) +
                    "\" r=\"10\" fill=\"none\" stroke=\"#2ca02c\" stroke-width=\"2.5\"/>\n");
        }
        if (point.onFront || point.best) {
            // A label that would leave the plot on the right goes to the left of its point.
            const bool left =
                px + 12.0 + 6.2 * static_cast<double>(point.label.size()) > kLeft + kPlotWidth;
            svg.Text(left ? px - 12 : px + 12, py - 6, point.label, left ? "end" : "start", 11,
                     " stroke=\"white\" stroke-width=\"3\" paint-order=\"stroke\"");
        }
    }
}

// The runs without a point, in lines under the axis; returns the chart's height.
double paretoApart(Svg& svg, const std::vector<std::string>& apart, double bottom) {
    if (apart.empty()) return bottom + 70.0;
    svg.Text(kLeft, bottom + 80, "Without a point:", "start", 12, " font-weight=\"bold\"");
    double at = kLeft + 110.0;
    double height = bottom + 80.0;
    for (const std::string& entry : apart) {
        const double width = 24.0 + 6.6 * static_cast<double>(entry.size());
        if (at + width > kLeft + kPlotWidth) {
            at = kLeft + 110.0;
            height += 18.0;
        }
        svg.Text(at, height, "\u00d7 " + entry, "start", 11, " fill=\"#7f7f7f\"");
        at += width;
    }
    return height + 20.0;
}

}  // namespace

std::string RenderParetoChart(const ParetoChartInput& input) {
    const ParetoPlot plot = paretoPlot(input);
    Svg svg(plot.temperatures.high - plot.temperatures.low, 1.0);
    const auto x = [&](double temperature_C) {
        return svg.X(temperature_C - plot.temperatures.low);
    };
    svg.Frame(plot.fps, plot.temperatureStep);
    const double bottom = plot.fps.top + plot.fps.height;
    for (const double t :
         ticks(plot.temperatures.low, plot.temperatures.high, plot.temperatureStep)) {
        svg.Text(x(t), bottom + 16, label(t), "middle", 11);
    }
    svg.Text(kLeft + kPlotWidth / 2.0, bottom + 38, "peak temperature (\u00b0C)", "middle", 12);
    paretoBounds(svg, plot, input, x);
    paretoPoints(svg, plot, input, x);
    svg.Text(kLeft, bottom + 56,
             "grey: a run; red: the Pareto front (no run cooler and faster); green ring: the best "
             "under the objective",
             "start", 11, " fill=\"#555\"");
    return document(svg, paretoApart(svg, input.apart, bottom), input.title, input.subtitle);
}

namespace {

constexpr size_t kPeriodBins = ShownFrames::kPeriodBins;

// "2 (33.3 ms)"; the last bin holds every longer interval too.
std::string periodLabel(size_t bin, int refreshRate_Hz) {
    const std::string more = bin + 1 == kPeriodBins ? "+" : "";
    const double length_ms = static_cast<double>(bin + 1) * 1000.0 / std::max(refreshRate_Hz, 1);
    return std::to_string(bin + 1) + more + " (" + Fixed(length_ms, 1) + more + " ms)";
}

std::uint64_t intervalsOf(const IntervalHistogramSeries& series) {
    return std::accumulate(series.periods.begin(), series.periods.end(), std::uint64_t{0});
}

// Percent of the run's intervals in each bin; nothing when it showed no frame.
std::optional<std::array<double, kPeriodBins>> shares(const IntervalHistogramSeries& series) {
    const std::uint64_t total = intervalsOf(series);
    if (total == 0) return std::nullopt;
    std::array<double, kPeriodBins> percent{};
    for (size_t bin = 0; bin < kPeriodBins; ++bin) {
        percent[bin] =
            100.0 * static_cast<double>(series.periods[bin]) / static_cast<double>(total);
    }
    return percent;
}

// A share that rounds to nothing but is not nothing says so.
std::string shareFigure(double percent) {
    return percent > 0.0 && percent < 0.05 ? "<0.1" : Fixed(percent, 1);
}

// One group of bars per bin, a bar per run in the order given, its share written above it
// where the bin holds any and the bars are wide enough for the figure.
void histogramBars(Svg& svg, const Panel& panel, const IntervalHistogramInput& input) {
    const double group = svg.X(1.0) - svg.X(0.0);
    const double bar = 0.8 * group / static_cast<double>(std::max<size_t>(input.series.size(), 1));
    const double bottom = panel.top + panel.height;
    for (size_t i = 0; i < input.series.size(); ++i) {
        const IntervalHistogramSeries& series = input.series[i];
        const auto percent = shares(series);
        if (!percent) continue;
        for (size_t bin = 0; bin < kPeriodBins; ++bin) {
            const double x =
                svg.X(static_cast<double>(bin)) + 0.1 * group + bar * static_cast<double>(i);
            const double y = Svg::Y(panel, (*percent)[bin]);
            const std::string tip = series.name + ": " + periodLabel(bin, input.refreshRate_Hz) +
                                    ", " + shareFigure((*percent)[bin]) + " % of " +
                                    GroupThousands(intervalsOf(series)) + " intervals";
            svg.Raw("<rect class=\"bar\" x=\"" + number(x) + "\" y=\"" + number(y) + "\" width=\"" +
                    number(0.9 * bar) + "\" height=\"" + number(bottom - y) + "\" fill=\"" +
                    seriesColour(i) + "\"><title>" + escaped(tip) + "</title></rect>\n");
            if (bar >= 26.0 && series.periods[bin] > 0) {
                svg.Text(x + 0.45 * bar, y - 3, shareFigure((*percent)[bin]), "middle", 10);
            }
        }
    }
}

void histogramLegend(Svg& svg, const Panel& panel, const IntervalHistogramInput& input) {
    std::vector<std::string> styles;  // the entries point at them, so they must not move
    styles.reserve(input.series.size());
    std::vector<LegendEntry> entries;
    for (size_t i = 0; i < input.series.size(); ++i) {
        const IntervalHistogramSeries& series = input.series[i];
        styles.push_back(std::string("stroke=\"") + seriesColour(i) + "\" stroke-width=\"8\"");
        entries.push_back({shares(series) ? series.name : series.name + ": no frames shown",
                           styles.back().c_str()});
    }
    drawLegend(svg, panel.top - 10, entries);
}

}  // namespace

std::string RenderIntervalHistogram(const IntervalHistogramInput& input) {
    Svg svg(static_cast<double>(kPeriodBins), 1.0);
    // Above 100 %, room for the panel's title and the figure over a bar that holds every
    // interval.
    const Panel plot{80.0, 300.0, {0.0, 115.0}, "Share of each policy's displayed intervals (%)"};
    svg.Frame(plot, 1.0, 20.0);
    const double bottom = plot.top + plot.height;
    for (size_t bin = 0; bin < kPeriodBins; ++bin) {
        svg.Text(svg.X(static_cast<double>(bin) + 0.5), bottom + 16,
                 periodLabel(bin, input.refreshRate_Hz), "middle", 11);
    }
    svg.Text(kLeft + kPlotWidth / 2.0, bottom + 38,
             "interval from one displayed frame to the next, in refresh periods of the " +
                 std::to_string(input.refreshRate_Hz) + " Hz panel",
             "middle", 12);
    histogramBars(svg, plot, input);
    histogramLegend(svg, plot, input);
    return document(svg, bottom + 60.0, input.title, input.subtitle);
}

}  // namespace TalvexSim
