#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "SimTestSupport.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/input/Scenario.h"

namespace TalvexSim {
namespace {

using TalvexSimTest::Replaced;
using TalvexSimTest::ScenarioText;

TEST(ScenarioLoaderTest, MinimalScenarioTakesDefaultsAndTheLibraryParsesItsConfiguration) {
    const Scenario scenario = LoadScenarioText(ScenarioText(), "s.json", "fallback");
    EXPECT_EQ(scenario.name, "fallback");
    EXPECT_EQ(scenario.refreshRate_Hz, 60);
    EXPECT_EQ(scenario.seed, 1u);
    EXPECT_FALSE(scenario.tickEveryFrame);
    EXPECT_DOUBLE_EQ(scenario.tick_s, 1.0);
    EXPECT_EQ(scenario.pid, 777);
    EXPECT_EQ(scenario.package, "com.test.game");
    ASSERT_EQ(scenario.settings.size(), 2u);
    EXPECT_EQ(scenario.settings[1].category, "stabilizer");
    EXPECT_EQ(scenario.settings[1].key, "sfps");
    EXPECT_EQ(scenario.settings[1].value, "0-45");
    // The configuration travels as the text the user wrote, and each record knows its line.
    EXPECT_EQ(scenario.configText.rfind("{\"pid\": 777", 0), 0u);
    EXPECT_NE(scenario.settingPlaces[1].find("s.json:6:"), std::string::npos)
        << scenario.settingPlaces[1];
    EXPECT_NE(scenario.settingPlaces[1].find("config.param[1].param1"), std::string::npos);
}

TEST(ScenarioLoaderTest, ReadsEveryModelFieldEventsAndSeveralRecordsPerCommand) {
    const Scenario scenario = LoadScenarioText(
        ScenarioText(R"(  "name": "full", "seed": 18446744073709551615, "refresh_rate_hz": 90,
  "host_tick": "frame",
  "device": {"ambient_c": 20, "sensor_period_s": 0.5, "energy_per_frame_mj": 50},
  "events": [{"at_s": 10, "type": "pause"}, {"at_s": 10, "type": "settings",
              "param1": "sfps_temperature,ttsigal,5"}, {"at_s": 20, "type": "resume"}],
)",
                     60.0, R"({"param1": "stabilizer,gfps,30-60,stabilizer,sfps,0-45"})"),
        "s.json", "x");
    EXPECT_EQ(scenario.name, "full");
    EXPECT_EQ(scenario.seed, 18446744073709551615ULL);
    EXPECT_EQ(scenario.refreshRate_Hz, 90);
    EXPECT_TRUE(scenario.tickEveryFrame);
    EXPECT_DOUBLE_EQ(scenario.device.ambient_C, 20.0);
    EXPECT_DOUBLE_EQ(scenario.device.initial_C, 20.0);  // follows the ambient
    EXPECT_DOUBLE_EQ(scenario.device.sensorPeriod_s, 0.5);
    ASSERT_EQ(scenario.events.size(), 3u);
    EXPECT_EQ(scenario.events[1].type, EventType::Settings);
    ASSERT_EQ(scenario.events[1].settings.size(), 1u);
    EXPECT_EQ(scenario.events[1].settings[0].value, "5");
    EXPECT_EQ(scenario.settings.size(), 2u);
    EXPECT_EQ(scenario.settingPlaces.size(), 2u);
}

struct BadScenario {
    const char* what;
    std::string text;
    const char* expected;  // fragment of the message, which always starts with the place
};

TEST(ScenarioLoaderTest, EveryFaultNamesTheFileThePlaceAndTheField) {
    const BadScenario cases[] = {
        {"syntax", "{\n  \"duration_s\": 60,\n  \"game\": {]\n}", "bad.json:3:"},
        {"comment", "// hi\n{}", "bad.json:1:1:"},
        {"trailing text", ScenarioText() + "x", "bad.json:8:1:"},
        {"duplicate key", "{\"duration_s\": 1, \"duration_s\": 2}", "bad.json:1:"},
        {"unknown top-level field", ScenarioText("  \"duration\": 60,\n"),
         "bad.json:4:15: duration: unknown field"},
        {"unknown nested field",
         ScenarioText("  \"device\": {\"ambient_c\": 20, \"ambiant_c\": 21},\n"),
         "bad.json:4:44: device.ambiant_c: unknown field"},
        {"wrong type", ScenarioText("  \"refresh_rate_hz\": \"60\",\n"),
         "bad.json:4:22: refresh_rate_hz: expected an integer, got a string"},
        {"fraction for an integer", ScenarioText("  \"refresh_rate_hz\": 60.5,\n"),
         "refresh_rate_hz: expected an integer, got a number"},
        {"out of range", ScenarioText("  \"device\": {\"thermal_time_constant_s\": 0},\n"),
         "device.thermal_time_constant_s: 0 is out of range"},
        {"missing required", "{\"duration_s\": 60}", "bad.json:1:1: missing required field"},
        {"missing nested", Replaced(ScenarioText(), "\"work_ms\": 9.0", "\"jitter\": 0.1"),
         "game: missing required field \"work_ms\""},
        {"four CPU readings",
         Replaced(ScenarioText(), "\"work_ms\": 9.0",
                  "\"work_ms\": 9.0, \"cpu_util_full_load\": [1]"),
         "game.cpu_util_full_load: expected 4 readings, got 1"},
        {"unsafe name", ScenarioText("  \"name\": \"../x\",\n"), "is not a usable folder name"},
        {"host tick word", ScenarioText("  \"host_tick\": \"vsync\",\n"),
         "host_tick: expected \"frame\" or a period in seconds"},
        {"pacing word", ScenarioText("  \"pacing\": \"fast\",\n"),
         "bad.json:4:13: pacing: expected \"quota\", \"deadline\" or \"deadline-vsync\""},
        {"display mode", ScenarioText("  \"display\": {\"mode\": \"gsync\"},\n"),
         "bad.json:4:23: display.mode: 'gsync' is not a display mode"},
        {"buffers", ScenarioText("  \"display\": {\"buffers\": 4},\n"),
         "bad.json:4:26: display.buffers: 4 is out of range"},
        {"variable refresh above the top rate",
         ScenarioText("  \"display\": {\"mode\": \"vrr\", \"vrr_min_hz\": 90},\n"),
         "display.vrr_min_hz: 90 is out of range"},
        {"modes missing", ScenarioText("  \"display\": {\"mode\": \"modes\"},\n"),
         "bad.json:4:14: display.modes_hz: a \"modes\" panel needs at least one rate"},
        {"modes empty", ScenarioText("  \"display\": {\"mode\": \"modes\", \"modes_hz\": []},\n"),
         "bad.json:4:44: display.modes_hz: a \"modes\" panel needs at least one rate"},
        {"modes unsorted",
         ScenarioText("  \"display\": {\"mode\": \"modes\", \"modes_hz\": [60, 30]},\n"),
         "bad.json:4:49: display.modes_hz[1]: the rates must be listed in ascending order"},
        {"event type", ScenarioText("  \"events\": [{\"at_s\": 1, \"type\": \"stop\"}],\n"),
         "events[0].type: 'stop' is not an event type"},
        {"resume first", ScenarioText("  \"events\": [{\"at_s\": 1, \"type\": \"resume\"}],\n"),
         "events[0]: resume while the game is not paused"},
        {"pause twice",
         ScenarioText("  \"events\": [{\"at_s\": 1, \"type\": \"pause\"}, {\"at_s\": 2, "
                      "\"type\": \"pause\"}],\n"),
         "events[1]: pause while the game is already paused"},
        {"events out of order",
         ScenarioText("  \"events\": [{\"at_s\": 5, \"type\": \"pause\"}, {\"at_s\": 2, "
                      "\"type\": \"resume\"}],\n"),
         "events[1]: events must be listed in time order"},
        {"event after the end",
         ScenarioText("  \"events\": [{\"at_s\": 61, \"type\": \"pause\"}],\n"),
         "events[0].at_s: 61 is out of range"},
        {"command on a pause",
         ScenarioText(
             "  \"events\": [{\"at_s\": 1, \"type\": \"pause\", \"param1\": \"a,b,c\"}],\n"),
         "events[0].param1: only settings events take a command"},
        {"command not in threes", ScenarioText("", 60.0, R"({"param1": "stabilizer,gfps"})"),
         "config.param[0].param1: 'stabilizer,gfps' has 2 comma-separated piece(s)"},
        {"command without a comma", ScenarioText("", 60.0, R"({"param1": "stabilizer"})"),
         "has 1 comma-separated piece(s)"},
        {"unknown configuration member",
         Replaced(ScenarioText(), "\"lifeCycle\": 1", "\"lifecycle\": 1"),
         "config.lifecycle: unknown field"},
        {"param is not an array",
         Replaced(ScenarioText("", 60.0, ""), "\"param\": []", "\"param\": {}"),
         "config.param: expected an array, got an object"},
    };
    for (const BadScenario& bad : cases) {
        const std::string message = TalvexSimTest::LoadError(bad.text);
        EXPECT_EQ(message.rfind("bad.json:", 0), 0u) << bad.what << ": " << message;
        EXPECT_NE(message.find(bad.expected), std::string::npos) << bad.what << ": " << message;
    }
}

TEST(ScenarioLoaderTest, ADeviceProfileLoadsByNameAndTheScenarioOverridesItFieldByField) {
    const Scenario ceilings = LoadScenarioText(
        ScenarioText("  \"device\": {\"profile\": \"rk3399-ceilings\"},\n"), "p.json", "p");
    ASSERT_TRUE(ceilings.device.parts.has_value());
    const DevicePartsParams& parts = *ceilings.device.parts;
    EXPECT_EQ(parts.profile, "rk3399-ceilings");
    ASSERT_EQ(parts.domains.size(), 3u);
    EXPECT_EQ(parts.domains[1].name, "cpu_big");
    EXPECT_EQ(parts.domains[1].cores, 2);
    EXPECT_DOUBLE_EQ(parts.domains[1].points.back().frequency_MHz, 1800.0);
    EXPECT_EQ(parts.policy, ThermalPolicyKind::Ceilings);
    ASSERT_EQ(parts.ceilings.levels.size(), 3u);
    EXPECT_DOUBLE_EQ(parts.ceilings.rules[2].limit_MHz, 1190.4);

    const Scenario overridden = LoadScenarioText(
        ScenarioText("  \"device\": {\"profile\": \"rk3399-power-allocator\", \"skin\": "
                     "{\"resistance_c_per_w\": 8}, \"power_allocator\": {\"control_c\": 44}},\n"),
        "p.json", "p");
    const DevicePartsParams& changed = *overridden.device.parts;
    EXPECT_EQ(changed.policy, ThermalPolicyKind::PowerAllocator);
    EXPECT_DOUBLE_EQ(changed.skin.resistance_CPerW, 8.0);
    EXPECT_DOUBLE_EQ(changed.skin.capacity_JPerC, 80.0);  // kept from the profile
    EXPECT_DOUBLE_EQ(changed.powerAllocator.control_C, 44.0);
    EXPECT_DOUBLE_EQ(changed.powerAllocator.switchOn_C, 43.0);
    EXPECT_FALSE(LoadScenarioText(ScenarioText(), "p.json", "p").device.parts.has_value());

    const Scenario split = LoadScenarioText(
        Replaced(ScenarioText(), "\"work_ms\": 9.0", "\"cpu_ms\": 6, \"gpu_ms\": 11"), "s.json",
        "s");
    EXPECT_DOUBLE_EQ(split.game.workMs, 11.0);
    EXPECT_DOUBLE_EQ(split.game.gpuExponent, 0.88);
}

TEST(ScenarioLoaderTest, BadDevicePartsAreRefusedWhereTheyWereWritten) {
    const BadScenario cases[] = {
        {"unknown profile", ScenarioText("  \"device\": {\"profile\": \"pixel\"},\n"),
         "bad.json:4:25: device.profile: 'pixel' is neither a device profile (rk3399-ceilings, "
         "rk3399-power-allocator) nor a file"},
        {"no operating point",
         ScenarioText("  \"device\": {\"profile\": \"rk3399-ceilings\", \"domains\": [{\"name\": "
                      "\"gpu\", \"dynamic_power_coefficient\": 1, \"points\": []}]},\n"),
         "device.domains[0].points: a domain needs at least one operating point"},
        {"points descending",
         ScenarioText("  \"device\": {\"profile\": \"rk3399-ceilings\", \"domains\": [{\"name\": "
                      "\"gpu\", \"dynamic_power_coefficient\": 1, \"points\": [[600, 1], [500, "
                      "1]]}]},\n"),
         "device.domains[0].points[1]: operating points must ascend in frequency"},
        {"exponent",
         Replaced(ScenarioText(), "\"work_ms\": 9.0", "\"work_ms\": 9, \"gpu_exponent\": 2.5"),
         "game.gpu_exponent: 2.5 is out of range [0, 2]"},
        {"sensor",
         ScenarioText("  \"device\": {\"profile\": \"rk3399-ceilings\", \"host_sensor\": "
                      "\"battery\"},\n"),
         "device.host_sensor: 'battery' is not a thermal node (die, skin)"},
        {"older field",
         ScenarioText("  \"device\": {\"profile\": \"rk3399-ceilings\", "
                      "\"energy_per_frame_mj\": 50},\n"),
         "device.energy_per_frame_mj: not used with a device profile"},
        {"parts without a profile", ScenarioText("  \"device\": {\"die\": {}},\n"),
         "device.die: needs a device.profile"},
    };
    for (const BadScenario& bad : cases) {
        const std::string message = TalvexSimTest::LoadError(bad.text);
        EXPECT_EQ(message.rfind("bad.json:", 0), 0u) << bad.what << ": " << message;
        EXPECT_NE(message.find(bad.expected), std::string::npos) << bad.what << ": " << message;
    }
}

TEST(ScenarioLoaderTest, MissingFileIsAnInputErrorNamingIt) {
    try {
        LoadScenarioFile("/nonexistent/s.json");
        FAIL() << "loaded a missing file";
    } catch (const InputError& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/s.json: no such file");
    }
}

TEST(ScenarioLoaderTest, DefaultAndShippedScenariosLoad) {
    const Scenario fallback = LoadDefaultScenario();
    EXPECT_EQ(fallback.name, "default");
    EXPECT_EQ(fallback.sourceName, "<default scenario>");
    EXPECT_DOUBLE_EQ(fallback.duration_s, 1800.0);
    EXPECT_EQ(fallback.events.size(), 2u);

    // The embedded text is the shipped file.
    const std::string folder = TALVEX_SIM_SCENARIO_DIR;
    EXPECT_EQ(LoadScenarioFile(folder + "/default.json").configText, fallback.configText);
    size_t shipped = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const Scenario scenario = LoadScenarioFile(entry.path().string());
        EXPECT_EQ(scenario.name, entry.path().stem().string());
        EXPECT_FALSE(scenario.settings.empty()) << scenario.name;
        ++shipped;
    }
    EXPECT_GE(shipped, 4u);
}

