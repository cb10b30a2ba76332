#pragma once

#include <algorithm>

namespace TalvexSim {

// A frame's work at full clocks. A game engine pipelines the two, so a frame takes the longer
// of them.
struct FrameWork {
    double cpu_ms = 0.0;
    double gpu_ms = 0.0;
    double relative = 1.0;  // against the game's nominal work: what the older model charges

    double Longer_ms() const { return std::max(cpu_ms, gpu_ms); }
};

}  // namespace TalvexSim
