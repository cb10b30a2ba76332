#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "TempNodeDirectory.h"
#include "TraceCapture.h"
#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"
#include "talvex/pacing/Quillet.h"
#include "talvex/pacing/QuilletImpl.h"

namespace {

using android::Nimbrel::Quillet::Quillet;

constexpr double kPeriod60_ms = 1000.0 / 60;
const std::vector<std::string> kClearedCounters = {
    "AI_Egl QuotaCounts",       "AI + Quota (us)",     "AI - Quota (us)",
    "AI SleepCalibration (us)", "AI FrameLength (us)", "AI TimeDiff (us)"};

// Fields of the pacing node line, 1-based; numbers as the line prints them.
enum Field { kSFPS = 1, kFastest, kFrameLength, kWindow, kCalibration = 7, kTimeDiff, kSleep };

class QuilletTest : public ::testing::Test {
  protected:
    void SetUp() override { quillet = std::make_unique<Quillet>(); }
    void TearDown() override { Basics::Log::SetLogLevel(2); }

    std::vector<std::string> Line() const {
        const std::string node = nodes.Read("egl_buf");
        EXPECT_EQ(node.back(), '\n');
        return Basics::SplitString(node.substr(0, node.size() - 1), ';');
    }
    std::string Text(Field field) const { return Line().at(field - 1); }

    // One frame: `spent_ms` pass before the sleep calculation and `rest_ms` after it.
    float Frame(int target, double spent_ms, double rest_ms = 0.0) {
        quillet->Update(target, 90, 120);
        clock.AdvanceMs(spent_ms);
        const float sleep_ms = quillet->CalculateSleepDuration_ms();
        clock.AdvanceMs(rest_ms);
        quillet->PostUpdate();
        return sleep_ms;
    }

    void ExpectCountersCleared() const {
        for (const std::string& counter : kClearedCounters) {
            EXPECT_EQ(trace.CounterValues(counter), std::vector<int32_t>{0}) << counter;
        }
        EXPECT_TRUE(trace.CounterValues("AI Sleep duration (us)").empty());
    }

    TalvexTest::TempNodeDirectory nodes;
    TalvexTest::ManualClock clock;
    TalvexTest::LogCapture logs;
    TalvexTest::TraceCapture trace;
    std::unique_ptr<Quillet> quillet;
};

TEST_F(QuilletTest, LifetimeClearsNodeAndCountersAndFirstFramesOnlyStartTheClock) {
    ExpectCountersCleared();
    EXPECT_EQ(nodes.Read("egl_buf"), "\n");
    trace.Clear();

    // No frame measured yet: the first line shows the fresh window and no sleep.
    quillet->Update(60, 90, 120);
    EXPECT_EQ(quillet->CalculateSleepDuration_ms(), 0.0f);
    EXPECT_EQ(nodes.Read("egl_buf"), "60;90;nan;0,nan,inf,-1000;0;nan;-1;nan;0\n");
    quillet->PostUpdate();
    EXPECT_EQ(trace.CounterValues("AI FrameLength (us)"), std::vector<int32_t>{0});
    EXPECT_EQ(trace.SectionNames(),
              (std::vector<std::string>{"Quillet::Update()", "Quillet::CalculateSleepDuration_ms()",
                                        "Quillet::PostUpdate()"}));
    EXPECT_EQ(trace.OpenSections(), 0);

    // From the second frame on: sleep = (0 - 1) + (16.667 - 20), kept in the line, 0 returned.
    EXPECT_EQ(Frame(60, 20.0), 0.0f);
    EXPECT_EQ(Text(kSleep), "-4.333");
    EXPECT_EQ(Text(kTimeDiff), "20");
    EXPECT_EQ(Text(kFrameLength), "nan");  // the line precedes the frame's end

    Basics::Log::SetLogLevel(3);
    trace.Clear();
    quillet.reset();
    EXPECT_EQ(nodes.Read("egl_buf"), "\n");
    ExpectCountersCleared();
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "[Quillet] clearInfoNode while destruct"), 1u);
}

