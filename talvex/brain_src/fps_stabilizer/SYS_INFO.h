#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace android {
namespace FpsStabilizer {

// The host's per-tick record. The host owns the layout and may fill it byte-wise, so only the
// offsets of the fields read here are fixed; the gaps and whatever follows the last field are the
// host's. Both 32-bit readings are unsigned: a value the host means as negative reads as huge.
struct SYS_INFO {
    std::uint32_t hostField0;
    std::uint32_t electricCurrent_uA;
    std::uint32_t hostFields1[8];
    // Utilisation of four CPU groups; only their order and "larger means busier" matter here.
    std::uint64_t cpuUtils[4];
    std::uint32_t temperature_mC;
};

static_assert(std::is_standard_layout<SYS_INFO>::value && std::is_trivial<SYS_INFO>::value,
              "SYS_INFO is shared with the host as raw bytes");
static_assert(offsetof(SYS_INFO, electricCurrent_uA) == 4, "electric current at byte 4");
static_assert(offsetof(SYS_INFO, cpuUtils[0]) == 40, "CPU utilisation reading 0 at byte 40");
static_assert(offsetof(SYS_INFO, cpuUtils[1]) == 48, "CPU utilisation reading 1 at byte 48");
static_assert(offsetof(SYS_INFO, cpuUtils[2]) == 56, "CPU utilisation reading 2 at byte 56");
static_assert(offsetof(SYS_INFO, cpuUtils[3]) == 64, "CPU utilisation reading 3 at byte 64");
static_assert(offsetof(SYS_INFO, temperature_mC) == 72, "temperature at byte 72");
static_assert(sizeof(SYS_INFO) >= 76, "the host's record is at least 76 bytes");

}  // namespace FpsStabilizer
}  // namespace android
