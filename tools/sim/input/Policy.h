#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sim/input/Pacing.h"

namespace TalvexSim {

// Who keeps the frame rate in a run. The thermal governor belongs to the device and is on in
// every policy but None, as on a real phone.
enum class PolicyKind {
    Library,       // "talvex": the FPS manager decides, the pacing object holds its SFPS;
                   // "talvex+deadline" paces to deadlines instead of the frame quota,
                   // "talvex+deadline-vsync" to deadlines on the display's refreshes
    Governor,      // "governor": no library, the game at its own cap
    SwapInterval,  // "swap-interval": no library, the game paced to whole refresh periods as
                   // Android's frame pacing library paces it
    Fixed,         // "fixed:N": the pacing object held at N throughout, no FPS manager
    None,          // "none": neither the library nor the governor, the thermal worst case
};

struct Policy {
    PolicyKind kind = PolicyKind::Library;
    int fixedFps = 0;  // Fixed only
    // The pacing object's policy when the name chooses one; else the scenario's.
    std::optional<Pacing> pacing;
    std::string name;  // as written: "talvex", "fixed:45", ...

    bool UsesManager() const { return kind == PolicyKind::Library; }
    bool GovernorOn() const { return kind != PolicyKind::None; }
};

// Throws std::invalid_argument with a message naming the faulty item.
Policy ParsePolicy(const std::string& text);
// A comma-separated list; an empty text gives talvex, swap-interval, governor and none.
std::vector<Policy> ParsePolicyList(const std::string& text);

}  // namespace TalvexSim
