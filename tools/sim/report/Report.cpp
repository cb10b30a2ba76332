#include "tools/sim/report/Report.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

// The steady rule.
constexpr double kSettling_s = 10.0;  // the start of a run
constexpr double kAroundEvent_s = 3.0;
constexpr int kWithinFps = 1;
constexpr double kOnCadence_ms = 2.0;
constexpr double kSlowSessionShare = 0.25;

bool onCadence(double interval_ms, double rate) {
    return std::abs(interval_ms - 1000.0 / rate) <= kOnCadence_ms;
}

double per10Min(std::uint64_t count, double running_s) {
    return running_s > 0.0 ? static_cast<double>(count) * 600.0 / running_s : 0.0;
}

}  // namespace

void ReportBuilder::Add(const TimelineRow& row) {
    addSteady(row);
    addParts(row);
    if (!row.paused && row.heldFps > refreshRate_Hz / 2 + kWithinFps &&
        row.shownFrames * 2 <= refreshRate_Hz + 2 * kWithinFps && row.time_s > kSettling_s) {
        FindingTallies::Halved& halved = tallies.halved;
        halved.seconds += row.interval_s;
        if (row.governorState > 0) halved.throttled_s += row.interval_s;
        if (!halved.first_s) halved.first_s = row.time_s;
    }
    covered_s += row.interval_s;
    energy_J += row.power_W * row.interval_s;
    if (!peak_C || row.deviceTemperature_C > *peak_C) peak_C = row.deviceTemperature_C;
    if (row.deviceTemperature_C > row.upperBound_C) aboveUpper_s += row.interval_s;
    if (row.paused) {
        lastSfps.reset();
        lastSfpsDirection = 0;
        lastGfps.reset();
        // The manager starts afresh on resume: that is no recovery.
        stabilized = false;
        coolSince_s.reset();
        return;
    }
    ++runningRows;
    runningOfps += row.ofps;
    jankFrames += static_cast<std::uint64_t>(std::max(row.jankFrames, 0));
    if (IsHeldSfps(row.sfps)) {
        ++heldRows;
        if (!lowestSfps || row.sfps < *lowestSfps) lowestSfps = row.sfps;
        if (!firstDecrease_s && row.sfps < row.gfps) firstDecrease_s = row.time_s;
    }
    addSfps(row);
    addRecovery(row);
    addGfps(row);
}

void ReportBuilder::addParts(const TimelineRow& row) {
    if (row.cpu_MHz <= 0.0) return;
    parts.peakDie_C =
        parts.seen ? std::max(parts.peakDie_C, row.dieTemperature_C) : row.dieTemperature_C;
    parts.seen = true;
    parts.cpu_J += row.cpuPower_W * row.interval_s;
    parts.gpu_J += row.gpuPower_W * row.interval_s;
    if (row.capped) parts.capped_s += row.interval_s;
    if (row.paused) return;
    parts.cpuMHz_s += row.cpu_MHz * row.interval_s;
    parts.gpuMHz_s += row.gpu_MHz * row.interval_s;
    parts.running_s += row.interval_s;
}

void ReportBuilder::finishParts(Report& report) const {
    if (!parts.seen || covered_s <= 0.0) return;
    if (parts.running_s > 0.0) {
        report.meanCpu_MHz = parts.cpuMHz_s / parts.running_s;
        report.meanGpu_MHz = parts.gpuMHz_s / parts.running_s;
    }
    report.cpuPower_W = parts.cpu_J / covered_s;
    report.gpuPower_W = parts.gpu_J / covered_s;
    report.timeCapped_s = parts.capped_s;
    report.peakDieTemperature_C = parts.peakDie_C;
}

void ReportBuilder::addSteady(const TimelineRow& row) {
    const bool event = seenRow && (row.paused != lastPaused ||
                                   (!row.paused && !lastPaused && row.heldFps != lastHeld));
    seenRow = true;
    lastPaused = row.paused;
    lastHeld = row.heldFps;
    if (event) markEvent(row.time_s);
    settle(row.time_s - kAroundEvent_s);
    if (row.paused || row.time_s <= kSettling_s) return;
    if (lastEvent_s && row.time_s - *lastEvent_s <= kAroundEvent_s) return;
    pending.push_back(
        {row.time_s, row.interval_s, row.ofps, row.heldFps, row.rateHeld, row.shownIntervals_ms});
}

// The rows just before an event are not steady after all.
void ReportBuilder::markEvent(double time_s) {
    lastEvent_s = time_s;
    while (!pending.empty() && pending.back().time_s >= time_s - kAroundEvent_s) {
        pending.pop_back();
    }
}

