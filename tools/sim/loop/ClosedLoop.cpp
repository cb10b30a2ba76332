#include <algorithm>
#include <deque>
#include <memory>

#include "tools/sim/base/Random.h"
#include "tools/sim/base/Units.h"
#include "tools/sim/loop/RowBuilder.h"
#include "tools/sim/loop/Sensors.h"
#include "tools/sim/loop/Session.h"
#include "tools/sim/loop/Simulation.h"
#include "tools/sim/model/DeviceModel.h"
#include "tools/sim/model/Display.h"
#include "tools/sim/model/Faults.h"
#include "tools/sim/model/GameModel.h"
#include "tools/sim/model/PartsDevice.h"
#include "tools/sim/model/SwapInterval.h"

namespace TalvexSim {
namespace {

constexpr std::int64_t kSecond_ns = 1'000'000'000;
// A sleep never wakes early and usually overshoots by this much.
constexpr double kLeastOversleep_ms = 0.05;
constexpr double kMostOversleep_ms = 0.08;
// The pacing object holds targets from this rate up; below it paces nothing or explores.
constexpr int kLeastHeldTarget = 11;
// A frame this many held periods long or longer is a visible stutter.
constexpr double kJankFactor = 1.5;
// Told to a pacer fed the display's refreshes, beyond the display's own latch margin: room for
// the sleep's oversleep to vary, so that a frame that ends a little late for its wake-up is still
// latched at the refresh it was meant for. Our choice.
constexpr double kLatchHeadroom_ms = 0.5;

// The event loop of a game session on virtual time: frames one after another, the host's ticks
// (once a period, or after every frame with the OFPS of the last second), the scenario's events
// and the fault injector's actions, each at its time.
class ClosedLoop {
  public:
    ClosedLoop(const Scenario& scenario_, const RunOptions& options_)
        : scenario(scenario_),
          options(options_),
          pacing(options_.policy.pacing.value_or(scenario_.pacing)),
          session(scenario_, options_, scenario_.refreshRate_Hz, options_.policy.UsesManager()),
          game(scenario_.game, scenario_.refreshRate_Hz,
               DeriveSeed(scenario_.seed, RandomStream::Game)),
          device(MakeDevice(scenario_, options_.policy.GovernorOn(),
                            DeriveSeed(scenario_.seed, RandomStream::Device))),
          sensors(*device, game, scenario_.device.sensorPeriod_s),
          sleepRandom(DeriveSeed(scenario_.seed, RandomStream::Sleep)),
          duration_ns(SecondsToNs(scenario_.duration_s)),
          row_ns(scenario_.tickEveryFrame ? kSecond_ns : SecondsToNs(scenario_.tick_s)),
          nextRow_ns(row_ns),
          minFramePeriod_ns(MillisecondsToNs(game.MinFramePeriodMs())),
          capFps(GameModel::CapFps(scenario_.game, scenario_.refreshRate_Hz)),
          faults(scenario_, session.Nodes()),
          rows(options_, session, device.get(), row_ns, result),
          display(scenario_.display, scenario_.refreshRate_Hz,
                  [this](const ShownFrame& shown) { onShown(shown); }) {
        result.shown = ShownFrames(1000.0 / scenario.refreshRate_Hz);
        session.Trace().SetHostAtFrameRate(scenario.tickEveryFrame);
        if (options.policy.kind == PolicyKind::SwapInterval) {
            // The pacer takes over the game's own cap as the shortest swap it allows.
            // It asks the panel for the game's cap, as a frame-rate request would.
            swapPacer.emplace(std::llround(1e9 / display.RateFor(capFps)), minFramePeriod_ns);
        }
        if (options.policy.kind == PolicyKind::Fixed) target = options.policy.fixedFps;
        createPacer();
    }

