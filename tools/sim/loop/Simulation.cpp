#include "tools/sim/loop/Simulation.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>

#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"
#include "talvex/pacing/Quillet.h"
#include "tools/sim/model/DeviceModel.h"
#include "tools/sim/model/Faults.h"
#include "tools/sim/model/GameModel.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/base/Random.h"

namespace TalvexSim {
namespace {

using android::FpsStabilizer::FpsManager;
using android::FpsStabilizer::SYS_INFO;
using android::Nimbrel::Quillet::Quillet;
using SettingList = std::vector<UserSettings::UserSetting>;

// Streams of DeriveSeed, one per model.
enum : std::uint64_t { kGameStream = 1, kDeviceStream = 2, kSleepStream = 3 };

// A sleep never wakes early and usually overshoots by this much.
constexpr double kLeastOversleep_ms = 0.05;
constexpr double kMostOversleep_ms = 0.08;
// The FPS manager states its final EFPS only at this level.
constexpr int kLevelShowingEfps = 3;
// The pacing object holds targets from this rate up; below it paces nothing or explores.
constexpr int kLeastHeldTarget = 11;
// A frame this many held periods long or longer is a visible stutter.
constexpr double kJankFactor = 1.5;

std::int64_t secondsToNs(double seconds) { return std::llround(seconds * 1e9); }
std::int64_t millisecondsToNs(double milliseconds) { return std::llround(milliseconds * 1e6); }
double nsToSeconds(std::int64_t ns) { return static_cast<double>(ns) / 1e9; }

std::string describe(const UserSettings::UserSetting& setting) {
    return setting.category + "," + setting.key + "," + setting.value;
}

std::string indented(const std::string& text) {
    std::string out = "    ";
    for (const char c : text) {
        out += c;
        if (c == '\n') out += "    ";
    }
    while (!out.empty() && (out.back() == ' ' || out.back() == '\n')) out.pop_back();
    return out;
}

// What a simulation changes in the process, restored when it ends: the clock, the node
// directory, the log receiver, the trace receiver and the library's log switches.
class Session {
  public:
    Session(const Scenario& scenario_, const RunOptions& options, int refreshRate_Hz,
            bool withManager)
        : scenario(scenario_),
          nodes(options.nodeDirectory, TalvexHarness::WriteCounting::On),
          trace(std::make_unique<TraceRecorder>(options.frameDetail)) {
        log.SetStampWithVirtualTime(true);
        log.SetSink(options.logSink);
        ApplyToBounds(bounds, scenario.settings);
        trace->Activate();
        trace->SetTrack(TraceTrack::Host);
        if (!withManager) return;
        manager = std::make_unique<FpsManager>(scenario.pid, refreshRate_Hz);
        try {
            applyInitialSettings();
        } catch (...) {
            manager->OnPause();
            throw;
        }
    }

    ~Session() {
        quillet.reset();
        if (manager) manager->OnPause();
        if (trace) trace->Deactivate();
    }

    // The host pauses a manager before destroying it, so that the settings center forgets
    // the actions that point into it.
    void End(RunResult& result) {
        nodes.CountWrites();
        result.efpsMaxWrites = nodes.Writes("efps_max");
        result.eglBufWrites = nodes.Writes("egl_buf");
        trace->SetTrack(TraceTrack::Render);
        quillet.reset();
        trace->SetTrack(TraceTrack::Host);
        if (manager) manager->OnPause();
        manager.reset();
        trace->Deactivate();
        result.trace = std::move(trace);
        result.libraryLog = log.Text();
        result.libraryErrors = log.ErrorCount();
        result.libraryWarnings = log.WarningCount();
        result.escapedExceptions = escapedExceptions;
    }

    // One host tick; with `readEfps`, the EFPS as the manager stated it, which costs the
    // formatting of every DEBUG message of the tick.
    std::optional<int> Tick(const SYS_INFO& info, int ofps, int refreshRate_Hz, bool readEfps) {
        trace->SetTrack(TraceTrack::Host);
        const int level = Basics::Log::LogLevel();
        log.SetVisibleLevel(level);
        log.ClearEfps();
        if (readEfps) Basics::Log::SetLogLevel(std::max(level, kLevelShowingEfps));
        Guard([&] { manager->Update(info, ofps, refreshRate_Hz); });
        Guard([&] { manager->PostUpdate(); });
        Basics::Log::SetLogLevel(level);
        return log.Efps();
    }