// Rows this far back can no longer be reached by an event.
void ReportBuilder::settle(double before_s) {
    while (!pending.empty() && pending.front().time_s < before_s) {
        addSteadyRow(pending.front());
        pending.pop_front();
    }
}

void ReportBuilder::addSteadyRow(const Pending& row) {
    steady_s += row.interval_s;
    const bool atItsRate = row.rateHeld || std::abs(row.ofps - row.heldFps) <= kWithinFps;
    if (!row.rateHeld) {
        // Its median rate decides, at the end, whether it holds its cap.
        free.capFps = row.heldFps;
        free.ofps_s[row.ofps] += row.interval_s;
        for (const float interval : row.shownIntervals_ms) {
            ++free.shown_us[std::llround(static_cast<double>(interval) * 1000.0)];
        }
    } else {
        if (std::abs(row.ofps - row.heldFps) <= kWithinFps) steadyWithin_s += row.interval_s;
        for (const float interval : row.shownIntervals_ms) {
            ++steadyShown;
            if (onCadence(interval, row.heldFps)) ++steadyShownOnCadence;
        }
    }
    if (!atItsRate) return;
    FindingTallies::Cadence& cadence = tallies.cadenceByRate[row.heldFps];
    for (const float interval : row.shownIntervals_ms) {
        ++cadence.intervals;
        if (onCadence(interval, row.heldFps)) ++cadence.onCadence;
        ++cadence.periods[std::min(PeriodsOf(interval, 1000.0 / refreshRate_Hz),
                                   cadence.periods.size()) -
                          1];
    }
}

// A game that runs free is measured against its cap, or against its median rate when it does
// not reach the cap: a steady game that cannot reach it is still steady.
void ReportBuilder::finishSteady(Report& report) {
    double total_s = 0.0;
    for (const auto& [ofps, seconds] : free.ofps_s) total_s += seconds;
    double rate = free.capFps;
    double seen_s = 0.0;
    for (const auto& [ofps, seconds] : free.ofps_s) {
        seen_s += seconds;
        if (seen_s * 2.0 >= total_s) {
            if (ofps < free.capFps - kWithinFps) rate = ofps;
            break;
        }
    }
    double within_s = steadyWithin_s;
    for (const auto& [ofps, seconds] : free.ofps_s) {
        if (std::abs(ofps - rate) <= kWithinFps) within_s += seconds;
    }
    std::uint64_t shown = steadyShown;
    std::uint64_t onRate = steadyShownOnCadence;
    for (const auto& [interval_us, count] : free.shown_us) {
        shown += count;
        if (onCadence(static_cast<double>(interval_us) / 1000.0, rate)) onRate += count;
    }
    report.steady_s = steady_s;
    if (steady_s > 0.0) report.fpsStability = within_s / steady_s;
    if (shown > 0) report.cadenceMatch = static_cast<double>(onRate) / static_cast<double>(shown);
}

void ReportBuilder::finishShown(Report& report, const ShownFrames& shown, double running_s) const {
    if (running_s > 0.0 && shown.Count() > 0) {
        report.displayFps = static_cast<double>(shown.Count()) / running_s;
        report.jankPerHour = static_cast<double>(shown.Janks()) * 3600.0 / running_s;
        report.bigJankPerHour = static_cast<double>(shown.BigJanks()) * 3600.0 / running_s;
    }
    if (const std::optional<FrameStats> stats = shown.Intervals().Stats()) {
        report.displayIntervalP50_ms = stats->p50_ms;
        report.displayIntervalP99_ms = stats->p99_ms;
        const auto count = static_cast<double>(shown.Intervals().Count());
        report.slowFrames50Share = static_cast<double>(shown.SlowOver50()) / count;
        report.slowFrames34Share = static_cast<double>(shown.SlowOver34()) / count;
    }
    report.displayIntervalHistogram = shown.PeriodCounts();
    report.slowSession = shown.LaterIntervals() > 0 &&
                         static_cast<double>(shown.LaterSlow()) >
                             kSlowSessionShare * static_cast<double>(shown.LaterIntervals());
    if (const std::optional<FrameStats> stats = shown.Latencies().Stats()) {
        report.latencyP50_ms = stats->p50_ms;
        report.latencyP99_ms = stats->p99_ms;
    }
}

