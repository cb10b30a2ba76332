#pragma once

#include <chrono>
#include <cstdint>

#include "talvex/basics/Clock.h"

namespace TalvexHarness {

// The library's clock while alive: virtual time that moves only when told, process-wide (the
// library has one clock source), so one at a time per process. It starts at kStart, not at zero,
// because a zero time point means "no time taken yet" to the library.
class VirtualClock {
  public:
    static constexpr Basics::TimePoint kStart{std::chrono::seconds(1000)};

    explicit VirtualClock(Basics::TimePoint start = kStart);
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    static Basics::TimePoint Now();
    static void Set(Basics::TimePoint time);
    // Moves to that many nanoseconds after kStart, never backwards.
    static void AdvanceTo(std::int64_t sinceStart_ns);
    static void Advance(std::chrono::nanoseconds step);
    // Rounded to the nearest nanosecond.
    static void AdvanceMs(double milliseconds);
    static void AdvanceSeconds(double seconds);
    static std::int64_t SinceStart_ns(Basics::TimePoint time) {
        return (time - kStart).count();
    }
    static Basics::TimePoint At(std::int64_t sinceStart_ns) {
        return kStart + std::chrono::nanoseconds(sinceStart_ns);
    }
};

}  // namespace TalvexHarness
