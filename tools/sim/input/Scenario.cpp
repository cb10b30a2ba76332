#include "tools/sim/input/Scenario.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>

#include "talvex/user_settings/OnlineConfigJsonParser.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/base/Text.h"
#include "tools/sim/input/DefaultScenario.h"
#include "tools/sim/input/DeviceProfile.h"
#include "tools/sim/input/StrictJson.h"

namespace TalvexSim {
namespace {

constexpr double kUnbounded = std::numeric_limits<double>::max();
constexpr double kLongestRun_s = 24.0 * 3600.0;
constexpr const char* kSensorNames[] = {"temperature", "current", "cpu"};

std::string indexed(const std::string& path, Json::ArrayIndex index) {
    return path + "[" + std::to_string(index) + "]";
}

// The name becomes a folder under out/, so it must not climb out of it.
void checkName(const JsonDocument& document, const Json::Value& where, const std::string& name) {
    const bool safe =
        !name.empty() && name != "." && name != ".." &&
        std::all_of(name.begin(), name.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.';
        });
    if (!safe) {
        document.Fail(
            where, "name",
            "'" + name + "' is not a usable folder name (letters, digits, '.', '-', '_')");
    }
}

// One "category,key,value[,category,key,value...]" command, turned into records by the
// library's own parser once its shape is known to be right: a command the library would
// silently ignore or reject is a mistake in the scenario.
std::vector<UserSettings::UserSetting> readCommand(const JsonDocument& document,
                                                   const Json::Value& value,
                                                   const std::string& path) {
    const std::string text = ExpectString(document, value, path);
    const size_t pieces = static_cast<size_t>(std::count(text.begin(), text.end(), ',')) + 1;
    if (pieces < 3 || pieces % 3 != 0) {
        document.Fail(value, path,
                      "'" + text + "' has " + std::to_string(pieces) +
                          " comma-separated piece(s); a command is category,key,value, "
                          "repeated");
    }
    android::talvex::OnlineConfigJsonParser parser;
    std::string command = text;
    parser.ParseCmd(command);
    return *parser.GetSettings();
}

GameParams readGame(const JsonDocument& document, const Json::Value& value, double duration_s) {
    ObjectReader game(
        document, value, "game",
        {"target_fps", "work_ms", "cpu_ms", "gpu_ms", "cpu_exponent", "gpu_exponent", "jitter",
         "spike_chance", "spike_factor", "heavy_scenes", "cpu_util_full_load"});
    GameParams params;
    params.targetFps = game.Number("target_fps", 1.0, 1000.0);
    // A frame takes the longer of its CPU and GPU work; work_ms alone is a balanced game.
    if (game.Has("work_ms") || !(game.Has("cpu_ms") || game.Has("gpu_ms"))) {
        params.workMs = game.Number("work_ms", 0.01, 10000.0);
    }
    params.cpuMs = game.Number("cpu_ms", 0.01, 10000.0, params.workMs);
    params.gpuMs = game.Number("gpu_ms", 0.01, 10000.0, params.workMs);
    if (!game.Has("work_ms")) params.workMs = std::max(params.cpuMs, params.gpuMs);
    params.cpuExponent = game.Number("cpu_exponent", 0.0, 2.0, params.cpuExponent);
    params.gpuExponent = game.Number("gpu_exponent", 0.0, 2.0, params.gpuExponent);
    params.jitter = game.Number("jitter", 0.0, 1.0, params.jitter);
    params.spikeChance = game.Number("spike_chance", 0.0, 1.0, params.spikeChance);
    params.spikeFactor = game.Number("spike_factor", 1.0, 100.0, params.spikeFactor);
    if (game.Has("heavy_scenes")) {
        const std::string path = game.PathOf("heavy_scenes");
        const Json::Value& scenes = ExpectArray(document, game.Member("heavy_scenes"), path);
        for (Json::ArrayIndex i = 0; i < scenes.size(); ++i) {
            ObjectReader scene(document, scenes[i], indexed(path, i),
                               {"start_s", "duration_s", "work_factor"});
            HeavyScene heavy;
            heavy.start_s = scene.Number("start_s", 0.0, duration_s);
            heavy.duration_s = scene.Number("duration_s", 0.001, kUnbounded);
            heavy.workFactor = scene.Number("work_factor", 0.01, 100.0);
            params.heavyScenes.push_back(heavy);
        }
    }
    if (game.Has("cpu_util_full_load")) {
        const std::string path = game.PathOf("cpu_util_full_load");
        const Json::Value& readings =
            ExpectArray(document, game.Member("cpu_util_full_load"), path);
        if (readings.size() != params.cpuUtilFullLoad.size()) {
            document.Fail(readings, path,
                          "expected 4 readings, got " + std::to_string(readings.size()));
        }
        for (Json::ArrayIndex i = 0; i < readings.size(); ++i) {
            params.cpuUtilFullLoad[i] =
                ExpectNumber(document, readings[i], indexed(path, i), 0.0, 1e15);
        }
    }
    return params;
}

GovernorParams readGovernor(const JsonDocument& document, const Json::Value& value) {
    ObjectReader governor(document, value, "device.governor",
                          {"trip_c", "hysteresis_c", "poll_s", "max_state", "clock_step"});
    GovernorParams params;
    params.trip_C = governor.Number("trip_c", -40.0, 150.0, params.trip_C);
    params.hysteresis_C = governor.Number("hysteresis_c", 0.0, 50.0, params.hysteresis_C);
    params.poll_s = governor.Number("poll_s", 0.01, 60.0, params.poll_s);
    params.maxState = governor.Integer("max_state", 0, 100, params.maxState);
    params.clockStep = governor.Number("clock_step", 0.0, 1.0, params.clockStep);
    // The clock must stay above zero, or a frame would never end.
    if (params.maxState * params.clockStep > 0.9 + 1e-9) {
        document.Fail(value, "device.governor",
                      "max_state x clock_step must leave at least 10 % of the clock");
    }
    return params;
}

DisplayParams readDisplay(const JsonDocument& document, const Json::Value& value,
                          int refreshRate_Hz) {
    ObjectReader display(
        document, value, "display",
        {"mode", "buffers", "latch_margin_ms", "composition_delay_ms", "vrr_min_hz", "modes_hz"});
    DisplayParams params;
    const std::string mode = display.String("mode", "fixed");
    if (mode == "vrr") {
        params.mode = DisplayMode::Vrr;
    } else if (mode == "modes") {
        params.mode = DisplayMode::Modes;
    } else if (mode != "fixed") {
        document.Fail(display.Member("mode"), display.PathOf("mode"),
                      "'" + mode + "' is not a display mode (fixed, vrr, modes)");
    }
    params.buffers = display.Integer("buffers", 2, 3, params.buffers);
    params.latchMargin_ms = display.Number("latch_margin_ms", 0.0, 100.0, params.latchMargin_ms);
    params.compositionDelay_ms =
        display.Number("composition_delay_ms", 0.0, 1000.0, 1000.0 / refreshRate_Hz);
    params.vrrMin_Hz = display.Number("vrr_min_hz", 1.0, refreshRate_Hz,
                                      std::min(params.vrrMin_Hz, double(refreshRate_Hz)));
    if (display.Has("modes_hz")) {
        const std::string path = display.PathOf("modes_hz");
        const Json::Value& modes = ExpectArray(document, display.Member("modes_hz"), path);
        for (Json::ArrayIndex i = 0; i < modes.size(); ++i) {
            const int rate = ExpectInteger(document, modes[i], indexed(path, i), 1, refreshRate_Hz);
            if (!params.modes_Hz.empty() && rate <= params.modes_Hz.back()) {
                document.Fail(modes[i], indexed(path, i),
                              "the rates must be listed in ascending order, each once");
            }
            params.modes_Hz.push_back(rate);
        }
    }
    if (params.mode == DisplayMode::Modes && params.modes_Hz.empty()) {
        document.Fail(display.Has("modes_hz") ? display.Member("modes_hz") : value,
                      display.PathOf("modes_hz"), "a \"modes\" panel needs at least one rate");
    }
    return params;
}

// A profile's parts, overridden field by field by the scenario's device object.
DevicePartsParams readParts(const JsonDocument& document, ObjectReader& device) {
    for (const char* older : {"thermal_resistance_c_per_w", "thermal_time_constant_s",
                              "energy_per_frame_mj", "governor"}) {
        if (device.Has(older) && device.Has("profile")) {
            document.Fail(device.Member(older), device.PathOf(older),
                          "not used with a device profile");
        }
    }
    Json::Value overrides(Json::objectValue);
    for (const std::string& key : DevicePartsKeys()) {
        if (!device.Has(key)) continue;
        if (!device.Has("profile")) {
            document.Fail(device.Member(key), device.PathOf(key), "needs a device.profile");
        }
        overrides[key] = device.Member(key);
    }
    const DevicePartsParams profile =
        LoadDeviceProfile(ExpectString(document, device.Member("profile"), "device.profile"),
                          document.Where(device.Member("profile")));
    return ReadDeviceParts(document, overrides, "device", profile);
}

DeviceParams readDevice(const JsonDocument& document, const Json::Value& value) {
    ObjectReader device(document, value, "device",
                        {"ambient_c",
                         "initial_c",
                         "thermal_resistance_c_per_w",
                         "thermal_time_constant_s",
                         "idle_power_w",
                         "paused_power_w",
                         "energy_per_frame_mj",
                         "battery_voltage_v",
                         "current_noise_ma",
                         "temperature_noise_c",
                         "sensor_period_s",
                         "governor",
                         "profile",
                         "domains",
                         "die",
                         "skin",
                         "host_sensor",
                         "thermal_policy",
                         "ceilings",
                         "power_allocator"});
    DeviceParams params;
    if (device.Has("profile") ||
        std::any_of(DevicePartsKeys().begin(), DevicePartsKeys().end(),
                    [&device](const std::string& key) { return device.Has(key); })) {
        params.parts = readParts(document, device);
    }
    params.ambient_C = device.Number("ambient_c", -40.0, 80.0, params.ambient_C);
    params.initial_C = device.Number("initial_c", -40.0, 150.0, params.ambient_C);
    params.thermalResistance_CPerW =
        device.Number("thermal_resistance_c_per_w", 0.0, 100.0, params.thermalResistance_CPerW);
    params.thermalTimeConstant_s =
        device.Number("thermal_time_constant_s", 0.1, 1e6, params.thermalTimeConstant_s);
    params.idlePower_W = device.Number("idle_power_w", 0.0, 100.0, params.idlePower_W);
    params.pausedPower_W = device.Number("paused_power_w", 0.0, 100.0, params.pausedPower_W);
    params.energyPerFrame_mJ =
        device.Number("energy_per_frame_mj", 0.0, 10000.0, params.energyPerFrame_mJ);
    params.batteryVoltage_V =
        device.Number("battery_voltage_v", 0.5, 48.0, params.batteryVoltage_V);
    params.currentNoise_mA =
        device.Number("current_noise_ma", 0.0, 10000.0, params.currentNoise_mA);
    params.temperatureNoise_C =
        device.Number("temperature_noise_c", 0.0, 10.0, params.temperatureNoise_C);
    params.sensorPeriod_s = device.Number("sensor_period_s", 0.0, 60.0, params.sensorPeriod_s);
    if (device.Has("governor")) params.governor = readGovernor(document, device.Member("governor"));
    return params;
}

// One of a fixed set of names, or a refusal that lists them.
template <typename Choice>
Choice choose(ObjectReader& entry, const std::string& key, const char* what,
              std::initializer_list<std::pair<const char*, Choice>> choices) {
    const std::string name = entry.String(key);
    std::string names;
    for (const auto& [text, choice] : choices) {
        if (name == text) return choice;
        names += (names.empty() ? "" : ", ") + std::string(text);
    }
    entry.Document().Fail(entry.Member(key), entry.PathOf(key),
                          "'" + name + "' is not " + what + " (" + names + ")");
}

void readSpan(ObjectReader& entry, FaultEvent& fault, double duration_s) {
    fault.at_s = entry.Number("at_s", 0.0, duration_s);
    fault.duration_s = entry.Number("duration_s", 0.001, duration_s);
    if (fault.End_s() > duration_s) {
        entry.Document().Fail(
            entry.Member("duration_s"), entry.PathOf("duration_s"),
            "the fault lasts past the end of the run (" + ShortNumber(duration_s) + " s)");
    }
}

FaultEvent readFault(const JsonDocument& document, const Json::Value& value,
                     const std::string& path, const std::string& type, double duration_s) {
    FaultEvent fault;
    fault.where = document.Where(value);
    if (type == "sensor_fault") {
        ObjectReader entry(document, value, path,
                           {"at_s", "type", "duration_s", "sensor", "mode", "magnitude"});
        fault.kind = FaultKind::Sensor;
        readSpan(entry, fault, duration_s);
        fault.sensor = choose<SensorKind>(entry, "sensor", "a sensor",
                                          {{"temperature", SensorKind::Temperature},
                                           {"current", SensorKind::Current},
                                           {"cpu", SensorKind::Cpu}});
        fault.sensorMode = choose<SensorMode>(
            entry, "mode", "a sensor fault mode",
            {{"nan", SensorMode::Nan}, {"stuck", SensorMode::Stuck}, {"spike", SensorMode::Spike}});
        if (fault.sensorMode == SensorMode::Spike) {
            // Hot enough to cross every bound, a draw far above any threshold, a busy CPU.
            const double byDefault = fault.sensor == SensorKind::Temperature ? 30.0
                                     : fault.sensor == SensorKind::Current   ? 5000.0
                                                                             : 100.0;
            fault.magnitude = entry.Number("magnitude", 0.001, 1e6, byDefault);
        } else if (entry.Has("magnitude")) {
            document.Fail(entry.Member("magnitude"), entry.PathOf("magnitude"),
                          "only a spike takes a magnitude");
        }
    } else if (type == "node_fault") {
        ObjectReader entry(document, value, path, {"at_s", "type", "duration_s", "node", "mode"});
        fault.kind = FaultKind::Node;
        readSpan(entry, fault, duration_s);
        fault.node = choose<std::string>(entry, "node", "a node",
                                         {{"efps_max", "efps_max"}, {"egl_buf", "egl_buf"}});
        fault.nodeMode = choose<NodeMode>(entry, "mode", "a node fault mode",
                                          {{"read_only", NodeMode::ReadOnly},
                                           {"missing", NodeMode::Missing},
                                           {"rewritten", NodeMode::Rewritten}});
    } else if (type == "host_stall") {
        ObjectReader entry(document, value, path, {"at_s", "type", "duration_s"});
        fault.kind = FaultKind::HostStall;
        readSpan(entry, fault, duration_s);
    } else {
        ObjectReader entry(document, value, path,
                           {"at_s", "type", "duration_s", "records_per_s", "invalid_share"});
        fault.kind = FaultKind::SettingsStorm;
        readSpan(entry, fault, duration_s);
        fault.recordsPerSecond = entry.Number("records_per_s", 0.01, 1000.0);
        fault.invalidShare = entry.Number("invalid_share", 0.0, 1.0);
    }
    return fault;
}

// What one fault event occupies: two events holding the same resource at once cannot be told
// apart in the model (which one ends the stuck reading, whose text the node keeps).
std::string resourceOf(const FaultEvent& fault) {
    switch (fault.kind) {
        case FaultKind::Sensor:
            return std::string("sensor ") + kSensorNames[static_cast<size_t>(fault.sensor)];
        case FaultKind::Node:
            return "node " + fault.node;
        case FaultKind::HostStall:
            return "host stall";
        case FaultKind::SettingsStorm:
            return "settings storm";
    }
    return "";
}

struct FaultInForce {
    double end_s;
    std::string where;
};

// Replaces an earlier record of the same key, so that a storm re-sends each setting once per
// round, with its latest value.
void keepInForce(std::vector<UserSettings::UserSetting>& inForce,
                 const std::vector<UserSettings::UserSetting>& records) {
    for (const auto& record : records) {
        inForce.erase(std::remove_if(inForce.begin(), inForce.end(),
                                     [&record](const UserSettings::UserSetting& kept) {
                                         return kept.category == record.category &&
                                                kept.key == record.key;
                                     }),
                      inForce.end());
        inForce.push_back(record);
    }
}

// What the events listed so far leave in force, for the checks on the next one.
struct EventsSoFar {
    bool paused = false;
    double lastAt_s = 0.0;
    std::map<std::string, FaultInForce> faultsInForce;  // by resource
    std::vector<UserSettings::UserSetting> settingsInForce;
};

void readFaultEvent(const JsonDocument& document, const Json::Value& item, const std::string& path,
                    const std::string& type, EventsSoFar& sofar, Scenario& scenario) {
    FaultEvent fault = readFault(document, item, path, type, scenario.duration_s);
    if (fault.at_s < sofar.lastAt_s) {
        document.Fail(item, path, "events must be listed in time order");
    }
    if (sofar.paused) document.Fail(item, path, "a fault cannot start while the game is paused");
    const std::string resource = resourceOf(fault);
    const auto earlier = sofar.faultsInForce.find(resource);
    if (earlier != sofar.faultsInForce.end() && earlier->second.end_s > fault.at_s) {
        document.Fail(item, path,
                      "overlaps the " + resource + " fault at " + earlier->second.where +
                          " (until " + ShortNumber(earlier->second.end_s) + " s); one at a time");
    }
    if (fault.kind == FaultKind::SettingsStorm) {
        if (sofar.settingsInForce.empty() && fault.invalidShare < 1.0) {
            document.Fail(item, path,
                          "no setting is in force to re-send as a valid record (use "
                          "invalid_share 1, or set one before the storm)");
        }
        fault.settingsInForce = sofar.settingsInForce;
    }
    sofar.faultsInForce[resource] = {fault.End_s(), fault.where};
    sofar.lastAt_s = fault.at_s;
    scenario.faults.push_back(std::move(fault));
}

// A pause, a resume or a settings event.
void readGameEvent(const JsonDocument& document, const Json::Value& item, const std::string& path,
                   const std::string& type, EventsSoFar& sofar, Scenario& scenario) {
    ObjectReader entry(document, item, path, {"at_s", "type", "param1"});
    ScenarioEvent event;
    event.where = document.Where(item);
    event.at_s = entry.Number("at_s", 0.0, scenario.duration_s);
    if (type == "pause") {
        if (sofar.paused) document.Fail(item, path, "pause while the game is already paused");
        for (const auto& [resource, fault] : sofar.faultsInForce) {
            if (fault.end_s > event.at_s) {
                document.Fail(item, path,
                              "pause while the " + resource + " fault at " + fault.where +
                                  " lasts (until " + ShortNumber(fault.end_s) +
                                  " s); a fault must end before the game pauses");
            }
        }
        event.type = EventType::Pause;
        sofar.paused = true;
        sofar.settingsInForce.clear();  // the library forgets a paused game's settings
    } else if (type == "resume") {
        if (!sofar.paused) document.Fail(item, path, "resume while the game is not paused");
        event.type = EventType::Resume;
        sofar.paused = false;
    } else if (type == "settings") {
        event.type = EventType::Settings;
        event.settings = readCommand(document, entry.Member("param1"), entry.PathOf("param1"));
        keepInForce(sofar.settingsInForce, event.settings);
    } else {
        const std::string written = entry.String("type");
        document.Fail(entry.Member("type"), entry.PathOf("type"),
                      "'" + written +
                          "' is not an event type (pause, resume, settings, sensor_fault, "
                          "node_fault, host_stall, settings_storm)");
    }
    if (event.type != EventType::Settings && entry.Has("param1")) {
        document.Fail(entry.Member("param1"), entry.PathOf("param1"),
                      "only settings events take a command");
    }
    if (event.at_s < sofar.lastAt_s)
        document.Fail(item, path, "events must be listed in time order");
    sofar.lastAt_s = event.at_s;
    scenario.events.push_back(std::move(event));
}

void readEvents(const JsonDocument& document, const Json::Value& value, Scenario& scenario) {
    ExpectArray(document, value, "events");
    EventsSoFar sofar;
    sofar.settingsInForce = scenario.settings;
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
        const std::string path = indexed("events", i);
        const Json::Value& item = value[i];
        const std::string type =
            item.isObject() && item["type"].isString() ? item["type"].asString() : std::string();
        if (type == "sensor_fault" || type == "node_fault" || type == "host_stall" ||
            type == "settings_storm") {
            readFaultEvent(document, item, path, type, sofar, scenario);
        } else {
            readGameEvent(document, item, path, type, sofar, scenario);
        }
    }
}

