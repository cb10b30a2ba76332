#include <gtest/gtest.h>
#include <json/json.h>

#include <sstream>

#include "SimTestSupport.h"
#include "harness/VirtualClock.h"
#include "tools/sim/loop/Simulation.h"
#include "tools/sim/loop/Timeline.h"
#include "tools/sim/loop/TraceRecorder.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ParseJson;

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

TEST(ShownFramesTest, SlowFramesJanksAndPeriodsAsTheirDefinitionsCount) {
    ShownFrames shown(1000.0 / 60.0);
    shown.Add(std::nullopt, 40.0, 0.0);  // the first one: no interval
    for (const double interval : {16.7, 16.6, 16.7}) shown.Add(interval, 40.0, 1.0);
    shown.Add(100.0, 40.0, 2.0);  // over twice the mean of 16.67 and over 84 ms: a jank
    shown.Add(130.0, 40.0, 3.0);  // over twice the mean of 44.4 ms and 125 ms: a big jank too
    shown.Add(120.0, 40.0, 4.0);  // under twice the mean of 82 ms: neither
    shown.Add(35.0, 40.0, 61.0);  // slow at 34 ms only, after the first minute
    shown.Add(51.0, 40.0, 62.0);
    shown.Add(std::nullopt, 40.0, 70.0);  // a resume starts the three again
    for (const double interval : {10.0, 10.0}) shown.Add(interval, 40.0, 71.0);
    shown.Add(200.0, 40.0, 72.0);  // only two intervals before it since the resume

    EXPECT_EQ(shown.Count(), 13u);
    EXPECT_EQ(shown.Intervals().Count(), 11u);
    EXPECT_EQ(shown.Janks(), 2u);
    EXPECT_EQ(shown.BigJanks(), 1u);
    EXPECT_EQ(shown.SlowOver50(), 5u);  // 100, 130, 120, 51, 200
    EXPECT_EQ(shown.SlowOver34(), 6u);
    EXPECT_EQ(shown.LaterIntervals(), 5u);
    EXPECT_EQ(shown.LaterSlow(), 2u);
    // Nearest whole periods, the last bin 6 and more.
    const std::array<std::uint64_t, 6> periods{{5, 1, 1, 0, 0, 4}};
    EXPECT_EQ(shown.PeriodCounts(), periods);
    EXPECT_EQ(PeriodsOf(24.9, 1000.0 / 60.0), 1u);
    EXPECT_EQ(PeriodsOf(25.1, 1000.0 / 60.0), 2u);
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
        return ParseJson(out.str());
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

}  // namespace
}  // namespace TalvexSim
