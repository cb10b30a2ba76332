#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "harness/AllocationCounter.h"
#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/Trace.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"
#include "talvex/pacing/Quillet.h"

namespace {

using android::Nimbrel::Quillet::PacingPolicy;
using android::Nimbrel::Quillet::Quillet;
using Texts = std::vector<std::string>;

const Texts kCleared = {"AI_Egl QuotaCounts=0",  "AI + Quota (us)=0",
                        "AI - Quota (us)=0",     "AI SleepCalibration (us)=0",
                        "AI FrameLength (us)=0", "AI TimeDiff (us)=0"};
enum Field { kFrameLength = 3, kWindow, kQuota, kAveragedFPS, kCalibration, kTimeDiff, kSleep };

class QuilletTest : public ::testing::Test {
  protected:
    void SetUp() override { quillet = std::make_unique<Quillet>(); }

    Texts Fields() const {
        const std::string node = nodes.Read("egl_buf");
        return Basics::SplitString(node.substr(0, node.size() - 1), ';');
    }
    std::string Text(Field field) const { return Fields().at(field - 1); }
    // Sections as "[name" and "]", counters as "name=value".
    Texts Trace(bool countersOnly = false) const {
        Texts events;
        for (const TalvexHarness::TraceEvent& e : trace.Events()) {
            if (e.kind == TalvexHarness::TraceEvent::Kind::Counter) {
                events.push_back(e.name + "=" + std::to_string(e.value));
            } else if (!countersOnly) {
                events.push_back(e.name.empty() ? "]" : "[" + e.name);
            }
        }
        return events;
    }
    // One frame: `spent_ms` pass before the sleep calculation and `rest_ms` after it.
    float Frame(int target, double spent_ms, double rest_ms = 0.0, int refreshRate = 90) {
        quillet->Update(target, refreshRate, 120);
        clock.AdvanceMs(spent_ms);
        const float sleep_ms = quillet->CalculateSleepDuration_ms();
        clock.AdvanceMs(rest_ms);
        quillet->PostUpdate();
        return sleep_ms;
    }

