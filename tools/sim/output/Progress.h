#pragma once

#include <chrono>
#include <cstdio>

namespace TalvexSim {

// A one-line bar on a terminal for runs that take more than a second of wall time; silent
// otherwise, so that short runs and redirected output stay clean.
class ProgressBar {
  public:
    ProgressBar(std::FILE* terminal, bool enabled, double total_s);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void Update(double done_s);
    // Erases the bar, if it was ever drawn.
    void Finish();

  private:
    std::FILE* terminal;
    bool enabled;
    double total_s;
    bool drawn = false;
    std::chrono::steady_clock::time_point start;
    std::chrono::steady_clock::time_point lastDrawn;
};

}  // namespace TalvexSim
