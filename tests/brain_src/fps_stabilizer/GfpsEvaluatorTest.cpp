#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "GfpsTestSupport.h"
#include "LogCapture.h"
#include "talvex/brain_src/fps_stabilizer/GfpsEvaluator.h"

namespace {

using TalvexTest::RefusalOf;
using ::testing::HasSubstr;

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
    // GFPS, lower bound and index after one tick at this EFPS.
    std::string Tick(int efps, int refreshRate = 120) {
        evaluator.Update(efps, refreshRate);
        return std::to_string(evaluator.GetNearestGFPS()) + "/" +
               std::to_string(evaluator.GetSfpsLowerBound());
    }

    TalvexTest::FreshSettingsCenter center;
    TalvexTest::LogCapture logs;
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
          Row{"30-30-60", 30, 0, 30}, Row{"30-30-60", 45, 2, 60}, Row{"60", 90, 0, 60}}) {
        evaluator.SetGfpsCandidates(row.list);
        evaluator.Update(row.efps, 120);
        EXPECT_EQ(evaluator.GetNearestGFPS(), row.gfps) << row.list << " at " << row.efps;
        EXPECT_THAT(evaluator.GetDebugInfo(),
                    HasSubstr("\t indexOfNearestGFPS = " + std::to_string(row.index) + "\n"))
            << row.list << " at " << row.efps;
    }
}

TEST_F(GfpsEvaluatorTest, LowerBoundStory) {
    EXPECT_EQ(RefusalOf([&] { evaluator.SetSfpsLowerBoundCandidates("0-50"); }),
              SfpsRefusal("0-50", "0, 50"));
    evaluator.SetGfpsCandidates("30-60");
    evaluator.SetSfpsLowerBoundCandidates("0-50");
    EXPECT_EQ(Tick(39), "30/0");
    EXPECT_EQ(Tick(40), "60/50");

    evaluator.SetSfpsLowerBoundCandidates("0-58");
    EXPECT_EQ(evaluator.GetSfpsLowerBound(), -1);  // until the next tick
    EXPECT_EQ(Tick(60), "60/58");
    EXPECT_EQ(RefusalOf([&] { evaluator.SetSfpsLowerBoundCandidates("0-61"); }),
              SfpsRefusal("0-61", "0, 61"));
    EXPECT_EQ(Tick(60), "60/58");

    evaluator.SetGfpsCandidates("30-45-60");  // the SFPS list no longer fits
    EXPECT_EQ(Tick(60), "60/-1");
}

TEST_F(GfpsEvaluatorTest, LowerBoundsBelowTheMidpointAreRaisedToIt) {
    evaluator.SetGfpsCandidates("30-60-90");
    evaluator.SetSfpsLowerBoundCandidates("0-40-85");
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO,
                         "[GfpsEvaluator][SetSfpsLowerBoundCandidates]\t Note: at setting index = "
                         "1, with targetSFPS = 40\n\t Unable to adopt this setting due to the "
                         "allowedMinValue = 45\n\t Truncate it by allowedMinValue anyway.\n"),
              1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO,
                         "[GfpsEvaluator] Set LIST_OF_SFPS_CANDIDATES to: \t[\n"
                         "\t  0, 45, 85\n\t]\n"),
              1u);
    EXPECT_EQ(Tick(20), "30/0");
    EXPECT_EQ(Tick(60), "60/45");
    EXPECT_EQ(Tick(90), "90/85");

    evaluator.SetSfpsLowerBoundCandidates("0-0-70");  // 0 means: no compression at 60
    EXPECT_EQ(Tick(60), "60/0");
    EXPECT_EQ(Tick(90), "90/75");
}

TEST_F(GfpsEvaluatorTest, ResetsAndRefusals) {
    EXPECT_EQ(Tick(57), "-1/-1");  // nothing configured yet
    EXPECT_TRUE(evaluator.IsMaxGFPS(42));
    evaluator.SetGfpsCandidates("30-60");
    evaluator.SetSfpsLowerBoundCandidates("0-50");
    EXPECT_EQ(RefusalOf([&] { evaluator.SetGfpsCandidates("25-abc"); }).substr(0, 24),
              "ParseGfpsListFromString:");
    EXPECT_EQ(Tick(60), "60/50");

    evaluator.SetSfpsLowerBoundCandidates("NAN");
    EXPECT_EQ(Tick(60), "60/-1");
    evaluator.SetSfpsLowerBoundCandidates("0-50");
    evaluator.SetGfpsCandidates("reset");
    EXPECT_EQ(evaluator.GetDebugInfo(),
              "SFPS_LOWER_BOUND = -1\n\t currentEFPS = 60\n\t indexOfNearestGFPS = -1\n");
    EXPECT_EQ(evaluator.GetNearestGFPS(), 60);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[GfpsEvaluator] Reset LIST_OF_"), 2u);
    evaluator.SetGfpsCandidates("30-60");  // the SFPS list went with the reset
    EXPECT_EQ(Tick(60), "60/-1");
}

TEST_F(GfpsEvaluatorTest, MaxStandsForTheRefreshRateOfTheLastTick) {
    evaluator.SetGfpsCandidates("30-60");
    evaluator.SetGfpsCandidates("max");
    EXPECT_TRUE(evaluator.IsMaxGFPS(120));
    EXPECT_FALSE(evaluator.IsMaxGFPS(60));
    EXPECT_EQ(Tick(60, 90), "120/-1");
    evaluator.SetGfpsCandidates("30-max");
    EXPECT_EQ(Tick(80, 90), "90/-1");
}

TEST_F(GfpsEvaluatorTest, EveryKeyReachesItsSetter) {
    for (const char* key : {"gfps", "efps"}) center.Send("stabilizer", key, "30-60");
    for (const char* key : {"sfps_lower_bound", "sfps", "ofps_max"}) {
        center.Send("stabilizer", key, "0-50");
    }
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[GfpsEvaluator] Set LIST_OF_GFPS_CANDIDATES"), 2u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[GfpsEvaluator] Set LIST_OF_SFPS_CANDIDATES"), 3u);
    center.Send("stabilizer", "sfps", "0-70");
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR, "SFPS[i] must <= GFPS[i]"), 1u);
    EXPECT_EQ(Tick(60), "60/50");
}

// Run under the thread sanitizer: settings arrive on another thread than the ticks.
TEST(GfpsEvaluatorConcurrency, TicksWhileListsAreReplaced) {
    TalvexTest::LogCapture logs;
    TalvexTest::FreshSettingsCenter center;
    android::FpsStabilizer::GfpsEvaluator evaluator(120);
    std::atomic<bool> done{false};
    std::thread settings([&] {
        for (int i = 0; i < 500; ++i) {
            center.Send("stabilizer", "gfps", i % 2 ? "30-60" : "reset");
            center.Send("stabilizer", "sfps", i % 2 ? "0-50" : "reset");
        }
        done = true;
    });
    while (!done) {
        evaluator.Update(60, 120);
        EXPECT_TRUE(evaluator.IsMaxGFPS(60));
        EXPECT_THAT(evaluator.GetNearestGFPS(), ::testing::AnyOf(60, -1));
    }
    settings.join();
}

}  // namespace
