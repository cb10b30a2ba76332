#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "SimTestSupport.h"
#include "tools/sim/output/Chart.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/output/ReportText.h"
#include "tools/sim/output/TimelineCsv.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ReadFile;
using TalvexSimTest::ScratchDirectory;

TEST(TimelineCsvTest, OneLinePerRowWithTheNodeQuotedAndMissingValuesEmpty) {
    TimelineRow running;
    running.time_s = 1.0;
    running.temperature_C = 40.5;
    running.current_mA = 1234.5;
    running.ofps = 59;
    running.efps = 60;
    running.gfps = 60;
    running.sfps = 45;
    running.node = "7,45,60";
    running.frames = FrameStats{16.6667, 16.5, 20.25};
    running.deviceTemperature_C = 40.25;
    running.power_W = 5.5;
    running.heldFps = 45;
    running.jankFrames = 2;
    running.governorState = 1;
    running.cpu_MHz = 2016.0;
    running.gpu_MHz = 585.5;
    running.dieTemperature_C = 61.25;
    running.capped = true;
    TimelineRow paused;
    paused.time_s = 2.0;
    paused.paused = true;
    paused.node = "odd \"text\"";
    std::ostringstream csv;
    WriteTimelineCsv(csv, {running, paused});
    EXPECT_EQ(csv.str(),
              "time_s,paused,temperature_C,current_mA,ofps,efps,gfps,sfps,node,exploring_ticks,"
              "frame_ms_mean,frame_ms_p50,frame_ms_p99,device_temperature_C,power_W,held_fps,"
              "jank_frames,governor_state,cpu_mhz,gpu_mhz,die_temperature_C,capped\n"
              "1.000,0,40.500,1234.500,59,60,60,45,\"7,45,60\",0,16.667,16.500,20.250,40.250,"
              "5.500,45,2,1,2016.0,585.5,61.250,1\n"
              "2.000,1,0.000,0.000,0,,-1,-1,\"odd \"\"text\"\"\",0,,,,0.000,0.000,0,0,0,0.0,0.0,"
              "0.000,0\n");
    std::ostringstream replay;
    WriteTimelineCsv(replay, {running}, false);  // no device model: its columns are left out
    EXPECT_EQ(replay.str().substr(replay.str().find('\n') + 1),
              "1.000,0,40.500,1234.500,59,60,60,45,\"7,45,60\",0,16.667,16.500,20.250\n");
}

TEST(OutputFilesTest, WritesEveryFileAndLeavesNoTemporaryFile) {
    ScratchDirectory scratch;
    const std::string folder = scratch.File("out/run");
    WriteOutputFiles(folder, {{"a.txt", "alpha"}, {"b.txt", ""}});
    EXPECT_EQ(ReadFile(folder + "/a.txt"), "alpha");
    EXPECT_TRUE(std::filesystem::exists(folder + "/b.txt"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder),
                            std::filesystem::directory_iterator()),
              2);
}

TEST(OutputFilesTest, AFailedRenameThrowsAndLeavesNoTemporaryFile) {
    ScratchDirectory scratch;
    const std::string folder = scratch.File("run");
    WriteOutputFiles(folder, {{"a.txt", "old"}});
    // A folder where the second file should go makes its rename fail.
    std::filesystem::create_directories(folder + "/b.txt/inside");
    EXPECT_THROW(WriteOutputFiles(folder, {{"a.txt", "new"}, {"b.txt", "x"}}), std::runtime_error);
    EXPECT_EQ(ReadFile(folder + "/a.txt"), "new");
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        EXPECT_EQ(entry.path().filename().string().find(".tmp-"), std::string::npos);
    }
    EXPECT_THROW(WriteOutputFiles(scratch.File("run/a.txt/below"), {{"c", "x"}}),
                 std::runtime_error);
}

TimelineRow row(double time_s, int gfps, int sfps, bool paused = false) {
    TimelineRow r;
    r.time_s = time_s;
    r.gfps = gfps;
    r.sfps = sfps;
    r.paused = paused;
    r.ofps = sfps > 0 ? sfps : gfps;
    return r;
}

TEST(ChartTest, IsAnSvgWithThePausesShadedAndTheBoundsDrawn) {
    const std::vector<TimelineRow> rows = {row(1, 60, -1), row(2, 60, 50), row(3, 60, 50, true),
                                           row(4, 60, -1)};
    ChartInput input;
    input.title = "talvex-sim: <test>";
    input.rows = &rows;
    input.currentThreshold_mA = 1500.0;
    const std::string svg = RenderChart(input);
    EXPECT_EQ(svg.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0u);
    EXPECT_NE(svg.find("talvex-sim: &lt;test&gt;"), std::string::npos);
    EXPECT_NE(svg.find(">paused<"), std::string::npos);
    EXPECT_NE(svg.find("threshold 1500 mA"), std::string::npos);
    EXPECT_NE(svg.find("upper bound 45"), std::string::npos);
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
}

