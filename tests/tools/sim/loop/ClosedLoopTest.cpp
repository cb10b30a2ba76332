#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "SimTestSupport.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/Simulation.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ScenarioText;

// A device already past the bounds, a short wait and a pause: the whole story in two minutes.
const char kHotStory[] = R"(  "host_tick": "frame",
  "device": {"initial_c": 46, "thermal_time_constant_s": 60, "paused_power_w": 0.0},
  "events": [{"at_s": 80, "type": "pause"}, {"at_s": 110, "type": "resume"}],
)";

Scenario hotStory() {
    return LoadScenarioText(
        ScenarioText(kHotStory, 130.0,
                     R"({"param1": "stabilizer,gfps,30-60"}, {"param1": "stabilizer,sfps,0-45"},
                        {"param1": "sfps_temperature,ttsigal,5"})"),
        "hot.json", "hot");
}

TEST(ClosedLoopTest, HotDeviceIsStabilizedPausedAndReleasedAfterCooling) {
    const Scenario scenario = hotStory();
    const RunResult result = RunClosedLoop(scenario, {});
    ASSERT_EQ(result.rows.size(), 130u);         // a row a second
    EXPECT_NEAR(result.running_s, 100.0, 0.05);  // the game pauses at the end of a frame

    bool stabilizedBelowGfps = false;
    for (const TimelineRow& row : result.rows) {
        SCOPED_TRACE(row.time_s);
        if (row.paused) {
            EXPECT_EQ(row.node, "0,-1,-1");
            EXPECT_EQ(row.ofps, 0);
            EXPECT_FALSE(row.frames.has_value());
            continue;
        }
        EXPECT_LE(row.ofps, 61);
        if (row.frames) {
            EXPECT_GE(row.frames->p50_ms, 1000.0 / 60.0 - 1e-3);
        }
        // The node speaks for this game, and the reported SFPS is what it says.
        if (row.node != "0,-1,-1" && !row.node.empty()) {
            EXPECT_EQ(row.node.rfind("777,", 0), 0u) << row.node;
        }
        if (row.sfps > 0) {
            EXPECT_GE(row.sfps, 45);  // the configured lower bound
            EXPECT_LE(row.sfps, row.gfps);
            stabilizedBelowGfps = stabilizedBelowGfps || row.sfps < row.gfps;
            // Paced to the SFPS: the game no longer runs at its own 60.
            if (row.time_s > 5.0 && row.sfps < 55 && row.frames) {
                EXPECT_GT(row.frames->mean_ms, 1000.0 / 57.0);
            }
        }
    }
    EXPECT_TRUE(stabilizedBelowGfps);
    // After half a minute in the background the device is cool: stabilizing has ended.
    const TimelineRow& last = result.rows.back();
    EXPECT_FALSE(last.paused);
    EXPECT_LT(last.temperature_C, 40.0);
    EXPECT_EQ(last.sfps, -1);
    EXPECT_EQ(last.ofps, 60);
    // Every frame was paced and measured, and the pacing node was written for each of them.
    ASSERT_TRUE(result.eglBufWrites.has_value());
    EXPECT_GT(*result.eglBufWrites, 1000u);
    ASSERT_TRUE(result.efpsMaxWrites.has_value());
    EXPECT_GT(*result.efpsMaxWrites, 2u);
    EXPECT_EQ(result.libraryErrors, 0u);
}

TEST(ClosedLoopTest, PeriodicHostTicksOncePerPeriodAndCountsFramesPerPeriod) {
    const Scenario scenario =
        LoadScenarioText(ScenarioText("  \"host_tick\": 2,\n", 20.0), "p.json", "p");
    const RunResult result = RunClosedLoop(scenario, {});
    ASSERT_EQ(result.rows.size(), 10u);
    EXPECT_DOUBLE_EQ(result.rows.front().time_s, 2.0);
    EXPECT_EQ(result.hostTicks, 10u);
    for (const TimelineRow& row : result.rows) {
        EXPECT_EQ(row.ofps, 60);  // frames per second, not per period
        EXPECT_TRUE(row.efps.has_value());
        ASSERT_TRUE(row.frames.has_value());
        EXPECT_NEAR(row.frames->mean_ms, 1000.0 / 60.0, 1e-3);
    }
    EXPECT_NEAR(static_cast<double>(result.frames.Count()), 20.0 * 60.0, 1.0);
}

