#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "talvex/user_settings/UserSetting.h"
#include "tools/sim/input/DeviceParts.h"
#include "tools/sim/input/Pacing.h"

namespace TalvexSim {

// A stretch of the game that costs more per frame (a boss fight, a crowded scene).
struct HeavyScene {
    double start_s = 0.0;
    double duration_s = 0.0;
    double workFactor = 1.0;
};

struct GameParams {
    double targetFps = 60.0;  // the game's own frame-rate cap
    double workMs = 9.0;      // mean CPU+GPU work of one frame at work factor 1
    // On a device of real parts: the CPU's and the GPU's work at full clocks (both work_ms when
    // not given), and how each stretches as its clock falls, (f_max / f)^exponent.
    double cpuMs = 9.0;
    double gpuMs = 9.0;
    double cpuExponent = 0.6;
    double gpuExponent = 0.88;
    double jitter = 0.1;       // relative standard deviation of the work
    double spikeChance = 0.0;  // per frame: a hitch of spikeFactor times the work
    double spikeFactor = 2.5;
    std::vector<HeavyScene> heavyScenes;
    // The four CPU readings of the host record while the game is busy all the time; they scale
    // with the share of the time the game actually works.
    std::array<double, 4> cpuUtilFullLoad{{100.0, 60.0, 35.0, 15.0}};
};

// A step-wise thermal governor of the kernel: polls the SoC's temperature, goes one cooling
// state up per poll above the trip and one down per poll below the trip minus the hysteresis.
// Each state takes a fixed share of the full clock away.
struct GovernorParams {
    double trip_C = 45.0;
    double hysteresis_C = 2.0;
    double poll_s = 0.25;
    int maxState = 5;
    double clockStep = 0.1;  // share of the full clock each state takes away
};

struct DeviceParams {
    double ambient_C = 25.0;
    double initial_C = 25.0;
    double thermalResistance_CPerW = 4.4;  // steady-state rise per watt drawn
    double thermalTimeConstant_s = 200.0;
    double idlePower_W = 1.0;         // screen, radios and the rest while the game runs
    double pausedPower_W = 0.4;       // while the game is in the background
    double energyPerFrame_mJ = 70.0;  // at work factor 1; power grows with the frame rate
    double batteryVoltage_V = 3.85;
    double currentNoise_mA = 20.0;     // standard deviation of the current reading
    double temperatureNoise_C = 0.05;  // standard deviation of the temperature reading
    double sensorPeriod_s = 1.0;       // the host reads both sensors this often and holds them
    GovernorParams governor;
    // A device made of real parts, from a profile (`device.profile`); the fields above that
    // describe the older model's heat and clock do not apply then.
    std::optional<DevicePartsParams> parts;
};

// The panel the frames are shown on. A buffer ready `latchMargin_ms` before a refresh is latched
// at it and reaches the glass `compositionDelay_ms` later; a later one waits for the next refresh
// while the previous image stays. The game cannot start a frame while every buffer is queued or
// on screen.
enum class DisplayMode {
    Fixed,  // every refresh at the scenario's refresh rate
    Vrr,    // a ready frame at once, between one period of the top rate and one of vrrMin_Hz
    Modes,  // the lowest listed rate that is a whole multiple of the rate held, else the top one
};

struct DisplayParams {
    DisplayMode mode = DisplayMode::Fixed;
    int buffers = 3;
    double latchMargin_ms = 1.0;
    double compositionDelay_ms = 1000.0 / 60;  // a scenario's default: one period of its top rate
    double vrrMin_Hz = 30.0;                   // or the top rate when that is lower
    std::vector<int> modes_Hz;  // ascending, each at most the scenario's refresh rate

