#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "SimTestSupport.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/Simulation.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::ScenarioText;

// Every kind and several modes in one minute of a cool device that only the temperature spike
// can make the library stabilize; different kinds overlap, as they may.
const char kEveryFault[] = R"(
    {"at_s": 5, "type": "sensor_fault", "duration_s": 10, "sensor": "temperature", "mode": "spike"},
    {"at_s": 16, "type": "node_fault", "duration_s": 4, "node": "efps_max", "mode": "read_only"},
    {"at_s": 20, "type": "node_fault", "duration_s": 4, "node": "efps_max", "mode": "rewritten"},
    {"at_s": 25, "type": "node_fault", "duration_s": 3, "node": "egl_buf", "mode": "missing"},
    {"at_s": 25, "type": "host_stall", "duration_s": 3},
    {"at_s": 30, "type": "settings_storm", "duration_s": 4, "records_per_s": 50, "invalid_share": 0.5},
    {"at_s": 35, "type": "sensor_fault", "duration_s": 3, "sensor": "current", "mode": "nan"},
    {"at_s": 35, "type": "sensor_fault", "duration_s": 3, "sensor": "cpu", "mode": "stuck"},
    {"at_s": 40, "type": "node_fault", "duration_s": 3, "node": "efps_max", "mode": "missing"},
    {"at_s": 44, "type": "node_fault", "duration_s": 3, "node": "egl_buf", "mode": "read_only"})";

Scenario everyFault() {
    return LoadScenarioText(
        ScenarioText(
            "  \"host_tick\": \"frame\",\n  \"events\": [" + std::string(kEveryFault) + "],\n",
            60.0,
            R"({"param1": "stabilizer,gfps,30-60"}, {"param1": "stabilizer,sfps,0-45"},
                        {"param1": "sfps_temperature,ttsigal,0"})"),
        "faults.json", "faults");
}

TEST(FaultsTest, EveryFaultLeavesTheRunGoingAndTheNodesRestored) {
    const TalvexSimTest::ScratchDirectory nodes;
    RunOptions options;
    options.nodeDirectory = nodes.path;
    const RunResult result = RunClosedLoop(everyFault(), options);

    ASSERT_EQ(result.faults.size(), 10u);
    EXPECT_EQ(result.escapedExceptions, 0u);
    for (const FaultOutcome& fault : result.faults) {
        SCOPED_TRACE(fault.type + " " + fault.detail + " at " + fault.where);
        EXPECT_EQ(fault.escapedExceptions, 0u);
        // Paced to 60, 45 or the other writer's 30, whatever happens to the host.
        EXPECT_GT(fault.frames, static_cast<std::uint64_t>(fault.duration_s * 28));
        if (fault.type == "host_stall") {
            EXPECT_EQ(fault.ticks, 0u);
        } else if (fault.at_s < 25 || fault.at_s >= 28) {
            EXPECT_EQ(fault.ticks, fault.frames);  // the host ticks after every frame
        }
        ASSERT_TRUE(fault.nodeRestored_s.has_value());
        EXPECT_GE(*fault.nodeRestored_s, fault.at_s + fault.duration_s);
        // The manager rereads its node every 10 s and sees the damage then at the latest.
        EXPECT_LE(*fault.nodeRestored_s, fault.at_s + fault.duration_s + 10.5);
    }
    // A node without a writer warns on every frame; an unreadable current is no error.
    // (bar the frame under way when it broke, which had written already).
    EXPECT_GE(result.faults[3].warnings + 1, result.faults[3].frames);
    EXPECT_EQ(result.faults[6].errors + result.faults[6].warnings, 0u);

    // Each invalid record of the storm is refused once; the settings re-sent are all taken.
    const FaultOutcome& storm = result.faults[5];
    const size_t comma = storm.detail.rfind(", ");
    EXPECT_EQ(storm.detail.substr(0, storm.detail.find(':')), "50/s, 50% invalid");
    EXPECT_EQ(storm.detail.substr(storm.detail.find(": ") + 2, comma - storm.detail.find(": ") - 2),
              "200 sent");
    EXPECT_EQ(std::to_string(storm.errors) + " invalid", storm.detail.substr(comma + 2));
    EXPECT_GT(storm.errors, 60u);
    EXPECT_LT(storm.errors, 140u);

    // Only the spike made the cool device look hot; the pacing target is the node's text, so
    // the other writer's request reached the game.
    bool stabilizedInSpike = false;
    bool pacedByOther = false;
    for (const TimelineRow& row : result.rows) {
        if (row.time_s < 5) {
            EXPECT_EQ(row.sfps, -1) << row.time_s;
        }
        if (row.time_s > 6 && row.time_s <= 15) stabilizedInSpike |= row.sfps == 45;
        if (row.time_s > 20 && row.time_s <= 24) pacedByOther |= row.node == "778,30,60";
    }
    EXPECT_TRUE(stabilizedInSpike);
    EXPECT_TRUE(pacedByOther);

    for (const char* node : {"efps_max", "egl_buf"}) {
        EXPECT_FALSE(std::filesystem::is_symlink(nodes.File(node))) << node;
        EXPECT_TRUE(std::filesystem::is_regular_file(nodes.File(node))) << node;
    }
}

TEST(FaultsTest, RunsWithFaultsAreRepeatable) {
    const Scenario scenario = everyFault();
    const RunResult first = RunClosedLoop(scenario, {});
    const RunResult second = RunClosedLoop(scenario, {});
    EXPECT_EQ(TalvexSimTest::RowsText(first), TalvexSimTest::RowsText(second));
    ASSERT_EQ(first.faults.size(), second.faults.size());
    for (size_t i = 0; i < first.faults.size(); ++i) {
        EXPECT_EQ(first.faults[i].detail, second.faults[i].detail);
        EXPECT_EQ(first.faults[i].ticks, second.faults[i].ticks);
        EXPECT_EQ(first.faults[i].errors, second.faults[i].errors);
        EXPECT_EQ(first.faults[i].nodeRestored_s, second.faults[i].nodeRestored_s);
    }
}

TEST(FaultsTest, ShippedFaultScenarioUsesEveryKindAndMode) {
    const Scenario scenario =
        LoadScenarioFile(std::string(TALVEX_SIM_SCENARIO_DIR) + "/faults.json");
    std::string details;
    for (const FaultEvent& fault : scenario.faults) details += fault.Detail() + "|";
    for (const char* used :
         {"temperature ", "current ", "cpu ", " nan", " stuck", " spike", "efps_max ", "egl_buf ",
          " read_only", " missing", " rewritten", "no host ticks", "invalid"}) {
        EXPECT_NE(details.find(used), std::string::npos) << used;
    }
}

}  // namespace
}  // namespace TalvexSim
