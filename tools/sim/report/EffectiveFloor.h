#pragma once

#include <optional>
#include <string>
#include <vector>

#include "talvex/user_settings/UserSetting.h"

namespace TalvexSim {

// The lowest SFPS the settings in force at the end of a run allow while a GFPS is held.
struct SfpsFloor {
    int gfps = 0;
    std::optional<int> floor;  // nothing when the settings give that GFPS none
    // Where it comes from: the last record that changed it, that record's own entry for the
    // GFPS when the record is an SFPS list, and the GFPS candidate under this one.
    std::string record;
    std::optional<int> configured;
    std::optional<int> candidateBelow;
};

// Asks the library's own GFPS evaluator, fed the records in order, rather than repeating its
// rules. The evaluator files its setting actions with the process-wide settings center under
// the center's current PID, so this runs it under a PID no process has and forgets that PID
// afterwards; the center is then left with no current PID, as a manager's pause leaves it.
// Call it when no FPS manager of this process is running (the simulator builds its report
// after the run's manager is gone), and from one thread. The evaluator's log goes nowhere.
std::vector<SfpsFloor> EffectiveSfpsFloors(const std::vector<UserSettings::UserSetting>& settings,
                                           int refreshRate_Hz, const std::vector<int>& gfpsHeld);

}  // namespace TalvexSim
