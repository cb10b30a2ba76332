#include "FpsManagerHarness.h"

namespace TalvexTest {
namespace {

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
