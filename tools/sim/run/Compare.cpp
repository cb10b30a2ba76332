#include "tools/sim/run/Compare.h"

#include <algorithm>
#include <cstdio>

#include "tools/sim/output/Chart.h"
#include "tools/sim/report/Metrics.h"

namespace TalvexSim {
namespace {

// What compare.md shows of each run; compare.csv carries every metric.
const char* const kHeadline[] = {
    "display_fps",   "cadence_match", "display_interval_ms_p99", "latency_ms_p50",
    "fps_stability", "render_fps",    "peak_temperature_c",      "time_above_upper_bound_s",
    "energy_j"};

std::string orNa(const MetricValues& metrics, const char* key) {
    const std::string cell = MetricCell(metrics, key);
    return cell.empty() ? "n/a" : cell;
}

// compare.svg and display-intervals.svg, each policy in the same colour in both.
void writeCharts(OutputSet& outputs, const Scenario& scenario,
                 const std::vector<SessionRecord>& records) {
    const std::string setting = std::to_string(scenario.refreshRate_Hz) + " Hz screen, seed " +
                                std::to_string(scenario.seed);
    ComparisonChartInput chart;
    chart.title = "talvex-sim: " + scenario.name + ", policies compared";
    chart.subtitle = setting + "; displayed FPS (frames shown per second), device temperature";
    chart.refreshRate_Hz = scenario.refreshRate_Hz;
    // Every policy runs the same settings, so the first run's bounds are every run's.
    chart.temperatureUpperBound_C = records.front().finalBounds.temperatureUpper_C;
    for (const SessionRecord& record : records) {
        chart.series.push_back({record.policy, &record.chartRows});
    }
    outputs.Put("compare.svg", RenderComparisonChart(chart));

    IntervalHistogramInput histogram;
    histogram.title = "talvex-sim: " + scenario.name + ", displayed intervals";
    histogram.subtitle =
        setting + "; each policy's intervals between displayed frames, in refresh periods";
    histogram.refreshRate_Hz = scenario.refreshRate_Hz;
    for (const SessionRecord& record : records) {
        histogram.series.push_back({record.policy, record.report.displayIntervalHistogram});
    }
    outputs.Put("display-intervals.svg", RenderIntervalHistogram(histogram));
}

}  // namespace

std::string PolicyFolder(const Policy& policy) {
    std::string folder = policy.name;
    std::replace(folder.begin(), folder.end(), ':', '-');
    return folder;
}

void WriteComparison(OutputSet& outputs, const Scenario& scenario,
                     const std::vector<SessionRecord>& records) {
    std::ostream& csv = outputs.Stream("compare.csv");
    std::ostream& md = outputs.Stream("compare.md");
    const ReportMetrics header = CollectMetrics(records.front().report);
    csv << "policy";
    for (const ReportMetric& m : header) csv << ',' << m.key;
    csv << '\n';
    for (const SessionRecord& record : records) {
        csv << record.policy;
        const MetricValues metrics = MetricValuesOf(record.report);
        for (const ReportMetric& m : header) csv << ',' << MetricCell(metrics, m.key);
        csv << '\n';
    }

    md << "# " << scenario.name << ": policies compared\n\n"
       << "Same scenario, seed " << scenario.seed
       << " and game frames under each policy; the thermal governor is on in every policy but "
          "`none`. Every metric of each run is in `compare.csv` and in each folder's "
          "`report.json`.\n\n| policy |";
    for (const char* key : kHeadline) md << " `" << key << "` |";
    md << "\n|---|";
    for (size_t i = 0; i < sizeof kHeadline / sizeof kHeadline[0]; ++i) md << "---:|";
    md << '\n';
    for (const SessionRecord& record : records) {
        const MetricValues metrics = MetricValuesOf(record.report);
        md << "| " << record.policy << " |";
        for (const char* key : kHeadline) md << ' ' << orNa(metrics, key) << " |";
        md << '\n';
    }
    md << "\n![FPS and temperature of each policy](compare.svg)\n"
       << "\n![Displayed intervals of each policy](display-intervals.svg)\n";
    for (const SessionRecord& record : records) {
        if (record.report.diagnostics.empty()) continue;
        md << "\n## Findings under " << record.policy << "\n\n";
        for (const Finding& finding : record.report.diagnostics) md << "- " << finding.text << '\n';
    }

    writeCharts(outputs, scenario, records);
}

std::string FormatComparison(const Scenario& scenario, const std::vector<SessionRecord>& records,
                             const std::string& directory, double wall_s) {
    char line[256];
    std::snprintf(line, sizeof line, "talvex-sim: %s (seed %llu), %zu policies in %.2f s\n",
                  scenario.name.c_str(), static_cast<unsigned long long>(scenario.seed),
                  records.size(), wall_s);
    std::string text = line;
    // What the player sees first, then what the game rendered and what the device went through.
    const char* const columns[] = {"display_fps",   "cadence_match", "display_interval_ms_p99",
                                   "fps_stability", "render_fps",    "peak_temperature_c",
                                   "energy_j"};
    // Names longer than the column widen it, so that the figures stay under their headings.
    int width = 16;
    for (const SessionRecord& record : records) {
        width = std::max(width, static_cast<int>(record.policy.size()));
    }
    std::snprintf(line, sizeof line, "  %-*s %9s %8s %8s %10s %10s %7s %9s\n", width, "policy",
                  "shown FPS", "cadence", "p99 ms", "stability", "render FPS", "peak C",
                  "energy J");
    text += line;
    for (const SessionRecord& record : records) {
        const MetricValues metrics = MetricValuesOf(record.report);
        std::string cells[7];
        for (size_t i = 0; i < 7; ++i) cells[i] = orNa(metrics, columns[i]);
        std::snprintf(line, sizeof line, "  %-*s %9s %8s %8s %10s %10s %7s %9s\n", width,
                      record.policy.c_str(), cells[0].c_str(), cells[1].c_str(), cells[2].c_str(),
                      cells[3].c_str(), cells[4].c_str(), cells[5].c_str(), cells[6].c_str());
        text += line;
    }
    text +=
        "  outputs        " + directory +
        "/ (compare.md, compare.csv, compare.svg, display-intervals.svg, a folder per policy)\n";
    return text;
}

}  // namespace TalvexSim