TEST(ClosedLoopTest, SettingsEventsReachTheLibraryWhileTheRunGoesOn) {
    // The GFPS list arrives only at 10 s: before it there is no GFPS.
    const Scenario scenario =
        LoadScenarioText(ScenarioText(R"(  "events": [{"at_s": 10, "type": "settings",
                                       "param1": "stabilizer,gfps,30-60"}],
)",
                                      15.0, ""),
                         "e.json", "e");
    const RunResult result = RunClosedLoop(scenario, {});
    EXPECT_EQ(result.rows[8].gfps, -1);
    EXPECT_EQ(result.rows[12].gfps, 60);
    EXPECT_TRUE(result.refusedEvents.empty());
}

TEST(ClosedLoopTest, SettingsForAPausedGameAreRefusedAndReported) {
    const Scenario scenario =
        LoadScenarioText(ScenarioText(R"(  "events": [{"at_s": 2, "type": "pause"},
             {"at_s": 3, "type": "settings", "param1": "stabilizer,gfps,30-60"},
             {"at_s": 4, "type": "resume"}],
)",
                                      6.0),
                         "p.json", "p");
    const RunResult result = RunClosedLoop(scenario, {});
    ASSERT_EQ(result.refusedEvents.size(), 1u);
    EXPECT_EQ(result.refusedEvents[0],
              "p.json:5:14: the library refused 'stabilizer,gfps,30-60' (see library.log)");
    EXPECT_GT(result.libraryErrors, 0u);
    EXPECT_NE(result.libraryLog.find(" E "), std::string::npos);
}

TEST(ClosedLoopTest, ASettingTheLibraryRefusesNamesWhereItWasWritten) {
    const Scenario scenario = LoadScenarioText(ScenarioText("", 10.0,
                                                            R"({"param1": "stabilizer,gfps,30-60"},
                        {"param1": "stabilizer,sfps,0-61"})"),
                                               "r.json", "r");
    try {
        RunClosedLoop(scenario, {});
        FAIL() << "ran with a refused setting";
    } catch (const InputError& error) {
        const std::string message = error.what();
        EXPECT_EQ(message.rfind("r.json:6:", 0), 0u) << message;
        EXPECT_NE(message.find("config.param[1].param1: the library refused "
                               "'stabilizer,sfps,0-61'"),
                  std::string::npos)
            << message;
        EXPECT_NE(message.find("SFPS[i] must <= GFPS[i]"), std::string::npos) << message;
    }
    // The refused run left nothing behind in the settings center: the next one runs.
    EXPECT_EQ(RunClosedLoop(hotStory(), {}).rows.size(), 130u);
}

TEST(ReplayTest, RecordedTicksDriveTheManagerInOpenLoop) {
    const Scenario scenario = LoadScenarioText(
        ScenarioText("", 10.0,
                     R"({"param1": "stabilizer,gfps,30-60"}, {"param1": "stabilizer,sfps,0-45"},
                        {"param1": "sfps_temperature,ttsigal,2"})"),
        "r.json", "r");
    std::vector<ReplayTick> ticks;
    for (int i = 0; i < 40; ++i) {
        ReplayTick tick;
        tick.time_s = 10.0 + i;
        tick.ofps = 60;
        tick.refreshRate_Hz = 60;
        tick.current_uA = 1200000;
        tick.cpuUtils = {{40, 30, 20, 10}};
        tick.temperature_mC = 47000;
        ticks.push_back(tick);
    }
    const RunResult result = RunReplay(scenario, ticks, {});
    ASSERT_EQ(result.rows.size(), ticks.size());
    EXPECT_DOUBLE_EQ(result.rows[3].time_s, 13.0);
    EXPECT_DOUBLE_EQ(result.rows[3].temperature_C, 47.0);
    EXPECT_DOUBLE_EQ(result.rows[3].current_mA, 1200.0);
    EXPECT_EQ(result.frames.Count(), 0u);
    EXPECT_EQ(result.rows.front().gfps, 60);
    // Hot all along: the SFPS comes down to the balanced 45 at 47 C and the node says so.
    EXPECT_EQ(result.rows.back().sfps, 45);
    EXPECT_EQ(result.rows.back().node, "777,45,60");
    EXPECT_EQ(result.rows.back().efps, 45);
}

}  // namespace
}  // namespace TalvexSim