    RunResult Run() {
        std::int64_t now = 0;
        size_t nextEvent = 0;
        const std::vector<ScenarioEvent>& events = scenario.events;
        while (now < duration_ns) {
            while (nextEvent < events.size() && SecondsToNs(events[nextEvent].at_s) <= now) {
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
        releaseHeldRows(sensors.Read(duration_ns, 0.0, paused));

        result.simulated_s = scenario.duration_s;
        result.running_s = scenario.duration_s - NsToSeconds(paused_ns);
        result.faults = faults.Finish(session.Counts());
        session.End(result);
        return std::move(result);
    }

  private:
    // A frame from the end of the one before it: the game waits for a free buffer, works,
    // sleeps as the pacer says, and queues its buffer at the end.
    std::int64_t frame(std::int64_t previousEnd) {
        const std::int64_t start = dequeue(previousEnd);
        if (start >= duration_ns) return duration_ns;
        display.HoldRate(swapPacer ? capFps : heldFps());
        session.BeginFrame(target, scenario.refreshRate_Hz);
        const FrameWork work = game.NextWork(NsToSeconds(start));
        const double work_ms = device->FrameMs(work);
        const std::int64_t workDone = start + MillisecondsToNs(work_ms);
        // The refresh a swap-interval pacer aims this frame at, counted from the last one.
        const std::int64_t swapTarget =
            swapPacer ? display.LastRefresh_ns() + swapPacer->HeldInterval() * display.Period_ns()
                      : 0;
        advance(workDone);

        std::int64_t end = std::max(workDone + sleep_ns(workDone), start + minFramePeriod_ns);
        if (swapPacer) end = swapPacer->Pacing() ? std::max(workDone, swapTarget) : workDone;
        advance(std::min(end, duration_ns));
        if (end > duration_ns) return duration_ns;

        session.EndFrame();
        display.Queue(start, end);
        if (swapPacer) swapPacer->AddFrame(end, work_ms, workDone > swapTarget);
        faults.OnFrame();
        const auto length_ms = static_cast<float>(static_cast<double>(end - previousEnd) / 1e6);
        rows.AddFrame(length_ms, length_ms > kJankFactor * 1000.0 / heldFps());
        result.frames.Add(length_ms);
        periodWork_ms += work_ms;
        device->AddFrame(work);
        if (scenario.tickEveryFrame) tickAfterFrame(end, work_ms / (length_ms > 0 ? length_ms : 1));
        return end;
    }

    // How long the frame sleeps after its work, oversleep included; the clock is at the work's end.
    std::int64_t sleep_ns(std::int64_t workDone) {
        if (FeedsVsync(pacing)) {
            // The latest refresh before each frame stands for a callback at every refresh.
            session.OnVsync(display.LastRefresh_ns(), display.Period_ns());
            const std::int64_t wakeUp = session.WakeUp_ns();
            if (wakeUp <= workDone) return 0;
            return wakeUp - workDone +
                   MillisecondsToNs(sleepRandom.Uniform(kLeastOversleep_ms, kMostOversleep_ms));
        }
        const float sleep_ms = session.SleepMs();
        return sleep_ms > 0.0f ? MillisecondsToNs(sleep_ms + sleepRandom.Uniform(kLeastOversleep_ms,
                                                                                 kMostOversleep_ms))
                               : 0;
    }

    // The time the game gets a buffer to draw into, the clock moved there.
    std::int64_t dequeue(std::int64_t from) {
        std::int64_t now = from;
        while (!display.CanDequeue()) {
            now = std::max(now, display.NextLatch_ns());
            advance(std::min(now, duration_ns));
            if (now >= duration_ns) return duration_ns;
        }
        return now;
    }

    void onShown(const ShownFrame& shown) {
        std::optional<double> interval_ms;
        if (lastGlass_ns) interval_ms = static_cast<double>(shown.glass_ns - *lastGlass_ns) / 1e6;
        lastGlass_ns = shown.glass_ns;
        const double running_s = NsToSeconds(shown.latched_ns - paused_ns);
        result.shown.Add(interval_ms, static_cast<double>(shown.glass_ns - shown.start_ns) / 1e6,
                         running_s);
        rows.AddShown(interval_ms);
    }

    // The game is in the background: no frames and no ticks of the manager until it resumes,
    // while the device cools and settings may still arrive.
    std::int64_t sitOutPause(std::int64_t start, size_t& nextEvent) {
        session.PauseGame();
        display.Release();
        lastGlass_ns.reset();
        paused = true;
        readTarget(start);
        releaseHeldRows(sensors.Read(start, 0.0, paused));

        std::int64_t resumed = duration_ns;
        while (nextEvent < scenario.events.size()) {
            const ScenarioEvent& event = scenario.events[nextEvent++];
            const std::int64_t at = std::max(SecondsToNs(event.at_s), start);
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

        session.ResumeGame(scenario.pid);
        createPacer();
        paused = false;
        runningSince_ns = resumed;
        return resumed;
    }

    void createPacer() {
        const PolicyKind kind = options.policy.kind;
        if (kind != PolicyKind::Library && kind != PolicyKind::Fixed) return;
        session.CreatePacer(LibraryPolicy(pacing));
        if (FeedsVsync(pacing)) {
            session.SetLatchMargin(MillisecondsToNs(scenario.pacingLatchMargin_ms.value_or(
                scenario.display.latchMargin_ms + kLatchHeadroom_ms)));
        }
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
            display.AdvanceTo(nextRow_ns);
            session.AdvanceClock(nextRow_ns);
            if (!scenario.tickEveryFrame) {
                periodicTick(nextRow_ns);
            } else if (paused) {
                rows.Emit(TimelineRow(),
                          moment(nextRow_ns, sensors.Read(nextRow_ns, 0.0, paused), nodeText));
            } else {
                rows.HoldStretch(nextRow_ns);
            }
            nextRow_ns += row_ns;
        }
        display.AdvanceTo(time);
        session.AdvanceClock(time);
    }

    // The injector's actions at their own time, between the loop's row times and ticks.
    void runFaults(std::int64_t time) {
        session.AdvanceClock(time);
        session.Trace().SetTrack(TraceTrack::Host);
        const bool nodeChanged = faults.RunDue(
            time, session.Counts(),
            [this](const Session::SettingList& records) { session.ApplySettings(records); });
        session.TakeNodeWrites();
        if (nodeChanged && !paused) readTarget(time);
    }

    void periodicTick(std::int64_t time) {
        const Readings readings =
            sensors.Read(time, periodWork_ms / (scenario.tick_s * 1000.0), paused);
        periodWork_ms = 0.0;
        TimelineRow row;
        if (!paused) {
            const int ofps = static_cast<int>(
                std::llround(static_cast<double>(rows.StretchFrames()) / scenario.tick_s));
            std::optional<int> efps;
            if (session.HasManager() && !faults.HostStalled()) {
                efps = hostTick(time, readings.info, ofps, true);
            }
            row = rows.TakeStretch(ofps, efps);
            session.TakeNodeWrites();
        } else {
            // What ran between the last row and the pause is not shown in any row's OFPS.
            rows.DropStretchFrames();
        }
        rows.Emit(std::move(row), moment(time, readings, readTarget(time)));
    }

    // The host's tick at the end of every frame, with the frames of the last second as OFPS.
    // It measures whole seconds, so it starts ticking one second after the game (re)starts.
    void tickAfterFrame(std::int64_t end, double busyShare) {
        recentFrameEnds_ns.push_back(end);
        while (recentFrameEnds_ns.front() <= end - kSecond_ns) recentFrameEnds_ns.pop_front();
        const Readings readings = sensors.Read(end, busyShare, paused);
        if (!session.HasManager() || end - runningSince_ns < kSecond_ns || faults.HostStalled()) {
            releaseHeldRows(readings);
            return;
        }
        const int ofps = static_cast<int>(recentFrameEnds_ns.size());
        const std::optional<int> efps = hostTick(end, readings.info, ofps, rows.Holding());
        session.TakeNodeWrites();
        const std::optional<std::uint64_t> writes = session.EfpsMaxWrites();
        if (!writes || *writes != efpsMaxWritesSeen) {
            efpsMaxWritesSeen = writes.value_or(0);
            readTarget(end);
        }
        // This tick already belongs to the second after the held rows.
        rows.ReleaseHeld(ofps, efps, moment(end, readings, nodeText));
    }

    // The manager's tick on the record as the faulty sensors deliver it.
    std::optional<int> hostTick(std::int64_t time, android::FpsStabilizer::SYS_INFO info, int ofps,
                                bool readEfps) {
        faults.AlterRecord(info);
        const std::optional<int> efps = session.Tick(info, ofps, scenario.refreshRate_Hz, readEfps);
        faults.OnTick(time, session.Sfps(), session.Gfps());
        rows.CountTick(session.Sfps());
        return efps;
    }

    // Rows with no tick to wait for (the game stops, or the host is still measuring) get the
    // state as it is.
    void releaseHeldRows(const Readings& readings) {
        rows.ReleaseHeld(std::nullopt, std::nullopt, moment(0, readings, nodeText));
    }

    RowMoment moment(std::int64_t time, const Readings& readings, const std::string& node) const {
        RowMoment now;
        now.time_ns = time;
        now.time_s = NsToSeconds(time);
        now.paused = paused;
        now.temperature_C = readings.temperature_C;
        now.current_mA = readings.current_mA;
        now.heldFps = paused ? 0 : heldFps();
        now.rateHeld = !paused && heldFps() < capFps;
        now.node = node;
        return now;
    }

    // The pacing target is whatever the node says; returns the node's text.
    const std::string& readTarget(std::int64_t time) {
        nodeText = session.NodeText();
        if (!session.HasManager()) return nodeText;
        const int sfps = SfpsOfNodeText(nodeText);
        if (sfps != target) {
            target = sfps;
            session.Trace().MarkTargetChange(time);
        }
        return nodeText;
    }

    // The rate the frames are held to: the pacing object's target while it holds one (it never
    // holds more than the screen's rate), otherwise the game's own cap.
    int heldFps() const {
        if (session.Pacing() && target >= kLeastHeldTarget) {
            return std::min({target, scenario.refreshRate_Hz, capFps});
        }
        if (swapPacer && swapPacer->SwapInterval() > 1) {
            return std::min(display.RateFor(capFps) / swapPacer->SwapInterval(), capFps);
        }
        return capFps;
    }

    const Scenario& scenario;
    const RunOptions& options;
    const Pacing pacing;
    RunResult result;
    Session session;
    GameModel game;
    std::unique_ptr<Device> device;
    Sensors sensors;
    Random sleepRandom;
    const std::int64_t duration_ns;
    const std::int64_t row_ns;
    std::int64_t nextRow_ns;
    const std::int64_t minFramePeriod_ns;
    const int capFps;  // the game's own cap, or the screen's rate when that is lower
    FaultInjector faults;
    RowBuilder rows;
    Display display;
    std::optional<std::int64_t> lastGlass_ns;
    std::optional<SwapIntervalPacer> swapPacer;

    bool paused = false;
    std::int64_t paused_ns = 0;
    std::int64_t runningSince_ns = 0;
    int target = -1;
    std::string nodeText;
    std::uint64_t efpsMaxWritesSeen = 0;
    double periodWork_ms = 0.0;
    std::deque<std::int64_t> recentFrameEnds_ns;
};

}  // namespace

RunResult RunClosedLoop(const Scenario& scenario, const RunOptions& options) {
    return ClosedLoop(scenario, options).Run();
}

}  // namespace TalvexSim
