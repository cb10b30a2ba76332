#pragma once

#include <cstdint>

#include "talvex/basics/Clock.h"

namespace TalvexSim {

// The library's clock while a simulation runs: virtual time that moves only when the loop
// says so. Simulation time 0 lies at a non-zero instant, because a zero time point means "no
// time taken yet" to the library. One at a time per process.
class VirtualClock {
  public:
    VirtualClock();
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // Nanoseconds since the start of the simulation; never moves backwards.
    void Set(std::int64_t simulation_ns);
    static Basics::TimePoint ToTimePoint(std::int64_t simulation_ns);
};

}  // namespace TalvexSim
