#include "talvex/basics/Clock.h"

#include <atomic>

namespace Basics {
namespace {

std::atomic<ClockSource> clockSource{nullptr};

}  // namespace

TimePoint Now() {
    const ClockSource source = clockSource.load(std::memory_order_acquire);
    if (source != nullptr) return source();
    return std::chrono::steady_clock::now();
}

void SetClockSource(ClockSource source) { clockSource.store(source, std::memory_order_release); }

double ElapsedMs(TimePoint since, TimePoint now) {
    return static_cast<double>(static_cast<float>((now - since).count())) / 1e6;
}

bool IsDefaultTimestamp(const TimePoint& timePoint) {
    return timePoint.time_since_epoch().count() == 0;
}

}  // namespace Basics