    // True when the library took every record without an error.
    bool ApplySettings(const SettingList& settings) {
        if (!manager) return true;
        trace->SetTrack(TraceTrack::Host);
        log.SetVisibleLevel(Basics::Log::LogLevel());
        const size_t errorsBefore = log.ErrorCount();
        const std::uint64_t escapedBefore = escapedExceptions;
        Guard([&] {
            manager->OnUserSettingParameters(std::make_shared<const SettingList>(settings));
        });
        return log.ErrorCount() == errorsBefore && escapedExceptions == escapedBefore;
    }

    // Nothing the library raises may leave a call; one that does is counted, not fatal.
    template <typename Call>
    void Guard(Call&& call) {
        try {
            call();
        } catch (...) {
            ++escapedExceptions;
        }
    }

    LibraryCounts Counts() const {
        return {log.ErrorCount(), log.WarningCount(), escapedExceptions};
    }

    // A refusal in the middle of a run may be the point of the scenario (the settings of a
    // paused game are forgotten), so it is reported, not fatal.
    void ApplyEvent(const ScenarioEvent& event, RunResult& result) {
        ApplyToBounds(bounds, event.settings);
        if (ApplySettings(event.settings)) return;
        std::string records;
        for (const auto& setting : event.settings) {
            records += (records.empty() ? "'" : ", '") + describe(setting) + "'";
        }
        result.refusedEvents.push_back(event.where + ": the library refused " + records +
                                       " (see library.log)");
    }

    std::string NodeText() const { return manager ? nodes.Read("efps_max") : std::string(); }
    int Gfps() const { return manager ? manager->GetGFPS() : -1; }
    int Sfps() const { return manager ? manager->GetSFPS() : -1; }

    const Scenario& scenario;
    TalvexHarness::LogSwitchesScope logSwitches{Basics::Log::LogLevel(), Basics::Log::IsDebug()};
    TalvexHarness::VirtualClock clock;
    TalvexHarness::LogSink log{TalvexHarness::LogSink::Mode::Lines};
    TalvexHarness::NodeDirectory nodes;
    std::unique_ptr<TraceRecorder> trace;
    std::unique_ptr<FpsManager> manager;
    std::unique_ptr<Quillet> quillet;
    std::uint64_t escapedExceptions = 0;
    DeciderBounds bounds;  // as the settings applied so far leave them

  private:
    // One record at a time, so that a refusal names the line it came from.
    void applyInitialSettings() {
        for (size_t i = 0; i < scenario.settings.size(); ++i) {
            const size_t errorsBefore = log.ErrorCount();
            if (!ApplySettings({scenario.settings[i]})) {
                throw InputError(scenario.settingPlaces[i] + ": the library refused '" +
                                 describe(scenario.settings[i]) + "':\n" +
                                 indented(log.Error(errorsBefore)));
            }
        }
    }
};

class ClosedLoop {
  public:
    ClosedLoop(const Scenario& scenario_, const RunOptions& options_)
        : scenario(scenario_),
          options(options_),
          session(scenario_, options_, scenario_.refreshRate_Hz, options_.policy.UsesManager()),
          game(scenario_.game, scenario_.refreshRate_Hz, DeriveSeed(scenario_.seed, kGameStream)),
          device(scenario_.device, options_.policy.GovernorOn(),
                 DeriveSeed(scenario_.seed, kDeviceStream)),
          sleepRandom(DeriveSeed(scenario_.seed, kSleepStream)),
          duration_ns(secondsToNs(scenario_.duration_s)),
          row_ns(scenario_.tickEveryFrame ? kSecond_ns : secondsToNs(scenario_.tick_s)),
          nextRow_ns(row_ns),
          minFramePeriod_ns(millisecondsToNs(game.MinFramePeriodMs())),
          sensorPeriod_ns(secondsToNs(scenario_.device.sensorPeriod_s)),
          capFps(GameModel::CapFps(scenario_.game, scenario_.refreshRate_Hz)),
          faults(scenario_, session.nodes) {
        session.trace->SetHostAtFrameRate(scenario.tickEveryFrame);
        if (options.policy.kind == PolicyKind::Fixed) target = options.policy.fixedFps;
        createQuillet();
    }