void readConfig(const JsonDocument& document, const Json::Value& value, Scenario& scenario) {
    ObjectReader config(document, value, "config", {"pid", "lifeCycle", "package", "param"});
    scenario.pid = config.Integer("pid", 1, INT_MAX);
    config.Integer("lifeCycle", INT_MIN, INT_MAX);
    scenario.package = config.String("package");
    std::vector<std::string> places;
    size_t expected = 0;
    if (config.Has("param")) {
        const std::string path = config.PathOf("param");
        const Json::Value& commands = ExpectArray(document, config.Member("param"), path);
        for (Json::ArrayIndex i = 0; i < commands.size(); ++i) {
            ObjectReader command(document, commands[i], indexed(path, i), {"param1"});
            const Json::Value& text = command.Member("param1");
            const size_t records = readCommand(document, text, command.PathOf("param1")).size();
            places.insert(places.end(), records,
                          document.Where(text) + ": " + command.PathOf("param1"));
            expected += records;
        }
    }

    // The host hands the library the document as text; so does the simulator.
    scenario.configText = document.Slice(value);
    const auto parsed = android::talvex::OnlineConfigJsonParser::Parse(scenario.configText);
    if (parsed.GetPID() != scenario.pid || parsed.GetTargetApp() != scenario.package ||
        parsed.GetSettings()->size() != expected) {
        document.Fail(value, "config", "refused by the library's online configuration parser");
    }
    scenario.settings = *parsed.GetSettings();
    scenario.settingPlaces = std::move(places);
}

