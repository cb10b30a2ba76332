#include <gtest/gtest.h>

#include <chrono>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/basics/Clock.h"
#include "talvex/basics/Log.h"

namespace {

class LogGate : public ::testing::Test {
  protected:
    TalvexHarness::LogSwitchesScope switches;
    TalvexHarness::LogSink logs;
};

TEST_F(LogGate, InitialLevelWritesInfoButNotDebug) {
    EXPECT_EQ(Basics::Log::LogLevel(), 2);
    EXPECT_FALSE(Basics::Log::IsDebug());
    TALVEX_LOGD("[Test][Gate] debug %d", 1);
    TALVEX_LOGI("[Test][Gate] info %d", 2);
    TALVEX_LOGW("[Test][Gate] warn");
    TALVEX_LOGE("[Test][Gate] error");
    ASSERT_EQ(logs.Messages().size(), 3u);
    EXPECT_EQ(logs.Messages()[0].priority, ANDROID_LOG_INFO);
    EXPECT_EQ(logs.Messages()[0].tag, "Talvex");
    EXPECT_EQ(logs.Messages()[0].text, "[Test][Gate] info 2");
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), 1u);
}

TEST_F(LogGate, EachLevelOpensItsPriorities) {
    struct Row {
        int level;
        size_t errors, warnings, infos, debugs;
    };
    for (const Row& row : {Row{-1, 0, 0, 0, 0}, Row{0, 1, 0, 0, 0}, Row{1, 1, 1, 0, 0},
                           Row{2, 1, 1, 1, 0}, Row{3, 1, 1, 1, 1}, Row{7, 1, 1, 1, 1}}) {
        logs.Clear();
        Basics::Log::SetLogLevel(row.level);
        TALVEX_LOGE("e");
        TALVEX_LOGW("w");
        TALVEX_LOGI("i");
        TALVEX_LOGD("d");
        SCOPED_TRACE(row.level);
        EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), row.errors);
        EXPECT_EQ(logs.Count(ANDROID_LOG_WARN), row.warnings);
        EXPECT_EQ(logs.Count(ANDROID_LOG_INFO), row.infos);
        EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG), row.debugs);
    }
}

TEST_F(LogGate, GatedOffMessageDoesNotBuildItsArguments) {
    int built = 0;
    auto expensive = [&built] {
        ++built;
        return 1;
    };
    TALVEX_LOGD("%d", expensive());
    EXPECT_EQ(built, 0);
    Basics::Log::SetLogLevel(3);
    TALVEX_LOGD("%d", expensive());
    EXPECT_EQ(built, 1);
    Basics::Log::SetLogLevel(-1);
    TALVEX_LOGE("%d", expensive());
    EXPECT_EQ(built, 1);
}

TEST_F(LogGate, DebugSwitchDoesNotGateOrdinaryMessages) {
    Basics::Log::SetDebug(true);
    EXPECT_TRUE(Basics::Log::IsDebug());
    TALVEX_LOGD("d");
    Basics::Log::SetDebug(false);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG), 0u);
}

TEST(Timestamp, DefaultIsRecognised) {
    EXPECT_TRUE(Basics::IsDefaultTimestamp(Basics::TimePoint()));
    EXPECT_FALSE(Basics::IsDefaultTimestamp(Basics::Now()));
    EXPECT_FALSE(Basics::IsDefaultTimestamp(
        std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now())));
}

}  // namespace