    TalvexHarness::LogSwitchesScope debug{3};
    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::VirtualClock clock;
    TalvexHarness::LogSink logs;
    TalvexHarness::TraceCapture trace;
    std::unique_ptr<Quillet> quillet;
};

TEST_F(QuilletTest, LifetimeClearsAndFirstFramesOnlyStartTheClock) {
    EXPECT_EQ(nodes.Read("egl_buf"), "\n");

    quillet->Update(60, 90, 120);
    EXPECT_EQ(quillet->CalculateSleepDuration_ms(), 0.0f);
    EXPECT_EQ(nodes.Read("egl_buf"), "60;90;nan;0,nan,inf,-1000;0;nan;-1;nan;0\n");
    quillet->PostUpdate();
    Texts steps = kCleared;
    steps.insert(
        steps.end(),
        {"[Quillet::Update()", "]", "[Quillet::CalculateSleepDuration_ms()", "AI + Quota (us)=0",
         "AI - Quota (us)=0", "AI SleepCalibration (us)=-1000", "AI_Egl QuotaCounts=0",
         "AI Sleep duration (us)=0", "]", "[Quillet::PostUpdate()", "AI FrameLength (us)=0", "]"});
    EXPECT_EQ(Trace(), steps);
    // No sleep is not a sleep of 0 ms: the message says which branch ran.
    EXPECT_EQ(logs.Texts(ANDROID_LOG_DEBUG, "Finally"),
              Texts{"[Quillet][CalculateSleepDuration_ms] Finally, sleepDuration_ms = 0"});

    // (0 - 1) + (16.667 - 20) stays in the line while 0 is returned.
    EXPECT_EQ(Frame(60, 20.0), 0.0f);
    EXPECT_EQ(Text(kTimeDiff), "20");
    EXPECT_EQ(Text(kSleep), "-4.333");

    trace.Clear();
    quillet.reset();
    EXPECT_EQ(nodes.Read("egl_buf"), "\n");
    EXPECT_EQ(Trace(), kCleared);
}

// The calibration survives a change of target, which empties both frame windows.
TEST_F(QuilletTest, SleepAddsQuotaCalibrationAndWhatIsLeftOfThePeriod) {
    for (double spent_ms : {0.0, 20.0, 20.0}) Frame(60, spent_ms);  // the calibration to -1.1
    Frame(45, 0.0, 1000.0 / 60 - 2.0);
    EXPECT_EQ(nodes.Read("egl_buf").substr(0, 24), "45;90;20;0,0,inf,0;0;nan");
    Frame(60, 0.0, 1000.0 / 60 - 2.0);  // 2 ms in hand at 60
    EXPECT_EQ(Text(kCalibration), "-1.1");

    trace.Clear();
    quillet->Update(60, 90, 120);
    clock.AdvanceMs(10.0);
    EXPECT_NEAR(quillet->CalculateSleepDuration_ms(), 7.667, 1e-3);
    EXPECT_EQ(nodes.Read("egl_buf"), "60;90;14.67;1,68.18,inf,0;2;68.18;-1;10;7.667\n");
    // Taken in double and truncated toward zero: 1.9999997 ms, 7.6666663 ms.
    EXPECT_EQ(Trace(true), (Texts{"AI + Quota (us)=1999", "AI - Quota (us)=-1999",
                                  "AI SleepCalibration (us)=-1000", "AI TimeDiff (us)=10000",
                                  "AI_Egl QuotaCounts=1", "AI Sleep duration (us)=7666"}));
}

TEST_F(QuilletTest, CalibrationFollowsTheMeasuredRateWithinItsBounds) {
    // The dead band is [SFPS, SFPS + 0.5]; a frame of 48.780486 ms measures exactly 20.5 FPS in
    // float.
    const struct {
        int target;
        double frame_ms;
        const char* calibration_ms;
    } rows[] = {{60, 1000.0 / 61, "-0.9"},
                {60, 1000.0 / 60.6, "-0.9"},
                {60, 1000.0 / 60.3, "-1"},
                {60, 1000.0 / 59.9, "-1.1"},
                {20, 48.780486, "-1"}};
    for (const auto& row : rows) {
        quillet = std::make_unique<Quillet>();
        for (double spent_ms : {0.0, row.frame_ms, 0.0}) Frame(row.target, spent_ms);
        EXPECT_EQ(Text(kCalibration), row.calibration_ms) << row.frame_ms;
    }

    quillet = std::make_unique<Quillet>();
    trace.Clear();
    for (int frame = 0; frame < 270; ++frame) Frame(60, frame < 120 ? 10.0 : 25.0);
    const std::vector<int32_t> walk = trace.CounterValues("AI SleepCalibration (us)");
    ASSERT_EQ(walk.size(), 270u);
    EXPECT_EQ(std::vector<int32_t>(walk.begin(), walk.begin() + 5),
              (std::vector<int32_t>{-1000, -1000, -899, -799, -699}));
    EXPECT_EQ(*std::max_element(walk.begin(), walk.end()), 8333);
    EXPECT_EQ(*std::min_element(walk.begin(), walk.end()), -3000);
    EXPECT_EQ(walk.back(), -3000);
}

TEST_F(QuilletTest, TargetsFromMinusTenToTenSwitchPacingOffOnce) {
    for (int target : {-10, -5, 0, 5, 10}) {
        Frame(60, 5.0);
        Frame(60, 5.0);
        trace.Clear();
        quillet->Update(target, 90, 120);
        EXPECT_EQ(nodes.Read("egl_buf"), "\n");
        EXPECT_EQ(Trace(true), kCleared);

        // Off: nothing more is cleared or written, and no frame reaches the windows.
        nodes.Write("egl_buf", "kept");
        trace.Clear();
        for (int frame = 0; frame < 3; ++frame) EXPECT_EQ(Frame(target, 5.0), 0.0f);
        EXPECT_EQ(nodes.Read("egl_buf"), "kept");
        EXPECT_EQ(Trace(true), Texts(3, "AI FrameLength (us)=5000"));
        EXPECT_NEAR(Frame(60, 0.0), 1000.0 / 60 - 1.0, 1e-3);
        EXPECT_EQ(nodes.Read("egl_buf"), "60;90;5;0,0,inf,0;0;nan;-1;0;15.67\n");
    }
    // The edges of the range: 11 is held and -11 explores.
    Frame(11, 0.0);
    EXPECT_EQ(nodes.Read("egl_buf").substr(0, 3), "11;");
    Frame(-11, 0.0);
    EXPECT_EQ(nodes.Read("egl_buf").substr(0, 4), "-11;");
}

TEST_F(QuilletTest, ExploringMeasuresWithoutSleepingAndLeavesTheWindowsForTheSameRate) {
    Frame(-60, 0.0);
    trace.Clear();
    EXPECT_EQ(Frame(-60, 5.0), 0.0f);
    EXPECT_EQ(nodes.Read("egl_buf").substr(0, 4), "-60;");
    EXPECT_EQ(Text(kTimeDiff), "5");  // a sleep of 10.67 ms was computed
    EXPECT_EQ(Text(kSleep), "0");
    EXPECT_EQ(trace.CounterValues("AI Sleep duration (us)"), std::vector<int32_t>{0});
    Frame(-60, 5.0);
    Frame(60, 5.0);
    EXPECT_EQ(Text(kWindow), "2,200,inf,-1000");
    EXPECT_EQ(Text(kAveragedFPS), "200");
}

TEST_F(QuilletTest, TargetAboveTheFastestRateHoldsTheFastestAndEmptiesTheWindows) {
    for (double spent_ms : {0.0, 5.0, 5.0}) Frame(60, spent_ms, 0.0, 120);
    quillet->Update(60, 120, 90);
    clock.AdvanceMs(5.0);
    quillet->CalculateSleepDuration_ms();
    EXPECT_EQ(nodes.Read("egl_buf"), "60;90;5;2,200,inf,-1000;23.33;200;-0.8;5;34.2\n");
    quillet->PostUpdate();
    for (int frame = 0; frame < 3; ++frame) {
        quillet->Update(60, 60, 50);
        clock.AdvanceMs(5.0);
        EXPECT_NEAR(quillet->CalculateSleepDuration_ms(), 20.0 - 0.8 - 5.0, 1e-3);
        EXPECT_EQ(nodes.Read("egl_buf"), "50;50;5;0,0,inf,0;0;nan;-0.8;5;14.2\n");
        quillet->PostUpdate();
    }
    EXPECT_EQ(logs.Texts(ANDROID_LOG_WARN), Texts(3,
                                                  "[Quillet][updateStabilizedFPS] TargetStabilized"
                                                  "FPS(=60) > REFRESH_RATE(=50) is invalid!"));
}

// A clock that moves 1 ms at every read: each frame end reads it twice and each sleep
// calculation once, whether the reading is used or not.
TEST_F(QuilletTest, ClockReadsDoNotDependOnThePacingState) {
    static TalvexHarness::VirtualClock* ticking;
    ticking = &clock;
    Basics::SetClockSource([] {
        ticking->AdvanceMs(1.0);
        return ticking->Now();
    });
    for (PacingPolicy policy : {PacingPolicy::Quota, PacingPolicy::Deadline}) {
        for (int refreshRate : {90, 8}) {
            quillet = std::make_unique<Quillet>(policy);
            const Basics::TimePoint start = clock.Now();
            for (int frame = 0; frame < 3; ++frame) Frame(60, 0.0, 0.0, refreshRate);
            EXPECT_EQ(Text(kFrameLength), "2") << refreshRate;
            EXPECT_EQ(clock.Now() - start, std::chrono::milliseconds(9)) << refreshRate;
        }
    }
}

TEST_F(QuilletTest, NodeIsCreatedAsAStreamWouldAndOnlyAFailedOpenWarns) {
    nodes.Remove("egl_buf");
    const mode_t umask = ::umask(0);
    quillet = std::make_unique<Quillet>();
    ::umask(umask);
    struct stat node {};
    ASSERT_EQ(::stat(nodes.NodePath("egl_buf").c_str(), &node), 0);
    EXPECT_EQ(node.st_mode & 0777, 0666u);

    // How often a node that cannot be opened is reported, and that pacing goes on, is the
    // node-fault suite's; here, what the warnings say.
    logs.Clear();
    const std::string missing = nodes.Path() + "/missing";
    Basics::SetNodeDirectory(missing);
    quillet = std::make_unique<Quillet>();
    Frame(60, 10.0);
    const std::string failure = ":\n\t Failed to write info to node: '" + missing +
                                "/egl_buf'\nPlease check the Kernel Version and wheter the node "
                                "is valid.\n";
    EXPECT_EQ(logs.Texts(ANDROID_LOG_WARN),
              (Texts{"[Quillet] Error occur while try to clear the info to Brain" + failure,
                     "[Quillet] Error occur while try to send info to Brain" + failure}));

    // With standard input closed, as a host service may run, the node opens as descriptor 0.
    quillet.reset();
    Basics::SetNodeDirectory(nodes.Path());
    logs.Clear();
    const int input = ::dup(0);
    ::close(0);
    quillet = std::make_unique<Quillet>();
    Frame(60, 10.0);
    ::dup2(input, 0);
    ::close(input);
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN), 0u);
    EXPECT_EQ(nodes.Read("egl_buf").substr(0, 3), "60;");
}

