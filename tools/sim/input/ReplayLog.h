#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace TalvexSim {

// One tick of a recorded host log: what the host handed the FPS manager.
struct ReplayTick {
    double time_s = 0.0;
    int ofps = 0;
    int refreshRate_Hz = 0;
    std::uint32_t current_uA = 0;
    std::array<std::uint64_t, 4> cpuUtils{};
    std::uint32_t temperature_mC = 0;
};

// The header names, in the order the simulator writes them; a file may order them freely.
const std::vector<std::string>& ReplayColumns();

// A CSV file with a header line naming every column once. Throws InputError naming the file,
// line and column of the first fault: a missing or unknown column, a short row, a cell that is
// not a number of the column's kind, time going backwards, or no tick at all.
std::vector<ReplayTick> LoadReplayFile(const std::string& path);
std::vector<ReplayTick> ParseReplayText(const std::string& text, const std::string& sourceName);

}  // namespace TalvexSim
