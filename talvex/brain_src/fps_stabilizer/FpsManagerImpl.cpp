#include "talvex/brain_src/fps_stabilizer/FpsManagerImpl.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <limits>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/basics/Trace.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace android {
namespace FpsStabilizer {
namespace {

const std::vector<std::string> SET_LOG_LEVEL_COMMANDS = {"set_loglevel", "log_level", "LogLevel"};
const std::vector<std::string> SET_DEBUG_COMMANDS = {"set_debug", "debug_mode", "DebugMode"};
const std::vector<std::string> USE_LOWER_BOUND_TO_STABILIZE_KEYS = {"use_lower_bound_to_stabilize",
                                                                    "lower_bound_stabilize"};
const char* const kStabilizerCategory = "stabilizer";
const char* const kBasicsCategory = "basics";

bool isOneOf(const std::vector<std::string>& commands, const std::string& text) {
    return std::find(commands.begin(), commands.end(), text) != commands.end();
}

UserSettings::UserSettingsCenter& settingsCenter() {
    return UserSettings::UserSettingsCenter::GetInstance();
}

void setLogLevel(const std::string& value) {
    int level = Basics::Log::LogLevel();
    Basics::ConvertStringToValue(value, level);
    Basics::Log::SetLogLevel(level);
    TALVEX_LOGI("[FpsManager] Set LogLevel = %d", Basics::Log::LogLevel());
}

void setDebugMode(const std::string& value) {
    bool debug = Basics::Log::IsDebug();
    Basics::ConvertStringToValue(value, debug);
    Basics::Log::SetDebug(debug);
    TALVEX_LOGI("[FpsManager] Set DebugMode = %d", Basics::Log::IsDebug() ? 1 : 0);
}

}  // namespace

FpsManager::FpsManagerImpl::FpsManagerImpl(int pid, int screenRefreshRate)
    : pid(pid),
      defaultFrameStabilizedInfo("0,-1,-1"),
      efpsMaxDevice(Basics::NodeDirectory() + "/efps_max"),
      screenRefreshRate(screenRefreshRate) {
    try {
        settingsCenter().OnCurrentBrainResume(pid);
        gfpsExplorer = std::make_unique<GfpsExplorer>();
        createLateObjects(screenRefreshRate);
        initDictionaryOfUserSettingActions();
        settingsCenter().SetActionsOwner(pid, this);
    } catch (...) {
        // Whatever registered already points into an object that will never be complete.
        forgetUserSettings();
        throw;
    }
}

FpsManager::FpsManagerImpl::~FpsManagerImpl() {
    try {
        settingsCenter().ReleaseActionsOf(pid, this);
    } catch (...) {
        // The center reports its own failures; a destructor has nowhere to send one.
    }
}

void FpsManager::FpsManagerImpl::createLateObjects(int screenRefreshRate) {
    gfpsEvaluator = std::make_shared<GfpsEvaluator>(screenRefreshRate);
    sfpsDeciderByTemperature = std::make_shared<SfpsDeciderAccordingToTemperature>();
    sfpsDeciderByElectricCurrent = std::make_shared<SfpsDeciderAccordingToElectricCurrent>();
}

void FpsManager::FpsManagerImpl::initDictionaryOfUserSettingActions() {
    for (const std::string& key : USE_LOWER_BOUND_TO_STABILIZE_KEYS) {
        settingsCenter().RegisterUserSetting(
            key, [this](const std::string& value) { SetDoesUseLowerBoundToStabilize(value); },
            kStabilizerCategory);
    }
}

void FpsManager::FpsManagerImpl::forgetUserSettings() {
    try {
        settingsCenter().OnCurrentBrainDie(pid);
    } catch (...) {
        // The center reports its own failures; the constructor rethrows what made it fail.
    }
}

void FpsManager::FpsManagerImpl::Update(SYS_INFO const& info, int OFPS_, int SCREEN_REFRESH_RATE_) {
    TALVEX_TRACE_SCOPE("FpsManager::Update()");
    TALVEX_LOGD("[FpsManager][Update] OFPS_=%d, SCREEN_REFRESH_RATE_=%d", OFPS_,
                SCREEN_REFRESH_RATE_);
    screenRefreshRate = SCREEN_REFRESH_RATE_;
    try {
        updateEFPS(info, OFPS_);
        updateGFPS();
        const int sfps = determineSFPS();
        updateSFPS(sfps);
        updateFrameStabilizedInfoToNode();
    } catch (const std::exception& error) {
        TALVEX_LOGE("[FpsManager][Update] Error occur while updating:\n%s", error.what());
    } catch (...) {
        TALVEX_LOGE("[FpsManager][Update] Unkown Error is thrown while updating...");
    }
}

void FpsManager::FpsManagerImpl::PostUpdate() { systemInfo.PostUpdate(currentEFPS); }

void FpsManager::FpsManagerImpl::OnPause() {
    efpsMaxDevice.SetTargetStatus(defaultFrameStabilizedInfo);
    settingsCenter().OnCurrentBrainDie(pid);
}

void FpsManager::FpsManagerImpl::OnResume(int) { settingsCenter().OnCurrentBrainResume(pid); }

void FpsManager::FpsManagerImpl::updateEFPS(SYS_INFO const& info, int ofps) {
    if (gfpsExplorer->GetStatus() == GfpsExplorer::Finishing) {
        ofps = gfpsExplorer->EstimateFPS();
        TALVEX_LOGD("[FpsManager][updateEFPS] send EXPLORED_FPS=%d as OFPS", ofps);
    }
    systemInfo.Update(info, ofps);
    currentEFPS = systemInfo.GetEFPS();
}

void FpsManager::FpsManagerImpl::updateGFPS() {
    gfpsEvaluator->Update(currentEFPS, screenRefreshRate);
    const int nearest = gfpsEvaluator->GetNearestGFPS();
    if (nearest != currentGFPS) {
        sfpsDeciderByTemperature->Pause();
        sfpsDeciderByElectricCurrent->Reset();
        currentGFPS = nearest;
    }
    if (nearest >= 1) {
        TALVEX_LOGD("[SystemInfo]\t before assign the GFPS(=%d) to the EFPS(=%d)", currentGFPS,
                    currentEFPS);
        currentEFPS = currentGFPS;
    }
}

int FpsManager::FpsManagerImpl::determineSFPS() {
    sfpsLowerBound = gfpsEvaluator->GetSfpsLowerBound();
    if (sfpsLowerBound == -1) return -1;
    sfpsDeciderByTemperature->Update(currentGFPS, sfpsLowerBound,
                                     systemInfo.GetTemperature_Celsius());
    sfpsDeciderByElectricCurrent->Update(currentGFPS, sfpsLowerBound,
                                         systemInfo.GetElectricCurrent_mA());
    if (sfpsDeciderByTemperature->IsActivated()) return sfpsDeciderByTemperature->GetSFPS();
    if (sfpsDeciderByElectricCurrent->IsActivated()) return sfpsDeciderByElectricCurrent->GetSFPS();
    return -1;
}

void FpsManager::FpsManagerImpl::updateSFPS(int sfps) {
    // A decision after a tick without one starts a fresh exploration.
    if (sfps >= 1 && currentSFPS == -1) gfpsExplorer->Reset();

    if (doesUseLowerBoundToStabilize.load()) {
        currentSFPS = sfpsLowerBound;
    } else {
        currentSFPS = sfps;
        if (sfps >= 1 && !isExploring()) {
            currentEFPS = std::min(currentEFPS, currentSFPS);
            TALVEX_LOGD("[FpsManager]\t after truncate by SFPS, EFPS =%d", currentEFPS);
        }
    }

    const GfpsExplorer::Status status = gfpsExplorer->GetStatus();
    const bool isCollecting =
        status == GfpsExplorer::Exploring || status == GfpsExplorer::Finishing;
    gfpsExplorer->Update(currentGFPS, isCollecting ? systemInfo.GetFrameLength_s()
                                                   : std::numeric_limits<float>::quiet_NaN());

    if (Basics::IsTraceEnabled()) {
        const int reported = currentSFPS < 1 ? 0 : (isExploring() ? -1 : currentSFPS);
        atrace_int(TALVEX_TRACE_TAG, "AI SFPS", reported);
    }
    if (Basics::Log::IsDebug() && TALVEX_LOG_ENABLED_D()) {
        TALVEX_LOGD("[FpsManager][updateSFPS] In deciding Stabilized FPS:\n%s",
                    explainSfpsDecision().c_str());
    }
    TALVEX_LOGD("%s%d", kFinalEfpsLinePrefix, currentEFPS);
}

std::string FpsManager::FpsManagerImpl::explainSfpsDecision() const {
    using Basics::ToString;
    const SfpsDeciderAccordingToTemperature& byTemperature = *sfpsDeciderByTemperature;
    const SfpsDeciderAccordingToElectricCurrent& byCurrent = *sfpsDeciderByElectricCurrent;
    std::string text = gfpsEvaluator->GetDebugInfo();
    text += "\t sfpsDeciderByTemperature\n";
    text += "\t\t temperature = " + ToString(systemInfo.GetTemperature_Celsius()) + "\n";
    text += "\t\t IsActivated() = " + ToString(byTemperature.IsActivated()) + "\n";
    text += "\t\t GetSFPS() = " + ToString(byTemperature.GetSFPS()) + "\n";
    text += "\t sfpsDeciderByElectricCurrent\n";
    text += "\t\t electricCurrent_mA = " + ToString(systemInfo.GetElectricCurrent_mA()) + "\n";
    text += "\t\t IsActivated() = " + ToString(byCurrent.IsActivated()) + "\n";
    text += "\t\t GetSFPS() = " + ToString(byCurrent.GetSFPS()) + "\n";
    text += "\n\t Summarize over SfpsDecider, currentSFPS = " + ToString(currentSFPS) + "\n";
    text += "\t GfpsExplorer:\n";
    text += "\t\t status = " + ToString(static_cast<int>(gfpsExplorer->GetStatus())) + "\n";
    text += "\t\t GfpsEvaluator.IsMaxGFPS() = " + ToString(gfpsEvaluator->IsMaxGFPS(currentGFPS)) +
            "\n";
    text += "\t\t EstimateFPS() = " + ToString(gfpsExplorer->EstimateFPS()) + "\n";
    text += "\t\t GFPS before Explorer = " + ToString(gfpsExplorer->GetGfpsBeforeExplore()) + "\n";
    text += "\n\t Finally, FpsManager::GetSFPS() = " + ToString(GetSFPS()) + "\n";
    return text;
}

void FpsManager::FpsManagerImpl::updateFrameStabilizedInfoToNode() {
    // Three ints fit a buffer on the stack. The std::string it is passed as allocates once the
    // text outgrows the short-string buffer: 10 characters in 32-bit libc++, so a five-digit PID.
    char text[3 * 12];
    std::snprintf(text, sizeof(text), "%d,%d,%d", pid, GetSFPS(), currentGFPS);
    efpsMaxDevice.SetTargetStatus(text);
    efpsMaxDevice.Update();
}

bool FpsManager::FpsManagerImpl::isExploring() const {
    const GfpsExplorer::Status status = gfpsExplorer->GetStatus();
    return !gfpsEvaluator->IsMaxGFPS(currentGFPS) && currentGFPS < screenRefreshRate &&
           (status == GfpsExplorer::Exploring || status == GfpsExplorer::Finishing);
}

int FpsManager::FpsManagerImpl::GetSFPS() const {
    if (currentSFPS < 1) return currentSFPS;
    return isExploring() ? -currentSFPS : currentSFPS;
}

void FpsManager::FpsManagerImpl::OnUserSettingParameters(
    std::shared_ptr<const std::vector<UserSettings::UserSetting>> const& settings) {
    if (!settings) return;
    for (const UserSettings::UserSetting& setting : *settings) applyUserSetting(setting);
}

// A record that fails is reported on its own and the list goes on.
void FpsManager::FpsManagerImpl::applyUserSetting(UserSettings::UserSetting const& setting) const {
    try {
        if (isOneOf(UserSettings::PRINT_CANDIDATES_COMMANDS, setting.category)) {
            settingsCenter().PrintUserSettingCandidates();
        } else if (isOneOf(UserSettings::PRINT_RECORDS_COMMANDS, setting.category)) {
            settingsCenter().PrintUserSettingRecords(pid);
        } else if (setting.category == kBasicsCategory &&
                   isOneOf(SET_LOG_LEVEL_COMMANDS, setting.key)) {
            setLogLevel(setting.value);
        } else if (setting.category == kBasicsCategory &&
                   isOneOf(SET_DEBUG_COMMANDS, setting.key)) {
            setDebugMode(setting.value);
        } else {
            settingsCenter().OnUserSettingParameter(setting);
        }
    } catch (const std::exception& error) {
        TALVEX_LOGE(
            "[FpsManager][OnUserSettingParameters] Error occur while applying %s/%s = '%s':\n%s",
            setting.category.c_str(), setting.key.c_str(), setting.value.c_str(), error.what());
    } catch (...) {
        TALVEX_LOGE(
            "[FpsManager][OnUserSettingParameters] Unkown Error is thrown while applying %s/%s",
            setting.category.c_str(), setting.key.c_str());
    }
}

void FpsManager::FpsManagerImpl::SetDoesUseLowerBoundToStabilize(std::string const& value) {
    if (UserSettings::IsResetCommand(value)) {
        doesUseLowerBoundToStabilize.store(false);
        TALVEX_LOGI("[FpsManager]\t Reset doesUseLowerBoundToStabilize to %d",
                    doesUseLowerBoundToStabilize.load() ? 1 : 0);
        return;
    }
    int number = -1;
    Basics::ConvertStringToValue(value, number);
    if (static_cast<unsigned int>(number) > 1u) {
        TALVEX_THROW(InvalidArgumentException,
                     "\nError occur while FpsManager::SetDoesUseLowerBoundToStabilize():\n"
                     "Invalid target value: '" +
                         value +
                         "'\n"
                         "\t The target value should be either 0 or 1\n");
    }
    doesUseLowerBoundToStabilize.store(number != 0);
    TALVEX_LOGI("[FpsManager]\t Set doesUseLowerBoundToStabilize to %d",
                doesUseLowerBoundToStabilize.load() ? 1 : 0);
}

}  // namespace FpsStabilizer
}  // namespace android
