#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "LogCapture.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/LoadingDetector.h"

namespace {

using android::FpsStabilizer::LoadingDetector;
using android::FpsStabilizer::SYS_INFO;

// Shorter than a period at any rate used here, so the frame-length quota stays positive.
constexpr float kFastFrame_s = 0.01f;
// Longer than four periods: one such frame makes the quota negative.
constexpr float kSlowFrame_s = 1.0f;

SYS_INFO Record(std::uint64_t cpu0, std::uint64_t cpu1 = 0, std::uint64_t cpu2 = 0,
                std::uint64_t cpu3 = 0) {
    SYS_INFO info{};
    info.cpuUtils[0] = cpu0;
    info.cpuUtils[1] = cpu1;
    info.cpuUtils[2] = cpu2;
    info.cpuUtils[3] = cpu3;
    return info;
}

class LoadingDetectorTest : public ::testing::Test {
  protected:
    void SetUp() override { Basics::Log::SetLogLevel(3); }
    void TearDown() override { Basics::Log::SetLogLevel(2); }

    // One tick whose final EFPS is the one it started with, as when the EFPS stays.
    bool Tick(std::uint64_t cpu, float efps, float ofps, float frameLength_s = kFastFrame_s) {
        detector.Update(Record(cpu), frameLength_s, efps, ofps);
        detector.PostUpdate(efps);
        return detector.IsLoadingVeryLight();
    }
    void Learn(std::uint64_t cpu, int ticks) {
        for (int i = 0; i < ticks; ++i) ASSERT_FALSE(Tick(cpu, 60, 60));
    }
    // Ticks at the OFPS under the EFPS until the detector answers; the count, or 0 if never.
    int TicksUntilVeryLight(std::uint64_t cpu, float efps, float ofps, int limit) {
        for (int i = 1; i <= limit; ++i) {
            if (Tick(cpu, efps, ofps)) return i;
        }
        return 0;
    }
    size_t Debug(const std::string& fragment) const {
        return logs.Count(ANDROID_LOG_DEBUG, "[SystemInfo][LoadingDetector] " + fragment);
    }

