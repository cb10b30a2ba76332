#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TalvexSim {

// The decisions of a game paced by Android's frame pacing library alone, read from the Android
// game SDK's games-frame-pacing/common/SwappyCommon.cpp and .h (FrameDurations::add,
// hasEnoughSamples, getAverageFrameTime, getMissedFramePercent; calculateSwapInterval,
// updateSwapInterval, swapSlower, swapFaster, swapFasterCondition, waitForNextFrame). The closed
// loop does the waiting and judges the misses.
//
// - Window: each frame's CPU and GPU work, each clamped to 100 ms. A frame leaves once the one
//   after it is more than 2 s older than the newest; nothing is decided until the window spans
//   more than 2 s, and every change empties it.
// - Frame time: the larger of the window's mean CPU and mean GPU work (whole ns) plus 1 ms when
//   pipelined; their sum plus 1 ms when not.
// - Fitting interval: 1 below one period, else frame time / period, one more only when the
//   remainder exceeds 0.5 us. Missed share: a whole percent, rounded.
// - Every frame once the window is full, the first that applies: share > 10 % goes slower, to
//   the fitting interval if longer, else one longer, only while period x interval <= 51 ms;
//   unpipelined with the pipelined time fitting period x interval, it only pipelines again and
//   keeps the window, so the next frame slows if the misses are still in it. Share 0 and the
//   pipelined time < period x (interval - 1) - 1 ms goes faster, straight down to the fitting
//   interval but not below the app's own swap duration. Else, pipelined and 1.5 x the
//   unpipelined time < period x interval, it stops pipelining.
// - Above 50 ms (period x interval, not the frame time) it stops waiting, for the target
//   refresh and for the previous frame's GPU alike, and sets no presentation time. It keeps the
//   interval, which still sets each frame's target refresh, and keeps deciding, so it comes
//   back once frames are short and none missed.
// Left out: votes for a display rate, the buffer-stuffing fix, refresh-rate changes, resets.
class SwapIntervalPacer {
  public:
    // appSwap_ns: the swap duration the game asked for; the interval starts there and never
    // goes faster. 0: no floor beyond one refresh.
    explicit SwapIntervalPacer(std::int64_t refreshPeriod_ns, std::int64_t appSwap_ns = 0);

    // A frame was handed over at end_ns (after any wait; times never go back). missed: once
    // ready, the refresh its interval aimed at had already passed. The work leaves out waiting.
    void AddFrame(std::int64_t end_ns, double cpuWork_ms, double gpuWork_ms, bool missed);
    // All of the work on one stage: the frame time is the work plus 1 ms, pipelined or not.
    void AddFrame(std::int64_t end_ns, double work_ms, bool missed) {
        AddFrame(end_ns, work_ms, 0.0, missed);
    }

    // Refresh periods from one present to the next; 1 while not pacing.
    int SwapInterval() const { return Pacing() ? interval : 1; }
    // The interval the auto mode holds; sets a frame's target refresh even while not pacing.
    int HeldInterval() const { return interval; }
    bool Pacing() const;
    // Pipelined, the wait comes before the swap and a frame is shown two intervals on.
    bool Pipelined() const { return pipelined; }
    std::size_t WindowFrames() const { return count; }

    static int IntervalFor(std::int64_t frameTime_ns, std::int64_t refreshPeriod_ns);

  private:
    struct Sample {
        std::int64_t end_ns;
        std::int64_t cpu_ns;
        std::int64_t gpu_ns;
        bool missed;
    };

    const Sample& at(std::size_t i) const { return ring[(head + i) % ring.size()]; }
    void push(const Sample& sample);
    void dropOldest();
    void clearWindow();
    void decide();
    bool slower(std::int64_t pipelined_ns, int fitting);
    bool faster(int fitting);
    bool fasterAllowed() const;

    std::int64_t period_ns;
    std::int64_t appSwap_ns;
    int interval;
    bool pipelined = true;
    // A ring that only grows to the window's largest population, so a long run stops allocating.
    std::vector<Sample> ring;
    std::size_t head = 0;
    std::size_t count = 0;
    std::int64_t cpuSum_ns = 0;
    std::int64_t gpuSum_ns = 0;
    std::size_t missedCount = 0;
};

}  // namespace TalvexSim
