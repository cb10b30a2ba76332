#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/sim/input/Scenario.h"
#include "tools/sim/report/EffectiveFloor.h"

namespace TalvexSim {

// One finding in plain words; the evidence repeats its numbers by name for the JSON.
struct Finding {
    std::string kind;   // "sfps_dither", "gfps_flapping", "hot_at_sfps_floor"
    std::string brief;  // one line for the summary
    std::string text;   // the whole finding, with what to change
    std::vector<std::pair<std::string, double>> evidence;
};

// What the findings are drawn from, tallied over a run's rows in tables bounded by the distinct
// rates seen. Pairs are (lower, higher).
struct FindingTallies {
    struct HeldPair {
        double hot_s = 0.0;  // above the upper bound
        double held_s = 0.0;
        double peak_C = 0.0;
        double upperBound_C = 0.0;
    };
    struct OfpsSum {
        double sum = 0.0;
        std::uint64_t rows = 0;
    };

    // Displayed intervals of the steady rows that hold a rate, by that rate.
    struct Cadence {
        std::uint64_t intervals = 0;
        std::uint64_t onCadence = 0;
        std::array<std::uint64_t, 6> periods{};  // 1, 2, ... 6 or more refresh periods
    };
    // Running rows that showed half the refresh rate or less while the game aimed higher.
    struct Halved {
        double seconds = 0.0;
        double throttled_s = 0.0;  // of which with the thermal governor lowering the clock
        std::optional<double> first_s;
    };

    std::map<int, Cadence> cadenceByRate;
    Halved halved;
    std::uint64_t sfpsChanges = 0;
    std::map<std::pair<int, int>, std::uint64_t> sfpsReversalsByPair;  // the GFPS unchanged
    std::map<std::pair<int, int>, std::uint64_t> gfpsChangesByPair;
    std::map<int, OfpsSum> ofpsByGfps;
    std::map<std::pair<int, int>, HeldPair> heldPairs;  // (GFPS, SFPS) held
};

struct FindingContext {
    double running_s = 0.0;
    int gameCapFps = 0;
    std::optional<std::uint64_t> efpsMaxWrites;
    const std::vector<SfpsFloor>* floors = nullptr;
    int refreshRate_Hz = 60;
    const DisplayParams* display = nullptr;
};

// In a fixed order: an SFPS that dithers, a GFPS that flaps, a device hot with the SFPS at its
// floor. Each fires only past a count and a rate, so that a long run's handful of legitimate
// steps does not read as a fault.
std::vector<Finding> FindingsOf(const FindingTallies& tallies, const FindingContext& context);

}  // namespace TalvexSim
