#pragma once

#include <memory>

namespace android {
namespace Nimbrel {
namespace Quillet {

// How a held rate is paced. Quota: the sleep carries the time the recent frames have in hand and a
// calibration that follows the measured rate; the mean rate holds, single frames vary by up to
// about a millisecond. Deadline: frame ends are scheduled one period apart and each sleep is
// shortened by the oversleep the caller's sleeps have shown, for even frame intervals.
enum class PacingPolicy { Quota, Deadline };

// Paces a game's frames to a stabilized frame rate. The graphics layer calls, on its render
// thread and for every frame: Update before the frame's work, CalculateSleepDuration_ms after it
// (and sleeps that long), PostUpdate after the sleep. One render thread per object; no locking.
// Creating and destroying an object clears the pacing node and counters.
class Quillet {
  public:
    Quillet();  // PacingPolicy::Quota
    explicit Quillet(PacingPolicy policy);
    ~Quillet();
    Quillet(const Quillet&) = delete;
    Quillet& operator=(const Quillet&) = delete;

    // targetSFPS of 11 and above is held, -11 and below is held as its absolute value without
    // sleeping (the rate is being explored), anything between switches pacing off. The rate
    // held never exceeds the smaller of refreshRate and maxFPS.
    void Update(int targetSFPS, int refreshRate, int maxFPS);
    // Milliseconds to sleep so that frame ends lie one target period apart; never negative,
    // 0 when pacing is off or exploring.
    float CalculateSleepDuration_ms();
    // Marks the end of the frame; frame lengths are measured from one call to the next.
    void PostUpdate();

  private:
    class QuilletImpl;
    std::unique_ptr<QuilletImpl> impl;
};

}  // namespace Quillet
}  // namespace Nimbrel
}  // namespace android
