#include "talvex/math/MathImpl.h"

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"

namespace Math {
namespace internal {

bool IsNewestFrameLong(const FrameLengthRing& frameLengths_s, int32_t targetFPS,
                       float toleranceFPS) {
    if (targetFPS < 1 || frameLengths_s.empty()) return false;
    return frameLengths_s.back() > 1.0f / (static_cast<float>(targetFPS) - toleranceFPS);
}

float AveragedFrameLength_s(const FrameLengthRing& frameLengths_s) {
    return static_cast<float>(SumInDouble(frameLengths_s) /
                              static_cast<double>(frameLengths_s.size()));
}

void ForgiveWholePeriods(FrameLengthRing& frameLengths_s, int32_t targetFPS, const QuotaInfo& info,
                         const ForgiveMessages& messages) {
    const float period_s = static_cast<float>(1.0 / static_cast<double>(targetFPS));
    if (!(info.quota_s < -period_s)) return;
    TALVEX_LOGD(messages.veryLowQuota, info.quota_s);
    if (!frameLengths_s.empty()) TALVEX_LOGD(messages.originalBack, frameLengths_s.back());

    const std::size_t count = frameLengths_s.size();
    frameLengths_s.clear();
    for (std::size_t i = 1; i < count; ++i) frameLengths_s.push_back(period_s);
    frameLengths_s.push_back(period_s - info.remainder_s);
    TALVEX_LOGD(messages.fixedBack, frameLengths_s.back());
}

std::string SlidingWindowDebugInfo(const char* heading, const FrameLengthRing& frameLengths_s,
                                   int32_t targetFPS, float quota_s) {
    const float sum_s = static_cast<float>(SumInDouble(frameLengths_s));
    const double expected_s =
        1.0 / targetFPS * static_cast<double>(static_cast<uint32_t>(frameLengths_s.size()));
    std::string text = heading;
    text += "\t queueOfFrameLengths_s = " + Basics::ContainerToString(frameLengths_s, 10) + "\n";
    text += "\t sumOfCurrentFrameLength = " + Basics::ToString(sum_s) + "\n";
    text += "\t EFPS = " + Basics::ToString(targetFPS) + "\n";
    text +=
        "\t SUM_OF_EXPECTED_PERIODS = " + Basics::ToString(static_cast<float>(expected_s)) + "\n";
    text += "\t quota = " + Basics::ToString(quota_s) + "\n";
    return text;
}

}  // namespace internal
}  // namespace Math
