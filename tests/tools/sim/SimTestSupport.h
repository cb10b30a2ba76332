#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tools/sim/InputError.h"
#include "tools/sim/Scenario.h"

namespace TalvexSimTest {

// A fresh directory for one test, removed afterwards.
class ScratchDirectory {
  public:
    ScratchDirectory() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "talvex-sim-test-XXXXXX").string();
        path = mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string File(const std::string& name) const { return path + "/" + name; }
    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(File(name), std::ios::binary) << content;
        return File(name);
    }

    std::string path;
};

// The loader's message for a scenario text it refuses, or "<loaded>".
inline std::string LoadError(const std::string& text) {
    try {
        TalvexSim::LoadScenarioText(text, "bad.json", "bad");
    } catch (const TalvexSim::InputError& error) {
        return error.what();
    }
    return "<loaded>";
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

inline std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

// A small valid scenario; `extra` is spliced in as further top-level members.
inline std::string ScenarioText(const std::string& extra = "", double duration_s = 60.0,
                                const std::string& params =
                                    R"({"param1": "stabilizer,gfps,30-60"},
                                       {"param1": "stabilizer,sfps,0-45"})") {
    std::ostringstream text;
    text << "{\n"
         << "  \"duration_s\": " << duration_s << ",\n"
         << "  \"game\": {\"target_fps\": 60, \"work_ms\": 9.0},\n"
         << extra
         << "  \"config\": {\"pid\": 777, \"lifeCycle\": 1, \"package\": \"com.test.game\",\n"
         << "             \"param\": [" << params << "]}\n"
         << "}\n";
    return text.str();
}

}  // namespace TalvexSimTest
