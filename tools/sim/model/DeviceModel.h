#pragma once

#include <cstdint>

#include "tools/sim/base/Random.h"
#include "tools/sim/input/Scenario.h"

namespace TalvexSim {

// The phone around the game: its temperature follows the power drawn as a first-order
// response towards ambient + thermal resistance x power, and the battery current is that power
// over the battery voltage. The power is the idle draw plus the energy of the frames rendered,
// so it grows with the frame rate. A step-wise thermal governor, when on, lowers the clock
// while the device is past its trip temperature: a frame's work then takes longer, and costs
// less energy (dynamic power grows about with the cube of the clock, so the energy of a
// frame's work with its square).
class DeviceModel {
  public:
    DeviceModel(const DeviceParams& params, bool governorOn, std::uint64_t seed);

    // One rendered frame; relativeWork 1 costs energyPerFrame_mJ at the full clock.
    void AddFrame(double relativeWork);
    // Moves the model on by that many seconds, drawing the idle (or paused) power plus the
    // energy of the frames added since the previous call, spread evenly over the interval. The
    // governor polls at its own period inside the interval.
    void Advance(double interval_s, bool paused);

    double Temperature_C() const { return temperature_C; }
    double Power_W() const { return power_W; }  // mean over the last interval
    double Current_mA() const { return power_W / params.batteryVoltage_V * 1000.0; }
    double EnergyDrawn_J() const { return energyDrawn_J; }  // since the start
    int GovernorState() const { return governorState; }
    // Share of the full clock the governor leaves; a frame's work is stretched by its inverse.
    double Clock() const { return 1.0 - governorState * params.governor.clockStep; }

    // Sensor readings as the host record carries them, with the sensors' noise; the current is
    // the mean since the previous current reading.
    std::uint32_t ReadTemperature_mC();
    std::uint32_t ReadCurrent_uA();

  private:
    // The temperature the device settles at while drawing that power.
    double steadyTemperature_C(double power) const;
    // Mean current since the previous current reading, as a fuel gauge integrates it.
    double meanCurrent_mA() const;
    void heat(double interval_s);
    void poll();

    DeviceParams params;
    bool governorOn;
    double temperature_C;
    double power_W;
    double pendingEnergy_J = 0.0;
    double drawnSinceReading_J = 0.0;
    double timeSinceReading_s = 0.0;
    double energyDrawn_J = 0.0;
    double sincePoll_s = 0.0;
    int governorState = 0;
    Random random;
};

}  // namespace TalvexSim
