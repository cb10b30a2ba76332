#include "talvex/brain_src/fps_stabilizer/FpsManager.h"

#include "talvex/brain_src/fps_stabilizer/FpsManagerImpl.h"

namespace android {
namespace FpsStabilizer {

FpsManager::FpsManager(int pid, int screenRefreshRate)
    : impl(std::make_unique<FpsManagerImpl>(pid, screenRefreshRate)) {}

FpsManager::~FpsManager() = default;

void FpsManager::Update(SYS_INFO const& info, int OFPS_, int SCREEN_REFRESH_RATE_) {
    impl->Update(info, OFPS_, SCREEN_REFRESH_RATE_);
}

void FpsManager::PostUpdate() { impl->PostUpdate(); }

void FpsManager::OnPause() { impl->OnPause(); }

void FpsManager::OnResume(int pid) { impl->OnResume(pid); }

void FpsManager::OnUserSettingParameters(
    std::shared_ptr<const std::vector<UserSettings::UserSetting>> const& settings) {
    impl->OnUserSettingParameters(settings);
}

int FpsManager::GetGFPS() const { return impl->GetGFPS(); }

int FpsManager::GetSFPS() const { return impl->GetSFPS(); }

}  // namespace FpsStabilizer
}  // namespace android
