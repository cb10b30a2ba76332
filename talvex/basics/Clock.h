#pragma once

#include <chrono>

namespace Basics {

using TimePoint = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;
using ClockSource = TimePoint (*)();

// The library's only clock read, so that hosts, simulators and tests can run it on virtual time.
TimePoint Now();

// nullptr restores std::chrono::steady_clock. Safe to call from any thread at any time; the
// source must be monotonic.
void SetClockSource(ClockSource source);

// Milliseconds from `since` to `now`. The nanoseconds pass through float on the way, as every
// caller has always measured them; a float result is the float quotient exactly.
double ElapsedMs(TimePoint since, TimePoint now);

// True while a time point still holds its default-constructed value: no time taken yet.
bool IsDefaultTimestamp(const TimePoint& timePoint);

}  // namespace Basics