    RunResult Run() {
        std::int64_t now = 0;
        size_t nextEvent = 0;
        const std::vector<ScenarioEvent>& events = scenario.events;
        while (now < duration_ns) {
            while (nextEvent < events.size() && secondsToNs(events[nextEvent].at_s) <= now) {
                const ScenarioEvent& event = events[nextEvent++];
                if (event.type == EventType::Pause) {
                    now = sitOutPause(now, nextEvent);
                } else if (event.type == EventType::Settings) {
                    session.ApplyEvent(event, result);
                }
            }
            if (now >= duration_ns) break;
            now = frame(now);
        }
        advance(duration_ns);
        flushPendingRows(read(duration_ns, 0.0));

        result.simulated_s = scenario.duration_s;
        result.running_s = scenario.duration_s - nsToSeconds(paused_ns);
        result.faults = faults.Finish(session.Counts());
        session.End(result);
        return std::move(result);
    }

  private:
    static constexpr std::int64_t kSecond_ns = 1'000'000'000;

    // A second of the timeline whose frames are known but whose row waits for the host tick
    // that ends the frame crossing into the next second.
    struct PendingRow {
        std::int64_t time_ns;
        std::vector<float> frames_ms;
        int exploringTicks;
        int exploringSfps;
        int jankFrames;
    };

    std::int64_t frame(std::int64_t start) {
        session.trace->SetTrack(TraceTrack::Render);
        if (session.quillet) {
            session.Guard([&] {
                session.quillet->Update(target, scenario.refreshRate_Hz, scenario.refreshRate_Hz);
            });
        }
        const double nominalWork_ms = game.NextWorkMs(nsToSeconds(start));
        const double work_ms = nominalWork_ms / device.Clock();
        const std::int64_t workDone = start + millisecondsToNs(work_ms);
        advance(workDone);

        session.trace->SetTrack(TraceTrack::Render);
        float sleep_ms = 0.0f;
        if (session.quillet) {
            session.Guard([&] { sleep_ms = session.quillet->CalculateSleepDuration_ms(); });
        }
        // Each write must be taken in before the next one, or the kernel merges the two.
        session.nodes.CountWrites();
        const std::int64_t slept =
            sleep_ms > 0.0f ? millisecondsToNs(sleep_ms + sleepRandom.Uniform(kLeastOversleep_ms,
                                                                              kMostOversleep_ms))
                            : 0;
        const std::int64_t end = std::max(workDone + slept, start + minFramePeriod_ns);
        advance(std::min(end, duration_ns));
        if (end > duration_ns) return duration_ns;

        session.trace->SetTrack(TraceTrack::Render);
        if (session.quillet) session.Guard([&] { session.quillet->PostUpdate(); });
        faults.OnFrame();
        const auto length_ms = static_cast<float>(static_cast<double>(end - start) / 1e6);
        secondFrames_ms.push_back(length_ms);
        result.frames.Add(length_ms);
        if (length_ms > kJankFactor * 1000.0 / heldFps()) ++secondJank;
        periodWork_ms += work_ms;
        device.AddFrame(game.RelativeWork(nominalWork_ms));
        if (scenario.tickEveryFrame) tickAfterFrame(end, work_ms / (length_ms > 0 ? length_ms : 1));
        return end;
    }

    // The game is in the background: no frames and no ticks of the manager until it resumes,
    // while the device cools and settings may still arrive.
    std::int64_t sitOutPause(std::int64_t start, size_t& nextEvent) {
        session.trace->SetTrack(TraceTrack::Render);
        session.quillet.reset();  // the surface goes away with the game
        session.trace->SetTrack(TraceTrack::Host);
        if (session.manager) session.Guard([&] { session.manager->OnPause(); });
        session.nodes.CountWrites();
        paused = true;
        readTarget(start);
        flushPendingRows(read(start, 0.0));

        std::int64_t resumed = duration_ns;
        while (nextEvent < scenario.events.size()) {
            const ScenarioEvent& event = scenario.events[nextEvent++];
            const std::int64_t at = std::max(secondsToNs(event.at_s), start);
            advance(at);
            if (event.type == EventType::Resume) {
                resumed = at;
                break;
            }
            if (event.type == EventType::Settings) session.ApplyEvent(event, result);
        }
        advance(resumed);
        paused_ns += resumed - start;
        recentFrameEnds_ns.clear();
        if (resumed >= duration_ns) return duration_ns;

        if (session.manager) session.Guard([&] { session.manager->OnResume(scenario.pid); });
        createQuillet();
        paused = false;
        runningSince_ns = resumed;
        return resumed;
    }

