#pragma once

#include <cstdint>
#include <string>

namespace TalvexSim {

// Every number and cell the simulator writes for people goes through here, so that one
// figure reads the same in every output.

// Six significant digits, no trailing zeros ("0.5", "1800", "1e+06"), as messages show numbers.
std::string ShortNumber(double value);
// A fixed number of decimals ("52.3" for 1).
std::string Fixed(double value, int decimals);
// Fixed, with a sign always ("+0.15").
std::string SignedFixed(double value, int decimals);
// 1234567 as "1,234,567".
std::string GroupThousands(std::uint64_t value);

// "  label" padded to a column, then the value and a line feed: one line of a summary block.
std::string LabelLine(const std::string& label, const std::string& value);

// A Markdown table cell: '|' escaped, line breaks and runs of blanks folded into one space.
std::string MarkdownCell(const std::string& text);
// A CSV field in double quotes, inner quotes doubled.
std::string CsvQuoted(const std::string& text);
// A CSV field, quoted only when it has to be.
std::string CsvCell(const std::string& text);

}  // namespace TalvexSim
