#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "SimTestSupport.h"
#include "tools/sim/model/ClockDomain.h"
#include "tools/sim/model/PartsDevice.h"
#include "tools/sim/model/ThermalNodes.h"

namespace TalvexSim {
namespace {

// RK3399's big cluster: two Cortex-A72 at C = 436 uW/MHz/V^2 and a 10 ms rate limit.
ClockDomainParams BigCluster() {
    ClockDomainParams params;
    params.name = "cpu_big";
    params.points = {{408, 0.825},  {600, 0.825},  {816, 0.825},  {1008, 0.875},
                     {1200, 0.950}, {1416, 1.025}, {1608, 1.100}, {1800, 1.200}};
    params.cores = 2;
    params.dynamicPowerCoefficient = 436;
    params.rateLimit_s = 0.01;
    return params;
}

// Updates a second apart, so the rate limit never holds one back.
TEST(ClockDomainTest, SchedutilPicksTheLowestPointAtOrAbove125PercentOfTheLoad) {
    ClockDomain big(BigCluster());
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 1800);
    EXPECT_DOUBLE_EQ(big.Requested_MHz(), 1800);
    const struct {
        double busy;
        double expected_MHz;  // 1.25 x busy x the frequency before
    } steps[] = {
        {0.5, 1200},   // 1125 at 1800
        {0.5, 816},    // 750 at 1200
        {1.0, 1200},   // 1020 at 816
        {0.0, 408},    // nothing to do: the lowest
        {1.0, 600},    // 510 at 408
        {1.0, 816},    // 750 at 600
        {0.9, 1008},   // 918 at 816
        {1.0, 1416},   // 1260 at 1008
        {1.0, 1800},   // 1770 at 1416
        {1.0, 1800},   // 2250: above every point, so the highest
        {0.8, 1800},   // 1800: the tipping point keeps the top
        {0.7, 1608},   // 1575
        {0.448, 1008}  // 1.25 x 0.448 x 1608 = 900.48
    };
    double time_s = 0.0;
    for (const auto& step : steps) {
        time_s += 1.0;
        big.Update(time_s, step.busy);
        EXPECT_DOUBLE_EQ(big.Frequency_MHz(), step.expected_MHz) << "busy " << step.busy;
        EXPECT_DOUBLE_EQ(big.Requested_MHz(), step.expected_MHz);
    }
    EXPECT_DOUBLE_EQ(big.Voltage_V(), 0.875);
    EXPECT_EQ(big.PointIndex(), 3u);

    ClockDomain exact(BigCluster());
    exact.Update(0.0, 0.448);  // 1.25 x 0.448 x 1800 = 1008 lands on a point, which it keeps
    EXPECT_DOUBLE_EQ(exact.Frequency_MHz(), 1008);
}

TEST(ClockDomainTest, RateLimitCountsFromTheLastActualChange) {
    ClockDomain big(BigCluster());
    big.Update(0.0, 0.5);  // the first change goes through at once
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 1200);
    big.Update(0.005, 0.1);  // asks for 150 MHz: 408, held back
    EXPECT_DOUBLE_EQ(big.Requested_MHz(), 408);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 1200);
    big.Update(0.0099, 0.1);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 1200);
    big.Update(0.0101, 0.1);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 408);
    big.Update(0.015, 1.0);  // 510: 600, held back
    EXPECT_DOUBLE_EQ(big.Requested_MHz(), 600);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 408);
    big.Update(0.0202, 1.0);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 600);
    // An update that keeps the frequency does not restart the wait.
    big.Update(0.025, 0.5);   // 375: 408 would be a change, held back
    big.Update(0.029, 0.8);   // 600: no change
    big.Update(0.0303, 1.0);  // 750: 816, 10.1 ms after the last change
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 816);
}

