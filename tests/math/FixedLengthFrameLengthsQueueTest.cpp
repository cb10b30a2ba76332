#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/basics/Log.h"
#include "talvex/math/FixedLengthFrameLengthsQueue.h"
#include "talvex/math/FrameLengthRing.h"
#include "talvex/math/OneSecondFrameLengthsQueue.h"

namespace {

using Math::FixedLengthFrameLengthsQueue;
using Math::OneSecondFrameLengthsQueue;

template <typename Queue>
void feed(Queue& queue, int count, float frameLength_s, float fps) {
    for (int i = 0; i < count; ++i) queue.Update(frameLength_s, fps);
}

TEST(FixedLengthFrameLengthsQueue, SlidesOverTheLastFramesAtTheTruncatedRate) {
    FixedLengthFrameLengthsQueue queue(10);
    EXPECT_TRUE(std::isnan(queue.CalculateAveragedFrameLength_s()));
    queue.Update(0.016f, 60.0f);
    EXPECT_EQ(queue.GetEncryptedInfo(), 101);
    EXPECT_FALSE(queue.IsReady());
    const std::string before = queue.GetDebugInfo();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (float length_s : {0.0f, -1.0f, nan}) queue.Update(length_s, 60.0f);
    for (float fps : {0.0f, -60.0f, nan}) queue.Update(0.016f, fps);
    EXPECT_EQ(queue.GetDebugInfo(), before);
    EXPECT_EQ(queue.GetEncryptedInfo(), 101);

    feed(queue, 9, 0.02f, 60.0f);
    EXPECT_TRUE(queue.IsReady());
    queue.Update(0.02f, 59.9f);  // the eleventh drops the first; the period is 1/59
    EXPECT_EQ(queue.GetLength(), 10u);
    EXPECT_FLOAT_EQ(queue.CalculateAveragedFrameLength_s(), 0.02f);
    EXPECT_NEAR(queue.GetQuota(), 10.0f / 59 - 0.2f, 1e-6);
    EXPECT_TRUE(queue.IsLastFrameLong(8.5f));   // 0.02 > 1/50.5
    EXPECT_FALSE(queue.IsLastFrameLong(9.5f));  // 0.02 < 1/49.5, 1/50.5 at an untruncated 60

    queue.Reset();
    EXPECT_EQ(queue.GetQuota(), 0.0f);
    EXPECT_EQ(queue.GetEncryptedInfo(), 0);
    EXPECT_FALSE(queue.IsLastFrameLong(-100.0f));
    EXPECT_EQ(queue.GetLength(), 0u);
    EXPECT_NE(queue.GetDebugInfo().find("\t EFPS = -1\n"), std::string::npos);
    queue.Update(0.0183f, 0.5f);  // accepted, but a rate of 0 has no period
    EXPECT_EQ(queue.GetLength(), 1u);
    EXPECT_FALSE(queue.IsLastFrameLong(-100.0f));
    FixedLengthFrameLengthsQueue none(0);  // keeps nothing: there is no newest frame to read
    none.Update(0.05f, 60.0f);
    EXPECT_FALSE(none.IsLastFrameLong(5.0f));
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
    EXPECT_EQ(OneSecondFrameLengthsQueue().GetDebugInfo(),
              "In OneSecondFrameLengthsQueue:\n"
              "\t queueOfFrameLengths_s = \t[\n\t  \n\t]\n\n"
              "\t sumOfCurrentFrameLength = 0\n"
              "\t EFPS = -1\n"
              "\t SUM_OF_EXPECTED_PERIODS = -0\n"
              "\t quota = 0\n");
}

// Forgiving whole periods of debt, for both queues that keep frames, with their own messages.
TEST(FrameLengthsQueues, ForgiveWholePeriodsOnlyBelowMinusOnePeriod) {
    TalvexHarness::LogSink logs;
    TalvexHarness::LogSwitchesScope debug(3);
    FixedLengthFrameLengthsQueue queue(10);
    feed(queue, 9, 0.02f, 60.0f);
    queue.Update(0.021f, 60.0f);
    const float quota = queue.GetQuota();
    const std::string before = queue.GetDebugInfo();
    queue.fixQueueElementsAccordingToQuota({-0.01f, -0.01f, 0});  // not below -1/60
    EXPECT_EQ(queue.GetDebugInfo(), before);
    queue.fixQueueElementsAccordingToQuota({-0.04f, -0.006667f, 0});
    EXPECT_EQ(queue.GetQuota(), quota);  // recomputed by the next Update only
    EXPECT_NEAR(queue.CalculateAveragedFrameLength_s(), (9.0f / 60 + 0.023333f) / 10, 1e-7);
    queue.Update(1.0f / 60, 60.0f);  // drops one whole period: the debt stays the remainder
    EXPECT_NEAR(queue.GetQuota(), -0.006667f, 1e-6);

    OneSecondFrameLengthsQueue oneSecond;
    feed(oneSecond, 30, 0.04f, 30.0f);
    oneSecond.fixQueueElementsAccordingToQuota({-0.2f, -0.0f, 0});
    oneSecond.Update(1.0f / 30, 30.0f);
    EXPECT_NEAR(oneSecond.GetQuota(), 0.0f, 1e-6);
    FixedLengthFrameLengthsQueue single(10);
    single.Update(0.05f, 60.0f);
    single.fixQueueElementsAccordingToQuota({-0.0333f, -0.0f, 0});
    EXPECT_EQ(single.GetLength(), 1u);
    EXPECT_FLOAT_EQ(single.CalculateAveragedFrameLength_s(), 1.0f / 60);

    const std::vector<std::string> texts = logs.Texts(ANDROID_LOG_DEBUG);
    const std::string fixed = "[FixedLengthFrameLengthsQueue][fixQueueElementsAccordingToQuota] ";
    const std::string one = "[OneSecondFrameLengthsQueue][fixQueueElementsAccordingToQuota] ";
    EXPECT_EQ(texts,
              (std::vector<std::string>{
                  fixed + "Very Low quota = -0.040000", fixed + "original queue.back() = 0.021000",
                  "[FixedLengthFrameLengthsQueue[fixQueueElementsAccordingToQuota] fixed "
                  "queue.back() = 0.023334",
                  one + "Very Low quota = -0.200000", one + "original queue.back() = 0.040000",
                  one + "fixed queue.back() = 0.033333", fixed + "Very Low quota = -0.033300",
                  fixed + "original queue.back() = 0.050000",
                  "[FixedLengthFrameLengthsQueue[fixQueueElementsAccordingToQuota] fixed "
                  "queue.back() = 0.016667"}));
}

TEST(OneSecondFrameLengthsQueue, WindowFollowsTheTarget) {
    OneSecondFrameLengthsQueue queue;
    queue.Update(0.0f, 60.0f);  // ignored: no target yet
    EXPECT_TRUE(queue.IsReady());
    queue.Update(0.1f, 60.0f);
    feed(queue, 58, 1.0f / 60, 60.0f);
    EXPECT_FALSE(queue.IsReady());
    queue.Update(1.0f / 60, 60.0f);
    EXPECT_TRUE(queue.IsReady());
    EXPECT_EQ(queue.GetEncryptedInfo(), 18300);
    queue.Update(1.0f / 60, 60.0f);  // the 61st drops the long first frame
    EXPECT_NEAR(queue.GetQuota(), 0.0f, 1e-6);
    queue.Update(1.0f / 30, 30.0f);  // a lower target shrinks the window at once
    EXPECT_NEAR(queue.GetQuota(), 1.0f - (29.0f / 60 + 1.0f / 30), 1e-5);
    queue.Update(1.0f / 30, 60.0f);  // a higher one lets it grow back
    EXPECT_FALSE(queue.IsReady());
    for (int i = 1; i <= 400; ++i) queue.Update(static_cast<float>(i) * 1e-5f, 300.0f);
    EXPECT_NEAR(queue.GetQuota(), 1.0f - 0.7515f, 2e-6);  // frames 101 to 400, past its buffer
    queue.Reset();
    EXPECT_TRUE(queue.IsReady());
}

// Growing copies the frames from wherever the oldest sits, the oldest included; dropping the
// oldest wraps round the buffer.
TEST(FrameLengthRing, GrowingAndWrappingKeepEveryFrameInOrder) {
    Math::FrameLengthRing ring(4);
    for (float frame : {1.0f, 2.0f, 3.0f, 4.0f}) ring.push_back(frame);
    ring.pop_front();
    ring.pop_front();
    for (float frame : {5.0f, 6.0f, 7.0f}) ring.push_back(frame);  // wraps, then grows
    EXPECT_EQ(std::vector<float>(ring.begin(), ring.end()),
              (std::vector<float>{3.0f, 4.0f, 5.0f, 6.0f, 7.0f}));
    EXPECT_EQ(ring.capacity(), 8u);
    for (float frame = 8.0f; frame <= 24.0f; ++frame) {  // the oldest wraps round the buffer
        ring.pop_front();
        ring.push_back(frame);
        ASSERT_EQ(ring.front(), frame - 4.0f);
    }
}

}  // namespace
