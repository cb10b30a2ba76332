#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>

#include "AllocationCounter.h"
#include "LogCapture.h"
#include "talvex/basics/Log.h"
#include "talvex/math/FixedLengthFrameLengthsQueue.h"

namespace {

using Math::FixedLengthFrameLengthsQueue;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

void feed(FixedLengthFrameLengthsQueue& queue, int count, float frameLength_s, float fps) {
    for (int i = 0; i < count; ++i) queue.Update(frameLength_s, fps);
}

TEST(FixedLengthFrameLengthsQueue, FirstFrameGivesItsQuota) {
    FixedLengthFrameLengthsQueue queue(10);
    EXPECT_FALSE(queue.IsReady());
    queue.Update(0.016f, 60.0f);
    EXPECT_EQ(queue.GetLength(), 1u);
    EXPECT_NEAR(queue.GetQuota(), 0.000667f, 1e-6);
    EXPECT_EQ(queue.GetEncryptedInfo(), 101);
    EXPECT_FALSE(queue.IsReady());
    EXPECT_FLOAT_EQ(queue.CalculateAveragedFrameLength_s(), 0.016f);
}

TEST(FixedLengthFrameLengthsQueue, IgnoresFramesThatAreNotPositive) {
    FixedLengthFrameLengthsQueue queue(10);
    queue.Update(0.018f, 60.0f);
    const std::string before = queue.GetDebugInfo();
    const float quota = queue.GetQuota();
    const int encrypted = queue.GetEncryptedInfo();
    struct Row {
        float frameLength_s, fps;
    };
    for (const Row& row : {Row{0.0f, 60.0f}, Row{-1.0f, 60.0f}, Row{kNaN, 60.0f}, Row{0.016f, 0.0f},
                           Row{0.016f, -60.0f}, Row{0.016f, kNaN}}) {
        SCOPED_TRACE(::testing::Message() << row.frameLength_s << " at " << row.fps);
        queue.Update(row.frameLength_s, row.fps);
        EXPECT_EQ(queue.GetLength(), 1u);
        EXPECT_EQ(queue.GetQuota(), quota);
        EXPECT_EQ(queue.GetEncryptedInfo(), encrypted);
        EXPECT_EQ(queue.GetDebugInfo(), before);
    }
}

TEST(FixedLengthFrameLengthsQueue, TenFramesGiveTheDocumentedPackedQuotas) {
    struct Row {
        float frameLength_s;
        float quota_s;
        int encrypted;
    };
    for (const Row& row : {Row{0.018f, -0.013333f, 11313}, Row{0.031f, -0.143333f, 19910},
                           Row{0.010f, 0.066667f, 6700}}) {
        SCOPED_TRACE(row.frameLength_s);
        FixedLengthFrameLengthsQueue queue(10);
        feed(queue, 10, row.frameLength_s, 60.0f);
        EXPECT_TRUE(queue.IsReady());
        EXPECT_NEAR(queue.GetQuota(), row.quota_s, 1e-6);
        EXPECT_EQ(queue.GetEncryptedInfo(), row.encrypted);
    }
}

TEST(FixedLengthFrameLengthsQueue, SlidesOnceFull) {
    FixedLengthFrameLengthsQueue queue(10);
    queue.Update(0.1f, 60.0f);
    feed(queue, 9, 0.02f, 60.0f);
    EXPECT_TRUE(queue.IsReady());
    EXPECT_NEAR(queue.CalculateAveragedFrameLength_s(), 0.028f, 1e-6);
    queue.Update(0.02f, 60.0f);  // the eleventh drops the long first frame
    EXPECT_EQ(queue.GetLength(), 10u);
    EXPECT_TRUE(queue.IsReady());
    EXPECT_FLOAT_EQ(queue.CalculateAveragedFrameLength_s(), 0.02f);
    EXPECT_NEAR(queue.GetQuota(), 10.0f / 60 - 0.2f, 1e-6);
}

TEST(FixedLengthFrameLengthsQueue, TruncatesTheRate) {
    FixedLengthFrameLengthsQueue queue(10);
    queue.Update(0.016f, 59.9f);
    EXPECT_NEAR(queue.GetQuota(), 1.0f / 59 - 0.016f, 1e-7);
    EXPECT_NE(queue.GetDebugInfo().find("\t EFPS = 59\n"), std::string::npos);
}

TEST(FixedLengthFrameLengthsQueue, AverageOfNothingIsNaN) {
    FixedLengthFrameLengthsQueue queue(10);
    EXPECT_TRUE(std::isnan(queue.CalculateAveragedFrameLength_s()));
}

TEST(FixedLengthFrameLengthsQueue, LastFrameIsLongBeyondTheToleratedPeriod) {
    FixedLengthFrameLengthsQueue queue(10);
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
    queue.Update(0.0183f, 60.0f);
    EXPECT_TRUE(queue.IsLastFrameLong(5.0f));  // 1/55 is about 0.01818
    queue.Update(0.0181f, 60.0f);
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
    queue.Update(0.0183f, 0.5f);  // accepted, but a rate of 0 has no period
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
}

TEST(FixedLengthFrameLengthsQueue, ResetForgetsEverythingButTheCapacity) {
    FixedLengthFrameLengthsQueue queue(4);
    feed(queue, 4, 0.03f, 60.0f);
    ASSERT_TRUE(queue.IsLastFrameLong(5.0f));
    queue.Reset();
    EXPECT_EQ(queue.GetQuota(), 0.0f);
    EXPECT_EQ(queue.GetEncryptedInfo(), 0);
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
    EXPECT_EQ(queue.GetLength(), 0u);
    EXPECT_FALSE(queue.IsReady());
    feed(queue, 4, 0.03f, 60.0f);
    EXPECT_TRUE(queue.IsReady());
    EXPECT_EQ(queue.GetLength(), 4u);
}

class FixQueue : public ::testing::Test {
  protected:
    void TearDown() override { Basics::Log::SetLogLevel(2); }
    TalvexTest::LogCapture logs;
};

TEST_F(FixQueue, ForgivesWholePeriodsOfDebt) {
    Basics::Log::SetLogLevel(3);
    FixedLengthFrameLengthsQueue queue(10);
    feed(queue, 9, 0.02f, 60.0f);
    queue.Update(0.021f, 60.0f);
    const float quota = queue.GetQuota();

    Math::QuotaInfo info;
    info.quota_s = -0.04f;
    info.remainder_s = -0.006667f;
    queue.fixQueueElementsAccordingToQuota(info);

    EXPECT_EQ(queue.GetLength(), 10u);
    EXPECT_EQ(queue.GetQuota(), quota);  // recomputed by the next Update only
    const float period = 1.0f / 60;
    EXPECT_NEAR(queue.CalculateAveragedFrameLength_s(), (9 * period + 0.023333f) / 10, 1e-7);
    EXPECT_TRUE(queue.IsLastFrameLong(0.0f));    // the newest is period + 0.006667
    EXPECT_FALSE(queue.IsLastFrameLong(18.0f));  // but shorter than 1/42
    queue.Update(period, 60.0f);  // drops one whole period: the debt stays the remainder
    EXPECT_NEAR(queue.GetQuota(), -0.006667f, 1e-6);

    const auto messages = logs.Find(ANDROID_LOG_DEBUG);
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].text,
              "[FixedLengthFrameLengthsQueue][fixQueueElementsAccordingToQuota] Very Low quota "
              "= -0.040000");
    EXPECT_EQ(messages[1].text,
              "[FixedLengthFrameLengthsQueue][fixQueueElementsAccordingToQuota] original "
              "queue.back() = 0.021000");
    EXPECT_EQ(messages[2].text,
              "[FixedLengthFrameLengthsQueue[fixQueueElementsAccordingToQuota] fixed "
              "queue.back() = 0.023334");
}

