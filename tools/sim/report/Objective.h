#pragma once

#include <string>
#include <vector>

#include "tools/sim/report/Metrics.h"

namespace TalvexSim {

// What a sweep looks for: the run with the highest (or lowest) value of one metric among those
// that meet every constraint. Written as
//   max|min METRIC [subject to COMPARISON {and COMPARISON}]
//   COMPARISON = OPERAND (<= | >= | < | >) OPERAND
// where an OPERAND is a metric or a number and at least one side of a comparison is a metric.
// A run without a value for a metric it needs neither meets a constraint on it nor ranks before
// a run that has one.
struct Objective {
    struct Operand {
        std::string metric;  // empty for a number
        double number = 0.0;
    };
    struct Constraint {
        Operand left;
        std::string comparison;
        Operand right;
    };

    bool maximize = true;
    std::string metric;
    std::vector<Constraint> constraints;

    // The objective as written back: words separated by single spaces, numbers in short form.
    std::string Text() const;
    bool Meets(const MetricValues& values) const;
    // How far a run is from meeting the constraints: the sum of each miss relative to the larger
    // of its two sides, so that misses in degrees and in shares weigh alike. 0 when it meets them.
    double Shortfall(const MetricValues& values) const;
    // The constraints a run misses, in words: "peak_temperature_c 43.4 (needs <= 43)".
    std::string Misses(const MetricValues& values) const;
    // Whether run a ranks before run b on the objective's metric alone.
    bool Better(const MetricValues& a, const MetricValues& b) const;
};

// Throws std::invalid_argument naming the problem: an unknown metric (`metrics` are the names
// allowed), or where the text stops making sense.
Objective ParseObjective(const std::string& text, const std::vector<std::string>& metrics);

}  // namespace TalvexSim
