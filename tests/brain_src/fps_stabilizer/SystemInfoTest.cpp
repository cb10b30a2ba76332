#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/SystemInfo.h"

namespace {

using android::FpsStabilizer::SYS_INFO;

// CPU readings of 10 or less are not analysed; only the sum of these three exceeds 10.
const SYS_INFO kIdle{}, kLightBySumOnly{0, 0, {}, {5, 5, 5, 0}, 0};

class SystemInfoTest : public ::testing::Test {
  protected:
    TalvexHarness::LogSwitchesScope debug{3};

    // One tick whose final EFPS is what the EFPS rule chose.
    int Tick(int ofps, const SYS_INFO& info = kIdle) {
        systemInfo.Update(info, ofps);
        systemInfo.PostUpdate(systemInfo.GetEFPS());
        return systemInfo.GetEFPS();
    }
    size_t Debug(const std::string& text) const {
        return logs.Count(ANDROID_LOG_DEBUG, "[SystemInfo@Stabilizer]" + text);
    }

    TalvexHarness::VirtualClock clock;
    TalvexHarness::LogSink logs;
    android::FpsStabilizer::SystemInfo systemInfo;
};

TEST_F(SystemInfoTest, ReadingsAreConvertedAsUnsigned) {
    EXPECT_TRUE(std::isnan(systemInfo.GetTemperature_Celsius()));
    EXPECT_TRUE(std::isnan(systemInfo.GetElectricCurrent_mA()));
    systemInfo.Update(SYS_INFO{0, 1500000, {}, {}, 45000}, 60);
    EXPECT_EQ(systemInfo.GetTemperature_Celsius(), 45.0f);
    EXPECT_EQ(systemInfo.GetElectricCurrent_mA(), 1500.0f);
    systemInfo.Update(SYS_INFO{0, 4294967295u, {}, {}, 4294967295u}, 60);
    EXPECT_EQ(systemInfo.GetTemperature_Celsius(), 4294967.5f);
    EXPECT_EQ(systemInfo.GetElectricCurrent_mA(), 4294967.5f);
}

TEST_F(SystemInfoTest, EfpsRisesAtOnceAndFallsOnlyOnVeryLightLoading) {
    EXPECT_EQ(Tick(60), 60);
    systemInfo.Update(kIdle, 90);
    EXPECT_EQ(systemInfo.GetEFPS(), 90);
    systemInfo.PostUpdate(30);
    EXPECT_EQ(systemInfo.GetEFPS(), 30);
    EXPECT_EQ(Tick(60), 60);
    EXPECT_EQ(Tick(45), 60);
    EXPECT_EQ(systemInfo.GetCurrentOFPS(), 45);
    EXPECT_EQ(Debug(" Finally, EFPS = 60"), 3u);
    // One detector is enough to let the EFPS fall.
    EXPECT_EQ(Tick(45, kLightBySumOnly), 45);
    EXPECT_EQ(Debug("\t targetEFPS is change from 60 to 45 due to LoadingVeryLight."), 1u);
    EXPECT_EQ(Tick(45), 45);
    EXPECT_EQ(Debug("\t targetEFPS is change from 45 to 45 due to LoadingHeavy."), 1u);
    // The fall changed the final EFPS, so the detectors forget the answer that caused it.
    EXPECT_EQ(Tick(30, kLightBySumOnly), 30);
    EXPECT_EQ(Tick(20), 30);
    systemInfo.OnPause();
    EXPECT_EQ(systemInfo.GetEFPS(), -1);
}

}  // namespace
