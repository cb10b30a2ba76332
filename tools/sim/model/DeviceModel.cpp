#include "tools/sim/model/DeviceModel.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

std::uint32_t toSensorUnits(double value) {
    const double scaled = std::round(value * 1000.0);
    return static_cast<std::uint32_t>(std::clamp(scaled, 0.0, 4294967295.0));
}

}  // namespace

DeviceModel::DeviceModel(const DeviceParams& params_, bool governorOn_, std::uint64_t seed)
    : params(params_),
      governorOn(governorOn_),
      temperature_C(params_.initial_C),
      power_W(params_.idlePower_W),
      random(seed) {}

void DeviceModel::AddFrame(double relativeWork) {
    const double clock = Clock();
    pendingEnergy_J += params.energyPerFrame_mJ * relativeWork * clock * clock / 1000.0;
}

double DeviceModel::steadyTemperature_C(double power) const {
    return params.ambient_C + params.thermalResistance_CPerW * power;
}

void DeviceModel::Advance(double interval_s, bool paused) {
    if (interval_s <= 0.0) return;
    power_W = (paused ? params.pausedPower_W : params.idlePower_W) + pendingEnergy_J / interval_s;
    pendingEnergy_J = 0.0;
    drawnSinceReading_J += power_W * interval_s;
    energyDrawn_J += power_W * interval_s;
    timeSinceReading_s += interval_s;
    if (!governorOn) {
        heat(interval_s);
        return;
    }
    double left_s = interval_s;
    while (sincePoll_s + left_s >= params.governor.poll_s) {
        const double step_s = params.governor.poll_s - sincePoll_s;
        heat(step_s);
        left_s -= step_s;
        sincePoll_s = 0.0;
        poll();
    }
    heat(left_s);
    sincePoll_s += left_s;
}

void DeviceModel::heat(double interval_s) {
    // Exact step of dT/dt = (T_steady - T) / tau for a constant power over the interval.
    const double steady = steadyTemperature_C(power_W);
    temperature_C =
        steady + (temperature_C - steady) * std::exp(-interval_s / params.thermalTimeConstant_s);
}

void DeviceModel::poll() {
    const GovernorParams& governor = params.governor;
    if (temperature_C > governor.trip_C) {
        governorState = std::min(governorState + 1, governor.maxState);
    } else if (temperature_C < governor.trip_C - governor.hysteresis_C) {
        governorState = std::max(governorState - 1, 0);
    }
}

std::uint32_t DeviceModel::ReadTemperature_mC() {
    return toSensorUnits(temperature_C + params.temperatureNoise_C * random.Normal());
}

double DeviceModel::meanCurrent_mA() const {
    if (timeSinceReading_s <= 0.0) return Current_mA();
    return drawnSinceReading_J / timeSinceReading_s / params.batteryVoltage_V * 1000.0;
}

std::uint32_t DeviceModel::ReadCurrent_uA() {
    const double mean_mA = meanCurrent_mA();
    drawnSinceReading_J = 0.0;
    timeSinceReading_s = 0.0;
    return toSensorUnits(mean_mA + params.currentNoise_mA * random.Normal());
}

}  // namespace TalvexSim