// Both frame windows (wrapping round their buffers) and the node line are fed on every frame here,
// so this is also their allocation test. Trace off: the capture itself would allocate.
TEST(QuilletAllocations, SteadyFramesDoNotAllocate) {
    TalvexHarness::LogSwitchesScope logSwitches;
    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::VirtualClock clock;
    for (int run = 0; run < 4; ++run) {
        const bool nodePresent = run < 2;
        Basics::SetNodeDirectory(nodePresent ? nodes.Path() : nodes.Path() + "/missing");
        Basics::Log::SetLogLevel(nodePresent ? 2 : -1);
        Quillet quillet(run % 2 ? PacingPolicy::Deadline : PacingPolicy::Quota);
        const auto frame = [&](int index) {
            quillet.Update(index % 100 < 50 ? 60 : -60, 90, 120);
            clock.AdvanceMs(10.0 + index % 7);
            quillet.CalculateSleepDuration_ms();
            clock.AdvanceMs(5.0);
            quillet.PostUpdate();
        };
        frame(0);
        TalvexHarness::AllocationCounter allocations;
        for (int index = 1; index <= 1000; ++index) frame(index);
        EXPECT_EQ(allocations.Count(), 0u) << run;
        EXPECT_EQ(nodes.Exists(nodePresent ? "egl_buf" : "missing/egl_buf"), nodePresent);
    }
}

