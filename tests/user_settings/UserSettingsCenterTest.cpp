#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using UserSettings::UserSetting;
using UserSettings::UserSettingsCenter;

const std::string RULE = std::string(72, '=') + "\n";
const std::string DASHES = std::string(64, '-') + "\n";
const std::string FAILURE_HEADING =
    "[UserSettingsCenter] \nError occur while Setting the parameters:\n";
const std::string STD_EXCEPTION_HEADING = FAILURE_HEADING +
                                          "\t std exception is thrown, this may because the user "
                                          "specified\n\t key or value is invalid.\n\t Exception "
                                          "info:\n---\n";

std::string NotFoundText(int pid, const UserSetting& s) {
    return FAILURE_HEADING + "\t PID: '" + std::to_string(pid) + "'\n\t key: '" + s.key +
           "'\n\t Note:\n\t\t USER_SETTINGS.category = '" + s.category +
           "'\n\t\t USER_SETTINGS.key = '" + s.key + "'\n\t\t USER_SETTINGS.value = '" + s.value +
           "'\n";
}

class SettingsCenterTest : public ::testing::Test {
  protected:
    void SetUp() override { center.ResetForTesting(); }
    void TearDown() override {
        center.ResetForTesting();
        Basics::Log::SetLogLevel(2);
    }

    // Registers an action that stores what it receives.
    void RegisterRecorder(const std::string& category, const std::string& key,
                          std::vector<std::string>& received) {
        center.RegisterUserSetting(
            key, [&received](std::string value) { received.push_back(value); }, category);
    }

    std::vector<std::string> Errors() const {
        std::vector<std::string> texts;
        for (const auto& m : logs.Find(ANDROID_LOG_ERROR)) texts.push_back(m.text);
        return texts;
    }

    std::string RecordsListing(int pid) {
        ::testing::internal::CaptureStdout();
        center.PrintUserSettingRecords(pid);
        return ::testing::internal::GetCapturedStdout();
    }

    std::string CandidatesListing() {
        ::testing::internal::CaptureStdout();
        center.PrintUserSettingCandidates();
        return ::testing::internal::GetCapturedStdout();
    }

    static std::string RecordsText(int pid, const std::string& entries) {
        return RULE + "\t Game: " + std::to_string(pid) + " UserSettings:\n" + DASHES +
               "\t[\n\t  " + entries + "\n\t]\n\n" + RULE;
    }

    UserSettingsCenter& center = UserSettingsCenter::GetInstance();
    TalvexTest::LogCapture logs;
};

TEST(IsResetCommand, OnlyTheThreeExactNames) {
    struct Row {
        const char* value;
        bool reset;
    };
    for (const Row& row :
         {Row{"reset", true}, Row{"nan", true}, Row{"NAN", true}, Row{"Reset", false},
          Row{"RESET", false}, Row{"NaN", false}, Row{"nan ", false}, Row{" reset", false},
          Row{"", false}, Row{"resets", false}}) {
        EXPECT_EQ(UserSettings::IsResetCommand(row.value), row.reset) << "'" << row.value << "'";
    }
}

TEST_F(SettingsCenterTest, WithoutCurrentPidEverythingLivesUnderMinusOne) {
    std::vector<std::string> received;
    RegisterRecorder("stabilizer", "gfps", received);
    center.OnUserSettingParameter({"stabilizer", "gfps", "30-60"});
    EXPECT_EQ(received, std::vector<std::string>{"30-60"});
    EXPECT_EQ(RecordsListing(-1), RecordsText(-1, "(gfps, 30-60)"));

    const UserSetting unknown{"nowhere", "gfps", "1"};
    center.OnUserSettingParameter(unknown);
    EXPECT_THAT(Errors(), ::testing::ElementsAre(NotFoundText(-1, unknown)));
    EXPECT_EQ(RecordsListing(-1), RecordsText(-1, "(gfps, 30-60)"));
}

