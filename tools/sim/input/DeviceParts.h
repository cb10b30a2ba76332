#pragma once

#include <string>
#include <utility>
#include <vector>

namespace TalvexSim {

// A phone made of real parts: clock domains that follow the load under the kernel's frequency
// governor, two thermal nodes, and a thermal policy that sets the domains' ceilings. Every
// figure comes from a device profile (tools/sim/devices/), overridden field by field by the
// scenario.

struct OperatingPoint {
    double frequency_MHz = 0.0;
    double voltage_V = 0.0;
};

// A CPU cluster or the GPU.
struct ClockDomainParams {
    std::string name;                    // "cpu_little", "cpu_big", "gpu"
    std::vector<OperatingPoint> points;  // ascending in frequency, at least one
    int cores = 1;                       // power counts per core (the energy model's tables)
    // The energy model's C in dynamic power = C x V^2 x f: uW per MHz per V^2, per core.
    double dynamicPowerCoefficient = 0.0;
    double staticPower_W = 0.0;  // leakage of the whole domain while powered
    // The frequency governor's rate limit: a new frequency no sooner than this after the last.
    double rateLimit_s = 0.01;
};

// First-order nodes: the die heats in seconds, the skin in minutes.
struct ThermalNodeParams {
    std::string name;  // "die", "skin"
    double capacity_JPerC = 1.0;
    double resistance_CPerW = 1.0;  // to the next node (die -> skin) or to ambient (skin)
};

enum class ThermalPolicyKind { StepWise, Ceilings, PowerAllocator };

// A step-wise rule of a thermal-engine configuration: above the set point the domain's ceiling
// steps one operating point down per sample, never below the limit; below the clearing point it
// steps back up.
struct CeilingRule {
    std::string sensor;  // a node's name
    double samplePeriod_s = 2.0;
    double setPoint_C = 0.0;
    double clearPoint_C = 0.0;
    std::string domain;
    double limit_MHz = 0.0;
};

// A monitor level: at or above the threshold each listed domain is held at most at its ceiling,
// until the temperature falls below the clearing point.
struct MonitorLevel {
    double threshold_C = 0.0;
    double clear_C = 0.0;
    std::vector<std::pair<std::string, double>> ceilings_MHz;  // domain, ceiling
};

struct CeilingsParams {
    std::vector<CeilingRule> rules;
    std::string monitorSensor;
    double monitorPeriod_s = 2.0;
    std::vector<MonitorLevel> levels;  // ascending thresholds
};

// The kernel's power allocator: a PID on the control temperature grants a power budget, split
// among the domains in proportion to what they ask for, turned into frequency ceilings.
struct PowerAllocatorParams {
    std::string sensor;
    double pollPeriod_s = 0.1;
    double switchOn_C = 0.0;
    double control_C = 0.0;
    double sustainablePower_W = 0.0;
    double kPo = 0.0;  // W per C, above the control temperature
    double kPu = 0.0;  // W per C, below it
    double kI = 0.0;
    double kD = 0.0;
    double integralCutoff_C = 0.0;
    std::vector<std::string> domains;
};

struct DevicePartsParams {
    std::string profile;  // the name or path it was loaded from
    std::vector<ClockDomainParams> domains;
    ThermalNodeParams die{"die", 2.0, 5.0};
    ThermalNodeParams skin{"skin", 80.0, 10.0};
    std::string hostSensor = "skin";  // the node the library's temperature reading comes from
    ThermalPolicyKind policy = ThermalPolicyKind::StepWise;
    CeilingsParams ceilings;
    PowerAllocatorParams powerAllocator;
};

}  // namespace TalvexSim