    void createQuillet() {
        const PolicyKind kind = options.policy.kind;
        if (kind != PolicyKind::Library && kind != PolicyKind::Fixed) return;
        session.trace->SetTrack(TraceTrack::Render);
        session.quillet =
            std::make_unique<Quillet>(options.policy.pacing.value_or(scenario.pacing));
        session.nodes.CountWrites();
    }

    // Passes the row times (and with a periodic host its ticks) due up to that time, then
    // moves the clock there.
    void advance(std::int64_t time) {
        while (true) {
            const std::int64_t row = nextRow_ns <= duration_ns ? nextRow_ns : FaultInjector::kNever;
            if (faults.NextDue_ns() <= std::min(time, row)) {
                runFaults(faults.NextDue_ns());
                continue;
            }
            if (row > time) break;
            session.clock.AdvanceTo(nextRow_ns);
            if (!scenario.tickEveryFrame) {
                periodicTick(nextRow_ns);
            } else if (paused) {
                pausedRow(nextRow_ns);
            } else {
                pendingRows.push_back({nextRow_ns, std::move(secondFrames_ms), exploringTicks,
                                       exploringSfps, secondJank});
                secondFrames_ms.clear();
                exploringTicks = 0;
                secondJank = 0;
            }
            nextRow_ns += row_ns;
        }
        session.clock.AdvanceTo(time);
    }

    // The injector's actions at their own time, between the loop's row times and ticks.
    void runFaults(std::int64_t time) {
        session.clock.AdvanceTo(time);
        session.trace->SetTrack(TraceTrack::Host);
        const bool nodeChanged =
            faults.RunDue(time, session.Counts(),
                          [this](const SettingList& records) { session.ApplySettings(records); });
        session.nodes.CountWrites();
        if (nodeChanged && !paused) readTarget(time);
    }

    struct Readings {
        SYS_INFO info{};
        double temperature_C = 0.0;
        double current_mA = 0.0;
    };

    // The device moves on continuously; its sensors are read only once per sensor period and
    // held in between, as a host polls them.
    Readings read(std::int64_t time, double busyShare) {
        device.Advance(nsToSeconds(time - deviceTime_ns), paused);
        deviceTime_ns = time;
        if (!sensorsRead || time - sensorsRead_ns >= sensorPeriod_ns) {
            sensors.info.electricCurrent_uA = device.ReadCurrent_uA();
            sensors.info.temperature_mC = device.ReadTemperature_mC();
            sensors.temperature_C = sensors.info.temperature_mC / 1000.0;
            sensors.current_mA = sensors.info.electricCurrent_uA / 1000.0;
            sensorsRead = true;
            sensorsRead_ns = time;
        }
        Readings readings = sensors;
        const auto cpu = game.CpuReadings(busyShare);
        std::copy(cpu.begin(), cpu.end(), readings.info.cpuUtils);
        return readings;
    }

    void periodicTick(std::int64_t time) {
        const Readings readings = read(time, periodWork_ms / (scenario.tick_s * 1000.0));
        periodWork_ms = 0.0;
        TimelineRow row;
        if (!paused) {
            row.ofps = static_cast<int>(
                std::llround(static_cast<double>(secondFrames_ms.size()) / scenario.tick_s));
            if (session.manager && !faults.HostStalled()) {
                row.efps = hostTick(time, readings.info, row.ofps, true);
                countExploring();
            }
            row.frames = ComputeFrameStats(secondFrames_ms);
            row.exploringTicks = exploringTicks;
            row.exploringSfps = exploringSfps;
            row.jankFrames = secondJank;
            exploringTicks = 0;
            secondJank = 0;
            session.nodes.CountWrites();
        }
        secondFrames_ms.clear();
        addRow(time, readings, std::move(row));
    }

    void pausedRow(std::int64_t time) {
        const Readings readings = read(time, 0.0);
        addRow(time, readings, TimelineRow());
    }