TEST_F(SettingsCenterTest, RegistrationGoesToThePidCurrentAtTheCall) {
    std::vector<std::string> first, second;
    center.OnCurrentBrainResume(100);
    RegisterRecorder("c", "k", first);
    center.OnCurrentBrainResume(200);
    RegisterRecorder("c", "other", second);

    const UserSetting toK{"c", "k", "1"};
    center.OnUserSettingParameter(toK);
    EXPECT_THAT(Errors(), ::testing::ElementsAre(NotFoundText(200, toK)));
    EXPECT_TRUE(first.empty());

    center.OnCurrentBrainResume(100);
    center.OnUserSettingParameter(toK);
    EXPECT_EQ(first, std::vector<std::string>{"1"});
    EXPECT_EQ(RecordsListing(100), RecordsText(100, "(k, 1)"));
    EXPECT_THAT(RecordsListing(200), HasSubstr("Failed to PrintUserSettingRecords"));
}

TEST_F(SettingsCenterTest, SecondRegistrationReplacesTheFirst) {
    std::vector<std::string> first, second;
    RegisterRecorder("c", "k", first);
    RegisterRecorder("c", "k", second);
    center.OnUserSettingParameter({"c", "k", "7"});
    EXPECT_TRUE(first.empty());
    EXPECT_EQ(second, std::vector<std::string>{"7"});
}

TEST_F(SettingsCenterTest, EachFailureIsOneErrorAndKeepsTheStoredState) {
    center.OnCurrentBrainResume(3);
    std::vector<std::string> accepted;
    center.RegisterUserSetting(
        "level",
        [&accepted](std::string value) {
            if (value != "1" && value != "2") {
                TALVEX_THROW(InvalidArgumentException,
                             "\nError occur while Test::SetLevel():\nInvalid target value: '" +
                                 value + "'\n");
            }
            accepted.push_back(value);
        },
        "c");
    center.RegisterUserSetting(
        "range", [](std::string) { throw std::out_of_range("index"); }, "c");
    center.RegisterUserSetting(
        "runtime", [](std::string) { throw std::runtime_error("device gone"); }, "c");
    center.RegisterUserSetting(
        "invalid", [](std::string) { throw std::invalid_argument("not a number"); }, "c");
    center.RegisterUserSetting(
        "int", [](std::string) { throw 42; }, "c");
    center.RegisterUserSetting("empty", UserSettings::UserSettingAction{}, "c");
    center.OnUserSettingParameter({"c", "level", "1"});
    ASSERT_TRUE(Errors().empty());

    struct Row {
        UserSetting setting;
        ::testing::Matcher<std::string> text;
    };
    const std::vector<Row> rows = {
        {{"c", "level", "9"},
         ::testing::AllOf(StartsWith(STD_EXCEPTION_HEADING + "\nError Occur:\n"),
                          HasSubstr("\t Function: operator()\n"),
                          EndsWith("Invalid target value: '9'\n\n"))},
        {{"c", "range", "x"}, NotFoundText(3, {"c", "range", "x"})},
        {{"c", "runtime", "x"},
         FAILURE_HEADING + "\t The setting process (HierarchyMutex) is buzy.\n---\ndevice gone\n"},
        {{"c", "invalid", "x"}, STD_EXCEPTION_HEADING + "not a number\n"},
        {{"c", "int", "x"}, FAILURE_HEADING + "\t Unkown exception is thrown."},
        {{"c", "empty", "x"}, STD_EXCEPTION_HEADING + "bad_function_call\n"},
        {{"c", "missing", "x"}, NotFoundText(3, {"c", "missing", "x"})},
        {{"d", "level", "2"}, NotFoundText(3, {"d", "level", "2"})},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.setting.key);
        logs.Clear();
        EXPECT_NO_THROW(center.OnUserSettingParameter(row.setting));
        ASSERT_EQ(logs.Messages().size(), 1u);
        EXPECT_EQ(logs.Messages()[0].priority, ANDROID_LOG_ERROR);
        EXPECT_THAT(logs.Messages()[0].text, row.text);
    }
    EXPECT_EQ(accepted, std::vector<std::string>{"1"});
    EXPECT_EQ(RecordsListing(3), RecordsText(3, "(level, 1)"));

    // Silenced, a failure still does not escape.
    Basics::Log::SetLogLevel(-1);
    logs.Clear();
    EXPECT_NO_THROW(center.OnUserSettingParameter({"c", "int", "x"}));
    EXPECT_TRUE(logs.Messages().empty());
}

