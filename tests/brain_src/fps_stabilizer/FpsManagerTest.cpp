#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/Trace.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexTest {
namespace {

using android::FpsStabilizer::FpsManager;
using Records = std::shared_ptr<const std::vector<UserSettings::UserSetting>>;
using TalvexHarness::VirtualClock;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::StartsWith;

Records MakeRecords(std::vector<UserSettings::UserSetting> records) {
    return std::make_shared<const std::vector<UserSettings::UserSetting>>(std::move(records));
}
// The SFPS lower bound is 45 at GFPS 60.
Records Gfps30To60() {
    return MakeRecords({{"stabilizer", "gfps", "30-60"}, {"stabilizer", "sfps", "0-45"}});
}
UserSettings::UserSettingsCenter& Center() {
    return UserSettings::UserSettingsCenter::GetInstance();
}

// Managers on virtual time, their node in a temporary directory, logs at DEBUG and the trace
// captured. Managers live inside the tests, so they are gone before the center is cleaned.
class FpsManagerTest : public ::testing::Test {
  protected:
    // One host tick after the given time, with a CPU load so light that the loading detectors
    // never talk the EFPS down; returns the node's text.
    std::string Tick(FpsManager& manager, int ofps, float celsius = 30.0f, float mA = 1000.0f,
                     double seconds = 1.0, int refreshRate = 60) {
        android::FpsStabilizer::SYS_INFO info;
        std::memset(&info, 0, sizeof(info));
        info.temperature_mC = static_cast<std::uint32_t>(celsius * 1000.0f);
        info.electricCurrent_uA = static_cast<std::uint32_t>(mA * 1000.0f);
        clock.AdvanceSeconds(seconds);
        manager.Update(info, ofps, refreshRate);
        manager.PostUpdate();
        return nodes.Read("efps_max");
    }
    // The EFPS the last tick settled on, from its closing message.
    std::string FinalEFPS() const {
        const std::string prefix = android::FpsStabilizer::kFinalEfpsLinePrefix;
        const auto finals = logs.Texts(ANDROID_LOG_DEBUG, prefix);
        return finals.empty() ? "<none>" : finals.back().substr(prefix.size());
    }
    size_t Logged(const std::string& text, int priority = ANDROID_LOG_DEBUG) const {
        return logs.Count(priority, text);
    }
    std::vector<std::string> Errors() const { return logs.Texts(ANDROID_LOG_ERROR); }

    TalvexHarness::SettingsCenterScope emptied;
    TalvexHarness::LogSwitchesScope debug{3};
    VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::LogSink logs;
    TalvexHarness::TraceCapture trace;
};

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

// Cool and at a steady current, so only the switch can produce an SFPS: the lower bound, 45.
TEST_F(FpsManagerTest, LowerBoundSwitchAcceptsZeroOneAndResetOnly) {
    const struct {
        const char* value;
        int priority;
        const char* message;
        bool isOn;
    } rows[] = {
        {"1", ANDROID_LOG_INFO, "[FpsManager]\t Set doesUseLowerBoundToStabilize to 1", true},
        {"0", ANDROID_LOG_INFO, "[FpsManager]\t Set doesUseLowerBoundToStabilize to 0", false},
        {"NAN", ANDROID_LOG_INFO, "[FpsManager]\t Reset doesUseLowerBoundToStabilize to 0", false},
        {"2", ANDROID_LOG_ERROR,
         "\nError occur while FpsManager::SetDoesUseLowerBoundToStabilize():\n"
         "Invalid target value: '2'\n\t The target value should be either 0 or 1\n",
         true},
        {"-1", ANDROID_LOG_ERROR, "Invalid target value: '-1'\n", true},
        {"abc", ANDROID_LOG_ERROR, "std exception is thrown", true},
    };
    FpsManager manager(77, 60);
    manager.OnUserSettingParameters(Gfps30To60());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        manager.OnUserSettingParameters(
            MakeRecords({{"stabilizer", "use_lower_bound_to_stabilize", "1"}}));
        logs.Clear();
        manager.OnUserSettingParameters(
            MakeRecords({{"stabilizer", "lower_bound_stabilize", row.value}}));
        EXPECT_EQ(Logged(row.message, row.priority), 1u);
        EXPECT_EQ(Tick(manager, 60), row.isOn ? "77,45,60" : "77,-1,60");
        // The switch replaces the decision but never lowers the EFPS.
        EXPECT_EQ(FinalEFPS(), "60");
    }
    // A lower bound of 0 is no SFPS, and is reported as such.
    FpsManager slower(78, 60);
    slower.OnUserSettingParameters(Gfps30To60());
    slower.OnUserSettingParameters(MakeRecords({{"stabilizer", "lower_bound_stabilize", "1"}}));
    EXPECT_EQ(Tick(slower, 30), "78,0,30");
}

