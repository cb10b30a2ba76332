#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "FpsManagerHarness.h"

namespace TalvexTest {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

// No list at first; once one arrives, the first tick at GFPS 60 restarts both deciders. Had they
// been restarted on every tick, the current decider would never get past waiting.
TEST_F(FpsManagerTest, FirstTicksWithoutThenWithAGfpsList) {
    FpsManager manager(77, 60);
    EXPECT_EQ(Tick(manager, 58), "77,-1,-1");
    EXPECT_EQ(FinalEFPS(), "58");
    EXPECT_THAT(trace.SectionNames(), ElementsAre("FpsManager::Update()"));
    EXPECT_EQ(trace.OpenSections(), 0);

    manager.OnUserSettingParameters(Gfps30To60());
    manager.OnUserSettingParameters(QuickCurrentDecider());
    EXPECT_EQ(Tick(manager, 58, 30.0f, 2500.0f), "77,-1,60");
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "before assign the GFPS(=60) to the EFPS(=58)"), 1u);
    EXPECT_EQ(FinalEFPS(), "60");
    EXPECT_EQ(Tick(manager, 58, 30.0f, 2500.0f), "77,60,60");
    EXPECT_EQ(manager.GetGFPS(), 60);
    EXPECT_EQ(manager.GetSFPS(), 60);
    EXPECT_THAT(trace.CounterValues("AI SFPS"), ElementsAre(0, 0, 60));
    EXPECT_THAT(logs.Find(ANDROID_LOG_ERROR), IsEmpty());
}

// Configured through records; the game follows the SFPS it is given.
TEST_F(FpsManagerTest, HeatLowersTheSfpsStepByStepAndCoolingRestoresIt) {
    FpsManager manager(77, 60);
    manager.OnUserSettingParameters(Gfps30To60());
    manager.OnUserSettingParameters(MakeRecords({{"sfps_temperature", "start_temperature", "40"},
                                                 {"sfps_temperature", "max_temperature", "45"}}));

    EXPECT_EQ(Tick(manager, 60, 35.0f), "77,-1,60");
    // Paused by the GFPS change, so the first hot tick goes straight to the balanced SFPS.
    EXPECT_EQ(Tick(manager, 60, 41.0f), "77,57,60");
    EXPECT_EQ(FinalEFPS(), "57");
    std::vector<std::string> nodeTexts;
    for (int i = 0; i < 7; ++i) nodeTexts.push_back(Tick(manager, 57 - i, 43.0f));
    EXPECT_THAT(nodeTexts, ElementsAre("77,56,60", "77,55,60", "77,54,60", "77,53,60", "77,52,60",
                                       "77,51,60", "77,51,60"));
    EXPECT_EQ(FinalEFPS(), "51");

    EXPECT_EQ(Tick(manager, 51, 35.0f), "77,-1,60");
    EXPECT_EQ(FinalEFPS(), "60");
    EXPECT_THAT(trace.CounterValues("AI SFPS"), ElementsAre(0, 57, 56, 55, 54, 53, 52, 51, 51, 0));
    EXPECT_THAT(logs.Find(ANDROID_LOG_ERROR), IsEmpty());
}

TEST_F(FpsManagerTest, CurrentDeciderTakesOverOnlyWhileTemperatureDeciderIsNotActivated) {
    FpsManager manager(77, 60);
    manager.OnUserSettingParameters(Gfps30To60());
    manager.OnUserSettingParameters(QuickCurrentDecider());

    Tick(manager, 60, 30.0f, 2500.0f);
    EXPECT_EQ(Tick(manager, 60, 30.0f, 2500.0f), "77,60,60");
    for (int i = 0; i < 10; ++i) Tick(manager, 60, 30.0f, 2500.0f, 5.0);
    EXPECT_EQ(manager.GetSFPS(), 50);
    // Hot: the temperature decider's 57 wins over the current decider's 50.
    EXPECT_EQ(Tick(manager, 50, 41.0f, 2500.0f), "77,57,60");
    EXPECT_EQ(Tick(manager, 57, 30.0f, 2500.0f), "77,50,60");
}

// A decision of 35 for a 40 FPS game on a 60 Hz screen: reported negated while the explorer
// measures the game, which it does two seconds after the decision began.
TEST_F(FpsManagerTest, ExploringBelowTheRefreshRateNegatesTheReportedSfps) {
    FpsManager manager(77, 60);
    manager.OnUserSettingParameters(
        MakeRecords({{"stabilizer", "gfps", "30-40-60"}, {"stabilizer", "sfps", "0-35-50"}}));
    EXPECT_EQ(Tick(manager, 40, 46.0f, 1000.0f, 0.025), "77,35,40");
    EXPECT_EQ(FinalEFPS(), "35");

    std::vector<int> reported;
    for (int i = 0; i < 90; ++i) {
        Tick(manager, 35, 46.0f, 1000.0f, 0.025);
        reported.push_back(manager.GetSFPS());
    }
    std::vector<int> expected(79, 35);
    expected.insert(expected.end(), 8, -35);
    expected.insert(expected.end(), 3, 35);
    EXPECT_THAT(reported, ElementsAreArray(expected));
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "send EXPLORED_FPS=40 as OFPS"), 1u);
    const std::vector<int32_t> counters = trace.CounterValues("AI SFPS");
    EXPECT_EQ(std::count(counters.begin(), counters.end(), -1), 8);
    EXPECT_EQ(manager.GetGFPS(), 40);
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
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR, "\t PID: '77'\n\t key: 'gfps'"), 1u);
    // A tick is not refused while paused, and the list it works with is still the old one.
    EXPECT_EQ(Tick(manager, 60), "77,-1,60");
}

// The failing clock read is the tick's first, inside the system information.
TEST_F(FpsManagerTest, ComponentThatThrowsEndsOnlyThatTick) {
    struct Fault {
        void (*raise)();
        const char* error;
    };
    static void (*pendingFault)() = nullptr;
    static ManualClock* virtualClock = nullptr;
    virtualClock = &clock;
    Basics::SetClockSource([] {
        if (auto raise = std::exchange(pendingFault, nullptr)) raise();
        return virtualClock->Now();
    });
    const Fault faults[] = {
        {[] { throw std::runtime_error("clock is gone"); },
         "[FpsManager][Update] Error occur while updating:\nclock is gone"},
        {[] { throw 42; }, "[FpsManager][Update] Unkown Error is thrown while updating..."},
    };
    FpsManager manager(77, 60);
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.error);
        nodes.Remove("efps_max");
        logs.Clear();
        pendingFault = fault.raise;
        EXPECT_EQ(Tick(manager, 60), "<missing>");
        ASSERT_EQ(logs.Find(ANDROID_LOG_ERROR).size(), 1u);
        EXPECT_EQ(logs.Find(ANDROID_LOG_ERROR)[0].text, fault.error);
        EXPECT_EQ(trace.OpenSections(), 0);
        // Long enough for the device to notice that its node went missing.
        EXPECT_EQ(Tick(manager, 60, 30.0f, 1000.0f, 10.0), "77,-1,-1");
    }
}

}  // namespace
}  // namespace TalvexTest