TEST_F(SettingsCenterTest, RecordsAreKeyedByKeyAlone) {
    std::vector<std::string> a, b;
    RegisterRecorder("first", "shared", a);
    RegisterRecorder("second", "shared", b);
    center.OnUserSettingParameter({"first", "shared", "1"});
    center.OnUserSettingParameter({"second", "shared", "2"});
    EXPECT_EQ(a, std::vector<std::string>{"1"});
    EXPECT_EQ(b, std::vector<std::string>{"2"});
    EXPECT_EQ(RecordsListing(-1), RecordsText(-1, "(shared, 2)"));
}

TEST_F(SettingsCenterTest, RecordListingBreaksAfterTenEntriesAndReportsAMissingPid) {
    std::vector<std::string> sink;
    std::string entries;
    for (int i = 0; i < 11; ++i) {
        const std::string key = "k" + std::to_string(i + 10);
        RegisterRecorder("c", key, sink);
        center.OnUserSettingParameter({"c", key, std::to_string(i)});
        entries += "(" + key + ", " + std::to_string(i) + ")";
        entries += i == 9 ? ", \n\t  " : (i < 10 ? ", " : "");
    }
    logs.Clear();
    const std::string listing = RecordsListing(-1);
    EXPECT_EQ(listing, RecordsText(-1, entries));
    EXPECT_THAT(logs.Find(ANDROID_LOG_INFO),
                ::testing::ElementsAre(::testing::Field(&TalvexTest::LogMessage::text, listing)));

    const std::string missing = RecordsListing(9);
    EXPECT_THAT(missing, StartsWith(RULE + "\t Game: 9 UserSettings:\n" + DASHES +
                                    "Failed to PrintUserSettingRecords due to fallowing error:\n"));
    EXPECT_THAT(missing, ::testing::Not(EndsWith(RULE)));
}

TEST_F(SettingsCenterTest, CandidateListingShowsEveryPidCategoryAndKey) {
    std::vector<std::string> sink;
    for (int i = 0; i < 11; ++i) RegisterRecorder("alpha", "k" + std::to_string(i + 10), sink);
    RegisterRecorder("beta", "x", sink);
    center.OnCurrentBrainResume(5);
    RegisterRecorder("gamma", "y", sink);
    center.OnCurrentBrainDie(5);

    logs.Clear();
    const std::string listing = CandidatesListing();
    EXPECT_EQ(listing, RULE + "\t-1\n" + DASHES + "\t\talpha\n----------\n\t\t\t" +
                           "k10, k11, k12, k13, k14, k15, k16, k17, k18, k19, \n\t\t\tk20, " +
                           "\t\tbeta\n----------\n\t\t\tx, \n" + RULE + "\t5\n" + DASHES + "\n" +
                           RULE);
    EXPECT_THAT(logs.Find(ANDROID_LOG_INFO),
                ::testing::ElementsAre(::testing::Field(&TalvexTest::LogMessage::text, listing)));

    center.ResetForTesting();
    EXPECT_EQ(CandidatesListing(), RULE);
}

// A game registers, is tuned, pauses (forgotten) and resumes without registering anew.
TEST_F(SettingsCenterTest, PauseForgetsAndResumeDoesNotRegisterAgain) {
    std::vector<std::string> received;
    center.OnCurrentBrainResume(7);
    RegisterRecorder("sfps_current", "upper", received);
    center.OnUserSettingParameter({"sfps_current", "upper", "900"});
    EXPECT_EQ(RecordsListing(7), RecordsText(7, "(upper, 900)"));

    logs.Clear();
    center.OnCurrentBrainDie(7);
    EXPECT_THAT(logs.Messages(), ::testing::ElementsAre(::testing::Field(
                                     &TalvexTest::LogMessage::text,
                                     "[UserSettingsCenter][OnCurrentBrainDie] Release Brain: 7")));
    EXPECT_EQ(CandidatesListing(), RULE + "\t7\n" + DASHES + "\n" + RULE);
    EXPECT_EQ(RecordsListing(7), RecordsText(7, ""));

    // No PID is current now: records are dispatched against -1.
    logs.Clear();
    const UserSetting again{"sfps_current", "upper", "800"};
    center.OnUserSettingParameter(again);
    EXPECT_THAT(Errors(), ::testing::ElementsAre(NotFoundText(-1, again)));

    logs.Clear();
    center.OnCurrentBrainResume(7);
    center.OnUserSettingParameter(again);
    EXPECT_THAT(Errors(), ::testing::ElementsAre(NotFoundText(7, again)));
    EXPECT_EQ(received, std::vector<std::string>{"900"});
    EXPECT_EQ(RecordsListing(7), RecordsText(7, ""));
}

