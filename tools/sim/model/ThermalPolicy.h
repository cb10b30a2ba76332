#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/sim/input/DeviceParts.h"

namespace TalvexSim {

// What a thermal policy sees of a clock domain.
struct PolicyDomain {
    std::string name;
    std::vector<double> frequencies_MHz;  // ascending operating points, at least one
    std::vector<double> maxPower_W;       // power at each point at full load, same order
};

// What a policy decides: each domain's frequency ceiling, in MHz, always one of its points.
using Ceilings = std::map<std::string, double>;

// A sampler on its own period: due at 0, then at every whole period after. A call that skips
// several periods samples once, so a coarse caller under-samples rather than replays.
class SampleClock {
  public:
    explicit SampleClock(double period_s);
    bool Due(double time_s);
    double Period_s() const { return period; }

  private:
    double period;
    double next_s = 0.0;
};

// A thermal-engine configuration, as in taimen's thermal-engine.conf
// (LineageOS/android_device_google_taimen): step-wise rules and a monitor table. Both read a
// sensor when due; the caller must know every sensor the rules name.
// - Rule: at or above its set point, its ceiling goes one point down, never below the lowest
//   point at or above its limit; below its clearing point one point up; else it holds.
// - Monitor: the highest level whose threshold is reached holds its ceilings (each the highest
//   point at or below the level's figure); a level is left only below its clearing point.
// A domain's ceiling is the lowest of its rules' and the active level's.
class CeilingsPolicy {
  public:
    // Throws std::invalid_argument for a domain without points, a rule or level naming an
    // unknown domain, or a period that is not positive.
    CeilingsPolicy(const CeilingsParams& params, std::vector<PolicyDomain> domains);

    void Update(double time_s,
                const std::function<double(const std::string& sensor)>& temperature_C);
    Ceilings Current() const;
    // The active monitor level, 0 for none, 1 for the lowest.
    int ActiveLevel() const { return activeLevel + 1; }

  private:
    struct RuleState {
        CeilingRule rule;
        std::size_t domain;
        std::size_t floor;    // the lowest point the rule may set
        std::size_t ceiling;  // the point it sets now
        SampleClock clock;
    };
    struct LevelCeilings {
        std::map<std::size_t, std::size_t> points;  // domain -> point
    };

    void StepRule(RuleState& state, double temperature_C) const;
    void StepMonitor(double temperature_C);

    CeilingsParams params;
    std::vector<PolicyDomain> domains;
    std::vector<RuleState> rules;
    std::vector<LevelCeilings> levels;
    SampleClock monitorClock;
    int activeLevel = -1;
};

// The kernel's power allocator (drivers/thermal/gov_power_allocator.c): a PID on one sensor
// grants a power budget, split among the domains in proportion to what they ask for; each
// share becomes the highest point whose full-load power fits it (powers ascend with the
// points).
// Left out: the slower polling below the switch-on temperature, actor weights, and the CPU
// cooling device's division of the share by the measured load.
class PowerAllocatorPolicy {
  public:
    // Throws std::invalid_argument for a domain without points or with a power per point
    // missing, a listed domain that is unknown, or a period that is not positive. With no
    // domains listed every domain is an actor.
    PowerAllocatorPolicy(const PowerAllocatorParams& params, std::vector<PolicyDomain> domains);

    // requested_W: what each domain draws now; a domain left out asks for nothing.
    void Update(double time_s, double temperature_C,
                const std::map<std::string, double>& requested_W);
    Ceilings Current() const;
    // The last budget; while switched off, the sum of the actors' top powers (no limit).
    double Budget_W() const { return budget_W; }
    // Each actor's share of the last budget; empty while switched off.
    std::map<std::string, double> Granted_W() const;

  private:
    void Poll(double temperature_C, const std::map<std::string, double>& requested_W);
    double PidBudget(double temperature_C);
    std::vector<double> Divide(const std::map<std::string, double>& requested_W) const;
    void SwitchOff();

    PowerAllocatorParams params;
    std::vector<PolicyDomain> domains;
    std::vector<std::size_t> actors;  // indices into domains
    double maxAllocatable_W = 0.0;
    SampleClock clock;
    double integral_C = 0.0;  // the sum of the errors integrated so far
    double previousError_C = 0.0;
    double budget_W = 0.0;
    std::vector<double> granted_W;      // per actor, empty while off
    std::vector<std::size_t> ceilings;  // per domain, a point
};

}  // namespace TalvexSim
