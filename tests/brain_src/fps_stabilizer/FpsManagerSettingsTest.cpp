#include <gmock/gmock.h>

#include "FpsManagerHarness.h"

namespace TalvexTest {
namespace {

using ::testing::IsEmpty;

// Cool and at a steady current, so only the switch can produce an SFPS: the lower bound, 45.
TEST_F(FpsManagerTest, LowerBoundSwitchAcceptsZeroOneAndResetOnly) {
    struct Row {
        const char* value;
        int priority;
        const char* message;
        const char* node;
    };
    const Row rows[] = {
        {"1", ANDROID_LOG_INFO, "[FpsManager]\t Set doesUseLowerBoundToStabilize to 1", "77,45,60"},
        {"0", ANDROID_LOG_INFO, "[FpsManager]\t Set doesUseLowerBoundToStabilize to 0", "77,-1,60"},
        {"reset", ANDROID_LOG_INFO, "[FpsManager]\t Reset doesUseLowerBoundToStabilize to 0",
         "77,-1,60"},
        {"nan", ANDROID_LOG_INFO, "Reset doesUseLowerBoundToStabilize to 0", "77,-1,60"},
        {"NAN", ANDROID_LOG_INFO, "Reset doesUseLowerBoundToStabilize to 0", "77,-1,60"},
        {"2", ANDROID_LOG_ERROR,
         "\nError occur while FpsManager::SetDoesUseLowerBoundToStabilize():\n"
         "Invalid target value: '2'\n\t The target value should be either 0 or 1\n",
         "77,45,60"},
        {"-1", ANDROID_LOG_ERROR, "Invalid target value: '-1'\n", "77,45,60"},
        {"abc", ANDROID_LOG_ERROR, "std exception is thrown", "77,45,60"},
    };
    FpsManager manager(77, 60);
    manager.OnUserSettingParameters(Gfps30To60());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        manager.OnUserSettingParameters(
            MakeRecords({{"stabilizer", "use_lower_bound_to_stabilize", "1"}}));
        logs.Clear();
        manager.OnUserSettingParameters(
            MakeRecords({{"stabilizer", "lower_bound_stabilize", row.value}}));
        EXPECT_EQ(logs.Count(row.priority, row.message), 1u);
        EXPECT_EQ(Tick(manager, 60), row.node);
        // The switch replaces the decision but never lowers the EFPS.
        EXPECT_EQ(FinalEFPS(), "60");
    }
}

TEST_F(FpsManagerTest, BasicsRecordsSetTheLogSwitchesAndReportValuesThatDoNotConvert) {
    struct Row {
        const char* key;
        const char* value;
        int level;
        bool debug;
        int priority;
        const char* message;
    };
    const Row rows[] = {
        {"LogLevel", "3", 3, false, ANDROID_LOG_INFO, "[FpsManager] Set LogLevel = 3"},
        {"set_loglevel", "-1", -1, false, -1, nullptr},
        {"log_level", "abc", 2, false, ANDROID_LOG_ERROR,
         "[FpsManager][OnUserSettingParameters] Error occur while applying basics/log_level = "
         "'abc':\n"},
        {"set_debug", "1", 2, true, ANDROID_LOG_INFO, "[FpsManager] Set DebugMode = 1"},
        {"DebugMode", "true", 2, false, ANDROID_LOG_ERROR, "basics/DebugMode = 'true'"},
        {"loglevel", "3", 2, false, ANDROID_LOG_ERROR, "\t PID: '77'\n\t key: 'loglevel'"},
    };
    FpsManager manager(77, 60);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        Basics::Log::SetLogLevel(2);
        Basics::Log::SetDebug(false);
        logs.Clear();
        manager.OnUserSettingParameters(MakeRecords({{"basics", row.key, row.value}}));
        EXPECT_EQ(Basics::Log::LogLevel(), row.level);
        EXPECT_EQ(Basics::Log::IsDebug(), row.debug);
        EXPECT_EQ(logs.Messages().size(), row.message ? 1u : 0u);
        if (row.message) {
            EXPECT_EQ(logs.Count(row.priority, row.message), 1u);
        }
    }

    // A refused value does not stop the records after it.
    logs.Clear();
    manager.OnUserSettingParameters(
        MakeRecords({{"basics", "set_loglevel", "x"}, {"basics", "debug_mode", "1"}}));
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), 1u);
    EXPECT_TRUE(Basics::Log::IsDebug());
}

