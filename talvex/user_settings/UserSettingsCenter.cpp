#include "talvex/user_settings/UserSettingsCenter.h"

#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <utility>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"

namespace UserSettings {
namespace {

const char* const RULE_LINE =
    "========================================================================\n";
const char* const DASH_LINE = "----------------------------------------------------------------\n";
constexpr unsigned int KEYS_PER_LINE = 10;
constexpr unsigned int RECORDS_PER_LINE = 10;

// The listings go to standard output and, as one message, to the log.
void writeListing(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
    TALVEX_LOGI("%s", text.c_str());
}

}  // namespace

UserSettingsCenter& UserSettingsCenter::GetInstance() {
    static UserSettingsCenter instance;
    return instance;
}

UserSettingsCenter::UserSettingsCenter() {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    TALVEX_LOGI("[UserSettings] Init Version as: %d", version_);
    TALVEX_LOGI("[UserSettings] Init Lock State as: %d", static_cast<int>(lockState_));
}

UserSettingsCenter::~UserSettingsCenter() = default;

void UserSettingsCenter::OnCurrentBrainResume(int pid) {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    currentBrainPid_ = pid;
}

void UserSettingsCenter::OnCurrentBrainDie(int pid) {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    try {
        TALVEX_LOGI("[UserSettingsCenter][OnCurrentBrainDie] Release Brain: %d", pid);
        dictionaryOfUserSettingActions_.at(pid).clear();
        userSettingRecords_.at(pid).clear();
    } catch (const std::exception& error) {
        TALVEX_LOGW("[UserSettingsCenter][OnCurrentBrainDie] Following exception has been thrown:");
        TALVEX_LOGW("[UserSettingsCenter][OnCurrentBrainDie] -----\n%s", error.what());
        TALVEX_LOGW(
            "[UserSettingsCenter][OnCurrentBrainDie] -----\n"
            "Note: current contents of UserSettingsCenter:");
        PrintUserSettingCandidates();
    } catch (...) {
        TALVEX_LOGW("[UserSettingsCenter][OnCurrentBrainDie] %s",
                    "Unkown exception has been thrown.\n"
                    "\t Note: current contents of UserSettingsCenter:\n");
        PrintUserSettingCandidates();
    }
    actionsOwners_.erase(pid);
    if (currentBrainPid_ == pid) currentBrainPid_ = -1;
}

void UserSettingsCenter::SetActionsOwner(int pid, const void* owner) {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    actionsOwners_[pid] = owner;
}

bool UserSettingsCenter::ReleaseActionsOf(int pid, const void* owner) {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    const auto found = actionsOwners_.find(pid);
    if (found == actionsOwners_.end() || found->second != owner) return false;
    OnCurrentBrainDie(pid);
    return true;
}

void UserSettingsCenter::RegisterUserSetting(const std::string& key, UserSettingAction&& action,
                                             const std::string& category) {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    dictionaryOfUserSettingActions_[currentBrainPid_][category][key] = std::move(action);
}

void UserSettingsCenter::OnUserSettingParameter(const UserSetting& setting) {
    std::unique_lock<std::recursive_mutex> lock(hierarchyMutex_, std::defer_lock);
    std::string failure;
    try {
        try {
            lock.lock();
            applyUserSetting(setting);
            return;
        } catch (...) {
            // Composed while the lock is still held: the text reads the current PID.
            failure = describeFailure(setting);
        }
        if (lock.owns_lock()) lock.unlock();
        TALVEX_LOGE("[UserSettingsCenter] %s", failure.c_str());
    } catch (...) {
        // Only an allocation failure while reporting gets here; the record is dropped either way.
    }
}

void UserSettingsCenter::applyUserSetting(const UserSetting& setting) {
    // A copy, so that an action may replace or forget its own registration while it runs.
    const UserSettingAction action =
        dictionaryOfUserSettingActions_.at(currentBrainPid_).at(setting.category).at(setting.key);
    action(setting.value);
    userSettingRecords_[currentBrainPid_][setting.key] = setting.value;
}

// Classifies the exception being handled; called only from a handler.
std::string UserSettingsCenter::describeFailure(const UserSetting& setting) const {
    std::string text = "\nError occur while Setting the parameters:\n";
    try {
        throw;
    } catch (const std::out_of_range&) {
        text += "\t PID: '" + Basics::ToString(currentBrainPid_) + "'\n";
        text += "\t key: '" + setting.key + "'\n";
        text += "\t Note:\n";
        text += "\t\t USER_SETTINGS.category = '" + setting.category + "'\n";
        text += "\t\t USER_SETTINGS.key = '" + setting.key + "'\n";
        text += "\t\t USER_SETTINGS.value = '" + setting.value + "'\n";
    } catch (const std::runtime_error& error) {
        text += "\t The setting process (HierarchyMutex) is buzy.\n";
        text += "---\n";
        text += error.what();
        text += "\n";
    } catch (const std::exception& error) {
        text += "\t std exception is thrown, this may because the user specified\n";
        text += "\t key or value is invalid.\n";
        text += "\t Exception info:\n";
        text += "---\n";
        text += error.what();
        text += "\n";
    } catch (...) {
        text += "\t Unkown exception is thrown.";
    }
    return text;
}

void UserSettingsCenter::SetVersion(const std::string& targetVersion) {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    if (IsResetCommand(targetVersion)) {
        version_ = defaultVersion_;
        TALVEX_LOGI("[UserSettingsCenter]\t Reset Version to %d", version_);
        return;
    }
    int version = -1;
    Basics::ConvertStringToValue(targetVersion, version);
    if (version < 0) {
        throw std::invalid_argument(
            "\nError occur while UserSettingsCenter::SetVersion():\n"
            "Invalid targetVersion = " +
            targetVersion +
            "\n"
            "\t The target value must >= 0\n"
            "\t However:"
            "\t\t after converted to int, targetVersion = '" +
            Basics::ToString(version) + "'\n");
    }
    version_ = version;
    TALVEX_LOGI("[UserSettingsCenter]\t Set Version to %d", version_);
}

int UserSettingsCenter::GetVersion() const {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    return version_;
}

void UserSettingsCenter::PrintUserSettingCandidates() const {
    try {
        std::string text = RULE_LINE;
        for (const auto& [pid, categories] : dictionaryOfUserSettingActions_) {
            text += "\t" + Basics::ToString(pid) + "\n" + DASH_LINE;
            for (const auto& [category, actions] : categories) {
                text += "\t\t" + category + "\n----------\n\t\t\t";
                unsigned int keysOnLine = 1;
                for (const auto& entry : actions) {
                    text += entry.first + ", ";
                    if (keysOnLine == KEYS_PER_LINE) {
                        text += "\n\t\t\t";
                        keysOnLine = 1;
                    } else {
                        ++keysOnLine;
                    }
                }
            }
            text += "\n";
            text += RULE_LINE;
        }
        writeListing(text);
    } catch (const std::exception& error) {
        TALVEX_LOGE(
            "[UserSettingsCenter][PrintUserSettingCandidates] Error occur while printing:\n%s",
            error.what());
    }
}

void UserSettingsCenter::PrintUserSettingRecords(int pid) const {
    try {
        std::string text = RULE_LINE;
        text += "\t Game: " + Basics::ToString(pid) + " UserSettings:\n";
        text += DASH_LINE;
        try {
            text += Basics::ContainerToString(userSettingRecords_.at(pid), RECORDS_PER_LINE);
            text += "\n";
            text += RULE_LINE;
        } catch (const std::exception& error) {
            text += "Failed to PrintUserSettingRecords due to fallowing error:\n";
            text += error.what();
        } catch (...) {
            text += "Unkown Exception has be thrown when PrintUserSettingRecords().";
        }
        writeListing(text);
    } catch (const std::exception& error) {
        TALVEX_LOGE("[UserSettingsCenter][PrintUserSettingRecords] Error occur while printing:\n%s",
                    error.what());
    }
}

void UserSettingsCenter::ResetForTesting() {
    std::lock_guard<std::recursive_mutex> lock(hierarchyMutex_);
    version_ = defaultVersion_;
    lockState_ = false;
    currentBrainPid_ = -1;
    dictionaryOfUserSettingActions_.clear();
    userSettingRecords_.clear();
    actionsOwners_.clear();
}

}  // namespace UserSettings
