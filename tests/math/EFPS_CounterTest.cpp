#include <gtest/gtest.h>

#include <initializer_list>

#include "LogCapture.h"
#include "talvex/basics/Log.h"
#include "talvex/math/EFPS_Counter.h"
#include "talvex/math/FramePredicates.h"

namespace {

float mostOccurred(std::initializer_list<float> readings) {
    Math::EFPS_Counter counter;
    for (float reading : readings) counter.Update(reading);
    return counter.GetMostOccurredEFPS();
}

TEST(EFPS_Counter, MostFrequentTruncatedRateWinsAndTiesGoLow) {
    EXPECT_EQ(mostOccurred({60, 60, 59.7f, 59.2f}), 59.0f);
    EXPECT_EQ(mostOccurred({30, 60, 60}), 60.0f);
    EXPECT_EQ(mostOccurred({45.9f}), 45.0f);
    EXPECT_EQ(mostOccurred({-0.5f, 0.9f, 1}), 0.0f);  // -0.5 counts as 0
    EXPECT_EQ(mostOccurred({-30.7f, -30.1f, 60}), -30.0f);
}

TEST(EFPS_Counter, EmptyCounterFallsBackTo60WithTwoWarnings) {
    TalvexTest::LogCapture logs;
    Math::EFPS_Counter counter;
    EXPECT_EQ(counter.GetMostOccurredEFPS(), 60.0f);
    counter.Update(30);
    EXPECT_EQ(counter.GetMostOccurredEFPS(), 30.0f);
    counter.Reset();
    EXPECT_EQ(counter.GetMostOccurredEFPS(), 60.0f);

    const auto warnings = logs.Find(ANDROID_LOG_WARN);
    ASSERT_EQ(warnings.size(), 4u);
    EXPECT_EQ(warnings[0].text, "[EFPS_Counter] Failed to get a reasonable EFPS...");
    EXPECT_EQ(warnings[1].text, "[EFPS_Counter] map_from_EFPS_to_occurrences = \t[\n\t  \n\t]\n");
    EXPECT_EQ(warnings[0].tag, "Talvex");

    logs.Clear();
    Basics::Log::SetLogLevel(0);
    EXPECT_EQ(counter.GetMostOccurredEFPS(), 60.0f);
    Basics::Log::SetLogLevel(2);
    EXPECT_EQ(logs.Messages().size(), 0u);
}

TEST(FramePredicates, LongFrameIsBeyondTheToleratedPeriod) {
    struct Row {
        float frameLength_s, fps, toleranceFPS;
        bool expected;
    };
    for (const Row& row :
         {Row{0.0183f, 60, 5, true}, Row{0.0181f, 60, 5, false}, Row{0.0167f, 60, 0, true},
          Row{0.0166f, 60, 0, false}, Row{1000.0f, 60, 60, false}, Row{0.0001f, 60, 61, true}}) {
        SCOPED_TRACE(::testing::Message()
                     << row.frameLength_s << ", " << row.fps << ", " << row.toleranceFPS);
        EXPECT_EQ(Math::IsLongFrame(row.frameLength_s, row.fps, row.toleranceFPS), row.expected);
    }
}

TEST(FramePredicates, LoadingIsHeavyAboveTheThreshold) {
    EXPECT_TRUE(Math::IsLoadingHeavy(0.02f, 60.0f, 1.0f));
    EXPECT_FALSE(Math::IsLoadingHeavy(0.02f, 60.0f, 1.5f));
    EXPECT_FALSE(Math::IsLoadingHeavy(0.5f, 2.0f, 1.0f));  // equal is not above
}

}  // namespace