TEST_F(FpsManagerTest, NothingEscapesWhateverTheRecordsHold) {
    FpsManager manager(77, 60);
    const Records hostile = MakeRecords({{"", "", ""},
                                         {"basics", "LogLevel", ""},
                                         {"basics", "set_debug", "2"},
                                         {"stabilizer", "gfps", "25-abc"},
                                         {"stabilizer", "sfps", "99-99"},
                                         {"sfps_current", "ecttcf", "\n"},
                                         {"stabilizer", "ex_buf", "-1"}});
    EXPECT_NO_THROW(manager.OnUserSettingParameters(nullptr));
    EXPECT_NO_THROW(manager.OnUserSettingParameters(MakeRecords({})));
    EXPECT_NO_THROW(manager.OnUserSettingParameters(hostile));
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), hostile->size());
    EXPECT_EQ(Basics::Log::LogLevel(), 3);
}

// Built while no PID is current: every component's settings land under the manager's own PID,
// and the records it handles itself are not recorded.
TEST_F(FpsManagerTest, SettingsAreFiledUnderTheManagersPidAndHistoryListsThem) {
    FpsManager manager(77, 60);
    manager.OnUserSettingParameters(MakeRecords({{"stabilizer", "ex_du", "500"},
                                                 {"stabilizer", "efps", "30-60"},
                                                 {"sfps_temperature", "ttsigal", "10"},
                                                 {"sfps_current", "ttsigal", "20"},
                                                 {"stabilizer", "lower_bound_stabilize", "1"},
                                                 {"basics", "debug_mode", "0"}}));
    EXPECT_THAT(logs.Find(ANDROID_LOG_ERROR), IsEmpty());
    ::testing::internal::CaptureStdout();
    manager.OnUserSettingParameters(MakeRecords({{"history", "any", "thing"}}));
    const std::string rule = std::string(72, '=') + "\n";
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              rule + "\t Game: 77 UserSettings:\n" + std::string(64, '-') +
                  "\n\t[\n\t  (efps, 30-60), (ex_du, 500), (lower_bound_stabilize, 1), "
                  "(ttsigal, 20)\n\t]\n\n" +
                  rule);
}

TEST_F(FpsManagerTest, DebugModeExplainsTheDecision) {
    FpsManager manager(77, 60);
    Tick(manager, 60);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "In deciding Stabilized FPS"), 0u);
    // Two seconds after construction: the explorer has begun measuring.
    manager.OnUserSettingParameters(MakeRecords({{"basics", "set_debug", "1"}}));
    Tick(manager, 60);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG,
                         "[FpsManager][updateSFPS] In deciding Stabilized FPS:\n"
                         "SFPS_LOWER_BOUND = -1\n\t currentEFPS = 60\n\t indexOfNearestGFPS = -1\n"
                         "\t sfpsDeciderByTemperature\n\t\t temperature = 30\n"
                         "\t\t IsActivated() = 0\n\t\t GetSFPS() = -1\n"
                         "\t sfpsDeciderByElectricCurrent\n\t\t electricCurrent_mA = 1000\n"
                         "\t\t IsActivated() = 0\n\t\t GetSFPS() = -1\n"
                         "\n\t Summarize over SfpsDecider, currentSFPS = -1\n"
                         "\t GfpsExplorer:\n\t\t status = 1\n\t\t GfpsEvaluator.IsMaxGFPS() = 1\n"
                         "\t\t EstimateFPS() = -1\n\t\t GFPS before Explorer = -1\n"
                         "\n\t Finally, FpsManager::GetSFPS() = -1\n"),
              1u);
}

// Destroyed without a pause: a record for its PID finds nothing to call.
TEST_F(FpsManagerTest, DestroyedManagerLeavesNoActionBehindYetSparesANewerOneWithItsPid) {
    FpsManager other(88, 60);
    { FpsManager gone(77, 60); }
    Center().OnCurrentBrainResume(77);
    other.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "30-60"}}));
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR, "\t PID: '77'\n\t key: 'gfps'"), 1u);

    auto paused = std::make_unique<FpsManager>(77, 60);
    paused->OnPause();
    FpsManager newer(77, 60);
    paused.reset();
    logs.Clear();
    newer.OnUserSettingParameters(Gfps30To60());
    EXPECT_THAT(logs.Find(ANDROID_LOG_ERROR), IsEmpty());
    EXPECT_EQ(Tick(newer, 58), "77,-1,60");
}

TEST_F(FpsManagerTest, SeveralManagersEachKeepTheirOwnSettings) {
    FpsManager first(101, 60);
    FpsManager second(102, 60);
    first.OnResume(0);
    first.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "30-60"}}));
    second.OnResume(0);
    second.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "25-45"}}));
    EXPECT_EQ(Tick(first, 58), "101,-1,60");
    EXPECT_EQ(Tick(second, 58), "102,-1,45");

    first.OnPause();
    second.OnResume(0);
    logs.Clear();
    second.OnUserSettingParameters(MakeRecords({{"stabilizer", "gfps", "30-60"}}));
    EXPECT_THAT(logs.Find(ANDROID_LOG_ERROR), IsEmpty());
    EXPECT_EQ(Tick(second, 58), "102,-1,60");
}

}  // namespace
}  // namespace TalvexTest
