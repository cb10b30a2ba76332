#include "tools/sim/report/Report.h"

#include <algorithm>
#include <cmath>

namespace TalvexSim {
namespace {

// The steady rule.
constexpr double kSettling_s = 10.0;  // the start of a run
constexpr double kAroundEvent_s = 3.0;
constexpr int kWithinFps = 1;

double per10Min(std::uint64_t count, double running_s) {
    return running_s > 0.0 ? static_cast<double>(count) * 600.0 / running_s : 0.0;
}

}  // namespace

void ReportBuilder::Add(const TimelineRow& row) {
    addSteady(row);
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
    pending.push_back({row.time_s, row.interval_s, std::abs(row.ofps - row.heldFps) <= kWithinFps});
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
        steady_s += pending.front().interval_s;
        if (pending.front().withinOne) steadyWithin_s += pending.front().interval_s;
        pending.pop_front();
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

Report ReportBuilder::Finish(const ReportContext& context, const FrameHistogram& frames) {
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

    report.steady_s = steady_s;
    if (steady_s > 0.0) report.fpsStability = steadyWithin_s / steady_s;
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
    report.diagnostics = FindingsOf(tallies, {context.running_s, context.gameCapFps,
                                              context.efpsMaxWrites, &report.effectiveSfpsFloor});
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
