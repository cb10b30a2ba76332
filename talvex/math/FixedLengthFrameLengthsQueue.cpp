#include "talvex/math/FixedLengthFrameLengthsQueue.h"

#include <algorithm>

#include "talvex/basics/Conversions.h"
#include "talvex/math/MathImpl.h"

namespace Math {
namespace {

// Room for length + 1 frames, since a frame is appended before the oldest is dropped. An absurd
// length is not reserved up front; the buffer then grows with the frames actually held.
std::size_t reservedFrames(uint32_t length) {
    constexpr uint32_t kMostReserved = 4096;
    return std::size_t{std::min(length, kMostReserved)} + 1;
}

}  // namespace

FixedLengthFrameLengthsQueue::FixedLengthFrameLengthsQueue(unsigned int length)
    : length(length), queueOfFrameLengths_s(reservedFrames(length)) {}

void FixedLengthFrameLengthsQueue::Update(float frameLength_s, float fps) {
    if (!(frameLength_s > 0.0f) || !(fps > 0.0f)) return;
    encryptedQuota = 0;
    queueOfFrameLengths_s.push_back(frameLength_s);
    targetFPS = Basics::SaturatingTruncate(fps);
    while (queueOfFrameLengths_s.size() > length) queueOfFrameLengths_s.pop_front();
    const QuotaInfo info = CalculateQuota(queueOfFrameLengths_s, static_cast<float>(targetFPS));
    quota_s = info.quota_s;
    encryptedQuota = info.encryptedQuota;
}

float FixedLengthFrameLengthsQueue::GetQuota() const { return quota_s; }

int32_t FixedLengthFrameLengthsQueue::GetEncryptedInfo() const { return encryptedQuota; }

bool FixedLengthFrameLengthsQueue::IsLastFrameLong(float toleranceFPS) const {
    return internal::IsNewestFrameLong(queueOfFrameLengths_s, targetFPS, toleranceFPS);
}

bool FixedLengthFrameLengthsQueue::IsReady() const {
    return queueOfFrameLengths_s.size() >= length;
}

void FixedLengthFrameLengthsQueue::Reset() {
    queueOfFrameLengths_s.clear();
    targetFPS = -1;
    quota_s = 0.0f;
    encryptedQuota = 0;
}

std::string FixedLengthFrameLengthsQueue::GetDebugInfo() const {
    return internal::SlidingWindowDebugInfo("In FixedLengthFrameLengthsQueue:\n",
                                            queueOfFrameLengths_s, targetFPS, quota_s);
}

void FixedLengthFrameLengthsQueue::fixQueueElementsAccordingToQuota(const QuotaInfo& info) {
    static constexpr internal::ForgiveMessages kMessages = {
        "[FixedLengthFrameLengthsQueue][fixQueueElementsAccordingToQuota] Very Low quota = %f",
        "[FixedLengthFrameLengthsQueue][fixQueueElementsAccordingToQuota] original queue.back() = "
        "%f",
        "[FixedLengthFrameLengthsQueue[fixQueueElementsAccordingToQuota] fixed queue.back() = %f"};
    internal::ForgiveWholePeriods(queueOfFrameLengths_s, targetFPS, info, kMessages);
}

uint32_t FixedLengthFrameLengthsQueue::GetLength() const {
    return static_cast<uint32_t>(queueOfFrameLengths_s.size());
}

float FixedLengthFrameLengthsQueue::CalculateAveragedFrameLength_s() const {
    return internal::AveragedFrameLength_s(queueOfFrameLengths_s);
}

}  // namespace Math