// The calibration survives a change of target, which resets both frame windows.
TEST_F(QuilletTest, SleepFromQuotaCalibrationAndTimeSpent) {
    Frame(60, 0.0);
    Frame(60, 20.0);  // measured: 20 ms, slower than 60
    Frame(60, 20.0);
    EXPECT_EQ(Text(kCalibration), "-1.1");

    Basics::Log::SetLogLevel(3);
    Frame(45, 0.0, 1000.0 / 60 - 2.0);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG,
                         "[Quillet] clear sleepCalibrator because of targetSFPS "
                         "change from 60.000000 to 45"),
              1u);
    EXPECT_EQ(Text(kWindow), "0,0,inf,0");
    Frame(60, 0.0, 1000.0 / 60 - 2.0);  // 2 ms in hand at 60
    EXPECT_EQ(Text(kCalibration), "-1.1");

    trace.Clear();
    quillet->Update(60, 90, 120);
    clock.AdvanceMs(10.0);
    EXPECT_NEAR(quillet->CalculateSleepDuration_ms(), (2.0 - 1.0) + (kPeriod60_ms - 10.0), 1e-3);
    EXPECT_EQ(nodes.Read("egl_buf"), "60;90;14.67;1,68.18,inf,0;2;68.18;-1;10;7.667\n");
    EXPECT_EQ(trace.CounterValues("AI_Egl QuotaCounts"), std::vector<int32_t>{1});
    EXPECT_NEAR(trace.CounterValues("AI + Quota (us)").at(0), 2000, 1);
    EXPECT_NEAR(trace.CounterValues("AI - Quota (us)").at(0), -2000, 1);
    EXPECT_EQ(trace.CounterValues("AI TimeDiff (us)"), std::vector<int32_t>{10000});
    EXPECT_NEAR(trace.CounterValues("AI Sleep duration (us)").at(0), 7667, 1);
}

TEST_F(QuilletTest, CalibrationFollowsTheMeasuredRate) {
    const struct {
        double measuredFPS;
        const char* calibration_ms;
    } rows[] = {{61.0, "-0.9"}, {60.3, "-1"}, {60.2, "-1"}, {59.9, "-1.1"}, {30.0, "-1.1"}};
    for (const auto& row : rows) {
        quillet = std::make_unique<Quillet>();
        Frame(60, 0.0);
        Frame(60, 1000.0 / row.measuredFPS);
        Frame(60, 0.0);
        EXPECT_EQ(Text(kCalibration), row.calibration_ms) << row.measuredFPS;
    }
}

// 0.1 ms per frame, held within [-3, half a period].
TEST_F(QuilletTest, CalibrationWalksWithinItsBounds) {
    for (int frame = 0; frame < 120; ++frame) Frame(60, 10.0);
    for (int frame = 0; frame < 150; ++frame) Frame(60, 25.0);
    const std::vector<int32_t> walk = trace.CounterValues("AI SleepCalibration (us)");
    ASSERT_EQ(walk.size(), 1 + 270u);  // the constructor's 0 first
    int32_t highest = walk[1], lowest = walk[1];
    for (size_t i = 2; i < walk.size(); ++i) {
        EXPECT_LE(std::abs(walk[i] - walk[i - 1]), 101) << i;
        highest = std::max(highest, walk[i]);
        lowest = std::min(lowest, walk[i]);
    }
    EXPECT_EQ(highest, 8333);
    EXPECT_EQ(walk[120], 8333);
    EXPECT_EQ(lowest, -3000);
    EXPECT_EQ(walk.back(), -3000);
}

