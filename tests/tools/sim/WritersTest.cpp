#include <gtest/gtest.h>
#include <json/json.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "SimTestSupport.h"
#include "harness/VirtualClock.h"
#include "tools/sim/Chart.h"
#include "tools/sim/OutputFiles.h"
#include "tools/sim/Simulation.h"
#include "tools/sim/Summary.h"
#include "tools/sim/Timeline.h"
#include "tools/sim/TraceRecorder.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ReadFile;
using TalvexSimTest::ScratchDirectory;

Json::Value parseJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &root, &errors)) << errors;
    return root;
}

TEST(FrameStatsTest, NearestRankPercentiles) {
    EXPECT_FALSE(ComputeFrameStats({}).has_value());
    std::vector<float> lengths;
    for (int i = 100; i >= 1; --i) lengths.push_back(static_cast<float>(i));
    const FrameStats stats = *ComputeFrameStats(lengths);
    EXPECT_DOUBLE_EQ(stats.mean_ms, 50.5);
    EXPECT_DOUBLE_EQ(stats.p50_ms, 50.0);
    EXPECT_DOUBLE_EQ(stats.p99_ms, 99.0);
    EXPECT_DOUBLE_EQ(ComputeFrameStats({7.0f})->p99_ms, 7.0);

    // The fixed-memory histogram agrees to the microsecond, past its binned range too.
    FrameHistogram histogram;
    EXPECT_FALSE(histogram.Stats().has_value());
    lengths.clear();
    for (int i = 1; i <= 98; ++i) lengths.push_back(static_cast<float>(i) * 2.5371f);
    lengths.push_back(400.25f);
    lengths.push_back(1000.5f);
    for (const float length : lengths) histogram.Add(length);
    const FrameStats exact = *ComputeFrameStats(lengths);
    const FrameStats binned = *histogram.Stats();
    EXPECT_EQ(histogram.Count(), 100u);
    EXPECT_NEAR(binned.mean_ms, exact.mean_ms, 1e-9);
    EXPECT_NEAR(binned.p50_ms, exact.p50_ms, 0.001);
    EXPECT_LE(binned.p50_ms, exact.p50_ms);
    EXPECT_DOUBLE_EQ(binned.p99_ms, exact.p99_ms);  // 400.25 ms, kept exactly
}

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

TEST(NodeTextTest, SfpsIsTheSecondFieldWhenTheTextHasThree) {
    EXPECT_EQ(SfpsOfNodeText("4321,45,60"), 45);
    EXPECT_EQ(SfpsOfNodeText("4321,-35,40"), -35);
    EXPECT_EQ(SfpsOfNodeText("0,-1,-1"), -1);
    EXPECT_EQ(SfpsOfNodeText(""), -1);
    EXPECT_EQ(SfpsOfNodeText("4321,45"), -1);
    EXPECT_EQ(SfpsOfNodeText("4321,4x,60"), -1);
}

class TraceRecorderTest : public ::testing::Test {
  protected:
    // One frame on the render track: a section, a counter inside it.
    void frameAt(TraceRecorder& recorder, std::int64_t time_ns) {
        clock.AdvanceTo(time_ns);
        recorder.SetTrack(TraceTrack::Render);
        recorder.Begin("Quillet::PostUpdate()");
        recorder.Counter("AI FrameLength (us)", 16667);
        clock.AdvanceTo(time_ns + 1000);
        recorder.End();
    }

    Json::Value written(const TraceRecorder& recorder) {
        std::ostringstream out;
        recorder.WriteJson(out, {4321, "com.test.game (pid 4321)"});
        return parseJson(out.str());
    }

    static int count(const Json::Value& trace, const std::string& name) {
        int found = 0;
        for (const Json::Value& event : trace["traceEvents"]) found += event["name"] == name;
        return found;
    }

    TalvexHarness::VirtualClock clock;
};

