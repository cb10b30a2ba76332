#pragma once

#include <cstddef>
#include <vector>

#include "tools/sim/input/DeviceParts.h"

namespace TalvexSim {

// A CPU cluster or the GPU: one frequency for the whole domain, chosen from the load by the
// kernel's schedutil governor and held under a ceiling that the thermal policy sets.
class ClockDomain {
  public:
    // Throws std::invalid_argument without points, with points not ascending in frequency, or
    // with a frequency that is not positive. Starts at the highest point, uncapped.
    explicit ClockDomain(const ClockDomainParams& params);

    // busyShare: the share of the stretch since the last update the domain was busy at the
    // current frequency, clamped to [0, 1]. Times never go back.
    void Update(double time_s, double busyShare);

    // The highest operating point at or below mhz becomes the cap (the lowest point when mhz
    // is below all); a frequency above it drops at once.
    void SetCeiling(double mhz);
    // The frequency of the capping point.
    double Ceiling_MHz() const;
    double Frequency_MHz() const { return points[current].frequency_MHz; }
    double Voltage_V() const { return points[current].voltage_V; }
    double MaxFrequency_MHz() const { return points.back().frequency_MHz; }
    // The point the load asked for at the last update, before the ceiling.
    double Requested_MHz() const { return points[requested].frequency_MHz; }
    std::size_t PointIndex() const { return current; }

    // Dynamic power of all cores at the current point for the given busy share, plus leakage.
    double Power_W(double busyShare) const { return PowerAt_W(current, busyShare); }
    // The same at any point; throws std::out_of_range past the last.
    double PowerAt_W(std::size_t pointIndex, double busyShare) const;
    const std::vector<OperatingPoint>& Points() const { return points; }

    // How much longer a stretch of work takes at f than at f_max.
    static double Stretch(double f_max, double f, double exponent);

  private:
    std::size_t lowestAtOrAbove(double mhz) const;
    std::size_t highestAtOrBelow(double mhz) const;

    std::vector<OperatingPoint> points;
    int cores;
    double coefficient;
    double staticPower_W;
    double rateLimit_s;
    std::size_t current;
    std::size_t requested;
    std::size_t ceiling;
    bool changedOnce = false;
    double lastChange_s = 0.0;
    bool limitsChanged = false;
};

}  // namespace TalvexSim
