#pragma once

#include <cstdint>
#include <map>

namespace Math {

// The most frequent effective frame rate of a stream of readings, by a histogram of truncated
// rates. Among equally frequent rates the lowest wins.
class EFPS_Counter {
  public:
    void Update(float EFPS);
    // 60 (with two warnings) when nothing was counted.
    float GetMostOccurredEFPS() const;
    void Reset();

  private:
    std::map<int32_t, uint32_t> map_from_EFPS_to_occurrences;
};

}  // namespace Math
