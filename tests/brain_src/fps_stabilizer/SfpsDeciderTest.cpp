#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/SfpsDecider.h"

namespace {

using Temperature = android::FpsStabilizer::SfpsDeciderAccordingToTemperature;
using Current = android::FpsStabilizer::SfpsDeciderAccordingToElectricCurrent;
const float kNaN = std::nanf("");

const auto apply = &TalvexHarness::SettingsCenterScope::Set;

// Both deciders on virtual time.
class SfpsDecider : public ::testing::Test {
  protected:
    void heat(double seconds, float celsius, int GFPS = 60, int lowerBound = 45) {
        clock.AdvanceSeconds(seconds);
        temperature.Update(GFPS, lowerBound, celsius);
    }
    void draw(double seconds, float mA, int GFPS = 60, int lowerBound = 45) {
        clock.AdvanceSeconds(seconds);
        current.Update(GFPS, lowerBound, mA);
    }
    // Threshold 2000 mA without a wait: the second tick activates at the GFPS.
    void activateCurrentQuickly(float mA = 2500.0f) {
        apply("sfps_current", "current_threshold", "2000");
        apply("sfps_current", "ttsigal", "0");
        draw(0, mA);
        draw(1, mA);
        ASSERT_TRUE(current.IsActivated());
        ASSERT_EQ(current.GetSFPS(), 60);
    }

    TalvexHarness::LogSwitchesScope logSwitches;
    // Under one game's PID, declared before the deciders: they register with an empty center.
    TalvexHarness::SettingsCenterScope center{4242};
    TalvexHarness::VirtualClock clock;
    TalvexHarness::LogSink logs;
    Temperature temperature;
    Current current;
};

TEST_F(SfpsDecider, TemperatureWaitsWalksDownToTheBalancedSFPSAndBackOnlyWhenDue) {
    heat(0, 42.0f);
    heat(299.9, 42.0f);
    EXPECT_EQ(temperature.GetStatus(), Temperature::WaitForActivate);
    EXPECT_EQ(temperature.GetSFPS(), -1);
    heat(0.1, 42.0f);
    EXPECT_EQ(temperature.GetStatus(), Temperature::MovingToBalancedSlightly);
    EXPECT_EQ(temperature.GetSFPS(), 60);
    for (int second = 1; second <= 80; ++second) {
        heat(1, 42.0f);
        SCOPED_TRACE(second);
        // The first step comes at once: the last adjustment is older than 10 s.
        ASSERT_EQ(temperature.GetSFPS(), std::max(54, 59 - (second - 1) / 10));
        ASSERT_EQ(temperature.IsActivated(), second >= 51);
    }
    // Cool again: the walk back waits for its second, held SFPS and all, however settled.
    heat(0.5, 39.0f);
    EXPECT_EQ(temperature.GetSFPS(), 54);
    heat(0.5, 39.0f);
    EXPECT_EQ(temperature.GetSFPS(), 55);
}

TEST_F(SfpsDecider, TemperaturePausedResumesStraightAtTheBalancedSFPSOnlyWhenHot) {
    struct Row {
        int GFPS, lowerBound;
        float celsius;
        int expected;
    };
    // 41.7 °C on the line 260 - 5 t: the product rounds to 208.5 in float, so 51.5 gives 52.
    for (const Row& row :
         {Row{60, 45, 42.0f, 54}, Row{60, 45, 42.5f, 53}, Row{60, 45, 50.0f, 45},
          Row{60, 45, 40.0f, 60}, Row{30, 20, 42.0f, 26}, Row{60, 35, 41.7f, 52}}) {
        SCOPED_TRACE(row.celsius);
        temperature.Pause();
        heat(1, 30.0f);
        EXPECT_EQ(temperature.GetStatus(), Temperature::Paused);
        heat(1, row.celsius, row.GFPS, row.lowerBound);
        EXPECT_TRUE(temperature.IsActivated());
        EXPECT_EQ(temperature.GetSFPS(), row.expected);
    }
    Basics::Log::SetLogLevel(3);
    logs.Clear();
    heat(1, 42.0f, 60, 0);  // a lower bound below 1 pauses, silently
    EXPECT_EQ(temperature.GetStatus(), Temperature::Paused);
    EXPECT_EQ(temperature.GetSFPS(), -1);
    ASSERT_EQ(logs.Messages().size(), 1u);
    EXPECT_EQ(logs.Messages()[0].text, "[SfpsDeciderByTemperature][Update] status = 3");
}

TEST_F(SfpsDecider, TemperatureCoolingWalksBackUpOneStepPerSecondAndResets) {
    temperature.Pause();
    heat(1, 42.0f);
    Basics::Log::SetLogLevel(3);
    heat(1, 39.0f);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG,
                         "m=-3.000000, b=180.000000, targetSFPS=63, "
                         "after_cutoff=60"),
              1u);
    EXPECT_EQ(temperature.GetStatus(), Temperature::PrepareToPause);
    heat(0.5, 39.0f);
    heat(0.5, 39.0f);
    EXPECT_EQ(temperature.GetSFPS(), 56);
    // Hot again before the walk ends: back to Activate where it stands, stepping on later.
    heat(1, 42.0f);
    EXPECT_TRUE(temperature.IsActivated());
    EXPECT_EQ(temperature.GetSFPS(), 56);
    heat(1, 42.0f);
    EXPECT_EQ(temperature.GetSFPS(), 55);
    for (int expected = 56; expected <= 60; ++expected) {
        heat(1, 39.0f);
        EXPECT_FALSE(temperature.IsActivated());
        EXPECT_EQ(temperature.GetSFPS(), expected < 60 ? expected : -1);
    }
    EXPECT_EQ(temperature.GetStatus(), Temperature::Disactivate);
}

