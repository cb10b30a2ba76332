#include "talvex/brain_src/fps_stabilizer/SfpsDecider.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"
#include "talvex/user_settings/UserSettingsCenter.h"

// The balanced SFPS is defined by separately rounded float steps; a fused multiply-add would
// round once and move the result at the halves (51.5 becoming 51.4999...).
#if defined(__clang__)
#pragma STDC FP_CONTRACT OFF
#endif

namespace android {
namespace FpsStabilizer {
namespace {

using namespace SfpsDeciderSettings;

constexpr float DEFAULT_TIME_TO_STAY_IN_GFPS_AT_LEAST_S = 300.0f;
constexpr float MAX_REASONABLE_ELECTRIC_CURRENT_MA = 100000.0f;

template <std::size_t N, typename Setter>
void registerAliases(const char* const (&keys)[N], const char* category, const Setter& setter) {
    auto& center = UserSettings::UserSettingsCenter::GetInstance();
    for (const char* key : keys) {
        center.RegisterUserSetting(key, UserSettings::UserSettingAction(setter), category);
    }
}

void storeConvertedValue(std::atomic<float>& tunable, const std::string& value, const char* name) {
    float converted = tunable.load();
    Basics::ConvertStringToValue<float>(value, converted);
    tunable.store(converted);
    TALVEX_LOGI("[SfpsDecider]\t Set %s to %f", name, converted);
}

void setTunable(std::atomic<float>& tunable, const std::string& value, float defaultValue,
                const char* name) {
    if (UserSettings::IsResetCommand(value)) {
        tunable.store(defaultValue);
        TALVEX_LOGI("[SfpsDecider]\t Reset %s to %f", name, defaultValue);
        return;
    }
    storeConvertedValue(tunable, value, name);
}

float millisecondsSince(Basics::TimePoint since, Basics::TimePoint now) {
    return static_cast<float>(Basics::ElapsedMs(since, now));
}

int wholeSecondsSince(Basics::TimePoint since) {
    return static_cast<int>((Basics::Now() - since).count() / 1000000000);
}

int clampSFPS(int sfps, int lowerBound, int GFPS) {
    return std::max(lowerBound, std::min(GFPS, sfps));
}

// A status outside the enumeration means memory was overwritten or a status was added without
// its branch; say so and start over rather than guess.
void warnUnrecognizedStatus(const char* owner, int status) {
    if (!TALVEX_LOG_ENABLED_W()) return;
    const std::string text =
        "Error occur when Unrecognized Status reached.\n\t status = " + Basics::ToString(status) +
        "\nDo you add a new DeciderStatus but forget to update here?\n"
        "Recover the Status to 'Disactivate' anyway.\n";
    TALVEX_LOGW("[%s][Update] %s", owner, text.c_str());
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Temperature

SfpsDeciderAccordingToTemperature::SfpsDeciderAccordingToTemperature()
    : TEMPERATURE_LOWER_BOUND(DEFAULT_TEMPERATURE_LOWER_BOUND),
      TIME_TO_STAY_IN_GFPS_AT_LEAST_S(DEFAULT_TIME_TO_STAY_IN_GFPS_AT_LEAST_S),
      TEMPERATURE_UPPER_BOUND(DEFAULT_TEMPERATURE_UPPER_BOUND),
      lastAdjustedTime(Basics::Now()) {
    initDictionaryOfUserSettingActions();
    Stop();
}

void SfpsDeciderAccordingToTemperature::initDictionaryOfUserSettingActions() {
    registerAliases(TEMPERATURE_LOWER_BOUND_KEYS, TEMPERATURE_CATEGORY,
                    [this](const std::string& value) { SetTemperatureLowerBound(value); });
    registerAliases(TIME_TO_STAY_IN_GFPS_AT_LEAST_KEYS, TEMPERATURE_CATEGORY,
                    [this](const std::string& value) { SetTimeToStayInGfpsAtLeast(value); });
    registerAliases(TEMPERATURE_UPPER_BOUND_KEYS, TEMPERATURE_CATEGORY,
                    [this](const std::string& value) { SetTemperatureUpperBound(value); });
}

void SfpsDeciderAccordingToTemperature::Update(int GFPS, int sfpsLowerBound,
                                               float temperature_Celsius) {
    TALVEX_LOGD("[SfpsDeciderByTemperature][Update] status = %d", static_cast<int>(status));
    if (sfpsLowerBound < 1) {
        if (!isDisactivatedOrPaused()) Pause();
        return;
    }
    // Written as "bound <= temperature" so that a NaN reading counts as cool.
    if (!(TEMPERATURE_LOWER_BOUND.load() <= temperature_Celsius)) {
        if (!isDisactivatedOrPaused()) {
            TALVEX_LOGD("[SfpsDeciderByTemperature][Update] PrepareToPause due to temperature");
            status = PrepareToPause;
            onLeaving(temperature_Celsius);
        }
        return;
    }
    switch (status) {
        case Disactivate:
            startTimeToConsiderStabilization = Basics::Now();
            status = WaitForActivate;
            TALVEX_LOGD("[SfpsDeciderByTemperature][Update] switch to WaitForActivate.");
            break;
        case WaitForActivate:
            onWaiting(GFPS, sfpsLowerBound);
            break;
        case MovingToBalancedSlightly:
            onMovingToBalancedSlightly(temperature_Celsius);
            if (currentSFPS == targetSFPS) status = Activate;
            break;
        case Activate:
            onActivating(temperature_Celsius);
            break;
        case PrepareToPause:
            TALVEX_LOGD(
                "[SfpsDeciderByTemperature][Update] change back to Activate due to temperature");
            status = Activate;
            break;
        case Paused:
            status = Activate;
            resume(GFPS, static_cast<float>(sfpsLowerBound), temperature_Celsius);
            TALVEX_LOGD("[SfpsDeciderByTemperature][Update] resume() with GFPS_=%d", GFPS_);
            break;
        default:
            warnUnrecognizedStatus("SfpsDeciderAccordingToTemperature", status);
            status = Disactivate;
            break;
    }
}

void SfpsDeciderAccordingToTemperature::Pause() { clearWalk(Paused); }

void SfpsDeciderAccordingToTemperature::Stop() {
    clearWalk(Disactivate);
    startTimeToConsiderStabilization = Basics::TimePoint();
}

void SfpsDeciderAccordingToTemperature::clearWalk(DeciderStatus nextStatus) {
    GFPS_ = -1;
    SFPS_LOWER_BOUND_ = -1;
    lastAdjustedTime = Basics::Now();
    currentSFPS = -1;
    targetSFPS = -1;
    status = nextStatus;
}

void SfpsDeciderAccordingToTemperature::SetTemperatureLowerBound(const std::string& value) {
    setTunable(TEMPERATURE_LOWER_BOUND, value, DEFAULT_TEMPERATURE_LOWER_BOUND,
               "TEMPERATURE_LOWER_BOUND");
}

void SfpsDeciderAccordingToTemperature::SetTimeToStayInGfpsAtLeast(const std::string& value) {
    setTunable(TIME_TO_STAY_IN_GFPS_AT_LEAST_S, value, DEFAULT_TIME_TO_STAY_IN_GFPS_AT_LEAST_S,
               "TIME_TO_STAY_IN_GFPS_AT_LEAST_S");
}

void SfpsDeciderAccordingToTemperature::SetTemperatureUpperBound(const std::string& value) {
    setTunable(TEMPERATURE_UPPER_BOUND, value, DEFAULT_TEMPERATURE_UPPER_BOUND,
               "TEMPERATURE_UPPER_BOUND");
}

void SfpsDeciderAccordingToTemperature::start(int GFPS, float sfpsLowerBound) {
    GFPS_ = GFPS;
    currentSFPS = GFPS;
    SFPS_LOWER_BOUND_ = Basics::SaturatingTruncate(sfpsLowerBound);
}

void SfpsDeciderAccordingToTemperature::resume(int GFPS, float sfpsLowerBound, float temperature) {
    GFPS_ = GFPS;
    SFPS_LOWER_BOUND_ = Basics::SaturatingTruncate(sfpsLowerBound);
    currentSFPS = searchForBalancedSFPS(temperature);
    targetSFPS = currentSFPS;
}

int SfpsDeciderAccordingToTemperature::searchForBalancedSFPS(float temperature) const {
    // Through (lower bound, GFPS_) and (upper bound, SFPS_LOWER_BOUND_). Equal bounds give an
    // infinite or NaN slope; the saturating conversion and the cut-off still land in range.
    const double fpsSpan = static_cast<double>(GFPS_) - static_cast<double>(SFPS_LOWER_BOUND_);
    const float temperatureSpan = TEMPERATURE_UPPER_BOUND.load() - TEMPERATURE_LOWER_BOUND.load();
    const float m = static_cast<float>(-fpsSpan / static_cast<double>(temperatureSpan));
    const float b = static_cast<float>(SFPS_LOWER_BOUND_) - TEMPERATURE_UPPER_BOUND.load() * m;
    // A missing (NaN) reading yields 0 here, so a walk that meets one heads for the lower bound.
    const int raw = Basics::SaturatingTruncate(std::round(b + m * temperature));
    const int balanced = truncateSFPS(raw);
    TALVEX_LOGD(
        "[SfpsDeciderAccordingToTemperature][searchForBalancedSFPS] m=%f, b=%f, targetSFPS=%d, "
        "after_cutoff=%d",
        m, b, raw, balanced);
    return balanced;
}

void SfpsDeciderAccordingToTemperature::moveToBalancedPoint() {
    if (currentSFPS > targetSFPS) {
        TALVEX_LOGD(
            "[SfpsDeciderByTemperature][moveToBalancedPoint] targetSFPS=%d, currentSFPS(=%d) -= "
            "1.",
            targetSFPS, currentSFPS);
        --currentSFPS;
    } else if (currentSFPS < targetSFPS) {
        TALVEX_LOGD(
            "[SfpsDeciderByTemperature][moveToBalancedPoint] targetSFPS=%d, currentSFPS(=%d) += "
            "1.",
            targetSFPS, currentSFPS);
        ++currentSFPS;
    }
}

int SfpsDeciderAccordingToTemperature::truncateSFPS(int sfps) const {
    return clampSFPS(sfps, SFPS_LOWER_BOUND_, GFPS_);
}

bool SfpsDeciderAccordingToTemperature::stepIfDue(const char* handlerName, float interval_ms,
                                                  float temperature) {
    const Basics::TimePoint now = Basics::Now();
    const float sinceLastAdjusted_ms = millisecondsSince(lastAdjustedTime, now);
    TALVEX_LOGD("[SfpsDeciderByTemperature][%s] durationSinceLastAdjustedTime = %f", handlerName,
                sinceLastAdjusted_ms);
    if (!(sinceLastAdjusted_ms >= interval_ms)) return false;
    targetSFPS = searchForBalancedSFPS(temperature);
    moveToBalancedPoint();
    lastAdjustedTime = now;
    return true;
}

void SfpsDeciderAccordingToTemperature::onMovingToBalancedSlightly(float temperature) {
    stepIfDue("onMovingToBalancedSlightly", INTERVAL_TO_MOVE_SLIGHTLY_MS, temperature);
}

// Hot for long enough at this GFPS: the walk down starts.
void SfpsDeciderAccordingToTemperature::onWaiting(int GFPS, int sfpsLowerBound) {
    const int waited_s = wholeSecondsSince(startTimeToConsiderStabilization);
    TALVEX_LOGD("[SfpsDeciderByTemperature][Update] durationSinceStartToConsiderStabilization=%d",
                waited_s);
    if (!(TIME_TO_STAY_IN_GFPS_AT_LEAST_S.load() > static_cast<float>(waited_s))) {
        start(GFPS, static_cast<float>(sfpsLowerBound));
        status = MovingToBalancedSlightly;
        TALVEX_LOGD("[SfpsDeciderByTemperature][Update] start() with GFPS_=%d", GFPS_);
    }
}

void SfpsDeciderAccordingToTemperature::onActivating(float temperature) {
    stepIfDue("onActivating", INTERVAL_TO_ADJUST_MS, temperature);
}

void SfpsDeciderAccordingToTemperature::onLeaving(float temperature) {
    if (stepIfDue("onLeaving", INTERVAL_TO_ADJUST_MS, temperature) && currentSFPS == targetSFPS) {
        Stop();
    }
}

// ---------------------------------------------------------------------------------------------
// Electric current

SfpsDeciderAccordingToElectricCurrent::SfpsDeciderAccordingToElectricCurrent()
    : TIME_TO_STAY_IN_GFPS_AT_LEAST_S(DEFAULT_TIME_TO_STAY_IN_GFPS_AT_LEAST_S),
      ELECTRIC_CURRENT_THRESHOLD(std::numeric_limits<float>::quiet_NaN()),
      lastAdjustedTime(Basics::Now()) {
    initDictionaryOfUserSettingActions();
    Reset();
}

void SfpsDeciderAccordingToElectricCurrent::initDictionaryOfUserSettingActions() {
    registerAliases(ELECTRIC_CURRENT_THRESHOLD_KEYS, CURRENT_CATEGORY,
                    [this](const std::string& value) { SetElectricCurrentToStabilizeFPS(value); });
    registerAliases(TIME_TO_STAY_IN_GFPS_AT_LEAST_KEYS, CURRENT_CATEGORY,
                    [this](const std::string& value) { SetTimeToStayInGfpsAtLeast(value); });
}

bool SfpsDeciderAccordingToElectricCurrent::IsElectricCurrentReasonable(float electricCurrent_mA) {
    return electricCurrent_mA > 0.0f && electricCurrent_mA < MAX_REASONABLE_ELECTRIC_CURRENT_MA;
}

void SfpsDeciderAccordingToElectricCurrent::Update(int GFPS, int sfpsLowerBound,
                                                   float electricCurrent_mA) {
    TALVEX_LOGD("[SfpsDeciderByCurrent][Update] status = %d", static_cast<int>(status));
    if (GFPS < sfpsLowerBound) {
        if (status != Disactivate) {
            TALVEX_LOGD("[SfpsDeciderByCurrent] Stop Stabilizing due to GFPS is lower.");
            Reset();
        }
        return;
    }
    // One implausible reading ends any stabilisation: the mean it belongs to cannot be trusted.
    if (sfpsLowerBound < 1 || !IsElectricCurrentReasonable(electricCurrent_mA)) {
        if (status != Disactivate) Reset();
        return;
    }
    electricCurrentSampleSum_mA += static_cast<double>(electricCurrent_mA);
    ++electricCurrentSampleCount;
    const float meanElectricCurrent_mA = static_cast<float>(
        electricCurrentSampleSum_mA / static_cast<double>(electricCurrentSampleCount));

    // Written as "mean >= threshold" so that the unset (NaN) threshold never passes.
    if (!(meanElectricCurrent_mA >= ELECTRIC_CURRENT_THRESHOLD.load())) {
        if (status != Disactivate) {
            TALVEX_LOGD(
                "[SfpsDeciderByCurrent][Update] PrepareToDisactivate due to ElectricCurrent");
            status = PrepareToDisactivate;
            onLeaving();
        }
        return;
    }
    switch (status) {
        case Disactivate:
            startTimeToConsiderStabilization = Basics::Now();
            status = WaitForActivate;
            TALVEX_LOGD("[SfpsDeciderByCurrent][Update] switch to WaitForActivate.");
            break;
        case WaitForActivate:
            onWaiting(GFPS, sfpsLowerBound);
            break;
        case Activate:
            onActivating(meanElectricCurrent_mA);
            break;
        case PrepareToDisactivate:
            TALVEX_LOGD(
                "[SfpsDeciderByCurrent][Update] change back to Activate due to ElectricCurrent");
            status = Activate;
            break;
        default:
            warnUnrecognizedStatus("SfpsDeciderAccordingToElectricCurrent", status);
            status = Disactivate;
            break;
    }
}

void SfpsDeciderAccordingToElectricCurrent::Reset() {
    GFPS_ = -1;
    SFPS_LOWER_BOUND_ = -1;
    lastAdjustedTime = Basics::Now();
    clearSamples();
    startTimeToConsiderStabilization = Basics::TimePoint();
    currentSFPS = -1;
    status = Disactivate;
}

void SfpsDeciderAccordingToElectricCurrent::clearSamples() {
    electricCurrentSampleSum_mA = 0.0;
    electricCurrentSampleCount = 0;
}

void SfpsDeciderAccordingToElectricCurrent::SetElectricCurrentToStabilizeFPS(
    const std::string& value) {
    if (UserSettings::IsResetCommand(value)) {
        ELECTRIC_CURRENT_THRESHOLD.store(std::numeric_limits<float>::quiet_NaN());
        TALVEX_LOGI("[SfpsDecider]\t Reset ElectricCurrentThreshold to NAN");
        return;
    }
    storeConvertedValue(ELECTRIC_CURRENT_THRESHOLD, value, "ElectricCurrentThreshold");
}

void SfpsDeciderAccordingToElectricCurrent::SetTimeToStayInGfpsAtLeast(const std::string& value) {
    setTunable(TIME_TO_STAY_IN_GFPS_AT_LEAST_S, value, DEFAULT_TIME_TO_STAY_IN_GFPS_AT_LEAST_S,
               "TIME_TO_STAY_IN_GFPS_AT_LEAST_S");
}

void SfpsDeciderAccordingToElectricCurrent::start(int GFPS, float sfpsLowerBound) {
    GFPS_ = GFPS;
    currentSFPS = GFPS;
    SFPS_LOWER_BOUND_ = Basics::SaturatingTruncate(sfpsLowerBound);
}

void SfpsDeciderAccordingToElectricCurrent::truncateSFPS() {
    currentSFPS = clampSFPS(currentSFPS, SFPS_LOWER_BOUND_, GFPS_);
}

// Drawing much for long enough at this GFPS: stabilization starts at the GFPS.
void SfpsDeciderAccordingToElectricCurrent::onWaiting(int GFPS, int sfpsLowerBound) {
    const int waited_s = wholeSecondsSince(startTimeToConsiderStabilization);
    TALVEX_LOGD("[SfpsDeciderByCurrent][Update] durationSinceStartToConsiderStabilization = %d",
                waited_s);
    if (!(TIME_TO_STAY_IN_GFPS_AT_LEAST_S.load() > static_cast<float>(waited_s))) {
        start(GFPS, static_cast<float>(sfpsLowerBound));
        status = Activate;
    }
}

void SfpsDeciderAccordingToElectricCurrent::onActivating(float meanElectricCurrent_mA) {
    const Basics::TimePoint now = Basics::Now();
    const float sinceLastAdjusted_ms = millisecondsSince(lastAdjustedTime, now);
    TALVEX_LOGD("[SfpsDeciderByCurrent][onActivating] durationSinceLastAdjustedTime = %f",
                sinceLastAdjusted_ms);
    if (!(sinceLastAdjusted_ms >= INTERVAL_TO_ADJUST_MS)) return;

    const float absDiff_mA = std::fabs(meanElectricCurrent_mA - ELECTRIC_CURRENT_THRESHOLD.load());
    TALVEX_LOGD(
        "[SfpsDeciderByCurrent][onActivating] MEAN_ELECTRIC_CURRENT_=%f, electricCurrentAbsDiff=%f",
        meanElectricCurrent_mA, absDiff_mA);
    // Only a clear excess counts; a mean hovering at the threshold keeps the SFPS where it is.
    if (ELECTRIC_CURRENT_THRESHOLD.load() < meanElectricCurrent_mA &&
        absDiff_mA > MIN_ELECTRIC_CURRENT_ABS_DIFF_MA) {
        TALVEX_LOGD(
            "[SfpsDeciderByCurrent][onActivating] currentSFPS -= 1 (=%d) since ElectricCurrent "
            "increasing.",
            currentSFPS);
        --currentSFPS;
        truncateSFPS();
        lastAdjustedTime = now;
        clearSamples();
    }
}

void SfpsDeciderAccordingToElectricCurrent::onLeaving() {
    const Basics::TimePoint now = Basics::Now();
    const float sinceLastAdjusted_ms = millisecondsSince(lastAdjustedTime, now);
    TALVEX_LOGD("[SfpsDeciderByCurrent][onLeaving] durationSinceLastAdjustedTime = %f",
                sinceLastAdjusted_ms);
    if (!(sinceLastAdjusted_ms >= INTERVAL_TO_ADJUST_MS)) return;

    if (currentSFPS >= GFPS_) {
        Reset();
        return;
    }
    TALVEX_LOGD("[SfpsDeciderByCurrent][onLeaving] currentSFPS += 1 (=%d) since recovering.",
                currentSFPS);
    ++currentSFPS;
    truncateSFPS();
    lastAdjustedTime = now;
    clearSamples();
}

}  // namespace FpsStabilizer
}  // namespace android