// Deadline pacing against a caller whose sleeps end 50-80 us late.
class DeadlineTest : public ::testing::Test {
  protected:
    static constexpr double kPeriod_ms = 1000.0 / 60;

    // One frame of work_ms that sleeps what it is told and late_ms more; returns the time since
    // the previous end.
    double Paced(int target, double work_ms, double late_ms = 0.0) {
        quillet->Update(target, 90, 120);
        clock.AdvanceMs(work_ms);
        const float sleep_ms = quillet->CalculateSleepDuration_ms();
        seed = seed * 1664525u + 1013904223u;
        if (sleep_ms > 0.0f) clock.AdvanceMs(sleep_ms + late_ms + 0.050 + (seed >> 16) % 31 / 1e3);
        quillet->PostUpdate();
        const double interval_ms = Ms(clock.Now() - lastEnd);
        lastEnd = clock.Now();
        return interval_ms;
    }
    static double Ms(std::chrono::nanoseconds span) {
        return static_cast<double>(span.count()) / 1e6;
    }
    float Field(Field field) const {
        return std::stof(Basics::SplitString(nodes.Read("egl_buf"), ';').at(field - 1));
    }

    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::VirtualClock clock;
    std::unique_ptr<Quillet> quillet = std::make_unique<Quillet>(PacingPolicy::Deadline);
    uint32_t seed = 1;
    Basics::TimePoint lastEnd;
};

