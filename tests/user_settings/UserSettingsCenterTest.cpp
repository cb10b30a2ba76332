#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;
using UserSettings::UserSetting;
using Strings = std::vector<std::string>;

const std::string RULE = std::string(72, '=') + "\n";
const std::string DASHES = std::string(64, '-') + "\n";
const std::string HEADING = "[UserSettingsCenter] \nError occur while Setting the parameters:\n";
const std::string STD_HEADING = HEADING +
                                "\t std exception is thrown, this may because the user specified\n"
                                "\t key or value is invalid.\n\t Exception info:\n---\n";

std::string notFound(int pid, const UserSetting& s) {
    return HEADING + "\t PID: '" + std::to_string(pid) + "'\n\t key: '" + s.key +
           "'\n\t Note:\n\t\t USER_SETTINGS.category = '" + s.category +
           "'\n\t\t USER_SETTINGS.key = '" + s.key + "'\n\t\t USER_SETTINGS.value = '" + s.value +
           "'\n";
}

std::string records(int pid, const std::string& entries) {
    return RULE + "\t Game: " + std::to_string(pid) + " UserSettings:\n" + DASHES + "\t[\n\t  " +
           entries + "\n\t]\n\n" + RULE;
}

class SettingsCenterTest : public ::testing::Test {
  protected:
    void recordInto(const std::string& category, const std::string& key, Strings& received) {
        center.RegisterUserSetting(
            key, [&received](std::string value) { received.push_back(value); }, category);
    }
    // Dispatches and returns the texts of every message it logged (all must be errors).
    Strings apply(const UserSetting& setting) {
        logs.Clear();
        EXPECT_NO_THROW(center.OnUserSettingParameter(setting));
        const Strings texts = logs.Texts(ANDROID_LOG_ERROR);
        EXPECT_EQ(texts.size(), logs.Messages().size());
        return texts;
    }
    // Runs a listing; the log must get the same text as standard output.
    template <typename Print>
    std::string listing(Print print) {
        logs.Clear();
        ::testing::internal::CaptureStdout();
        print();
        const std::string text = ::testing::internal::GetCapturedStdout();
        const auto infos = logs.Find(ANDROID_LOG_INFO);
        EXPECT_TRUE(!infos.empty() && infos.back().text == text);
        return text;
    }
    std::string recordsOf(int pid) {
        return listing([&] { center.PrintUserSettingRecords(pid); });
    }

    TalvexHarness::LogSwitchesScope logSwitches;
    TalvexHarness::SettingsCenterScope emptied;
    UserSettings::UserSettingsCenter& center = UserSettings::UserSettingsCenter::GetInstance();
    TalvexHarness::LogSink logs;
};

TEST_F(SettingsCenterTest, RegistrationAndDispatchFollowTheCurrentPid) {
    Strings replaced, early, shared, first;
    recordInto("stabilizer", "gfps", replaced);  // no PID current yet: filed under -1
    recordInto("stabilizer", "gfps", early);
    recordInto("other", "gfps", shared);
    EXPECT_THAT(apply({"stabilizer", "gfps", "30-60"}), ElementsAre());
    EXPECT_THAT(apply({"other", "gfps", "40"}), ElementsAre());
    EXPECT_THAT(apply({"unknown", "gfps", "1"}),
                ElementsAre(notFound(-1, {"unknown", "gfps", "1"})));
    EXPECT_EQ(replaced, Strings{});
    EXPECT_EQ(early, Strings{"30-60"});
    EXPECT_EQ(recordsOf(-1), records(-1, "(gfps, 40)"));  // keyed by key alone

    center.OnCurrentBrainResume(100);
    recordInto("c", "k", first);
    center.OnCurrentBrainResume(200);
    EXPECT_THAT(apply({"c", "k", "1"}), ElementsAre(notFound(200, {"c", "k", "1"})));
    center.OnCurrentBrainResume(100);
    EXPECT_THAT(apply({"c", "k", "1"}), ElementsAre());
    EXPECT_EQ(first, Strings{"1"});
    EXPECT_EQ(recordsOf(100), records(100, "(k, 1)"));
    EXPECT_THAT(recordsOf(200), StartsWith(RULE + "\t Game: 200 UserSettings:\n" + DASHES +
                                           "Failed to PrintUserSettingRecords due to fallowing "
                                           "error:\n"));
    EXPECT_THAT(recordsOf(200), ::testing::Not(::testing::EndsWith(RULE)));

    center.ResetForTesting();  // what every test's scope relies on: no action survives it
    EXPECT_THAT(apply({"other", "gfps", "1"}), ElementsAre(notFound(-1, {"other", "gfps", "1"})));
}

