#include "tools/sim/report/Findings.h"

#include "tools/sim/base/Text.h"

namespace TalvexSim {
namespace {

// Of the SFPS between the same two values, the GFPS unchanged.
constexpr std::uint64_t kDitherReversals = 20;
constexpr std::uint64_t kFlapChanges = 20;  // of the GFPS, between the same two candidates
constexpr double kLeastPer10Min = 5.0;
// Above the upper bound with the SFPS at its floor, in all.
constexpr double kHotAtFloor_s = 120.0;

double per10Min(std::uint64_t count, double running_s) {
    return running_s > 0.0 ? static_cast<double>(count) * 600.0 / running_s : 0.0;
}

std::string minutes(double seconds) { return Fixed(seconds / 60.0, 1) + " min"; }

// The pair that carries the most; the lowest pair on ties, so that reruns agree.
template <typename Map>
typename Map::const_iterator busiest(const Map& map) {
    auto best = map.end();
    for (auto it = map.begin(); it != map.end(); ++it) {
        if (best == map.end() || it->second > best->second) best = it;
    }
    return best;
}

bool frequent(std::uint64_t count, std::uint64_t least, double running_s) {
    return count >= least && per10Min(count, running_s) >= kLeastPer10Min;
}

std::optional<Finding> sfpsDither(const FindingTallies& tallies, double running_s) {
    const auto dither = busiest(tallies.sfpsReversalsByPair);
    if (dither == tallies.sfpsReversalsByPair.end() ||
        !frequent(dither->second, kDitherReversals, running_s)) {
        return std::nullopt;
    }
    const auto [low, high] = dither->first;
    const double rate = per10Min(dither->second, running_s);
    const double share =
        static_cast<double>(dither->second) / static_cast<double>(tallies.sfpsChanges);
    const std::string between = GroupThousands(dither->second) + " times between " +
                                std::to_string(low) + " and " + std::to_string(high) + " (" +
                                Fixed(rate, 1) + " per 10 min";
    return Finding{"sfps_dither",
                   "SFPS reversed " + between + ")",
                   "The SFPS dithers: it reversed " + between + "; " + Fixed(share * 100.0, 0) +
                       " % of its " + GroupThousands(tallies.sfpsChanges) +
                       " changes). Each reversal is a new efps_max text and a new pacing target.",
                   {{"reversals", static_cast<double>(dither->second)},
                    {"low_sfps", low},
                    {"high_sfps", high},
                    {"reversals_per_10min", rate},
                    {"sfps_changes", static_cast<double>(tallies.sfpsChanges)}}};
}

std::optional<Finding> gfpsFlapping(const FindingTallies& tallies, const FindingContext& context) {
    const auto flap = busiest(tallies.gfpsChangesByPair);
    if (flap == tallies.gfpsChangesByPair.end() ||
        !frequent(flap->second, kFlapChanges, context.running_s)) {
        return std::nullopt;
    }
    const auto [low, high] = flap->first;
    const auto& a = tallies.ofpsByGfps.at(low);
    const auto& b = tallies.ofpsByGfps.at(high);
    const double reached = (a.sum + b.sum) / static_cast<double>(a.rows + b.rows);
    const double rate = per10Min(flap->second, context.running_s);
    const std::string pair = std::to_string(low) + " and " + std::to_string(high);
    std::string text = "The GFPS flaps between " + pair + ": " + GroupThousands(flap->second) +
                       " changes (" + Fixed(rate, 1) + " per 10 min), each one a new efps_max text";
    if (context.efpsMaxWrites) {
        text += " (" + GroupThousands(*context.efpsMaxWrites) + " writes in all)";
    }
    text +=
        ", and each one pauses the temperature decider and resets the current decider. "
        "While the GFPS is " +
        std::to_string(low) + " or " + std::to_string(high) + " the game reaches " +
        Fixed(reached, 1) + " FPS on average (its cap is " + std::to_string(context.gameCapFps) +
        "). A GFPS list whose candidates match the rates the game really reaches, "
        "without two candidates that close, keeps the GFPS still.";
    Finding finding{"gfps_flapping",
                    "GFPS flapped " + GroupThousands(flap->second) + " times between " + pair +
                        ", the game reaching " + Fixed(reached, 1) + " FPS",
                    text,
                    {{"gfps_changes", static_cast<double>(flap->second)},
                     {"low_gfps", low},
                     {"high_gfps", high},
                     {"changes_per_10min", rate},
                     {"mean_ofps_while_flapping", reached}}};
    if (context.efpsMaxWrites) {
        finding.evidence.push_back(
            {"efps_max_writes", static_cast<double>(*context.efpsMaxWrites)});
    }
    return finding;
}

// Where the floor comes from and what to change, for the finding below.
std::string floorAdvice(const SfpsFloor& atFloor) {
    const int gfps = atFloor.gfps;
    const int floor = *atFloor.floor;
    if (atFloor.configured && *atFloor.configured < floor && atFloor.candidateBelow) {
        return "The floor is set by '" + atFloor.record + "': its entry " +
               std::to_string(*atFloor.configured) + " for GFPS " + std::to_string(gfps) +
               " is raised to " + std::to_string(floor) +
               " by the GFPS evaluator, because a GFPS's SFPS floor is at least the midpoint "
               "between it and the candidate below (" +
               std::to_string(*atFloor.candidateBelow) +
               "). To let the SFPS go lower, remove or lower the candidate " +
               std::to_string(*atFloor.candidateBelow) + " in the GFPS list.";
    }
    return "The floor is set by '" + atFloor.record +
           "'. To let the SFPS go lower, lower its entry for GFPS " + std::to_string(gfps) + ".";
}

// The pair with the most time hot while the SFPS sat at its floor.
std::optional<Finding> hotAtFloor(const FindingTallies& tallies,
                                  const std::vector<SfpsFloor>& floors) {
    const SfpsFloor* atFloor = nullptr;
    const FindingTallies::HeldPair* hot = nullptr;
    for (const SfpsFloor& floor : floors) {
        if (!floor.floor || *floor.floor <= 0) continue;
        const auto pair = tallies.heldPairs.find({floor.gfps, *floor.floor});
        if (pair == tallies.heldPairs.end() || pair->second.hot_s < kHotAtFloor_s) continue;
        if (hot == nullptr || pair->second.hot_s > hot->hot_s) {
            atFloor = &floor;
            hot = &pair->second;
        }
    }
    if (hot == nullptr) return std::nullopt;
    const int gfps = atFloor->gfps;
    const int floor = *atFloor->floor;
    const std::string text = "The device stays above the upper bound (" +
                             Fixed(hot->upperBound_C, 1) + " \u00b0C) for " + minutes(hot->hot_s) +
                             ", up to " + Fixed(hot->peak_C, 1) +
                             " \u00b0C, while the SFPS sits at " + std::to_string(floor) +
                             ", its floor for GFPS " + std::to_string(gfps) + " (held there " +
                             minutes(hot->held_s) + "). " + floorAdvice(*atFloor);
    Finding finding{"hot_at_sfps_floor",
                    minutes(hot->hot_s) + " above " + Fixed(hot->upperBound_C, 1) +
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
    return finding;
}

}  // namespace

std::vector<Finding> FindingsOf(const FindingTallies& tallies, const FindingContext& context) {
    std::vector<Finding> found;
    for (auto finding : {sfpsDither(tallies, context.running_s), gfpsFlapping(tallies, context),
                         hotAtFloor(tallies, *context.floors)}) {
        if (finding) found.push_back(std::move(*finding));
    }
    return found;
}

}  // namespace TalvexSim