void ReportBuilder::addSfps(const TimelineRow& row) {
    if (IsExploringSfps(row.sfps)) return;
    if (!IsHeldSfps(row.sfps)) {
        lastSfps.reset();
        lastSfpsDirection = 0;
    } else {
        FindingTallies::HeldPair& pair = tallies.heldPairs[{row.gfps, row.sfps}];
        pair.held_s += row.interval_s;
        if (row.deviceTemperature_C > row.upperBound_C) {
            pair.hot_s += row.interval_s;
            pair.peak_C = std::max(pair.peak_C, row.deviceTemperature_C);
            pair.upperBound_C = row.upperBound_C;
        }
        if (lastSfps && row.sfps != *lastSfps) {
            ++tallies.sfpsChanges;
            const int direction = row.sfps > *lastSfps ? 1 : -1;
            if (lastSfpsDirection == -direction) {
                ++sfpsReversals;
                // One that follows a new GFPS is the GFPS's doing, not the decider's.
                if (row.gfps == lastSfpsGfps) {
                    ++tallies.sfpsReversalsByPair[{std::min(row.sfps, *lastSfps),
                                                   std::max(row.sfps, *lastSfps)}];
                }
            }
            lastSfpsDirection = direction;
        }
        lastSfps = row.sfps;
        lastSfpsGfps = row.gfps;
    }
}

void ReportBuilder::addRecovery(const TimelineRow& row) {
    if (IsExploringSfps(row.sfps)) return;
    if (row.deviceTemperature_C < row.lowerBound_C) {
        if (!coolSince_s) coolSince_s = row.time_s;
    } else {
        coolSince_s.reset();
    }
    if (IsHeldSfps(row.sfps) && row.sfps < row.gfps) {
        stabilized = true;
        return;
    }
    if (stabilized && coolSince_s && !recover_s) recover_s = row.time_s - *coolSince_s;
    stabilized = false;
}

void ReportBuilder::addGfps(const TimelineRow& row) {
    if (row.gfps <= 0) {
        lastGfps.reset();
        return;
    }
    FindingTallies::OfpsSum& sum = tallies.ofpsByGfps[row.gfps];
    sum.sum += row.ofps;
    ++sum.rows;
    if (lastGfps && row.gfps != *lastGfps) {
        ++gfpsChanges;
        ++tallies.gfpsChangesByPair[{std::min(row.gfps, *lastGfps), std::max(row.gfps, *lastGfps)}];
    }
    lastGfps = row.gfps;
}

Report ReportBuilder::Finish(const ReportContext& context, const FrameHistogram& frames,
                             const ShownFrames& shown) {
    settle(HUGE_VAL);
    Report report;
    report.scenario = context.scenario;
    report.policy = context.policy;
    report.seed = context.seed;
    report.simulated_s = covered_s;
    report.running_s = context.running_s;
    report.frames = frames.Count();
    report.gameCapFps = context.gameCapFps;
    report.refreshRate_Hz = context.refreshRate_Hz;

    finishSteady(report);
    finishParts(report);
    finishShown(report, shown, context.running_s);
    if (frames.Count() > 0 && context.running_s > 0.0) {
        report.meanFps = static_cast<double>(frames.Count()) / context.running_s;
    } else if (runningRows > 0) {
        report.meanFps = runningOfps / static_cast<double>(runningRows);
    }
    if (const std::optional<FrameStats> stats = frames.Stats()) {
        report.frameP50_ms = stats->p50_ms;
        report.frameP99_ms = stats->p99_ms;
    }
    if (context.running_s > 0.0) {
        report.jankPerMin = static_cast<double>(jankFrames) * 60.0 / context.running_s;
    }
    report.peakTemperature_C = peak_C;
    report.timeAboveUpperBound_s = aboveUpper_s;
    report.energy_J = energy_J;
    if (covered_s > 0.0) report.meanPower_W = energy_J / covered_s;
    report.timeToFirstDecrease_s = firstDecrease_s;
    report.timeToRecover_s = recover_s;
    report.sfpsChangesPer10Min = per10Min(tallies.sfpsChanges, context.running_s);
    report.sfpsReversalsPer10Min = per10Min(sfpsReversals, context.running_s);
    report.gfpsChangesPer10Min = per10Min(gfpsChanges, context.running_s);

    std::vector<int> gfpsHeld;
    for (const auto& entry : tallies.ofpsByGfps) gfpsHeld.push_back(entry.first);
    report.effectiveSfpsFloor =
        EffectiveSfpsFloors(context.settings, context.refreshRate_Hz, gfpsHeld);
    report.diagnostics =
        FindingsOf(tallies, {context.running_s, context.gameCapFps, context.efpsMaxWrites,
                             &report.effectiveSfpsFloor, context.refreshRate_Hz, &context.display});
    report.faults = context.faults;

    report.lowestSfps = lowestSfps;
    if (runningRows > 0) {
        report.heldShare = static_cast<double>(heldRows) / static_cast<double>(runningRows);
    }
    if (context.hostTicks > 0) {
        report.exploringShare =
            static_cast<double>(context.exploringTicks) / static_cast<double>(context.hostTicks);
    }
    return report;
}

}  // namespace TalvexSim
