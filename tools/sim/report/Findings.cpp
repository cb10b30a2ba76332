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
// Displayed intervals of a held rate before its cadence is judged (10 s at 60 FPS), and the
// share off the cadence that a player notices.
constexpr std::uint64_t kLeastIntervals = 600;
constexpr double kOffCadenceShare = 0.1;
constexpr double kLeastHalved_s = 10.0;

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

// Whether a panel can show that rate evenly: a fixed panel when the rate divides its refresh, a
// panel with modes when it divides one of them, a variable-refresh panel always.
bool shownEvenly(int fps, const FindingContext& context) {
    if (context.display == nullptr || context.display->mode == DisplayMode::Vrr) return true;
    if (context.refreshRate_Hz % fps == 0) return true;
    if (context.display->mode != DisplayMode::Modes) return false;
    for (const int mode : context.display->modes_Hz) {
        if (mode % fps == 0) return true;
    }
    return false;
}

struct CadenceSum {
    std::vector<int> rates;
    int mostShown = 0;  // the rate with the most intervals
    std::uint64_t mostIntervals = 0;
    std::uint64_t intervals = 0;
    std::uint64_t onCadence = 0;
    std::array<std::uint64_t, 6> periods{};

    double OffShare() const {
        return 1.0 - static_cast<double>(onCadence) / static_cast<double>(intervals);
    }
    double PeriodShare(size_t periods_) const {
        return static_cast<double>(periods[periods_ - 1]) / static_cast<double>(intervals);
    }
    // "1 and 2 refresh periods (67 % / 33 %)": the bins that carry at least 5 %.
    std::string Pattern() const {
        std::string bins;
        std::string shares;
        for (size_t i = 1; i <= periods.size(); ++i) {
            if (PeriodShare(i) < 0.05) continue;
            bins += (bins.empty() ? "" : " and ") + std::to_string(i) + (i == 6 ? "+" : "");
            shares += (shares.empty() ? "" : " / ") + Fixed(PeriodShare(i) * 100.0, 0) + " %";
        }
        return bins + " refresh periods (" + shares + ")";
    }
};

// The held rates, of one kind, whose displayed intervals missed their cadence often.
CadenceSum offCadence(const FindingTallies& tallies, const FindingContext& context, bool even) {
    CadenceSum sum;
    for (const auto& [fps, cadence] : tallies.cadenceByRate) {
        if (fps <= 0 || cadence.intervals < kLeastIntervals || shownEvenly(fps, context) != even) {
            continue;
        }
        const double off =
            1.0 - static_cast<double>(cadence.onCadence) / static_cast<double>(cadence.intervals);
        if (off < kOffCadenceShare) continue;
        sum.rates.push_back(fps);
        if (cadence.intervals > sum.mostIntervals) {
            sum.mostShown = fps;
            sum.mostIntervals = cadence.intervals;
        }
        sum.intervals += cadence.intervals;
        sum.onCadence += cadence.onCadence;
        for (size_t i = 0; i < sum.periods.size(); ++i) sum.periods[i] += cadence.periods[i];
    }
    return sum;
}

std::string rateList(const std::vector<int>& rates) {
    std::string text;
    for (size_t i = 0; i < rates.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == rates.size() ? " and " : ", ") + std::to_string(rates[i]);
    }
    return text;
}

// Rates of at least 15 FPS that a fixed panel of that rate shows evenly, highest first.
std::string evenRates(int refreshRate_Hz) {
    std::vector<int> rates;
    for (int fps = refreshRate_Hz; fps >= 15; --fps) {
        if (refreshRate_Hz % fps == 0) rates.push_back(fps);
    }
    return rateList(rates);
}

// " (90 Hz for 45)": the lowest common panel rate the rate divides, if any.
std::string commonMode(int fps) {
    for (const int mode : {60, 90, 120, 144}) {
        if (mode % fps == 0)
            return " (" + std::to_string(mode) + " Hz for " + std::to_string(fps) + ")";
    }
    return "";
}