TEST_F(FixQueue, LeavesADebtBelowOnePeriod) {
    Basics::Log::SetLogLevel(3);
    FixedLengthFrameLengthsQueue queue(10);
    feed(queue, 10, 0.02f, 60.0f);
    const std::string before = queue.GetDebugInfo();
    Math::QuotaInfo info;
    info.quota_s = -0.01f;
    info.remainder_s = -0.01f;
    queue.fixQueueElementsAccordingToQuota(info);
    EXPECT_EQ(queue.GetDebugInfo(), before);
    EXPECT_EQ(logs.Messages().size(), 0u);
}

TEST_F(FixQueue, KeepsOneFrameOfASingleFrameQueue) {
    FixedLengthFrameLengthsQueue queue(10);
    queue.Update(0.05f, 60.0f);
    Math::QuotaInfo info;
    info.quota_s = -0.0333f;
    info.remainder_s = -0.0f;
    queue.fixQueueElementsAccordingToQuota(info);
    EXPECT_EQ(queue.GetLength(), 1u);
    EXPECT_FLOAT_EQ(queue.CalculateAveragedFrameLength_s(), 1.0f / 60);
    EXPECT_EQ(logs.Messages().size(), 0u);  // debug messages stay gated at level 2
}

TEST(FixedLengthFrameLengthsQueue, DebugInfoShowsTheWindow) {
    FixedLengthFrameLengthsQueue queue(10);
    queue.Update(0.015f, 60.0f);
    queue.Update(0.0175f, 60.0f);
    EXPECT_EQ(queue.GetDebugInfo(),
              "In FixedLengthFrameLengthsQueue:\n"
              "\t queueOfFrameLengths_s = \t[\n\t  0.015, 0.0175\n\t]\n\n"
              "\t sumOfCurrentFrameLength = 0.0325\n"
              "\t EFPS = 60\n"
              "\t SUM_OF_EXPECTED_PERIODS = 0.0333333\n"
              "\t quota = 0.000833336\n");
    queue.Reset();
    EXPECT_EQ(queue.GetDebugInfo(),
              "In FixedLengthFrameLengthsQueue:\n"
              "\t queueOfFrameLengths_s = \t[\n\t  \n\t]\n\n"
              "\t sumOfCurrentFrameLength = 0\n"
              "\t EFPS = -1\n"
              "\t SUM_OF_EXPECTED_PERIODS = -0\n"
              "\t quota = 0\n");
}