    // The host's tick at the end of every frame, with the frames of the last second as OFPS.
    // It measures whole seconds, so it starts ticking one second after the game (re)starts.
    void tickAfterFrame(std::int64_t end, double busyShare) {
        recentFrameEnds_ns.push_back(end);
        while (recentFrameEnds_ns.front() <= end - kSecond_ns) recentFrameEnds_ns.pop_front();
        const Readings readings = read(end, busyShare);
        if (!session.manager || end - runningSince_ns < kSecond_ns) {
            flushPendingRows(readings);
            return;
        }
        const int ofps = static_cast<int>(recentFrameEnds_ns.size());
        const bool rowDue = !pendingRows.empty();
        if (faults.HostStalled()) {
            flushPendingRows(readings);
            return;
        }
        const std::optional<int> efps = hostTick(end, readings.info, ofps, rowDue);
        session.nodes.CountWrites();
        // This tick already belongs to the second after the pending rows.
        countExploring();
        const std::optional<std::uint64_t> writes = session.nodes.Writes("efps_max");
        if (!writes || *writes != efpsMaxWritesSeen) {
            efpsMaxWritesSeen = writes.value_or(0);
            readTarget(end);
        }
        for (PendingRow& pending : pendingRows) {
            TimelineRow row;
            row.ofps = ofps;
            row.efps = efps;
            row.frames = ComputeFrameStats(std::move(pending.frames_ms));
            row.exploringTicks = pending.exploringTicks;
            row.exploringSfps = pending.exploringSfps;
            row.jankFrames = pending.jankFrames;
            addRow(pending.time_ns, readings, std::move(row));
        }
        pendingRows.clear();
    }

    // The manager's tick on the record as the faulty sensors deliver it.
    std::optional<int> hostTick(std::int64_t time, SYS_INFO info, int ofps, bool readEfps) {
        faults.AlterRecord(info);
        const std::optional<int> efps = session.Tick(info, ofps, scenario.refreshRate_Hz, readEfps);
        faults.OnTick(time, session.manager->GetSFPS(), session.manager->GetGFPS());
        return efps;
    }

    // Rows with no tick to wait for (the game stops, or the host is still measuring) get the
    // state as it is.
    void flushPendingRows(const Readings& readings) {
        for (PendingRow& pending : pendingRows) {
            TimelineRow row;
            row.ofps = static_cast<int>(pending.frames_ms.size());
            row.frames = ComputeFrameStats(std::move(pending.frames_ms));
            row.exploringTicks = pending.exploringTicks;
            row.exploringSfps = pending.exploringSfps;
            row.jankFrames = pending.jankFrames;
            addRow(pending.time_ns, readings, std::move(row));
        }
        pendingRows.clear();
    }

    // A negative SFPS means the game's own rate is being explored; it often lasts only a few
    // frames, so a row counts the ticks that showed one instead of sampling it.
    void countExploring() {
        ++result.hostTicks;
        const int sfps = session.Sfps();
        if (sfps < -1) {
            ++exploringTicks;
            ++result.exploringTicks;
            exploringSfps = sfps;
        }
    }

    void addRow(std::int64_t time, const Readings& readings, TimelineRow row) {
        row.time_s = nsToSeconds(time);
        row.paused = paused;
        row.temperature_C = readings.temperature_C;
        row.current_mA = readings.current_mA;
        row.gfps = session.Gfps();
        row.sfps = session.Sfps();
        row.node = scenario.tickEveryFrame ? nodeText : readTarget(time);
        row.deviceTemperature_C = device.Temperature_C();
        row.interval_s = nsToSeconds(row_ns);
        row.power_W = (device.EnergyDrawn_J() - energyAtLastRow_J) / row.interval_s;
        energyAtLastRow_J = device.EnergyDrawn_J();
        row.heldFps = paused ? 0 : heldFps();
        row.governorState = device.GovernorState();
        row.lowerBound_C = session.bounds.temperatureLower_C;
        row.upperBound_C = session.bounds.temperatureUpper_C;
        session.trace->ModelCounter("temperature (\u00b0C)", time, row.temperature_C);
        session.trace->ModelCounter("current (mA)", time, row.current_mA);
        session.trace->ModelCounter("OFPS", time, row.ofps);
        if (options.rowSink) {
            options.rowSink(row);
        } else {
            result.rows.push_back(std::move(row));
        }
        if (options.progress) options.progress(nsToSeconds(time));
    }

    // The pacing target is whatever the node says; returns the node's text.
    const std::string& readTarget(std::int64_t time) {
        nodeText = session.NodeText();
        if (!session.manager) return nodeText;
        const int sfps = SfpsOfNodeText(nodeText);
        if (sfps != target) {
            target = sfps;
            session.trace->MarkTargetChange(time);
        }
        return nodeText;
    }

