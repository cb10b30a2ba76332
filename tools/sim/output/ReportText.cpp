#include "tools/sim/output/ReportText.h"

#include <json/json.h>

#include "tools/sim/base/Text.h"
#include "tools/sim/report/Metrics.h"

namespace TalvexSim {
namespace {

// Every number of report.json goes out with at most this many decimals, so that reruns give
// the same bytes whatever the last bits of a sum.
constexpr int kJsonDecimals = 3;

Json::Value orNull(const std::optional<double>& value) {
    return value ? Json::Value(*value) : Json::Value(Json::nullValue);
}

Json::Value faultJson(const FaultOutcome& fault) {
    Json::Value out(Json::objectValue);
    out["type"] = fault.type;
    out["detail"] = fault.detail;
    out["where"] = fault.where;
    out["at_s"] = fault.at_s;
    out["duration_s"] = fault.duration_s;
    out["ticks"] = Json::UInt64(fault.ticks);
    out["frames"] = Json::UInt64(fault.frames);
    out["escaped_exceptions"] = Json::UInt64(fault.escapedExceptions);
    out["errors"] = Json::UInt64(fault.errors);
    out["warnings"] = Json::UInt64(fault.warnings);
    out["node_restored_s"] = orNull(fault.nodeRestored_s);
    return out;
}

std::string fixed(double value, const char* unit, int decimals = 1) {
    return Fixed(value, decimals) + unit;
}

std::string orNever(const std::optional<double>& value, const char* unit, int decimals = 0) {
    return value ? fixed(*value, unit, decimals) : "never";
}

std::string percent(const std::optional<double>& share) {
    return share ? fixed(*share * 100.0, " %") : "no steady time";
}

std::string floors(const Report& report) {
    std::string text;
    for (const SfpsFloor& floor : report.effectiveSfpsFloor) {
        text += (text.empty() ? "" : ", ") + std::to_string(floor.gfps) + ": " +
                (floor.floor ? std::to_string(*floor.floor) : "none");
    }
    return text.empty() ? "no GFPS held" : text;
}

std::string periodCounts(const Report& report) {
    std::string text;
    for (const std::uint64_t count : report.displayIntervalHistogram) {
        text += (text.empty() ? "" : ", ") + GroupThousands(count);
    }
    return text;
}

std::string faultTable(const std::vector<FaultOutcome>& faults) {
    std::string md =
        "\n## Fault events\n\n"
        "| Event | At, s | For, s | Ticks | Frames | Escaped exceptions | Errors | Warnings "
        "| Node restored at, s |\n|---|---:|---:|---:|---:|---:|---:|---:|---:|\n";
    for (const FaultOutcome& fault : faults) {
        md += "| " + MarkdownCell(fault.type + " " + fault.detail) + " | " + fixed(fault.at_s, "") +
              " | " + fixed(fault.duration_s, "") + " | " + std::to_string(fault.ticks) + " | " +
              std::to_string(fault.frames) + " | " + std::to_string(fault.escapedExceptions) +
              " | " + std::to_string(fault.errors) + " | " + std::to_string(fault.warnings) +
              " | " + orNever(fault.nodeRestored_s, "", 1) + " |\n";
    }
    return md;
}

// What the player saw, as rows of the report's table.
template <typename Row>
void shownRows(const Report& report, const Row& row) {
    row("Displayed FPS", report.displayFps ? fixed(*report.displayFps, "") : "no frames shown");
    row("Cadence match (steady intervals within 2 ms of the held period)",
        percent(report.cadenceMatch));
    row("Displayed interval p50 / p99", report.displayIntervalP50_ms
                                            ? fixed(*report.displayIntervalP50_ms, "", 2) + " / " +
                                                  fixed(*report.displayIntervalP99_ms, " ms", 2)
                                            : "no intervals");
    row("Displayed intervals of 1, 2, 3, 4, 5, 6+ refresh periods", periodCounts(report));
    row("Slow frames (over 50 / 34 ms)", report.slowFrames50Share
                                             ? fixed(*report.slowFrames50Share * 100.0, " % / ") +
                                                   fixed(*report.slowFrames34Share * 100.0, " %")
                                             : "no intervals");
    row("Slow session (over 25 % slow after the first minute)", report.slowSession ? "yes" : "no");
    row("Jank / big jank per hour",
        report.jankPerHour ? fixed(*report.jankPerHour, " / ") + fixed(*report.bigJankPerHour, "")
                           : "no frames shown");
    row("Latency, start of work to glass, p50 / p99",
        report.latencyP50_ms
            ? fixed(*report.latencyP50_ms, " / ") + fixed(*report.latencyP99_ms, " ms")
            : "no frames shown");
}

}  // namespace

std::string ReportJson(const Report& report) {
    Json::Value root(Json::objectValue);
    root["scenario"] = report.scenario;
    root["policy"] = report.policy;
    root["seed"] = Json::UInt64(report.seed);
    root["simulated_s"] = report.simulated_s;
    root["running_s"] = report.running_s;
    root["steady_s"] = report.steady_s;
    root["frames"] = Json::UInt64(report.frames);
    root["game_cap_fps"] = report.gameCapFps;
    root["refresh_rate_hz"] = report.refreshRate_Hz;

    for (const ReportMetric& metric : CollectMetrics(report)) {
        root[metric.key] = orNull(metric.value);
    }
    Json::Value histogram(Json::arrayValue);
    for (const std::uint64_t count : report.displayIntervalHistogram) {
        histogram.append(Json::UInt64(count));
    }
    root["display_interval_histogram"] = histogram;
    root["slow_session"] = report.slowSession;

    Json::Value floorsJson(Json::objectValue);
    for (const SfpsFloor& floor : report.effectiveSfpsFloor) {
        floorsJson[std::to_string(floor.gfps)] =
            floor.floor ? Json::Value(*floor.floor) : Json::Value(Json::nullValue);
    }
    root["effective_sfps_floor"] = floorsJson;

    Json::Value diagnostics(Json::arrayValue);
    for (const Finding& finding : report.diagnostics) {
        Json::Value item(Json::objectValue);
        item["finding"] = finding.kind;
        item["text"] = finding.text;
        Json::Value evidence(Json::objectValue);
        for (const auto& [name, value] : finding.evidence) evidence[name] = value;
        item["evidence"] = evidence;
        diagnostics.append(item);
    }
    root["diagnostics"] = diagnostics;

    Json::Value faults(Json::arrayValue);
    for (const FaultOutcome& fault : report.faults) faults.append(faultJson(fault));
    root["faults"] = faults;

    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    writer["precision"] = kJsonDecimals;
    writer["precisionType"] = "decimal";
    writer["emitUTF8"] = true;
    return Json::writeString(writer, root) + "\n";
}

std::string ReportMarkdown(const Report& report) {
    std::string md = "# Session report: " + report.scenario + "\n\n";
    md += "Policy `" + report.policy + "`, seed " + std::to_string(report.seed) + ", " +
          fixed(report.simulated_s, " s simulated", 0) + " (" +
          fixed(report.running_s, " s running", 0) + "), " + GroupThousands(report.frames) +
          " frames; the game caps itself at " + std::to_string(report.gameCapFps) + " FPS on a " +
          std::to_string(report.refreshRate_Hz) + " Hz screen.\n\n";
    md += "| Metric | Value |\n|---|---:|\n";
    const auto row = [&md](const std::string& metric, const std::string& value) {
        md += "| " + metric + " | " + value + " |\n";
    };
    shownRows(report, row);
    row("FPS stability (steady time within 1 FPS of the held rate)",
        percent(report.fpsStability) + " of " + fixed(report.steady_s, " s", 0));
    row("Rendered FPS", fixed(report.meanFps, ""));
    row("Rendered frame time p50 / p99",
        report.frameP50_ms
            ? fixed(*report.frameP50_ms, "", 2) + " / " + fixed(*report.frameP99_ms, " ms", 2)
            : "no frames");
    row("Rendered jank per minute", fixed(report.jankPerMin, "", 2));
    row("Peak temperature",
        report.peakTemperature_C ? fixed(*report.peakTemperature_C, " \u00b0C") : "no rows");
    row("Time above the upper bound", fixed(report.timeAboveUpperBound_s, " s", 0));
    row("Energy", fixed(report.energy_J, " J", 0));
    row("Mean power", fixed(report.meanPower_W, " W", 2));
    row("Time to the first SFPS decrease", orNever(report.timeToFirstDecrease_s, " s"));
    row("Time to recover", orNever(report.timeToRecover_s, " s"));
    row("SFPS changes per 10 min", fixed(report.sfpsChangesPer10Min, ""));
    row("SFPS reversals per 10 min", fixed(report.sfpsReversalsPer10Min, ""));
    row("GFPS changes per 10 min", fixed(report.gfpsChangesPer10Min, ""));

    md += "\n## Effective SFPS floor\n\n";
    if (report.effectiveSfpsFloor.empty()) {
        md += "No GFPS was held.\n";
    } else {
        md += "| GFPS held | Lowest SFPS allowed | Set by |\n|---:|---:|---|\n";
        for (const SfpsFloor& floor : report.effectiveSfpsFloor) {
            md += "| " + std::to_string(floor.gfps) + " | " +
                  (floor.floor ? std::to_string(*floor.floor) : "none") + " | " +
                  (floor.record.empty() ? "" : "`" + MarkdownCell(floor.record) + "`") + " |\n";
        }
    }

    md += "\n## Findings\n\n";
    if (report.diagnostics.empty()) md += "None.\n";
    for (const Finding& finding : report.diagnostics) md += "- " + finding.text + "\n";

    if (!report.faults.empty()) md += faultTable(report.faults);
    return md;
}

std::string ReportSummaryLines(const Report& report) {
    std::string text;
    text += LabelLine("FPS stability", percent(report.fpsStability) + " of " +
                                           fixed(report.steady_s, " steady s", 0));
    text += LabelLine("cadence match", percent(report.cadenceMatch));
    text += LabelLine("rendered jank", fixed(report.jankPerMin, " per min", 2));
    text += LabelLine("peak temperature",
                      (report.peakTemperature_C ? fixed(*report.peakTemperature_C, " \u00b0C")
                                                : std::string("none")) +
                          ", " + fixed(report.timeAboveUpperBound_s, " s", 0) +
                          " above the upper bound");
    text += LabelLine(
        "energy", fixed(report.energy_J, " J", 0) + ", mean " + fixed(report.meanPower_W, " W", 2));
    text += LabelLine("time to recover", orNever(report.timeToRecover_s, " s"));
    text += LabelLine("SFPS changes / reversals", fixed(report.sfpsChangesPer10Min, "") + " / " +
                                                      fixed(report.sfpsReversalsPer10Min, "") +
                                                      " per 10 min");
    text += LabelLine("GFPS changes", fixed(report.gfpsChangesPer10Min, " per 10 min"));
    text += LabelLine("effective SFPS floor", floors(report));
    for (const Finding& finding : report.diagnostics) text += LabelLine("finding", finding.brief);
    return text;
}

}  // namespace TalvexSim
