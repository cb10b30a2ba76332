#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "talvex/math/FrameLengthsAnalyzerBase.h"

namespace Math {

// A running quota over a window of frames that clears itself: as soon as the window's average
// rate is on target, or half a second's worth of frames after the last sign of a drop. Keeps no
// frame lengths, only sums, so a frame costs a few float operations and no allocation.
class ClearableFrameLengthsQueue : public FrameLengthsAnalyzerBase {
  public:
    ClearableFrameLengthsQueue() = default;

    void SetFastestFPS(float fps);

    // The frame length and the truncated rate are kept even when the frame is rejected for a
    // length or rate that is not positive (or NaN).
    void Update(float frameLength_s, float fps) override;
    // Clears the window when it is on target or its last drop is half a second old.
    void fixQueueElementsAccordingToQuota();
    bool isFrameLengthReasonable(float frameLength_s, float numberOfFrames) const;

    float GetQuota() const override;
    uint32_t GetQuotaCounts() const;
    // Always 0: this queue keeps no packed quota.
    int32_t GetEncryptedInfo() const override;
    bool IsReady() const override;
    bool IsLastFrameLong(float toleranceFPS) const override;
    void Reset() override;
    std::string GetDebugInfo() const override;

    static std::string GetDumpedFileHeader();
    // The row to write when there is no queue.
    static std::string GetDumpedFileEmptyContent();
    // count, average rate, lowest average rate and longest frame (ms), at 4 significant digits.
    std::string GetDumpedFileInfo() const;
    // The same row into a caller's buffer, without allocating; returns what snprintf returns.
    int FormatDumpedFileInfo(char* buffer, std::size_t size) const;

  private:
    float minFramesToClear = 10.0f;
    float upperQuotaPerFrame_s = 0.0005f;
    float lowerQuotaPerFrame_s = -0.0005f;
    float fastestFPS = 60.0f;
    float avgFPS = std::numeric_limits<float>::quiet_NaN();
    float minAvgFPS = std::numeric_limits<float>::infinity();
    float currentFrameLength = 0.0f;
    float maxFrameLength = -1.0f;
    int32_t targetFPS = -1;
    float totalQuota_s = 0.0f;
    uint32_t quotaCount = 0;
    uint32_t lastWorstCount = 0;
    int32_t encryptedQuota = 0;
};

}  // namespace Math
