#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <string>

#include "GfpsTestSupport.h"
#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/brain_src/fps_stabilizer/GfpsEvaluator.h"
#include "talvex/brain_src/fps_stabilizer/GfpsExplorer.h"

namespace {

using TalvexTest::RefusalOf;

std::string SfpsRefusal(const std::string& input, const std::string& converted) {
    return "SetSfpsLowerBoundCandidates:\nError occur while "
           "GfpsEvaluator::SetSfpsLowerBoundCandidates():\n\t The input may be invalid.\n"
           "\t\t input: '" +
           input + "'\n\t\t converted array = \t[\n\t  " + converted +
           "\n\t]\n\n\t Please check if the input is valid.\n"
           "\t Note: SFPS[i] must <= GFPS[i].\n"
           "\t Note: if you don't want to CompressFPS at a certain GFPS,\n"
           "\t       you can specified it by '0'.\n\t Example: 0-58-85\n";
}

class GfpsEvaluatorTest : public ::testing::Test {
  protected:
    // "GFPS/lower bound" after a tick at each EFPS in turn.
    std::string Tick(std::initializer_list<int> efps, int refreshRate = 120) {
        std::string result;
        for (int each : efps) {
            evaluator.Update(each, refreshRate);
            result += (result.empty() ? "" : " ") + std::to_string(evaluator.GetNearestGFPS()) +
                      "/" + std::to_string(evaluator.GetSfpsLowerBound());
        }
        return result;
    }

    TalvexHarness::SettingsCenterScope center;
    TalvexHarness::LogSink logs;
    android::FpsStabilizer::GfpsEvaluator evaluator{120};
};

TEST_F(GfpsEvaluatorTest, NearestCandidateFavoursTheLowerNeighbour) {
    struct Row {
        const char* list;
        int efps, index, gfps;
    };
    for (const Row& row :
         {Row{"30-45-60", 20, 0, 30}, Row{"30-45-60", 34, 0, 30}, Row{"30-45-60", 35, 1, 45},
          Row{"30-45-60", 45, 1, 45}, Row{"30-45-60", 49, 1, 45}, Row{"30-45-60", 50, 2, 60},
          Row{"30-45-60", 70, 2, 60}, Row{"30-60", 39, 0, 30}, Row{"30-60", 40, 1, 60},
          Row{"30-50", 39, 0, 30}, Row{"30-50", 40, 1, 50}, Row{"30-49", 34, 0, 30},
          Row{"30-49", 35, 1, 49}, Row{"30-33", 32, 0, 30}, Row{"30-33-60", 33, 1, 33},
          Row{"30-30-60", 30, 0, 30}, Row{"30-30-60", 45, 2, 60},
          Row{"2147483643-2147483647", 2147483645, 0, 2147483643}}) {
        evaluator.SetGfpsCandidates(row.list);
        evaluator.Update(row.efps, 120);
        EXPECT_EQ(evaluator.GetNearestGFPS(), row.gfps) << row.list << " at " << row.efps;
        EXPECT_THAT(evaluator.GetDebugInfo(),
                    ::testing::HasSubstr("\t indexOfNearestGFPS = " + std::to_string(row.index)))
            << row.list << " at " << row.efps;
    }
}

TEST_F(GfpsEvaluatorTest, LowerBoundsFitTheGfpsListAndAreRaisedToTheMidpoint) {
    EXPECT_EQ(RefusalOf([&] { evaluator.SetSfpsLowerBoundCandidates("0-50"); }),
              SfpsRefusal("0-50", "0, 50"));
    center.Set("stabilizer", "gfps", "30-60");
    center.Set("stabilizer", "sfps_lower_bound", "0-50");
    EXPECT_EQ(Tick({39, 40}), "30/0 60/50");
    center.Set("stabilizer", "sfps", "0-58");
    EXPECT_EQ(evaluator.GetSfpsLowerBound(), -1);  // until the next tick
    EXPECT_EQ(Tick({60}), "60/58");
    EXPECT_EQ(RefusalOf([&] { evaluator.SetSfpsLowerBoundCandidates("0-61"); }),
              SfpsRefusal("0-61", "0, 61"));
    EXPECT_EQ(Tick({60}), "60/58");

    center.Set("stabilizer", "efps", "30-60-90");  // the SFPS list no longer fits
    EXPECT_EQ(Tick({60}), "60/-1");
    center.Set("stabilizer", "ofps_max", "0-40-85");
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO,
                         "[GfpsEvaluator][SetSfpsLowerBoundCandidates]\t Note: at setting index = "
                         "1, with targetSFPS = 40\n\t Unable to adopt this setting due to the "
                         "allowedMinValue = 45\n\t Truncate it by allowedMinValue anyway.\n"),
              1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO,
                         "[GfpsEvaluator] Set LIST_OF_SFPS_CANDIDATES to: \t[\n\t  0, 45, 85\n"),
              1u);
    EXPECT_EQ(Tick({20, 60, 90}), "30/0 60/45 90/85");
    // The first is never raised; 0 means no compression.
    evaluator.SetSfpsLowerBoundCandidates("25-0-70");
    EXPECT_EQ(Tick({20, 60, 90}), "30/25 60/0 90/75");
    evaluator.SetSfpsLowerBoundCandidates("0-1-0");  // 1 is a bound, and raised
    EXPECT_EQ(Tick({60}), "60/45");
    evaluator.SetGfpsCandidates("2147483600-2147483647");
    evaluator.SetSfpsLowerBoundCandidates("0-2147483000");
    EXPECT_EQ(Tick({2147483647}), "2147483647/2147483623");
}

TEST_F(GfpsEvaluatorTest, ResetsRefusalsAndMax) {
    EXPECT_EQ(Tick({57}), "-1/-1");  // nothing configured yet
    EXPECT_TRUE(evaluator.IsMaxGFPS(42));
    evaluator.SetGfpsCandidates("30-60");
    evaluator.SetSfpsLowerBoundCandidates("0-50");
    EXPECT_EQ(RefusalOf([&] { evaluator.SetGfpsCandidates("25-abc"); }).substr(0, 24),
              "ParseGfpsListFromString:");
    EXPECT_EQ(Tick({60}), "60/50");
    evaluator.SetSfpsLowerBoundCandidates("NAN");
    EXPECT_EQ(Tick({60}), "60/-1");

    evaluator.SetSfpsLowerBoundCandidates("0-50");
    evaluator.SetGfpsCandidates("reset");
    EXPECT_EQ(evaluator.GetDebugInfo(),
              "SFPS_LOWER_BOUND = -1\n\t currentEFPS = 60\n\t indexOfNearestGFPS = -1\n");
    EXPECT_EQ(evaluator.GetNearestGFPS(), 60);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[GfpsEvaluator] Reset LIST_OF_"), 2u);
    evaluator.SetGfpsCandidates("30-60");  // the SFPS list went with the reset
    EXPECT_EQ(Tick({60}), "60/-1");

    // "max" is the refresh rate of the last tick.
    evaluator.SetGfpsCandidates("max");
    EXPECT_TRUE(evaluator.IsMaxGFPS(120) && !evaluator.IsMaxGFPS(60));
    EXPECT_EQ(Tick({60}, 90), "120/-1");
    evaluator.SetGfpsCandidates("30-max");
    EXPECT_EQ(Tick({80}, 90), "90/-1");
}

}  // namespace
