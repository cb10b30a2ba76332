#include <gtest/gtest.h>

#include <string>

#include "SimTestSupport.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/Simulation.h"
#include "tools/sim/report/Report.h"

namespace TalvexSim {
namespace {

// A cool minute of a game with even work, shown on the given panel under the given policy.
Report shownRun(double work_ms, const std::string& display, const std::string& policy,
                int refreshRate_Hz = 60, const std::string& pacing = "quota") {
    const std::string text = TalvexSimTest::Replaced(
        TalvexSimTest::ScenarioText("  \"refresh_rate_hz\": " + std::to_string(refreshRate_Hz) +
                                        ",\n  \"display\": " + display + ",\n  \"pacing\": \"" +
                                        pacing + "\",\n",
                                    60.0),
        "\"work_ms\": 9.0", "\"work_ms\": " + std::to_string(work_ms) + ", \"jitter\": 0");
    const Scenario scenario = LoadScenarioText(text, "panel.json", "panel");
    RunOptions options;
    options.policy = ParsePolicy(policy);
    const RunResult result = RunClosedLoop(scenario, options);
    ReportBuilder builder(refreshRate_Hz);
    for (const TimelineRow& row : result.rows) builder.Add(row);
    ReportContext context;
    context.running_s = result.running_s;
    context.gameCapFps = 60;
    context.refreshRate_Hz = refreshRate_Hz;
    context.display = scenario.display;
    return builder.Finish(context, result.frames, result.shown);
}

double share(const Report& report, size_t periods) {
    std::uint64_t all = 0;
    for (const std::uint64_t count : report.displayIntervalHistogram) all += count;
    return static_cast<double>(report.displayIntervalHistogram[periods - 1]) /
           static_cast<double>(all);
}

TEST(DisplayedFramesTest, FramesLongerThanAPeriodHalveWithTwoBuffersAndMixWithThree) {
    const Report two = shownRun(18.0, R"({"buffers": 2})", "none");
    ASSERT_TRUE(two.displayFps.has_value());
    EXPECT_NEAR(*two.displayFps, 30.0, 0.1);
    EXPECT_GT(share(two, 2), 0.99);
    // The game renders no faster than it is shown: it waits for a buffer.
    EXPECT_NEAR(two.meanFps, 30.0, 0.1);

    const Report three = shownRun(18.0, R"({"buffers": 3})", "none");
    EXPECT_NEAR(*three.displayFps, 1000.0 / 18.0, 0.1);
    // 55.6 frames in 60 refreshes: one period mostly, two for the 4.4 frames a second that
    // fall a refresh behind.
    const double frames = 1000.0 / 18.0;
    EXPECT_NEAR(share(three, 2), (60.0 - frames) / frames, 0.01);
    EXPECT_EQ(three.displayIntervalHistogram[2], 0u);
    EXPECT_NEAR(*three.latencyP50_ms, 18.0 + 1000.0 / 60.0, 17.0);
}

TEST(DisplayedFramesTest, VariableRefreshShowsEachFrameWhenItIsReady) {
    const Report vrr = shownRun(18.0, R"({"mode": "vrr", "vrr_min_hz": 30})", "none", 120);
    EXPECT_NEAR(*vrr.displayIntervalP50_ms, 18.0, 0.002);
    EXPECT_NEAR(*vrr.displayIntervalP99_ms, 18.0, 0.002);
    EXPECT_NEAR(*vrr.displayFps, 1000.0 / 18.0, 0.1);
}

TEST(DisplayedFramesTest, AHeldRateThatDoesNotDivideTheRefreshJuddersOnAFixedPanelOnly) {
    const Report fixed = shownRun(9.0, "{}", "fixed:45");
    // One, one, two periods: two thirds of one period, a third of two, none on 22.2 ms.
    EXPECT_NEAR(share(fixed, 1), 2.0 / 3.0, 0.01);
    EXPECT_NEAR(share(fixed, 2), 1.0 / 3.0, 0.01);
    ASSERT_TRUE(fixed.cadenceMatch.has_value());
    EXPECT_LT(*fixed.cadenceMatch, 0.05);
    ASSERT_EQ(fixed.diagnostics.size(), 1u);
    const Finding& judder = fixed.diagnostics.front();
    EXPECT_EQ(judder.kind, "display_judder");
    EXPECT_NE(judder.text.find("(60, 30, 20 and 15)"), std::string::npos) << judder.text;
    EXPECT_NE(judder.text.find("(90 Hz for 45)"), std::string::npos) << judder.text;
    for (const auto& [name, value] : judder.evidence) {
        if (name == "one_period_share") {
            EXPECT_NEAR(value, 2.0 / 3.0, 0.01);
        }
    }

    const Report vrr = shownRun(9.0, R"({"mode": "vrr"})", "fixed:45");
    EXPECT_GT(*vrr.cadenceMatch, 0.99);
    EXPECT_TRUE(vrr.diagnostics.empty());
}

TEST(DisplayedFramesTest, APanelWithModesRunsAtTheLowestMultipleOfTheHeldRate) {
    const std::string modes = R"({"mode": "modes", "modes_hz": [60, 90, 120]})";
    const Report thirty = shownRun(9.0, modes, "fixed:30", 120);
    EXPECT_NEAR(*thirty.displayIntervalP50_ms, 1000.0 / 30.0, 0.01);
    EXPECT_NEAR(*thirty.displayIntervalP99_ms, 1000.0 / 30.0, 0.01);
    // In periods of the top rate: four of 120 Hz.
    EXPECT_GT(share(thirty, 4), 0.99);
    const Report fortyFive = shownRun(9.0, modes, "fixed:45", 120);
    EXPECT_NEAR(*fortyFive.displayIntervalP99_ms, 1000.0 / 45.0, 0.01);
    EXPECT_GT(*fortyFive.cadenceMatch, 0.99);
}

TEST(DisplayedFramesTest, PacedOnTheVsyncsEachFrameIsShownAtTheRefreshItWasMeantFor) {
    // 30 held on a fixed 60 Hz panel, the work well inside the period.
    const Report vsync = shownRun(9.0, "{}", "fixed:30", 60, "deadline-vsync");
    ASSERT_TRUE(vsync.cadenceMatch.has_value());
    EXPECT_GT(*vsync.cadenceMatch, 0.999);
    EXPECT_GT(share(vsync, 2), 0.999);
    // Queued the latch margin and its headroom (1 + 0.5 ms) before the refresh, two refreshes
    // after its own start, and on the glass a refresh after the latch.
    ASSERT_TRUE(vsync.latencyP50_ms.has_value());
    EXPECT_NEAR(*vsync.latencyP50_ms, 1000.0 / 30.0 + 1.5 + 1000.0 / 60.0, 0.1);

    // The frame quota lets single frames drift: now and then one lands a refresh early.
    const Report quota = shownRun(9.0, "{}", "fixed:30", 60, "quota");
    EXPECT_LT(*quota.cadenceMatch, 0.998);
    EXPECT_GT(share(quota, 1), 0.002);
    // Plain deadlines are as even, but blind to the refreshes: with the queue full a frame
    // starts at a refresh and ends a held period later, inside the latch margin, so each one
    // waits a refresh longer.
    const Report deadline = shownRun(9.0, "{}", "fixed:30", 60, "deadline");
    EXPECT_GT(*deadline.cadenceMatch, 0.999);
    EXPECT_GT(*deadline.latencyP50_ms, *vsync.latencyP50_ms + 10.0);
}

TEST(DisplayedFramesTest, SwapIntervalPacingShowsFramesLongerThanAPeriodEvenlyAtHalfTheRate) {
    // Where three buffers mix one and two periods, the pacer settles on two once its 2 s window
    // has filled: the first two seconds show at the game's own 55.6 FPS.
    const Report paced = shownRun(18.0, "{}", "swap-interval");
    EXPECT_NEAR(*paced.displayFps, 30.0 + 2.0 * (1000.0 / 18.0 - 30.0) / 60.0, 0.2);
    EXPECT_GT(share(paced, 2), 0.9);
    EXPECT_NEAR(*paced.displayIntervalP50_ms, 1000.0 / 30.0, 0.01);
    EXPECT_GT(*paced.cadenceMatch, 0.99);
    // Short frames stay at one period.
    const Report quick = shownRun(9.0, "{}", "swap-interval");
    EXPECT_NEAR(*quick.displayFps, 60.0, 0.1);
    EXPECT_GT(share(quick, 1), 0.999);
}

}  // namespace
}  // namespace TalvexSim
