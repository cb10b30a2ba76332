#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "GfpsTestSupport.h"
#include "harness/LogSink.h"
#include "talvex/brain_src/fps_stabilizer/FpsCandidates.h"

namespace {

using android::FpsStabilizer::ParseGfpsListFromString;

TEST(ParseGfpsList, AcceptedTextsGiveSortedLists) {
    struct Row {
        const char* text;
        int refreshRate;
        std::vector<int> expected;
    };
    for (const Row& row :
         {Row{"25-30-40-60-max", 120, {25, 30, 40, 60, 120}}, Row{"max-30", 60, {30, 60}},
          Row{"60-30-30", 60, {30, 30, 60}}, Row{"", 60, {}}, Row{"30-60-", 60, {30, 60}},
          Row{"10", 0, {10}}, Row{"30.5-60", 60, {30, 60}}, Row{"max", 5, {5}}}) {
        EXPECT_EQ(ParseGfpsListFromString(row.text, row.refreshRate), row.expected) << row.text;
    }
}

// One row per fault the parser names; what the conversion refuses throws its own exception.
TEST(ParseGfpsList, RefusedTextsNameTheirFaultAfterLoggingThePieces) {
    const std::string start =
        "ParseGfpsListFromString:Error occur while paring the FPS_ARRAY_STR_:\n\t ";
    TalvexHarness::LogSink logs;
    for (const auto& row : std::vector<std::pair<std::string, std::string>>{
             {"9-30", start + "FPS_ARRAY_STR_ = '9-30'\n\t invalid TargetValue: '9'\nNote: The "
                              "TargetValue must >= 10.\n"},
             {"30-max", start + "Unable to parse the 'max', since the FASTEST_FPS_ is unkown.\n\t "
                                "Note:\n\t\t FPS_ARRAY_STR_ = '30-max'\n\t\t FASTEST_FPS_ = 0\n"},
             {" 30", start + "FPS_ARRAY_STR_ = ' 30'\n\t invalid target value: ' 30'\nPlease check "
                             "your input command.\nNote: The format is something like: "
                             "'25-30-40-60-max'\n"},
             {"30--60", "<std::invalid_argument>"}}) {
        EXPECT_EQ(TalvexTest::RefusalOf([&] { ParseGfpsListFromString(row.first, 0); }),
                  row.second);
    }
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "splittedString = \t[\n\t  9, 30\n\t]\n"), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[ParseGfpsListFromString]\t temp[0]=9"), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "max, replace by"), 0u);
    ParseGfpsListFromString("30-max", 90);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "\t temp[1]=max, replace by RefreshRate=90"), 1u);
}

TEST(SfpsCandidates, MustFitTheGfpsListPositionByPosition) {
    using android::FpsStabilizer::IsSfpsCandidatesValid;
    const std::vector<int> gfps{30, 60};
    EXPECT_TRUE(IsSfpsCandidatesValid(gfps, {0, 58}) && IsSfpsCandidatesValid(gfps, {-5, 60}));
    EXPECT_FALSE(IsSfpsCandidatesValid(gfps, {0, 61}) || IsSfpsCandidatesValid(gfps, {31, 0}));
    EXPECT_FALSE(IsSfpsCandidatesValid(gfps, {30}) || IsSfpsCandidatesValid({}, {}));
}

}  // namespace
