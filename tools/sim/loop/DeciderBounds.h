#pragma once

#include <vector>

#include "talvex/user_settings/UserSetting.h"

namespace TalvexSim {

// The temperature and current decider bounds in force, for the rows: the library's defaults,
// then every record the session hands the library, in order; a record that is not a number
// leaves its bound as it was. The keys and defaults are the deciders' own.
struct DeciderBounds {
    DeciderBounds();
    void Apply(const std::vector<UserSettings::UserSetting>& settings);

    double temperatureLower_C;
    double temperatureUpper_C;
    double currentThreshold_mA;  // NaN: off
};

}  // namespace TalvexSim
