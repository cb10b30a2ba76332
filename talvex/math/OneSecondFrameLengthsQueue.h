#pragma once

#include <cstdint>
#include <string>

#include "talvex/math/FrameLengthRing.h"
#include "talvex/math/FrameLengthsAnalyzerBase.h"
#include "talvex/math/FrameQuota.h"

namespace Math {

// The last second's worth of frames at the target rate, and their quota: the window holds as
// many frames as the integer target rate of the newest frame, so it follows the target. The
// buffer grows only past the most frames it ever held.
class OneSecondFrameLengthsQueue : public FrameLengthsAnalyzerBase {
  public:
    OneSecondFrameLengthsQueue();

    // Frames with a length or rate that is not positive (or NaN) are ignored.
    void Update(float frameLength_s, float fps) override;
    float GetQuota() const override;
    int32_t GetEncryptedInfo() const override;
    bool IsLastFrameLong(float toleranceFPS) const override;
    // True once a second's worth of frames is held; also on an empty queue with no target yet.
    bool IsReady() const override;
    void Reset() override;
    std::string GetDebugInfo() const override;

    // When the quota is below minus one period, forgives the whole periods of debt and keeps only
    // the remainder. Needs a frame accepted since the last Reset. Leaves the stored quota as it is.
    void fixQueueElementsAccordingToQuota(const QuotaInfo& info);

  private:
    FrameLengthRing queueOfFrameLengths_s;
    int32_t targetFPS = -1;
    float quota_s = 0.0f;
    int32_t encryptedQuota = 0;
};

}  // namespace Math
