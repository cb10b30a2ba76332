#pragma once

#include <gtest/gtest.h>
#include <json/json.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>

#include "tools/sim/base/InputError.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/Simulation.h"

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

// A document the test expects to be strict JSON.
inline Json::Value ParseJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &root, &errors)) << errors;
    return root;
}

// Every field of every row a run kept, at full precision: two runs are the same when these are.
inline std::string RowsText(const TalvexSim::RunResult& result) {
    std::ostringstream text;
    text << std::setprecision(17);
    for (const TalvexSim::TimelineRow& r : result.rows) {
        text << r.time_s << ' ' << r.paused << ' ' << r.temperature_C << ' ' << r.current_mA << ' '
             << r.ofps << ' ' << r.efps.value_or(-999) << ' ' << r.gfps << ' ' << r.sfps << ' '
             << r.node << ' ' << r.exploringTicks << ' ' << (r.frames ? r.frames->p99_ms : -1.0)
             << ' ' << r.deviceTemperature_C << ' ' << r.power_W << ' ' << r.heldFps << ' '
             << r.jankFrames << ' ' << r.governorState << '\n';
    }
    return text.str();
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