// Intervals hold from the second frame on, and frame ends settle on the schedule by the 48th. A
// frame late by less than half a period is made up by the next alone.
TEST_F(DeadlineTest, KeepsTheScheduleUntilAFrameEndsHalfAPeriodOffOrTheTargetChanges) {
    Paced(60, 5.0);
    EXPECT_EQ(Field(kQuota), 0.0f);  // no schedule runs before the first frame end
    const Basics::TimePoint start = lastEnd;
    for (int frame = 1; frame <= 600; ++frame) {
        const double interval_ms = Paced(60, 4.0 + frame % 9);
        ASSERT_TRUE(frame < 2 || std::fabs(interval_ms - kPeriod_ms) < 0.04) << frame;
        const double late_ms = Ms(lastEnd - start) - frame * kPeriod_ms;
        ASSERT_TRUE(frame < 48 || std::fabs(late_ms) < 0.02) << frame;
    }
    EXPECT_NEAR(Field(kCalibration), -0.065, 0.005);

    Paced(60, 1.3 * kPeriod_ms);
    EXPECT_NEAR(Paced(60, 5.0), 0.7 * kPeriod_ms, 0.04);
    EXPECT_NEAR(Field(kQuota), -0.3 * kPeriod_ms, 0.04);
    EXPECT_NEAR(Field(kSleep), Field(kQuota) + Field(kCalibration) + kPeriod_ms - 5.0, 2e-3);
    Paced(60, 1.8 * kPeriod_ms);
    EXPECT_NEAR(Paced(60, 8.0), kPeriod_ms, 0.04);
    EXPECT_NEAR(Paced(45, 8.0), 1000.0 / 45, 0.04);
    EXPECT_NEAR(Paced(60, 8.0), kPeriod_ms, 0.04);
    Paced(60, 5.0, 5.0);  // counts as 2 ms
    Paced(60, 5.0);
    EXPECT_NEAR(Field(kCalibration), -(0.065 + (2.0 - 0.065) / 16), 0.005);
}

TEST_F(DeadlineTest, OffAndExploringAreAsUnderQuota) {
    const auto run = [this](PacingPolicy policy) {
        quillet = std::make_unique<Quillet>(policy);
        lastEnd = clock.Now();
        std::vector<std::string> seen;
        for (int frame = 0; frame < 40; ++frame) {
            const int target = std::array<int, 4>{-60, 0, -45, 5}[frame / 10];
            seen.push_back(std::to_string(Paced(target, 5.0 + frame % 3)) + nodes.Read("egl_buf"));
        }
        return seen;
    };
    EXPECT_EQ(run(PacingPolicy::Deadline), run(PacingPolicy::Quota));
}

// A render loop on virtual time whose sleeps end 50-80 us late, sleeping either what it is told
// or to the wake-up time it is given; vsyncs, when fed, come from a 60 Hz panel.
class WakeUpTest : public ::testing::Test {
  protected:
    static constexpr std::chrono::nanoseconds kRefresh{16666667};
    static constexpr Basics::TimePoint kFirstVsync =
        TalvexHarness::VirtualClock::kStart + std::chrono::microseconds(3700);
    enum class Pacing { Quota, Deadline, DeadlineVsync };

    struct Step {
        Basics::TimePoint read;  // the clock when the sleep was asked for
        Basics::TimePoint wake;  // when the sleep was to end
        Basics::TimePoint end;
    };

    void Start(Pacing pacing) {
        quillet = std::make_unique<Quillet>(pacing == Pacing::Quota ? PacingPolicy::Quota
                                                                    : PacingPolicy::Deadline);
        vsyncs = pacing == Pacing::DeadlineVsync;
        seed = 1;
    }
    Step Frame(int target, double work_ms, bool absolute) {
        if (vsyncs) quillet->OnVsync(LatestVsync(clock.Now()), kRefresh);
        quillet->Update(target, 60, 60);
        clock.AdvanceMs(work_ms);
        Step step{clock.Now(), {}, {}};
        if (absolute) {
            step.wake = quillet->CalculateWakeUpTime();
        } else {
            const float sleep_ms = quillet->CalculateSleepDuration_ms();
            step.wake = step.read + std::chrono::nanoseconds(std::llround(sleep_ms * 1e6));
        }
        seed = seed * 1664525u + 1013904223u;
        if (step.wake > step.read) {
            clock.Set(step.wake + std::chrono::microseconds(50 + (seed >> 16) % 31));
        }
        quillet->PostUpdate();
        step.end = clock.Now();
        return step;
    }
    static Basics::TimePoint LatestVsync(Basics::TimePoint now) {
        return kFirstVsync + (now - kFirstVsync) / kRefresh * kRefresh;
    }
    // How far past the nearest refresh a time lies, in microseconds.
    static double OffRefresh_us(Basics::TimePoint time) {
        const std::chrono::nanoseconds since = (time - kFirstVsync + kRefresh / 2) % kRefresh;
        return static_cast<double>((since - kRefresh / 2).count()) / 1e3;
    }

    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::VirtualClock clock;
    std::unique_ptr<Quillet> quillet;
    bool vsyncs = false;
    uint32_t seed = 1;
};