// The value of attribute `name` in the element starting at `at`.
std::string attributeAt(const std::string& svg, size_t at, const std::string& name) {
    const size_t start = svg.find(" " + name + "=\"", at) + name.size() + 3;
    return svg.substr(start, svg.find('"', start) - start);
}

// The y of the grid line a value axis labels `text`.
double gridLineY(const std::string& svg, const std::string& text) {
    const size_t labelAt = svg.find("\">" + text + "</text>");
    if (labelAt == std::string::npos) return -1.0;
    return std::stod(attributeAt(svg, svg.rfind("<line", labelAt), "y1"));
}

// The y of every point of every polyline, a list per polyline in drawing order.
std::vector<std::vector<double>> polylineYs(const std::string& svg) {
    std::vector<std::vector<double>> lines;
    for (size_t at = svg.find("<polyline"); at != std::string::npos;
         at = svg.find("<polyline", at + 1)) {
        std::istringstream points(attributeAt(svg, at, "points"));
        lines.emplace_back();
        double x = 0.0;
        double y = 0.0;
        char comma = 0;
        while (points >> x >> comma >> y) lines.back().push_back(y);
    }
    return lines;
}

TEST(ComparisonChartTest, PlotsTheFramesShownPerSecondOfEachRunningRow) {
    // 20 frames on the glass in half a second: 40 displayed FPS where the game rendered 60.
    std::vector<TimelineRow> rows;
    for (int i = 1; i <= 5; ++i) {
        rows.push_back(row(0.5 * i, 60, -1, i == 3));
        rows.back().interval_s = 0.5;
        rows.back().shownFrames = i == 3 ? 0 : 20;
        rows.back().deviceTemperature_C = 44.0;
    }
    ComparisonChartInput input;
    input.series = {{"talvex", &rows}};
    const std::string svg = RenderComparisonChart(input);
    EXPECT_NE(svg.find("displayed FPS"), std::string::npos);
    const double at40 = gridLineY(svg, "40");
    const double at60 = gridLineY(svg, "60");
    ASSERT_GT(at40, 0.0);
    ASSERT_GT(at60, 0.0);
    // The rates come first, broken by the pause; the temperature follows.
    const std::vector<std::vector<double>> lines = polylineYs(svg);
    ASSERT_EQ(lines.size(), 3u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(lines[i].size(), 2u);
        for (const double y : lines[i]) EXPECT_DOUBLE_EQ(y, at40) << "run " << i;
    }
    for (const auto& line : lines) {
        for (const double y : line) EXPECT_NE(y, at60);
    }
}

// The colour of the swatch beside a legend's entry.
std::string legendColour(const std::string& svg, const std::string& entry) {
    const size_t at = svg.find(">" + entry + "</text>");
    if (at == std::string::npos) return "<no entry '" + entry + "'>";
    return attributeAt(svg, svg.rfind("<line", at), "stroke");
}

struct Polyline {
    std::string stroke;
    bool dashed = false;
    std::vector<double> ys;
};

// Every polyline with its colour and whether it is dashed, in drawing order.
std::vector<Polyline> polylines(const std::string& svg) {
    std::vector<Polyline> lines;
    const std::vector<std::vector<double>> ys = polylineYs(svg);
    for (size_t at = svg.find("<polyline"); at != std::string::npos;
         at = svg.find("<polyline", at + 1)) {
        const std::string element = svg.substr(at, svg.find("/>", at) - at);
        lines.push_back({attributeAt(element, 0, "stroke"),
                         element.find("stroke-dasharray") != std::string::npos, ys[lines.size()]});
    }
    return lines;
}

// Two policies on a device with clocks; the last row is paused at a clock of its own.
std::vector<TimelineRow> clockedRows(double cpu_MHz, double gpu_MHz) {
    std::vector<TimelineRow> rows;
    for (int i = 1; i <= 4; ++i) {
        rows.push_back(row(i, 60, -1, i == 4));
        rows.back().shownFrames = 60;
        rows.back().deviceTemperature_C = 42.0;
        rows.back().cpu_MHz = i == 4 ? 1000.0 : cpu_MHz;
        rows.back().gpu_MHz = i == 4 ? 1000.0 : gpu_MHz;
    }
    return rows;
}

