#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <initializer_list>
#include <string>
#include <thread>

#include "GfpsTestSupport.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/GfpsExplorer.h"

namespace {

using android::FpsStabilizer::GfpsExplorer;
using TalvexTest::RefusalOf;

constexpr float kNoLength = NAN;
constexpr float k60Hz = 0.0166667f;

class GfpsExplorerTest : public ::testing::Test {
  protected:
    void TearDown() override {
        Basics::Log::SetLogLevel(2);
        Basics::Log::SetDebug(false);
    }

    GfpsExplorer::Status Tick(int gfps, float length_s = kNoLength, double advance_ms = 0.0) {
        clock.AdvanceMs(advance_ms);
        explorer.Update(gfps, length_s);
        return explorer.GetStatus();
    }

    // Restarts, waits the default 2000 ms and collects the given lengths at GFPS 30.
    void ExploreWith(std::initializer_list<float> lengths_s) {
        explorer.Reset();
        ASSERT_EQ(Tick(60, kNoLength, 2000.0), GfpsExplorer::Exploring);
        for (float length_s : lengths_s) Tick(30, length_s);
    }

    // Lengths collected until Finishing begins, after a fresh wait.
    int LengthsToFinish() {
        ExploreWith({});
        int count = 0;
        while (explorer.GetStatus() == GfpsExplorer::Exploring && count < 100) {
            Tick(30, k60Hz);
            ++count;
        }
        return count;
    }

    TalvexTest::FreshSettingsCenter center;
    TalvexTest::ManualClock clock;
    TalvexTest::LogCapture logs;
    GfpsExplorer explorer;
};

TEST_F(GfpsExplorerTest, WaitExploreFinishAndStartOver) {
    EXPECT_EQ(explorer.GetStatus(), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(60, kNoLength, 1999.0), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(60, kNoLength, 1.0), GfpsExplorer::Exploring);
    EXPECT_EQ(explorer.GetGfpsBeforeExplore(), 60);

    EXPECT_EQ(Tick(30, 0.5f, 100.0), GfpsExplorer::Exploring);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(Tick(30, k60Hz, 100.0), GfpsExplorer::Exploring);
    EXPECT_EQ(Tick(30, kNoLength, 100.0), GfpsExplorer::Exploring);
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN,
                         "[GfpsExplorer][Update] Error occur while Status=Exploring:\n\t The input "
                         "FRAME_LENGTH_S_ is NAN!\nPlease check the code logic.\n"),
              1u);
    EXPECT_EQ(Tick(30, k60Hz, 100.0), GfpsExplorer::Finishing);  // the seventh length
    EXPECT_EQ(explorer.EstimateFPS(), 60);

    // The finishing second counts from the seventh length; a NaN length cannot end it.
    EXPECT_EQ(Tick(30, k60Hz, 999.0), GfpsExplorer::Finishing);
    EXPECT_EQ(Tick(30, kNoLength, 1.0), GfpsExplorer::Finishing);
    EXPECT_EQ(logs.Count(ANDROID_LOG_WARN, "Error occur while Status=Finishing:\n"), 1u);
    EXPECT_EQ(Tick(30, k60Hz), GfpsExplorer::Finished);
    EXPECT_EQ(explorer.GetGfpsBeforeExplore(), 60);

    EXPECT_EQ(Tick(30, k60Hz, 5000.0), GfpsExplorer::Waiting);
    EXPECT_EQ(explorer.GetGfpsBeforeExplore(), -1);
    EXPECT_EQ(explorer.EstimateFPS(), -1);
    EXPECT_EQ(Tick(30, kNoLength, 1999.0), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(30, kNoLength, 1.0), GfpsExplorer::Exploring);
}

TEST_F(GfpsExplorerTest, BackToTheEarlierRateWhileFinishingStartsOver) {
    Basics::Log::SetLogLevel(3);
    ExploreWith({k60Hz, k60Hz, k60Hz, k60Hz, k60Hz, k60Hz, k60Hz});
    ASSERT_EQ(explorer.GetStatus(), GfpsExplorer::Finishing);
    EXPECT_EQ(Tick(60, kNoLength), GfpsExplorer::Waiting);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG,
                         "[GfpsExplorer][Update] reset the gfpsExplorer due to currentGFPS(=60) == "
                         "gfpsBeforeExplore"),
              1u);

    // Also on the tick that ends the finishing second.
    ExploreWith({k60Hz, k60Hz, k60Hz, k60Hz, k60Hz, k60Hz, k60Hz});
    EXPECT_EQ(Tick(60, k60Hz, 1000.0), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(60, kNoLength, 1999.0), GfpsExplorer::Waiting);
}

