#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "ManualClock.h"
#include "TempNodeDirectory.h"
#include "TraceCapture.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexTest {

using android::FpsStabilizer::FpsManager;
using android::FpsStabilizer::SYS_INFO;
using Records = std::shared_ptr<const std::vector<UserSettings::UserSetting>>;

inline Records MakeRecords(std::initializer_list<UserSettings::UserSetting> records) {
    return std::make_shared<const std::vector<UserSettings::UserSetting>>(records);
}

// A GFPS list with the SFPS lower bound 45 at 60, and a current decider that needs no wait.
inline Records Gfps30To60() {
    return MakeRecords({{"stabilizer", "gfps", "30-60"}, {"stabilizer", "sfps", "0-45"}});
}
inline Records QuickCurrentDecider() {
    return MakeRecords(
        {{"sfps_current", "current_threshold", "2000"}, {"sfps_current", "ttsigal", "0"}});
}

inline UserSettings::UserSettingsCenter& Center() {
    return UserSettings::UserSettingsCenter::GetInstance();
}

// Light CPU load: the loading detectors never talk the EFPS down in these stories.
inline SYS_INFO Reading(float celsius, float mA) {
    SYS_INFO info;
    std::memset(&info, 0, sizeof(info));
    info.temperature_mC = static_cast<std::uint32_t>(celsius * 1000.0f);
    info.electricCurrent_uA = static_cast<std::uint32_t>(mA * 1000.0f);
    return info;
}

// Managers on virtual time, with their node in a temporary directory and their logs and trace
// captured. Managers are members of the tests, so they go before the center is cleaned.
class FpsManagerTest : public ::testing::Test {
  protected:
    FpsManagerTest() {
        Center().ResetForTesting();
        Basics::Log::SetLogLevel(3);
    }
    ~FpsManagerTest() override {
        Center().ResetForTesting();
        Basics::Log::SetLogLevel(2);
        Basics::Log::SetDebug(false);
    }

    // One tick of the host after the given time; returns the node's text.
    std::string Tick(FpsManager& manager, int ofps, float celsius = 30.0f, float mA = 1000.0f,
                     double seconds = 1.0, int refreshRate = 60) {
        clock.AdvanceSeconds(seconds);
        manager.Update(Reading(celsius, mA), ofps, refreshRate);
        manager.PostUpdate();
        return nodes.Read("efps_max");
    }

    // EFPS the last tick settled on, from its closing DEBUG message.
    std::string FinalEFPS() const {
        const auto finals = logs.Find(ANDROID_LOG_DEBUG, "[FpsManager] Finally, EFPS = ");
        return finals.empty() ? "<none>" : finals.back().text.substr(29);
    }

    ManualClock clock;
    TempNodeDirectory nodes;
    LogCapture logs;
    TraceCapture trace;
};

}  // namespace TalvexTest
