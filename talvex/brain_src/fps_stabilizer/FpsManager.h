#pragma once

#include <memory>
#include <vector>

#include "talvex/brain_src/fps_stabilizer/SYS_INFO.h"
#include "talvex/user_settings/UserSetting.h"

namespace android {
namespace FpsStabilizer {

// Opens the DEBUG line that ends every tick, followed by the EFPS the tick settled on: the only
// place the manager states it, so hosts and tools that want it read it there.
inline constexpr char kFinalEfpsLinePrefix[] = "[FpsManager] Finally, EFPS = ";

// Decides, tick by tick, the frame rate one game is stabilized at and publishes it in the
// efps_max node. The host creates one manager per game process and calls Update then PostUpdate
// once per tick, from one thread at a time; settings may arrive on another thread. Nothing thrown
// inside a tick or while applying settings reaches the caller.
//
// No copy or move: the implementation's components are what the settings center's actions point
// at, and a moved-from manager would be a trap. Pause a manager before destroying it when the
// node should show the paused status.
class FpsManager {
  public:
    FpsManager(int pid, int screenRefreshRate);
    ~FpsManager();
    FpsManager(const FpsManager&) = delete;
    FpsManager& operator=(const FpsManager&) = delete;

    void Update(SYS_INFO const& info, int OFPS_, int SCREEN_REFRESH_RATE_);
    // Hands the tick's final EFPS back to the system information.
    void PostUpdate();
    // Writes "0,-1,-1" to the node and makes the settings center forget this game's settings.
    void OnPause();
    // Makes this manager's own PID current in the settings center; the argument is not used.
    void OnResume(int);
    void OnUserSettingParameters(
        std::shared_ptr<const std::vector<UserSettings::UserSetting>> const& settings);

    int GetGFPS() const;
    // Negated while the game's own rate is being explored below the refresh rate; -1 for none.
    int GetSFPS() const;

  private:
    class FpsManagerImpl;
    std::unique_ptr<FpsManagerImpl> impl;
};

}  // namespace FpsStabilizer
}  // namespace android