// The polylines drawn in `colour`.
std::vector<Polyline> inColour(const std::vector<Polyline>& lines, const std::string& colour) {
    std::vector<Polyline> found;
    for (const Polyline& line : lines) {
        if (line.stroke == colour) found.push_back(line);
    }
    return found;
}

// One line through the three running rows, all at `y`.
void expectFlatLine(const Polyline& line, bool dashed, double y) {
    EXPECT_EQ(line.dashed, dashed) << line.stroke;
    EXPECT_EQ(line.ys.size(), 3u) << line.stroke;
    for (const double at : line.ys) EXPECT_DOUBLE_EQ(at, y) << line.stroke;
}

TEST(ComparisonChartTest, ClocksGetAPanelOfTheirOwnCpuSolidGpuDashed) {
    const std::vector<TimelineRow> fast = clockedRows(2000.0, 500.0);
    const std::vector<TimelineRow> slow = clockedRows(1500.0, 1000.0);
    ComparisonChartInput input;
    input.series = {{"talvex", &fast}, {"governor", &slow}};
    const std::string svg = RenderComparisonChart(input);
    ASSERT_NE(svg.find(">Clocks (MHz)</text>"), std::string::npos);
    const double at500 = gridLineY(svg, "500");
    const double at1000 = gridLineY(svg, "1000");
    const double at1500 = gridLineY(svg, "1500");
    const double at2000 = gridLineY(svg, "2000");  // the top: the highest clock is a grid step
    ASSERT_GT(at500, at1000);
    EXPECT_EQ(gridLineY(svg, "2500"), -1.0);
    const std::vector<Polyline> lines = polylines(svg);
    // The frame rate and the temperature, one each per policy, then the clocks.
    EXPECT_EQ(lines.size(), 8u);
    const std::vector<Polyline> clocks(lines.begin() + 4, lines.end());
    const std::vector<Polyline> talvex = inColour(clocks, legendColour(svg, "talvex"));
    const std::vector<Polyline> governor = inColour(clocks, legendColour(svg, "governor"));
    ASSERT_EQ(talvex.size(), 2u);
    ASSERT_EQ(governor.size(), 2u);
    // Drawing order is free: one of each policy's pair is solid, at its CPU's clock.
    const size_t talvexCpu = talvex[0].dashed ? 1 : 0;
    expectFlatLine(talvex[talvexCpu], false, at2000);
    expectFlatLine(talvex[1 - talvexCpu], true, at500);
    const size_t governorCpu = governor[0].dashed ? 1 : 0;
    expectFlatLine(governor[governorCpu], false, at1500);
    expectFlatLine(governor[1 - governorCpu], true, at1000);
    // The panel sits under the temperature and the chart grew to hold it.
    EXPECT_GT(at500, gridLineY(svg, "42"));
    EXPECT_GT(std::stod(attributeAt(svg, 0, "height")), at500 + 40.0);
}

TEST(ComparisonChartTest, WithoutClocksThereIsNoClockPanel) {
    std::vector<TimelineRow> rows = clockedRows(0.0, 0.0);
    rows.back().cpu_MHz = rows.back().gpu_MHz = 0.0;
    ComparisonChartInput input;
    input.series = {{"talvex", &rows}};
    const std::string svg = RenderComparisonChart(input);
    EXPECT_EQ(svg.find("Clocks"), std::string::npos);
    EXPECT_EQ(polylines(svg).size(), 2u);
    EXPECT_EQ(attributeAt(svg, 0, "height"), "600.0");
}

TEST(ChartTest, ClocksGetAPanelUnderTheCurrentInTwoColours) {
    const std::vector<TimelineRow> rows = clockedRows(2000.0, 500.0);
    ChartInput input;
    input.rows = &rows;
    const std::string svg = RenderChart(input);
    ASSERT_NE(svg.find(">Clocks (MHz)</text>"), std::string::npos);
    const std::string cpu = legendColour(svg, "CPU");
    const std::string gpu = legendColour(svg, "GPU");
    EXPECT_NE(cpu, gpu);
    const std::vector<Polyline> lines = polylines(svg);
    ASSERT_EQ(inColour(lines, cpu).size(), 1u);
    ASSERT_EQ(inColour(lines, gpu).size(), 1u);
    expectFlatLine(inColour(lines, cpu)[0], false, gridLineY(svg, "2000"));
    expectFlatLine(inColour(lines, gpu)[0], true, gridLineY(svg, "500"));
    // Under the current, and the time axis moved down with it.
    EXPECT_GT(gridLineY(svg, "500"), 640.0);
    const size_t timeLabel = svg.rfind("<text", svg.find(">time (s)</text>"));
    EXPECT_GT(std::stod(attributeAt(svg, timeLabel, "y")), gridLineY(svg, "500"));
}

