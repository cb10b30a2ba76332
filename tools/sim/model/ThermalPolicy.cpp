#include "tools/sim/model/ThermalPolicy.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace TalvexSim {
namespace {

void CheckDomains(const std::vector<PolicyDomain>& domains, bool needPower) {
    for (const PolicyDomain& domain : domains) {
        if (domain.frequencies_MHz.empty()) {
            throw std::invalid_argument("thermal policy: domain " + domain.name +
                                        " has no operating points");
        }
        if (needPower && domain.maxPower_W.size() != domain.frequencies_MHz.size()) {
            throw std::invalid_argument("thermal policy: domain " + domain.name +
                                        " needs a power for each operating point");
        }
    }
}

std::size_t FindDomain(const std::vector<PolicyDomain>& domains, const std::string& name) {
    for (std::size_t i = 0; i < domains.size(); ++i) {
        if (domains[i].name == name) return i;
    }
    throw std::invalid_argument("thermal policy: unknown domain " + name);
}

std::size_t Top(const PolicyDomain& domain) { return domain.frequencies_MHz.size() - 1; }

// The lowest point at or above the figure; the top if none is.
std::size_t PointAtOrAbove(const PolicyDomain& domain, double frequency_MHz) {
    const auto& points = domain.frequencies_MHz;
    auto it = std::lower_bound(points.begin(), points.end(), frequency_MHz);
    return it == points.end() ? Top(domain) : static_cast<std::size_t>(it - points.begin());
}

// The highest point at or below the figure; the lowest if none is.
std::size_t PointAtOrBelow(const std::vector<double>& values, double figure) {
    auto it = std::upper_bound(values.begin(), values.end(), figure);
    return it == values.begin() ? 0 : static_cast<std::size_t>(it - values.begin()) - 1;
}

}  // namespace

SampleClock::SampleClock(double period_s) : period(period_s) {
    if (!(period_s > 0.0)) throw std::invalid_argument("thermal policy: period must be positive");
}

bool SampleClock::Due(double time_s) {
    if (time_s < next_s) return false;
    // Stay on the grid of whole periods so that sampling does not drift with the caller's step.
    next_s += period * (std::floor((time_s - next_s) / period) + 1.0);
    return true;
}

CeilingsPolicy::CeilingsPolicy(const CeilingsParams& params_, std::vector<PolicyDomain> domains_)
    : params(params_), domains(std::move(domains_)), monitorClock(params_.monitorPeriod_s) {
    CheckDomains(domains, false);
    for (const CeilingRule& rule : params.rules) {
        std::size_t domain = FindDomain(domains, rule.domain);
        rules.push_back({rule, domain, PointAtOrAbove(domains[domain], rule.limit_MHz),
                         Top(domains[domain]), SampleClock(rule.samplePeriod_s)});
    }
    for (const auto& level : params.levels) {
        LevelCeilings points;
        for (const auto& [name, ceiling_MHz] : level.ceilings_MHz) {
            std::size_t domain = FindDomain(domains, name);
            points.points[domain] = PointAtOrBelow(domains[domain].frequencies_MHz, ceiling_MHz);
        }
        levels.push_back(points);
    }
}

void CeilingsPolicy::Update(double time_s,
                            const std::function<double(const std::string&)>& temperature_C) {
    for (RuleState& state : rules) {
        if (state.clock.Due(time_s)) StepRule(state, temperature_C(state.rule.sensor));
    }
    if (!levels.empty() && monitorClock.Due(time_s)) {
        StepMonitor(temperature_C(params.monitorSensor));
    }
}

void CeilingsPolicy::StepRule(RuleState& state, double temperature_C) const {
    if (temperature_C >= state.rule.setPoint_C) {
        if (state.ceiling > state.floor) --state.ceiling;
    } else if (temperature_C < state.rule.clearPoint_C) {
        if (state.ceiling < Top(domains[state.domain])) ++state.ceiling;
    }
}

void CeilingsPolicy::StepMonitor(double temperature_C) {
    int reached = -1;
    for (std::size_t i = 0; i < params.levels.size(); ++i) {
        if (temperature_C >= params.levels[i].threshold_C) reached = static_cast<int>(i);
    }
    // Hysteresis: a level above the one reached holds until its own clearing point.
    while (activeLevel > reached &&
           temperature_C < params.levels[static_cast<std::size_t>(activeLevel)].clear_C) {
        --activeLevel;
    }
    activeLevel = std::max(activeLevel, reached);
}

Ceilings CeilingsPolicy::Current() const {
    std::vector<std::size_t> points(domains.size());
    for (std::size_t i = 0; i < domains.size(); ++i) points[i] = Top(domains[i]);
    for (const RuleState& state : rules) {
        points[state.domain] = std::min(points[state.domain], state.ceiling);
    }
    if (activeLevel >= 0) {
        for (const auto& [domain, point] : levels[static_cast<std::size_t>(activeLevel)].points) {
            points[domain] = std::min(points[domain], point);
        }
    }
    Ceilings ceilings;
    for (std::size_t i = 0; i < domains.size(); ++i) {
        ceilings[domains[i].name] = domains[i].frequencies_MHz[points[i]];
    }
    return ceilings;
}

