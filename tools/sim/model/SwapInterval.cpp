#include "tools/sim/model/SwapInterval.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

constexpr std::int64_t kMs_ns = 1'000'000;
constexpr std::int64_t kWindow_ns = 2'000 * kMs_ns;
constexpr std::int64_t kMaxWork_ns = 100 * kMs_ns;
constexpr std::int64_t kFrameMargin_ns = kMs_ns;
constexpr std::int64_t kRoundingMargin_ns = 500;
constexpr std::int64_t kFloorMargin_ns = 1'000;
constexpr std::int64_t kNoWaitAbove_ns = 50 * kMs_ns;
constexpr int kMissedPercentLimit = 10;
constexpr double kUnpipelinedHeadroom = 1.5;

std::int64_t workNs(double work_ms) {
    const double work_ns = std::round(work_ms * static_cast<double>(kMs_ns));
    return static_cast<std::int64_t>(std::clamp(work_ns, 0.0, static_cast<double>(kMaxWork_ns)));
}

// No work recorded at all reads as no frame time, margin included.
std::int64_t frameTime(std::int64_t cpu_ns, std::int64_t gpu_ns, bool pipelined) {
    if (cpu_ns == 0 && gpu_ns == 0) return 0;
    return (pipelined ? std::max(cpu_ns, gpu_ns) : cpu_ns + gpu_ns) + kFrameMargin_ns;
}

}  // namespace

SwapIntervalPacer::SwapIntervalPacer(std::int64_t refreshPeriod_ns, std::int64_t appSwap_ns_)
    : period_ns(refreshPeriod_ns),
      appSwap_ns(appSwap_ns_),
      interval(IntervalFor(appSwap_ns_, refreshPeriod_ns)) {}

int SwapIntervalPacer::IntervalFor(std::int64_t frameTime_ns, std::int64_t refreshPeriod_ns) {
    if (frameTime_ns < refreshPeriod_ns) return 1;
    const std::int64_t whole = frameTime_ns / refreshPeriod_ns;
    const std::int64_t rest = frameTime_ns % refreshPeriod_ns;
    return static_cast<int>(whole + (rest > kRoundingMargin_ns ? 1 : 0));
}

bool SwapIntervalPacer::Pacing() const { return period_ns * interval <= kNoWaitAbove_ns; }

void SwapIntervalPacer::AddFrame(std::int64_t end_ns, double cpuWork_ms, double gpuWork_ms,
                                 bool missed) {
    push({end_ns, workNs(cpuWork_ms), workNs(gpuWork_ms), missed});
    // The oldest frame stays while the next one is within the window, so a full window spans
    // a little more than its length.
    while (count >= 2 && end_ns - at(1).end_ns > kWindow_ns) dropOldest();
    decide();
}

void SwapIntervalPacer::push(const Sample& sample) {
    if (count == ring.size()) {
        std::vector<Sample> grown(std::max<std::size_t>(64, ring.size() * 2));
        for (std::size_t i = 0; i < count; ++i) grown[i] = at(i);
        ring.swap(grown);
        head = 0;
    }
    ring[(head + count) % ring.size()] = sample;
    ++count;
    cpuSum_ns += sample.cpu_ns;
    gpuSum_ns += sample.gpu_ns;
    missedCount += sample.missed ? 1 : 0;
}

void SwapIntervalPacer::dropOldest() {
    const Sample& oldest = at(0);
    cpuSum_ns -= oldest.cpu_ns;
    gpuSum_ns -= oldest.gpu_ns;
    missedCount -= oldest.missed ? 1 : 0;
    head = (head + 1) % ring.size();
    --count;
}

void SwapIntervalPacer::clearWindow() {
    head = 0;
    count = 0;
    cpuSum_ns = 0;
    gpuSum_ns = 0;
    missedCount = 0;
}

void SwapIntervalPacer::decide() {
    if (count == 0 || at(count - 1).end_ns - at(0).end_ns <= kWindow_ns) return;
    const auto frames = static_cast<std::int64_t>(count);
    const std::int64_t meanCpu_ns = cpuSum_ns / frames;
    const std::int64_t meanGpu_ns = gpuSum_ns / frames;
    const std::int64_t pipelined_ns = frameTime(meanCpu_ns, meanGpu_ns, true);
    const std::int64_t unpipelined_ns = frameTime(meanCpu_ns, meanGpu_ns, false);
    const int fitting = IntervalFor(pipelined_ns, period_ns);
    const long missedPercent =
        std::lround(100.0 * static_cast<double>(missedCount) / static_cast<double>(count));

    bool changed = false;
    if (missedPercent > kMissedPercentLimit) {
        changed = slower(pipelined_ns, fitting);
    } else if (missedPercent == 0 && fasterAllowed() &&
               pipelined_ns < period_ns * (interval - 1) - kFrameMargin_ns) {
        changed = faster(fitting);
    } else if (pipelined && static_cast<double>(unpipelined_ns) * kUnpipelinedHeadroom <
                                static_cast<double>(period_ns * interval)) {
        pipelined = false;
        changed = true;
    }
    if (changed) clearWindow();
}

bool SwapIntervalPacer::slower(std::int64_t pipelined_ns, int fitting) {
    const bool fits = pipelined_ns <= period_ns * interval;
    const bool mayWait = period_ns * interval <= kNoWaitAbove_ns + kFrameMargin_ns;
    // Unpipelined with a frame that would fit, pipelining again is tried first.
    const bool changed = (pipelined || !fits) && mayWait;
    if (changed) interval = std::max(fitting, interval + 1);
    pipelined = true;
    return changed;
}

bool SwapIntervalPacer::faster(int fitting) {
    const int before = interval;
    while (fitting < interval && fasterAllowed()) --interval;
    if (interval == before) return false;
    pipelined = true;
    return true;
}

bool SwapIntervalPacer::fasterAllowed() const {
    return appSwap_ns <= period_ns * (interval - 1) + kFloorMargin_ns;
}

}  // namespace TalvexSim