TEST_F(SfpsDecider, TemperatureNaNIsCoolButItsBalancedSFPSIsTheLowerBound) {
    heat(0, 42.0f);
    heat(1, kNaN);  // cool while waiting: back to idle at the first due step
    EXPECT_EQ(temperature.GetStatus(), Temperature::Disactivate);
    temperature.Pause();
    heat(1, 42.0f);
    Basics::Log::SetLogLevel(3);
    heat(1, kNaN);
    EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "targetSFPS=0, after_cutoff=45"), 1u);
    EXPECT_EQ(temperature.GetStatus(), Temperature::PrepareToPause);
    EXPECT_EQ(temperature.GetSFPS(), 53);
    temperature.Pause();
    heat(1, 50.0f);
    heat(1, kNaN);  // already at the lower bound: the walk is over at once
    EXPECT_EQ(temperature.GetStatus(), Temperature::Disactivate);
}

TEST_F(SfpsDecider, TemperatureEqualBoundsStayWithinTheAllowedRange) {
    apply("sfps_temperature", "max_temperature", "40");
    for (int lowerBound : {45, 60}) {
        for (float celsius : {40.0f, 41.0f, 1e30f}) {
            temperature.Pause();
            heat(1, celsius, 60, lowerBound);
            EXPECT_GE(temperature.GetSFPS(), lowerBound) << celsius;
            EXPECT_LE(temperature.GetSFPS(), 60) << celsius;
        }
    }
}

TEST_F(SfpsDecider, EveryAliasReachesItsTunable) {
    struct Tunable {
        const char *category, *name, *resetTo, *keys;
    };
    for (const Tunable& tunable :
         {Tunable{"sfps_temperature", "TEMPERATURE_LOWER_BOUND", "40.000000",
                  "temperature_to_start_consider_stabilize_fps start_temperature "
                  "temperature_lower_bound"},
          Tunable{"sfps_temperature", "TEMPERATURE_UPPER_BOUND", "45.000000",
                  "not_allowed_temperature max_temperature temperature_upper_bound"},
          Tunable{"sfps_temperature", "TIME_TO_STAY_IN_GFPS_AT_LEAST_S", "300.000000",
                  "time_to_stay_in_gfps_at_least ttsigal"},
          Tunable{"sfps_current", "ElectricCurrentThreshold", "NAN",
                  "electric_current_threshold_to_compress_fps current_threshold ecttcf"},
          Tunable{"sfps_current", "TIME_TO_STAY_IN_GFPS_AT_LEAST_S", "300.000000",
                  "time_to_stay_in_gfps_at_least ttsigal"}}) {
        for (const std::string& key : Basics::SplitString(tunable.keys, ' ')) {
            logs.Clear();
            apply(tunable.category, key, "7");
            apply(tunable.category, key, "nan");
            const std::string name = tunable.name;
            ASSERT_EQ(logs.Messages().size(), 2u) << key;
            EXPECT_EQ(logs.Messages()[0].text, "[SfpsDecider]\t Set " + name + " to 7.000000");
            EXPECT_EQ(logs.Messages()[1].text,
                      "[SfpsDecider]\t Reset " + name + " to " + tunable.resetTo);
        }
    }
    // The unset threshold keeps the current decider idle; setting one wakes it, "nan" ends it.
    apply("sfps_current", "ttsigal", "0");
    for (int second = 0; second < 10; ++second) draw(1, 5000.0f);
    EXPECT_EQ(current.GetStatus(), Current::Disactivate);
    apply("sfps_current", "ecttcf", "2000");
    draw(1, 5000.0f);
    draw(1, 5000.0f);
    EXPECT_TRUE(current.IsActivated());
    apply("sfps_current", "current_threshold", "nan");
    draw(5, 5000.0f);
    EXPECT_EQ(current.GetStatus(), Current::Disactivate);
    // 'abc' keeps the lower bound; the temperature decider kept its own 300 s wait.
    apply("sfps_temperature", "temperature_lower_bound", "30");
    apply("sfps_temperature", "max_temperature", "35");
    apply("sfps_temperature", "start_temperature", "abc");
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR, "sourceString_ = 'abc'"), 1u);
    heat(0, 32.0f);
    heat(1, 32.0f);
    EXPECT_EQ(temperature.GetStatus(), Temperature::WaitForActivate);
    temperature.Pause();
    heat(1, 32.0f);
    EXPECT_EQ(temperature.GetSFPS(), 54);  // through (30 °C, 60) and (35 °C, 45)
}

