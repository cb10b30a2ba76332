#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/sim/model/ThermalPolicy.h"

namespace TalvexSim {
namespace {

// A short run of the 2017 phone's big-cluster points (msm8998-v2.dtsi, speed bin 3).
PolicyDomain Big2017() { return {"cpu_big", {902.4, 1190.4, 1497.6, 1804.8, 2112.0, 2457.6}, {}}; }

// The 2017 phone's step-wise rules on the big cluster (taimen thermal-engine.conf, bd_therm2).
CeilingsParams BigClusterRules() {
    CeilingsParams params;
    params.rules = {{"skin", 2.0, 38.0, 37.0, "cpu_big", 1804.8},
                    {"skin", 2.0, 40.0, 39.0, "cpu_big", 1497.6},
                    {"skin", 2.0, 45.0, 44.0, "cpu_big", 1190.4}};
    return params;
}

struct Step {
    double temperature_C;
    double ceiling_MHz;
};

// One sample every 2 s; a reading between samples must change nothing.
void Walk(CeilingsPolicy& policy, const std::vector<Step>& script) {
    double time_s = 0.0;
    for (const Step& step : script) {
        policy.Update(time_s, [&](const std::string&) { return step.temperature_C; });
        EXPECT_DOUBLE_EQ(policy.Current().at("cpu_big"), step.ceiling_MHz) << "at " << time_s;
        policy.Update(time_s + 1.0, [](const std::string&) { return 99.0; });
        EXPECT_DOUBLE_EQ(policy.Current().at("cpu_big"), step.ceiling_MHz) << "at " << time_s + 1;
        time_s += 2.0;
    }
}

TEST(CeilingsPolicyTest, StepWiseRulesWalkDownToTheirLimitsAndBackWithHysteresis) {
    CeilingsPolicy policy(BigClusterRules(), {Big2017()});
    Walk(policy, {{38.0, 2112.0},    // the 38 rule steps at its set point
                  {39.0, 1804.8},    // its limit; the 40 rule holds between 39 and 40
                  {41.0, 1804.8},    // the 40 rule one down, to 2112; the lower 1804.8 stands
                  {41.0, 1804.8},    // 1804.8
                  {41.0, 1497.6},    // its limit
                  {41.0, 1497.6},    // held there
                  {39.5, 1497.6},    // under the set point, above the clearing point: holds
                  {38.5, 1804.8},    // under 39: the 40 rule steps up
                  {37.5, 1804.8},    // the 38 rule holds between 37 and 38
                  {36.5, 2112.0},    // both step up, the 40 rule reaches the top
                  {36.5, 2457.6},    // and the 38 rule too
                  {46.0, 2112.0},    // all three rules one down
                  {46.0, 1804.8},    // the 38 rule at its limit
                  {46.0, 1497.6},    // the 40 rule at its limit
                  {46.0, 1190.4},    // the 45 rule at its limit, no lower after
                  {44.5, 1190.4},    // between 44 and 45
                  {43.5, 1497.6}});  // under 44 the 45 rule rises to the 40 rule's limit
}

// The 2017 phone's monitor levels (taimen thermal-engine.conf, SKIN-MONITOR2).
CeilingsParams SkinMonitor() {
    CeilingsParams params;
    params.monitorSensor = "skin";
    params.levels = {{48.0, 47.0, {{"cpu_little", 1094.4}, {"cpu_big", 1190.4}, {"gpu", 414.0}}},
                     {50.0, 49.0, {{"cpu_little", 883.2}, {"cpu_big", 902.4}, {"gpu", 342.0}}},
                     {52.0, 51.0, {{"cpu_little", 300.0}, {"cpu_big", 300.0}, {"gpu", 257.0}}}};
    return params;
}

std::vector<PolicyDomain> Phone2017() {
    return {{"cpu_little", {300.0, 883.2, 1094.4, 1900.8}, {}},
            Big2017(),
            {"gpu", {257.0, 342.0, 414.0, 710.0}, {}}};
}

TEST(CeilingsPolicyTest, MonitorLevelsEngageAtTheirThresholdsAndReleaseBelowTheirClearing) {
    const Ceilings none{{"cpu_little", 1900.8}, {"cpu_big", 2457.6}, {"gpu", 710.0}};
    const Ceilings first{{"cpu_little", 1094.4}, {"cpu_big", 1190.4}, {"gpu", 414.0}};
    const Ceilings second{{"cpu_little", 883.2}, {"cpu_big", 902.4}, {"gpu", 342.0}};
    // 300 is below the big table: its lowest point.
    const Ceilings third{{"cpu_little", 300.0}, {"cpu_big", 902.4}, {"gpu", 257.0}};
    const std::vector<std::pair<double, Ceilings>> script = {
        {47.9, none},   {48.0, first},
        {47.5, first},  // above 47: held
        {50.0, second}, {49.2, second},
        {48.5, first},  // under 49: back to the first level, not to none
        {46.9, none},   {52.0, third},
        {46.0, none}};
    CeilingsPolicy policy(SkinMonitor(), Phone2017());
    double time_s = 0.0;
    for (const auto& [temperature_C, expected] : script) {
        policy.Update(time_s, [&](const std::string&) { return temperature_C; });
        EXPECT_EQ(policy.Current(), expected) << temperature_C;
        time_s += 2.0;
    }
    EXPECT_EQ(policy.ActiveLevel(), 0);
}

TEST(CeilingsPolicyTest, ADomainTakesTheLowerOfItsRulesAndItsLevel) {
    CeilingsParams params = SkinMonitor();
    params.rules = BigClusterRules().rules;
    CeilingsPolicy policy(params, Phone2017());
    policy.Update(0.0, [](const std::string&) { return 48.0; });
    EXPECT_DOUBLE_EQ(policy.Current().at("cpu_big"), 1190.4);  // the level; the rules at 2112
    policy.Update(2.0, [](const std::string&) { return 46.9; });
    EXPECT_DOUBLE_EQ(policy.Current().at("cpu_big"), 1804.8);  // level left; rules one lower
}

// RK3399 clusters and GPU at full load (rk3399-opp.dtsi, P = C V^2 f), in watts.
std::vector<PolicyDomain> Rk3399() {
    return {{"cpu_little",
             {408, 600, 816, 1008, 1200, 1416},
             {0.111, 0.163, 0.236, 0.345, 0.480, 0.717}},
            {"cpu_big",
             {408, 600, 816, 1008, 1200, 1416, 1608, 1800},
             {0.242, 0.356, 0.484, 0.673, 0.944, 1.297, 1.697, 2.260}},
            {"gpu", {200, 297, 400, 500, 600, 800}, {0.359, 0.534, 0.719, 1.011, 1.355, 2.556}}};
}

// The 2023 phone's SoC entry (VIRTUAL-SKIN-SOC): 43 / 45 C, K_P 300 mW/C, K_I 5, cutoff 8,
// sustainable 800 mW, polled every 7 s.
PowerAllocatorParams SocEntry2023() {
    PowerAllocatorParams params;
    params.sensor = "skin";
    params.pollPeriod_s = 7.0;
    params.switchOn_C = 43.0;
    params.control_C = 45.0;
    params.sustainablePower_W = 0.8;
    params.kPo = params.kPu = 0.3;
    params.kI = 0.005;
    params.integralCutoff_C = 8.0;
    return params;
}

TEST(PowerAllocatorPolicyTest, GrantsTheHandComputedPidBudget) {
    PowerAllocatorPolicy policy(SocEntry2023(), Rk3399());
    policy.Update(0.0, 42.0, {{"cpu_big", 2.0}});  // below switch-on: tops, no limit
    EXPECT_NEAR(policy.Budget_W(), 0.717 + 2.260 + 2.556, 1e-12);
    EXPECT_DOUBLE_EQ(policy.Current().at("cpu_big"), 1800);
    EXPECT_TRUE(policy.Granted_W().empty());

    // e = -1: P = 0.3 x -1 = -0.3; sum -1, I = -0.005; budget = 0.8 - 0.3 - 0.005 = 0.495,
    // all to the big cluster: 816 MHz (0.484 <= 0.495 < 0.673); nothing asked, the lowest.
    policy.Update(7.0, 46.0, {{"cpu_big", 1.0}});
    EXPECT_NEAR(policy.Budget_W(), 0.495, 1e-12);
    EXPECT_EQ(policy.Current(), (Ceilings{{"cpu_little", 408}, {"cpu_big", 816}, {"gpu", 200}}));
    policy.Update(10.0, 60.0, {{"cpu_big", 1.0}});  // not yet due
    EXPECT_NEAR(policy.Budget_W(), 0.495, 1e-12);

    // e = -2: P = -0.6; sum -3, I = -0.015; budget = 0.185, under every point's power.
    policy.Update(14.0, 47.0, {{"cpu_big", 0.4}});
    EXPECT_NEAR(policy.Budget_W(), 0.185, 1e-12);
    EXPECT_DOUBLE_EQ(policy.Current().at("cpu_big"), 408);

    // e = +1.5 (under the cutoff, integrated): P = 0.45; sum -1.5, I = -0.0075;
    // budget = 1.2425, split 0.5 : 1.5 : 0.5 of 2.5 -> 0.2485, 0.7455, 0.2485 W:
    // little 816 (0.236), big 1008 (0.673), GPU none fits -> 200.
    policy.Update(21.0, 43.5, {{"cpu_little", 0.5}, {"cpu_big", 1.5}, {"gpu", 0.5}});
    EXPECT_NEAR(policy.Budget_W(), 1.2425, 1e-12);
    EXPECT_NEAR(policy.Granted_W().at("cpu_big"), 0.7455, 1e-12);
    EXPECT_NEAR(policy.Granted_W().at("gpu"), 0.2485, 1e-12);
    EXPECT_EQ(policy.Current(), (Ceilings{{"cpu_little", 816}, {"cpu_big", 1008}, {"gpu", 200}}));
}

PowerAllocatorParams Gains(double kPo, double kPu, double kI, double kD, double cutoff_C) {
    PowerAllocatorParams params;
    params.pollPeriod_s = 0.5;
    params.switchOn_C = 40.0;
    params.control_C = 45.0;
    params.sustainablePower_W = 1.0;
    params.kPo = kPo;
    params.kPu = kPu;
    params.kI = kI;
    params.kD = kD;
    params.integralCutoff_C = cutoff_C;
    return params;
}

TEST(PowerAllocatorPolicyTest, EachTermFollowsItsGainAndSwitchingOffResetsTheState) {
    PowerAllocatorPolicy policy(Gains(0.5, 0.2, 0.1, 0.4, 0.0), {{"cpu", {500, 1000}, {5, 10}}});
    const std::map<std::string, double> request{{"cpu", 1.0}};
    struct Poll {
        double temperature_C, budget_W;
    };
    const std::vector<Poll> polls = {
        {42.0, 4.0},   // e 3: P 0.2 x 3 = 0.6, not integrated (cutoff 0), D 0.4 x 3 / 0.5 = 2.4
        {47.0, 0.0},   // e -2: P -1, I -0.2, D 0.4 x -5 / 0.5 = -4: 1 - 5.2 clamps to 0
        {46.0, 1.0},   // e -1: P -0.5, I -0.3, D 0.4 x 1 / 0.5 = 0.8
        {39.0, 10.0},  // off: no limit
        {45.5, 0.3}};  // e -0.5: P -0.25, I -0.05 (sum reset), D -0.4 (previous error reset)
    double time_s = 0.0;
    for (const Poll& poll : polls) {
        policy.Update(time_s, poll.temperature_C, request);
        EXPECT_NEAR(policy.Budget_W(), poll.budget_W, 1e-12) << poll.temperature_C;
        time_s += 0.5;
    }
}

TEST(PowerAllocatorPolicyTest, TheIntegralStopsWhereItWouldPassTheAllocatablePower) {
    PowerAllocatorPolicy policy(Gains(0.0, 0.0, 1.0, 0.0, 2.0), {{"cpu", {500, 1000}, {1, 2}}});
    const std::map<std::string, double> request{{"cpu", 1.0}};
    policy.Update(0.0, 46.0, request);  // sum -1: |I| 1 < 2, budget 0
    policy.Update(1.0, 46.0, request);  // sum -2 would give |I| 2: held at -1
    EXPECT_DOUBLE_EQ(policy.Budget_W(), 0.0);
    policy.Update(2.0, 44.0, request);  // e 1 < cutoff 2: sum 0, budget 1 (wound up it were 0)
    EXPECT_DOUBLE_EQ(policy.Budget_W(), 1.0);
}

TEST(PowerAllocatorPolicyTest, SplitsInProportionAndHandsTheCappedSurplusToTheHeadroom) {
    PowerAllocatorParams params = Gains(0.0, 0.0, 0.0, 0.0, 0.0);
    params.sustainablePower_W = 4.0;
    params.domains = {"a", "b", "c"};
    PowerAllocatorPolicy policy(params, {{"a", {400, 800}, {0.4, 1.0}},
                                         {"b", {400, 800, 1200}, {0.5, 1.5, 3.0}},
                                         {"c", {400, 800, 1200}, {0.5, 1.5, 5.0}},
                                         {"d", {100, 200}, {0.1, 0.2}}});
    // 4 W as 2 : 1 : 1; a capped at 1 W, its 1 W surplus to headroom b 2 : c 4.
    policy.Update(0.0, 42.0, {{"a", 2.0}, {"b", 1.0}, {"c", 1.0}, {"d", 5.0}});
    std::map<std::string, double> granted = policy.Granted_W();
    EXPECT_EQ(granted.size(), 3u);  // d is no actor
    EXPECT_NEAR(granted.at("a"), 1.0, 1e-12);
    EXPECT_NEAR(granted.at("b"), 1.0 + 1.0 / 3.0, 1e-12);
    EXPECT_NEAR(granted.at("c"), 1.0 + 2.0 / 3.0, 1e-12);
    // a's top fits exactly; b's 1.33 W only its lowest; c's 1.67 W its middle.
    EXPECT_EQ(policy.Current(), (Ceilings{{"a", 800}, {"b", 400}, {"c", 800}, {"d", 200}}));

    policy.Update(0.5, 42.0, {});  // nothing asked for: nothing granted
    EXPECT_EQ(policy.Current(), (Ceilings{{"a", 400}, {"b", 400}, {"c", 400}, {"d", 200}}));
}

}  // namespace
}  // namespace TalvexSim
