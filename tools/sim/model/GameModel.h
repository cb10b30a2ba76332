#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "tools/sim/base/Random.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/model/FrameWork.h"

namespace TalvexSim {

// What the game asks of the device frame by frame: how long a frame's work takes (with jitter,
// hitches and heavier scenes), how fast it may run at most, and how busy it keeps the CPUs.
class GameModel {
  public:
    // The fastest the game runs: its own cap or the display's rate, whichever is slower.
    static int CapFps(const GameParams& params, int refreshRate_Hz) {
        return static_cast<int>(
            std::lround(std::min(params.targetFps, static_cast<double>(refreshRate_Hz))));
    }

    GameModel(const GameParams& params, int refreshRate_Hz, std::uint64_t seed);

    // Heaviest scene in force at that time; 1 outside every scene.
    double WorkFactorAt(double time_s) const;
    // Work of the frame that starts at that time, in milliseconds; always positive.
    double NextWorkMs(double time_s);
    // The same frame's CPU and GPU work: both scale with it.
    FrameWork NextWork(double time_s);
    // A frame never ends sooner than this after the previous one: the game's own cap and the
    // display's refresh rate, whichever is slower.
    double MinFramePeriodMs() const { return minFramePeriod_ms; }
    // Work of a frame relative to the nominal work: what it costs in energy.
    double RelativeWork(double work_ms) const { return work_ms / params.workMs; }
    // The host record's four CPU readings for a stretch in which the game worked that share
    // of the time (clamped to [0, 1]).
    std::array<std::uint64_t, 4> CpuReadings(double busyShare) const;

  private:
    GameParams params;
    double minFramePeriod_ms;
    Random random;
};

}  // namespace TalvexSim
