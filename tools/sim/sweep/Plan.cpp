#include "tools/sim/sweep/Plan.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>

#include "tools/sim/base/InputError.h"
#include "tools/sim/base/Text.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/input/StrictJson.h"

namespace TalvexSim {
namespace {

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    size_t start = 0;
    for (size_t at = text.find(separator); at != std::string::npos;
         at = text.find(separator, start)) {
        pieces.push_back(text.substr(start, at - start));
        start = at + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

// One "category,key=v1|v2|..." of an axis; its values are checked with the axis's runs.
SweepSetting parseSetting(const std::string& text) {
    const size_t equals = text.find('=');
    const std::vector<std::string> names = split(text.substr(0, equals), ',');
    if (equals == std::string::npos || names.size() != 2 || names[0].empty() || names[1].empty()) {
        throw std::invalid_argument("'" + text + "' is not CATEGORY,KEY=VALUE|VALUE|...");
    }
    const std::string values = text.substr(equals + 1);
    if (values.empty()) throw std::invalid_argument("'" + text + "' lists no values");
    return SweepSetting{names[0], names[1], split(values, '|')};
}

// The values run `i` of the axis gives its settings, as the user reads them.
std::string runValues(const SweepAxis& axis, size_t i) {
    std::string text;
    for (const SweepSetting& setting : axis.settings) {
        text += (text.empty() ? "" : ", ") + setting.values[i];
    }
    return text;
}

void refuseUnevenLengths(const SweepAxis& axis, const std::string& text) {
    const SweepSetting& first = axis.settings.front();
    for (const SweepSetting& other : axis.settings) {
        if (other.values.size() != first.values.size()) {
            throw std::invalid_argument("'" + text + "': " + first.Column() + " lists " +
                                        std::to_string(first.values.size()) + " values and " +
                                        other.Column() + " " + std::to_string(other.values.size()) +
                                        "; settings that vary together need as "
                                        "many values each");
        }
    }
}

}  // namespace

std::string SweepSetting::Text() const {
    std::string text = category + "," + key + "=";
    for (size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : "|") + values[i];
    return text;
}

std::string SweepAxis::Text() const {
    std::string text;
    for (const SweepSetting& setting : settings) text += (text.empty() ? "" : ";") + setting.Text();
    return text;
}

SweepAxis ParseAxis(const std::string& text) {
    SweepAxis axis;
    for (const std::string& part : split(text, ';')) axis.settings.push_back(parseSetting(part));
    refuseUnevenLengths(axis, text);
    RefuseRepeatedSettings({axis});
    // A value may repeat in a group, where a setting can keep its value while another changes;
    // a run may not. Values have no commas, so equal texts are equal runs.
    std::set<std::string> runs;
    for (size_t i = 0; i < axis.Size(); ++i) {
        for (const SweepSetting& setting : axis.settings) {
            const std::string& value = setting.values[i];
            if (value.empty() || value.find(',') != std::string::npos) {
                throw std::invalid_argument("'" + setting.Text() + "': '" + value +
                                            "' is not a value (empty, or holding a comma)");
            }
        }
        if (!runs.insert(runValues(axis, i)).second) {
            throw std::invalid_argument("'" + text + "' lists '" + runValues(axis, i) + "' twice");
        }
    }
    return axis;
}

std::vector<SweepSetting> AxisSettings(const std::vector<SweepAxis>& axes) {
    std::vector<SweepSetting> settings;
    for (const SweepAxis& axis : axes) {
        settings.insert(settings.end(), axis.settings.begin(), axis.settings.end());
    }
    return settings;
}

void RefuseRepeatedSettings(const std::vector<SweepAxis>& axes) {
    const std::vector<SweepSetting> settings = AxisSettings(axes);
    for (size_t i = 0; i < settings.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (settings[i].Column() == settings[j].Column()) {
                throw std::invalid_argument(settings[i].Column() + " is varied twice");
            }
        }
    }
}

std::vector<std::vector<std::string>> ExpandGrid(const std::vector<SweepAxis>& axes) {
    std::vector<std::vector<std::string>> grid;
    if (axes.empty()) return grid;
    grid.emplace_back();
    for (const SweepAxis& axis : axes) {
        std::vector<std::vector<std::string>> wider;
        for (const auto& combination : grid) {
            for (size_t i = 0; i < axis.Size(); ++i) {
                wider.push_back(combination);
                for (const SweepSetting& setting : axis.settings) {
                    wider.back().push_back(setting.category + "," + setting.key + "," +
                                           setting.values[i]);
                }
            }
        }
        grid = std::move(wider);
    }
    return grid;
}

size_t SweepDefinition::Runs() const {
    if (axes.empty()) return 0;
    size_t runs = 1;
    for (const SweepAxis& axis : axes) runs *= axis.Size();
    return runs;
}

std::string SweepJson(const SweepDefinition& definition) {
    Json::Value root(Json::objectValue);
    root["scenario"] = definition.scenario;
    root["policy"] = definition.policy;
    root["vary"] = Json::Value(Json::arrayValue);
    for (const SweepAxis& axis : definition.axes) root["vary"].append(axis.Text());
    root["objective"] = definition.objective;
    root["runs"] = Json::UInt64(definition.Runs());
    return PrettyJson(root);
}

SweepDefinition ReadSweepJson(const std::string& path) {
    const JsonDocument document(ReadTextFile(path), path);
    ObjectReader top(document, document.Root(), "",
                     {"scenario", "policy", "vary", "objective", "runs"});
    SweepDefinition definition;
    definition.scenario = top.String("scenario");
    definition.policy = top.String("policy");
    definition.objective = top.String("objective");
    const Json::Value& vary = ExpectArray(document, top.Member("vary"), "vary");
    for (Json::ArrayIndex i = 0; i < vary.size(); ++i) {
        const std::string where = "vary[" + std::to_string(i) + "]";
        try {
            definition.axes.push_back(ParseAxis(ExpectString(document, vary[i], where)));
        } catch (const std::invalid_argument& error) {
            document.Fail(vary[i], where, error.what());
        }
    }
    try {
        RefuseRepeatedSettings(definition.axes);
    } catch (const std::invalid_argument& error) {
        document.Fail(vary, "vary", error.what());
    }
    if (static_cast<double>(definition.Runs()) != top.Number("runs", 1, 1e9)) {
        document.Fail(top.Member("runs"), "runs", "does not match the values listed under vary");
    }
    return definition;
}

std::string RunFolder(const std::string& sweepDirectory, size_t run, size_t runs) {
    const size_t width = std::max<size_t>(3, std::to_string(runs).size());
    std::string name = std::to_string(run);
    name.insert(0, width - std::min(width, name.size()), '0');
    return sweepDirectory + "/runs/" + name;
}

std::vector<std::vector<std::string>> PlanCommands(const SweepPlan& plan) {
    const auto grid = ExpandGrid(plan.definition.axes);
    std::vector<std::vector<std::string>> commands;
    for (size_t i = 0; i < grid.size(); ++i) {
        std::vector<std::string> command{plan.executable, "sweep-run", "--run",
                                         std::to_string(i + 1)};
        if (!plan.scenarioPath.empty()) command.push_back(plan.scenarioPath);
        command.insert(command.end(), {"--policy", plan.definition.policy});
        for (const std::string& setting : grid[i])
            command.insert(command.end(), {"--set", setting});
        command.insert(command.end(), {"--timeout", ShortNumber(plan.timeout_s), "--out",
                                       RunFolder(plan.directory, i + 1, grid.size())});
        commands.push_back(std::move(command));
    }
    return commands;
}

std::string ShellLine(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command) {
        const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) ||
                   std::strchr("_-./:,=+@%", c) != nullptr;
        });
        std::string quoted = "'";
        for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += (line.empty() ? "" : " ") + (plain ? word : quoted + "'");
    }
    return line;
}

void RemoveEarlierRuns(const std::string& sweepDirectory) {
    const std::filesystem::path runs = std::filesystem::path(sweepDirectory) / "runs";
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(runs, error)) {
        if (std::filesystem::exists(entry.path() / "run.json")) {
            std::filesystem::remove_all(entry.path(), error);
        }
    }
}

}  // namespace TalvexSim
