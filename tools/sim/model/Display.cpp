#include "tools/sim/model/Display.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tools/sim/base/Units.h"

namespace TalvexSim {
namespace {

std::int64_t periodOf(double rate_Hz) { return std::llround(1e9 / rate_Hz); }

}  // namespace

Display::Display(const DisplayParams& params_, int refreshRate_Hz, Sink sink_)
    : params(params_),
      topRate_Hz(refreshRate_Hz),
      topPeriod_ns(periodOf(refreshRate_Hz)),
      longestPeriod_ns(periodOf(params_.vrrMin_Hz)),
      margin_ns(MillisecondsToNs(params_.latchMargin_ms)),
      delay_ns(MillisecondsToNs(params_.compositionDelay_ms)),
      sink(std::move(sink_)),
      rate_Hz(refreshRate_Hz),
      period_ns(topPeriod_ns),
      wantedRate_Hz(refreshRate_Hz),
      fixedNext_ns(topPeriod_ns) {}

// As a frame-rate request chooses: the lowest mode the held rate divides.
int Display::RateFor(int fps) const {
    if (params.mode != DisplayMode::Modes || fps <= 0) return topRate_Hz;
    for (const int mode : params.modes_Hz) {
        if (mode % fps == 0) return mode;
    }
    return topRate_Hz;
}

std::int64_t Display::latchable_ns(const ShownFrame& frame) const {
    return frame.ready_ns + margin_ns;
}

std::int64_t Display::nextRefresh_ns() const {
    if (params.mode != DisplayMode::Vrr) return fixedNext_ns;
    const std::int64_t latest = lastRefresh_ns + longestPeriod_ns;
    if (queue.empty()) return latest;
    return std::min(std::max(latchable_ns(queue.front()), lastRefresh_ns + topPeriod_ns), latest);
}

std::int64_t Display::NextLatch_ns() const {
    const std::int64_t ready = latchable_ns(queue.front());
    if (params.mode == DisplayMode::Vrr) {
        // The panel refreshes on its own while it waits; each refresh restarts the shortest gap.
        std::int64_t last = lastRefresh_ns;
        while (ready > last + longestPeriod_ns) {
            last += longestPeriod_ns;
        }
        return std::max(ready, last + topPeriod_ns);
    }
    // A pending mode switch takes effect at the next refresh.
    if (ready <= fixedNext_ns) return fixedNext_ns;
    const std::int64_t period = periodOf(wantedRate_Hz);
    const std::int64_t periods = (ready - fixedNext_ns + period - 1) / period;
    return fixedNext_ns + periods * period;
}

void Display::AdvanceTo(std::int64_t time_ns) {
    for (std::int64_t next = nextRefresh_ns(); next <= time_ns; next = nextRefresh_ns()) {
        refresh(next);
    }
}

void Display::refresh(std::int64_t time_ns) {
    lastRefresh_ns = time_ns;
    if (params.mode != DisplayMode::Vrr) {
        rate_Hz = wantedRate_Hz;
        period_ns = periodOf(rate_Hz);
        fixedNext_ns = time_ns + period_ns;
    }
    if (queue.empty() || latchable_ns(queue.front()) > time_ns) return;
    ShownFrame frame = queue.front();
    queue.pop_front();
    onScreen = true;
    frame.latched_ns = time_ns;
    frame.glass_ns = time_ns + delay_ns;
    sink(frame);
}

void Display::Queue(std::int64_t start_ns, std::int64_t ready_ns) {
    ShownFrame frame;
    frame.start_ns = start_ns;
    frame.ready_ns = ready_ns;
    queue.push_back(frame);
}

void Display::Release() {
    queue.clear();
    onScreen = false;
}

}  // namespace TalvexSim
