#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "talvex/basics/Clock.h"

namespace android {
namespace FpsStabilizer {

// The settings the two deciders take, every key of one tunable together, and the bounds a reset
// restores: a host or tool that follows the bounds in force asks here rather than copying them.
namespace SfpsDeciderSettings {
inline constexpr const char* TEMPERATURE_CATEGORY = "sfps_temperature";
inline constexpr const char* CURRENT_CATEGORY = "sfps_current";
inline constexpr const char* TEMPERATURE_LOWER_BOUND_KEYS[] = {
    "temperature_to_start_consider_stabilize_fps", "start_temperature", "temperature_lower_bound"};
inline constexpr const char* TIME_TO_STAY_IN_GFPS_AT_LEAST_KEYS[] = {
    "time_to_stay_in_gfps_at_least", "ttsigal"};
inline constexpr const char* TEMPERATURE_UPPER_BOUND_KEYS[] = {
    "not_allowed_temperature", "max_temperature", "temperature_upper_bound"};
inline constexpr const char* ELECTRIC_CURRENT_THRESHOLD_KEYS[] = {
    "electric_current_threshold_to_compress_fps", "current_threshold", "ecttcf"};
inline constexpr float DEFAULT_TEMPERATURE_LOWER_BOUND = 40.0f;
inline constexpr float DEFAULT_TEMPERATURE_UPPER_BOUND = 45.0f;
}  // namespace SfpsDeciderSettings

// Lowers the SFPS while the device is hot and gives it back once it cools. Slow on purpose: it
// first waits at the GFPS, then walks one FPS at a time towards a balanced SFPS that falls
// linearly with temperature, so a short burst of heat costs no frames and the player never sees
// a jump (except when resuming after a GFPS change, where the walk was already paid for).
//
// No copy or move: the setting actions registered with the settings center point at this object,
// so its owner makes the center forget them (OnCurrentBrainDie) before destroying it.
class SfpsDeciderAccordingToTemperature {
  public:
    enum DeciderStatus : std::int32_t {
        Disactivate = 0,
        WaitForActivate = 1,
        MovingToBalancedSlightly = 2,
        Activate = 3,
        PrepareToPause = 4,
        Paused = 5,
    };

    SfpsDeciderAccordingToTemperature();
    SfpsDeciderAccordingToTemperature(const SfpsDeciderAccordingToTemperature&) = delete;
    SfpsDeciderAccordingToTemperature& operator=(const SfpsDeciderAccordingToTemperature&) = delete;

    void Update(int GFPS, int sfpsLowerBound, float temperature_Celsius);
    bool IsActivated() const { return status == Activate; }
    int GetSFPS() const { return currentSFPS; }
    DeciderStatus GetStatus() const { return status; }

    // After Pause() the next hot tick resumes straight at the balanced SFPS, without the wait.
    void Pause();
    void Stop();

    // Setting actions: a reset command restores the default; other texts must read as a float.
    void SetTemperatureLowerBound(const std::string& value);
    void SetTimeToStayInGfpsAtLeast(const std::string& value);
    void SetTemperatureUpperBound(const std::string& value);

  private:
    void initDictionaryOfUserSettingActions();
    void start(int GFPS, float sfpsLowerBound);
    void resume(int GFPS, float sfpsLowerBound, float temperature);
    int searchForBalancedSFPS(float temperature) const;
    void moveToBalancedPoint();
    int truncateSFPS(int sfps) const;
    bool isDisactivatedOrPaused() const { return status == Disactivate || status == Paused; }
    void onWaiting(int GFPS, int sfpsLowerBound);
    void onMovingToBalancedSlightly(float temperature);
    void onActivating(float temperature);
    void onLeaving(float temperature);
    // One step towards the balanced SFPS when the handler's interval has passed.
    bool stepIfDue(const char* handlerName, float interval_ms, float temperature);
    void clearWalk(DeciderStatus nextStatus);

    static constexpr float INTERVAL_TO_MOVE_SLIGHTLY_MS = 10000.0f;
    static constexpr float INTERVAL_TO_ADJUST_MS = 1000.0f;

    std::atomic<float> TEMPERATURE_LOWER_BOUND;
    Basics::TimePoint startTimeToConsiderStabilization;
    std::atomic<float> TIME_TO_STAY_IN_GFPS_AT_LEAST_S;
    std::atomic<float> TEMPERATURE_UPPER_BOUND;
    int GFPS_ = -1;
    int SFPS_LOWER_BOUND_ = -1;
    Basics::TimePoint lastAdjustedTime;
    int currentSFPS = -1;
    int targetSFPS = -1;
    DeciderStatus status = Disactivate;
};

// Lowers the SFPS one FPS at a time while the mean electric current stays well above a
// threshold, and raises it back once the mean falls below. The threshold is unset by default,
// which keeps the decider idle until a setting enables it.
//
// No copy or move, for the same reason as the temperature decider.
class SfpsDeciderAccordingToElectricCurrent {
  public:
    enum DeciderStatus : std::int32_t {
        Disactivate = 0,
        WaitForActivate = 1,
        Activate = 2,
        PrepareToDisactivate = 3,
    };

    SfpsDeciderAccordingToElectricCurrent();
    SfpsDeciderAccordingToElectricCurrent(const SfpsDeciderAccordingToElectricCurrent&) = delete;
    SfpsDeciderAccordingToElectricCurrent& operator=(const SfpsDeciderAccordingToElectricCurrent&) =
        delete;

    void Update(int GFPS, int sfpsLowerBound, float electricCurrent_mA);
    bool IsActivated() const { return status == Activate; }
    int GetSFPS() const { return currentSFPS; }
    DeciderStatus GetStatus() const { return status; }
    void Reset();

    static bool IsElectricCurrentReasonable(float electricCurrent_mA);

    // Setting actions: a reset command restores the default; other texts must read as a float.
    void SetElectricCurrentToStabilizeFPS(const std::string& value);
    void SetTimeToStayInGfpsAtLeast(const std::string& value);

  private:
    void initDictionaryOfUserSettingActions();
    void start(int GFPS, float sfpsLowerBound);
    void onWaiting(int GFPS, int sfpsLowerBound);
    void onActivating(float meanElectricCurrent_mA);
    void onLeaving();
    void truncateSFPS();
    void clearSamples();

    static constexpr float INTERVAL_TO_ADJUST_MS = 5000.0f;
    static constexpr float MIN_ELECTRIC_CURRENT_ABS_DIFF_MA = 100.0f;

    Basics::TimePoint startTimeToConsiderStabilization;
    std::atomic<float> TIME_TO_STAY_IN_GFPS_AT_LEAST_S;
    std::atomic<float> ELECTRIC_CURRENT_THRESHOLD;
    int GFPS_ = -1;
    int SFPS_LOWER_BOUND_ = -1;
    Basics::TimePoint lastAdjustedTime;
    // The readings since the last step or reset, kept as their sum and count rather than a list:
    // the same mean in constant memory, however long a game idles at one GFPS.
    double electricCurrentSampleSum_mA = 0.0;
    std::uint64_t electricCurrentSampleCount = 0;
    int currentSFPS = -1;
    DeciderStatus status = Disactivate;
};

}  // namespace FpsStabilizer
}  // namespace android
