#include "tools/sim/model/PartsDevice.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string>

#include "tools/sim/model/DeviceModel.h"

namespace TalvexSim {
namespace {

// The game's other threads keep the little cluster this busy while it runs: our choice.
constexpr double kLittleBusy = 0.1;

size_t domainNamed(const std::vector<ClockDomain>& domains, const DevicePartsParams& parts,
                   const std::string& name, size_t fallback) {
    for (size_t i = 0; i < parts.domains.size(); ++i) {
        if (parts.domains[i].name == name) return i;
    }
    return std::min(fallback, domains.size() - 1);
}

std::vector<PolicyDomain> policyDomains(const std::vector<ClockDomain>& domains,
                                        const DevicePartsParams& parts) {
    std::vector<PolicyDomain> seen;
    for (size_t i = 0; i < domains.size(); ++i) {
        PolicyDomain domain;
        domain.name = parts.domains[i].name;
        for (size_t p = 0; p < domains[i].Points().size(); ++p) {
            domain.frequencies_MHz.push_back(domains[i].Points()[p].frequency_MHz);
            domain.maxPower_W.push_back(domains[i].PowerAt_W(p, 1.0));
        }
        seen.push_back(std::move(domain));
    }
    return seen;
}

}  // namespace

PartsDevice::PartsDevice(const DeviceParams& params_, const GameParams& game, bool policyOn_,
                         std::uint64_t seed)
    : Device(params_, seed),
      parts(*params_.parts),
      cpuExponent(game.cpuExponent),
      gpuExponent(game.gpuExponent),
      policyOn(policyOn_),
      nodes(parts.die, parts.skin, params_.ambient_C, params_.initial_C),
      nextPoll_s(params_.governor.poll_s) {
    for (const ClockDomainParams& domain : parts.domains) domains.emplace_back(domain);
    cpu = domainNamed(domains, parts, "cpu_big", 0);
    gpu = domainNamed(domains, parts, "gpu", domains.size() - 1);
    pendingBusy_ms.assign(domains.size(), 0.0);
    busyShares.assign(domains.size(), 0.0);
    lastPower_W.assign(domains.size(), 0.0);
    policyPeriod_s = params_.governor.poll_s;
    if (parts.policy == ThermalPolicyKind::Ceilings) {
        ceilings.emplace(parts.ceilings, policyDomains(domains, parts));
        policyPeriod_s = parts.ceilings.monitorPeriod_s;
        for (const CeilingRule& rule : parts.ceilings.rules) {
            policyPeriod_s = std::min(policyPeriod_s, rule.samplePeriod_s);
        }
    } else if (parts.policy == ThermalPolicyKind::PowerAllocator) {
        allocator.emplace(parts.powerAllocator, policyDomains(domains, parts));
        policyPeriod_s = parts.powerAllocator.pollPeriod_s;
    }
    nextPolicy_s = parts.policy == ThermalPolicyKind::StepWise ? policyPeriod_s : 0.0;
}

double PartsDevice::cpuStageMs(double cpu_ms) const {
    const ClockDomain& domain = domains[cpu];
    return cpu_ms *
           ClockDomain::Stretch(domain.MaxFrequency_MHz(), domain.Frequency_MHz(), cpuExponent);
}

double PartsDevice::gpuStageMs(double gpu_ms) const {
    const ClockDomain& domain = domains[gpu];
    return gpu_ms *
           ClockDomain::Stretch(domain.MaxFrequency_MHz(), domain.Frequency_MHz(), gpuExponent);
}

double PartsDevice::FrameMs(const FrameWork& work) const {
    return std::max(cpuStageMs(work.cpu_ms), gpuStageMs(work.gpu_ms));
}

void PartsDevice::AddFrame(const FrameWork& work) {
    pendingBusy_ms[cpu] += cpuStageMs(work.cpu_ms);
    pendingBusy_ms[gpu] += gpuStageMs(work.gpu_ms);
}

double PartsDevice::step(double interval_s, bool paused) {
    std::vector<double>& busy = busyShares;
    double domains_W = 0.0;
    for (size_t i = 0; i < domains.size(); ++i) {
        const bool little = i != cpu && i != gpu;
        busy[i] = paused   ? 0.0
                  : little ? kLittleBusy
                           : std::min(pendingBusy_ms[i] / (interval_s * 1000.0), 1.0);
        pendingBusy_ms[i] = 0.0;
        lastPower_W[i] = domains[i].Power_W(busy[i]);
        domains_W += lastPower_W[i];
    }
    nodes.Step(interval_s, domains_W);
    time_s += interval_s;
    // A policy acts at its own period; between its samples the ceilings stand.
    if (policyOn && time_s >= nextPolicy_s) {
        pollPolicy(busy);
        while (nextPolicy_s <= time_s) nextPolicy_s += policyPeriod_s;
    }
    for (size_t i = 0; i < domains.size(); ++i) domains[i].Update(time_s, busy[i]);
    return (paused ? params.pausedPower_W : params.idlePower_W) + domains_W;
}

void PartsDevice::pollPolicy(const std::vector<double>& busy) {
    std::map<std::string, double> limits;
    if (ceilings) {
        ceilings->Update(time_s,
                         [this](const std::string& sensor) { return nodes.Node_C(sensor); });
        limits = ceilings->Current();
    } else if (allocator) {
        std::map<std::string, double> requested;
        for (size_t i = 0; i < domains.size(); ++i) {
            requested[parts.domains[i].name] = domains[i].Power_W(busy[i]);
        }
        allocator->Update(time_s, nodes.Node_C(parts.powerAllocator.sensor), requested);
        limits = allocator->Current();
    } else {
        // The older governor's rule on these parts: a share of every domain's top clock per
        // state, polled on the temperature the host reads.
        const GovernorParams& governor = params.governor;
        for (; time_s >= nextPoll_s; nextPoll_s += governor.poll_s) {
            const double temperature = Temperature_C();
            if (temperature > governor.trip_C) {
                stepWiseState = std::min(stepWiseState + 1, governor.maxState);
            } else if (temperature < governor.trip_C - governor.hysteresis_C) {
                stepWiseState = std::max(stepWiseState - 1, 0);
            }
        }
        for (size_t i = 0; i < domains.size(); ++i) {
            limits[parts.domains[i].name] =
                domains[i].MaxFrequency_MHz() * (1.0 - stepWiseState * governor.clockStep);
        }
    }
    for (size_t i = 0; i < domains.size(); ++i) {
        const auto found = limits.find(parts.domains[i].name);
        if (found != limits.end()) domains[i].SetCeiling(found->second);
    }
}

bool PartsDevice::capped() const {
    return std::any_of(domains.begin(), domains.end(), [](const ClockDomain& domain) {
        return domain.Ceiling_MHz() < domain.Requested_MHz();
    });
}

int PartsDevice::GovernorState() const {
    if (!ceilings && !allocator) return stepWiseState;
    return capped() ? 1 : 0;
}

DeviceClocks PartsDevice::Clocks() const {
    DeviceClocks clocks;
    clocks.cpu_MHz = domains[cpu].Frequency_MHz();
    clocks.gpu_MHz = domains[gpu].Frequency_MHz();
    clocks.cpuPower_W = 0.0;
    for (size_t i = 0; i < domains.size(); ++i) {
        if (i != gpu) clocks.cpuPower_W += lastPower_W[i];
    }
    clocks.gpuPower_W = lastPower_W[gpu];
    clocks.die_C = nodes.Die_C();
    clocks.capped = capped();
    return clocks;
}

std::unique_ptr<Device> MakeDevice(const Scenario& scenario, bool policyOn, std::uint64_t seed) {
    if (scenario.device.parts) {
        return std::make_unique<PartsDevice>(scenario.device, scenario.game, policyOn, seed);
    }
    return std::make_unique<DeviceModel>(scenario.device, policyOn, seed);
}

}  // namespace TalvexSim
