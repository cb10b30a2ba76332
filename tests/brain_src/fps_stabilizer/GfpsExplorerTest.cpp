#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "GfpsTestSupport.h"
#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/GfpsExplorer.h"

namespace {

using android::FpsStabilizer::GfpsExplorer;

constexpr float kNaN = NAN, k60Hz = 0.0166667f;

class GfpsExplorerTest : public ::testing::Test {
  protected:
    TalvexHarness::LogSwitchesScope debug{3};

    GfpsExplorer::Status Tick(int gfps, float length_s = kNaN, double advance_ms = 0.0) {
        clock.AdvanceMs(advance_ms);
        explorer.Update(gfps, length_s);
        return explorer.GetStatus();
    }
    // Restarts, waits 2000 ms at GFPS 60 and collects the lengths at GFPS 30.
    void Explore(const std::vector<float>& lengths_s) {
        explorer.Reset();
        ASSERT_EQ(Tick(60, kNaN, 2000.0), GfpsExplorer::Exploring);
        for (float length_s : lengths_s) Tick(30, length_s);
    }
    // From a restart: milliseconds waited, then lengths collected until Finishing.
    std::string Cycle() {
        explorer.Reset();
        int waited_ms = 0, lengths = 1;
        for (; Tick(60) == GfpsExplorer::Waiting; ++waited_ms) clock.AdvanceMs(1.0);
        while (Tick(30, k60Hz) == GfpsExplorer::Exploring && lengths < 100) ++lengths;
        return std::to_string(waited_ms) + "/" + std::to_string(lengths);
    }

    TalvexHarness::SettingsCenterScope center;
    TalvexHarness::VirtualClock clock;
    TalvexHarness::LogSink logs;
    GfpsExplorer explorer;
};

TEST_F(GfpsExplorerTest, WaitExploreFinishAndStartOver) {
    EXPECT_EQ(Tick(60, kNaN, 1999.0), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(60, kNaN, 1.0), GfpsExplorer::Exploring);
    EXPECT_EQ(explorer.GetGfpsBeforeExplore(), 60);
    for (int i = 0; i < 6; ++i) Tick(30, k60Hz, 100.0);
    EXPECT_EQ(Tick(30, kNaN, 100.0), GfpsExplorer::Exploring);   // not counted
    EXPECT_EQ(Tick(30, k60Hz, 100.0), GfpsExplorer::Finishing);  // the seventh length
    // The finishing second counts from the seventh length; a NaN length cannot end it.
    EXPECT_EQ(Tick(30, k60Hz, 999.0), GfpsExplorer::Finishing);
    EXPECT_EQ(Tick(30, kNaN, 1.0), GfpsExplorer::Finishing);
    EXPECT_EQ(Tick(30, k60Hz), GfpsExplorer::Finished);
    EXPECT_EQ(Tick(30, k60Hz, 5000.0), GfpsExplorer::Waiting);
    EXPECT_EQ(explorer.GetGfpsBeforeExplore(), -1);
    EXPECT_EQ(Tick(30, kNaN, 1999.0), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(30, kNaN, 1.0), GfpsExplorer::Exploring);
    for (const char* status : {"Exploring", "Finishing"}) {
        EXPECT_EQ(logs.Count(ANDROID_LOG_WARN,
                             std::string("[GfpsExplorer][Update] Error occur while Status=") +
                                 status + ":\n\t The input FRAME_LENGTH_S_ is NAN!\n" +
                                 "Please check the code logic.\n"),
                  1u);
    }

    // Back at the rate seen before exploring, also on the tick that ends Finishing: start over.
    Explore(std::vector<float>(7, k60Hz));
    EXPECT_EQ(Tick(60), GfpsExplorer::Waiting);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG,
                         "[GfpsExplorer][Update] reset the gfpsExplorer due to currentGFPS(=60) == "
                         "gfpsBeforeExplore"),
              1u);
    Explore(std::vector<float>(7, k60Hz));
    EXPECT_EQ(Tick(60, k60Hz, 1000.0), GfpsExplorer::Waiting);
    EXPECT_EQ(Tick(60, kNaN, 1999.0), GfpsExplorer::Waiting);
}

