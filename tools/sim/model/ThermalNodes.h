#pragma once

#include <string>

#include "tools/sim/input/DeviceParts.h"

namespace TalvexSim {

// Two first-order nodes in series: the die, heated by the domains' power, loses heat through
// its resistance to the skin, which loses it through its own to the ambient air.
class ThermalNodes {
  public:
    // Throws std::invalid_argument for a capacity or resistance that is not positive.
    ThermalNodes(const ThermalNodeParams& die, const ThermalNodeParams& skin, double ambient_C,
                 double initial_C);

    // power_W held for dt_s; exact for any step, so a step of a second is as good as many.
    void Step(double dt_s, double power_W);

    double Die_C() const { return die_C; }
    double Skin_C() const { return skin_C; }
    // By the nodes' names; throws std::invalid_argument for any other.
    double Node_C(const std::string& name) const;

  private:
    ThermalNodeParams die;
    ThermalNodeParams skin;
    double ambient_C;
    double die_C;
    double skin_C;
};

}  // namespace TalvexSim
