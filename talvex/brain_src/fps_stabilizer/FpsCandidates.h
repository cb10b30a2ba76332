#pragma once

#include <string>
#include <vector>

namespace android {
namespace FpsStabilizer {

// Reads a GFPS list such as "25-30-40-60-max" into ascending order, "max" standing for
// FASTEST_FPS_. All or nothing: a bad piece throws (Basics::InvalidArgumentException, or the
// conversion's std::invalid_argument for a piece that holds no number), so the caller keeps its
// previous list.
std::vector<int> ParseGfpsListFromString(const std::string& FPS_ARRAY_STR_, int FASTEST_FPS_);

// An SFPS list fits a GFPS list when both have the same, non-zero length and no SFPS element
// exceeds the GFPS element at its position.
bool IsSfpsCandidatesValid(const std::vector<int>& gfpsCandidates,
                           const std::vector<int>& sfpsCandidates);

}  // namespace FpsStabilizer
}  // namespace android
