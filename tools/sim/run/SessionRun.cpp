#include "tools/sim/run/SessionRun.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "tools/sim/base/Text.h"
#include "tools/sim/model/GameModel.h"
#include "tools/sim/output/Chart.h"
#include "tools/sim/output/ReportText.h"
#include "tools/sim/output/TimelineCsv.h"

namespace TalvexSim {
namespace {

// Up to an hour of rows a chart takes whole; a longer run is thinned to about one row per
// horizontal pixel, so that its memory does not grow with its length.
constexpr double kChartRowsWhole = 3600.0;
constexpr double kChartRowsThinned = 1000.0;
constexpr double kFirstHour_s = 3600.0;

std::string chartSubtitle(const Scenario& scenario, const SessionRequest& request) {
    std::ostringstream text;
    if (request.replay != nullptr) {
        text << "replay of " << request.replayPath << ", settings of " << scenario.name;
        return text.str();
    }
    text << scenario.refreshRate_Hz << " Hz screen, game capped at " << scenario.game.targetFps
         << " FPS, seed " << scenario.seed;
    if (request.policy.kind != PolicyKind::Library) text << ", policy " << request.policy.name;
    if (!scenario.description.empty()) text << " \u2014 " << scenario.description;
    return text.str();
}

// Streams the run's rows into the timeline, the report and the chart's rows as they come.
RunResult streamRun(OutputSet& outputs, const SessionRequest& request, const std::string& prefix,
                    ReportBuilder& report, SessionRecord& record) {
    const Scenario& scenario = *request.scenario;
    const bool closedLoop = request.replay == nullptr;
    std::ostream& timeline = outputs.Stream(prefix + "timeline.csv");
    std::ostream& log = outputs.Stream(prefix + "library.log");
    WriteTimelineHeader(timeline, closedLoop);
    const double row_s = scenario.tickEveryFrame || !closedLoop ? 1.0 : scenario.tick_s;
    ChartRows chartRows(closedLoop ? scenario.duration_s
                                   : request.replay->back().time_s - request.replay->front().time_s,
                        row_s);

    RunOptions options;
    options.policy = request.policy;
    options.frameDetail = request.frameDetail;
    options.nodeDirectory = request.nodeDirectory;
    options.progress = [&](double done_s) {
        if (!record.memoryAtFirstHour && done_s >= kFirstHour_s) {
            record.memoryAtFirstHour = ReadResidentMemory();
        }
        if (request.progress) request.progress(done_s);
    };
    options.rowSink = [&](const TimelineRow& row) {
        WriteTimelineRow(timeline, row, closedLoop);
        report.Add(row);
        chartRows.Add(row);
        record.finalBounds.temperatureLower_C = row.lowerBound_C;
        record.finalBounds.temperatureUpper_C = row.upperBound_C;
        record.finalBounds.currentThreshold_mA = row.currentThreshold_mA;
    };
    options.logSink = [&log](const std::string& line) { log << line; };
    RunResult result = closedLoop ? RunClosedLoop(scenario, options)
                                  : RunReplay(scenario, *request.replay, options);
    if (record.memoryAtFirstHour) record.memoryAtEnd = ReadResidentMemory();
    record.chartRows = chartRows.Take();
    return result;
}

std::string chart(const SessionRequest& request, const SessionRecord& record, int refreshRate_Hz) {
    const Scenario& scenario = *request.scenario;
    ChartInput chart;
    chart.title = "talvex-sim: " + scenario.name;
    chart.subtitle = chartSubtitle(scenario, request);
    chart.rows = &record.chartRows;
    chart.refreshRate_Hz = refreshRate_Hz;
    chart.tick_s = scenario.tick_s;
    chart.temperatureLowerBound_C = record.finalBounds.temperatureLower_C;
    chart.temperatureUpperBound_C = record.finalBounds.temperatureUpper_C;
    chart.currentThreshold_mA = record.finalBounds.currentThreshold_mA;
    return RenderChart(chart);
}

ReportContext reportContext(const SessionRequest& request, const RunResult& result,
                            int refreshRate_Hz) {
    const Scenario& scenario = *request.scenario;
    ReportContext context;
    context.scenario = scenario.name;
    context.policy = request.policy.name;
    context.seed = scenario.seed;
    context.running_s = result.running_s;
    context.gameCapFps = request.replay == nullptr
                             ? GameModel::CapFps(scenario.game, scenario.refreshRate_Hz)
                             : refreshRate_Hz;
    context.refreshRate_Hz = refreshRate_Hz;
    context.display = scenario.display;
    if (request.policy.UsesManager()) {
        context.settings = scenario.settings;
        for (const ScenarioEvent& event : scenario.events) {
            context.settings.insert(context.settings.end(), event.settings.begin(),
                                    event.settings.end());
        }
    }
    context.efpsMaxWrites = result.efpsMaxWrites;
    context.faults = result.faults;
    context.hostTicks = result.hostTicks;
    context.exploringTicks = result.exploringTicks;
    return context;
}

}  // namespace

ChartRows::ChartRows(double duration_s, double row_s) : every(1) {
    const double rows = duration_s / std::max(row_s, 1e-3);
    if (rows > kChartRowsWhole) every = static_cast<size_t>(std::ceil(rows / kChartRowsThinned));
}

void ChartRows::Add(const TimelineRow& row) {
    // A dithering SFPS changes every few rows, so only pauses and resumes are always kept.
    const bool turn = previous && row.paused != previous->paused;
    if (seen++ % every == 0 || turn) rows.push_back(row);
    previous = row;
}

SessionRecord RunSession(OutputSet& outputs, const SessionRequest& request) {
    const Scenario& scenario = *request.scenario;
    const std::string prefix = request.folder.empty() ? "" : request.folder + "/";
    const int refreshRate_Hz = request.replay == nullptr ? scenario.refreshRate_Hz
                                                         : request.replay->front().refreshRate_Hz;
    SessionRecord record;
    record.policy = request.policy.name;
    ReportBuilder report(refreshRate_Hz);
    record.result = streamRun(outputs, request, prefix, report, record);
    outputs.Put(prefix + "chart.svg", chart(request, record, refreshRate_Hz));
    record.result.trace->WriteJson(
        outputs.Stream(prefix + "trace.json"),
        {scenario.pid, scenario.package + " (pid " + std::to_string(scenario.pid) + ")"});
    record.result.trace.reset();
    record.report = report.Finish(reportContext(request, record.result, refreshRate_Hz),
                                  record.result.frames, record.result.shown);
    outputs.Put(prefix + "report.json", ReportJson(record.report));
    outputs.Put(prefix + "report.md", ReportMarkdown(record.report));
    record.files = {"timeline.csv", "trace.json",  "chart.svg",
                    "library.log",  "report.json", "report.md"};
    return record;
}

std::string SessionSummaryLines(const SessionRecord& record) {
    std::string text;
    const std::vector<FaultOutcome>& faults = record.result.faults;
    if (!faults.empty()) {
        std::uint64_t escaped = 0;
        size_t restored = 0;
        double slowest_s = 0.0;
        for (const FaultOutcome& fault : faults) {
            escaped += fault.escapedExceptions;
            if (!fault.nodeRestored_s) continue;
            ++restored;
            slowest_s = std::max(slowest_s, *fault.nodeRestored_s - fault.at_s - fault.duration_s);
        }
        text +=
            LabelLine("fault events",
                      std::to_string(faults.size()) + ", " + std::to_string(escaped) +
                          " exception(s) escaped; efps_max back after " + std::to_string(restored) +
                          " of them, at most " + Fixed(slowest_s, 1) + " s after the end");
    }
    if (record.memoryAtFirstHour && record.memoryAtEnd) {
        const double mib = 1024.0 * 1024.0;
        const double growth = (static_cast<double>(record.memoryAtEnd->current_bytes) -
                               static_cast<double>(record.memoryAtFirstHour->current_bytes)) /
                              mib;
        text += LabelLine(
            "memory",
            "peak RSS " + Fixed(static_cast<double>(record.memoryAtEnd->peak_bytes) / mib, 1) +
                " MiB; RSS growth after the first hour " + SignedFixed(growth, 2) + " MiB");
    }
    return text;
}

}  // namespace TalvexSim
