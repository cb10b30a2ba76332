#pragma once

#include <vector>

namespace TalvexSim {

struct EmbeddedProfile {
    const char* name;
    const char* text;
};

// The files of tools/sim/devices/, compiled in by CMake.
const std::vector<EmbeddedProfile>& EmbeddedDeviceProfiles();

}  // namespace TalvexSim
