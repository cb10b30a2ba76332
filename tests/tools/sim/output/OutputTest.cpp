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
    TimelineRow paused;
    paused.time_s = 2.0;
    paused.paused = true;
    paused.node = "odd \"text\"";
    std::ostringstream csv;
    WriteTimelineCsv(csv, {running, paused});
    EXPECT_EQ(csv.str(),
              "time_s,paused,temperature_C,current_mA,ofps,efps,gfps,sfps,node,exploring_ticks,"
              "frame_ms_mean,frame_ms_p50,frame_ms_p99,device_temperature_C,power_W,held_fps,"
              "jank_frames,governor_state\n"
              "1.000,0,40.500,1234.500,59,60,60,45,\"7,45,60\",0,16.667,16.500,20.250,40.250,"
              "5.500,45,2,1\n"
              "2.000,1,0.000,0.000,0,,-1,-1,\"odd \"\"text\"\"\",0,,,,0.000,0.000,0,0,0\n");
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

// The colour of the swatch beside a legend's entry.
std::string legendColour(const std::string& svg, const std::string& entry) {
    const size_t at = svg.find(">" + entry + "</text>");
    if (at == std::string::npos) return "<no entry '" + entry + "'>";
    return attributeAt(svg, svg.rfind("<line", at), "stroke");
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