// The same frames paced by the relative and by the absolute call, off, exploring and holding,
// at rates that divide the refresh and one that does not.
TEST_F(WakeUpTest, WakeUpIsTheClockReadPlusTheSleepAndPacesAlike) {
    const auto run = [this](Pacing pacing, bool absolute) {
        clock.Set(TalvexHarness::VirtualClock::kStart);
        Start(pacing);
        std::vector<Step> steps;
        for (int frame = 0; frame < 200; ++frame) {
            const int target = std::array<int, 5>{30, -60, 0, 45, 60}[frame / 40];
            steps.push_back(
                Frame(target, 4.0 + frame % 13 * (frame % 40 == 17 ? 4.0 : 1.0), absolute));
        }
        return steps;
    };
    for (Pacing pacing : {Pacing::Quota, Pacing::Deadline, Pacing::DeadlineVsync}) {
        const std::vector<Step> told = run(pacing, false);
        const std::vector<Step> woken = run(pacing, true);
        // Under Deadline the oversleep is learned against the wake-up or against the deadline,
        // which round a few nanoseconds apart; the frame quota learns none.
        const std::chrono::nanoseconds apart(pacing == Pacing::Quota ? 0 : 20);
        const auto near = [apart](Basics::TimePoint a, Basics::TimePoint b) {
            return a - b <= apart && b - a <= apart;
        };
        int sleeps = 0;
        for (std::size_t frame = 0; frame < told.size(); ++frame) {
            ASSERT_TRUE(near(woken[frame].read, told[frame].read)) << frame;
            ASSERT_TRUE(near(woken[frame].wake, told[frame].wake)) << frame;
            ASSERT_TRUE(near(woken[frame].end, told[frame].end)) << frame;
            sleeps += woken[frame].wake > woken[frame].read;
            // Exploring (40-79) and off (80-119) do not sleep.
            if (frame >= 40 && frame < 120) {
                ASSERT_EQ(woken[frame].wake, woken[frame].read);
            }
        }
        EXPECT_GT(sleeps, 100) << static_cast<int>(pacing);
    }
}

// Settled, every frame ends the margin before every second refresh; a frame that misses its
// refresh is followed two refreshes after the one it lands on.
TEST_F(WakeUpTest, HeldThirtyEndsTheMarginBeforeEverySecondRefresh) {
    Start(Pacing::DeadlineVsync);
    quillet->SetLatchMargin(std::chrono::microseconds(2000));
    // The refresh a frame ending then is shown at, by a panel that latches 1 ms ahead.
    const auto shownAt = [](const Step& step) {
        const std::chrono::nanoseconds since =
            step.end + std::chrono::microseconds(1000) - kFirstVsync;
        return (since + kRefresh - std::chrono::nanoseconds(1)) / kRefresh;
    };
    int64_t previous = 0;
    std::unique_ptr<TalvexHarness::AllocationCounter> allocations;
    for (int frame = 0; frame < 300; ++frame) {
        if (frame == 100) allocations = std::make_unique<TalvexHarness::AllocationCounter>();
        const Step step = Frame(30, 5.0 + frame % 21, true);
        if (frame >= 100) {
            ASSERT_NEAR(OffRefresh_us(step.end), -2000.0, 20.0) << frame;
            ASSERT_EQ(shownAt(step), previous + 2) << frame;
        }
        previous = shownAt(step);
    }
    EXPECT_EQ(allocations->Count(), 0u);
    const int64_t late = shownAt(Frame(30, 40.0, true));
    EXPECT_EQ(late, previous + 3);
    const Step next = Frame(30, 5.0, true);
    EXPECT_NEAR(OffRefresh_us(next.end), -2000.0, 20.0);
    EXPECT_EQ(shownAt(next), late + 2);
    EXPECT_EQ(shownAt(Frame(30, 20.0, true)), late + 4);

    // At the refresh rate itself, every refresh.
    previous = shownAt(Frame(60, 5.0, true));
    for (int frame = 0; frame < 60; ++frame) {
        const Step step = Frame(60, 3.0 + frame % 11, true);
        EXPECT_NEAR(OffRefresh_us(step.end), -2000.0, 20.0) << frame;
        EXPECT_EQ(shownAt(step), previous + 1) << frame;
        previous = shownAt(step);
    }
}

