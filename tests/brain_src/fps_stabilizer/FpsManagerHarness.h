#pragma once

#include <gmock/gmock.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/Trace.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexTest {

using TalvexHarness::LogSink;
using TalvexHarness::NodeDirectory;
using TalvexHarness::TraceCapture;
using TalvexHarness::VirtualClock;

using android::FpsStabilizer::FpsManager;
using Records = std::shared_ptr<const std::vector<UserSettings::UserSetting>>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

inline Records MakeRecords(std::vector<UserSettings::UserSetting> records) {
    return std::make_shared<const std::vector<UserSettings::UserSetting>>(std::move(records));
}
// The SFPS lower bound is 45 at GFPS 60.
inline Records Gfps30To60() {
    return MakeRecords({{"stabilizer", "gfps", "30-60"}, {"stabilizer", "sfps", "0-45"}});
}
inline UserSettings::UserSettingsCenter& Center() {
    return UserSettings::UserSettingsCenter::GetInstance();
}

// Managers on virtual time, their node in a temporary directory, logs at DEBUG and the trace
// captured. Managers live inside the tests, so they are gone before the center is cleaned.
class FpsManagerTest : public ::testing::Test {
  protected:
    // One host tick after the given time, with a CPU load so light that the loading detectors
    // never talk the EFPS down; returns the node's text.
    std::string Tick(FpsManager& manager, int ofps, float celsius = 30.0f, float mA = 1000.0f,
                     double seconds = 1.0, int refreshRate = 60) {
        android::FpsStabilizer::SYS_INFO info;
        std::memset(&info, 0, sizeof(info));
        info.temperature_mC = static_cast<std::uint32_t>(celsius * 1000.0f);
        info.electricCurrent_uA = static_cast<std::uint32_t>(mA * 1000.0f);
        clock.AdvanceSeconds(seconds);
        manager.Update(info, ofps, refreshRate);
        manager.PostUpdate();
        return nodes.Read("efps_max");
    }
    // The EFPS the last tick settled on, from its closing message.
    std::string FinalEFPS() const {
        const std::string prefix = android::FpsStabilizer::kFinalEfpsLinePrefix;
        const auto finals = logs.Texts(ANDROID_LOG_DEBUG, prefix);
        return finals.empty() ? "<none>" : finals.back().substr(prefix.size());
    }
    size_t Logged(const std::string& text, int priority = ANDROID_LOG_DEBUG) const {
        return logs.Count(priority, text);
    }
    std::vector<std::string> Errors() const { return logs.Texts(ANDROID_LOG_ERROR); }

    TalvexHarness::SettingsCenterScope emptied;
    TalvexHarness::LogSwitchesScope debug{3};
    VirtualClock clock;
    NodeDirectory nodes;
    LogSink logs;
    TraceCapture trace;
};

}  // namespace TalvexTest
