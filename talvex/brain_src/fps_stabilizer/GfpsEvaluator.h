#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace android {
namespace FpsStabilizer {

// Matches each tick's EFPS to the configured GFPS candidate the game is taken to aim at, and
// supplies that candidate's SFPS lower bound. Both lists arrive as settings, possibly on another
// thread than the ticks, so the tick update and the setters hold one lock for their whole run: a
// tick never sees a half-replaced list.
// No copy or move: the setting actions registered with the settings center point at this object.
class GfpsEvaluator {
  public:
    explicit GfpsEvaluator(int FASTEST_FPS_);
    GfpsEvaluator(const GfpsEvaluator&) = delete;
    GfpsEvaluator& operator=(const GfpsEvaluator&) = delete;

    // Once per tick; never throws.
    void Update(int currentEFPS, int FASTEST_FPS_);

    // Read on the tick's thread right after Update.
    int GetNearestGFPS() const { return nearestGFPS; }
    int GetSfpsLowerBound() const { return SFPS_LOWER_BOUND; }
    // True for the largest candidate, and for any value while no list is configured.
    bool IsMaxGFPS(int gfps) const;
    std::string GetDebugInfo() const;

    void SetGfpsCandidates(const std::string& value);
    void SetSfpsLowerBoundCandidates(const std::string& value);

  private:
    void initDictionaryOfUserSettingActions();
    void updateGFPS();
    void updateSfpsLowerBound();
    void truncateSfpsCandidates();

    mutable std::mutex lock;
    std::vector<int> LIST_OF_GFPS_CANDIDATES;
    std::vector<int> LIST_OF_SFPS_CANDIDATES;
    int currentEFPS = -1;
    // Atomic: the setters clear these on the settings thread while the getters read them
    // without the lock.
    std::atomic<int> indexOfNearestGFPS{-1};
    int nearestGFPS = -1;
    std::atomic<int> SFPS_LOWER_BOUND{-1};
    int FASTEST_FPS_;
};

}  // namespace FpsStabilizer
}  // namespace android
