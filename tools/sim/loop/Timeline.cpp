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

}  // namespace TalvexSim
