#pragma once

#include <cstdint>
#include <string>

namespace Math {

// What every frame-length queue offers: fed one frame at a time with the target rate it was
// produced against, it tells how far the recent frames are ahead of (or behind) that rate.
// Frame lengths in seconds, rates in frames per second.
class FrameLengthsAnalyzerBase {
  public:
    virtual void Update(float frameLength_s, float fps) = 0;
    // Seconds; positive when the frames came faster than the target.
    virtual float GetQuota() const = 0;
    // The quota packed by EncryptQuotaToInt, or 0 where a queue keeps none.
    virtual int32_t GetEncryptedInfo() const = 0;
    virtual bool IsLastFrameLong(float toleranceFPS) const = 0;
    // Whether enough frames were seen for the quota to mean something.
    virtual bool IsReady() const = 0;
    virtual void Reset() = 0;
    virtual std::string GetDebugInfo() const = 0;
    virtual ~FrameLengthsAnalyzerBase();
};

}  // namespace Math