TEST(FixedLengthFrameLengthsQueue, CapacityZeroKeepsNothingAndDoesNotCrash) {
    FixedLengthFrameLengthsQueue queue(0);
    EXPECT_TRUE(queue.IsReady());
    queue.Update(0.05f, 60.0f);
    EXPECT_EQ(queue.GetLength(), 0u);
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
    EXPECT_EQ(queue.GetQuota(), 0.0f);
    Math::QuotaInfo info;
    info.quota_s = -1.0f;
    queue.fixQueueElementsAccordingToQuota(info);
    queue.Update(0.05f, 60.0f);
    EXPECT_EQ(queue.GetLength(), 0u);
}

TEST(FixedLengthFrameLengthsQueue, FeedingAFrameAllocatesNothing) {
    FixedLengthFrameLengthsQueue queue(10);
    TalvexTest::AllocationCounter allocations;
    for (int frame = 0; frame < 1000; ++frame) {
        queue.Update(frame % 7 == 0 ? 0.03f : 0.016f, 60.0f);
        (void)queue.GetQuota();
        (void)queue.IsLastFrameLong(5.0f);
        (void)queue.CalculateAveragedFrameLength_s();
        if (frame % 100 == 0) queue.Reset();
    }
    EXPECT_EQ(allocations.Count(), 0u);
}

}  // namespace
