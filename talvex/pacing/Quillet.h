#pragma once

#include <memory>

namespace android {
namespace Nimbrel {
namespace Quillet {

// Paces a game's frames to a stabilized frame rate. The graphics layer calls, on its render
// thread and for every frame: Update before the frame's work, CalculateSleepDuration_ms after it
// (and sleeps that long), PostUpdate after the sleep. One render thread per object; no locking.
// Creating and destroying an object clears the pacing node and counters.
class Quillet {
  public:
    Quillet();
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
