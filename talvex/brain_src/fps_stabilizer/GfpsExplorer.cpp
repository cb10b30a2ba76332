#include "talvex/brain_src/fps_stabilizer/GfpsExplorer.h"

#include <cmath>
#include <limits>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace android {
namespace FpsStabilizer {
namespace {

const char* const kSettingCategory = "stabilizer";

// First lines of a setter's refusal; the hint follows.
std::string refusalOf(const char* setter, const std::string& value) {
    return std::string("\nError occur while GfpsExplorer::") + setter +
           "():\nInvalid target value: '" + value + "'\n";
}

// Halves away from zero. A zero-length frame gives an infinite rate, which an int cannot hold
// (the conversion would be undefined), so it saturates; NaN is unknown.
int roundToInt(double value) { return Basics::SaturatingTruncateNanToMinusOne(std::round(value)); }

}  // namespace

GfpsExplorer::GfpsExplorer() : statusStartTime(Basics::Now()) {
    initDictionaryOfUserSettingActions();
}

void GfpsExplorer::initDictionaryOfUserSettingActions() {
    auto& center = UserSettings::UserSettingsCenter::GetInstance();
    for (const char* key : {"explore_duration_ms", "ExploreDuration_ms", "ex_du"}) {
        center.RegisterUserSetting(
            key, [this](const std::string& value) { SetExploreDuration_ms(value); },
            kSettingCategory);
    }
    for (const char* key : {"explore_buffer_size", "ExploreBufferSize", "ex_buf"}) {
        center.RegisterUserSetting(
            key, [this](const std::string& value) { SetBufferSize(value); }, kSettingCategory);
    }
}

double GfpsExplorer::elapsed_ms() const {
    return Basics::ElapsedMs(statusStartTime, Basics::Now());
}

bool GfpsExplorer::collect(float FRAME_LENGTH_S_, const char* statusName) {
    if (std::isnan(FRAME_LENGTH_S_)) {
        TALVEX_LOGW(
            "[GfpsExplorer][Update] Error occur while Status=%s:\n"
            "\t The input FRAME_LENGTH_S_ is NAN!\nPlease check the code logic.\n",
            statusName);
        return false;
    }
    arrayOfFrameLengths_s.push_back(FRAME_LENGTH_S_);
    return true;
}

void GfpsExplorer::Update(int currentGFPS, float FRAME_LENGTH_S_) {
    switch (status) {
        case Waiting:
            if (elapsed_ms() >= EXPLORE_DURATION_MS.load()) status = Exploring;
            gfpsBeforeExplore = currentGFPS;
            break;
        case Exploring:
            if (collect(FRAME_LENGTH_S_, "Exploring") &&
                BUFFER_SIZE.load() <= arrayOfFrameLengths_s.size()) {
                statusStartTime = Basics::Now();
                status = Finishing;
            }
            break;
        case Finishing:
            if (collect(FRAME_LENGTH_S_, "Finishing") && elapsed_ms() >= FINISHING_DURATION_MS) {
                status = Finished;
            }
            // The game went back to the rate it had before: nothing left to measure.
            if (gfpsBeforeExplore == currentGFPS) {
                TALVEX_LOGD(
                    "[GfpsExplorer][Update] reset the gfpsExplorer due to currentGFPS(=%d) == "
                    "gfpsBeforeExplore",
                    currentGFPS);
                Reset();
            }
            break;
        case Finished:
            Reset();
            break;
        default:
            TALVEX_LOGW(
                "[GfpsExplorer][Update] You may add a new Status but NOT Implement yet:\n"
                "\t Unimplemented Status='%d'\nPlease check the code logic.\n",
                static_cast<int>(status));
            break;
    }
}

void GfpsExplorer::Reset() {
    statusStartTime = Basics::Now();
    status = Waiting;
    gfpsBeforeExplore = -1;
    arrayOfFrameLengths_s.clear();
}

int GfpsExplorer::EstimateFPS() const {
    const std::size_t count = arrayOfFrameLengths_s.size();
    if (count == 0) return -1;
    const std::size_t first = count >= 2 ? 1 : 0;
    double sum = 0.0;
    for (std::size_t i = first; i < count; ++i) sum += arrayOfFrameLengths_s[i];
    const float mean_s = static_cast<float>(sum / static_cast<double>(count - first));
    const int result = roundToInt(1.0 / static_cast<double>(mean_s));

    if (Basics::Log::IsDebug() && TALVEX_LOG_ENABLED_D()) {
        std::string text = "In EstimateFPS:\n";
        if (count < 11) {
            text += "\t arrayOfFrameLengths_s = \n" +
                    Basics::ContainerToString(arrayOfFrameLengths_s, 10);
        }
        text += "\t result = " + Basics::ToString<int>(result) + "\n";
        TALVEX_LOGD("[GfpsExplorer][EstimateFPS] %s", text.c_str());
    }
    return result;
}

void GfpsExplorer::SetExploreDuration_ms(const std::string& value) {
    if (UserSettings::IsResetCommand(value)) {
        EXPLORE_DURATION_MS = DEFAULT_EXPLORE_DURATION_MS.load();
        TALVEX_LOGI("[GfpsExplorer]\t Reset EXPLORE_DURATION_MS to %f",
                    static_cast<double>(EXPLORE_DURATION_MS.load()));
        return;
    }
    float duration_ms = -1.0f;
    Basics::ConvertStringToValue(value, duration_ms);
    if (!(duration_ms > 0.0f)) {
        TALVEX_THROW(InvalidArgumentException,
                     refusalOf("SetExploreDuration_ms", value) +
                         "\t The target value should be larger than '0'\n");
    }
    EXPLORE_DURATION_MS = duration_ms;
    TALVEX_LOGI("[GfpsExplorer]\t Set EXPLORE_DURATION_MS to %f", static_cast<double>(duration_ms));
}

void GfpsExplorer::SetBufferSize(const std::string& value) {
    if (UserSettings::IsResetCommand(value)) {
        BUFFER_SIZE = DEFAULT_BUFFER_SIZE.load();
        TALVEX_LOGI("[GfpsExplorer]\t Reset BUFFER_SIZE to %d",
                    static_cast<int>(BUFFER_SIZE.load()));
        return;
    }
    unsigned int size = 0;
    Basics::ConvertStringToValue(value, size);
    if (size < 2) {
        TALVEX_THROW(
            InvalidArgumentException,
            refusalOf("SetBufferSize", value) + "\t The target value should be larger than '1'\n");
    }
    // One more is stored; the largest unsigned value (also what "-1" reads as) would wrap to 0.
    if (size == std::numeric_limits<unsigned int>::max()) {
        TALVEX_THROW(InvalidArgumentException, refusalOf("SetBufferSize", value) +
                                                   "\t The target value should be smaller than '" +
                                                   Basics::ToString(size) + "'\n");
    }
    BUFFER_SIZE = size + 1;
    TALVEX_LOGI("[GfpsExplorer]\t Set BUFFER_SIZE to %d", static_cast<int>(size + 1));
}

}  // namespace FpsStabilizer
}  // namespace android
