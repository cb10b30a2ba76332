#include <gtest/gtest.h>

#include <initializer_list>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/basics/Log.h"
#include "talvex/math/EFPS_Counter.h"
#include "talvex/math/FramePredicates.h"

namespace {

TEST(EFPS_Counter, MostFrequentTruncatedRateWinsAndTiesGoLow) {
    const auto mostOccurred = [](std::initializer_list<float> readings) {
        Math::EFPS_Counter counter;
        for (float reading : readings) counter.Update(reading);
        return counter.GetMostOccurredEFPS();
    };
    EXPECT_EQ(mostOccurred({60, 60, 59.7f, 59.2f}), 59.0f);
    EXPECT_EQ(mostOccurred({30, 60, 60}), 60.0f);
    EXPECT_EQ(mostOccurred({-0.5f, 0.9f, 1}), 0.0f);  // -0.5 counts as 0
}

TEST(EFPS_Counter, EmptyCounterFallsBackTo60WithTwoWarnings) {
    TalvexHarness::LogSink logs;
    Math::EFPS_Counter counter;
    counter.Update(30);
    EXPECT_EQ(counter.GetMostOccurredEFPS(), 30.0f);
    counter.Reset();
    EXPECT_EQ(counter.GetMostOccurredEFPS(), 60.0f);
    const auto warnings = logs.Find(ANDROID_LOG_WARN);
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0].text, "[EFPS_Counter] Failed to get a reasonable EFPS...");
    EXPECT_EQ(warnings[1].text, "[EFPS_Counter] map_from_EFPS_to_occurrences = \t[\n\t  \n\t]\n");

    {
        TalvexHarness::LogSwitchesScope errorsOnly(0);
        EXPECT_EQ(Math::EFPS_Counter().GetMostOccurredEFPS(), 60.0f);
    }
    EXPECT_EQ(logs.Messages().size(), 2u);
}

TEST(FramePredicates, LongFrameAndHeavyLoading) {
    EXPECT_TRUE(Math::IsLongFrame(0.0183f, 60, 5));  // 1/55 is about 0.01818
    EXPECT_FALSE(Math::IsLongFrame(0.0181f, 60, 5));
    EXPECT_FALSE(Math::IsLongFrame(1000.0f, 60, 60));  // infinite bound
    EXPECT_TRUE(Math::IsLongFrame(0.0001f, 60, 61));   // negative bound
    EXPECT_TRUE(Math::IsLoadingHeavy(0.02f, 60.0f, 1.0f));
    EXPECT_FALSE(Math::IsLoadingHeavy(0.02f, 60.0f, 1.5f));
    EXPECT_FALSE(Math::IsLoadingHeavy(0.5f, 2.0f, 1.0f));  // equal is not above
}

}  // namespace
