#pragma once

#include <functional>
#include <string>
#include <vector>

namespace UserSettings {

// One setting as it travels from the host to a component; the value's meaning belongs to the
// action registered for the category and key.
struct UserSetting {
    std::string category;
    std::string key;
    std::string value;
};

// Receives the value text; throws to refuse it.
using UserSettingAction = std::function<void(std::string)>;

// Command names shared by every component. Comparison is exact and case-sensitive. Each
// translation unit holds its own copy, so they are usable from any constructor.
const std::vector<std::string> RESET_COMMANDS = {"reset", "nan", "NAN"};
const std::vector<std::string> VERSION_COMMANDS = {"Version", "version", "Ver", "ver", "esu"};
const std::vector<std::string> PRINT_CANDIDATES_COMMANDS = {"print_candidates", "candidates"};
const std::vector<std::string> PRINT_RECORDS_COMMANDS = {"print_records", "records", "history"};
const std::string SET_CALIBRATOR_COMMAND = "set_calibrator";

// True when the value asks a setting to return to its default.
bool IsResetCommand(const std::string& value);

}  // namespace UserSettings
