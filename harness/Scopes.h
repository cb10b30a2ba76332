#pragma once

#include <string>

namespace TalvexHarness {

// Puts back the library's log switches it found, whatever was set while it was alive.
class LogSwitchesScope {
  public:
    LogSwitchesScope();
    // Sets them as well.
    explicit LogSwitchesScope(int level, bool debug = false);
    ~LogSwitchesScope();
    LogSwitchesScope(const LogSwitchesScope&) = delete;
    LogSwitchesScope& operator=(const LogSwitchesScope&) = delete;

  private:
    int previousLevel;
    bool previousDebug;
};

// Empties the settings center on construction and again on destruction. Declare it before the
// components under test: they register with an empty center, and the center forgets their
// actions before they go.
class SettingsCenterScope {
  public:
    SettingsCenterScope();
    // The center is resumed under that game's PID as well.
    explicit SettingsCenterScope(int pid);
    ~SettingsCenterScope();
    SettingsCenterScope(const SettingsCenterScope&) = delete;
    SettingsCenterScope& operator=(const SettingsCenterScope&) = delete;

    static void Set(const std::string& category, const std::string& key, const std::string& value);
};

}  // namespace TalvexHarness