PowerAllocatorPolicy::PowerAllocatorPolicy(const PowerAllocatorParams& params_,
                                           std::vector<PolicyDomain> domains_)
    : params(params_), domains(std::move(domains_)), clock(params_.pollPeriod_s) {
    CheckDomains(domains, true);
    if (params.domains.empty()) {
        for (std::size_t i = 0; i < domains.size(); ++i) actors.push_back(i);
    }
    for (const std::string& name : params.domains) actors.push_back(FindDomain(domains, name));
    // The kernel's max_allocatable_power: every actor at its least throttled point.
    for (std::size_t actor : actors) maxAllocatable_W += domains[actor].maxPower_W.back();
    SwitchOff();
}

void PowerAllocatorPolicy::Update(double time_s, double temperature_C,
                                  const std::map<std::string, double>& requested_W) {
    if (clock.Due(time_s)) Poll(temperature_C, requested_W);
}

void PowerAllocatorPolicy::SwitchOff() {
    integral_C = 0.0;
    previousError_C = 0.0;
    budget_W = maxAllocatable_W;
    granted_W.clear();
    ceilings.resize(domains.size());
    for (std::size_t i = 0; i < domains.size(); ++i) ceilings[i] = Top(domains[i]);
}

void PowerAllocatorPolicy::Poll(double temperature_C,
                                const std::map<std::string, double>& requested_W) {
    if (temperature_C < params.switchOn_C) {
        SwitchOff();
        return;
    }
    budget_W = PidBudget(temperature_C);
    granted_W = Divide(requested_W);
    for (std::size_t a = 0; a < actors.size(); ++a) {
        ceilings[actors[a]] = PointAtOrBelow(domains[actors[a]].maxPower_W, granted_W[a]);
    }
}

// pid_controller() in gov_power_allocator.c, in watts and degrees rather than fixed point.
double PowerAllocatorPolicy::PidBudget(double temperature_C) {
    const double error = params.control_C - temperature_C;
    const double p = (error < 0.0 ? params.kPo : params.kPu) * error;
    // Integrate only below the cutoff, and only while the term stays under the allocatable
    // power: the kernel's guard against wind-up.
    if (error < params.integralCutoff_C &&
        std::abs(params.kI * (integral_C + error)) < maxAllocatable_W) {
        integral_C += error;
    }
    const double i = params.kI * integral_C;
    const double d = params.kD * (error - previousError_C) / clock.Period_s();
    previousError_C = error;
    return std::clamp(params.sustainablePower_W + p + i + d, 0.0, maxAllocatable_W);
}

// divvy_up_power() in gov_power_allocator.c: shares in proportion to the requests, each capped
// at the actor's top power, the capped surplus handed out in proportion to the headroom left.
std::vector<double> PowerAllocatorPolicy::Divide(
    const std::map<std::string, double>& requested_W) const {
    std::vector<double> requests(actors.size(), 0.0);
    for (std::size_t a = 0; a < actors.size(); ++a) {
        auto it = requested_W.find(domains[actors[a]].name);
        if (it != requested_W.end()) requests[a] = std::max(it->second, 0.0);
    }
    const double total = std::accumulate(requests.begin(), requests.end(), 0.0);
    std::vector<double> granted(actors.size(), 0.0);
    std::vector<double> headroom(actors.size(), 0.0);
    double surplus = 0.0;
    for (std::size_t a = 0; a < actors.size(); ++a) {
        const double top_W = domains[actors[a]].maxPower_W.back();
        // Nothing asked for, nothing granted.
        granted[a] = total > 0.0 ? budget_W * requests[a] / total : 0.0;
        surplus += std::max(granted[a] - top_W, 0.0);
        granted[a] = std::min(granted[a], top_W);
        headroom[a] = top_W - granted[a];
    }
    const double totalHeadroom = std::accumulate(headroom.begin(), headroom.end(), 0.0);
    if (surplus > 0.0 && totalHeadroom > 0.0) {
        for (std::size_t a = 0; a < actors.size(); ++a) {
            granted[a] += std::min(surplus * headroom[a] / totalHeadroom, headroom[a]);
        }
    }
    return granted;
}

Ceilings PowerAllocatorPolicy::Current() const {
    Ceilings result;
    for (std::size_t i = 0; i < domains.size(); ++i) {
        result[domains[i].name] = domains[i].frequencies_MHz[ceilings[i]];
    }
    return result;
}

std::map<std::string, double> PowerAllocatorPolicy::Granted_W() const {
    std::map<std::string, double> result;
    for (std::size_t a = 0; a < granted_W.size(); ++a)
        result[domains[actors[a]].name] = granted_W[a];
    return result;
}

}  // namespace TalvexSim
