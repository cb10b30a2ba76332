#include "tools/sim/loop/Timeline.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

double nearestRank(const std::vector<float>& sorted, double percent) {
    const auto rank =
        static_cast<size_t>(std::ceil(percent / 100.0 * static_cast<double>(sorted.size())));
    return sorted[std::max<size_t>(rank, 1) - 1];
}

// Slow frames as Android vitals counts them; janks as game-testing tools do (a frame more than
// twice the mean of the three before it and longer than two, or three, frames of a 24 FPS film).
constexpr double kSlow50_ms = 50.0;
constexpr double kSlow34_ms = 34.0;
constexpr double kFirstMinute_s = 60.0;
constexpr double kJank_ms = 84.0;
constexpr double kBigJank_ms = 125.0;

}  // namespace

std::optional<FrameStats> ComputeFrameStats(std::vector<float> lengths_ms) {
    if (lengths_ms.empty()) return std::nullopt;
    std::sort(lengths_ms.begin(), lengths_ms.end());
    double sum = 0.0;
    for (const float length : lengths_ms) sum += length;
    FrameStats stats;
    stats.mean_ms = sum / static_cast<double>(lengths_ms.size());
    stats.p50_ms = nearestRank(lengths_ms, 50.0);
    stats.p99_ms = nearestRank(lengths_ms, 99.0);
    return stats;
}

void FrameHistogram::Add(float length_ms) {
    ++count;
    sum_ms += length_ms;
    const double us = std::floor(static_cast<double>(length_ms) * 1000.0);
    if (!(us >= 0.0) || us >= static_cast<double>(kBins)) {
        longer_ms.push_back(length_ms);
        return;
    }
    // Allocated on the first frame, so a run without frames costs nothing.
    if (bins.empty()) bins.resize(kBins);
    ++bins[static_cast<size_t>(us)];
}

std::optional<FrameStats> FrameHistogram::Stats() const {
    if (count == 0) return std::nullopt;
    std::vector<float> longer = longer_ms;
    std::sort(longer.begin(), longer.end());
    auto nearestRank = [&](double percent) -> double {
        const auto rank = std::max<std::uint64_t>(
            static_cast<std::uint64_t>(std::ceil(percent / 100.0 * static_cast<double>(count))), 1);
        std::uint64_t seen = 0;
        for (size_t i = 0; i < bins.size(); ++i) {
            seen += bins[i];
            if (seen >= rank) return static_cast<double>(i) / 1000.0;
        }
        return longer[rank - seen - 1];
    };
    FrameStats stats;
    stats.mean_ms = sum_ms / static_cast<double>(count);
    stats.p50_ms = nearestRank(50.0);
    stats.p99_ms = nearestRank(99.0);
    return stats;
}

size_t PeriodsOf(double interval_ms, double period_ms) {
    const double periods = std::round(interval_ms / period_ms);
    return periods < 1.0 ? 1 : static_cast<size_t>(periods);
}

void ShownFrames::Add(std::optional<double> interval_ms, double latency_ms, double running_s) {
    ++count;
    latencies.Add(static_cast<float>(latency_ms));
    if (!interval_ms) {
        previousCount = 0;
        return;
    }
    const double interval = *interval_ms;
    intervals.Add(static_cast<float>(interval));
    ++periods[std::min(PeriodsOf(interval, period_ms), kPeriodBins) - 1];
    if (interval > kSlow50_ms) ++slow50;
    if (interval > kSlow34_ms) ++slow34;
    if (running_s > kFirstMinute_s) {
        ++later;
        if (interval > kSlow50_ms) ++laterSlow50;
    }
    if (previousCount == 3) {
        const double mean = (previous[0] + previous[1] + previous[2]) / 3.0;
        if (interval > 2.0 * mean && interval > kJank_ms) ++janks;
        if (interval > 2.0 * mean && interval > kBigJank_ms) ++bigJanks;
    }
    previous = {previous[1], previous[2], interval};
    previousCount = std::min(previousCount + 1, 3);
}

}  // namespace TalvexSim
