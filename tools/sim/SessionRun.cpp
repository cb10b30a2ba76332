#include "tools/sim/SessionRun.h"

#include <cmath>
#include <sstream>

#include "tools/sim/Chart.h"
#include "tools/sim/GameModel.h"

namespace TalvexSim {
namespace {

// About one row per horizontal pixel of a chart, with room to spare.
constexpr double kChartRowsWanted = 3600.0;

// The decider bounds the chart draws: the library's defaults, then the scenario's settings in
// the order they are applied.
void applySettingsToChart(ChartInput& chart, const Scenario& scenario) {
    DeciderBounds bounds;
    ApplyToBounds(bounds, scenario.settings);
    for (const ScenarioEvent& event : scenario.events) ApplyToBounds(bounds, event.settings);
    chart.temperatureLowerBound_C = bounds.temperatureLower_C;
    chart.temperatureUpperBound_C = bounds.temperatureUpper_C;
    chart.currentThreshold_mA = bounds.currentThreshold_mA;
}

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

}  // namespace

ChartRows::ChartRows(double duration_s, double row_s)
    : every(static_cast<size_t>(
          std::max(1.0, std::ceil(duration_s / std::max(row_s, 1e-3) / kChartRowsWanted)))) {}

void ChartRows::Add(const TimelineRow& row) {
    const bool turn = previous && (row.paused != previous->paused || row.sfps != previous->sfps ||
                                   row.gfps != previous->gfps);
    if (seen++ % every == 0 || turn) rows.push_back(row);
    previous = row;
}

SessionRecord RunSession(OutputSet& outputs, const SessionRequest& request) {
    const Scenario& scenario = *request.scenario;
    const std::string prefix = request.folder.empty() ? "" : request.folder + "/";
    const bool closedLoop = request.replay == nullptr;

    SessionRecord record;
    record.policy = request.policy.name;
    std::ostream& timeline = outputs.Stream(prefix + "timeline.csv");
    std::ostream& log = outputs.Stream(prefix + "library.log");
    WriteTimelineHeader(timeline, closedLoop);
    SummaryBuilder summary;
    ReportBuilder report;
    const double row_s = scenario.tickEveryFrame || !closedLoop ? 1.0 : scenario.tick_s;
    ChartRows chartRows(closedLoop ? scenario.duration_s
                                   : request.replay->back().time_s - request.replay->front().time_s,
                        row_s);

    RunOptions options;
    options.policy = request.policy;
    options.frameDetail = request.frameDetail;
    options.nodeDirectory = request.nodeDirectory;
    options.progress = request.progress;
    options.rowSink = [&](const TimelineRow& row) {
        WriteTimelineRow(timeline, row, closedLoop);
        summary.Add(row);
        report.Add(row);
        chartRows.Add(row);
    };
    options.logSink = [&log](const std::string& line) { log << line; };
    record.result = closedLoop ? RunClosedLoop(scenario, options)
                               : RunReplay(scenario, *request.replay, options);
    record.chartRows = chartRows.Take();
    record.summary = summary.Finish(record.result.frames, record.result.running_s,
                                    record.result.hostTicks, record.result.exploringTicks);

    ChartInput chart;
    chart.title = "talvex-sim: " + scenario.name;
    chart.subtitle = chartSubtitle(scenario, request);
    chart.rows = &record.chartRows;
    chart.refreshRate_Hz =
        closedLoop ? scenario.refreshRate_Hz : request.replay->front().refreshRate_Hz;
    chart.tick_s = scenario.tick_s;
    applySettingsToChart(chart, scenario);
    outputs.Put(prefix + "chart.svg", RenderChart(chart));
    record.result.trace->WriteJson(
        outputs.Stream(prefix + "trace.json"),
        {scenario.pid, scenario.package + " (pid " + std::to_string(scenario.pid) + ")"});
    record.result.trace.reset();

    ReportContext context;
    context.scenario = scenario.name;
    context.policy = request.policy.name;
    context.seed = scenario.seed;
    context.running_s = record.result.running_s;
    context.gameCapFps = closedLoop ? GameModel::CapFps(scenario.game, scenario.refreshRate_Hz)
                                    : chart.refreshRate_Hz;
    context.refreshRate_Hz = chart.refreshRate_Hz;
    if (request.policy.UsesManager()) {
        context.settings = scenario.settings;
        for (const ScenarioEvent& event : scenario.events) {
            context.settings.insert(context.settings.end(), event.settings.begin(),
                                    event.settings.end());
        }
    }
    context.efpsMaxWrites = record.result.efpsMaxWrites;
    context.faults = record.result.faults;
    record.report = report.Finish(context, record.result.frames);
    outputs.Put(prefix + "report.json", ReportJson(record.report));
    outputs.Put(prefix + "report.md", ReportMarkdown(record.report));
    record.files = {"timeline.csv", "trace.json",  "chart.svg",
                    "library.log",  "report.json", "report.md"};
    return record;
}

}  // namespace TalvexSim
