#include "tools/sim/model/DeviceModel.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {

DeviceModel::DeviceModel(const DeviceParams& params_, bool governorOn_, std::uint64_t seed)
    : Device(params_, seed), governorOn(governorOn_), temperature_C(params_.initial_C) {}

void DeviceModel::AddFrame(const FrameWork& work) {
    const double clock = Clock();
    pendingEnergy_J += params.energyPerFrame_mJ * work.relative * clock * clock / 1000.0;
}

double DeviceModel::step(double interval_s, bool paused) {
    const double power_W =
        (paused ? params.pausedPower_W : params.idlePower_W) + pendingEnergy_J / interval_s;
    pendingEnergy_J = 0.0;
    if (!governorOn) {
        heat(interval_s, power_W);
        return power_W;
    }
    double left_s = interval_s;
    while (sincePoll_s + left_s >= params.governor.poll_s) {
        const double step_s = params.governor.poll_s - sincePoll_s;
        heat(step_s, power_W);
        left_s -= step_s;
        sincePoll_s = 0.0;
        poll();
    }
    heat(left_s, power_W);
    sincePoll_s += left_s;
    return power_W;
}

void DeviceModel::heat(double interval_s, double power_W) {
    // Exact step of dT/dt = (T_steady - T) / tau for a constant power over the interval.
    const double steady = params.ambient_C + params.thermalResistance_CPerW * power_W;
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

}  // namespace TalvexSim
