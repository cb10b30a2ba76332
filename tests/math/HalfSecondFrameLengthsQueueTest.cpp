#include <gtest/gtest.h>

#include <cmath>

#include "talvex/math/HalfSecondFrameLengthsQueue.h"

namespace {

using Math::HalfSecondFrameLengthsQueue;

TEST(HalfSecondFrameLengthsQueue, SpanEndsAtHalfASecond) {
    EXPECT_EQ(HalfSecondFrameLengthsQueue::GetDumpedFileHeader(),
              "egl_quota_nFrames,egl_quota_frameSum");
    EXPECT_EQ(HalfSecondFrameLengthsQueue::GetDumpedFileEmptyContent(), "nan,nan");
    HalfSecondFrameLengthsQueue queue;
    EXPECT_TRUE(queue.IsReady());
    for (int frame = 1; frame <= 29; ++frame) queue.Update(1.0f / 60, 60.0f);
    queue.Update(-0.02f, 60.0f);
    queue.Update(0.02f, 0.0f);
    EXPECT_EQ(queue.GetDumpedFileInfo(), "29,0.483334");
    EXPECT_EQ(queue.GetEncryptedInfo(), 0);
    EXPECT_TRUE(queue.IsLastFrameLong(-30.0f));
    queue.Update(1.0f / 60, 60.0f);  // brings the float sum to 0.5000002
    EXPECT_EQ(queue.GetDumpedFileInfo(), "0,0");
    EXPECT_EQ(queue.GetQuota(), 0.0f);
    EXPECT_FALSE(queue.IsLastFrameLong(-30.0f));  // no target after the reset
    queue.Update(0.25f, 4.0f);
    queue.Update(0.25f, 4.0f);  // exactly half a second ends the span too
    EXPECT_EQ(queue.GetDumpedFileInfo(), "0,0");
}

TEST(HalfSecondFrameLengthsQueue, LongFrameRestartsTheSpanAndCountsInIt) {
    struct CountingQueue : HalfSecondFrameLengthsQueue {
        void Reset() override {  // spans restart through the virtual Reset
            ++resets;
            HalfSecondFrameLengthsQueue::Reset();
        }
        int resets = 0;
    } queue;
    for (int frame = 0; frame < 10; ++frame) queue.Update(1.0f / 60, 60.0f);
    queue.Update(0.04f, 60.0f);
    EXPECT_EQ(queue.resets, 1);
    EXPECT_EQ(queue.GetDumpedFileInfo(), "1,0.04");
    EXPECT_NEAR(queue.GetQuota(), 1.0f / 60 - 0.04f, 1e-7);
    EXPECT_EQ(queue.GetDebugInfo(),
              "In HalfSecondFrameLengthsQueue:\n"
              "\t sumOfFrameLengths_s = 40 (ms)\n"
              "\t numberOfFrames = 1\n"
              "\t EFPS = 60\n"
              "\t SUM_OF_EXPECTED_PERIODS = 16.6667 (ms)\n"
              "\t quota = -23.3333 (ms)\n"
              "\t lastFrameLength = 40 (ms)\n"
              "\t MAX_FRAME_LENGTHS_S = 33.3332 (ms)\n");  // 59 * (-1/60) rounded in float first
    EXPECT_TRUE(queue.IsLastFrameLong(5.0f));
    EXPECT_FALSE(queue.IsLastFrameLong(36.0f));  // 1/24
}

TEST(HalfSecondFrameLengthsQueue, ReasonableFrameFollowsTheFastestRate) {
    HalfSecondFrameLengthsQueue queue;
    const float limit_s = queue.calculateMaxReasonableFrameLength(60.0f);
    EXPECT_TRUE(queue.isLongFrame(limit_s, 60.0f));
    EXPECT_FALSE(queue.isLongFrame(std::nextafter(limit_s, 0.0f), 60.0f));
    queue.SetFastestFPS(120.0f);
    EXPECT_NEAR(queue.calculateMaxReasonableFrameLength(60.0f), 2.0 * (1.0 - 59.0 / 120), 1e-6);
    queue.Update(0.04f, 60.0f);
    queue.Update(0.04f, 60.0f);  // no longer long: the span keeps both
    EXPECT_EQ(queue.GetDumpedFileInfo(), "2,0.08");
}

}  // namespace
