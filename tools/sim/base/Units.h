#pragma once

#include <cmath>
#include <cstdint>

namespace TalvexSim {

// The loop keeps time in whole nanoseconds, as the library's clock does; models and outputs
// speak seconds and milliseconds.
inline std::int64_t SecondsToNs(double seconds) { return std::llround(seconds * 1e9); }
inline std::int64_t MillisecondsToNs(double milliseconds) {
    return std::llround(milliseconds * 1e6);
}
inline double NsToSeconds(std::int64_t ns) { return static_cast<double>(ns) / 1e9; }

}  // namespace TalvexSim
