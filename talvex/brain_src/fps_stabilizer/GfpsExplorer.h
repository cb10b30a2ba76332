#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "talvex/basics/Clock.h"

namespace android {
namespace FpsStabilizer {

// Measures the game's own frame rate now and then while it is being stabilized: after a wait it
// collects frame lengths, then keeps collecting for one more second while it offers an estimate,
// and starts over. The two tunables are atomics because settings may arrive on another thread
// than the ticks; everything else belongs to the tick's thread, so there is no lock.
// No copy or move: the setting actions registered with the settings center point at this object.
class GfpsExplorer {
  public:
    // Unscoped so that callers may write either GfpsExplorer::Exploring or
    // GfpsExplorer::Status::Exploring.
    enum Status : int {
        Waiting = 0,
        Exploring = 1,
        Finishing = 2,
        Finished = 3,
    };

    GfpsExplorer();
    GfpsExplorer(const GfpsExplorer&) = delete;
    GfpsExplorer& operator=(const GfpsExplorer&) = delete;

    Status GetStatus() const { return status; }

    // Once per tick. FRAME_LENGTH_S_ may be NaN while neither exploring nor finishing.
    void Update(int currentGFPS, float FRAME_LENGTH_S_);
    void Reset();

    // Frame rate from the collected lengths, leaving out the first one (it may straddle the start
    // of the exploration). -1 while nothing has been collected.
    int EstimateFPS() const;
    int GetGfpsBeforeExplore() const { return gfpsBeforeExplore; }

    void SetExploreDuration_ms(const std::string& value);
    void SetBufferSize(const std::string& value);

  private:
    void initDictionaryOfUserSettingActions();
    double elapsed_ms() const;
    bool collect(float FRAME_LENGTH_S_, const char* statusName);

    std::atomic<float> DEFAULT_EXPLORE_DURATION_MS{2000.0f};
    std::atomic<float> EXPLORE_DURATION_MS{2000.0f};
    Basics::TimePoint statusStartTime;
    std::atomic<unsigned int> DEFAULT_BUFFER_SIZE{7};
    std::atomic<unsigned int> BUFFER_SIZE{7};
    std::vector<float> arrayOfFrameLengths_s;
    float FINISHING_DURATION_MS = 1000.0f;
    Status status = Waiting;
    int gfpsBeforeExplore = -1;
};

}  // namespace FpsStabilizer
}  // namespace android
