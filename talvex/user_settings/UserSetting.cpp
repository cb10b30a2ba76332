#include "talvex/user_settings/UserSetting.h"

#include <algorithm>

namespace UserSettings {

bool IsResetCommand(const std::string& value) {
    return std::find(RESET_COMMANDS.begin(), RESET_COMMANDS.end(), value) != RESET_COMMANDS.end();
}

}  // namespace UserSettings
