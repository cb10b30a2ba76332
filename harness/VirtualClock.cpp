#include "harness/VirtualClock.h"

#include <atomic>
#include <cmath>

namespace TalvexHarness {
namespace {

std::atomic<Basics::TimePoint::rep> now_ns{0};

Basics::TimePoint readVirtualClock() {
    return Basics::TimePoint(std::chrono::nanoseconds(now_ns.load(std::memory_order_relaxed)));
}

}  // namespace

VirtualClock::VirtualClock(Basics::TimePoint start) {
    Set(start);
    Basics::SetClockSource(&readVirtualClock);
}

VirtualClock::~VirtualClock() { Basics::SetClockSource(nullptr); }

Basics::TimePoint VirtualClock::Now() { return readVirtualClock(); }

void VirtualClock::Set(Basics::TimePoint time) {
    now_ns.store(time.time_since_epoch().count(), std::memory_order_relaxed);
}

void VirtualClock::AdvanceTo(std::int64_t sinceStart_ns) {
    const Basics::TimePoint::rep target = At(sinceStart_ns).time_since_epoch().count();
    Basics::TimePoint::rep current = now_ns.load(std::memory_order_relaxed);
    while (target > current && !now_ns.compare_exchange_weak(current, target)) {
    }
}

void VirtualClock::Advance(std::chrono::nanoseconds step) {
    now_ns.fetch_add(step.count(), std::memory_order_relaxed);
}

void VirtualClock::AdvanceMs(double milliseconds) {
    Advance(std::chrono::nanoseconds(std::llround(milliseconds * 1e6)));
}

void VirtualClock::AdvanceSeconds(double seconds) { AdvanceMs(seconds * 1000.0); }

}  // namespace TalvexHarness
