#include "talvex/brain_src/fps_stabilizer/SystemInfo.h"

#include "talvex/basics/Log.h"

namespace android {
namespace FpsStabilizer {

SystemInfo::SystemInfo()
    : loadingDetectorByMax(&LoadingDetector::ExtractCpuUtils_ByMaxAlgorithm),
      loadingDetectorBySum(&LoadingDetector::ExtractCpuUtils_BySumAlgorithm) {}

void SystemInfo::Update(SYS_INFO const& info, int ofps) {
    TALVEX_LOGD(
        "=======================================================================================");
    updateFrameLength();
    TALVEX_LOGD("[SystemInfo@Stabilizer] FrameLength = %f", frameLength_s * 1000);

    temperature_Celsius = static_cast<float>(static_cast<double>(info.temperature_mC) / 1000.0);
    electricCurrent_mA = static_cast<float>(static_cast<double>(info.electricCurrent_uA) / 1000.0);

    currentOFPS = ofps;
    // targetEFPS still holds the previous tick's final EFPS here.
    loadingDetectorByMax.Update(info, frameLength_s, static_cast<float>(targetEFPS),
                                static_cast<float>(ofps));
    loadingDetectorBySum.Update(info, frameLength_s, static_cast<float>(targetEFPS),
                                static_cast<float>(ofps));
    updateEFPS(info, ofps);
}

void SystemInfo::PostUpdate(int efps) {
    targetEFPS = efps;
    loadingDetectorByMax.PostUpdate(static_cast<float>(efps));
    loadingDetectorBySum.PostUpdate(static_cast<float>(efps));
}

void SystemInfo::OnResume() { lastTimestamp = Basics::TimePoint(); }

void SystemInfo::OnPause() { targetEFPS = -1; }

void SystemInfo::updateFrameLength() {
    const Basics::TimePoint now = Basics::Now();
    if (!Basics::IsDefaultTimestamp(lastTimestamp)) {
        frameLength_s = static_cast<float>((now - lastTimestamp).count()) / 1000000000.0f;
    }
    lastTimestamp = now;
}

void SystemInfo::updateEFPS(SYS_INFO const& /*info*/, int ofps) {
    const int oldEFPS = targetEFPS;
    currentOFPS = ofps;
    TALVEX_LOGD("[SystemInfo@Stabilizer]\t EFPS=%d, OFPS=%d", targetEFPS, currentOFPS);
    if (currentOFPS >= oldEFPS) {
        TALVEX_LOGD(
            "[SystemInfo@Stabilizer]\t targetEFPS is change from %d to %d due to "
            "LoadingHeavy.",
            oldEFPS, currentOFPS);
        targetEFPS = currentOFPS;
    } else if (loadingDetectorByMax.IsLoadingVeryLight() ||
               loadingDetectorBySum.IsLoadingVeryLight()) {
        TALVEX_LOGD(
            "[SystemInfo@Stabilizer]\t targetEFPS is change from %d to %d due to "
            "LoadingVeryLight.",
            oldEFPS, currentOFPS);
        targetEFPS = currentOFPS;
    }
    TALVEX_LOGD("[SystemInfo@Stabilizer] Finally, EFPS = %d", targetEFPS);
}

}  // namespace FpsStabilizer
}  // namespace android
