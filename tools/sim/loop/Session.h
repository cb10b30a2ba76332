#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"
#include "talvex/pacing/Quillet.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/DeciderBounds.h"
#include "tools/sim/loop/Simulation.h"
#include "tools/sim/model/Faults.h"

namespace TalvexSim {

// Both halves of the library in one simulated game process, and what a simulation changes in
// the process, restored when it ends: the clock, the node directory, the log receiver, the
// trace receiver and the library's log switches. Each call names the thread it stands for in
// the trace. Nothing the library raises leaves a call: it is counted instead.
class Session {
  public:
    using SettingList = std::vector<UserSettings::UserSetting>;

    // Throws InputError, naming where the record was written, when the library refuses one of
    // the scenario's initial settings.
    Session(const Scenario& scenario, const RunOptions& options, int refreshRate_Hz,
            bool withManager);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Hands the counts, the log and the trace to the result; the host pauses a manager before
    // destroying it, so that the settings center forgets the actions that point into it.
    void End(RunResult& result);

    void AdvanceClock(std::int64_t time_ns) { clock.AdvanceTo(time_ns); }
    // Each node write must be taken in before the next one, or the kernel merges the two.
    void TakeNodeWrites() { nodes.CountWrites(); }
    std::optional<std::uint64_t> EfpsMaxWrites() const { return nodes.Writes("efps_max"); }
    TalvexHarness::NodeDirectory& Nodes() { return nodes; }
    TraceRecorder& Trace() { return *trace; }
    LibraryCounts Counts() const;
    // As the settings applied so far leave them.
    const DeciderBounds& Bounds() const { return bounds; }

    // The host: one tick; with `readEfps`, the EFPS as the manager stated it, which costs the
    // formatting of every DEBUG message of the tick.
    std::optional<int> Tick(const android::FpsStabilizer::SYS_INFO& info, int ofps,
                            int refreshRate_Hz, bool readEfps);
    // True when the library took every record without an error.
    bool ApplySettings(const SettingList& settings);
    // A refusal in the middle of a run may be the point of the scenario (the settings of a
    // paused game are forgotten), so it is reported in the result, not fatal.
    void ApplyEvent(const ScenarioEvent& event, RunResult& result);
    bool HasManager() const { return manager != nullptr; }
    std::string NodeText() const { return manager ? nodes.Read("efps_max") : std::string(); }
    int Gfps() const { return manager ? manager->GetGFPS() : -1; }
    int Sfps() const { return manager ? manager->GetSFPS() : -1; }

    // The game goes to the background: its surface goes with it, and the host pauses the
    // manager. On resume the manager comes back first; the loop creates the pacer again.
    void PauseGame();
    void ResumeGame(int pid);

    // The render thread's pacing object, when the policy has one.
    void CreatePacer(android::Nimbrel::Quillet::PacingPolicy policy);
    bool Pacing() const { return quillet != nullptr; }
    void SetLatchMargin(std::int64_t margin_ns);
    // The display's latest refresh, as a vsync callback would hand it over.
    void OnVsync(std::int64_t refresh_ns, std::int64_t period_ns);
    void BeginFrame(int target, int refreshRate_Hz);
    float SleepMs();
    // Instead of SleepMs: when the frame's sleep should end, on the loop's time; the time now
    // when it should not sleep.
    std::int64_t WakeUp_ns();
    void EndFrame();

  private:
    template <typename Call>
    void guard(Call&& call) {
        try {
            call();
        } catch (...) {
            ++escapedExceptions;
        }
    }
    void applyInitialSettings();

    const Scenario& scenario;
    TalvexHarness::LogSwitchesScope logSwitches{Basics::Log::LogLevel(), Basics::Log::IsDebug()};
    TalvexHarness::VirtualClock clock;
    TalvexHarness::LogSink log{TalvexHarness::LogSink::Mode::Lines};
    TalvexHarness::NodeDirectory nodes;
    std::unique_ptr<TraceRecorder> trace;
    std::unique_ptr<android::FpsStabilizer::FpsManager> manager;
    std::unique_ptr<android::Nimbrel::Quillet::Quillet> quillet;
    std::uint64_t escapedExceptions = 0;
    DeciderBounds bounds;
};

}  // namespace TalvexSim