std::optional<Finding> judder(const FindingTallies& tallies, const FindingContext& context) {
    const CadenceSum sum = offCadence(tallies, context, false);
    if (sum.rates.empty()) return std::nullopt;
    const std::string panel = std::to_string(context.refreshRate_Hz) + " Hz panel";
    const double off = sum.OffShare() * 100.0;
    const int most = sum.mostShown;
    std::string text = "The held rate judders on this " + panel + ": at " + rateList(sum.rates) +
                       " FPS, " + Fixed(off, 0) + " % of the displayed intervals are off the " +
                       "cadence (more than 2 ms from the held period), shown as " + sum.Pattern() +
                       " instead of one even interval. Rates that divide the refresh rate (" +
                       evenRates(context.refreshRate_Hz) +
                       ") are shown evenly; so is this rate on a panel mode that is a multiple "
                       "of it" +
                       commonMode(most) + " or on a variable-refresh panel.";
    Finding finding{"display_judder",
                    rateList(sum.rates) + " FPS judder on the " + panel + ": " + Fixed(off, 0) +
                        " % of intervals off the cadence",
                    text,
                    {{"off_cadence_share", sum.OffShare()},
                     {"intervals", static_cast<double>(sum.intervals)},
                     {"lowest_rate", sum.rates.front()},
                     {"highest_rate", sum.rates.back()},
                     {"one_period_share", sum.PeriodShare(1)},
                     {"two_periods_share", sum.PeriodShare(2)}}};
    return finding;
}

// A rate the panel could show evenly whose frames land one refresh early or late. A
// variable-refresh panel has no latch deadline to fall on either side of.
std::optional<Finding> alternation(const FindingTallies& tallies, const FindingContext& context) {
    if (context.display != nullptr && context.display->mode == DisplayMode::Vrr)
        return std::nullopt;
    const CadenceSum sum = offCadence(tallies, context, true);
    if (sum.rates.empty()) return std::nullopt;
    const double off = sum.OffShare() * 100.0;
    const std::string text =
        "Pacing alternates around a latch deadline at " + rateList(sum.rates) +
        " FPS: the rate divides the refresh, yet " + Fixed(off, 0) +
        " % of the displayed intervals are off the cadence, shown as " + sum.Pattern() +
        ". The frames end close to the moment the compositor takes a buffer, so one is taken at "
        "its refresh and the next a refresh late. Waking each frame against the display's "
        "vsync, with the latch margin to spare, keeps them on one side.";
    return Finding{"pacing_alternates",
                   "pacing alternates at " + rateList(sum.rates) + " FPS: " + Fixed(off, 0) +
                       " % of intervals a refresh early or late",
                   text,
                   {{"off_cadence_share", sum.OffShare()},
                    {"intervals", static_cast<double>(sum.intervals)},
                    {"lowest_rate", sum.rates.front()},
                    {"highest_rate", sum.rates.back()}}};
}

std::optional<Finding> halved(const FindingTallies& tallies, const FindingContext& context) {
    const FindingTallies::Halved& halved = tallies.halved;
    if (halved.seconds < kLeastHalved_s) return std::nullopt;
    const int half = context.refreshRate_Hz / 2;
    std::string why = "frames that took longer than a refresh period waited for the next one";
    if (context.display != nullptr && context.display->buffers == 2) {
        why += ", and with two buffers the game cannot start the next frame meanwhile";
    }
    const std::string governor =
        halved.throttled_s > 0.0
            ? "; " + minutes(halved.throttled_s) +
                  " of it after the thermal governor lowered the clock, so that frames that fit "
                  "their period before no longer did"
            : "";
    const std::string text =
        "The displayed rate fell to half the refresh or less (" + std::to_string(half) +
        " FPS or fewer on the " + std::to_string(context.refreshRate_Hz) +
        " Hz panel) while the game aimed higher, for " + minutes(halved.seconds) + " from " +
        Fixed(*halved.first_s, 0) + " s: " + why + governor + ".";
    return Finding{"display_halved",
                   "displayed rate at half the refresh or less for " + minutes(halved.seconds),
                   text,
                   {{"halved_s", halved.seconds},
                    {"halved_while_throttled_s", halved.throttled_s},
                    {"first_halved_s", *halved.first_s}}};
}

}  // namespace

std::vector<Finding> FindingsOf(const FindingTallies& tallies, const FindingContext& context) {
    std::vector<Finding> found;
    for (auto finding : {sfpsDither(tallies, context.running_s), gfpsFlapping(tallies, context),
                         hotAtFloor(tallies, *context.floors), judder(tallies, context),
                         halved(tallies, context), alternation(tallies, context)}) {
        if (finding) found.push_back(std::move(*finding));
    }
    return found;
}

}  // namespace TalvexSim
