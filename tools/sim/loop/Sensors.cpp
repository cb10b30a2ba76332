#include "tools/sim/loop/Sensors.h"

#include <algorithm>

#include "tools/sim/base/Units.h"

namespace TalvexSim {

Sensors::Sensors(Device& device_, const GameModel& game_, double period_s)
    : device(device_), game(game_), period_ns(SecondsToNs(period_s)) {}

Readings Sensors::Read(std::int64_t time_ns, double busyShare, bool paused) {
    device.Advance(NsToSeconds(time_ns - deviceTime_ns), paused);
    deviceTime_ns = time_ns;
    if (!read || time_ns - read_ns >= period_ns) {
        held.info.electricCurrent_uA = device.ReadCurrent_uA();
        held.info.temperature_mC = device.ReadTemperature_mC();
        held.temperature_C = held.info.temperature_mC / 1000.0;
        held.current_mA = held.info.electricCurrent_uA / 1000.0;
        read = true;
        read_ns = time_ns;
    }
    Readings readings = held;
    const auto cpu = game.CpuReadings(busyShare);
    std::copy(cpu.begin(), cpu.end(), readings.info.cpuUtils);
    return readings;
}

}  // namespace TalvexSim
