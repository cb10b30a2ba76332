#include "tools/sim/model/ClockDomain.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace TalvexSim {
namespace {

// Headroom over the utilisation: full speed from 80 % up (kernel/sched/cpufreq_schedutil.c,
// get_next_freq).
constexpr double kHeadroom = 1.25;
// Frequencies are sums of products of doubles; a target that lands on a point must pick it.
constexpr double kTolerance_MHz = 1e-9;
constexpr double kMicro = 1e-6;

const std::vector<OperatingPoint>& checkedPoints(const ClockDomainParams& params) {
    if (params.points.empty()) {
        throw std::invalid_argument("clock domain " + params.name + ": no operating points");
    }
    double previous = 0.0;
    for (const OperatingPoint& point : params.points) {
        if (!(point.frequency_MHz > previous)) {
            throw std::invalid_argument("clock domain " + params.name +
                                        ": frequencies must be positive and ascending");
        }
        previous = point.frequency_MHz;
    }
    return params.points;
}

}  // namespace

ClockDomain::ClockDomain(const ClockDomainParams& params)
    : points(checkedPoints(params)),
      cores(params.cores),
      coefficient(params.dynamicPowerCoefficient),
      staticPower_W(params.staticPower_W),
      rateLimit_s(params.rateLimit_s),
      current(points.size() - 1),
      requested(current),
      ceiling(current) {}

// Table drivers resolve with CPUFREQ_RELATION_L (drivers/cpufreq/cpufreq.c).
std::size_t ClockDomain::lowestAtOrAbove(double mhz) const {
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (points[i].frequency_MHz >= mhz - kTolerance_MHz) return i;
    }
    return points.size() - 1;
}

std::size_t ClockDomain::highestAtOrBelow(double mhz) const {
    for (std::size_t i = points.size(); i-- > 0;) {
        if (points[i].frequency_MHz <= mhz + kTolerance_MHz) return i;
    }
    return 0;
}

// The rate limit counts from the last actual change and yields to a limits change
// (kernel/sched/cpufreq_schedutil.c, sugov_should_update_freq, sugov_update_next_freq).
void ClockDomain::Update(double time_s, double busyShare) {
    const double busy = std::clamp(busyShare, 0.0, 1.0);
    const double utilisation = busy * Frequency_MHz() / MaxFrequency_MHz();
    requested = lowestAtOrAbove(kHeadroom * MaxFrequency_MHz() * utilisation);
    const std::size_t next = std::min(requested, ceiling);
    const bool allowed = limitsChanged || !changedOnce || time_s - lastChange_s >= rateLimit_s;
    limitsChanged = false;
    if (!allowed || next == current) return;
    current = next;
    changedOnce = true;
    lastChange_s = time_s;
}

// The cpufreq core clamps the running frequency as soon as the policy's limits move
// (kernel/sched/cpufreq_schedutil.c, sugov_limits).
void ClockDomain::SetCeiling(double mhz) {
    const std::size_t next = highestAtOrBelow(mhz);
    if (next != ceiling) limitsChanged = true;
    ceiling = next;
    current = std::min(current, ceiling);
}

double ClockDomain::Ceiling_MHz() const { return points[ceiling].frequency_MHz; }

// P = C x V^2 x f in uW with C in uW/MHz/V^2 (Documentation/devicetree/bindings/arm/cpus.yaml),
// per core (drivers/thermal/cpufreq_cooling.c, cpufreq_state2power).
double ClockDomain::PowerAt_W(std::size_t pointIndex, double busyShare) const {
    const OperatingPoint& point = points.at(pointIndex);
    const double perCore_uW = coefficient * point.voltage_V * point.voltage_V * point.frequency_MHz;
    return perCore_uW * kMicro * cores * std::clamp(busyShare, 0.0, 1.0) + staticPower_W;
}

double ClockDomain::Stretch(double f_max, double f, double exponent) {
    return std::pow(f_max / f, exponent);
}

}  // namespace TalvexSim
