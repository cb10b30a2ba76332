#pragma once

#include <chrono>
#include <memory>

#include "talvex/basics/Clock.h"

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
    // Instead of CalculateSleepDuration_ms, for a caller that sleeps to an absolute time (as with
    // clock_nanosleep and TIMER_ABSTIME on the steady clock): when the sleep should end, the
    // frame's clock read plus that sleep, so nothing between here and the sleep lengthens the
    // frame. A time already past means no sleep.
    Basics::TimePoint CalculateWakeUpTime();
    // Marks the end of the frame; frame lengths are measured from one call to the next.
    void PostUpdate();

    // Opt-in, Deadline only: the display's latest vsync and its period, from any thread (the
    // latest call wins). While the held rate divides the refresh rate, each frame is scheduled to
    // end the latch margin before a refresh of the held cadence, so that it is shown at the
    // refresh it was meant for; without a vsync for a second, frames are paced as without one.
    void OnVsync(Basics::TimePoint vsync, std::chrono::nanoseconds period);
    // How long before a refresh a frame must be queued to be shown at it, with room for the
    // sleep's jitter; 1 ms until set, kept within 0 to 1 s.
    void SetLatchMargin(std::chrono::nanoseconds margin);

  private:
    class QuilletImpl;
    std::unique_ptr<QuilletImpl> impl;
};

}  // namespace Quillet
}  // namespace Nimbrel
}  // namespace android
