#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GfpsTestSupport.h"
#include "LogCapture.h"
#include "talvex/brain_src/fps_stabilizer/FpsCandidates.h"

namespace {

using android::FpsStabilizer::IsSfpsCandidatesValid;
using android::FpsStabilizer::ParseGfpsListFromString;
using TalvexTest::RefusalOf;

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

TEST(ParseGfpsList, RefusedTextsNameTheirFault) {
    const std::string heading =
        "ParseGfpsListFromString:Error occur while paring the FPS_ARRAY_STR_:\n";
    auto belowTen = [&](const std::string& text, const std::string& piece) {
        return heading + "\t FPS_ARRAY_STR_ = '" + text + "'\n\t invalid TargetValue: '" + piece +
               "'\nNote: The TargetValue must >= 10.\n";
    };
    auto unknownMax = [&](const std::string& text, const std::string& refreshRate) {
        return heading + "\t Unable to parse the 'max', since the FASTEST_FPS_ is unkown.\n" +
               "\t Note:\n\t\t FPS_ARRAY_STR_ = '" + text +
               "'\n\t\t FASTEST_FPS_ = " + refreshRate + "\n";
    };
    auto invalid = [&](const std::string& text, const std::string& piece) {
        return heading + "\t FPS_ARRAY_STR_ = '" + text + "'\n\t invalid target value: '" + piece +
               "'\nPlease check your input command.\n" +
               "Note: The format is something like: '25-30-40-60-max'\n";
    };
    const std::string conversion = "<std::invalid_argument>";
    struct Row {
        std::string text;
        int refreshRate;
        std::string refusal;
    };
    for (const Row& row :
         {Row{"9-30", 60, belowTen("9-30", "9")}, Row{"1e2", 60, belowTen("1e2", "1e2")},
          Row{"30-max", 0, unknownMax("30-max", "0")}, Row{"max", -1, unknownMax("max", "-1")},
          Row{"MAX", 60, invalid("MAX", "MAX")}, Row{" 30", 60, invalid(" 30", " 30")},
          Row{"30-fps", 60, invalid("30-fps", "fps")}, Row{"-30", 60, conversion},
          Row{"30--60", 60, conversion}, Row{"30-.", 60, conversion}, Row{"e", 60, conversion}}) {
        EXPECT_EQ(RefusalOf([&] { ParseGfpsListFromString(row.text, row.refreshRate); }),
                  row.refusal)
            << row.text;
    }
}

TEST(ParseGfpsList, LogsEachPieceBeforeJudgingIt) {
    TalvexTest::LogCapture logs;
    ParseGfpsListFromString("max", 90);
    EXPECT_ANY_THROW(ParseGfpsListFromString("9-30", 90));
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "\t temp[0]=max, replace by RefreshRate=90"), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[ParseGfpsListFromString]\t temp[0]=9"), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "splittedString = \t[\n\t  9, 30\n\t]\n"), 1u);
}

TEST(SfpsCandidates, MustFitTheGfpsListPositionByPosition) {
    struct Row {
        std::vector<int> gfps, sfps;
        bool valid;
    };
    for (const Row& row : {Row{{30, 60}, {0, 58}, true}, Row{{30, 60}, {-5, 60}, true},
                           Row{{30, 60}, {0, 61}, false}, Row{{30, 60}, {31, 0}, false},
                           Row{{30, 60}, {30}, false}, Row{{}, {}, false}}) {
        EXPECT_EQ(IsSfpsCandidatesValid(row.gfps, row.sfps), row.valid)
            << ::testing::PrintToString(row.gfps) << " " << ::testing::PrintToString(row.sfps);
    }
}

}  // namespace
