#include "tools/sim/report/Report.h"

#include <algorithm>
#include <cmath>

#include "tools/sim/output/Summary.h"

namespace TalvexSim {
namespace {

// The steady rule.
constexpr double kSettling_s = 10.0;  // the start of a run
constexpr double kAroundEvent_s = 3.0;
constexpr int kWithinFps = 1;

// Findings fire from these counts on, and only when they also come at least this often, so
// that a long run's handful of legitimate steps does not read as a fault.
// Of the SFPS between the same two values, the GFPS unchanged.
constexpr std::uint64_t kDitherReversals = 20;
constexpr std::uint64_t kFlapChanges = 20;  // of the GFPS, between the same two candidates
constexpr double kLeastPer10Min = 5.0;
// Above the upper bound with the SFPS at its floor, in all.
constexpr double kHotAtFloor_s = 120.0;

double per10Min(std::uint64_t count, double running_s) {
    return running_s > 0.0 ? static_cast<double>(count) * 600.0 / running_s : 0.0;
}

std::string number(double value, int decimals) {
    return FormatNumber(decimals == 0 ? "%.0f" : decimals == 1 ? "%.1f" : "%.2f", value);
}

std::string count(std::uint64_t value) { return GroupThousands(value); }

std::string minutes(double seconds) { return number(seconds / 60.0, 1) + " min"; }

// The pair that carries the most; the lowest pair on ties, so that reruns agree.
template <typename Map>
typename Map::const_iterator busiest(const Map& map) {
    auto best = map.end();
    for (auto it = map.begin(); it != map.end(); ++it) {
        if (best == map.end() || it->second > best->second) best = it;
    }
    return best;
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
    if (!firstDecrease_s && row.sfps > 0 && row.sfps < row.gfps) firstDecrease_s = row.time_s;
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
    if (row.sfps < -1) return;  // exploring: the pacer measures and holds nothing
    if (row.sfps <= 0) {
        lastSfps.reset();
        lastSfpsDirection = 0;
    } else {
        heldPairs[{row.gfps, row.sfps}].held_s += row.interval_s;
        if (row.deviceTemperature_C > row.upperBound_C) {
            HeldPair& pair = heldPairs[{row.gfps, row.sfps}];
            pair.hot_s += row.interval_s;
            pair.peak_C = std::max(pair.peak_C, row.deviceTemperature_C);
            pair.upperBound_C = row.upperBound_C;
        }
        if (lastSfps && row.sfps != *lastSfps) {
            ++sfpsChanges;
            const int direction = row.sfps > *lastSfps ? 1 : -1;
            if (lastSfpsDirection == -direction) {
                ++sfpsReversals;
                // One that follows a new GFPS is the GFPS's doing, not the decider's.
                if (row.gfps == lastSfpsGfps) {
                    ++reversalsByPair[{std::min(row.sfps, *lastSfps),
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
    if (row.sfps < -1) return;
    if (row.deviceTemperature_C < row.lowerBound_C) {
        if (!coolSince_s) coolSince_s = row.time_s;
    } else {
        coolSince_s.reset();
    }
    if (row.sfps > 0 && row.sfps < row.gfps) {
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
    OfpsSum& sum = ofpsByGfps[row.gfps];
    sum.sum += row.ofps;
    ++sum.rows;
    if (lastGfps && row.gfps != *lastGfps) {
        ++gfpsChanges;
        ++gfpsChangesByPair[{std::min(row.gfps, *lastGfps), std::max(row.gfps, *lastGfps)}];
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
    report.sfpsChangesPer10Min = per10Min(sfpsChanges, context.running_s);
    report.sfpsReversalsPer10Min = per10Min(sfpsReversals, context.running_s);
    report.gfpsChangesPer10Min = per10Min(gfpsChanges, context.running_s);

    std::vector<int> gfpsHeld;
    for (const auto& entry : ofpsByGfps) gfpsHeld.push_back(entry.first);
    report.effectiveSfpsFloor =
        EffectiveSfpsFloors(context.settings, context.refreshRate_Hz, gfpsHeld);
    report.diagnostics = findings(report, context);
    report.faults = context.faults;
    return report;
}

std::vector<Finding> ReportBuilder::findings(const Report& report,
                                             const ReportContext& context) const {
    std::vector<Finding> found;
    const double running_s = context.running_s;

    const auto dither = busiest(reversalsByPair);
    if (dither != reversalsByPair.end() && dither->second >= kDitherReversals &&
        per10Min(dither->second, running_s) >= kLeastPer10Min) {
        const auto [low, high] = dither->first;
        const double share = static_cast<double>(dither->second) / static_cast<double>(sfpsChanges);
        const std::string brief = "SFPS reversed " + count(dither->second) + " times between " +
                                  std::to_string(low) + " and " + std::to_string(high) + " (" +
                                  number(per10Min(dither->second, running_s), 1) + " per 10 min)";
        found.push_back(
            {"sfps_dither",
             brief,
             "The SFPS dithers: it reversed " + count(dither->second) + " times between " +
                 std::to_string(low) + " and " + std::to_string(high) + " (" +
                 number(per10Min(dither->second, running_s), 1) + " per 10 min; " +
                 number(share * 100.0, 0) + " % of its " + count(sfpsChanges) +
                 " changes). Each reversal is a new efps_max text and a new pacing target.",
             {{"reversals", static_cast<double>(dither->second)},
              {"low_sfps", low},
              {"high_sfps", high},
              {"reversals_per_10min", per10Min(dither->second, running_s)},
              {"sfps_changes", static_cast<double>(sfpsChanges)}}});
    }

    const auto flap = busiest(gfpsChangesByPair);
    if (flap != gfpsChangesByPair.end() && flap->second >= kFlapChanges &&
        per10Min(flap->second, running_s) >= kLeastPer10Min) {
        const auto [low, high] = flap->first;
        const OfpsSum& a = ofpsByGfps.at(low);
        const OfpsSum& b = ofpsByGfps.at(high);
        const double reached = (a.sum + b.sum) / static_cast<double>(a.rows + b.rows);
        std::string text = "The GFPS flaps between " + std::to_string(low) + " and " +
                           std::to_string(high) + ": " + count(flap->second) + " changes (" +
                           number(per10Min(flap->second, running_s), 1) +
                           " per 10 min), each one a new efps_max text";
        if (context.efpsMaxWrites) text += " (" + count(*context.efpsMaxWrites) + " writes in all)";
        text +=
            ", and each one pauses the temperature decider and resets the current decider. "
            "While the GFPS is " +
            std::to_string(low) + " or " + std::to_string(high) + " the game reaches " +
            number(reached, 1) + " FPS on average (its cap is " +
            std::to_string(context.gameCapFps) +
            "). A GFPS list whose candidates match the rates the game really reaches, "
            "without two candidates that close, keeps the GFPS still.";
        Finding finding{"gfps_flapping",
                        "GFPS flapped " + count(flap->second) + " times between " +
                            std::to_string(low) + " and " + std::to_string(high) +
                            ", the game reaching " + number(reached, 1) + " FPS",
                        text,
                        {{"gfps_changes", static_cast<double>(flap->second)},
                         {"low_gfps", low},
                         {"high_gfps", high},
                         {"changes_per_10min", per10Min(flap->second, running_s)},
                         {"mean_ofps_while_flapping", reached}}};
        if (context.efpsMaxWrites) {
            finding.evidence.push_back(
                {"efps_max_writes", static_cast<double>(*context.efpsMaxWrites)});
        }
        found.push_back(std::move(finding));
    }

    // The pair with the most time hot while the SFPS sat at its floor.
    const SfpsFloor* atFloor = nullptr;
    const HeldPair* hot = nullptr;
    for (const SfpsFloor& floor : report.effectiveSfpsFloor) {
        if (!floor.floor || *floor.floor <= 0) continue;
        const auto pair = heldPairs.find({floor.gfps, *floor.floor});
        if (pair == heldPairs.end() || pair->second.hot_s < kHotAtFloor_s) continue;
        if (hot == nullptr || pair->second.hot_s > hot->hot_s) {
            atFloor = &floor;
            hot = &pair->second;
        }
    }
    if (hot != nullptr) {
        const int gfps = atFloor->gfps;
        const int floor = *atFloor->floor;
        std::string text =
            "The device stays above the upper bound (" + number(hot->upperBound_C, 1) +
            " \u00b0C) for " + minutes(hot->hot_s) + ", up to " + number(hot->peak_C, 1) +
            " \u00b0C, while the SFPS sits at " + std::to_string(floor) + ", its floor for GFPS " +
            std::to_string(gfps) + " (held there " + minutes(hot->held_s) + "). ";
        if (atFloor->configured && *atFloor->configured < floor && atFloor->candidateBelow) {
            text += "The floor is set by '" + atFloor->record + "': its entry " +
                    std::to_string(*atFloor->configured) + " for GFPS " + std::to_string(gfps) +
                    " is raised to " + std::to_string(floor) +
                    " by the GFPS evaluator, because a GFPS's SFPS floor is at least the midpoint "
                    "between it and the candidate below (" +
                    std::to_string(*atFloor->candidateBelow) +
                    "). To let the SFPS go lower, remove or lower the candidate " +
                    std::to_string(*atFloor->candidateBelow) + " in the GFPS list.";
        } else {
            text += "The floor is set by '" + atFloor->record +
                    "'. To let the SFPS go lower, lower its entry for GFPS " +
                    std::to_string(gfps) + ".";
        }
        Finding finding{"hot_at_sfps_floor",
                        minutes(hot->hot_s) + " above " + number(hot->upperBound_C, 1) +
                            " \u00b0C with the SFPS at its floor " + std::to_string(floor) +
                            " for GFPS " + std::to_string(gfps),
                        text,
                        {{"time_above_upper_bound_at_floor_s", hot->hot_s},
                         {"time_at_floor_s", hot->held_s},
                         {"peak_temperature_c", hot->peak_C},
                         {"upper_bound_c", hot->upperBound_C},
                         {"gfps", gfps},
                         {"sfps_floor", floor}}};
        if (atFloor->configured) {
            finding.evidence.push_back({"configured_sfps_lower_bound", *atFloor->configured});
        }
        if (atFloor->candidateBelow) {
            finding.evidence.push_back({"gfps_candidate_below", *atFloor->candidateBelow});
        }
        found.push_back(std::move(finding));
    }
    return found;
}

}  // namespace TalvexSim
