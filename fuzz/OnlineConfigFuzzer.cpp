// Any document either parses or yields the cleared result; only jsoncpp's own type exceptions,
// which belong to the caller, may escape.
#include <json/json.h>

#include <cstdint>

#include "talvex/basics/Log.h"
#include "talvex/user_settings/OnlineConfigJsonParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Basics::Log::SetLogLevel(-1);
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const auto parser = android::talvex::OnlineConfigJsonParser::Parse(text);
        if (!parser.GetSettings()) __builtin_trap();
        for (const auto& setting : *parser.GetSettings()) {
            (void)setting.category.size();
        }
    } catch (const Json::Exception&) {
    }
    return 0;
}
