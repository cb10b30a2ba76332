#include "talvex/user_settings/OnlineConfigJsonParser.h"

#include <json/json.h>

#include "talvex/basics/Log.h"

namespace android {
namespace talvex {
namespace {

constexpr std::size_t PIECES_PER_SETTING = 3;

// Refuses bare values at the root and a comment before it. Newer jsoncpp releases deprecate the
// reader; the warning is silenced here only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
bool parseStrictly(const std::string& text, Json::Value& root) {
    Json::Reader reader(Json::Features::strictMode());
    return reader.parse(text, root, true);
}
#pragma GCC diagnostic pop

// The strict reader still skips comments between object members and after the root. A '/'
// outside a string is never valid JSON, so finding one is enough to refuse the text.
bool hasComment(const std::string& text) {
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (escaped) {
            escaped = false;
        } else if (inString) {
            escaped = c == '\\';
            inString = c != '"';
        } else if (c == '"') {
            inString = true;
        } else if (c == '/') {
            return true;
        }
    }
    return false;
}

bool hasRequiredMembers(const Json::Value& root) {
    return root.isObject() && !root["pid"].isNull() && !root["lifeCycle"].isNull() &&
           !root["package"].isNull();
}

}  // namespace

OnlineConfigJsonParser::OnlineConfigJsonParser()
    : settings(std::make_shared<std::vector<UserSettings::UserSetting>>()) {
    ClearData();
}

OnlineConfigJsonParser OnlineConfigJsonParser::Parse(const std::string& JSON_TEXT) {
    OnlineConfigJsonParser parsed;
    Json::Value root;
    if (parseStrictly(JSON_TEXT, root) && !hasComment(JSON_TEXT) && hasRequiredMembers(root)) {
        parsed.pid = root["pid"].asInt();
        parsed.lifeCycle = root["lifeCycle"].asInt();
        parsed.targetApp = root["package"].asString();

        const Json::Value& commands = root["param"];
        // Indexing would reject an object but read a text or a number as no commands at all.
        if (!commands.isNull() && !commands.isArray()) {
            Json::throwLogicError(
                "in OnlineConfigJsonParser::Parse(): \"param\" requires arrayValue");
        }
        bool allCommandsParsed = true;
        for (Json::ArrayIndex index = 0; index < commands.size() && allCommandsParsed; ++index) {
            std::string command = commands[index]["param1"].asString();
            allCommandsParsed = parsed.ParseCmd(command) >= 0;
        }
        if (allCommandsParsed) {
            TALVEX_LOGD("[OnlineConfigJsonParser] Parse success JSON_TEXT = %s", JSON_TEXT.c_str());
            return parsed;
        }
    }
    TALVEX_LOGI("[OnlineConfigJsonParser] Parse error.JSON_TEXT=%s", JSON_TEXT.c_str());
    parsed.ClearData();
    return parsed;
}

int OnlineConfigJsonParser::ParseCmd(std::string& command) {
    std::size_t comma = command.find(',');
    if (comma == std::string::npos) return 0;

    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (; comma != std::string::npos; comma = command.find(',', start)) {
        pieces.push_back(command.substr(start, comma - start));
        start = comma + 1;
    }
    command.erase(0, start);
    pieces.push_back(command);

    if (pieces.size() % PIECES_PER_SETTING != 0) {
        TALVEX_LOGE("[OnlineConfigJsonParser] command size error %s", command.c_str());
        return -1;
    }
    for (std::size_t i = 0; i < pieces.size(); i += PIECES_PER_SETTING) {
        settings->push_back({pieces[i], pieces[i + 1], pieces[i + 2]});
    }
    return 0;
}

void OnlineConfigJsonParser::ClearData() {
    pid = 0;
    lifeCycle = 3;
    targetApp.clear();
    settings->clear();
}

}  // namespace talvex
}  // namespace android