TEST(ClockDomainTest, CeilingClampsAndALowerOneAppliesAtOnce) {
    ClockDomain big(BigCluster());
    EXPECT_DOUBLE_EQ(big.Ceiling_MHz(), 1800);
    big.Update(0.0, 0.5);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 1200);
    big.SetCeiling(1000);  // the highest point at or below: 816, without waiting for an update
    EXPECT_DOUBLE_EQ(big.Ceiling_MHz(), 816);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 816);
    big.Update(0.001, 1.0);  // asks for 1020: 1200, above the ceiling
    EXPECT_DOUBLE_EQ(big.Requested_MHz(), 1200);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 816);
    // Lifting the ceiling waits for the next update, which the rate limit does not hold back.
    big.SetCeiling(2000);
    EXPECT_DOUBLE_EQ(big.Ceiling_MHz(), 1800);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 816);
    big.Update(0.002, 1.0);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 1200);
    big.Update(0.003, 1.0);  // 1500 asks for 1608; the rate limit holds again
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 1200);
    big.SetCeiling(300);  // below every point: the lowest
    EXPECT_DOUBLE_EQ(big.Ceiling_MHz(), 408);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 408);
    big.SetCeiling(1008);  // on a point: that point
    EXPECT_DOUBLE_EQ(big.Ceiling_MHz(), 1008);
    EXPECT_DOUBLE_EQ(big.Frequency_MHz(), 408);
}

TEST(ClockDomainTest, PowerIsCV2fPerCoreTimesBusyPlusLeakage) {
    ClockDomainParams params = BigCluster();
    params.staticPower_W = 0.1;
    ClockDomain big(params);
    // 436 x 1.2^2 x 1800 = 1130112 uW a core; two cores, all busy: 2.260224 W.
    EXPECT_NEAR(big.Power_W(1.0), 2.260224 + 0.1, 1e-9);
    EXPECT_NEAR(big.Power_W(0.5), 1.130112 + 0.1, 1e-9);
    EXPECT_NEAR(big.Power_W(0.0), 0.1, 1e-12);
    // 436 x 0.825^2 x 408 = 121075.02 uW a core.
    EXPECT_NEAR(big.PowerAt_W(0, 1.0), 0.24215004 + 0.1, 1e-9);
    EXPECT_THROW(big.PowerAt_W(8, 1.0), std::out_of_range);
    EXPECT_EQ(big.Points().size(), 8u);

    ClockDomainParams gpu;  // one power figure for the whole GPU
    gpu.points = {{200, 0.825}, {600, 0.925}};
    gpu.dynamicPowerCoefficient = 2640;
    // 2640 x 0.925^2 x 600 = 1355310 uW.
    EXPECT_NEAR(ClockDomain(gpu).Power_W(1.0), 1.35531, 1e-9);
}

TEST(ClockDomainTest, StretchIsTheFrequencyRatioToTheExponent) {
    EXPECT_DOUBLE_EQ(ClockDomain::Stretch(1800, 900, 0.88), std::pow(2.0, 0.88));
    EXPECT_NEAR(ClockDomain::Stretch(1800, 900, 0.88), 1.8403753, 1e-7);
    EXPECT_DOUBLE_EQ(ClockDomain::Stretch(1800, 600, 1.0), 3.0);
    EXPECT_DOUBLE_EQ(ClockDomain::Stretch(1800, 1800, 0.88), 1.0);
}

TEST(ClockDomainTest, RejectsATableItCannotUse) {
    ClockDomainParams params = BigCluster();
    params.points.clear();
    EXPECT_THROW(ClockDomain{params}, std::invalid_argument);
    params.points = {{600, 0.8}, {408, 0.8}};
    EXPECT_THROW(ClockDomain{params}, std::invalid_argument);
    params.points = {{0, 0.8}};
    EXPECT_THROW(ClockDomain{params}, std::invalid_argument);
}

// The rises over ambient under a power step P from ambient, with a = 1/(Rd Cd),
// b = 1/(Rd Cs), c = 1/(Rs Cs): both are S + k1 exp(-r1 t) + k2 exp(-r2 t), r1 and r2 the roots
// of r^2 - (a + b + c) r + a c = 0. At t = 0 both rises are 0; the die's slope is P/Cd and the
// skin's 0, which fixes k1 and k2.
struct LadderStep {
    double die;
    double skin;
};

