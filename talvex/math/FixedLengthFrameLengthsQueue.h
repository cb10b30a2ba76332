#pragma once

#include <cstdint>
#include <string>

#include "talvex/math/FrameLengthRing.h"
#include "talvex/math/FrameLengthsAnalyzerBase.h"
#include "talvex/math/FrameQuota.h"

namespace Math {

// The last `length` frame lengths and their quota. The buffer is sized once, at construction:
// feeding a frame allocates nothing.
class FixedLengthFrameLengthsQueue : public FrameLengthsAnalyzerBase {
  public:
    // length is the capacity and should be at least 1.
    explicit FixedLengthFrameLengthsQueue(unsigned int length);

    // Frames with a length or rate that is not positive (or NaN) are ignored.
    void Update(float frameLength_s, float fps) override;
    float GetQuota() const override;
    int32_t GetEncryptedInfo() const override;
    bool IsLastFrameLong(float toleranceFPS) const override;
    // True once the queue holds `length` frames.
    bool IsReady() const override;
    void Reset() override;
    std::string GetDebugInfo() const override;

    // When the quota is below minus one period, forgives the whole periods of debt and keeps only
    // the remainder. Needs a frame accepted since the last Reset. Leaves the stored quota as it is.
    void fixQueueElementsAccordingToQuota(const QuotaInfo& info);
    // Frames held now, not the capacity.
    uint32_t GetLength() const;
    // NaN when empty.
    float CalculateAveragedFrameLength_s() const;

  private:
    uint32_t length;
    FrameLengthRing queueOfFrameLengths_s;
    int32_t targetFPS = -1;
    float quota_s = 0.0f;
    int32_t encryptedQuota = 0;
};

}  // namespace Math
