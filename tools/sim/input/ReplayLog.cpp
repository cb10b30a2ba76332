#include "tools/sim/input/ReplayLog.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "tools/sim/base/InputError.h"
#include "tools/sim/input/Scenario.h"

namespace TalvexSim {
namespace {

enum Column { kTime, kOfps, kRefreshRate, kCurrent, kCpu0, kCpu1, kCpu2, kCpu3, kTemperature };

struct Cell {
    std::string text;
    size_t column;  // 1-based character column of the cell's first character
};

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::vector<Cell> splitLine(const std::string& line) {
    std::vector<Cell> cells;
    size_t start = 0;
    while (true) {
        const size_t comma = line.find(',', start);
        std::string text =
            line.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        size_t leading = 0;
        while (leading < text.size() && (text[leading] == ' ' || text[leading] == '\t')) {
            ++leading;
        }
        size_t end = text.size();
        while (end > leading && (text[end - 1] == ' ' || text[end - 1] == '\t')) --end;
        cells.push_back({text.substr(leading, end - leading), start + leading + 1});
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return cells;
}

class RowReader {
  public:
    RowReader(const std::string& sourceName_, size_t line_)
        : sourceName(sourceName_), line(line_) {}

    [[noreturn]] void Fail(const Cell& cell, const std::string& name,
                           const std::string& what) const {
        throw InputError(sourceName + ":" + std::to_string(line) + ":" +
                         std::to_string(cell.column) + ": column '" + name + "': '" + cell.text +
                         "' " + what);
    }

    double Real(const Cell& cell, const std::string& name) const {
        const char* begin = cell.text.c_str();
        char* end = nullptr;
        errno = 0;
        const double value = std::strtod(begin, &end);
        if (cell.text.empty() || *end != '\0' || errno == ERANGE || !std::isfinite(value)) {
            Fail(cell, name, "is not a number");
        }
        return value;
    }

    long long Signed(const Cell& cell, const std::string& name, long long min,
                     long long max) const {
        const char* begin = cell.text.c_str();
        char* end = nullptr;
        errno = 0;
        const long long value = std::strtoll(begin, &end, 10);
        if (cell.text.empty() || *end != '\0' || errno == ERANGE) {
            Fail(cell, name, "is not an integer");
        }
        if (value < min || value > max) {
            Fail(cell, name,
                 "is out of range [" + std::to_string(min) + ", " + std::to_string(max) + "]");
        }
        return value;
    }

    unsigned long long Unsigned(const Cell& cell, const std::string& name,
                                unsigned long long max) const {
        const char* begin = cell.text.c_str();
        char* end = nullptr;
        errno = 0;
        const unsigned long long value = std::strtoull(begin, &end, 10);
        if (cell.text.empty() || cell.text[0] == '-' || *end != '\0' || errno == ERANGE) {
            Fail(cell, name, "is not a whole number");
        }
        if (value > max) Fail(cell, name, "is larger than " + std::to_string(max));
        return value;
    }

  private:
    const std::string& sourceName;
    size_t line;
};

std::vector<std::string> readLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(std::move(line));
        start = end + 1;
    }
    return lines;
}

bool isBlank(const std::string& line) { return line.find_first_not_of(" \t") == std::string::npos; }

// Where each known column stands in the file's rows.
std::vector<size_t> readHeader(const std::vector<Cell>& header, const std::string& headerPlace) {
    const std::vector<std::string>& names = ReplayColumns();
    std::vector<size_t> positionOf(names.size(), std::numeric_limits<size_t>::max());
    for (size_t position = 0; position < header.size(); ++position) {
        const Cell& cell = header[position];
        const std::string name = lowered(cell.text);
        const auto known = std::find_if(names.begin(), names.end(), [&name](const std::string& n) {
            return lowered(n) == name;
        });
        const std::string place = headerPlace + ":" + std::to_string(cell.column) + ": ";
        if (known == names.end()) throw InputError(place + "unknown column '" + cell.text + "'");
        const size_t index = static_cast<size_t>(known - names.begin());
        if (positionOf[index] != std::numeric_limits<size_t>::max()) {
            throw InputError(place + "column '" + cell.text + "' appears twice");
        }
        positionOf[index] = position;
    }
    for (size_t index = 0; index < names.size(); ++index) {
        if (positionOf[index] == std::numeric_limits<size_t>::max()) {
            std::string expected;
            for (const std::string& n : names) expected += (expected.empty() ? "" : ",") + n;
            throw InputError(headerPlace + ": missing column '" + names[index] +
                             "' (the header names " + expected + ")");
        }
    }
    return positionOf;
}

// One tick row; `previous` is the tick before it, whose time it may not precede.
ReplayTick readTick(const std::vector<Cell>& cells, const std::vector<size_t>& positionOf,
                    const RowReader& row, const ReplayTick* previous) {
    const std::vector<std::string>& names = ReplayColumns();
    auto cell = [&](Column column) -> const Cell& { return cells[positionOf[column]]; };
    auto name = [&](Column column) -> const std::string& { return names[column]; };
    ReplayTick tick;
    tick.time_s = row.Real(cell(kTime), name(kTime));
    if (tick.time_s < 0.0) row.Fail(cell(kTime), name(kTime), "is negative");
    if (previous != nullptr && tick.time_s < previous->time_s) {
        row.Fail(cell(kTime), name(kTime), "is earlier than the row before it");
    }
    tick.ofps = static_cast<int>(row.Signed(cell(kOfps), name(kOfps), -1, 100000));
    tick.refreshRate_Hz =
        static_cast<int>(row.Signed(cell(kRefreshRate), name(kRefreshRate), 1, 1000));
    tick.current_uA =
        static_cast<std::uint32_t>(row.Unsigned(cell(kCurrent), name(kCurrent), 4294967295ULL));
    for (size_t cpu = 0; cpu < tick.cpuUtils.size(); ++cpu) {
        const auto column = static_cast<Column>(kCpu0 + cpu);
        tick.cpuUtils[cpu] =
            row.Unsigned(cell(column), name(column), std::numeric_limits<std::uint64_t>::max());
    }
    tick.temperature_mC = static_cast<std::uint32_t>(
        row.Unsigned(cell(kTemperature), name(kTemperature), 4294967295ULL));
    return tick;
}

}  // namespace

