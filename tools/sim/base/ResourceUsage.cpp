#include "tools/sim/base/ResourceUsage.h"

#include <fstream>
#include <sstream>
#include <string>

namespace TalvexSim {

std::optional<ResidentMemory> ReadResidentMemory() {
    // VmHWM is the peak of VmRSS; getrusage's ru_maxrss has no current figure.
    std::ifstream status("/proc/self/status");
    std::optional<std::uint64_t> current;
    std::optional<std::uint64_t> peak;
    std::string line;
    while (std::getline(status, line)) {
        std::istringstream fields(line);
        std::string name;
        std::uint64_t kibibytes = 0;
        if (!(fields >> name >> kibibytes)) continue;
        if (name == "VmRSS:") current = kibibytes * 1024;
        if (name == "VmHWM:") peak = kibibytes * 1024;
    }
    if (!current || !peak) return std::nullopt;
    return ResidentMemory{*current, *peak};
}

}  // namespace TalvexSim