// Above the threshold for whole seconds first (299.9 s are 299), then one step down every 5 s to
// the lower bound; below it, one step up every 5 s to the GFPS, then idle.
TEST_F(SfpsDecider, CurrentWaitsThenStepsEveryFiveSecondsDownToTheLowerBoundAndBack) {
    apply("sfps_current", "current_threshold", "2000");
    apply("sfps_current", "ttsigal", "299.5");
    draw(0, 2500.0f);
    draw(299.9, 2500.0f);
    EXPECT_EQ(current.GetStatus(), Current::WaitForActivate);
    draw(0.1, 2500.0f);
    EXPECT_TRUE(current.IsActivated());
    EXPECT_EQ(current.GetSFPS(), 60);
    for (int second = 1; second <= 76; ++second) {
        draw(1, 2500.0f);
        ASSERT_EQ(current.GetSFPS(), std::max(45, 59 - (second - 1) / 5)) << second;
        ASSERT_TRUE(current.IsActivated());
    }
    for (int second = 1; second <= 80; ++second) {
        draw(1, 1500.0f);  // the last step started a fresh mean
        ASSERT_EQ(current.GetSFPS(), second < 80 ? 45 + second / 5 : -1) << second;
        ASSERT_EQ(current.GetStatus(),
                  second < 80 ? Current::PrepareToDisactivate : Current::Disactivate);
    }
}

TEST_F(SfpsDecider, CurrentStepsOnlyWhenTheMeanSinceTheLastStepIsClearlyAbove) {
    activateCurrentQuickly(2080.0f);
    for (int second = 0; second < 10; ++second) draw(1, 2080.0f);
    draw(1, 1500.0f);  // the mean, not the reading, decides: still above, still no step
    EXPECT_TRUE(current.IsActivated());
    EXPECT_EQ(current.GetSFPS(), 60);
    draw(1, 4000.0f);  // the samples and the due timer were kept: mean 2176, a step at once
    EXPECT_EQ(current.GetSFPS(), 59);
    // The mean is narrowed to float: 2100.00008 is 2100, not above the threshold by 100.
    draw(1, 2100.0f);
    draw(1, 2100.0f);
    draw(3, 2100.0f + 1.0f / 4096);
    EXPECT_EQ(current.GetSFPS(), 59);
}

TEST_F(SfpsDecider, CurrentImplausibleInputEndsStabilisationAtOnce) {
    EXPECT_TRUE(Current::IsElectricCurrentReasonable(1.0f));  // low, not implausible
    struct Row {
        int GFPS, lowerBound;
        float mA;
        size_t stopMessages;
    };
    Basics::Log::SetLogLevel(3);
    for (const Row& row : {Row{60, 45, 0.0f, 0}, Row{60, 45, kNaN, 0}, Row{60, 45, 100000.0f, 0},
                           Row{60, 0, 2500.0f, 0}, Row{30, 45, 2500.0f, 1}}) {
        SCOPED_TRACE(row.mA);
        current.Reset();
        activateCurrentQuickly();
        logs.Clear();
        draw(1, row.mA, row.GFPS, row.lowerBound);
        EXPECT_EQ(current.GetStatus(), Current::Disactivate);
        EXPECT_EQ(current.GetSFPS(), -1);
        EXPECT_EQ(logs.Count(ANDROID_LOG_DEBUG, "Stop Stabilizing due to GFPS is lower."),
                  row.stopMessages);
        EXPECT_EQ(logs.Messages().size(), 1 + row.stopMessages);
    }
}

}  // namespace
