#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace TalvexSim {

// What the library did through one fault event of a scenario, for the session report.
struct FaultOutcome {
    std::string type;    // "sensor_fault", "node_fault", "host_stall", "settings_storm"
    std::string detail;  // e.g. "temperature nan", "efps_max read_only", "20/s, 30% invalid"
    std::string where;   // "file:line:column" of the event
    double at_s = 0.0;
    double duration_s = 0.0;
    std::uint64_t ticks = 0;              // host ticks that went on during the event
    std::uint64_t frames = 0;             // frames that went on during the event
    std::uint64_t escapedExceptions = 0;  // exceptions out of a library call (must stay 0)
    std::size_t errors = 0;               // ERROR messages of the library during the event
    std::size_t warnings = 0;             // WARN messages of the library during the event
    // First host tick after the event at which efps_max again held the manager's text;
    // nothing when it never did.
    std::optional<double> nodeRestored_s;
};

}  // namespace TalvexSim
