#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "talvex/basics/Exceptions.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexTest {

// "Function:Detail" of the InvalidArgumentException the action raises, or a marker naming what
// happened instead.
inline std::string RefusalOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Basics::InvalidArgumentException& e) {
        const std::string text = e.what();
        const std::string functionLabel = "\t Function: ";
        const std::string detailLabel = "\n\t Detail: ";
        const auto function = text.find(functionLabel) + functionLabel.size();
        return text.substr(function, text.find("\n\t Line: ") - function) + ":" +
               text.substr(text.find(detailLabel) + detailLabel.size());
    } catch (const std::invalid_argument&) {
        return "<std::invalid_argument>";
    }
    return "<no exception>";
}

// Declared before the components under test, so that they register with an empty center and
// leave none of their actions behind.
struct FreshSettingsCenter {
    FreshSettingsCenter() { UserSettings::UserSettingsCenter::GetInstance().ResetForTesting(); }
    ~FreshSettingsCenter() { UserSettings::UserSettingsCenter::GetInstance().ResetForTesting(); }
    FreshSettingsCenter(const FreshSettingsCenter&) = delete;
    FreshSettingsCenter& operator=(const FreshSettingsCenter&) = delete;

    // Applies a record as the host sends it.
    static void Send(const std::string& category, const std::string& key,
                     const std::string& value) {
        UserSettings::UserSettingsCenter::GetInstance().OnUserSettingParameter(
            {category, key, value});
    }
};

}  // namespace TalvexTest
