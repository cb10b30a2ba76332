#pragma once

#include <cstdint>
#include <deque>
#include <functional>

#include "tools/sim/input/Scenario.h"

namespace TalvexSim {

// A frame as the player sees it.
struct ShownFrame {
    std::int64_t start_ns = 0;    // its work began
    std::int64_t ready_ns = 0;    // queued
    std::int64_t latched_ns = 0;  // the refresh that took it
    std::int64_t glass_ns = 0;    // on screen
};

// The panel and the compositor behind the game's buffer queue, on virtual time. Frames are
// latched in the order they were queued, at most one per refresh; the buffer on screen frees
// when the next frame is latched.
class Display {
  public:
    using Sink = std::function<void(const ShownFrame&)>;

    Display(const DisplayParams& params, int refreshRate_Hz, Sink sink);

    // The rate the game holds; a panel with modes picks its mode from it at the next refresh.
    void HoldRate(int fps) { wantedRate_Hz = RateFor(fps); }
    // The panel's rate while the game holds that rate.
    int RateFor(int fps) const;
    // Runs every refresh up to and including that time.
    void AdvanceTo(std::int64_t time_ns);
    // Whether the game has a free buffer to draw its next frame into.
    bool CanDequeue() const { return inUse() < params.buffers; }
    // The time of the refresh that latches the oldest queued frame; only when there is one.
    std::int64_t NextLatch_ns() const;
    void Queue(std::int64_t start_ns, std::int64_t ready_ns);
    // The game goes to the background: its queue and the image on screen are let go.
    void Release();

    // The period in force and the last refresh, up to the time the panel was advanced to.
    std::int64_t Period_ns() const { return period_ns; }
    std::int64_t LastRefresh_ns() const { return lastRefresh_ns; }
    int Rate_Hz() const { return rate_Hz; }

  private:
    int inUse() const { return static_cast<int>(queue.size()) + (onScreen ? 1 : 0); }
    std::int64_t latchable_ns(const ShownFrame& frame) const;
    std::int64_t nextRefresh_ns() const;
    void refresh(std::int64_t time_ns);

    const DisplayParams params;
    const int topRate_Hz;
    const std::int64_t topPeriod_ns;
    const std::int64_t longestPeriod_ns;  // variable refresh: a panel refreshes at least this often
    const std::int64_t margin_ns;
    const std::int64_t delay_ns;
    Sink sink;

    int rate_Hz;
    std::int64_t period_ns;
    int wantedRate_Hz;
    std::int64_t lastRefresh_ns = 0;
    std::int64_t fixedNext_ns = 0;  // fixed and modes panels
    std::deque<ShownFrame> queue;
    bool onScreen = false;
};

}  // namespace TalvexSim