LadderStep ClosedForm(const ThermalNodeParams& die, const ThermalNodeParams& skin, double power_W,
                      double t_s) {
    const double a = 1.0 / (die.resistance_CPerW * die.capacity_JPerC);
    const double b = 1.0 / (die.resistance_CPerW * skin.capacity_JPerC);
    const double c = 1.0 / (skin.resistance_CPerW * skin.capacity_JPerC);
    const double sum = a + b + c;
    const double root = std::sqrt(sum * sum - 4.0 * a * c);
    const double r1 = (sum + root) / 2.0;
    const double r2 = (sum - root) / 2.0;
    const double dieSteady = power_W * (die.resistance_CPerW + skin.resistance_CPerW);
    const double skinSteady = power_W * skin.resistance_CPerW;
    // k1 + k2 = -S and -r1 k1 - r2 k2 = the slope at 0.
    const double dieK1 = (power_W / die.capacity_JPerC - r2 * dieSteady) / (r2 - r1);
    const double skinK1 = r2 * skinSteady / (r1 - r2);
    const double fast = std::exp(-r1 * t_s);
    const double slow = std::exp(-r2 * t_s);
    return {dieSteady + dieK1 * fast + (-dieSteady - dieK1) * slow,
            skinSteady + skinK1 * fast + (-skinSteady - skinK1) * slow};
}

TEST(ThermalNodesTest, StepResponseFollowsTheTwoPoleLadder) {
    const ThermalNodeParams die{"die", 2.0, 5.0};      // 10 s
    const ThermalNodeParams skin{"skin", 80.0, 10.0};  // 800 s
    ThermalNodes nodes(die, skin, 25.0, 25.0);
    double time_s = 0.0;
    for (const double until_s : {5.0, 20.0, 100.0, 600.0}) {
        while (time_s < until_s - 1e-9) {
            nodes.Step(0.1, 2.0);
            time_s += 0.1;
        }
        const LadderStep rise = ClosedForm(die, skin, 2.0, until_s);
        EXPECT_NEAR(nodes.Die_C() - 25.0, rise.die, 0.01 * rise.die) << until_s << " s";
        EXPECT_NEAR(nodes.Skin_C() - 25.0, rise.skin, 0.01 * rise.skin) << until_s << " s";
    }
    // r1 = 0.1025309 and r2 = 0.0012191 per s; at 600 s the die has risen 20.140 C and the
    // skin 10.260 C.
    EXPECT_NEAR(nodes.Die_C(), 45.140, 0.01);
    EXPECT_NEAR(nodes.Skin_C(), 35.260, 0.01);
    EXPECT_DOUBLE_EQ(nodes.Node_C("die"), nodes.Die_C());
    EXPECT_DOUBLE_EQ(nodes.Node_C("skin"), nodes.Skin_C());
    EXPECT_THROW(nodes.Node_C("battery"), std::invalid_argument);
}

TEST(ThermalNodesTest, SteadyStateAndSecondLongStepsOnAFastDie) {
    const ThermalNodeParams die{"die", 1.0, 0.5};  // 0.5 s: a second's step is twice it
    const ThermalNodeParams skin{"skin", 40.0, 10.0};
    ThermalNodes coarse(die, skin, 25.0, 25.0);
    ThermalNodes fine(die, skin, 25.0, 25.0);
    for (int second = 1; second <= 30; ++second) {
        coarse.Step(1.0, 3.0);
        for (int i = 0; i < 100; ++i) fine.Step(0.01, 3.0);
        const LadderStep rise = ClosedForm(die, skin, 3.0, second);
        ASSERT_NEAR(coarse.Die_C() - 25.0, rise.die, 0.01 * rise.die) << second << " s";
        ASSERT_NEAR(coarse.Skin_C() - 25.0, rise.skin, 0.01 * rise.skin) << second << " s";
        ASSERT_NEAR(coarse.Die_C(), fine.Die_C(), 1e-9);
    }
    for (int second = 0; second < 20000; ++second) coarse.Step(1.0, 3.0);
    EXPECT_NEAR(coarse.Die_C(), 25.0 + 3.0 * (0.5 + 10.0), 1e-6);
    EXPECT_NEAR(coarse.Skin_C(), 25.0 + 3.0 * 10.0, 1e-6);
    // Without power both fall back to ambient.
    for (int second = 0; second < 20000; ++second) coarse.Step(1.0, 0.0);
    EXPECT_NEAR(coarse.Die_C(), 25.0, 1e-6);
    EXPECT_NEAR(coarse.Skin_C(), 25.0, 1e-6);
}

TEST(ThermalNodesTest, RejectsANodeWithoutCapacityOrResistance) {
    const ThermalNodeParams good{"die", 2.0, 5.0};
    EXPECT_THROW(ThermalNodes(ThermalNodeParams{"die", 0.0, 5.0}, good, 25, 25),
                 std::invalid_argument);
    EXPECT_THROW(ThermalNodes(good, ThermalNodeParams{"skin", 80.0, -1.0}, 25, 25),
                 std::invalid_argument);
}

}  // namespace
}  // namespace TalvexSim