    TalvexTest::LogCapture logs;
    LoadingDetector detector{&LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm};
};

TEST(LoadingDetectorExtraction, MaxAndSumOfTheFourReadings) {
    struct Row {
        SYS_INFO info;
        unsigned long long max, sum;
    };
    for (const Row& row :
         {Row{Record(5, 30, 30, 7), 30, 72}, Row{Record(0), 0, 0}, Row{Record(9, 1, 2, 3), 9, 15},
          Row{Record(1, 2, 3, 4), 4, 10}, Row{Record(UINT64_MAX, 2, 0, 0), UINT64_MAX, 1}}) {
        SCOPED_TRACE(row.sum);
        EXPECT_EQ(LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm(row.info), row.max);
        EXPECT_EQ(LoadingDetector::ExtractCpuUtils_BySumAlgorithm(row.info), row.sum);
    }
}

TEST_F(LoadingDetectorTest, FreshDetectorAnswersByGlobalMinimumAndIgnoresCpuOfTen) {
    EXPECT_FALSE(detector.IsLoadingVeryLight());
    EXPECT_TRUE(Tick(5000, 60, 45));
    EXPECT_EQ(Debug("currentCpuUtil = 5000.000000"), 1u);
    EXPECT_EQ(Debug("\t minCpuUtil = -1"), 1u);
    EXPECT_EQ(Debug("\t CpuUtil is lower than Global Min"), 1u);

    // Not analysed: a tick at the EFPS would otherwise clear the answer.
    EXPECT_TRUE(Tick(10, 60, 60));
    EXPECT_FALSE(Tick(11, 60, 60));
}

TEST_F(LoadingDetectorTest, RunLengthRuleCountsOnlyTheCurrentRunOfOneOfps) {
    // A change of the final EFPS forgets everything; the minimum becomes 2147483647, below the
    // CPU values used from here on, so only the run-length rule can answer.
    Tick(5000, 60, 60);
    detector.PostUpdate(59);
    const std::uint64_t busy = 3000000000ULL;

    // 1000 / |58 - 60| = 500 values must be held before the tick's own value is appended.
    EXPECT_EQ(TicksUntilVeryLight(busy, 60, 58, 300), 0);
    EXPECT_FALSE(Tick(busy, 60, 57));
    EXPECT_EQ(TicksUntilVeryLight(busy, 60, 58, 1000), 501);
    EXPECT_EQ(Debug("\t Queue max size (= 500 ) is reached."), 1u);

    // Beyond a distance of 1000 any run answers.
    detector.PostUpdate(30);
    EXPECT_EQ(TicksUntilVeryLight(busy, 2060, 60, 10), 2);
    EXPECT_EQ(Debug("\t Queue max size (= 0 ) is reached."), 1u);
}

TEST_F(LoadingDetectorTest, LocalMinimumNeedsFourTicksBelowTheTrimmedHistory) {
    // The oldest value, 300, falls out of the history of 350 but stays the global minimum.
    Learn(300, 1);
    Learn(500, 300);
    Learn(400, 50);

    // The first evaluation trims the newest 50 values (the 400s): the local minimum is 500.
    EXPECT_EQ(TicksUntilVeryLight(450, 60, 45, 10), 4);
    EXPECT_EQ(Debug("\t localMinCpuUtil = 500"), 4u);
    EXPECT_EQ(Debug("\t ++counter = 4"), 1u);
    EXPECT_EQ(Debug("\t CpuUtil is lower than Load Min & counts enough."), 1u);

    // The trim was permanent: ten new 400s are the newest again and trimmed again; the counter
    // was not restarted by learning.
    Learn(400, 10);
    EXPECT_TRUE(Tick(450, 60, 45));

    // Above the local minimum with a positive quota restarts the count; equal leaves it.
    EXPECT_FALSE(Tick(600, 60, 45));
    EXPECT_EQ(Debug("\t reset counter"), 1u);
    EXPECT_EQ(TicksUntilVeryLight(450, 60, 45, 3), 0);
    EXPECT_FALSE(Tick(500, 60, 45));
    EXPECT_TRUE(Tick(450, 60, 45));

    // Above the local minimum without a positive quota leaves it too.
    EXPECT_FALSE(Tick(600, 60, 45));
    EXPECT_EQ(TicksUntilVeryLight(450, 60, 45, 3), 0);
    EXPECT_FALSE(Tick(600, 60, 45, kSlowFrame_s));
    EXPECT_TRUE(Tick(450, 60, 45));
    EXPECT_EQ(Debug("\t reset counter"), 2u);
}

TEST_F(LoadingDetectorTest, PostUpdateForgetsOnlyWhenTheEfpsChanged) {
    Learn(500, 5);
    detector.Update(Record(450), kFastFrame_s, 60, 45);
    EXPECT_TRUE(detector.IsLoadingVeryLight());
    detector.PostUpdate(60);
    EXPECT_TRUE(detector.IsLoadingVeryLight());

    detector.PostUpdate(45);
    EXPECT_FALSE(detector.IsLoadingVeryLight());
    logs.Clear();
    EXPECT_TRUE(Tick(3000, 45, 40));
    EXPECT_EQ(Debug("\t minCpuUtil = 2147483647"), 1u);
    // The history of 500s is gone: no local minimum is looked at.
    EXPECT_FALSE(Tick(3000000000ULL, 45, 40));
    EXPECT_EQ(Debug("\t localMinCpuUtil"), 0u);
}

TEST(LoadingDetectorFailure, EmptyExtractorThrowsBadFunctionCall) {
    LoadingDetector detector{LoadingDetector::CpuUtilsExtractor()};
    EXPECT_THROW(detector.Update(Record(100), kFastFrame_s, 60, 45), std::bad_function_call);
}

}  // namespace
