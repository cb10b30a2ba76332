#pragma once

#include <cstdint>

#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"
#include "tools/sim/model/Device.h"
#include "tools/sim/model/GameModel.h"

namespace TalvexSim {

// What the host hands the library at one moment.
struct Readings {
    android::FpsStabilizer::SYS_INFO info{};
    double temperature_C = 0.0;
    double current_mA = 0.0;
};

// The host's view of the device: the device moves on continuously, but its temperature and
// current are read only once per sensor period and held in between, as a host polls them.
class Sensors {
  public:
    Sensors(Device& device, const GameModel& game, double period_s);

    // Moves the device on to `time`; the CPU readings are those of a stretch in which the game
    // worked `busyShare` of the time.
    Readings Read(std::int64_t time_ns, double busyShare, bool paused);

  private:
    Device& device;
    const GameModel& game;
    const std::int64_t period_ns;
    std::int64_t deviceTime_ns = 0;
    Readings held;
    bool read = false;
    std::int64_t read_ns = 0;
};

}  // namespace TalvexSim