    static const char* ModeName(DisplayMode mode);
};

enum class EventType { Pause, Resume, Settings };

struct ScenarioEvent {
    double at_s = 0.0;
    EventType type = EventType::Pause;
    std::vector<UserSettings::UserSetting> settings;  // Settings events only
    std::string where;                                // "file:line:column" of the event
};

// Something a real device does to the host or the game for a while. Faults of different kinds
// may overlap; two of one sensor, of one node, two stalls or two storms may not, and none starts
// while the game is paused or lasts into a pause or past the end of the run.
enum class FaultKind { Sensor, Node, HostStall, SettingsStorm };
enum class SensorKind { Temperature, Current, Cpu };
// Nan: the host's read fails, and its -1 reaches the unsigned record as all ones. Stuck: the
// reading keeps the value it had when the fault began. Spike: the reading is raised by the
// magnitude (in C, mA or CPU reading units).
enum class SensorMode { Nan, Stuck, Spike };
// ReadOnly: the node keeps its text and refuses writes. Missing: it can be neither read nor
// created. Rewritten: another writer puts its own text there every second.
enum class NodeMode { ReadOnly, Missing, Rewritten };

struct FaultEvent {
    FaultKind kind = FaultKind::Sensor;
    double at_s = 0.0;
    double duration_s = 0.0;
    std::string where;  // "file:line:column" of the event
    SensorKind sensor = SensorKind::Temperature;
    SensorMode sensorMode = SensorMode::Nan;
    double magnitude = 0.0;  // Spike only
    std::string node;        // "efps_max" or "egl_buf"
    NodeMode nodeMode = NodeMode::ReadOnly;
    double recordsPerSecond = 0.0;
    double invalidShare = 0.0;
    // A storm's valid records: the settings in force when it starts, as they were written, so
    // that re-sending them changes nothing.
    std::vector<UserSettings::UserSetting> settingsInForce;

    double End_s() const { return at_s + duration_s; }
    std::string Detail() const;  // "temperature nan", "efps_max read_only", "20/s, 30% invalid"
};

struct Scenario {
    std::string name;
    std::string description;
    std::string sourceName;  // the file, or "<default scenario>"
    double duration_s = 0.0;
    std::uint64_t seed = 1;
    int refreshRate_Hz = 60;  // the panel's highest
    DisplayParams display;
    // The host ticks the FPS manager either at a fixed period or once per frame (then with
    // the OFPS of the last second); the timeline has a row per tick, or per second.
    bool tickEveryFrame = false;
    double tick_s = 1.0;
    GameParams game;
    DeviceParams device;
    std::vector<ScenarioEvent> events;  // ordered by time
    Pacing pacing = Pacing::Quota;
    // The latch margin a pacer fed the vsyncs is told; unset, the display's plus a headroom.
    std::optional<double> pacingLatchMargin_ms;
    std::vector<FaultEvent> faults;  // ordered by start

    // The online configuration exactly as written, and what the library's parser made of it.
    int pid = 0;
    std::string package;
    std::string configText;
    std::vector<UserSettings::UserSetting> settings;
    std::vector<std::string> settingPlaces;  // where each record of `settings` was written
    // Records given beside the file ("category,key,value"), applied after the configuration's.
    std::vector<std::string> addedCommands;
};

// All throw InputError naming the file and the place of the first fault. `added` are setting
// records ("category,key,value") applied after the configuration's own, as if written at the end
// of its "param" list; a storm re-sends them too.
Scenario LoadScenarioFile(const std::string& path, const std::vector<std::string>& added = {});
Scenario LoadScenarioText(const std::string& text, const std::string& sourceName,
                          const std::string& fallbackName,
                          const std::vector<std::string>& added = {});
Scenario LoadDefaultScenario(const std::vector<std::string>& added = {});

// The online configuration the scenario runs with, added records included, as a host would pass
// it: loaded back as a scenario's "config" it gives the same records.
std::string OnlineConfigJson(const Scenario& scenario);

// Whole file, or InputError when it cannot be read.
std::string ReadTextFile(const std::string& path);

}  // namespace TalvexSim
