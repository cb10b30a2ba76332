#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/LoadingDetector.h"

namespace {

using android::FpsStabilizer::LoadingDetector;
using android::FpsStabilizer::SYS_INFO;

constexpr std::uint64_t kBusy = 3000000000ULL;  // above the minimum a reset leaves

class LoadingDetectorTest : public ::testing::Test {
  protected:
    TalvexHarness::LogSwitchesScope debug{3};

    // Ticks whose final EFPS is the one they started with; the last one's answer. Frames of
    // 0.01 s keep the quota positive, one of 1 s makes it negative.
    bool Tick(std::uint64_t cpu, float efps, float ofps, int ticks = 1, float length_s = 0.01f) {
        for (int i = 0; i < ticks; ++i) {
            detector.Update(SYS_INFO{0, 0, {}, {cpu, 0, 0, 0}, 0}, length_s, efps, ofps);
            detector.PostUpdate(efps);
        }
        return detector.IsLoadingVeryLight();
    }
    int TicksUntilVeryLight(std::uint64_t cpu, float ofps, int limit, float efps = 60) {
        for (int i = 1; i <= limit; ++i) {
            if (Tick(cpu, efps, ofps)) return i;
        }
        return 0;
    }
    size_t Debug(const std::string& fragment) const {
        return logs.Count(ANDROID_LOG_DEBUG, "[SystemInfo][LoadingDetector] " + fragment);
    }

    TalvexHarness::LogSink logs;
    LoadingDetector detector{&LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm};
};

TEST(LoadingDetectorExtraction, LargestReadingAndWrappingSum) {
    const SYS_INFO info{0, 0, {}, {5, 30, 30, 7}, 0}, huge{0, 0, {}, {1, 2, 0, UINT64_MAX}, 0};
    EXPECT_EQ(LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm(info), 30u);
    EXPECT_EQ(LoadingDetector::ExtractCpuUtils_BySumAlgorithm(info), 72u);
    EXPECT_EQ(LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm(huge), UINT64_MAX);
    EXPECT_EQ(LoadingDetector::ExtractCpuUtils_BySumAlgorithm(huge), 2u);
    LoadingDetector empty{LoadingDetector::CpuUtilsExtractor()};
    EXPECT_THROW(empty.Update(info, 0.01f, 60, 45), std::bad_function_call);
}

// A game that holds one rate for hours: only the last 1000 of a run of equal OFPS values are
// kept, so the heap in use stays flat. Allocation counts cannot show it: a trimmed queue
// allocates as often as one that grows.
TEST(LoadingDetectorMemory, ALongRunAtOneOfpsKeepsTheHeapFlat) {
    LoadingDetector detector{&LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm};
    const auto run = [&detector](int ticks) {
        for (int tick = 0; tick < ticks; ++tick) {
            detector.Update(SYS_INFO{}, 0.01f, 60, 60);
            detector.PostUpdate(60);
        }
        return static_cast<long long>(mallinfo2().uordblks);
    };
    if (mallinfo2().uordblks == 0) GTEST_SKIP() << "no heap figures (a sanitizer's allocator)";
    const long long settled = run(2000);
    EXPECT_LT(run(100000) - settled, 16 * 1024);  // 400 kB if every value were kept
}

TEST_F(LoadingDetectorTest, FreshDetectorAnswersByGlobalMinimumAndIgnoresCpuOfTen) {
    EXPECT_TRUE(Tick(5000, 60, 45));
    EXPECT_EQ(logs.Messages().size(), 3u);
    EXPECT_EQ(Debug("currentCpuUtil = 5000.000000"), 1u);
    EXPECT_EQ(Debug("\t minCpuUtil = -1"), 1u);
    EXPECT_EQ(Debug("\t CpuUtil is lower than Global Min"), 1u);
    EXPECT_TRUE(Tick(10, 60, 60));  // a tick at the EFPS would clear the answer if analysed
    EXPECT_FALSE(Tick(11, 60, 60));
}

TEST_F(LoadingDetectorTest, RunLengthRuleCountsOnlyTheCurrentRunOfOneOfps) {
    detector.PostUpdate(59);
    // 1000 / |58 - 60| = 500 values must be held before the tick's own value is appended.
    EXPECT_FALSE(Tick(kBusy, 60, 58, 300));
    EXPECT_FALSE(Tick(kBusy, 60, 57));
    EXPECT_EQ(TicksUntilVeryLight(kBusy, 58, 1000), 501);
    EXPECT_EQ(Debug("\t Queue max size (= 500 ) is reached."), 1u);
    detector.PostUpdate(61);  // a distance of 1 needs the whole run of 1000
    EXPECT_EQ(TicksUntilVeryLight(kBusy, 60, 1100, 61), 1001);
    detector.PostUpdate(30);  // beyond a distance of 1000 any run answers
    EXPECT_EQ(TicksUntilVeryLight(kBusy, 60, 10, 2060), 2);
    EXPECT_EQ(Debug("\t Queue max size (= 0 ) is reached."), 1u);
}

TEST_F(LoadingDetectorTest, LocalMinimumOfTheOldestThreeHundredNeedsFourTicks) {
    // 351 values: the first falls out of the history but stays the global minimum; the first
    // evaluation then drops the newest 50 for good, leaving the 300th value, 480, the lowest.
    for (auto run : {std::pair<int, int>{300, 1}, {500, 299}, {480, 1}, {400, 50}}) {
        ASSERT_FALSE(Tick(run.first, 60, 60, run.second));
    }
    EXPECT_EQ(TicksUntilVeryLight(450, 45, 10), 4);
    EXPECT_EQ(Debug("\t localMinCpuUtil = 480"), 4u);
    EXPECT_EQ(Debug("\t ++counter = 4"), 1u);
    EXPECT_EQ(Debug("\t CpuUtil is lower than Load Min & counts enough."), 1u);
    // Learning refills the history, whose newest are dropped again, and keeps the count.
    EXPECT_TRUE(!Tick(400, 60, 60, 10) && Tick(450, 60, 45));
    // Above the local minimum with a positive quota restarts the count; equal, or above without
    // a positive quota, leaves it.
    EXPECT_FALSE(Tick(490, 60, 45));
    EXPECT_FALSE(Tick(450, 60, 45, 3));
    EXPECT_FALSE(Tick(480, 60, 45) || Tick(490, 60, 45, 1, 1.0f));
    EXPECT_TRUE(Tick(450, 60, 45));
    EXPECT_EQ(Debug("\t reset counter"), 1u);
}

TEST_F(LoadingDetectorTest, PostUpdateForgetsOnlyWhenTheEfpsChanged) {
    Tick(500, 60, 60, 5);
    EXPECT_FALSE(Tick(500, 60, 45));  // the learned minimum itself is not below it
    detector.Update(SYS_INFO{0, 0, {}, {450, 0, 0, 0}, 0}, 0.01f, 60, 45);
    detector.PostUpdate(60);
    EXPECT_TRUE(detector.IsLoadingVeryLight());
    detector.PostUpdate(45);
    EXPECT_FALSE(detector.IsLoadingVeryLight());
    logs.Clear();
    EXPECT_TRUE(Tick(3000, 45, 40));
    EXPECT_EQ(Debug("\t minCpuUtil = 2147483647"), 1u);
    // The history of 500s is gone, and a tick at the EFPS that fell behind teaches nothing: the
    // run-length rule answers instead of a local minimum.
    EXPECT_FALSE(Tick(3000, 45, 45, 1, 1.0f) || Tick(kBusy, 45, 40));
    EXPECT_EQ(Debug("\t localMinCpuUtil"), 0u);
}

}  // namespace
