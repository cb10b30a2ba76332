#include "talvex/math/HalfSecondFrameLengthsQueue.h"

#include "talvex/basics/Conversions.h"
#include "talvex/math/MathImpl.h"

namespace Math {

void HalfSecondFrameLengthsQueue::SetFastestFPS(float fps) { fastestFPS = fps; }

void HalfSecondFrameLengthsQueue::Update(float frameLength_s, float fps) {
    if (!(frameLength_s > 0.0f) || !(fps > 0.0f)) return;
    encryptedQuota = 0;
    // The long frame opens a new span and is counted in it.
    if (isLongFrame(frameLength_s, fps)) Reset();

    ++numberOfFrames;
    const double expected_s = static_cast<double>(numberOfFrames) / fps;
    sumOfFrameLengths_s += frameLength_s;
    lastFrameLength = frameLength_s;
    targetFPS = Basics::SaturatingTruncate(fps);
    quota_s = static_cast<float>(expected_s - sumOfFrameLengths_s);
    fixQueueElementsAccordingToFrameLengths();
}

float HalfSecondFrameLengthsQueue::GetQuota() const { return quota_s; }

int32_t HalfSecondFrameLengthsQueue::GetEncryptedInfo() const { return encryptedQuota; }

bool HalfSecondFrameLengthsQueue::IsLastFrameLong(float toleranceFPS) const {
    if (targetFPS < 1) return false;
    return lastFrameLength > 1.0f / (static_cast<float>(targetFPS) - toleranceFPS);
}

bool HalfSecondFrameLengthsQueue::IsReady() const { return true; }

void HalfSecondFrameLengthsQueue::Reset() {
    encryptedQuota = 0;
    targetFPS = -1;
    quota_s = 0.0f;
    sumOfFrameLengths_s = 0.0f;
    numberOfFrames = 0;
}

bool HalfSecondFrameLengthsQueue::isLongFrame(float frameLength_s, float fps) const {
    return calculateMaxReasonableFrameLength(fps) <= frameLength_s;
}

float HalfSecondFrameLengthsQueue::calculateMaxReasonableFrameLength(float fps) const {
    const float othersAtFastest_s = (fps - 1.0f) * (-1.0f / fastestFPS);
    return static_cast<float>(2.0 * (1.0 + othersAtFastest_s));
}

void HalfSecondFrameLengthsQueue::fixQueueElementsAccordingToFrameLengths() {
    if (sumOfFrameLengths_s >= 0.5f) Reset();
}

std::string HalfSecondFrameLengthsQueue::GetDumpedFileHeader() {
    return "egl_quota_nFrames,egl_quota_frameSum";
}

std::string HalfSecondFrameLengthsQueue::GetDumpedFileEmptyContent() { return "nan,nan"; }

std::string HalfSecondFrameLengthsQueue::GetDumpedFileInfo() const {
    return Basics::ToString(numberOfFrames) + "," + Basics::ToString(sumOfFrameLengths_s);
}

std::string HalfSecondFrameLengthsQueue::GetDebugInfo() const {
    using Basics::ToString;
    const double expected_ms = numberOfFrames * 1000.0 / targetFPS;
    const float maxFrameLength_ms =
        calculateMaxReasonableFrameLength(static_cast<float>(targetFPS)) * 1000.0f;
    std::string text = "In HalfSecondFrameLengthsQueue:\n";
    text += "\t sumOfFrameLengths_s = " + ToString(sumOfFrameLengths_s * 1000.0f) + " (ms)\n";
    text += "\t numberOfFrames = " + ToString(numberOfFrames) + "\n";
    text += "\t EFPS = " + ToString(targetFPS) + "\n";
    text += "\t SUM_OF_EXPECTED_PERIODS = " + ToString(expected_ms) + " (ms)\n";
    text += "\t quota = " + ToString(quota_s * 1000.0f) + " (ms)\n";
    text += "\t lastFrameLength = " + ToString(lastFrameLength * 1000.0f) + " (ms)\n";
    text += "\t MAX_FRAME_LENGTHS_S = " + ToString(maxFrameLength_ms) + " (ms)\n";
    return text;
}

}  // namespace Math