TEST_F(QuilletTest, TargetsFromMinusTenToTenSwitchPacingOffOnce) {
    for (int target : {-10, -5, 0, 5, 10}) {
        Frame(60, 5.0);
        Frame(60, 5.0);
        ASSERT_NE(nodes.Read("egl_buf"), "\n");
        Basics::Log::SetLogLevel(3);
        trace.Clear();
        logs.Clear();

        quillet->Update(target, 90, 120);
        EXPECT_EQ(nodes.Read("egl_buf"), "\n");
        ExpectCountersCleared();
        EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "[Quillet] clearInfoNode because of TARGET_SFPS_=" +
                                                    std::to_string(target) + " not valid."),
                  1u);

        // Off: nothing more is cleared or written, only frame ends are counted, and no frame
        // reaches the windows.
        nodes.Write("egl_buf", "kept");
        trace.Clear();
        for (int frame = 0; frame < 5; ++frame) EXPECT_EQ(Frame(target, 5.0), 0.0f);
        EXPECT_EQ(nodes.Read("egl_buf"), "kept");
        std::set<std::string> counters;
        for (const TalvexTest::TraceEvent& event : trace.Events()) {
            if (event.kind == TalvexTest::TraceEvent::Kind::Counter) counters.insert(event.name);
        }
        EXPECT_EQ(counters, std::set<std::string>{"AI FrameLength (us)"});
        quillet->Update(60, 90, 120);
        EXPECT_NEAR(quillet->CalculateSleepDuration_ms(), kPeriod60_ms - 1.0, 1e-3);
        EXPECT_EQ(Text(kWindow).substr(0, 2), "0,");
        EXPECT_EQ(Text(kCalibration), "-1");
        Basics::Log::SetLogLevel(2);
    }
}

TEST_F(QuilletTest, ExploringMeasuresWithoutSleeping) {
    Frame(-60, 0.0);
    trace.Clear();
    EXPECT_EQ(Frame(-60, 5.0), 0.0f);
    EXPECT_EQ(Text(kSFPS), "-60");
    EXPECT_EQ(Text(kSleep), "0");
    EXPECT_EQ(Text(kTimeDiff), "5");  // a sleep of 10.67 ms was computed
    EXPECT_EQ(trace.CounterValues("AI Sleep duration (us)"), std::vector<int32_t>{0});
    Frame(-60, 5.0);
    EXPECT_EQ(Text(kWindow).substr(0, 2), "1,");

    // Leaving exploring mode for the same rate keeps the window; another rate clears it.
    Frame(60, 5.0);
    EXPECT_EQ(Text(kWindow).substr(0, 2), "2,");
    Frame(45, 5.0);
    EXPECT_EQ(Text(kWindow).substr(0, 2), "0,");
}

TEST_F(QuilletTest, TargetAboveTheFastestRateHoldsTheFastestAndClearsTheWindows) {
    quillet->Update(60, 120, 90);
    quillet->CalculateSleepDuration_ms();
    EXPECT_EQ(Text(kSFPS), "60");
    EXPECT_EQ(Text(kFastest), "90");
    quillet->PostUpdate();
    for (int frame = 0; frame < 3; ++frame) Frame(60, 5.0);
    EXPECT_EQ(Text(kWindow).substr(0, 2), "2,");
    EXPECT_EQ(Text(kCalibration), "-0.8");

    for (int frame = 0; frame < 3; ++frame) {
        quillet->Update(60, 60, 50);
        clock.AdvanceMs(5.0);
        EXPECT_NEAR(quillet->CalculateSleepDuration_ms(), 20.0 - 0.8 - 5.0, 1e-3);
        EXPECT_EQ(Text(kSFPS), "50");
        EXPECT_EQ(Text(kFastest), "50");
        EXPECT_EQ(Text(kWindow).substr(0, 2), "0,");
        quillet->PostUpdate();
    }
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN,
                         "[Quillet][updateStabilizedFPS] TargetStabilizedFPS(=60) "
                         "> REFRESH_RATE(=50) is invalid!"),
              3u);
}

TEST_F(QuilletTest, UnopenableNodeWarnsOncePerWriteAndPacingGoesOn) {
    const std::string missing = nodes.Path() + "/missing";
    Basics::SetNodeDirectory(missing);
    quillet = std::make_unique<Quillet>();
    const std::string failure = "\t Failed to write info to node: '" + missing +
                                "/egl_buf'\nPlease check the Kernel Version and wheter the node "
                                "is valid.\n";
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN,
                         "[Quillet] Error occur while try to clear the info to Brain:\n" + failure),
              1u);

    Frame(60, 0.0);
    // 10 ms frames at 60: the quota grows by 6.667 ms a frame, the calibration by 0.1 ms.
    const double sleeps_ms[] = {5.667, 12.433, 19.2};
    for (int frame = 1; frame <= 3; ++frame) {
        EXPECT_NEAR(Frame(60, 10.0), sleeps_ms[frame - 1], 1e-3);
        EXPECT_EQ(logs.Count(ANDROID_LOG_WARN,
                             "[Quillet] Error occur while try to send info to Brain:\n" + failure),
                  1u + frame);
    }
}

