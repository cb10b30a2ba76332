#include "talvex/brain_src/fps_stabilizer/LoadingDetector.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"

namespace android {
namespace FpsStabilizer {
namespace {

// Saturates: out of range (or NaN) the conversion would be undefined.
std::uint64_t truncateToCpuUtil(float value) {
    if (!(value > 0.0f)) return 0;
    if (value >= 18446744073709551616.0f) return UINT64_MAX;
    return static_cast<std::uint64_t>(value);
}

// The low 32 bits read as signed, so that the untouched minimum prints as -1.
int lowBitsAsInt(std::uint64_t value) {
    return static_cast<int>(static_cast<std::uint32_t>(value));
}

}  // namespace

LoadingDetector::LoadingDetector(CpuUtilsExtractor&& extractCpuUtils)
    : extractCpuUtils(std::move(extractCpuUtils)) {}

unsigned long long LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm(SYS_INFO const& info) {
    unsigned long long maxCpuUtil = info.cpuUtils[0];
    for (int i = 1; i < 4; ++i) {
        if (maxCpuUtil < info.cpuUtils[i]) maxCpuUtil = info.cpuUtils[i];
    }
    return maxCpuUtil;
}

unsigned long long LoadingDetector::ExtractCpuUtils_BySumAlgorithm(SYS_INFO const& info) {
    unsigned long long sum = 0;
    for (std::uint64_t cpuUtil : info.cpuUtils) sum += cpuUtil;
    return sum;
}

void LoadingDetector::Update(SYS_INFO const& info, float frameLength_s, float efps, float ofps) {
    frameLengthsQueue.Update(frameLength_s, ofps);

    const unsigned long long cpuUtil = extractCpuUtils(info);
    if (cpuUtil > cpuUtilThreshold) {
        const float cpuUtilF = static_cast<float>(cpuUtil);
        const bool isQuotaPositive = frameLengthsQueue.GetQuota() > 0.0f;
        if (efps == ofps) {
            updateParameters(cpuUtilF, isQuotaPositive);
            isLoadingVeryLight = false;
        } else {
            isLoadingVeryLight = determineIfLoadingVeryLight(cpuUtilF, isQuotaPositive);
        }
    }

    if (!ofpsQueue.empty() && static_cast<float>(ofpsQueue.back()) != ofps) ofpsQueue.clear();
    ofpsQueue.push_back(Basics::SaturatingTruncateNanToMinusOne(ofps));
    while (ofpsQueue.size() > ofpsQueueCapacity) ofpsQueue.pop_front();

    lastEFPS = Basics::SaturatingTruncateNanToMinusOne(efps);
}

void LoadingDetector::PostUpdate(float efps) {
    if (static_cast<float>(lastEFPS) != efps) reset();
}

void LoadingDetector::updateParameters(float cpuUtil, bool isQuotaPositive) {
    // Only ticks that kept up with their frame rate say what the game needs.
    if (!isQuotaPositive) return;
    const std::uint64_t cpuUtilU = truncateToCpuUtil(cpuUtil);
    if (static_cast<float>(minCpuUtil) > cpuUtil) minCpuUtil = cpuUtilU;
    cpuUtilQueue.push_back(cpuUtilU);
    while (cpuUtilQueue.size() > cpuUtilQueueCapacity) cpuUtilQueue.pop_front();
}

bool LoadingDetector::determineIfLoadingVeryLight(float cpuUtil, bool isQuotaPositive) {
    TALVEX_LOGD("[SystemInfo][LoadingDetector] currentCpuUtil = %f", cpuUtil);
    TALVEX_LOGD("[SystemInfo][LoadingDetector] \t minCpuUtil = %d", lowBitsAsInt(minCpuUtil));

    if (static_cast<float>(minCpuUtil) > cpuUtil) {
        TALVEX_LOGD("[SystemInfo][LoadingDetector] \t CpuUtil is lower than Global Min");
        return true;
    }

    if (cpuUtilQueue.empty()) {
        if (ofpsQueue.empty()) return false;
        // Both still hold the previous tick's values here.
        const long long difference = static_cast<long long>(ofpsQueue.back()) - lastEFPS;
        if (difference == 0) return false;
        const unsigned long long needed =
            ofpsQueueCapacity / static_cast<unsigned long long>(std::llabs(difference));
        if (ofpsQueue.size() < needed) return false;
        TALVEX_LOGD("[SystemInfo][LoadingDetector] \t Queue max size (= %zu ) is reached.",
                    static_cast<std::size_t>(needed));
        return true;
    }

    while (cpuUtilQueue.size() > cpuUtilQueueCapacity - numOfDiscardedCpuUtils) {
        cpuUtilQueue.pop_back();
    }
    const std::uint64_t localMinCpuUtil =
        *std::min_element(cpuUtilQueue.begin(), cpuUtilQueue.end());
    TALVEX_LOGD("[SystemInfo][LoadingDetector] \t localMinCpuUtil = %d",
                lowBitsAsInt(localMinCpuUtil));
    const float localMin = static_cast<float>(localMinCpuUtil);
    if (localMin > cpuUtil) {
        ++counter;
        TALVEX_LOGD("[SystemInfo][LoadingDetector] \t ++counter = %zu",
                    static_cast<std::size_t>(counter));
    } else if (localMin < cpuUtil && isQuotaPositive) {
        counter = 0;
        TALVEX_LOGD("[SystemInfo][LoadingDetector] \t reset counter");
    }
    if (counter >= counterThreshold) {
        TALVEX_LOGD(
            "[SystemInfo][LoadingDetector] \t CpuUtil is lower than Load Min & counts enough.");
        return true;
    }
    return false;
}

void LoadingDetector::reset() {
    minCpuUtil = INT32_MAX;
    counter = 0;
    cpuUtilQueue.clear();
    ofpsQueue.clear();
    isLoadingVeryLight = false;
}

}  // namespace FpsStabilizer
}  // namespace android
