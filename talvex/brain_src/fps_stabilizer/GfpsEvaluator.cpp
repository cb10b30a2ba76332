#include "talvex/brain_src/fps_stabilizer/GfpsEvaluator.h"

#include <cstddef>
#include <exception>
#include <utility>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsCandidates.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace android {
namespace FpsStabilizer {
namespace {

const char* const kSettingCategory = "stabilizer";

// Gap between two neighbouring candidates below which the upper one is taken from 5 frames per
// second above the lower one; wider gaps need 10.
constexpr int kNarrowGap = 20;
constexpr int kNarrowStep = 5;
constexpr int kWideStep = 10;

}  // namespace

GfpsEvaluator::GfpsEvaluator(int FASTEST_FPS_) : FASTEST_FPS_(FASTEST_FPS_) {
    initDictionaryOfUserSettingActions();
}

void GfpsEvaluator::initDictionaryOfUserSettingActions() {
    auto& center = UserSettings::UserSettingsCenter::GetInstance();
    for (const char* key : {"gfps", "efps"}) {
        center.RegisterUserSetting(
            key, [this](const std::string& value) { SetGfpsCandidates(value); }, kSettingCategory);
    }
    for (const char* key : {"sfps_lower_bound", "sfps", "ofps_max"}) {
        center.RegisterUserSetting(
            key, [this](const std::string& value) { SetSfpsLowerBoundCandidates(value); },
            kSettingCategory);
    }
}

void GfpsEvaluator::Update(int currentEFPS, int FASTEST_FPS_) {
    std::lock_guard<std::mutex> guard(lock);
    this->currentEFPS = currentEFPS;
    this->FASTEST_FPS_ = FASTEST_FPS_;
    try {
        updateGFPS();
        updateSfpsLowerBound();
    } catch (const std::exception& e) {
        TALVEX_LOGE("[GfpsEvaluator][Update] Error occur while updating:\n%s", e.what());
    } catch (...) {
        TALVEX_LOGE("[GfpsEvaluator][Update] Unkown Error is thrown while updating...");
    }
}

void GfpsEvaluator::updateGFPS() {
    const std::vector<int>& candidates = LIST_OF_GFPS_CANDIDATES;
    const int efps = currentEFPS;
    if (candidates.empty()) {
        indexOfNearestGFPS = -1;
        nearestGFPS = -1;
        return;
    }

    bool matched = true;
    int matchedValue = -1;
    if (efps <= candidates.front()) {
        indexOfNearestGFPS = 0;
        matchedValue = candidates.front();
    } else if (efps >= candidates.back()) {
        indexOfNearestGFPS = static_cast<int>(candidates.size()) - 1;
        matchedValue = candidates.back();
    } else {
        // Every pair that brackets the EFPS is looked at and the last one decides, so an EFPS
        // equal to an inner candidate maps to that candidate.
        matched = false;
        for (std::size_t k = 0; k + 1 < candidates.size(); ++k) {
            // 64-bit: a candidate near the largest int must not overflow lower + step.
            const long long lower = candidates[k];
            const long long upper = candidates[k + 1];
            if (efps < lower || efps > upper) continue;
            const int step = upper - lower < kNarrowGap ? kNarrowStep : kWideStep;
            const std::size_t index = efps < lower + step ? k : k + 1;
            indexOfNearestGFPS = static_cast<int>(index);
            matchedValue = candidates[index];
            matched = true;
        }
    }

    if (matched && matchedValue >= 1) {
        nearestGFPS = matchedValue;
        return;
    }
    nearestGFPS = matched ? matchedValue : -1;
    try {
        const std::string text =
            "Error occur while finding nearestGFPS:\n"
            "\t Unexpected case happend:\n"
            "\t\t this->currentEFPS = " +
            Basics::ToString<int>(efps) + "\n" +
            "\t\t LIST_OF_GFPS_CANDIDATES = " + Basics::ContainerToString(candidates, 10) + "\n";
        TALVEX_LOGE("[GfpsEvaluator][updateGFPS] %s", text.c_str());
    } catch (const std::exception& e) {
        TALVEX_LOGW("[GfpsEvaluator][updateGFPS] Failed to find nearest GFPS:%s", e.what());
    } catch (...) {
        TALVEX_LOGW("[GfpsEvaluator][updateGFPS] Unkown error occur while finding nearest GFPS.");
    }
}

void GfpsEvaluator::updateSfpsLowerBound() {
    if (LIST_OF_GFPS_CANDIDATES.empty() || LIST_OF_SFPS_CANDIDATES.empty() ||
        LIST_OF_SFPS_CANDIDATES.size() != LIST_OF_GFPS_CANDIDATES.size()) {
        SFPS_LOWER_BOUND = -1;
        return;
    }
    // at(): a stale index is reported by Update rather than read out of bounds.
    SFPS_LOWER_BOUND = LIST_OF_SFPS_CANDIDATES.at(static_cast<std::size_t>(indexOfNearestGFPS));
}

bool GfpsEvaluator::IsMaxGFPS(int gfps) const {
    // Locked, unlike the other getters: a setter may be replacing the list right now.
    std::lock_guard<std::mutex> guard(lock);
    return LIST_OF_GFPS_CANDIDATES.empty() || LIST_OF_GFPS_CANDIDATES.back() == gfps;
}

std::string GfpsEvaluator::GetDebugInfo() const {
    return "SFPS_LOWER_BOUND = " + Basics::ToString<int>(SFPS_LOWER_BOUND) + "\n" +
           "\t currentEFPS = " + Basics::ToString<int>(currentEFPS) + "\n" +
           "\t indexOfNearestGFPS = " + Basics::ToString<int>(indexOfNearestGFPS) + "\n";
}

void GfpsEvaluator::SetGfpsCandidates(const std::string& value) {
    std::lock_guard<std::mutex> guard(lock);
    if (UserSettings::IsResetCommand(value)) {
        LIST_OF_GFPS_CANDIDATES.clear();
        LIST_OF_SFPS_CANDIDATES.clear();
        indexOfNearestGFPS = -1;
        SFPS_LOWER_BOUND = -1;
        TALVEX_LOGI("[GfpsEvaluator] Reset LIST_OF_GFPS_CANDIDATES to empty");
        return;
    }
    LIST_OF_GFPS_CANDIDATES = ParseGfpsListFromString(value, FASTEST_FPS_);
    TALVEX_LOGI("[GfpsEvaluator] Set LIST_OF_GFPS_CANDIDATES to: %s",
                Basics::ContainerToString(LIST_OF_GFPS_CANDIDATES, 10).c_str());
}

void GfpsEvaluator::SetSfpsLowerBoundCandidates(const std::string& value) {
    std::lock_guard<std::mutex> guard(lock);
    if (UserSettings::IsResetCommand(value)) {
        LIST_OF_SFPS_CANDIDATES.clear();
        SFPS_LOWER_BOUND = -1;
        TALVEX_LOGI("[GfpsEvaluator] Reset LIST_OF_SFPS_CANDIDATES to empty");
        return;
    }
    std::vector<int> candidates = Basics::SplitStringToInt(value, '-');
    if (!IsSfpsCandidatesValid(LIST_OF_GFPS_CANDIDATES, candidates)) {
        TALVEX_THROW(InvalidArgumentException,
                     std::string("\nError occur while ") +
                         "GfpsEvaluator::SetSfpsLowerBoundCandidates():\n" +
                         "\t The input may be invalid.\n" + "\t\t input: '" + value + "'\n" +
                         "\t\t converted array = " + Basics::ContainerToString(candidates, 10) +
                         "\n" + "\t Please check if the input is valid.\n" +
                         "\t Note: SFPS[i] must <= GFPS[i].\n" +
                         "\t Note: if you don't want to CompressFPS at a certain GFPS,\n" +
                         "\t       you can specified it by '0'.\n" + "\t Example: 0-58-85\n");
    }
    LIST_OF_SFPS_CANDIDATES = std::move(candidates);
    truncateSfpsCandidates();
    SFPS_LOWER_BOUND = -1;
    TALVEX_LOGI("[GfpsEvaluator] Set LIST_OF_SFPS_CANDIDATES to: %s",
                Basics::ContainerToString(LIST_OF_SFPS_CANDIDATES, 10).c_str());
}

// An EFPS held below the midpoint to the next smaller candidate would be taken for that smaller
// GFPS on the next tick, so a lower bound is raised to the midpoint.
void GfpsEvaluator::truncateSfpsCandidates() {
    std::vector<int>& sfps = LIST_OF_SFPS_CANDIDATES;
    const std::vector<int>& gfps = LIST_OF_GFPS_CANDIDATES;
    for (std::size_t i = 1; i < sfps.size(); ++i) {
        if (sfps[i] < 1) continue;
        const int allowedMinValue =
            static_cast<int>((static_cast<long long>(gfps[i - 1]) + gfps[i]) / 2);
        if (allowedMinValue <= sfps[i]) continue;
        if (TALVEX_LOG_ENABLED_I()) {
            const std::string note = "Note: at setting index = " + Basics::ToString(i) +
                                     ", with targetSFPS = " + Basics::ToString<int>(sfps[i]) +
                                     "\n" + "\t Unable to adopt this setting due to the " +
                                     "allowedMinValue = " + Basics::ToString<int>(allowedMinValue) +
                                     "\n" + "\t Truncate it by allowedMinValue anyway.\n";
            TALVEX_LOGI("[GfpsEvaluator][SetSfpsLowerBoundCandidates]\t %s", note.c_str());
        }
        sfps[i] = allowedMinValue;
    }
}

}  // namespace FpsStabilizer
}  // namespace android
