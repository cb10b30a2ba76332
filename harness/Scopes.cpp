#include "harness/Scopes.h"

#include "talvex/basics/Log.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexHarness {

LogSwitchesScope::LogSwitchesScope()
    : previousLevel(Basics::Log::LogLevel()), previousDebug(Basics::Log::IsDebug()) {}

LogSwitchesScope::LogSwitchesScope(int level, bool debug) : LogSwitchesScope() {
    Basics::Log::SetLogLevel(level);
    Basics::Log::SetDebug(debug);
}

LogSwitchesScope::~LogSwitchesScope() {
    Basics::Log::SetLogLevel(previousLevel);
    Basics::Log::SetDebug(previousDebug);
}

SettingsCenterScope::SettingsCenterScope() {
    UserSettings::UserSettingsCenter::GetInstance().ResetForTesting();
}

SettingsCenterScope::SettingsCenterScope(int pid) : SettingsCenterScope() {
    UserSettings::UserSettingsCenter::GetInstance().OnCurrentBrainResume(pid);
}

SettingsCenterScope::~SettingsCenterScope() {
    UserSettings::UserSettingsCenter::GetInstance().ResetForTesting();
}

void SettingsCenterScope::Set(const std::string& category, const std::string& key,
                              const std::string& value) {
    UserSettings::UserSettingsCenter::GetInstance().OnUserSettingParameter({category, key, value});
}

}  // namespace TalvexHarness
