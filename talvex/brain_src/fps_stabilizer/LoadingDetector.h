#pragma once

#include <cstdint>
#include <deque>
#include <functional>

#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"
#include "talvex/math/FixedLengthFrameLengthsQueue.h"

namespace android {
namespace FpsStabilizer {

// Tells whether a drop of the observed frame rate below the EFPS comes from the game asking for
// less work rather than from the device falling behind. It learns the CPU utilisation of ticks
// that run exactly at the EFPS and reports very light loading once the utilisation stays below
// what it learned; with nothing learned it falls back on how long one frame rate has lasted.
class LoadingDetector {
  public:
    using CpuUtilsExtractor = std::function<unsigned long long(SYS_INFO const&)>;

    explicit LoadingDetector(CpuUtilsExtractor&& extractCpuUtils);

    // frameLength_s: time since the previous tick; efps: the EFPS in force before this tick's
    // decision. Throws std::bad_function_call when built with an empty extractor.
    void Update(SYS_INFO const& info, float frameLength_s, float efps, float ofps);
    // A final EFPS other than the one given to the last Update forgets what was learned.
    void PostUpdate(float efps);
    bool IsLoadingVeryLight() const { return isLoadingVeryLight; }

    static unsigned long long ExtractCpuUtils_ByMaxAlgorithm(SYS_INFO const& info);
    static unsigned long long ExtractCpuUtils_BySumAlgorithm(SYS_INFO const& info);

  private:
    void updateParameters(float cpuUtil, bool isQuotaPositive);
    bool determineIfLoadingVeryLight(float cpuUtil, bool isQuotaPositive);
    void reset();

    const std::uint32_t ofpsQueueCapacity = 1000;
    const std::uint32_t cpuUtilQueueCapacity = 350;
    // The newest samples were taken just before the game left the EFPS and are not trusted.
    const std::uint32_t numOfDiscardedCpuUtils = 50;
    const std::uint64_t cpuUtilThreshold = 10;
    CpuUtilsExtractor extractCpuUtils;
    Math::FixedLengthFrameLengthsQueue frameLengthsQueue{4};
    int lastEFPS = -1;
    std::deque<std::uint64_t> cpuUtilQueue;
    // One run of equal OFPS values.
    std::deque<int> ofpsQueue;
    std::uint64_t minCpuUtil = UINT64_MAX;
    const std::uint32_t counterThreshold = 4;
    std::uint32_t counter = 0;
    bool isLoadingVeryLight = false;
};

}  // namespace FpsStabilizer
}  // namespace android
