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

TEST(ParseGfpsList, RefusedTextsNameTheirFaultAfterLoggingThePieces) {
    const std::string start =
        "ParseGfpsListFromString:Error occur while paring the "
        "FPS_ARRAY_STR_:\n\t FPS_ARRAY_STR_ = '";
    const std::string belowTen = "'\nNote: The TargetValue must >= 10.\n";
    const std::string invalid =
        "'\nPlease check your input command.\nNote: The format is "
        "something like: '25-30-40-60-max'\n";
    auto max = [](const std::string& text, const std::string& refreshRate) {
        return "ParseGfpsListFromString:Error occur while paring the FPS_ARRAY_STR_:\n\t Unable "
               "to parse the 'max', since the FASTEST_FPS_ is unkown.\n\t Note:\n\t\t "
               "FPS_ARRAY_STR_ = '" +
               text + "'\n\t\t FASTEST_FPS_ = " + refreshRate + "\n";
    };
    const std::string conversion = "<std::invalid_argument>";
    TalvexHarness::LogSink logs;
    for (const auto& row : std::vector<std::pair<std::string, std::string>>{
             {"9-30", start + "9-30'\n\t invalid TargetValue: '9" + belowTen},
             {"1e2", start + "1e2'\n\t invalid TargetValue: '1e2" + belowTen},
             {"30-max", max("30-max", "0")},
             {"MAX", start + "MAX'\n\t invalid target value: 'MAX" + invalid},
             {" 30", start + " 30'\n\t invalid target value: ' 30" + invalid},
             {"-30", conversion},
             {"30--60", conversion},
             {"e", conversion}}) {
        EXPECT_EQ(TalvexTest::RefusalOf([&] { ParseGfpsListFromString(row.first, 0); }),
                  row.second);
    }
    EXPECT_EQ(TalvexTest::RefusalOf([] { ParseGfpsListFromString("max", -1); }), max("max", "-1"));
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
