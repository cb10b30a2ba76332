#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "AllocationCounter.h"
#include "talvex/math/ClearableFrameLengthsQueue.h"

namespace {

using Math::ClearableFrameLengthsQueue;

void feed(ClearableFrameLengthsQueue& queue, int count, float frameLength_s, float fps) {
    for (int i = 0; i < count; ++i) queue.Update(frameLength_s, fps);
}

TEST(ClearableFrameLengthsQueue, DumpRowsShowConstructionResetAndFirstFrame) {
    EXPECT_EQ(ClearableFrameLengthsQueue::GetDumpedFileHeader(),
              "quota_count,quota_avgFPS,quota_minAvgFPS,quota_maxFrameLength");
    EXPECT_EQ(ClearableFrameLengthsQueue::GetDumpedFileEmptyContent(), "-1,nan,nan,nan");

    ClearableFrameLengthsQueue fresh;
    EXPECT_EQ(fresh.GetDumpedFileInfo(), "0,nan,inf,-1000");
    EXPECT_TRUE(fresh.IsReady());
    EXPECT_EQ(fresh.GetEncryptedInfo(), 0);

    ClearableFrameLengthsQueue first;
    first.Update(1.0f / 60, 60.0f);
    EXPECT_EQ(first.GetDumpedFileInfo(), "1,60,inf,-1000");

    fresh.Reset();
    EXPECT_EQ(fresh.GetDumpedFileInfo(), "0,0,inf,0");

    char row[8];  // too short: cut like snprintf, the full length returned
    EXPECT_EQ(first.FormatDumpedFileInfo(row, sizeof(row)), 14);
    EXPECT_EQ(std::string(row), "1,60,in");
}

TEST(ClearableFrameLengthsQueue, ClearsAfterTenFramesOnTarget) {
    ClearableFrameLengthsQueue queue;
    feed(queue, 9, 1.0f / 60, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 9u);
    queue.Update(1.0f / 60, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 0u);
    EXPECT_EQ(queue.GetQuota(), 0.0f);
    EXPECT_EQ(queue.GetDumpedFileInfo(), "0,0,inf,0");
}

TEST(ClearableFrameLengthsQueue, SteadyDropNeverClears) {
    ClearableFrameLengthsQueue queue;
    feed(queue, 3, 0.02f, 60.0f);
    EXPECT_EQ(queue.GetDumpedFileInfo(), "3,50,50,20");
    for (uint32_t frame = 4; frame <= 300; ++frame) {
        queue.Update(0.02f, 60.0f);
        ASSERT_EQ(queue.GetQuotaCounts(), frame);
    }
    EXPECT_NEAR(queue.GetQuota(), 300 * (1.0 / 60 - 0.02), 1e-4);
    EXPECT_EQ(queue.GetDumpedFileInfo(), "300,50,50,20");
    EXPECT_EQ(queue.GetEncryptedInfo(), 0);
}

TEST(ClearableFrameLengthsQueue, SlightlySlowWindowExpiresAfterHalfASecond) {
    // 57 FPS against 60: neither on target nor a drop of more than 5 FPS.
    ClearableFrameLengthsQueue queue;
    feed(queue, 29, 1.0f / 57, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 29u);
    EXPECT_NEAR(queue.GetQuota(), 29 * (1.0 / 60 - 1.0 / 57), 1e-6);
    EXPECT_EQ(queue.GetDumpedFileInfo(), "29,57,inf,-1000");
    queue.Update(1.0f / 57, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 0u);
    EXPECT_EQ(queue.GetQuota(), 0.0f);
}

TEST(ClearableFrameLengthsQueue, ExpiryCountsFromTheLastRecordedDrop) {
    ClearableFrameLengthsQueue queue;
    feed(queue, 5, 0.02f, 60.0f);  // each one a new low or as long as the longest: worst at 5
    // Recovering frames at 57 FPS keep the average between the drop and the target.
    feed(queue, 29, 1.0f / 57, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 34u);
    EXPECT_EQ(queue.GetDumpedFileInfo().substr(0, 3), "34,");
    queue.Update(1.0f / 57, 60.0f);  // 5 + 60 / 2
    EXPECT_EQ(queue.GetQuotaCounts(), 0u);
}

TEST(ClearableFrameLengthsQueue, LongerFrameDuringADropMovesTheExpiry) {
    ClearableFrameLengthsQueue queue;
    feed(queue, 5, 0.02f, 60.0f);
    feed(queue, 10, 1.0f / 57, 60.0f);
    queue.Update(0.025f, 60.0f);  // average still above 50: not a new low, but the longest
    EXPECT_EQ(queue.GetDumpedFileInfo().substr(0, 3), "16,");
    EXPECT_NE(queue.GetDumpedFileInfo().find(",50,25"), std::string::npos);
    feed(queue, 29, 1.0f / 57, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 45u);
    queue.Update(1.0f / 57, 60.0f);  // 16 + 30
    EXPECT_EQ(queue.GetQuotaCounts(), 0u);
}

TEST(ClearableFrameLengthsQueue, RejectedFramesStillLeaveTheirTraces) {
    ClearableFrameLengthsQueue queue;
    queue.Update(0.016f, 60.0f);
    queue.Update(-1.0f, 60.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 1u);
    EXPECT_EQ(queue.GetDebugInfo(),
              "In ClearableFrameLengthsQueue:\n"
              "\t EFPS = 60\n"
              "\t currentFrameLength = -1\n"
              "\t totalQuota_s = 0.000666666\n");  // 1/60 - 0.016f, in double

    queue.Update(0.0183f, 60.0f);
    EXPECT_TRUE(queue.IsLastFrameLong(5.0f));
    EXPECT_FALSE(queue.IsLastFrameLong(10.0f));  // 1/50

    queue.Update(0.016f, 0.0f);
    EXPECT_EQ(queue.GetQuotaCounts(), 2u);
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
    EXPECT_NE(queue.GetDebugInfo().find("\t EFPS = 0\n"), std::string::npos);

    queue.Update(0.016f, std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(queue.GetQuotaCounts(), 2u);
    EXPECT_NE(queue.GetDebugInfo().find("\t EFPS = 0\n"), std::string::npos);
}

TEST(ClearableFrameLengthsQueue, FastestRateBoundsAReasonableFrame) {
    ClearableFrameLengthsQueue queue;
    EXPECT_TRUE(queue.isFrameLengthReasonable(1.0f, 1.0f));
    EXPECT_FALSE(queue.isFrameLengthReasonable(1.001f, 1.0f));
    EXPECT_TRUE(queue.isFrameLengthReasonable(0.0166f, 60.0f));  // 1 - 59/60
    EXPECT_FALSE(queue.isFrameLengthReasonable(0.0167f, 60.0f));
    queue.SetFastestFPS(120.0f);
    EXPECT_TRUE(queue.isFrameLengthReasonable(0.5f, 61.0f));  // 1 - 60/120
    EXPECT_FALSE(queue.isFrameLengthReasonable(0.501f, 61.0f));
}

TEST(ClearableFrameLengthsQueue, ClearsThroughAnOverridingReset) {
    struct CountingQueue : ClearableFrameLengthsQueue {
        void Reset() override {
            ++resets;
            ClearableFrameLengthsQueue::Reset();
        }
        int resets = 0;
    } queue;
    feed(queue, 10, 1.0f / 60, 60.0f);
    EXPECT_EQ(queue.resets, 1);
}

TEST(ClearableFrameLengthsQueue, FeedingAFrameAllocatesNothing) {
    ClearableFrameLengthsQueue queue;
    char row[64];
    TalvexTest::AllocationCounter allocations;
    for (int frame = 0; frame < 1000; ++frame) {
        queue.SetFastestFPS(60.0f);
        queue.Update(frame % 5 == 0 ? 0.03f : 0.016f, 60.0f);
        (void)queue.GetQuota();
        (void)queue.GetQuotaCounts();
        queue.FormatDumpedFileInfo(row, sizeof(row));
    }
    EXPECT_EQ(allocations.Count(), 0u);
}

}  // namespace
