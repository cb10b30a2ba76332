#pragma once

#include <cstdint>

#include "tools/sim/base/Random.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/model/FrameWork.h"

namespace TalvexSim {

// What the reports show of a device's clocks and heat; zero on the older model.
struct DeviceClocks {
    double cpu_MHz = 0.0;  // the domain the game's CPU work runs on
    double gpu_MHz = 0.0;
    double cpuPower_W = 0.0;  // mean over the last interval
    double gpuPower_W = 0.0;
    double die_C = 0.0;
    bool capped = false;  // a thermal ceiling below what the load asked for
};

// The phone around the game: how long a frame takes at the clocks in force, the power it draws,
// how hot it gets, and the host's sensor readings of it. The battery current is the power over
// the battery voltage; the current sensor reads its mean since the previous reading.
class Device {
  public:
    Device(const DeviceParams& params, std::uint64_t seed);
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // How long a frame with that work takes at the clocks in force.
    virtual double FrameMs(const FrameWork& work) const = 0;
    // One frame rendered; its energy is drawn over the next interval.
    virtual void AddFrame(const FrameWork& work) = 0;
    // Moves the device on by that many seconds.
    void Advance(double interval_s, bool paused);

    // The temperature the host's sensor reads, before its noise.
    virtual double Temperature_C() const = 0;
    virtual int GovernorState() const { return 0; }
    virtual DeviceClocks Clocks() const { return {}; }

    double Power_W() const { return power_W; }  // mean over the last interval
    double Current_mA() const { return power_W / params.batteryVoltage_V * 1000.0; }
    double EnergyDrawn_J() const { return energyDrawn_J; }  // since the start

    std::uint32_t ReadTemperature_mC();
    std::uint32_t ReadCurrent_uA();

  protected:
    // Moves the model on; returns the mean power drawn over the interval.
    virtual double step(double interval_s, bool paused) = 0;

    const DeviceParams params;

  private:
    double power_W;
    double drawnSinceReading_J = 0.0;
    double timeSinceReading_s = 0.0;
    double energyDrawn_J = 0.0;
    Random random;
};

}  // namespace TalvexSim
