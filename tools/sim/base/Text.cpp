#include "tools/sim/base/Text.h"

#include <algorithm>
#include <cstdio>

namespace TalvexSim {
namespace {

// The summary's values start in this column.
constexpr size_t kValueColumn = 32;

std::string printed(const char* pattern, int decimals, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, decimals, value);
    return text;
}

}  // namespace

std::string ShortNumber(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string Fixed(double value, int decimals) { return printed("%.*f", decimals, value); }

std::string SignedFixed(double value, int decimals) { return printed("%+.*f", decimals, value); }

std::string GroupThousands(std::uint64_t value) {
    std::string digits = std::to_string(value);
    for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) {
        digits.insert(static_cast<size_t>(i), ",");
    }
    return digits;
}

std::string LabelLine(const std::string& label, const std::string& value) {
    std::string text = "  " + label;
    text.resize(std::max(text.size() + 1, kValueColumn), ' ');
    return text + value + "\n";
}

std::string MarkdownCell(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '|') {
            out += "\\|";
        } else if (c == '\n' || c == '\t') {
            if (!out.empty() && out.back() != ' ') out += ' ';
        } else if (c != ' ' || (!out.empty() && out.back() != ' ')) {
            out += c;
        }
    }
    return out;
}

std::string CsvQuoted(const std::string& text) {
    std::string cell = "\"";
    for (const char c : text) {
        if (c == '"') cell += '"';
        cell += c;
    }
    return cell + "\"";
}

std::string CsvCell(const std::string& text) {
    return text.find_first_of(",\"\n") == std::string::npos ? text : CsvQuoted(text);
}

}  // namespace TalvexSim
