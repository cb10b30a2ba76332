#include "ManualClock.h"

#include <atomic>

namespace TalvexTest {
namespace {

std::atomic<Basics::TimePoint::rep> nowNanoseconds{0};

Basics::TimePoint readManualClock() {
    return Basics::TimePoint(std::chrono::nanoseconds(nowNanoseconds.load()));
}

}  // namespace

ManualClock::ManualClock(Basics::TimePoint start) {
    Set(start);
    Basics::SetClockSource(&readManualClock);
}

ManualClock::~ManualClock() { Basics::SetClockSource(nullptr); }

Basics::TimePoint ManualClock::Now() const { return readManualClock(); }

void ManualClock::Set(Basics::TimePoint time) {
    nowNanoseconds.store(time.time_since_epoch().count());
}

void ManualClock::Advance(std::chrono::nanoseconds step) { nowNanoseconds.fetch_add(step.count()); }

void ManualClock::AdvanceMs(double milliseconds) {
    Advance(std::chrono::nanoseconds(static_cast<int64_t>(milliseconds * 1e6 + 0.5)));
}

void ManualClock::AdvanceSeconds(double seconds) { AdvanceMs(seconds * 1000.0); }

}  // namespace TalvexTest