void addCommands(const std::vector<std::string>& commands, Scenario& scenario) {
    for (const std::string& command : commands) {
        if (std::count(command.begin(), command.end(), ',') != 2) {
            throw InputError("--set '" + command + "': expected CATEGORY,KEY,VALUE");
        }
        android::talvex::OnlineConfigJsonParser parser;
        std::string consumed = command;
        parser.ParseCmd(consumed);
        for (const auto& setting : *parser.GetSettings()) {
            scenario.settings.push_back(setting);
            scenario.settingPlaces.push_back("--set");
        }
        scenario.addedCommands.push_back(command);
    }
}

}  // namespace

const char* DisplayParams::ModeName(DisplayMode mode) {
    switch (mode) {
        case DisplayMode::Fixed:
            return "fixed";
        case DisplayMode::Vrr:
            return "vrr";
        case DisplayMode::Modes:
            return "modes";
    }
    return "fixed";
}

std::string FaultEvent::Detail() const {
    static const char* const kSensorModes[] = {"nan", "stuck", "spike"};
    static const char* const kNodeModes[] = {"read_only", "missing", "rewritten"};
    static const char* const kUnits[] = {" \u00b0C", " mA", ""};
    switch (kind) {
        case FaultKind::Sensor: {
            const auto sensorIndex = static_cast<size_t>(sensor);
            std::string text = std::string(kSensorNames[sensorIndex]) + " " +
                               kSensorModes[static_cast<size_t>(sensorMode)];
            if (sensorMode == SensorMode::Spike) {
                text += " +" + ShortNumber(magnitude) + kUnits[sensorIndex];
            }
            return text;
        }
        case FaultKind::Node:
            return node + " " + kNodeModes[static_cast<size_t>(nodeMode)];
        case FaultKind::HostStall:
            return "no host ticks";
        case FaultKind::SettingsStorm:
            return ShortNumber(recordsPerSecond) + "/s, " + ShortNumber(invalidShare * 100.0) +
                   "% invalid";
    }
    return "";
}