// Vsyncs change nothing under the frame quota or while the held rate does not divide the refresh
// rate, and stop counting a second after the last one.
TEST_F(WakeUpTest, WithoutACadenceToFollowVsyncsChangeNothing) {
    const auto intervals = [this](PacingPolicy policy, int target, int vsyncs) {
        clock.Set(TalvexHarness::VirtualClock::kStart + std::chrono::milliseconds(1500));
        quillet = std::make_unique<Quillet>(policy);
        seed = 1;
        std::vector<int64_t> seen;
        Basics::TimePoint last = clock.Now();
        for (int frame = 0; frame < 100; ++frame) {
            if (frame < vsyncs) quillet->OnVsync(LatestVsync(clock.Now()), kRefresh);
            const Basics::TimePoint end = Frame(target, 5.0 + frame % 7, true).end;
            // Sleeps rounded apart teach oversleeps a few nanoseconds apart.
            seen.push_back((end - last).count() / 100);
            last = end;
        }
        return seen;
    };
    EXPECT_EQ(intervals(PacingPolicy::Deadline, 45, 100), intervals(PacingPolicy::Deadline, 45, 0));
    EXPECT_EQ(intervals(PacingPolicy::Quota, 30, 100), intervals(PacingPolicy::Quota, 30, 0));
    // One vsync before the first frame: followed for a second, then no longer.
    const std::vector<int64_t> once = intervals(PacingPolicy::Deadline, 30, 1);
    const std::vector<int64_t> never = intervals(PacingPolicy::Deadline, 30, 0);
    EXPECT_NE(once[1], never[1]);
    EXPECT_EQ(std::vector<int64_t>(once.begin() + 40, once.end()),
              std::vector<int64_t>(never.begin() + 40, never.end()));
}

// A vsync thread publishing the panel's timeline while the render thread paces: frames keep to
// the refreshes, and the ThreadSanitizer job sees no race.
TEST(QuilletConcurrency, VsyncsFromAnotherThreadKeepFramesOnTheRefreshes) {
    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::VirtualClock clock;
    constexpr std::chrono::nanoseconds kRefresh{16666667};
    const Basics::TimePoint firstVsync = clock.Now();
    Quillet quillet(PacingPolicy::Deadline);
    std::atomic<bool> done{false};
    std::atomic<int> calls{0};
    std::thread vsyncs([&] {
        while (!done.load(std::memory_order_relaxed)) {
            const Basics::TimePoint now = TalvexHarness::VirtualClock::Now();
            quillet.OnVsync(firstVsync + (now - firstVsync) / kRefresh * kRefresh, kRefresh);
            calls.fetch_add(1, std::memory_order_relaxed);
        }
    });
    std::vector<Basics::TimePoint> ends;
    for (int frame = 0; frame < 250; ++frame) {
        // Virtual time outruns the vsync thread unless each frame waits for a call of its own.
        for (const int seen = calls.load(std::memory_order_relaxed);
             calls.load(std::memory_order_relaxed) < seen + 2;) {
            std::this_thread::yield();
        }
        quillet.Update(30, 60, 60);
        clock.AdvanceMs(5.0 + frame % 17);
        const Basics::TimePoint wake = quillet.CalculateWakeUpTime();
        if (wake > clock.Now()) clock.Set(wake);
        quillet.PostUpdate();
        ends.push_back(clock.Now());
    }
    done.store(true, std::memory_order_relaxed);
    vsyncs.join();
    for (std::size_t frame = 100; frame < ends.size(); ++frame) {
        const int64_t toLatch = (ends[frame] - firstVsync + std::chrono::milliseconds(1)).count();
        ASSERT_LT(std::abs(toLatch - std::llround(toLatch / 16666666.7) * 16666667), 5000) << frame;
        ASSERT_EQ(std::llround((ends[frame] - ends[frame - 1]).count() / 16666666.7), 2) << frame;
    }
}

}  // namespace