// Printing commands, whatever their key, and the log switches; a value that does not convert is
// reported once and the records after it still apply. Nothing escapes, whatever the records hold.
TEST_F(FpsManagerTest, ManagerHandlesPrintingAndLogRecordsAndLetsNothingEscape) {
    const struct {
        const char *category, *key, *value;
        int level;
        bool debug;
        int priority;
        const char* message;
    } rows[] = {
        {"candidates", "x", "", 2, false, ANDROID_LOG_INFO, "\t77\n"},
        {"print_records", "", "", 2, false, ANDROID_LOG_INFO, "\t Game: 77 UserSettings:\n"},
        {"basics", "LogLevel", "3", 3, false, ANDROID_LOG_INFO, "[FpsManager] Set LogLevel = 3"},
        {"basics", "set_loglevel", "-1", -1, false, ANDROID_LOG_INFO, ""},
        {"basics", "log_level", "abc", 2, false, ANDROID_LOG_ERROR,
         "[FpsManager][OnUserSettingParameters] Error occur while applying basics/log_level = "
         "'abc':\n"},
        {"basics", "set_debug", "1", 2, true, ANDROID_LOG_INFO, "[FpsManager] Set DebugMode = 1"},
        {"basics", "DebugMode", "true", 2, false, ANDROID_LOG_ERROR, "basics/DebugMode = 'true'"},
        {"basics", "loglevel", "3", 2, false, ANDROID_LOG_ERROR,
         "\t PID: '77'\n\t key: 'loglevel'"},
    };
    FpsManager manager(77, 60);
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.category) + "/" + row.key);
        Basics::Log::SetLogLevel(2);
        Basics::Log::SetDebug(false);
        logs.Clear();
        ::testing::internal::CaptureStdout();
        manager.OnUserSettingParameters(MakeRecords({{row.category, row.key, row.value}}));
        ::testing::internal::GetCapturedStdout();
        EXPECT_EQ(Basics::Log::LogLevel(), row.level);
        EXPECT_EQ(Basics::Log::IsDebug(), row.debug);
        ASSERT_EQ(logs.Messages().size(), *row.message ? 1u : 0u);
        EXPECT_EQ(Logged(row.message, row.priority), logs.Messages().size());
    }

    logs.Clear();
    const Records hostile = MakeRecords({{"basics", "set_loglevel", "x"},
                                         {"basics", "debug_mode", "1"},
                                         {"", "", ""},
                                         {"basics", "set_debug", "2"},
                                         {"stabilizer", "gfps", "25-abc"},
                                         {"stabilizer", "sfps", "99-99"},
                                         {"stabilizer", "ex_buf", "-1"}});
    EXPECT_NO_THROW(manager.OnUserSettingParameters(nullptr));
    EXPECT_NO_THROW(manager.OnUserSettingParameters(MakeRecords({})));
    EXPECT_NO_THROW(manager.OnUserSettingParameters(hostile));
    EXPECT_EQ(Errors().size(), hostile->size() - 1);
    EXPECT_TRUE(Basics::Log::IsDebug());
    EXPECT_EQ(Basics::Log::LogLevel(), 2);
}

// Destroyed without a pause, a manager leaves no action behind, unless a newer manager for its
// PID has replaced them, as when the host swaps one manager for another.
TEST_F(FpsManagerTest, DestroyedManagerTakesItsActionsButNotThoseOfItsSuccessor) {
    { FpsManager gone(77, 60); }
    FpsManager other(88, 60);
    Center().OnCurrentBrainResume(77);
    other.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "30-60"}}));
    EXPECT_EQ(Logged("\t PID: '77'\n\t key: 'gfps'", ANDROID_LOG_ERROR), 1u);

    auto manager = std::make_unique<FpsManager>(77, 60);
    manager = std::make_unique<FpsManager>(77, 60);
    logs.Clear();
    manager->OnResume(0);
    manager->OnUserSettingParameters(Gfps30To60());
    EXPECT_THAT(Errors(), IsEmpty());
    EXPECT_EQ(Tick(*manager, 58), "77,-1,60");
}

}  // namespace
}  // namespace TalvexTest
