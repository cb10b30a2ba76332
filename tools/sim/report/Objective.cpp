#include "tools/sim/report/Objective.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>

#include "tools/sim/base/Text.h"

namespace TalvexSim {
namespace {

constexpr const char* kComparisons[] = {"<=", ">=", "<", ">"};

bool isComparison(const std::string& word) {
    return std::find(std::begin(kComparisons), std::end(kComparisons), word) !=
           std::end(kComparisons);
}

// Words, numbers and comparisons; anything else is a one-character token the parser refuses.
std::vector<std::string> tokens(const std::string& text) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < text.size()) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (std::isspace(c)) {
            ++i;
            continue;
        }
        size_t end = i + 1;
        if (std::isalnum(c) || c == '_' || c == '.' || c == '-' || c == '+') {
            while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) ||
                                         text[end] == '_' || text[end] == '.')) {
                ++end;
            }
        } else if ((c == '<' || c == '>' || c == '=' || c == '!') && end < text.size() &&
                   text[end] == '=') {
            ++end;
        }
        out.push_back(text.substr(i, end - i));
        i = end;
    }
    return out;
}

std::optional<double> numberOf(const std::string& word) {
    char* end = nullptr;
    const double value = std::strtod(word.c_str(), &end);
    if (word.empty() || *end != '\0' || !std::isfinite(value)) return std::nullopt;
    return value;
}

class Parser {
  public:
    Parser(const std::string& text, const std::vector<std::string>& metrics_)
        : words(tokens(text)), metrics(metrics_) {}

    Objective Parse() {
        Objective objective;
        const std::string sense = next("max or min");
        if (sense != "max" && sense != "min") {
            fail("an objective starts with max or min, not '" + sense + "'");
        }
        objective.maximize = sense == "max";
        objective.metric = metric(next("a metric"));
        if (at == words.size()) return objective;
        const std::string word = words[at++];
        if (word != "subject" || at == words.size() || words[at++] != "to") {
            fail("expected 'subject to' after '" + objective.metric + "', found '" + word + "'");
        }
        do {
            objective.constraints.push_back(constraint());
        } while (at < words.size() && expect("and"));
        return objective;
    }

  private:
    [[noreturn]] void fail(const std::string& message) const {
        throw std::invalid_argument(message);
    }

    std::string next(const std::string& wanted) {
        if (at == words.size()) {
            fail("the objective ends where " + wanted + " should follow" +
                 (at == 0 ? "" : " '" + words[at - 1] + "'"));
        }
        return words[at++];
    }

    bool expect(const std::string& word) {
        const std::string found = words[at++];
        if (found != word) {
            fail("expected '" + word + "' after '" + words[at - 2] + "', found '" + found + "'");
        }
        return true;
    }

    std::string metric(const std::string& word) const {
        if (std::find(metrics.begin(), metrics.end(), word) != metrics.end()) return word;
        std::string known;
        for (const std::string& m : metrics) known += (known.empty() ? "" : ", ") + m;
        fail("unknown metric '" + word + "' (the report's metrics: " + known + ")");
    }

    Objective::Operand operand() {
        const std::string word = next("a metric or a number");
        if (const std::optional<double> number = numberOf(word)) return {"", *number};
        const auto first = static_cast<unsigned char>(word[0]);
        if (!std::isalpha(first) && word[0] != '_') {
            fail("expected a metric or a number, found '" + word + "'");
        }
        return {metric(word), 0.0};
    }

    Objective::Constraint constraint() {
        Objective::Constraint c;
        c.left = operand();
        c.comparison = next("a comparison (<=, >=, <, >)");
        if (!isComparison(c.comparison)) {
            fail("expected a comparison (<=, >=, <, >) after '" + words[at - 2] + "', found '" +
                 c.comparison + "'");
        }
        c.right = operand();
        if (c.left.metric.empty() && c.right.metric.empty()) {
            fail("'" + words[at - 3] + " " + c.comparison + " " + words[at - 1] +
                 "' compares two numbers; one side must be a metric");
        }
        return c;
    }

    std::vector<std::string> words;
    const std::vector<std::string>& metrics;
    size_t at = 0;
};

std::optional<double> valueOf(const Objective::Operand& operand, const MetricValues& values) {
    if (operand.metric.empty()) return operand.number;
    return MetricValue(values, operand.metric);
}

std::string operandText(const Objective::Operand& operand) {
    return operand.metric.empty() ? ShortNumber(operand.number) : operand.metric;
}

// How much the left side must move for the comparison to hold; 0 when it holds, infinity when a
// side has no value. A strict comparison between equal sides misses by nothing measurable.
double miss(const Objective::Constraint& c, const MetricValues& values) {
    const std::optional<double> left = valueOf(c.left, values);
    const std::optional<double> right = valueOf(c.right, values);
    if (!left || !right) return std::numeric_limits<double>::infinity();
    const double above = *left - *right;
    if (c.comparison == "<=") return std::max(0.0, above);
    if (c.comparison == ">=") return std::max(0.0, -above);
    if (c.comparison == "<") return above < 0.0 ? 0.0 : std::max(above, 1e-12);
    return above > 0.0 ? 0.0 : std::max(-above, 1e-12);
}

}  // namespace

std::string Objective::Text() const {
    std::string text = (maximize ? "max " : "min ") + metric;
    for (size_t i = 0; i < constraints.size(); ++i) {
        const Constraint& c = constraints[i];
        text += (i == 0 ? " subject to " : " and ") + operandText(c.left) + " " + c.comparison +
                " " + operandText(c.right);
    }
    return text;
}

bool Objective::Meets(const MetricValues& values) const {
    return std::all_of(constraints.begin(), constraints.end(),
                       [&](const Constraint& c) { return miss(c, values) == 0.0; });
}

double Objective::Shortfall(const MetricValues& values) const {
    double sum = 0.0;
    for (const Constraint& c : constraints) {
        const double missed = miss(c, values);
        if (missed == 0.0) continue;
        const double scale = std::max(
            {std::abs(*valueOf(c.left, values)), std::abs(*valueOf(c.right, values)), 1e-9});
        sum += std::isinf(missed) ? missed : missed / scale;
    }
    return sum;
}

std::string Objective::Misses(const MetricValues& values) const {
    std::string text;
    for (const Constraint& c : constraints) {
        if (miss(c, values) == 0.0) continue;
        const Operand& shown = c.left.metric.empty() ? c.right : c.left;
        const std::optional<double> value = valueOf(shown, values);
        text += (text.empty() ? "" : "; ") + shown.metric + " " +
                (value ? ShortNumber(*value) : std::string("null")) + " (needs " +
                operandText(c.left) + " " + c.comparison + " " + operandText(c.right) + ")";
    }
    return text;
}

bool Objective::Better(const MetricValues& a, const MetricValues& b) const {
    const std::optional<double> x = MetricValue(a, metric);
    const std::optional<double> y = MetricValue(b, metric);
    if (!x || !y) return x.has_value() && !y.has_value();
    return maximize ? *x > *y : *x < *y;
}

Objective ParseObjective(const std::string& text, const std::vector<std::string>& metrics) {
    return Parser(text, metrics).Parse();
}

}  // namespace TalvexSim