TEST_F(QuilletTest, LongRunKeepsWellFormedLinesAndNonNegativeSleeps) {
    const int targets[] = {60, 45, -60, 30, 120, 0, -30, 90, 11, -11};
    uint32_t seed = 12345;
    for (int frame = 0; frame < 10000; ++frame) {
        seed = seed * 1664525u + 1013904223u;
        const int target = targets[(frame / 250) % 10];
        const float sleep_ms = Frame(target, (seed >> 8) % 40000 / 1000.0, (seed >> 4) % 16 * 0.5);
        ASSERT_GE(sleep_ms, 0.0f) << frame;
        const std::string node = nodes.Read("egl_buf");
        if (node == "\n") continue;
        ASSERT_EQ(node.find("-nan"), std::string::npos) << node;
        const std::vector<std::string> fields = Line();
        ASSERT_EQ(fields.size(), 9u) << node;
        ASSERT_EQ(Basics::SplitString(fields[kWindow - 1], ',').size(), 4u) << node;
    }
}

TEST(QuilletInfoLine, FloatsReadAsAStreamAtPrecisionFour) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        float value;
        const char* text;
    } rows[] = {{16.6667f, "16.67"},
                {0.0001234f, "0.0001234"},
                {123456.0f, "1.235e+05"},
                {-1000.0f, "-1000"},
                {nan, "nan"},
                {inf, "inf"},
                {-inf, "-inf"},
                {0.0f, "0"},
                {-4.33333f, "-4.333"},
                {1e-5f, "1e-05"},
                {99999.0f, "1e+05"},
                {-0.0f, "-0"},
                {60.02f, "60.02"}};
    for (const auto& row : rows) {
        std::ostringstream stream;
        stream.precision(4);
        stream << row.value;
        EXPECT_EQ(stream.str(), row.text);

        const android::Nimbrel::Quillet::InfoLine line{row.value,           90,        row.value,
                                                       "5,60.02,inf,-1000", row.value, row.value,
                                                       row.value,           row.value, row.value};
        char text[256];
        android::Nimbrel::Quillet::FormatInfoLine(text, sizeof(text), line);
        const std::string f = row.text;
        EXPECT_EQ(text, f + ";90;" + f + ";5,60.02,inf,-1000;" + f + ";" + f + ";" + f + ";" + f +
                            ";" + f + "\n");
    }

    // A NaN with the sign bit, as 0/0 gives on x86-64, still reads "nan".
    const android::Nimbrel::Quillet::InfoLine line{-nan, 0, -nan, "", -nan, -nan, -nan, -nan, -nan};
    char text[64];
    android::Nimbrel::Quillet::FormatInfoLine(text, sizeof(text), line);
    EXPECT_STREQ(text, "nan;0;nan;;nan;nan;nan;nan;nan\n");
}

// Trace off: the capture itself would allocate.
TEST(QuilletAllocations, SteadyFramesDoNotAllocate) {
    TalvexTest::TempNodeDirectory nodes;
    TalvexTest::ManualClock clock;
    for (bool nodePresent : {true, false}) {
        Basics::SetNodeDirectory(nodePresent ? nodes.Path() : nodes.Path() + "/missing");
        Basics::Log::SetLogLevel(nodePresent ? 2 : -1);
        Quillet quillet;
        const auto frame = [&](int index) {
            quillet.Update(index % 100 < 50 ? 60 : -60, 90, 120);
            clock.AdvanceMs(10.0 + index % 7);
            quillet.CalculateSleepDuration_ms();
            clock.AdvanceMs(5.0);
            quillet.PostUpdate();
        };
        frame(0);
        TalvexTest::AllocationCounter allocations;
        for (int index = 1; index <= 1000; ++index) frame(index);
        EXPECT_EQ(allocations.Count(), 0u) << nodePresent;
        EXPECT_EQ(nodes.Exists(nodePresent ? "egl_buf" : "missing/egl_buf"), nodePresent);
    }
    Basics::Log::SetLogLevel(2);
}

}  // namespace
