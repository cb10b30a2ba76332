#pragma once

#include <chrono>

#include "talvex/basics/Clock.h"

namespace TalvexTest {

// Virtual time for the library while alive: starts at a non-zero instant (a zero time point means
// "no time taken yet") and moves only when told. One at a time per process.
class ManualClock {
  public:
    explicit ManualClock(Basics::TimePoint start = Basics::TimePoint(std::chrono::seconds(1000)));
    ~ManualClock();
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    Basics::TimePoint Now() const;
    void Set(Basics::TimePoint time);
    void Advance(std::chrono::nanoseconds step);
    void AdvanceMs(double milliseconds);
    void AdvanceSeconds(double seconds);
};

}  // namespace TalvexTest
