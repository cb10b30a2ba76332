#pragma once

// Helpers shared by the sources of this folder; not installed, not part of the interface.

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "talvex/math/FrameLengthRing.h"
#include "talvex/math/FrameQuota.h"

namespace Math {
namespace internal {

template <typename Container>
double SumInDouble(const Container& frameLengths_s) {
    double sum_s = 0.0;
    for (float frameLength_s : frameLengths_s) sum_s += frameLength_s;
    return sum_s;
}

// Whether the newest frame lasted longer than one period at targetFPS lowered by the tolerance.
bool IsNewestFrameLong(const FrameLengthRing& frameLengths_s, int32_t targetFPS,
                       float toleranceFPS);

// Mean in double precision; NaN when empty.
float AveragedFrameLength_s(const FrameLengthRing& frameLengths_s);

// printf formats of the three debug messages, each with one %f.
struct ForgiveMessages {
    const char* veryLowQuota;
    const char* originalBack;
    const char* fixedBack;
};

// After a quota below minus one period at targetFPS: rewrites the window as whole periods plus a
// last frame that leaves only the remainder as quota, so that whole frames of debt are forgiven.
void ForgiveWholePeriods(FrameLengthRing& frameLengths_s, int32_t targetFPS, const QuotaInfo& info,
                         const ForgiveMessages& messages);

// Heading, the window, its sum, the rate, the expected duration and the quota, one per line.
std::string SlidingWindowDebugInfo(const char* heading, const FrameLengthRing& frameLengths_s,
                                   int32_t targetFPS, float quota_s);

}  // namespace internal
}  // namespace Math
