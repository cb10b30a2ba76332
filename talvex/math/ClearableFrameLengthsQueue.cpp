#include "talvex/math/ClearableFrameLengthsQueue.h"

#include <cmath>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/FixedText.h"
#include "talvex/math/MathImpl.h"

namespace Math {

void ClearableFrameLengthsQueue::SetFastestFPS(float fps) { fastestFPS = fps; }

void ClearableFrameLengthsQueue::Update(float frameLength_s, float fps) {
    currentFrameLength = frameLength_s;
    targetFPS = Basics::SaturatingTruncate(fps);
    if (!(frameLength_s > 0.0f) || !(fps > 0.0f)) return;

    ++quotaCount;
    encryptedQuota = 0;
    const double period_s = 1.0 / fps;
    totalQuota_s += static_cast<float>(period_s - frameLength_s);
    const float meanQuota_s = totalQuota_s / static_cast<float>(quotaCount);
    // The integer target here, the exact rate for the bounds.
    avgFPS = 1.0f / static_cast<float>(1.0 / targetFPS - meanQuota_s);
    upperQuotaPerFrame_s = static_cast<float>(period_s - 1.0 / (fps + 0.5));
    lowerQuotaPerFrame_s = static_cast<float>(period_s - 1.0 / (fps - 0.5));
    fixQueueElementsAccordingToQuota();
}

void ClearableFrameLengthsQueue::fixQueueElementsAccordingToQuota() {
    float count = static_cast<float>(quotaCount);
    const bool onTarget = minFramesToClear <= count &&
                          lowerQuotaPerFrame_s <= totalQuota_s / count &&
                          totalQuota_s / count <= upperQuotaPerFrame_s;
    if (onTarget) {
        Reset();
        count = static_cast<float>(quotaCount);
    } else if (static_cast<float>(targetFPS) - avgFPS > 5.0) {
        if (avgFPS <= minAvgFPS) {
            if (currentFrameLength > maxFrameLength) maxFrameLength = currentFrameLength;
            minAvgFPS = avgFPS;
            lastWorstCount = quotaCount;
        } else if (currentFrameLength >= maxFrameLength) {
            maxFrameLength = currentFrameLength;
            lastWorstCount = quotaCount;
        }
    }
    // Evaluated on the cleared window too.
    const float expiry = static_cast<float>(lastWorstCount + targetFPS * 0.5);
    if (count >= expiry) Reset();
}

bool ClearableFrameLengthsQueue::isFrameLengthReasonable(float frameLength_s,
                                                         float numberOfFrames) const {
    const float otherFrames = numberOfFrames - 1.0f;
    return static_cast<float>(1.0 - static_cast<double>(otherFrames) / fastestFPS) >= frameLength_s;
}

float ClearableFrameLengthsQueue::GetQuota() const { return totalQuota_s; }

uint32_t ClearableFrameLengthsQueue::GetQuotaCounts() const { return quotaCount; }

int32_t ClearableFrameLengthsQueue::GetEncryptedInfo() const { return encryptedQuota; }

bool ClearableFrameLengthsQueue::IsReady() const { return true; }

bool ClearableFrameLengthsQueue::IsLastFrameLong(float toleranceFPS) const {
    if (targetFPS < 1) return false;
    return currentFrameLength > 1.0f / (static_cast<float>(targetFPS) - toleranceFPS);
}

void ClearableFrameLengthsQueue::Reset() {
    maxFrameLength = 0.0f;
    avgFPS = 0.0f;
    minAvgFPS = std::numeric_limits<float>::infinity();
    totalQuota_s = 0.0f;
    quotaCount = 0;
    lastWorstCount = 0;
    encryptedQuota = 0;
}

std::string ClearableFrameLengthsQueue::GetDebugInfo() const {
    return "In ClearableFrameLengthsQueue:\n"
           "\t EFPS = " +
           Basics::ToString(targetFPS) +
           "\n\t currentFrameLength = " + Basics::ToString(currentFrameLength) +
           "\n\t totalQuota_s = " + Basics::ToString(totalQuota_s) + "\n";
}

std::string ClearableFrameLengthsQueue::GetDumpedFileHeader() {
    return "quota_count,quota_avgFPS,quota_minAvgFPS,quota_maxFrameLength";
}

std::string ClearableFrameLengthsQueue::GetDumpedFileEmptyContent() { return "-1,nan,nan,nan"; }

std::string ClearableFrameLengthsQueue::GetDumpedFileInfo() const {
    char row[96];
    FormatDumpedFileInfo(row, sizeof(row));
    return row;
}

int ClearableFrameLengthsQueue::FormatDumpedFileInfo(char* buffer, std::size_t size) const {
    // What a stream at precision 4 prints, except that a NaN is "nan" whatever its sign bit.
    Basics::FixedText text(buffer, size);
    text.Append(static_cast<std::int64_t>(quotaCount));
    for (float value : {avgFPS, minAvgFPS, maxFrameLength * 1000.0f}) {
        text.Append(',');
        text.AppendGeneral4(value);
    }
    return text.Finish();
}

}  // namespace Math
