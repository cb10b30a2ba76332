#pragma once

#include <cstdint>
#include <deque>

#include "talvex/math/FrameLengthRing.h"

namespace Math {

// Over a run of frames: the time they should have taken at the target rate minus the time they
// took. Positive means time in hand, negative time owed.
struct QuotaInfo {
    float quota_s = 0.0f;
    // The part of the quota smaller than one frame period, with the sign of the quota.
    float remainder_s = 0.0f;
    // Both floats packed as the decimal SQQRR; see EncryptQuotaToInt.
    int32_t encryptedQuota = 0;
};

// The frame lengths are summed front to back in double precision.
QuotaInfo CalculateQuota(const std::deque<float>& frameLengths_s, float fps);
QuotaInfo CalculateQuota(const FrameLengthRing& frameLengths_s, float fps);

// S * 10000 + QQ * 100 + RR: S is 1 for a negative quota, QQ and RR are the quota and the
// remainder in whole milliseconds, magnitudes clamped to 99 so that each keeps two digits.
int EncryptQuotaToInt(const QuotaInfo& info);

}  // namespace Math
