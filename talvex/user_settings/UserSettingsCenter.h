#pragma once

#include <map>
#include <mutex>
#include <string>

#include "talvex/user_settings/UserSetting.h"

namespace UserSettings {

// The process-wide registry of setting actions, kept per game process (PID). Components register
// one action per alias in their constructors; records reach them through OnUserSettingParameter.
// One recursive mutex guards everything and is held while an action runs, so an action may call
// back into the center on the same thread. The two listings take no lock: callers must not run
// them concurrently with a registration, a dispatch or a Brain operation on another thread.
class UserSettingsCenter {
  public:
    static UserSettingsCenter& GetInstance();

    UserSettingsCenter(const UserSettingsCenter&) = delete;
    UserSettingsCenter& operator=(const UserSettingsCenter&) = delete;

    // Later registrations are filed under this PID.
    void OnCurrentBrainResume(int pid);
    // Forgets the PID's actions and records; logs a warning block instead of throwing.
    void OnCurrentBrainDie(int pid);

    // Which object's actions the center holds for a PID. An owner replaced by a newer one for the
    // same PID (which re-registered the same keys) must not take the newer one's actions with it.
    void SetActionsOwner(int pid, const void* owner);
    // Forgets the PID as OnCurrentBrainDie does, but only while `owner` still holds its actions;
    // returns whether it did.
    bool ReleaseActionsOf(int pid, const void* owner);

    // Files the action under the current PID, replacing one registered under the same names.
    void RegisterUserSetting(const std::string& key, UserSettingAction&& action,
                             const std::string& category);

    // Calls the matching action and records the value when it accepts it. Never throws: every
    // failure is one ERROR message and leaves the stored state as it was.
    void OnUserSettingParameter(const UserSetting& setting);

    // A reset command restores the default version; throws std::invalid_argument for a text that
    // is not a number or a negative number.
    void SetVersion(const std::string& targetVersion);
    int GetVersion() const;

    // Write to standard output and, when INFO passes, as one message. Never throw.
    void PrintUserSettingCandidates() const;
    void PrintUserSettingRecords(int pid) const;

    // Restores the state of a freshly built center (no PID current, nothing registered or
    // recorded, default version), so that tests sharing the process start alike.
    void ResetForTesting();

  private:
    using ActionsByKey = std::map<std::string, UserSettingAction>;
    using ActionsByCategory = std::map<std::string, ActionsByKey>;
    using RecordsByKey = std::map<std::string, std::string>;

    UserSettingsCenter();
    ~UserSettingsCenter();

    void applyUserSetting(const UserSetting& setting);
    std::string describeFailure(const UserSetting& setting) const;

    const int defaultVersion_ = 3;
    int version_ = 3;
    bool lockState_ = false;
    int currentBrainPid_ = -1;
    std::map<int, ActionsByCategory> dictionaryOfUserSettingActions_;
    std::map<int, RecordsByKey> userSettingRecords_;
    std::map<int, const void*> actionsOwners_;
    mutable std::recursive_mutex hierarchyMutex_;
};

}  // namespace UserSettings
