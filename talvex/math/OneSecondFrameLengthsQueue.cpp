#include "talvex/math/OneSecondFrameLengthsQueue.h"

#include "talvex/basics/Conversions.h"
#include "talvex/math/MathImpl.h"

namespace Math {
namespace {

// Enough for a second at the fastest displays, so that the buffer rarely has to grow.
constexpr std::size_t kReservedFrames = 256;

}  // namespace

OneSecondFrameLengthsQueue::OneSecondFrameLengthsQueue() : queueOfFrameLengths_s(kReservedFrames) {}

void OneSecondFrameLengthsQueue::Update(float frameLength_s, float fps) {
    if (!(frameLength_s > 0.0f) || !(fps > 0.0f)) return;
    encryptedQuota = 0;
    queueOfFrameLengths_s.push_back(frameLength_s);
    targetFPS = Basics::SaturatingTruncate(fps);
    const std::size_t framesPerSecond = static_cast<uint32_t>(targetFPS);
    while (queueOfFrameLengths_s.size() > framesPerSecond) queueOfFrameLengths_s.pop_front();
    const QuotaInfo info = CalculateQuota(queueOfFrameLengths_s, static_cast<float>(targetFPS));
    quota_s = info.quota_s;
    encryptedQuota = info.encryptedQuota;
}

float OneSecondFrameLengthsQueue::GetQuota() const { return quota_s; }

int32_t OneSecondFrameLengthsQueue::GetEncryptedInfo() const { return encryptedQuota; }

bool OneSecondFrameLengthsQueue::IsLastFrameLong(float toleranceFPS) const {
    return internal::IsNewestFrameLong(queueOfFrameLengths_s, targetFPS, toleranceFPS);
}

bool OneSecondFrameLengthsQueue::IsReady() const {
    return static_cast<int64_t>(queueOfFrameLengths_s.size()) >= targetFPS;
}

void OneSecondFrameLengthsQueue::Reset() {
    queueOfFrameLengths_s.clear();
    targetFPS = -1;
    quota_s = 0.0f;
    encryptedQuota = 0;
}

std::string OneSecondFrameLengthsQueue::GetDebugInfo() const {
    return internal::SlidingWindowDebugInfo("In OneSecondFrameLengthsQueue:\n",
                                            queueOfFrameLengths_s, targetFPS, quota_s);
}

void OneSecondFrameLengthsQueue::fixQueueElementsAccordingToQuota(const QuotaInfo& info) {
    static constexpr internal::ForgiveMessages kMessages = {
        "[OneSecondFrameLengthsQueue][fixQueueElementsAccordingToQuota] Very Low quota = %f",
        "[OneSecondFrameLengthsQueue][fixQueueElementsAccordingToQuota] original queue.back() = %f",
        "[OneSecondFrameLengthsQueue][fixQueueElementsAccordingToQuota] fixed queue.back() = %f"};
    internal::ForgiveWholePeriods(queueOfFrameLengths_s, targetFPS, info, kMessages);
}

}  // namespace Math
