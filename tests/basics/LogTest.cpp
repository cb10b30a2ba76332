#include <gtest/gtest.h>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/basics/Log.h"

namespace {

class LogGate : public ::testing::Test {
  protected:
    TalvexHarness::LogSwitchesScope switches;
    TalvexHarness::LogSink logs;
};

// The initial level 2 opens errors, warnings and information; -1 silences, 3 and above add debug.
TEST_F(LogGate, EachLevelOpensItsPriorities) {
    struct Row {
        int level;
        size_t errors, warnings, infos, debugs;
    };
    for (const Row& row :
         {Row{Basics::Log::LogLevel(), 1, 1, 1, 0}, Row{-1, 0, 0, 0, 0}, Row{0, 1, 0, 0, 0},
          Row{1, 1, 1, 0, 0}, Row{2, 1, 1, 1, 0}, Row{3, 1, 1, 1, 1}, Row{7, 1, 1, 1, 1}}) {
        logs.Clear();
        Basics::Log::SetLogLevel(row.level);
        TALVEX_LOGE("e");
        TALVEX_LOGW("w");
        TALVEX_LOGI("[Test][Gate] info %d", 2);
        TALVEX_LOGD("d");
        SCOPED_TRACE(row.level);
        EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), row.errors);
        EXPECT_EQ(logs.Count(ANDROID_LOG_WARN), row.warnings);
        EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[Test][Gate] info 2"), row.infos);
        EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG), row.debugs);
    }
    EXPECT_EQ(logs.Messages().at(0).tag, "Talvex");
}

// A message that is gated off builds nothing, and the debug switch gates no message.
TEST_F(LogGate, GatedOffMessageDoesNotBuildItsArguments) {
    int built = 0;
    auto expensive = [&built] {
        ++built;
        return 1;
    };
    EXPECT_FALSE(Basics::Log::IsDebug());
    Basics::Log::SetDebug(true);
    TALVEX_LOGD("%d", expensive());
    EXPECT_EQ(built, 0);
    EXPECT_TRUE(Basics::Log::IsDebug());
    Basics::Log::SetLogLevel(3);
    TALVEX_LOGD("%d", expensive());
    EXPECT_EQ(built, 1);
    Basics::Log::SetLogLevel(-1);
    TALVEX_LOGE("%d", expensive());
    EXPECT_EQ(built, 1);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG), 1u);
}

}  // namespace