// One attribute of every bar of a histogram, in drawing order.
std::vector<std::string> barAttributes(const std::string& svg, const std::string& name) {
    std::vector<std::string> values;
    const std::string bar = "<rect class=\"bar\"";
    for (size_t at = svg.find(bar); at != std::string::npos; at = svg.find(bar, at + 1)) {
        values.push_back(attributeAt(svg, at, name));
    }
    return values;
}

std::vector<double> barValues(const std::string& svg, const std::string& name) {
    std::vector<double> values;
    for (const std::string& value : barAttributes(svg, name)) values.push_back(std::stod(value));
    return values;
}

TEST(IntervalHistogramTest, BarsStandInProportionToEachPolicysSharesGroupedByPeriod) {
    IntervalHistogramInput input;
    input.series = {{"talvex", {6, 2, 0, 0, 0, 0}},
                    {"governor", {1, 1, 1, 1, 0, 0}},
                    {"fixed:45", {0, 0, 0, 0, 0, 3}}};
    const std::string svg = RenderIntervalHistogram(input);
    const std::vector<double> heights = barValues(svg, "height");
    const std::vector<double> ys = barValues(svg, "y");
    const std::vector<double> xs = barValues(svg, "x");
    ASSERT_EQ(heights.size(), 18u);
    const std::vector<double> percent = {75, 25, 0, 0, 0, 0, 25, 25, 25,
                                         25, 0,  0, 0, 0, 0, 0,  0,  100};
    const double quarter = heights[1];
    ASSERT_GT(quarter, 10.0);
    for (size_t i = 0; i < heights.size(); ++i) {
        EXPECT_NEAR(heights[i], quarter * percent[i] / 25.0, 0.2) << "bar " << i;
        EXPECT_NEAR(ys[i] + heights[i], ys[0] + heights[0], 0.1) << "bar " << i;  // on the axis
    }
    // Along x: period by period, and within a period the policies in their order.
    for (size_t bin = 0; bin < 6; ++bin) {
        EXPECT_LT(xs[bin], xs[6 + bin]);
        EXPECT_LT(xs[6 + bin], xs[12 + bin]);
        if (bin > 0) {
            EXPECT_LT(xs[12 + bin - 1], xs[bin]);
        }
    }
    EXPECT_NE(svg.find(">75.0</text>"), std::string::npos);
    EXPECT_NE(svg.find(">100.0</text>"), std::string::npos);
    EXPECT_NE(svg.find(">1 (16.7 ms)</text>"), std::string::npos);
    EXPECT_NE(svg.find(">6+ (100.0+ ms)</text>"), std::string::npos);
}

TEST(IntervalHistogramTest, APolicyThatShowedNoFrameDrawsNoBarAndSaysSo) {
    IntervalHistogramInput input;
    input.series = {{"none", {}}, {"talvex", {4, 0, 0, 0, 0, 0}}};
    const std::string svg = RenderIntervalHistogram(input);
    EXPECT_EQ(barValues(svg, "height").size(), 6u);
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_EQ(svg.find("inf"), std::string::npos);
    EXPECT_NE(svg.find(">none: no frames shown</text>"), std::string::npos);
    for (const std::string& fill : barAttributes(svg, "fill")) {
        EXPECT_EQ(fill, legendColour(svg, "talvex"));
    }
}

TEST(ReportJsonTest, KeepsItsShapeNullsAndThreeDecimals) {
    Report report;
    report.timeToFirstDecrease_s = 1.0;
    report.timeAboveUpperBound_s = 300.0;
    report.meanPower_W = 1.0 / 3.0;
    SfpsFloor floor;
    floor.gfps = 120;
    floor.floor = 105;
    report.effectiveSfpsFloor = {floor};
    report.diagnostics = {{"hot_at_sfps_floor", "brief", "text", {{"sfps_floor", 105.0}}}};
    const std::string text = ReportJson(report);
    const Json::Value json = TalvexSimTest::ParseJson(text);
    EXPECT_TRUE(json["time_to_recover_s"].isNull());
    EXPECT_EQ(json["time_to_first_decrease_s"].asDouble(), 1.0);
    EXPECT_EQ(json["effective_sfps_floor"]["120"].asInt(), 105);
    EXPECT_EQ(json["time_above_upper_bound_s"].asDouble(), 300.0);
    EXPECT_NE(text.find("\"mean_power_w\" : 0.333,"), std::string::npos);
    EXPECT_EQ(json["diagnostics"][0]["evidence"]["sfps_floor"].asDouble(), 105.0);
}

}  // namespace
}  // namespace TalvexSim
