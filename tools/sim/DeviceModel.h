#pragma once

#include <cstdint>

#include "tools/sim/Random.h"
#include "tools/sim/Scenario.h"

namespace TalvexSim {

// The phone around the game: its temperature follows the power drawn as a first-order
// response towards ambient + thermal resistance x power, and the battery current is that power
// over the battery voltage. The power is the idle draw plus the energy of the frames rendered,
// so it grows with the frame rate.
class DeviceModel {
  public:
    DeviceModel(const DeviceParams& params, std::uint64_t seed);

    // One rendered frame; relativeWork 1 costs energyPerFrame_mJ.
    void AddFrame(double relativeWork);
    // Moves the model on by that many seconds, drawing the idle (or paused) power plus the
    // energy of the frames added since the previous call, spread evenly over the interval.
    void Advance(double interval_s, bool paused);

    double Temperature_C() const { return temperature_C; }
    double Power_W() const { return power_W; }  // mean over the last interval
    double Current_mA() const { return power_W / params.batteryVoltage_V * 1000.0; }

    // Sensor readings as the host record carries them, with the sensors' noise; the current is
    // the mean since the previous current reading.
    std::uint32_t ReadTemperature_mC();
    std::uint32_t ReadCurrent_uA();

  private:
    // The temperature the device settles at while drawing that power.
    double steadyTemperature_C(double power) const;
    // Mean current since the previous current reading, as a fuel gauge integrates it.
    double meanCurrent_mA() const;

    DeviceParams params;
    double temperature_C;
    double power_W;
    double pendingEnergy_J = 0.0;
    double drawnSinceReading_J = 0.0;
    double timeSinceReading_s = 0.0;
    Random random;
};

}  // namespace TalvexSim