TEST_F(GfpsExplorerTest, EstimateLeavesOutTheFirstLength) {
    Basics::Log::SetLogLevel(3);
    Basics::Log::SetDebug(true);
    ExploreWith({0.5f, 0.02f, 0.02f});
    EXPECT_EQ(explorer.EstimateFPS(), 50);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG,
                         "[GfpsExplorer][EstimateFPS] In EstimateFPS:\n\t arrayOfFrameLengths_s = "
                         "\n\t[\n\t  0.5, 0.02, 0.02\n\t]\n\t result = 50\n"),
              1u);
    ExploreWith({0.04f});
    EXPECT_EQ(explorer.EstimateFPS(), 25);

    // Eleven lengths and more are not dumped; without the debug switch nothing is written.
    explorer.SetBufferSize("20");
    ExploreWith({0.1f, 0.04f, 0.04f, 0.04f, 0.04f, 0.04f, 0.04f, 0.04f, 0.04f, 0.04f, 0.04f});
    logs.Clear();
    EXPECT_EQ(explorer.EstimateFPS(), 25);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "In EstimateFPS:\n\t result = 25\n"), 1u);
    Basics::Log::SetDebug(false);
    explorer.EstimateFPS();
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG), 1u);
}

TEST_F(GfpsExplorerTest, BufferSizeStoresOneMoreThanGiven) {
    auto refused = [](const std::string& value, const std::string& hint) {
        return "SetBufferSize:\nError occur while GfpsExplorer::SetBufferSize():\n"
               "Invalid target value: '" +
               value + "'\n\t The target value should be " + hint + "\n";
    };
    const std::string accepted = "<no exception>";
    struct Row {
        const char* value;
        std::string outcome;
        int lengthsToFinish;
    };
    for (const Row& row : {Row{"6", accepted, 7}, Row{"2", accepted, 3},
                           Row{"1", refused("1", "larger than '1'"), 3},
                           Row{"0", refused("0", "larger than '1'"), 3},
                           Row{"-1", refused("-1", "smaller than '4294967295'"), 3},
                           Row{"many", "<std::invalid_argument>", 3}, Row{"reset", accepted, 7},
                           Row{"9", accepted, 10}}) {
        EXPECT_EQ(RefusalOf([&] { explorer.SetBufferSize(row.value); }), row.outcome) << row.value;
        EXPECT_EQ(LengthsToFinish(), row.lengthsToFinish) << row.value;
    }
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[GfpsExplorer]\t Set BUFFER_SIZE to 7"), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "[GfpsExplorer]\t Reset BUFFER_SIZE to 7"), 1u);
}

TEST_F(GfpsExplorerTest, ExploreDurationMustBePositive) {
    const std::string refusal =
        "SetExploreDuration_ms:\nError occur while GfpsExplorer::SetExploreDuration_ms():\n"
        "Invalid target value: '0'\n\t The target value should be larger than '0'\n";
    EXPECT_EQ(RefusalOf([&] { explorer.SetExploreDuration_ms("0"); }), refusal);
    EXPECT_EQ(RefusalOf([&] { explorer.SetExploreDuration_ms("-3"); }).substr(0, 22),
              "SetExploreDuration_ms:");
    EXPECT_EQ(RefusalOf([&] { explorer.SetExploreDuration_ms("soon"); }),
              "<std::invalid_argument>");

    explorer.SetExploreDuration_ms("500");
    EXPECT_EQ(
        logs.Count(ANDROID_LOG_INFO, "[GfpsExplorer]\t Set EXPLORE_DURATION_MS to 500.000000"), 1u);
    EXPECT_EQ(Tick(60, kNoLength, 499.0), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(60, kNoLength, 1.0), GfpsExplorer::Exploring);

    explorer.SetExploreDuration_ms("nan");
    EXPECT_EQ(
        logs.Count(ANDROID_LOG_INFO, "[GfpsExplorer]\t Reset EXPLORE_DURATION_MS to 2000.000000"),
        1u);
    explorer.Reset();
    EXPECT_EQ(Tick(60, kNoLength, 1999.0), GfpsExplorer::Waiting);
}

TEST_F(GfpsExplorerTest, EveryKeyReachesItsSetter) {
    for (const char* key : {"explore_duration_ms", "ExploreDuration_ms", "ex_du"}) {
        center.Send("stabilizer", key, "750");
    }
    for (const char* key : {"explore_buffer_size", "ExploreBufferSize", "ex_buf"}) {
        center.Send("stabilizer", key, "4");
    }
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "Set EXPLORE_DURATION_MS to 750.000000"), 3u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, "Set BUFFER_SIZE to 5"), 3u);
}

// Run under the thread sanitizer: the tunables change while ticks run.
TEST(GfpsExplorerConcurrency, TicksWhileTunablesChange) {
    TalvexTest::LogCapture logs;
    TalvexTest::FreshSettingsCenter center;
    TalvexTest::ManualClock clock;
    GfpsExplorer explorer;
    std::atomic<bool> done{false};
    std::thread settings([&] {
        for (int i = 0; i < 500; ++i) {
            center.Send("stabilizer", "ex_du", i % 2 ? "1" : "reset");
            center.Send("stabilizer", "ex_buf", i % 2 ? "2" : "reset");
        }
        done = true;
    });
    while (!done) {
        clock.AdvanceMs(1.0);
        explorer.Update(60, k60Hz);
    }
    settings.join();
    explorer.Reset();  // the last values sent: a wait of 1 ms and 3 lengths
    clock.AdvanceMs(1.0);
    explorer.Update(60, kNoLength);
    for (int i = 0; i < 3; ++i) explorer.Update(30, k60Hz);
    EXPECT_EQ(explorer.GetStatus(), GfpsExplorer::Finishing);
}

}  // namespace