TEST_F(SettingsCenterTest, ForgettingAPidWithoutRecordsWarnsAndStillClearsIt) {
    std::vector<std::string> received;
    center.OnCurrentBrainResume(8);
    RegisterRecorder("c", "k", received);

    logs.Clear();
    ::testing::internal::CaptureStdout();
    center.OnCurrentBrainDie(8);
    const std::string printed = ::testing::internal::GetCapturedStdout();

    const std::vector<TalvexTest::LogMessage> warnings = logs.Find(ANDROID_LOG_WARN);
    ASSERT_EQ(warnings.size(), 3u);
    EXPECT_EQ(warnings[0].text,
              "[UserSettingsCenter][OnCurrentBrainDie] Following exception has been thrown:");
    EXPECT_THAT(warnings[1].text, StartsWith("[UserSettingsCenter][OnCurrentBrainDie] -----\n"));
    EXPECT_GT(warnings[1].text.size(), 46u);  // the exception's text follows the rule
    EXPECT_EQ(warnings[2].text,
              "[UserSettingsCenter][OnCurrentBrainDie] -----\n"
              "Note: current contents of UserSettingsCenter:");
    // The actions were emptied before the records lookup failed.
    EXPECT_EQ(printed, RULE + "\t8\n" + DASHES + "\n" + RULE);

    logs.Clear();
    const UserSetting setting{"c", "k", "1"};
    center.OnUserSettingParameter(setting);
    EXPECT_THAT(Errors(), ::testing::ElementsAre(NotFoundText(-1, setting)));

    // A PID never seen: the current one stays current.
    center.OnCurrentBrainResume(9);
    logs.Clear();
    ::testing::internal::CaptureStdout();
    center.OnCurrentBrainDie(4);
    ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN), 3u);
    logs.Clear();
    center.OnUserSettingParameter(setting);
    EXPECT_THAT(Errors(), ::testing::ElementsAre(NotFoundText(9, setting)));
}

TEST_F(SettingsCenterTest, VersionSetResetAndRefused) {
    EXPECT_EQ(center.GetVersion(), 3);
    center.SetVersion("5");
    EXPECT_EQ(center.GetVersion(), 5);
    center.SetVersion("nan");
    EXPECT_EQ(center.GetVersion(), 3);
    center.SetVersion("0");
    EXPECT_EQ(center.GetVersion(), 0);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[UserSettingsCenter]\t Set Version to 5"), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[UserSettingsCenter]\t Reset Version to 3"), 1u);

    try {
        center.SetVersion("-1");
        ADD_FAILURE() << "a negative version was accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "\nError occur while UserSettingsCenter::SetVersion():\n"
                     "Invalid targetVersion = -1\n"
                     "\t The target value must >= 0\n"
                     "\t However:\t\t after converted to int, targetVersion = '-1'\n");
    }
    EXPECT_THROW(center.SetVersion("five"), std::invalid_argument);
    EXPECT_THROW(center.SetVersion(""), std::invalid_argument);
    EXPECT_EQ(center.GetVersion(), 0);

    // The lock is not left held by a throw: another thread can still take it.
    int seen = -1;
    std::thread reader([&] { seen = center.GetVersion(); });
    reader.join();
    EXPECT_EQ(seen, 0);
}

TEST_F(SettingsCenterTest, ActionMayCallBackIntoTheCenter) {
    std::vector<std::string> inner;
    int versionSeen = -1;
    RegisterRecorder("c", "inner", inner);
    center.RegisterUserSetting(
        "outer",
        [&](std::string value) {
            versionSeen = center.GetVersion();
            center.OnUserSettingParameter({"c", "inner", value});
            // Replaces the running action itself.
            center.RegisterUserSetting(
                "outer", [](std::string) {}, "c");
        },
        "c");
    center.OnUserSettingParameter({"c", "outer", "4"});
    center.OnUserSettingParameter({"c", "outer", "5"});
    EXPECT_EQ(versionSeen, 3);
    EXPECT_EQ(inner, std::vector<std::string>{"4"});
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(RecordsListing(-1), RecordsText(-1, "(inner, 4), (outer, 5)"));
}

}  // namespace
