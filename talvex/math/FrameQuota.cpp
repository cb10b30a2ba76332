#include "talvex/math/FrameQuota.h"

#include <cmath>

#include "talvex/math/MathImpl.h"

namespace Math {
namespace {

template <typename Container>
QuotaInfo calculateQuota(const Container& frameLengths_s, float fps) {
    QuotaInfo info;
    const float sum_s = static_cast<float>(internal::SumInDouble(frameLengths_s));
    const float period_s = 1.0f / fps;
    const float count = static_cast<float>(static_cast<uint32_t>(frameLengths_s.size()));
    info.quota_s = period_s * count - sum_s;
    info.remainder_s = std::fmod(info.quota_s, period_s);
    info.encryptedQuota = EncryptQuotaToInt(info);
    return info;
}

// Whole milliseconds, magnitude clamped to 99. A NaN gives 0 and an infinity 99, as the
// saturating float-to-int conversion of the target processor does.
int packedMilliseconds(float value_s) {
    const float milliseconds = std::round(value_s * 1000.0f);
    if (std::isnan(milliseconds)) return 0;
    const float magnitude = std::fabs(milliseconds);
    return magnitude > 99.0f ? 99 : static_cast<int>(magnitude);
}

}  // namespace

QuotaInfo CalculateQuota(const std::deque<float>& frameLengths_s, float fps) {
    return calculateQuota(frameLengths_s, fps);
}

QuotaInfo CalculateQuota(const FrameLengthRing& frameLengths_s, float fps) {
    return calculateQuota(frameLengths_s, fps);
}

int EncryptQuotaToInt(const QuotaInfo& info) {
    const int sign = info.quota_s < 0.0f ? 1 : 0;
    return sign * 10000 + packedMilliseconds(info.quota_s) * 100 +
           packedMilliseconds(info.remainder_s);
}

}  // namespace Math
