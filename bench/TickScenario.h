#pragma once

#include <memory>

#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"

namespace TalvexBench {

enum class TickState {
    NoLists,          // no GFPS or SFPS list: no lower bound, the deciders never run
    ListsIdle,        // lists set, cool and no current threshold: both deciders run and stay idle
    DeciderStepping,  // lists set, the temperature decider activated and stepping every tick
};

const char* TickStateName(TickState state);

// One FPS manager for a 60 FPS game on a 60 Hz screen, ticked once per virtual second. The
// constructor applies the state's settings and ticks until the state is reached; needs a
// VirtualClock and a node directory alive around it.
class TickScenario {
  public:
    explicit TickScenario(TickState state);
    ~TickScenario();
    TickScenario(const TickScenario&) = delete;
    TickScenario& operator=(const TickScenario&) = delete;

    // Update + PostUpdate; returns whether the reported SFPS changed.
    bool Tick();
    int SFPS() const { return manager->GetSFPS(); }

  private:
    TickState state;
    std::unique_ptr<android::FpsStabilizer::FpsManager> manager;
    android::FpsStabilizer::SYS_INFO info{};
    long tick = 0;
    bool alternating = false;
};

}  // namespace TalvexBench