TEST_F(GfpsExplorerTest, EstimateLeavesOutTheFirstLength) {
    Basics::Log::SetDebug(true);
    Explore({0.5f, 0.02f, 0.04f});
    EXPECT_EQ(explorer.EstimateFPS(), 33);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG,
                         "[GfpsExplorer][EstimateFPS] In EstimateFPS:\n\t arrayOfFrameLengths_s = "
                         "\n\t[\n\t  0.5, 0.02, 0.04\n\t]\n\t result = 33\n"),
              1u);
    Explore({0.04f});
    EXPECT_EQ(explorer.EstimateFPS(), 25);
    Explore({0.0f});  // an infinite rate saturates
    EXPECT_EQ(explorer.EstimateFPS(), INT_MAX);

    // Eleven lengths and more are not dumped; without the debug switch nothing is written.
    explorer.SetBufferSize("20");
    std::vector<float> lengths_s(11, 0.04f);
    lengths_s[0] = 0.1f;
    Explore(lengths_s);
    logs.Clear();
    EXPECT_EQ(explorer.EstimateFPS(), 25);
    Basics::Log::SetDebug(false);
    explorer.EstimateFPS();
    EXPECT_EQ(logs.Messages().size(), 1u);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "In EstimateFPS:\n\t result = 25\n"), 1u);
}

TEST_F(GfpsExplorerTest, SettersRefuseBadValuesAndBufferSizeStoresOneMore) {
    using Setter = void (GfpsExplorer::*)(const std::string&);
    const Setter buffer = &GfpsExplorer::SetBufferSize;
    const Setter duration = &GfpsExplorer::SetExploreDuration_ms;
    auto refused = [](const std::string& setter, const std::string& value, const char* hint) {
        return setter + ":\nError occur while GfpsExplorer::" + setter +
               "():\nInvalid target value: '" + value + "'\n\t The target value should be " + hint +
               "'\n";
    };
    const std::string accepted = "<no exception>", size = "SetBufferSize";
    const std::string wait = "SetExploreDuration_ms";
    struct Row {
        Setter setter;
        const char* value;
        std::string outcome, cycle;
    };
    for (const Row& row :
         {Row{buffer, "6", accepted, "2000/7"}, Row{buffer, "2", accepted, "2000/3"},
          Row{buffer, "1", refused(size, "1", "larger than '1"), "2000/3"},
          Row{buffer, "0", refused(size, "0", "larger than '1"), "2000/3"},
          Row{buffer, "-1", refused(size, "-1", "smaller than '4294967295"), "2000/3"},
          Row{buffer, "reset", accepted, "2000/7"},
          Row{duration, "0", refused(wait, "0", "larger than '0"), "2000/7"},
          Row{duration, "soon", "<std::invalid_argument>", "2000/7"},
          Row{duration, "500", accepted, "500/7"}, Row{duration, "nan", accepted, "2000/7"}}) {
        EXPECT_EQ(TalvexTest::RefusalOf([&] { (explorer.*row.setter)(row.value); }), row.outcome)
            << row.value;
        EXPECT_EQ(Cycle(), row.cycle) << row.value;
    }
    for (const char* text :
         {"Set BUFFER_SIZE to 7", "Reset BUFFER_SIZE to 7", "Set EXPLORE_DURATION_MS to 500.000000",
          "Reset EXPLORE_DURATION_MS to 2000.000000"}) {
        EXPECT_EQ(logs.Count(ANDROID_LOG_INFO, std::string("[GfpsExplorer]\t ") + text), 1u);
    }

    for (const char* key : {"explore_duration_ms", "ExploreDuration_ms", "ex_du",
                            "explore_buffer_size", "ExploreBufferSize", "ex_buf"}) {
        center.Set("stabilizer", key, "3");
        const bool isBuffer = std::string(key).find("uf") != std::string::npos;
        EXPECT_EQ(Cycle(), isBuffer ? "2000/4" : "3/7") << key;
        center.Set("stabilizer", key, "reset");
    }
}

}  // namespace
