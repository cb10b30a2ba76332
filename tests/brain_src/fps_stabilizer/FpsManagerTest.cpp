#include <stdexcept>
#include <utility>

#include "FpsManagerHarness.h"

namespace TalvexTest {
namespace {

using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::StartsWith;

// No list at first. The first tick at GFPS 60 restarts the deciders, so the first hot tick goes
// straight to the balanced SFPS; then one step a second, and cooling restores. The game follows the
// SFPS, and the GFPS, not the OFPS, goes back to the system information. One tick is explained in
// debug mode, while the explorer measures: it started two seconds after the first decision, and
// the steps since did not restart it.
TEST_F(FpsManagerTest, HeatLowersTheSfpsStepByStepAndCoolingRestoresIt) {
    FpsManager manager(77, 60);
    EXPECT_EQ(Tick(manager, 58), "77,-1,-1");
    EXPECT_EQ(FinalEFPS(), "58");
    EXPECT_EQ(Logged("[FpsManager][Update] OFPS_=58, SCREEN_REFRESH_RATE_=60"), 1u);
    manager.OnUserSettingParameters(Gfps30To60());
    EXPECT_EQ(Tick(manager, 58, 35.0f), "77,-1,60");
    EXPECT_EQ(Logged("[SystemInfo]\t before assign the GFPS(=60) to the EFPS(=58)"), 1u);
    EXPECT_EQ(Tick(manager, 60, 41.0f), "77,57,60");
    EXPECT_EQ(Logged("EFPS=60, OFPS=60"), 1u);
    EXPECT_EQ(Logged("[FpsManager]\t after truncate by SFPS, EFPS =57"), 1u);
    std::vector<std::string> nodeTexts;
    for (int i = 0; i < 7; ++i) {
        Basics::Log::SetDebug(i == 2);
        nodeTexts.push_back(Tick(manager, 57 - i, 43.0f));
    }
    EXPECT_THAT(nodeTexts, ElementsAre("77,56,60", "77,55,60", "77,54,60", "77,53,60", "77,52,60",
                                       "77,51,60", "77,51,60"));
    EXPECT_EQ(FinalEFPS(), "51");
    const auto explained = logs.Find(ANDROID_LOG_DEBUG, "In deciding Stabilized FPS");
    ASSERT_EQ(explained.size(), 1u);
    EXPECT_THAT(explained[0].text, StartsWith("[FpsManager][updateSFPS] In deciding Stabilized "
                                              "FPS:\nSFPS_LOWER_BOUND = 45\n"));
    EXPECT_THAT(explained[0].text,
                EndsWith("\t sfpsDeciderByTemperature\n\t\t temperature = 43\n"
                         "\t\t IsActivated() = 1\n\t\t GetSFPS() = 54\n"
                         "\t sfpsDeciderByElectricCurrent\n\t\t electricCurrent_mA = 1000\n"
                         "\t\t IsActivated() = 0\n\t\t GetSFPS() = -1\n"
                         "\n\t Summarize over SfpsDecider, currentSFPS = 54\n"
                         "\t GfpsExplorer:\n\t\t status = 1\n\t\t GfpsEvaluator.IsMaxGFPS() = 1\n"
                         "\t\t EstimateFPS() = 1\n\t\t GFPS before Explorer = 60\n"
                         "\n\t Finally, FpsManager::GetSFPS() = 54\n"));

    EXPECT_EQ(Tick(manager, 51, 35.0f), "77,-1,60");
    EXPECT_EQ(FinalEFPS(), "60");
    EXPECT_EQ(manager.GetGFPS(), 60);
    EXPECT_THAT(trace.CounterValues("AI SFPS"),
                ElementsAre(0, 0, 57, 56, 55, 54, 53, 52, 51, 51, 0));
    EXPECT_EQ(trace.SectionNames(), std::vector<std::string>(11, "FpsManager::Update()"));
    EXPECT_EQ(trace.OpenSections(), 0);
    EXPECT_THAT(Errors(), IsEmpty());
}

// Both deciders are updated on every tick with a lower bound, here 52 at GFPS 60. A new GFPS
// restarts the current decider, which then waits a tick and starts again from that GFPS.
TEST_F(FpsManagerTest, CurrentDeciderTakesOverOnlyWhileTemperatureDeciderIsNotActivated) {
    FpsManager manager(77, 60);
    manager.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "30-45-60"},
                                                 {"stabilizer", "sfps", "0-40-52"},
                                                 {"sfps_current", "current_threshold", "2000"},
                                                 {"sfps_current", "ttsigal", "0"}}));
    Tick(manager, 60, 30.0f, 2500.0f);
    EXPECT_EQ(Tick(manager, 60, 30.0f, 2500.0f), "77,60,60");
    for (int i = 0; i < 5; ++i) Tick(manager, 60, 30.0f, 2500.0f, 5.0);
    EXPECT_EQ(manager.GetSFPS(), 55);
    std::vector<std::string> hot;
    for (int i = 0; i < 5; ++i) hot.push_back(Tick(manager, 60, 41.0f, 2500.0f, 5.0));
    EXPECT_EQ(hot, std::vector<std::string>(5, "77,58,60"));
    EXPECT_EQ(Tick(manager, 58, 30.0f, 2500.0f), "77,52,60");

    manager.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "30-52-60"}}));
    EXPECT_EQ(Tick(manager, 52, 30.0f, 2500.0f), "77,-1,52");
    EXPECT_EQ(Tick(manager, 52, 30.0f, 2500.0f), "77,52,52");
}

