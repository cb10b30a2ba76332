#include "tools/sim/VirtualClock.h"

#include <atomic>
#include <chrono>

namespace TalvexSim {
namespace {

constexpr std::int64_t kEpoch_ns = 1000LL * 1000 * 1000 * 1000;
std::atomic<std::int64_t> now_ns{0};

Basics::TimePoint readVirtualClock() { return VirtualClock::ToTimePoint(now_ns.load()); }

}  // namespace

VirtualClock::VirtualClock() {
    now_ns.store(0);
    Basics::SetClockSource(&readVirtualClock);
}

VirtualClock::~VirtualClock() { Basics::SetClockSource(nullptr); }

void VirtualClock::Set(std::int64_t simulation_ns) {
    if (simulation_ns > now_ns.load()) now_ns.store(simulation_ns);
}

Basics::TimePoint VirtualClock::ToTimePoint(std::int64_t simulation_ns) {
    return Basics::TimePoint(std::chrono::nanoseconds(kEpoch_ns + simulation_ns));
}

}  // namespace TalvexSim