// Each event on its own line: the first at line 5 of the scenario.
std::string withEvents(const std::string& events, double duration_s = 60.0) {
    return ScenarioText("  \"events\": [\n" + events + "\n  ],\n", duration_s);
}

TEST(ScenarioLoaderTest, FaultEventRefusalsNameThePlaceOfTheFaultyEvent) {
    const struct {
        const char* what;
        std::string events;
        const char* place;
        const char* expected;
    } cases[] = {
        {"unknown sensor",
         R"(    {"at_s": 1, "type": "sensor_fault", "duration_s": 2, "sensor": "gpu", "mode": "nan"})",
         "bad.json:5:68:", "'gpu' is not a sensor (temperature, current, cpu)"},
        {"unknown node",
         R"(    {"at_s": 1, "type": "node_fault", "duration_s": 2, "node": "fps", "mode": "missing"})",
         "bad.json:5:", "'fps' is not a node"},
        {"unknown mode",
         R"(    {"at_s": 1, "type": "node_fault", "duration_s": 2, "node": "egl_buf", "mode": "nan"})",
         "bad.json:5:", "'nan' is not a node fault mode"},
        {"magnitude without a spike",
         R"(    {"at_s": 1, "type": "sensor_fault", "duration_s": 2, "sensor": "cpu", "mode": "nan",
     "magnitude": 3})",
         "bad.json:6:", "only a spike takes a magnitude"},
        {"past the end", R"(    {"at_s": 50, "type": "host_stall", "duration_s": 11})",
         "bad.json:5:", "lasts past the end of the run (60 s)"},
        {"same sensor twice",
         R"(    {"at_s": 1, "type": "sensor_fault", "duration_s": 5, "sensor": "current", "mode": "nan"},
    {"at_s": 5, "type": "sensor_fault", "duration_s": 5, "sensor": "current", "mode": "stuck"})",
         "bad.json:6:5:", "overlaps the sensor current fault at bad.json:5:5"},
        {"same node twice",
         R"(    {"at_s": 1, "type": "node_fault", "duration_s": 5, "node": "efps_max", "mode": "missing"},
    {"at_s": 2, "type": "node_fault", "duration_s": 1, "node": "efps_max", "mode": "read_only"})",
         "bad.json:6:", "overlaps the node efps_max fault"},
        {"two stalls", R"(    {"at_s": 1, "type": "host_stall", "duration_s": 5},
    {"at_s": 3, "type": "host_stall", "duration_s": 5})",
         "bad.json:6:", "overlaps the host stall fault"},
        {"two storms",
         R"(    {"at_s": 1, "type": "settings_storm", "duration_s": 5, "records_per_s": 5, "invalid_share": 0},
    {"at_s": 3, "type": "settings_storm", "duration_s": 5, "records_per_s": 5, "invalid_share": 1})",
         "bad.json:6:", "overlaps the settings storm fault"},
        {"into a pause", R"(    {"at_s": 1, "type": "host_stall", "duration_s": 10},
    {"at_s": 5, "type": "pause"})",
         "bad.json:6:5:", "pause while the host stall fault at bad.json:5:5 lasts (until 11 s)"},
        {"while paused", R"(    {"at_s": 1, "type": "pause"},
    {"at_s": 5, "type": "host_stall", "duration_s": 1})",
         "bad.json:6:", "a fault cannot start while the game is paused"},
        {"storm after the settings were forgotten", R"(    {"at_s": 1, "type": "pause"},
    {"at_s": 2, "type": "resume"},
    {"at_s": 3, "type": "settings_storm", "duration_s": 1, "records_per_s": 5, "invalid_share": 0.5})",
         "bad.json:7:", "no setting is in force to re-send"},
        {"out of order", R"(    {"at_s": 9, "type": "pause"},
    {"at_s": 5, "type": "host_stall", "duration_s": 1})",
         "bad.json:6:", "time order"},
    };
    for (const auto& bad : cases) {
        SCOPED_TRACE(bad.what);
        const std::string message = TalvexSimTest::LoadError(withEvents(bad.events));
        EXPECT_EQ(message.rfind(bad.place, 0), 0u) << message;
        EXPECT_NE(message.find(bad.expected), std::string::npos) << message;
    }
}

}  // namespace
}  // namespace TalvexSim
