#pragma once

#include <cstdint>
#include <string>

#include "talvex/math/FrameLengthsAnalyzerBase.h"

namespace Math {

// The quota of spans of half a second: a span counts frames until their lengths add up to half a
// second, and restarts early at a frame too long to be reasonable. Keeps only sums.
class HalfSecondFrameLengthsQueue : public FrameLengthsAnalyzerBase {
  public:
    HalfSecondFrameLengthsQueue() = default;

    void SetFastestFPS(float fps);

    // Frames with a length or rate that is not positive (or NaN) are ignored.
    void Update(float frameLength_s, float fps) override;
    float GetQuota() const override;
    // Always 0: this queue keeps no packed quota.
    int32_t GetEncryptedInfo() const override;
    bool IsLastFrameLong(float toleranceFPS) const override;
    bool IsReady() const override;
    void Reset() override;
    std::string GetDebugInfo() const override;

    bool isLongFrame(float frameLength_s, float fps) const;
    // Twice what is left of a second of fps frames when all the others run at the fastest rate.
    float calculateMaxReasonableFrameLength(float fps) const;
    // Ends the span once it holds half a second.
    void fixQueueElementsAccordingToFrameLengths();

    static std::string GetDumpedFileHeader();
    // The row to write when there is no queue.
    static std::string GetDumpedFileEmptyContent();
    std::string GetDumpedFileInfo() const;

  private:
    float sumOfFrameLengths_s = 0.0f;
    uint32_t numberOfFrames = 0;
    float fastestFPS = 60.0f;
    int32_t targetFPS = -1;
    float quota_s = 0.0f;
    float lastFrameLength = 0.0f;
    int32_t encryptedQuota = 0;
};

}  // namespace Math