const std::vector<std::string>& ReplayColumns() {
    static const std::vector<std::string> columns = {"time_s",     "ofps", "refresh_rate_hz",
                                                     "current_uA", "cpu0", "cpu1",
                                                     "cpu2",       "cpu3", "temperature_mC"};
    return columns;
}

std::vector<ReplayTick> ParseReplayText(const std::string& text, const std::string& sourceName) {
    const std::vector<std::string> lines = readLines(text);
    size_t headerIndex = 0;
    while (headerIndex < lines.size() && isBlank(lines[headerIndex])) ++headerIndex;
    if (headerIndex == lines.size()) {
        throw InputError(sourceName + ": empty; expected a header line naming the columns");
    }
    const std::vector<Cell> header = splitLine(lines[headerIndex]);
    const std::string headerPlace = sourceName + ":" + std::to_string(headerIndex + 1);
    const std::vector<size_t> positionOf = readHeader(header, headerPlace);

    std::vector<ReplayTick> ticks;
    for (size_t i = headerIndex + 1; i < lines.size(); ++i) {
        if (isBlank(lines[i])) continue;
        const std::vector<Cell> cells = splitLine(lines[i]);
        if (cells.size() != header.size()) {
            throw InputError(sourceName + ":" + std::to_string(i + 1) + ": expected " +
                             std::to_string(header.size()) + " cells, got " +
                             std::to_string(cells.size()));
        }
        ticks.push_back(readTick(cells, positionOf, RowReader(sourceName, i + 1),
                                 ticks.empty() ? nullptr : &ticks.back()));
    }
    if (ticks.empty()) throw InputError(headerPlace + ": no tick rows after the header");
    return ticks;
}

std::vector<ReplayTick> LoadReplayFile(const std::string& path) {
    return ParseReplayText(ReadTextFile(path), path);
}

}  // namespace TalvexSim