// A decision of 35 for a 40 FPS game is reported negated while the explorer measures the game
// below the refresh rate of the ticks, from two seconds after the decision began. Meanwhile the
// EFPS stays at the GFPS, judged by the explorer's status before its step of the tick.
TEST_F(FpsManagerTest, ExploringBelowTheRefreshRateNegatesTheReportedSfps) {
    const struct {
        const char* gfps;
        const char* sfps;
        int builtWith, refreshRate, negated;
    } rows[] = {{"30-40-60", "0-35-50", 40, 60, 8},
                {"30-40", "0-35", 60, 60, 0},
                {"30-40-60", "0-35-50", 60, 40, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.gfps) + " at " + std::to_string(row.refreshRate));
        logs.Clear();
        trace.Clear();
        FpsManager manager(77, row.builtWith);
        manager.OnUserSettingParameters(
            MakeRecords({{"stabilizer", "gfps", row.gfps}, {"stabilizer", "sfps", row.sfps}}));
        EXPECT_EQ(Tick(manager, 40, 46.0f, 1000.0f, 0.025, row.refreshRate), "77,35,40");
        std::vector<std::string> nodeTexts, efps;
        for (int i = 0; i < 90; ++i) {
            Basics::Log::SetDebug(i == 82);
            nodeTexts.push_back(Tick(manager, 35, 46.0f, 1000.0f, 0.025, row.refreshRate));
            efps.push_back(FinalEFPS());
            if (i == 82) {
                EXPECT_EQ(manager.GetSFPS(), row.negated ? -35 : 35);
            }
        }
        std::vector<std::string> expectedNodes(90, "77,35,40"), expectedEFPS(90, "35");
        for (int i = 79; i < 79 + row.negated; ++i) {
            expectedNodes[i] = "77,-35,40";
            expectedEFPS[i + 1] = "40";
        }
        EXPECT_THAT(nodeTexts, ElementsAreArray(expectedNodes));
        EXPECT_THAT(efps, ElementsAreArray(expectedEFPS));
        EXPECT_EQ(Logged("[FpsManager][updateEFPS] send EXPLORED_FPS=40 as OFPS"), 1u);
        EXPECT_THAT(logs.Find(ANDROID_LOG_DEBUG, "In deciding Stabilized FPS").at(0).text,
                    EndsWith(row.negated ? "GetSFPS() = -35\n" : "GetSFPS() = 35\n"));
        const std::vector<int32_t> counters = trace.CounterValues("AI SFPS");
        EXPECT_EQ(std::count(counters.begin(), counters.end(), -1), row.negated);
    }
}

TEST_F(FpsManagerTest, PauseWritesTheIdleTextAndForgetsTheSettingsResumeRestoresOwnPid) {
    FpsManager manager(77, 60);
    Center().OnCurrentBrainResume(5);
    manager.OnResume(12345);
    manager.OnUserSettingParameters(Gfps30To60());
    EXPECT_EQ(Tick(manager, 60), "77,-1,60");

    manager.OnPause();
    EXPECT_EQ(nodes.Read("efps_max"), "0,-1,-1");
    manager.OnResume(12345);
    manager.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "30-45"}}));
    EXPECT_EQ(Logged("\t PID: '77'\n\t key: 'gfps'", ANDROID_LOG_ERROR), 1u);
    // A tick is not refused while paused, and it still works with the old list.
    EXPECT_EQ(Tick(manager, 60), "77,-1,60");
}

// The clock read that fails is the tick's first, inside the system information.
TEST_F(FpsManagerTest, ComponentThatThrowsEndsOnlyThatTick) {
    static void (*fault)() = nullptr;
    Basics::SetClockSource([] {
        if (auto raise = std::exchange(fault, nullptr)) raise();
        return VirtualClock::Now();
    });
    FpsManager manager(77, 60);
    for (auto raise : {+[] { throw std::runtime_error("clock is gone"); }, +[] { throw 42; }}) {
        nodes.Remove("efps_max");
        fault = raise;
        EXPECT_EQ(Tick(manager, 60), "");
        EXPECT_FALSE(nodes.Exists("efps_max"));
        EXPECT_EQ(trace.OpenSections(), 0);
        // Long enough for the device to notice that its node went missing.
        EXPECT_EQ(Tick(manager, 60, 30.0f, 1000.0f, 10.0), "77,-1,-1");
    }
    EXPECT_THAT(Errors(),
                ElementsAre("[FpsManager][Update] Error occur while updating:\nclock is gone",
                            "[FpsManager][Update] Unkown Error is thrown while updating..."));
}

}  // namespace
}  // namespace TalvexTest
