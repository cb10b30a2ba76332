#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tools/sim/model/DeviceModel.h"
#include "tools/sim/model/GameModel.h"

namespace TalvexSim {
namespace {

TEST(GameModelTest, WorkStaysPositiveAndBoundedAndHeavyScenesCostMore) {
    GameParams params;
    params.workMs = 10.0;
    params.jitter = 1.0;  // wide enough to reach both clamps
    params.heavyScenes = {{100.0, 50.0, 2.0}, {120.0, 10.0, 3.0}};
    GameModel game(params, 60, 5);
    for (int i = 0; i < 5000; ++i) {
        const double work = game.NextWorkMs(10.0);
        EXPECT_GE(work, 2.0);
        EXPECT_LE(work, 30.0);
    }
    EXPECT_DOUBLE_EQ(game.WorkFactorAt(99.9), 1.0);
    EXPECT_DOUBLE_EQ(game.WorkFactorAt(100.0), 2.0);
    EXPECT_DOUBLE_EQ(game.WorkFactorAt(125.0), 3.0);  // the heavier of two overlapping scenes
    EXPECT_DOUBLE_EQ(game.WorkFactorAt(150.0), 1.0);  // a scene ends before its end time
    EXPECT_DOUBLE_EQ(game.RelativeWork(25.0), 2.5);
}

TEST(GameModelTest, TheSlowerOfGameCapAndScreenLimitsTheFrameRate) {
    GameParams params;
    params.targetFps = 40.0;
    EXPECT_DOUBLE_EQ(GameModel(params, 60, 1).MinFramePeriodMs(), 25.0);
    params.targetFps = 144.0;
    EXPECT_DOUBLE_EQ(GameModel(params, 120, 1).MinFramePeriodMs(), 1000.0 / 120.0);
}

TEST(GameModelTest, HitchesMultiplyTheWork) {
    GameParams params;
    params.jitter = 0.0;
    params.spikeChance = 1.0;
    params.spikeFactor = 3.0;
    GameModel game(params, 60, 1);
    EXPECT_DOUBLE_EQ(game.NextWorkMs(0.0), params.workMs * 3.0);
}

TEST(GameModelTest, CpuReadingsScaleWithTheBusyShareAndClamp) {
    GameParams params;
    params.cpuUtilFullLoad = {{100.0, 50.0, 20.0, 0.0}};
    const GameModel game(params, 60, 1);
    EXPECT_EQ(game.CpuReadings(0.5), (std::array<std::uint64_t, 4>{{50, 25, 10, 0}}));
    EXPECT_EQ(game.CpuReadings(7.0)[0], 100u);
    EXPECT_EQ(game.CpuReadings(-1.0)[1], 0u);
}

DeviceParams quietDevice() {
    DeviceParams params;
    params.ambient_C = 25.0;
    params.initial_C = 25.0;
    params.thermalResistance_CPerW = 4.0;
    params.thermalTimeConstant_s = 100.0;
    params.idlePower_W = 1.0;
    params.pausedPower_W = 0.5;
    params.energyPerFrame_mJ = 100.0;
    params.batteryVoltage_V = 4.0;
    params.currentNoise_mA = 0.0;
    params.temperatureNoise_C = 0.0;
    return params;
}

TEST(DeviceModelTest, HeatsMonotonicallyTowardsTheSteadyStateOfThePowerDrawn) {
    DeviceModel device(quietDevice(), false, 1);
    // 60 frames a second at 100 mJ: 6 W plus 1 W idle, settling at 25 + 4 x 7 = 53 C.
    double previous = device.Temperature_C();
    for (int second = 0; second < 2000; ++second) {
        for (int frame = 0; frame < 60; ++frame) device.AddFrame({9.0, 9.0, 1.0});
        device.Advance(1.0, false);
        EXPECT_GT(device.Temperature_C(), previous - 1e-12);
        EXPECT_LE(device.Temperature_C(), 53.0 + 1e-9);
        previous = device.Temperature_C();
    }
    EXPECT_NEAR(device.Power_W(), 7.0, 1e-9);
    EXPECT_NEAR(device.Temperature_C(), 53.0, 1e-6);
    EXPECT_EQ(device.ReadTemperature_mC(), 53000u);
    EXPECT_EQ(device.ReadCurrent_uA(), 1750000u);  // 7 W at 4 V
}

TEST(DeviceModelTest, OneTimeConstantCoversTheKnownShareOfTheWayAndPausedDevicesCool) {
    DeviceParams params = quietDevice();
    params.initial_C = 45.0;
    DeviceModel device(params, false, 1);
    device.Advance(100.0, true);  // paused: 0.5 W, settling at 27 C
    EXPECT_NEAR(device.Temperature_C(), 27.0 + 18.0 * std::exp(-1.0), 1e-9);
    EXPECT_NEAR(device.Current_mA(), 125.0, 1e-9);
}

TEST(DeviceModelTest, CurrentReadingIsTheMeanSinceTheLastReadingAndNeverNegative) {
    DeviceModel device(quietDevice(), false, 1);
    device.AddFrame({27.0, 27.0, 3.0});  // 0.3 J over the first second: 1.3 W
    device.Advance(1.0, false);
    device.Advance(1.0, false);                   // 1 W
    EXPECT_EQ(device.ReadCurrent_uA(), 287500u);  // 1.15 W mean at 4 V
    device.Advance(1.0, false);
    EXPECT_EQ(device.ReadCurrent_uA(), 250000u);

    DeviceParams cold = quietDevice();
    cold.ambient_C = -30.0;
    cold.initial_C = -30.0;
    cold.currentNoise_mA = 1e4;
    DeviceModel frozen(cold, false, 3);
    EXPECT_EQ(frozen.ReadTemperature_mC(), 0u);
    // Noise far larger than the draw: negative readings stop at 0 instead of wrapping around.
    int zeros = 0;
    for (int i = 0; i < 50; ++i) {
        const std::uint32_t reading = frozen.ReadCurrent_uA();
        EXPECT_LT(reading, 100000000u);
        zeros += reading == 0 ? 1 : 0;
    }
    EXPECT_GT(zeros, 0);
}

TEST(DeviceModelTest, GovernorStepsOneStatePerPollAboveTheTripAndBackBelowItsHysteresis) {
    DeviceParams params = quietDevice();
    params.initial_C = 50.0;
    params.thermalTimeConstant_s = 1e6;  // the temperature barely moves on its own
    params.governor.trip_C = 45.0;
    params.governor.hysteresis_C = 2.0;
    params.governor.poll_s = 0.25;
    params.governor.maxState = 3;
    params.governor.clockStep = 0.2;
    DeviceModel device(params, true, 1);
    std::vector<int> states;
    for (int poll = 0; poll < 4; ++poll) {
        device.Advance(0.25, false);
        states.push_back(device.GovernorState());
    }
    EXPECT_EQ(states, (std::vector<int>{1, 2, 3, 3}));  // one up per poll, up to the maximum
    EXPECT_NEAR(device.Clock(), 0.4, 1e-12);
    // A frame at 40 % of the clock costs 16 % of its energy (dynamic power ~ clock cubed).
    device.AddFrame({9.0, 9.0, 1.0});
    device.Advance(0.1, false);
    EXPECT_NEAR(device.Power_W(), 1.0 + 0.016 / 0.1, 1e-9);

    // A paused device cooling from 80 C towards 27 C (time constant 2 s): up while above the
    // trip, held between 43 and 45 C, then one down per poll.
    params.initial_C = 80.0;
    params.thermalTimeConstant_s = 2.0;
    DeviceModel cooling(params, true, 1);
    states.clear();
    for (int poll = 0; poll < 13; ++poll) {
        cooling.Advance(0.25, true);
        states.push_back(cooling.GovernorState());
    }
    EXPECT_EQ(states, (std::vector<int>{1, 2, 3, 3, 3, 3, 3, 3, 3, 2, 1, 0, 0}));
    DeviceModel off(params, false, 1);
    off.Advance(10.0, false);
    EXPECT_EQ(off.GovernorState(), 0);
}

}  // namespace
}  // namespace TalvexSim
