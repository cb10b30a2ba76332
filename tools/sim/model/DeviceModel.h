#pragma once

#include <cstdint>

#include "tools/sim/model/Device.h"

namespace TalvexSim {

// The older phone: one temperature follows the power drawn as a first-order response towards
// ambient + thermal resistance x power. The power is the idle draw plus the energy of the frames
// rendered, so it grows with the frame rate. A step-wise thermal governor, when on, lowers the
// clock while the device is past its trip temperature: a frame's work then takes longer, and
// costs less energy (dynamic power grows about with the cube of the clock, so the energy of a
// frame's work with its square).
class DeviceModel : public Device {
  public:
    DeviceModel(const DeviceParams& params, bool governorOn, std::uint64_t seed);

    double FrameMs(const FrameWork& work) const override { return work.Longer_ms() / Clock(); }
    // relative work 1 costs energyPerFrame_mJ at the full clock.
    void AddFrame(const FrameWork& work) override;
    double Temperature_C() const override { return temperature_C; }
    int GovernorState() const override { return governorState; }
    // Share of the full clock the governor leaves; a frame's work is stretched by its inverse.
    double Clock() const { return 1.0 - governorState * params.governor.clockStep; }

  protected:
    // Draws the idle (or paused) power plus the energy of the frames added since the previous
    // step, spread evenly; the governor polls at its own period inside the interval.
    double step(double interval_s, bool paused) override;

  private:
    void heat(double interval_s, double power_W);
    void poll();

    bool governorOn;
    double temperature_C;
    double pendingEnergy_J = 0.0;
    double sincePoll_s = 0.0;
    int governorState = 0;
};

}  // namespace TalvexSim