TEST_F(TraceRecorderTest, SectionsBecomeCompleteEventsOnVirtualTimeWithTheirThreads) {
    TraceRecorder recorder(FrameDetail::All);
    clock.AdvanceTo(2'500'000);
    recorder.SetTrack(TraceTrack::Host);
    recorder.Begin("FpsManager::Update()");
    recorder.Counter("AI SFPS", 45);
    clock.AdvanceTo(2'500'250);
    recorder.End();
    recorder.End();  // unbalanced ends are ignored
    const Json::Value trace = written(recorder);
    EXPECT_EQ(trace["displayTimeUnit"], "ms");

    const Json::Value* section = nullptr;
    const Json::Value* counter = nullptr;
    for (const Json::Value& event : trace["traceEvents"]) {
        if (event["name"] == "FpsManager::Update()") section = &event;
        if (event["name"] == "AI SFPS") counter = &event;
        if (event["ph"] == "M" && event["name"] == "process_name" && event["pid"] == 4321) {
            EXPECT_EQ(event["args"]["name"], "com.test.game (pid 4321)");
        }
    }
    ASSERT_NE(section, nullptr);
    EXPECT_EQ((*section)["ph"], "X");
    EXPECT_DOUBLE_EQ((*section)["ts"].asDouble(), 2500.0);
    EXPECT_DOUBLE_EQ((*section)["dur"].asDouble(), 0.25);
    EXPECT_EQ((*section)["tid"], static_cast<int>(TraceTrack::Host));
    ASSERT_NE(counter, nullptr);
    EXPECT_EQ((*counter)["ph"], "C");
    EXPECT_EQ((*counter)["args"]["value"], 45);
}

TEST_F(TraceRecorderTest, AroundChangesKeepsTheFirstSecondsAndTheFramesNearAChange) {
    TraceRecorder recorder(FrameDetail::AroundChanges);
    const std::int64_t second = 1'000'000'000;
    for (std::int64_t t = 0; t < 200 * second; t += second / 10) {
        frameAt(recorder, t);
        if (t == 100 * second || t == 110 * second || t == 170 * second) {
            recorder.MarkTargetChange(t);
        }
    }
    recorder.ModelCounter("OFPS", 0, 60.0);
    const Json::Value trace = written(recorder);
    // Frames at [0, 2 s], [98 s, 102 s] and [168 s, 172 s]; the change at 110 s comes too soon
    // after the one at 100 s to open a window of its own.
    EXPECT_EQ(count(trace, "Quillet::PostUpdate()"), 21 + 41 + 41);
    EXPECT_EQ(count(trace, "OFPS"), 1);
    for (const Json::Value& event : trace["traceEvents"]) {
        if (event["name"] != "Quillet::PostUpdate()") continue;
        const double t_s = event["ts"].asDouble() / 1e6;
        EXPECT_TRUE(t_s <= 2.0 || (t_s >= 98.0 && t_s <= 102.0) || (t_s >= 168.0 && t_s <= 172.0))
            << t_s;
    }
}

TEST_F(TraceRecorderTest, NoFramesStillKeepsAPeriodicHost) {
    TraceRecorder recorder(FrameDetail::None);
    frameAt(recorder, 0);
    recorder.SetTrack(TraceTrack::Host);
    recorder.Counter("AI SFPS", 60);
    const Json::Value trace = written(recorder);
    EXPECT_EQ(count(trace, "Quillet::PostUpdate()"), 0);
    EXPECT_EQ(count(trace, "AI SFPS"), 1);

    TraceRecorder everyFrame(FrameDetail::None);
    everyFrame.SetHostAtFrameRate(true);
    everyFrame.Counter("AI SFPS", 60);
    EXPECT_EQ(everyFrame.EventCount(), 0u);
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

TEST(SummaryTest, FiguresComeFromRunningRowsOnly) {
    const std::vector<TimelineRow> rows = {row(1, 60, -1), row(2, 60, 60),       row(3, 60, 55),
                                           row(4, 60, 50), row(5, 60, 40, true), row(6, 60, -35)};
    FrameHistogram frames;
    for (int i = 0; i < 300; ++i) frames.Add(20.0f);
    const Summary summary = Summarize(rows, frames, 5.0, 10, 1);
    ASSERT_TRUE(summary.firstDecrease_s.has_value());
    EXPECT_DOUBLE_EQ(*summary.firstDecrease_s, 3.0);  // 60 of 60 is no decrease
    EXPECT_EQ(summary.lowestSfps, 50);                // the paused row does not count
    EXPECT_DOUBLE_EQ(summary.stabilizedShare, 3.0 / 5.0);
    EXPECT_DOUBLE_EQ(summary.exploringShare, 0.1);
    EXPECT_DOUBLE_EQ(summary.meanFps, 60.0);
    EXPECT_DOUBLE_EQ(summary.frameTimes->p99_ms, 20.0);

    const Summary replay = Summarize({row(1, 60, -1), row(2, 60, -1)}, {}, 1.0, 2, 0);
    EXPECT_FALSE(replay.firstDecrease_s.has_value());
    EXPECT_FALSE(replay.lowestSfps.has_value());
    EXPECT_DOUBLE_EQ(replay.meanFps, 60.0);  // the mean OFPS without frames
    const std::string text = FormatSummary(replay, {});
    EXPECT_NE(text.find("time to first SFPS decrease   never"), std::string::npos) << text;
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

}  // namespace
}  // namespace TalvexSim
