#include "tools/sim/sweep/Merge.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "tools/sim/base/InputError.h"
#include "tools/sim/base/Text.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/input/StrictJson.h"
#include "tools/sim/output/Chart.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/report/Metrics.h"

namespace TalvexSim {
namespace {

constexpr size_t kBestShown = 5;
constexpr const char* kTemperature = "peak_temperature_c";
constexpr const char* kFps = "display_fps";

bool exists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

// Reads one run folder into the row; the row keeps status "missing" without a run.json.
void readRun(const std::string& folder, const SweepDefinition& definition,
             const std::vector<std::string>& expected, SweepRow& row) {
    const std::string runPath = folder + "/run.json";
    const JsonDocument run(ReadTextFile(runPath), runPath);
    ObjectReader fields(run, run.Root(), "", {"run", "policy", "settings", "status", "message"});
    std::vector<std::string> settings;
    const Json::Value& list = ExpectArray(run, fields.Member("settings"), "settings");
    for (const Json::Value& setting : list)
        settings.push_back(ExpectString(run, setting, "settings"));
    if (fields.Unsigned64("run", 0) != row.run || settings != expected ||
        fields.String("policy") != definition.policy) {
        throw InputError(runPath + ": not run " + std::to_string(row.run) +
                         " of this sweep (its number, policy or settings differ from sweep.json)");
    }
    row.status = fields.String("status");
    row.message = fields.String("message");
    if (row.status == "refused" || row.status == "failed") return;
    if (row.status != "ok") {
        throw InputError(runPath + ": unknown status '" + row.status + "'");
    }

    const std::string reportPath = folder + "/report.json";
    const JsonDocument report(ReadTextFile(reportPath), reportPath);
    if (report.Root()["scenario"].asString() != definition.scenario) {
        throw InputError(reportPath + ": a run of scenario '" +
                         report.Root()["scenario"].asString() + "', not '" + definition.scenario +
                         "'");
    }
    for (const std::string& name : ReportMetricNames()) {
        const Json::Value& value = report.Root()[name];
        row.metrics[name] =
            value.isNumeric() ? std::optional<double>(value.asDouble()) : std::nullopt;
    }
    row.config = ReadTextFile(folder + "/config.json");
}

std::string settingsText(const SweepResult& result, const SweepRow& row) {
    const std::vector<SweepSetting> settings = AxisSettings(result.definition.axes);
    std::string text;
    for (size_t i = 0; i < row.values.size(); ++i) {
        text += (i == 0 ? "" : ", ") + settings[i].key + " " + row.values[i];
    }
    return text;
}

// The metrics the tables show: the objective's first, then what every tuner looks at.
std::vector<std::string> shownMetrics(const Objective& objective) {
    std::vector<std::string> names{objective.metric};
    for (const Objective::Constraint& c : objective.constraints) {
        for (const Objective::Operand* side : {&c.left, &c.right}) {
            if (!side->metric.empty()) names.push_back(side->metric);
        }
    }
    for (const char* name : {kFps, kTemperature, "fps_stability", "sfps_reversals_per_10min"}) {
        names.push_back(name);
    }
    std::vector<std::string> unique;
    for (const std::string& name : names) {
        if (std::find(unique.begin(), unique.end(), name) == unique.end()) unique.push_back(name);
    }
    return unique;
}

std::string table(const SweepResult& result, const std::vector<size_t>& rows,
                  const std::string& first, const std::function<std::string(size_t)>& firstCell) {
    const std::vector<std::string> metrics = shownMetrics(result.objective);
    const std::vector<SweepSetting> settings = AxisSettings(result.definition.axes);
    std::string md = "| " + first + " | run |";
    for (const SweepSetting& setting : settings) md += " " + setting.key + " |";
    for (const std::string& name : metrics) md += " `" + name + "` |";
    md += "\n|---|---:|";
    for (size_t i = 0; i < settings.size(); ++i) md += "---|";
    for (size_t i = 0; i < metrics.size(); ++i) md += "---:|";
    md += '\n';
    for (size_t k = 0; k < rows.size(); ++k) {
        const SweepRow& row = result.rows[rows[k]];
        md += "| " + firstCell(k) + " | " + std::to_string(row.run) + " |";
        for (const std::string& value : row.values) md += " " + MarkdownCell(value) + " |";
        for (const std::string& name : metrics) {
            md += " " + MetricCell(row.metrics, name) + " |";
        }
        md += '\n';
    }
    return md;
}

std::string sweepCsv(const SweepResult& result) {
    const std::vector<std::string> metrics = ReportMetricNames();
    std::string csv = "run";
    for (const SweepSetting& setting : AxisSettings(result.definition.axes)) {
        csv += "," + CsvCell(setting.Column());
    }
    csv += ",status";
    for (const std::string& name : metrics) csv += "," + name;
    csv += '\n';
    for (const SweepRow& row : result.rows) {
        csv += std::to_string(row.run);
        for (const std::string& value : row.values) csv += "," + CsvCell(value);
        csv += "," + row.status;
        // As report.json has them, so that a row compares exactly with a rerun's report.
        for (const std::string& name : metrics) {
            const std::optional<double> value = MetricValue(row.metrics, name);
            csv += "," + (value ? Fixed(*value, 3) : std::string());
        }
        csv += '\n';
    }
    return csv;
}

std::string varyText(const SweepDefinition& definition) {
    std::string text;
    for (const SweepAxis& axis : definition.axes) {
        text += (text.empty() ? "" : " ") + std::string("--vary '") + axis.Text() + "'";
    }
    return text;
}

std::string verdict(const SweepResult& result) {
    if (!result.ranked.empty()) {
        const SweepRow& best = result.rows[result.ranked.front()];
        return "Recommended: run " + std::to_string(best.run) + " (" + settingsText(result, best) +
               "); its online configuration is `recommended.json`:\n\n```json\n" + best.config +
               "```\n";
    }
    if (result.closest) {
        const SweepRow& closest = result.rows[*result.closest];
        return "**No run meets the constraints**, so nothing is recommended. The closest is run " +
               std::to_string(closest.run) + " (" + settingsText(result, closest) +
               "): " + result.objective.Misses(closest.metrics) + ".\n";
    }
    return "**No run finished**, so nothing is recommended.\n";
}

std::string sweepMarkdown(const SweepResult& result) {
    const SweepDefinition& definition = result.definition;
    std::string md = "# " + definition.scenario + ": settings sweep\n\n";
    md += "Policy `" + definition.policy + "`, " + std::to_string(result.rows.size()) +
          " runs: " + varyText(definition) + ". Each run applies the scenario's settings, then " +
          "its own records. Every metric of every run is in `sweep.csv`, each run's files in " +
          "`runs/`.\n\n";
    md += "Objective: `" + result.objective.Text() + "`. " + std::to_string(result.ranked.size()) +
          " of " + std::to_string(result.Count("ok")) + " finished runs meet it.\n\n";
    md += "## Best runs\n\n";
    if (!result.ranked.empty()) {
        const std::vector<size_t> best(
            result.ranked.begin(),
            result.ranked.begin() + static_cast<long>(std::min(kBestShown, result.ranked.size())));
        md += table(result, best, "rank", [](size_t k) { return std::to_string(k + 1); }) + "\n";
    }
    md += verdict(result);
    md += "\n## Pareto front: peak temperature against displayed FPS\n\n";
    md += "The runs that no other run beats on both counts, cooler and faster:\n\n";
    md += table(result, result.front, "meets the objective", [&](size_t k) {
        const size_t row = result.front[k];
        return std::find(result.ranked.begin(), result.ranked.end(), row) != result.ranked.end()
                   ? std::string("yes")
                   : std::string("no");
    });
    md += "\n![Peak temperature against displayed FPS, one point per run](pareto.svg)\n";
    std::string apart;
    for (const SweepRow& row : result.rows) {
        if (row.status == "ok") continue;
        apart += "| " + std::to_string(row.run) + " | " + MarkdownCell(settingsText(result, row)) +
                 " | " + row.status + " | " + MarkdownCell(row.message) + " |\n";
    }
    if (!apart.empty()) {
        md +=
            "\n## Runs without results\n\n| run | settings | status | message "
            "|\n|---:|---|---|---|\n" +
            apart;
    }
    return md;
}

std::optional<double> boundOn(const Objective& objective, const std::string& metric,
                              const char* comparison) {
    for (const Objective::Constraint& c : objective.constraints) {
        if (c.left.metric == metric && c.right.metric.empty() &&
            c.comparison.rfind(comparison, 0) == 0) {
            return c.right.number;
        }
    }
    return std::nullopt;
}

std::string paretoChart(const SweepResult& result) {
    ParetoChartInput chart;
    chart.title = "talvex-sim: " + result.definition.scenario + ", settings sweep";
    chart.subtitle = std::to_string(result.rows.size()) + " runs under " +
                     result.definition.policy + "; objective: " + result.objective.Text();
    chart.temperatureLimit_C = boundOn(result.objective, kTemperature, "<");
    chart.fpsFloor = boundOn(result.objective, kFps, ">");
    const std::set<size_t> front(result.front.begin(), result.front.end());
    const std::optional<size_t> best =
        result.ranked.empty() ? std::nullopt : std::optional<size_t>(result.ranked.front());
    // Runs with the same figures share one point and one label.
    std::map<std::pair<double, double>, std::vector<size_t>> points;
    for (size_t i = 0; i < result.rows.size(); ++i) {
        const SweepRow& row = result.rows[i];
        const std::optional<double> peak = MetricValue(row.metrics, kTemperature);
        const std::optional<double> fps = MetricValue(row.metrics, kFps);
        if (row.status != "ok" || !peak || !fps) {
            chart.apart.push_back("run " + std::to_string(row.run) + ": " +
                                  (row.status == "ok" ? "no temperature" : row.status));
            continue;
        }
        points[{*peak, *fps}].push_back(i);
    }
    for (const auto& [figures, rows] : points) {
        ParetoChartPoint point;
        point.peakTemperature_C = figures.first;
        point.meanFps = figures.second;
        point.onFront = front.count(rows.front()) > 0;
        point.best = best && std::find(rows.begin(), rows.end(), *best) != rows.end();
        point.label = rows.size() == 1 ? "run " : "runs ";
        for (size_t k = 0; k < rows.size(); ++k) {
            point.label += (k == 0 ? "" : ", ") + std::to_string(result.rows[rows[k]].run);
        }
        if (rows.size() == 1)
            point.label += " (" + settingsText(result, result.rows[rows[0]]) + ")";
        if (point.best) point.label += "; best: run " + std::to_string(result.rows[*best].run);
        chart.points.push_back(point);
    }
    return RenderParetoChart(chart);
}

// The definition every folder agrees on, and each run's row from the first folder that has it.
SweepResult readSweep(const std::vector<std::string>& directories) {
    SweepResult result;
    for (size_t i = 0; i < directories.size(); ++i) {
        const std::string path = directories[i] + "/sweep.json";
        if (!exists(path))
            throw InputError(directories[i] + ": no sweep.json (not a sweep folder)");
        const SweepDefinition definition = ReadSweepJson(path);
        if (i == 0) {
            result.definition = definition;
        } else if (SweepJson(definition) != SweepJson(result.definition)) {
            throw InputError(path + ": another sweep than " + directories[0] + "/sweep.json");
        }
    }
    try {
        result.objective = ParseObjective(result.definition.objective, ReportMetricNames());
    } catch (const std::invalid_argument& error) {
        throw InputError(directories[0] + "/sweep.json: objective: " + error.what());
    }

    const auto grid = ExpandGrid(result.definition.axes);
    for (size_t i = 0; i < grid.size(); ++i) {
        SweepRow row;
        row.run = i + 1;
        row.status = "missing";
        row.message = "no run.json in any of the folders";
        for (const std::string& setting : grid[i])
            row.values.push_back(setting.substr(setting.rfind(',') + 1));
        for (const std::string& directory : directories) {
            const std::string folder = RunFolder(directory, row.run, grid.size());
            if (!exists(folder + "/run.json")) continue;
            readRun(folder, result.definition, grid[i], row);
            break;
        }
        result.rows.push_back(std::move(row));
    }
    return result;
}

// The runs meeting the objective, best first; the nearest miss when none does; the front.
void rank(SweepResult& result) {
    std::vector<std::pair<double, double>> points;
    std::vector<size_t> pointRows;
    for (size_t i = 0; i < result.rows.size(); ++i) {
        const SweepRow& row = result.rows[i];
        if (row.status != "ok") continue;
        if (result.objective.Meets(row.metrics)) result.ranked.push_back(i);
        if (!result.closest ||
            result.objective.Shortfall(row.metrics) <
                result.objective.Shortfall(result.rows[*result.closest].metrics)) {
            result.closest = i;
        }
        const std::optional<double> peak = MetricValue(row.metrics, kTemperature);
        const std::optional<double> fps = MetricValue(row.metrics, kFps);
        if (peak && fps) {
            points.emplace_back(*peak, *fps);
            pointRows.push_back(i);
        }
    }
    if (!result.ranked.empty()) result.closest.reset();
    std::stable_sort(result.ranked.begin(), result.ranked.end(), [&](size_t a, size_t b) {
        return result.objective.Better(result.rows[a].metrics, result.rows[b].metrics);
    });
    for (const size_t index : ParetoFront(points)) result.front.push_back(pointRows[index]);
}

void writeSweep(const SweepResult& result, const std::string& outputDirectory) {
    OutputSet outputs(outputDirectory);
    outputs.Put("sweep.csv", sweepCsv(result));
    outputs.Put("sweep.md", sweepMarkdown(result));
    outputs.Put("pareto.svg", paretoChart(result));
    if (!result.ranked.empty())
        outputs.Put("recommended.json", result.rows[result.ranked.front()].config);
    outputs.Commit();
    if (result.ranked.empty()) {
        std::error_code ignored;
        std::filesystem::remove(outputDirectory + "/recommended.json", ignored);
    }
}

}  // namespace

size_t SweepResult::Count(const std::string& status) const {
    return static_cast<size_t>(std::count_if(
        rows.begin(), rows.end(), [&](const SweepRow& row) { return row.status == status; }));
}

std::vector<size_t> ParetoFront(const std::vector<std::pair<double, double>>& points) {
    std::vector<size_t> front;
    for (size_t i = 0; i < points.size(); ++i) {
        const double low = points[i].first, high = points[i].second;
        const bool beaten = std::any_of(points.begin(), points.end(), [&](const auto& other) {
            return other.first <= low && other.second >= high &&
                   (other.first < low || other.second > high);
        });
        if (!beaten) front.push_back(i);
    }
    std::stable_sort(front.begin(), front.end(),
                     [&](size_t a, size_t b) { return points[a].first < points[b].first; });
    return front;
}

SweepResult MergeSweep(const std::vector<std::string>& directories,
                       const std::string& outputDirectory) {
    SweepResult result = readSweep(directories);
    rank(result);
    writeSweep(result, outputDirectory);
    return result;
}

std::string FormatSweepResult(const SweepResult& result, const std::string& directory) {
    std::string text;
    const auto line = [&text](const std::string& label, const std::string& value) {
        text += LabelLine(label, value);
    };
    line("runs",
         std::to_string(result.rows.size()) + ": " + std::to_string(result.Count("ok")) + " ok, " +
             std::to_string(result.Count("refused")) + " refused, " +
             std::to_string(result.Count("failed")) + " failed" +
             (result.Count("missing") ? ", " + std::to_string(result.Count("missing")) + " missing"
                                      : ""));
    line("objective", result.objective.Text());
    if (!result.ranked.empty()) {
        const SweepRow& best = result.rows[result.ranked.front()];
        line("best", "run " + std::to_string(best.run) + " (" + settingsText(result, best) + "); " +
                         result.objective.metric + " " +
                         MetricCell(best.metrics, result.objective.metric));
    } else if (result.closest) {
        const SweepRow& closest = result.rows[*result.closest];
        line("best", "no run meets the constraints; closest: run " + std::to_string(closest.run) +
                         " (" + settingsText(result, closest) +
                         "): " + result.objective.Misses(closest.metrics));
    } else {
        line("best", "no run finished");
    }
    std::string front;
    for (const size_t i : result.front)
        front += (front.empty() ? "" : ", ") + std::to_string(result.rows[i].run);
    line("pareto front", front.empty() ? "none" : "runs " + front);
    for (const SweepRow& row : result.rows) {
        if (row.status == "ok") continue;
        const std::string message = MarkdownCell(row.message);
        line("run " + std::to_string(row.run) + " " + row.status,
             message.size() > 160 ? message.substr(0, 157) + "..." : message);
    }
    line("outputs", directory + "/ (sweep.md, sweep.csv, pareto.svg" +
                        std::string(result.ranked.empty() ? "" : ", recommended.json") + ")");
    return text;
}

}  // namespace TalvexSim