std::string ReadTextFile(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        throw InputError(path + ": no such file");
    }
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file.good() && !file.eof()) throw InputError(path + ": cannot be read");
    return text.str();
}

Scenario LoadScenarioText(const std::string& text, const std::string& sourceName,
                          const std::string& fallbackName, const std::vector<std::string>& added) {
    const JsonDocument document(text, sourceName);
    const Json::Value& root = document.Root();
    ObjectReader top(
        document, root, "",
        {"name", "description", "duration_s", "seed", "refresh_rate_hz", "host_tick", "display",
         "game", "device", "events", "config", "pacing", "pacing_latch_margin_ms"});
    Scenario scenario;
    scenario.sourceName = sourceName;
    scenario.name = top.String("name", fallbackName);
    checkName(document, top.Has("name") ? top.Member("name") : root, scenario.name);
    scenario.description = top.String("description", "");
    scenario.duration_s = top.Number("duration_s", 1.0, kLongestRun_s);
    scenario.seed = top.Unsigned64("seed", scenario.seed);
    scenario.refreshRate_Hz = top.Integer("refresh_rate_hz", 1, 1000, scenario.refreshRate_Hz);
    const std::optional<Pacing> pacing = PacingNamed(top.String("pacing", "quota"));
    if (!pacing) {
        document.Fail(top.Member("pacing"), "pacing",
                      "expected \"quota\", \"deadline\" or \"deadline-vsync\"");
    }
    scenario.pacing = *pacing;
    if (top.Has("pacing_latch_margin_ms")) {
        scenario.pacingLatchMargin_ms = top.Number("pacing_latch_margin_ms", 0.0, 1000.0);
    }
    static const Json::Value kNoFields(Json::objectValue);
    scenario.display = readDisplay(document, top.Has("display") ? top.Member("display") : kNoFields,
                                   scenario.refreshRate_Hz);
    if (top.Has("host_tick")) {
        const Json::Value& tick = top.Member("host_tick");
        if (tick.isString() && tick.asString() == "frame") {
            scenario.tickEveryFrame = true;
        } else if (tick.isString()) {
            document.Fail(tick, "host_tick", "expected \"frame\" or a period in seconds");
        } else {
            scenario.tick_s = ExpectNumber(document, tick, "host_tick", 0.01, 60.0);
        }
    }
    scenario.game = readGame(document, top.Member("game"), scenario.duration_s);
    if (top.Has("device")) scenario.device = readDevice(document, top.Member("device"));
    // The configuration first: a settings storm re-sends the settings in force.
    readConfig(document, top.Member("config"), scenario);
    addCommands(added, scenario);
    if (top.Has("events")) readEvents(document, top.Member("events"), scenario);
    return scenario;
}

