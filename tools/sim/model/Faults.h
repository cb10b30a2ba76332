#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "harness/NodeDirectory.h"
#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"
#include "tools/sim/base/Random.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/model/FaultOutcome.h"

namespace TalvexSim {

// Running totals of what the library reported or let escape; an event's share is the
// difference between its end and its start.
struct LibraryCounts {
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::uint64_t escapedExceptions = 0;
};

// Plays a scenario's fault events into the closed loop on virtual time and keeps, per event,
// what the library did through it. The loop asks when something is next due, so a run
// without faults pays one comparison per step.
class FaultInjector {
  public:
    using SettingList = std::vector<UserSettings::UserSetting>;
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

    FaultInjector(const Scenario& scenario, TalvexHarness::NodeDirectory& nodes);

    // Virtual time of the next start, end, rewrite or storm record.
    std::int64_t NextDue_ns() const { return nextDue_ns; }
    // Does what is due up to `time`; storm records go to `send`, one list per record. True
    // when efps_max was changed under the game's feet.
    bool RunDue(std::int64_t time, const LibraryCounts& counts,
                const std::function<void(const SettingList&)>& send);

    bool HostStalled() const { return stalls > 0; }
    // The host record as the faulty sensors deliver it.
    void AlterRecord(android::FpsStabilizer::SYS_INFO& info) {
        if (!sensorFaults.empty()) alterSensors(info);
    }
    void OnFrame() {
        for (const size_t index : active) ++outcomes[index].frames;
    }
    // A host tick that happened, with the SFPS and GFPS the manager ended it with.
    void OnTick(std::int64_t time, int sfps, int gfps) {
        for (const size_t index : active) ++outcomes[index].ticks;
        if (!awaitingNode.empty()) checkNode(time, sfps, gfps);
    }

    // Ends what is still running (nothing, for a scenario the loader accepted).
    std::vector<FaultOutcome> Finish(const LibraryCounts& counts);

  private:
    struct State {
        const FaultEvent* event = nullptr;
        std::int64_t start_ns = 0;
        std::int64_t end_ns = 0;
        std::int64_t next_ns = 0;  // next start, record, rewrite or end
        bool started = false;
        bool over = false;
        LibraryCounts atStart;
        bool holding = false;  // a stuck sensor has taken its reading
        android::FpsStabilizer::SYS_INFO held{};
        std::uint64_t sent = 0;
        std::uint64_t invalid = 0;
    };

    void start(size_t index, const LibraryCounts& counts);
    void end(size_t index, const LibraryCounts& counts);
    // Returns whether efps_max was written.
    bool act(State& state, const std::function<void(const SettingList&)>& send);
    void alterSensors(android::FpsStabilizer::SYS_INFO& info);
    void checkNode(std::int64_t time, int sfps, int gfps);
    void updateNextDue();

    TalvexHarness::NodeDirectory& nodes;
    int pid;
    Random random;
    std::vector<State> states;
    std::vector<FaultOutcome> outcomes;
    std::vector<size_t> active;
    std::vector<size_t> sensorFaults;  // active ones
    std::vector<size_t> awaitingNode;  // over, efps_max not yet back to the manager's text
    int stalls = 0;
    std::int64_t nextDue_ns = kNever;
};

}  // namespace TalvexSim