TEST_F(SettingsCenterTest, EachFailureIsOneErrorAndKeepsTheStoredState) {
    center.OnCurrentBrainResume(3);
    Strings accepted;
    center.RegisterUserSetting(
        "level",
        [&accepted](std::string value) {
            if (value != "1") TALVEX_THROW(InvalidArgumentException, "Invalid: '" + value + "'\n");
            accepted.push_back(value);
        },
        "c");
    const auto throwing = [&](const std::string& key, auto exception) {
        center.RegisterUserSetting(
            key, [exception](std::string) { throw exception; }, "c");
    };
    throwing("range", std::out_of_range("index"));
    throwing("runtime", std::runtime_error("device gone"));
    throwing("invalid", std::invalid_argument("not a number"));
    throwing("int", 42);
    center.RegisterUserSetting("empty", UserSettings::UserSettingAction{}, "c");
    ASSERT_THAT(apply({"c", "level", "1"}), ElementsAre());

    const std::vector<std::pair<UserSetting, ::testing::Matcher<std::string>>> rows = {
        {{"c", "level", "9"},
         ::testing::AllOf(StartsWith(STD_HEADING + "\nError Occur:\n"),
                          ::testing::EndsWith("\t Detail: Invalid: '9'\n\n"))},
        {{"c", "range", "x"}, notFound(3, {"c", "range", "x"})},
        {{"c", "runtime", "x"},
         HEADING + "\t The setting process (HierarchyMutex) is buzy.\n---\ndevice gone\n"},
        {{"c", "invalid", "x"}, STD_HEADING + "not a number\n"},
        {{"c", "int", "x"}, HEADING + "\t Unkown exception is thrown."},
        {{"c", "empty", "x"}, STD_HEADING + "bad_function_call\n"},
        {{"c", "missing", "x"}, notFound(3, {"c", "missing", "x"})},
    };
    for (const auto& [setting, text] : rows) EXPECT_THAT(apply(setting), ElementsAre(text));
    EXPECT_EQ(accepted, Strings{"1"});
    EXPECT_EQ(recordsOf(3), records(3, "(level, 1)"));
    Basics::Log::SetLogLevel(-1);
    EXPECT_THAT(apply({"c", "int", "x"}), ElementsAre());
}

// A PID that registered but never had a setting applied: the records lookup fails after the
// actions were emptied, so the warning block comes with a listing that shows the PID empty.
TEST_F(SettingsCenterTest, ForgettingAPidWithoutRecordsWarnsWithTheCandidateListing) {
    Strings sink;
    for (int i = 10; i < 21; ++i) recordInto("alpha", "k" + std::to_string(i), sink);
    recordInto("beta", "x", sink);
    center.OnCurrentBrainResume(5);
    recordInto("gamma", "y", sink);
    EXPECT_EQ(listing([&] { center.OnCurrentBrainDie(5); }),
              RULE + "\t-1\n" + DASHES + "\t\talpha\n----------\n\t\t\t" +
                  "k10, k11, k12, k13, k14, k15, k16, k17, k18, k19, \n\t\t\tk20, " +
                  "\t\tbeta\n----------\n\t\t\tx, \n" + RULE + "\t5\n" + DASHES + "\n" + RULE);
    const auto warnings = logs.Find(ANDROID_LOG_WARN);
    const std::string prefix = "[UserSettingsCenter][OnCurrentBrainDie] ";
    ASSERT_EQ(warnings.size(), 3u);
    EXPECT_EQ(warnings[0].text, prefix + "Following exception has been thrown:");
    EXPECT_THAT(warnings[1].text, StartsWith(prefix + "-----\n"));
    EXPECT_GT(warnings[1].text.size(), prefix.size() + 6);
    EXPECT_EQ(warnings[2].text, prefix + "-----\nNote: current contents of UserSettingsCenter:");
    EXPECT_THAT(apply({"gamma", "y", "1"}), ElementsAre(notFound(-1, {"gamma", "y", "1"})));

    center.OnCurrentBrainResume(9);  // a PID never seen: the current one stays current
    listing([&] { center.OnCurrentBrainDie(4); });
    EXPECT_THAT(apply({"beta", "x", "1"}), ElementsAre(notFound(9, {"beta", "x", "1"})));
}

TEST_F(SettingsCenterTest, VersionSetResetAndRefused) {
    center.SetVersion("5");
    EXPECT_EQ(center.GetVersion(), 5);
    center.SetVersion("nan");
    EXPECT_EQ(center.GetVersion(), 3);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[UserSettingsCenter]\t Set Version to 5"), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[UserSettingsCenter]\t Reset Version to 3"), 1u);
    center.SetVersion("0");
    try {
        center.SetVersion("-1");
        ADD_FAILURE() << "a negative version was accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "\nError occur while UserSettingsCenter::SetVersion():\n"
                     "Invalid targetVersion = -1\n\t The target value must >= 0\n"
                     "\t However:\t\t after converted to int, targetVersion = '-1'\n");
    }
    EXPECT_THROW(center.SetVersion("five"), std::invalid_argument);
    EXPECT_EQ(center.GetVersion(), 0);
}

TEST_F(SettingsCenterTest, ActionMayCallBackIntoTheCenter) {
    Strings inner;
    recordInto("c", "inner", inner);
    center.RegisterUserSetting(
        "outer",
        [&](std::string value) {
            inner.push_back("version " + std::to_string(center.GetVersion()));
            center.OnUserSettingParameter({"c", "inner", value});
            center.RegisterUserSetting(
                "outer", [](std::string) {}, "c");  // replaces itself
            inner.push_back("after");               // on a copy that is still alive
        },
        "c");
    EXPECT_THAT(apply({"c", "outer", "4"}), ElementsAre());
    EXPECT_THAT(apply({"c", "outer", "5"}), ElementsAre());
    EXPECT_EQ(inner, (Strings{"version 3", "4", "after"}));
    EXPECT_EQ(recordsOf(-1), records(-1, "(inner, 4), (outer, 5)"));
}

// A host's logger may wait on a thread that uses the center: a refusal is logged only once the
// center's lock is released.
TEST(SettingsCenterConcurrency, RefusalIsLoggedAfterTheLockIsReleased) {
    TalvexHarness::SettingsCenterScope emptied;
    static std::thread reader;
    static bool readWhileLogging = false;
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {
        auto read = std::make_shared<std::promise<void>>();
        reader = std::thread([read] {
            UserSettings::UserSettingsCenter::GetInstance().GetVersion();
            read->set_value();
        });
        readWhileLogging =
            read->get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    });
    UserSettings::UserSettingsCenter::GetInstance().OnUserSettingParameter({"c", "unknown", "1"});
    __android_log_set_logger(__android_log_stderr_logger);
    reader.join();
    EXPECT_TRUE(readWhileLogging);
}

}  // namespace
