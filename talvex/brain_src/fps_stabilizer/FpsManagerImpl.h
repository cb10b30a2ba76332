#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "talvex/basics/CharacterDevice.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/brain_src/fps_stabilizer/GfpsEvaluator.h"
#include "talvex/brain_src/fps_stabilizer/GfpsExplorer.h"
#include "talvex/brain_src/fps_stabilizer/SfpsDecider.h"
#include "talvex/brain_src/fps_stabilizer/SystemInfo.h"

namespace android {
namespace FpsStabilizer {

// The components register their setting actions while the game's PID is current in the settings
// center, so that everything they offer is filed under that PID; the evaluator, the deciders and
// the explorer are therefore created in the constructor's body, after the PID became current.
// The actions point into this object: unless a pause or a newer manager for the same PID already
// took them out of the center, the destructor makes the center forget them before the components
// go.
class FpsManager::FpsManagerImpl {
  public:
    FpsManagerImpl(int pid, int screenRefreshRate);
    ~FpsManagerImpl();
    FpsManagerImpl(const FpsManagerImpl&) = delete;
    FpsManagerImpl& operator=(const FpsManagerImpl&) = delete;

    void Update(SYS_INFO const& info, int OFPS_, int SCREEN_REFRESH_RATE_);
    void PostUpdate();
    void OnPause();
    void OnResume(int);
    void OnUserSettingParameters(
        std::shared_ptr<const std::vector<UserSettings::UserSetting>> const& settings);

    int GetGFPS() const { return currentGFPS; }
    int GetSFPS() const;

    void SetDoesUseLowerBoundToStabilize(std::string const& value);

  private:
    void createLateObjects(int screenRefreshRate);
    void initDictionaryOfUserSettingActions();
    void forgetUserSettings();

    void updateEFPS(SYS_INFO const& info, int ofps);
    void updateGFPS();
    int determineSFPS();
    void updateSFPS(int sfps);
    void updateFrameStabilizedInfoToNode();
    bool isExploring() const;
    std::string explainSfpsDecision() const;

    void applyUserSetting(UserSettings::UserSetting const& setting) const;

    int pid;
    std::string defaultFrameStabilizedInfo;
    Basics::CharacterDevice efpsMaxDevice;
    SystemInfo systemInfo;
    std::shared_ptr<GfpsEvaluator> gfpsEvaluator;
    int currentEFPS = -1;
    int currentGFPS = -1;
    int sfpsLowerBound = -1;
    std::shared_ptr<SfpsDeciderAccordingToTemperature> sfpsDeciderByTemperature;
    std::shared_ptr<SfpsDeciderAccordingToElectricCurrent> sfpsDeciderByElectricCurrent;
    int currentSFPS = -1;
    int screenRefreshRate;
    std::unique_ptr<GfpsExplorer> gfpsExplorer;
    std::atomic<bool> doesUseLowerBoundToStabilize{false};
};

}  // namespace FpsStabilizer
}  // namespace android
