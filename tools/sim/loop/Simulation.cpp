#include "tools/sim/loop/Simulation.h"

#include <cstdlib>

namespace TalvexSim {

int SfpsOfNodeText(const std::string& text) {
    const size_t first = text.find(',');
    const size_t second = first == std::string::npos ? first : text.find(',', first + 1);
    if (second == std::string::npos) return -1;
    const std::string field = text.substr(first + 1, second - first - 1);
    char* end = nullptr;
    const long value = std::strtol(field.c_str(), &end, 10);
    if (field.empty() || *end != '\0') return -1;
    return static_cast<int>(value);
}

}  // namespace TalvexSim