Scenario LoadScenarioFile(const std::string& path, const std::vector<std::string>& added) {
    return LoadScenarioText(ReadTextFile(path), path, std::filesystem::path(path).stem().string(),
                            added);
}

Scenario LoadDefaultScenario(const std::vector<std::string>& added) {
    return LoadScenarioText(DefaultScenarioText(), "<default scenario>", "default", added);
}

std::string OnlineConfigJson(const Scenario& scenario) {
    // The loader admits no other members, so the document is written out by hand in the layout
    // people write it in, one record a line.
    const JsonDocument config(scenario.configText, scenario.sourceName);
    const Json::Value& root = config.Root();
    std::vector<std::string> commands;
    for (const Json::Value& entry : root["param"]) commands.push_back(entry["param1"].asString());
    commands.insert(commands.end(), scenario.addedCommands.begin(), scenario.addedCommands.end());
    std::string text = "{\n  \"pid\": " + std::to_string(root["pid"].asInt()) +
                       ",\n  \"lifeCycle\": " + std::to_string(root["lifeCycle"].asInt()) +
                       ",\n  \"package\": " + Json::valueToQuotedString(scenario.package.c_str()) +
                       ",\n  \"param\": [";
    for (size_t i = 0; i < commands.size(); ++i) {
        text += std::string(i == 0 ? "\n" : ",\n") +
                "    {\"param1\": " + Json::valueToQuotedString(commands[i].c_str()) + "}";
    }
    return text + (commands.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace TalvexSim
