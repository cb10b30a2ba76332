#include <gtest/gtest.h>

#include <limits>

#include "LogCapture.h"
#include "talvex/basics/Log.h"
#include "talvex/math/OneSecondFrameLengthsQueue.h"

namespace {

using Math::OneSecondFrameLengthsQueue;

void feed(OneSecondFrameLengthsQueue& queue, int count, float frameLength_s, float fps) {
    for (int i = 0; i < count; ++i) queue.Update(frameLength_s, fps);
}

TEST(OneSecondFrameLengthsQueue, NewQueueIsReadyWithNothingToSay) {
    OneSecondFrameLengthsQueue queue;
    EXPECT_TRUE(queue.IsReady());
    EXPECT_EQ(queue.GetQuota(), 0.0f);
    EXPECT_EQ(queue.GetEncryptedInfo(), 0);
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
}

TEST(OneSecondFrameLengthsQueue, WindowIsOneSecondAtTheTarget) {
    OneSecondFrameLengthsQueue queue;
    queue.Update(0.1f, 60.0f);
    EXPECT_FALSE(queue.IsReady());
    feed(queue, 58, 1.0f / 60, 60.0f);
    EXPECT_FALSE(queue.IsReady());
    queue.Update(1.0f / 60, 60.0f);
    EXPECT_TRUE(queue.IsReady());
    EXPECT_NEAR(queue.GetQuota(), 1.0f / 60 - 0.1f, 1e-6);
    EXPECT_EQ(queue.GetEncryptedInfo(), 18300);

    queue.Update(1.0f / 60, 60.0f);  // the 61st drops the long first frame
    EXPECT_NEAR(queue.GetQuota(), 0.0f, 1e-6);
    EXPECT_EQ(queue.GetEncryptedInfo(), 0);

    queue.Update(1.0f / 30, 30.0f);  // a lower target shrinks the window at once
    EXPECT_TRUE(queue.IsReady());
    EXPECT_NEAR(queue.GetQuota(), 1.0f - (29.0f / 60 + 1.0f / 30), 1e-5);
    EXPECT_NE(queue.GetDebugInfo().find("\t SUM_OF_EXPECTED_PERIODS = 1\n"), std::string::npos);

    queue.Update(1.0f / 30, 60.0f);  // a higher one lets it grow back
    EXPECT_FALSE(queue.IsReady());
    EXPECT_NE(queue.GetDebugInfo().find("\t SUM_OF_EXPECTED_PERIODS = 0.516667\n"),
              std::string::npos);
}

TEST(OneSecondFrameLengthsQueue, IgnoresInvalidFramesAndResets) {
    OneSecondFrameLengthsQueue queue;
    feed(queue, 3, 0.02f, 60.0f);
    const std::string before = queue.GetDebugInfo();
    queue.Update(0.0f, 60.0f);
    queue.Update(0.02f, -1.0f);
    queue.Update(std::numeric_limits<float>::quiet_NaN(), 60.0f);
    EXPECT_EQ(queue.GetDebugInfo(), before);
    EXPECT_TRUE(queue.IsLastFrameLong(5.0f));

    queue.Reset();
    EXPECT_TRUE(queue.IsReady());  // no target again
    EXPECT_EQ(queue.GetQuota(), 0.0f);
    EXPECT_FALSE(queue.IsLastFrameLong(5.0f));
    EXPECT_EQ(queue.GetDebugInfo(),
              "In OneSecondFrameLengthsQueue:\n"
              "\t queueOfFrameLengths_s = \t[\n\t  \n\t]\n\n"
              "\t sumOfCurrentFrameLength = 0\n"
              "\t EFPS = -1\n"
              "\t SUM_OF_EXPECTED_PERIODS = -0\n"
              "\t quota = 0\n");
}

TEST(OneSecondFrameLengthsQueue, ForgivesWholePeriodsWithItsOwnMessages) {
    TalvexTest::LogCapture logs;
    Basics::Log::SetLogLevel(3);
    OneSecondFrameLengthsQueue queue;
    feed(queue, 30, 0.04f, 30.0f);
    Math::QuotaInfo info;
    info.quota_s = -0.2f;
    info.remainder_s = -0.0f;
    queue.fixQueueElementsAccordingToQuota(info);
    queue.Update(1.0f / 30, 30.0f);
    Basics::Log::SetLogLevel(2);
    EXPECT_NEAR(queue.GetQuota(), 0.0f, 1e-6);

    const auto messages = logs.Find(ANDROID_LOG_DEBUG);
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].text,
              "[OneSecondFrameLengthsQueue][fixQueueElementsAccordingToQuota] Very Low quota = "
              "-0.200000");
    EXPECT_EQ(messages[1].text,
              "[OneSecondFrameLengthsQueue][fixQueueElementsAccordingToQuota] original "
              "queue.back() = 0.040000");
    EXPECT_EQ(messages[2].text,
              "[OneSecondFrameLengthsQueue][fixQueueElementsAccordingToQuota] fixed "
              "queue.back() = 0.033333");
}

}  // namespace
