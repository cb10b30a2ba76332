#include "tools/sim/model/Device.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

std::uint32_t toSensorUnits(double value) {
    const double scaled = std::round(value * 1000.0);
    return static_cast<std::uint32_t>(std::clamp(scaled, 0.0, 4294967295.0));
}

}  // namespace

Device::Device(const DeviceParams& params_, std::uint64_t seed)
    : params(params_), power_W(params_.idlePower_W), random(seed) {}

void Device::Advance(double interval_s, bool paused) {
    if (interval_s <= 0.0) return;
    power_W = step(interval_s, paused);
    drawnSinceReading_J += power_W * interval_s;
    energyDrawn_J += power_W * interval_s;
    timeSinceReading_s += interval_s;
}

std::uint32_t Device::ReadTemperature_mC() {
    return toSensorUnits(Temperature_C() + params.temperatureNoise_C * random.Normal());
}

std::uint32_t Device::ReadCurrent_uA() {
    // The mean since the previous reading, as a fuel gauge integrates it.
    const double mean_mA = timeSinceReading_s <= 0.0 ? Current_mA()
                                                     : drawnSinceReading_J / timeSinceReading_s /
                                                           params.batteryVoltage_V * 1000.0;
    drawnSinceReading_J = 0.0;
    timeSinceReading_s = 0.0;
    return toSensorUnits(mean_mA + params.currentNoise_mA * random.Normal());
}

}  // namespace TalvexSim
