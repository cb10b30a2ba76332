#pragma once

#include <cstdint>
#include <optional>

namespace TalvexSim {

// The process's resident memory, for the summary of long runs; nothing where the kernel does
// not say (no /proc).
struct ResidentMemory {
    std::uint64_t current_bytes = 0;
    std::uint64_t peak_bytes = 0;
};

std::optional<ResidentMemory> ReadResidentMemory();

}  // namespace TalvexSim
