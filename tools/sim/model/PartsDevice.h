#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "tools/sim/model/ClockDomain.h"
#include "tools/sim/model/Device.h"
#include "tools/sim/model/ThermalNodes.h"
#include "tools/sim/model/ThermalPolicy.h"

namespace TalvexSim {

// A phone made of real parts: clock domains whose frequency follows the load (the kernel's
// schedutil) under the ceilings a thermal policy sets, power from the kernel's energy model,
// a die heated by the domains and a skin heated by the die. The game's CPU work runs on the
// big cluster and its GPU work on the GPU, each stretched by (f_max / f)^exponent; the frame
// takes the longer of the two. The thermal policy is the device's, on in every policy but none.
class PartsDevice : public Device {
  public:
    PartsDevice(const DeviceParams& params, const GameParams& game, bool policyOn,
                std::uint64_t seed);

    double FrameMs(const FrameWork& work) const override;
    void AddFrame(const FrameWork& work) override;
    double Temperature_C() const override { return nodes.Node_C(parts.hostSensor); }
    // The step-wise governor's state; under the other policies 1 while a ceiling holds a
    // domain below what its load asks for.
    int GovernorState() const override;
    DeviceClocks Clocks() const override;

  protected:
    double step(double interval_s, bool paused) override;

  private:
    double cpuStageMs(double cpu_ms) const;
    double gpuStageMs(double gpu_ms) const;
    void pollPolicy(const std::vector<double>& busy);
    bool capped() const;

    const DevicePartsParams parts;
    const double cpuExponent;
    const double gpuExponent;
    const bool policyOn;
    std::vector<ClockDomain> domains;
    size_t cpu = 0;  // the domain the game's CPU work runs on
    size_t gpu = 0;
    std::vector<double> pendingBusy_ms;
    std::vector<double> busyShares;  // of the last step, kept to spare an allocation a frame
    std::vector<double> lastPower_W;
    ThermalNodes nodes;
    std::optional<CeilingsPolicy> ceilings;
    std::optional<PowerAllocatorPolicy> allocator;
    double time_s = 0.0;
    double nextPoll_s;
    double policyPeriod_s = 1.0;
    double nextPolicy_s = 0.0;
    int stepWiseState = 0;
};

// The device a scenario describes: made of parts when it names a profile, else the older model.
std::unique_ptr<Device> MakeDevice(const Scenario& scenario, bool policyOn, std::uint64_t seed);

}  // namespace TalvexSim
