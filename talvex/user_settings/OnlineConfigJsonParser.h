#pragma once

#include <memory>
#include <string>
#include <vector>

#include "talvex/user_settings/UserSetting.h"

namespace android {
namespace talvex {

// Turns a game's online configuration (JSON) into setting records. The record list is allocated
// once and only emptied afterwards: copies of the parser and callers of GetSettings share it.
class OnlineConfigJsonParser {
  public:
    OnlineConfigJsonParser();

    // A failed parse returns a parser in the cleared state. Members of an unexpected JSON type
    // raise jsoncpp's own exception.
    static OnlineConfigJsonParser Parse(const std::string& JSON_TEXT);

    // Appends the records of one "category,key,value[,category,key,value...]" command; 0 on
    // success, -1 when the pieces do not come in threes. A command without a comma is ignored.
    // Consumes the argument: afterwards it holds the text after the last comma.
    int ParseCmd(std::string& command);

    void ClearData();

    int GetPID() const { return pid; }
    int GetLifeCycle() const { return lifeCycle; }
    std::string GetTargetApp() const { return targetApp; }
    std::shared_ptr<std::vector<UserSettings::UserSetting>> GetSettings() const { return settings; }

  private:
    int pid = 0;
    int lifeCycle = 3;
    std::string targetApp;
    std::shared_ptr<std::vector<UserSettings::UserSetting>> settings;
};

}  // namespace talvex
}  // namespace android