    const Scenario& scenario;
    const RunOptions& options;
    Session session;
    GameModel game;
    DeviceModel device;
    Random sleepRandom;
    const std::int64_t duration_ns;
    const std::int64_t row_ns;
    std::int64_t nextRow_ns;
    const std::int64_t minFramePeriod_ns;
    const std::int64_t sensorPeriod_ns;
    const int capFps;  // the game's own cap, or the screen's rate when that is lower

    // The rate the frames are held to: the pacing object's target while it holds one (it never
    // holds more than the screen's rate), otherwise the game's own cap.
    int heldFps() const {
        if (session.quillet && target >= kLeastHeldTarget) {
            return std::min({target, scenario.refreshRate_Hz, capFps});
        }
        return capFps;
    }
    FaultInjector faults;

    bool paused = false;
    Readings sensors;
    bool sensorsRead = false;
    std::int64_t sensorsRead_ns = 0;
    std::int64_t paused_ns = 0;
    std::int64_t deviceTime_ns = 0;
    std::int64_t runningSince_ns = 0;
    int target = -1;
    std::string nodeText;
    std::uint64_t efpsMaxWritesSeen = 0;
    std::vector<float> secondFrames_ms;
    int exploringTicks = 0;
    int exploringSfps = -1;
    double periodWork_ms = 0.0;
    int secondJank = 0;
    double energyAtLastRow_J = 0.0;
    std::deque<std::int64_t> recentFrameEnds_ns;
    std::vector<PendingRow> pendingRows;
    RunResult result;
};

}  // namespace

int SfpsOfNodeText(const std::string& text) {
    const size_t first = text.find(',');
    const size_t second = first == std::string::npos ? first : text.find(',', first + 1);
    if (second == std::string::npos) return -1;
    const std::string field = text.substr(first + 1, second - first - 1);
    char* end = nullptr;
    const long value = std::strtol(field.c_str(), &end, 10);
    if (field.empty() || *end != '\0') return -1;
    return static_cast<int>(value);
}

RunResult RunClosedLoop(const Scenario& scenario, const RunOptions& options) {
    return ClosedLoop(scenario, options).Run();
}

RunResult RunReplay(const Scenario& scenario, const std::vector<ReplayTick>& ticks,
                    const RunOptions& options) {
    RunResult result;
    if (ticks.empty()) return result;
    Session session(scenario, options, ticks.front().refreshRate_Hz, true);
    size_t nextEvent = 0;
    for (const ReplayTick& tick : ticks) {
        const std::int64_t time = secondsToNs(tick.time_s);
        while (nextEvent < scenario.events.size() &&
               secondsToNs(scenario.events[nextEvent].at_s) <= time) {
            const ScenarioEvent& event = scenario.events[nextEvent++];
            if (event.type == EventType::Settings) {
                session.clock.AdvanceTo(secondsToNs(event.at_s));
                session.ApplyEvent(event, result);
            }
        }
        session.clock.AdvanceTo(time);
        SYS_INFO info{};
        info.electricCurrent_uA = tick.current_uA;
        info.temperature_mC = tick.temperature_mC;
        std::copy(tick.cpuUtils.begin(), tick.cpuUtils.end(), info.cpuUtils);

        TimelineRow row;
        row.time_s = tick.time_s;
        row.temperature_C = tick.temperature_mC / 1000.0;
        row.current_mA = tick.current_uA / 1000.0;
        row.ofps = tick.ofps;
        row.efps = session.Tick(info, tick.ofps, tick.refreshRate_Hz, true);
        row.gfps = session.manager->GetGFPS();
        row.sfps = session.manager->GetSFPS();
        row.node = session.NodeText();
        ++result.hostTicks;
        if (row.sfps < -1) {
            ++result.exploringTicks;
            row.exploringTicks = 1;
            row.exploringSfps = row.sfps;
        }
        session.nodes.CountWrites();
        session.trace->ModelCounter("temperature (\u00b0C)", time, row.temperature_C);
        session.trace->ModelCounter("current (mA)", time, row.current_mA);
        session.trace->ModelCounter("OFPS", time, row.ofps);
        if (options.progress) options.progress(row.time_s);
        if (options.rowSink) {
            options.rowSink(row);
        } else {
            result.rows.push_back(std::move(row));
        }
    }
    result.simulated_s = ticks.back().time_s - ticks.front().time_s;
    result.running_s = result.simulated_s;
    session.End(result);
    return result;
}

}  // namespace TalvexSim
