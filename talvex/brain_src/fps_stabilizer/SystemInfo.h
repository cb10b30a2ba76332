#pragma once

#include <limits>

#include "talvex/basics/Clock.h"
#include "talvex/brain_src/fps_stabilizer/LoadingDetector.h"
#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"

namespace android {
namespace FpsStabilizer {

// Turns each tick's record and observed frame rate into what the FPS manager decides on: the time
// between ticks, temperature, current and the EFPS, the rate taken as the game's own target. The
// EFPS follows the OFPS up at once but down only when the load is very light, so that a device
// that cannot keep up does not talk the game's target down.
class SystemInfo {
  public:
    SystemInfo();

    // Throws what a loading detector throws; the fields updated before stay updated.
    void Update(SYS_INFO const& info, int ofps);
    // Adopts the manager's final EFPS of the tick.
    void PostUpdate(int efps);

    int GetEFPS() const { return targetEFPS; }
    int GetCurrentOFPS() const { return currentOFPS; }
    float GetFrameLength_s() const { return frameLength_s; }
    float GetTemperature_Celsius() const { return temperature_Celsius; }
    float GetElectricCurrent_mA() const { return electricCurrent_mA; }

    // The next tick only stamps the time.
    void OnResume();
    void OnPause();

  private:
    void updateFrameLength();
    void updateEFPS(SYS_INFO const& info, int ofps);

    LoadingDetector loadingDetectorByMax;
    LoadingDetector loadingDetectorBySum;
    Basics::TimePoint lastTimestamp;
    float frameLength_s = -1.0f;
    int targetEFPS = -1;
    int currentOFPS = -1;
    float temperature_Celsius = std::numeric_limits<float>::quiet_NaN();
    float electricCurrent_mA = std::numeric_limits<float>::quiet_NaN();
};

}  // namespace FpsStabilizer
}  // namespace android