namespace TalvexSim {
namespace {

TEST(PartsDeviceTest, AGpuBoundFrameTakesLongerAtAHalvedGpuClockByTheExponent) {
    const Scenario scenario = LoadScenarioText(
        TalvexSimTest::Replaced(
            TalvexSimTest::ScenarioText(
                "  \"device\": {\"profile\": \"rk3399-power-allocator\", \"initial_c\": 25},\n"),
            "\"work_ms\": 9.0", "\"cpu_ms\": 2, \"gpu_ms\": 10"),
        "g.json", "g");
    const std::unique_ptr<Device> device = MakeDevice(scenario, true, 1);
    const FrameWork frame{2.0, 10.0, 1.0};
    EXPECT_DOUBLE_EQ(device->FrameMs(frame), 10.0);  // both at their top clocks
    EXPECT_DOUBLE_EQ(device->Clocks().gpu_MHz, 800.0);
    // 300 ms of GPU work in a second at 800 MHz: schedutil asks for 1.25 x 0.3 x 800 = 300 MHz,
    // and the lowest point at or above that is 400 MHz, half the top.
    for (int i = 0; i < 30; ++i) device->AddFrame(frame);
    device->Advance(1.0, false);
    EXPECT_DOUBLE_EQ(device->Clocks().gpu_MHz, 400.0);
    EXPECT_NEAR(device->FrameMs(frame), 10.0 * std::pow(2.0, 0.88), 1e-9);
    // The host reads the skin, which lags the die.
    EXPECT_GT(device->Clocks().die_C, device->Temperature_C());
    EXPECT_GT(device->Temperature_C(), 25.0);
}

// A hot device under load for a few seconds: what each thermal policy leaves of the GPU.
DeviceClocks hotGpu(const std::string& device, bool policyOn, int* state) {
    const Scenario scenario = LoadScenarioText(
        TalvexSimTest::Replaced(
            TalvexSimTest::ScenarioText("  \"device\": {" + device + ", \"initial_c\": 50},\n"),
            "\"work_ms\": 9.0", "\"cpu_ms\": 2, \"gpu_ms\": 10"),
        "h.json", "h");
    const std::unique_ptr<Device> parts = MakeDevice(scenario, policyOn, 1);
    for (int second = 0; second < 8; ++second) {
        for (int frame = 0; frame < 60; ++frame) parts->AddFrame({2.0, 10.0, 1.0});
        parts->Advance(1.0, false);
    }
    *state = parts->GovernorState();
    return parts->Clocks();
}

TEST(PartsDeviceTest, EachThermalPolicyCapsAHotDeviceAndNoneLeavesIt) {
    int state = 0;
    // Past the 2017 rules' first monitor level (48 C): the GPU at most 414 MHz, so 400.
    const DeviceClocks ceilings = hotGpu(R"("profile": "rk3399-ceilings")", true, &state);
    EXPECT_DOUBLE_EQ(ceilings.gpu_MHz, 400.0);
    EXPECT_TRUE(ceilings.capped);
    EXPECT_EQ(state, 1);
    // Far above its control temperature the allocator grants little more than nothing.
    const DeviceClocks allocator = hotGpu(R"("profile": "rk3399-power-allocator")", true, &state);
    EXPECT_LT(allocator.gpu_MHz, 800.0);
    EXPECT_TRUE(allocator.capped);
    // The older rule on these parts: a state per poll above the trip.
    const DeviceClocks stepWise =
        hotGpu(R"("profile": "rk3399-ceilings", "thermal_policy": "step-wise")", true, &state);
    EXPECT_EQ(state, 5);
    EXPECT_LE(stepWise.gpu_MHz, 400.0);
    // No thermal policy: the load alone sets the clocks. 60 frames of 10 ms a second keep the
    // GPU busy 60 % at 800 MHz, and schedutil asks for 1.25 x 0.6 x 800 = 600.
    const DeviceClocks none = hotGpu(R"("profile": "rk3399-ceilings")", false, &state);
    EXPECT_DOUBLE_EQ(none.gpu_MHz, 600.0);
    EXPECT_FALSE(none.capped);
    EXPECT_EQ(state, 0);
    EXPECT_GT(none.gpuPower_W, allocator.gpuPower_W);
}

}  // namespace
}  // namespace TalvexSim
