#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

#include "tools/sim/model/SwapInterval.h"

namespace TalvexSim {
namespace {

constexpr std::int64_t k60Hz_ns = 16'666'666;
constexpr std::int64_t kMs_ns = 1'000'000;

// A game handing frames to the pacer; every missEvery-th frame of the whole run missed.
struct Game {
    SwapIntervalPacer pacer;
    std::int64_t clock_ns = 0;
    long frame = 0;

    void Run(int frames, std::int64_t spacing_ns, double cpu_ms, int missEvery,
             double gpu_ms = 0.0) {
        for (int i = 0; i < frames; ++i) {
            clock_ns += spacing_ns;
            ++frame;
            pacer.AddFrame(clock_ns, cpu_ms, gpu_ms, missEvery > 0 && frame % missEvery == 0);
        }
    }
    int Held() const { return pacer.HeldInterval(); }
};

TEST(SwapIntervalTest, AnIntervalFitsUpToHalfAMicrosecondOverIt) {
    EXPECT_EQ(SwapIntervalPacer::IntervalFor(0, k60Hz_ns), 1);
    EXPECT_EQ(SwapIntervalPacer::IntervalFor(k60Hz_ns, k60Hz_ns), 1);
    EXPECT_EQ(SwapIntervalPacer::IntervalFor(2 * k60Hz_ns + 500, k60Hz_ns), 2);
    EXPECT_EQ(SwapIntervalPacer::IntervalFor(2 * k60Hz_ns + 501, k60Hz_ns), 3);
}

TEST(SwapIntervalTest, WalkOnA60HzPanel) {
    Game game{SwapIntervalPacer(k60Hz_ns)};
    game.Run(180, k60Hz_ns, 10.2, 0);
    EXPECT_EQ(game.pacer.SwapInterval(), 1);
    EXPECT_TRUE(game.pacer.Pipelined());  // 1.5 x 11.2 ms does not fit one refresh
    // 20 ms frames miss every refresh; the window slides over the earlier 122 frames.
    game.Run(11, 2 * k60Hz_ns, 20.0, 1);
    EXPECT_EQ(game.Held(), 1);  // 11 of 111 round to 10 %
    game.Run(1, 2 * k60Hz_ns, 20.0, 1);
    EXPECT_EQ(game.Held(), 2);  // 12 of 110: 11 %
    game.Run(90, 2 * k60Hz_ns, 20.0, 0);
    EXPECT_FALSE(game.pacer.Pipelined());  // 1.5 x 21 ms fits two refreshes
    game.Run(150, 2 * k60Hz_ns, 20.0, 11);
    EXPECT_EQ(game.Held(), 2);  // at most 6 misses in 62 frames
    // A quarter missed: pipelining comes back first and keeps the window, then one slower.
    while (!game.pacer.Pipelined() && game.frame < 500) game.Run(1, 2 * k60Hz_ns, 20.0, 4);
    EXPECT_EQ(game.Held(), 2);
    game.Run(1, 2 * k60Hz_ns, 20.0, 1);
    EXPECT_EQ(game.Held(), 3);
    EXPECT_TRUE(game.pacer.Pacing());  // 3 refreshes are just under 50 ms
    game.Run(100, 3 * k60Hz_ns, 20.0, 30);
    EXPECT_EQ(game.Held(), 3);  // a miss in every window holds it back
    game.Run(60, 3 * k60Hz_ns, 20.0, 0);
    EXPECT_EQ(game.pacer.SwapInterval(), 2);
}

TEST(SwapIntervalTest, AboveFiftyMillisecondsItStopsWaitingAndComesBackInOneStep) {
    Game game{SwapIntervalPacer(k60Hz_ns)};
    game.Run(32, 4 * k60Hz_ns, 60.0, 1);
    EXPECT_EQ(game.Held(), 4);  // straight to the interval 61 ms fits
    EXPECT_FALSE(game.pacer.Pacing());
    EXPECT_EQ(game.pacer.SwapInterval(), 1);
    game.Run(60, 4 * k60Hz_ns, 60.0, 1);
    EXPECT_EQ(game.Held(), 4);  // never slower past 51 ms
    // Once the misses are few it stops pipelining, which restarts the window; one window later
    // it comes back to 2 at once (a step at a time would take another window).
    game.Run(200, 21 * kMs_ns, 20.0, 0);
    EXPECT_EQ(game.pacer.SwapInterval(), 2);
    // Work is capped at 100 ms, and CPU and GPU overlap when pipelined.
    Game capped{SwapIntervalPacer(k60Hz_ns)};
    capped.Run(16, 150 * kMs_ns, 150.0, 1);
    EXPECT_EQ(capped.Held(), 7);
    Game split{SwapIntervalPacer(k60Hz_ns)};
    split.Run(52, 40 * kMs_ns, 20.0, 1, 20.0);
    EXPECT_EQ(split.Held(), 2);
}

TEST(SwapIntervalTest, SharesAndMeansAtTheirLimits) {
    struct Case {
        std::int64_t spacing_ns;
        int missed, frames, held;
    };
    // The share is rounded to a whole percent before it is compared with 10.
    for (const Case& c : {Case{4'095'000, 51, 490, 1}, Case{4'095'000, 52, 490, 2},
                          Case{10'100'000, 20, 200, 1}, Case{10'100'000, 21, 200, 2}}) {
        Game game{SwapIntervalPacer(k60Hz_ns)};
        game.Run(c.missed, c.spacing_ns, 15.0, 1);
        game.Run(c.frames - c.missed, c.spacing_ns, 15.0, 0);
        EXPECT_EQ(game.Held(), c.held) << c.missed << " of " << c.frames;
    }
    // Faster only when the mean plus 1 ms is below one refresh less 1 ms.
    for (const auto& [work_ms, held] : {std::pair{14.666665, 1}, std::pair{14.666666, 2}}) {
        Game game{SwapIntervalPacer(k60Hz_ns)};
        game.Run(102, 20 * kMs_ns, 15.0, 1);
        game.Run(70, 2 * k60Hz_ns, work_ms, 0);
        EXPECT_EQ(game.Held(), held) << work_ms;
    }
}

TEST(SwapIntervalTest, TheWindowSpansTwoSecondsAndRestartsAfterAChange) {
    Game game{SwapIntervalPacer(k60Hz_ns)};
    for (int held : {1, 2}) {
        game.Run(101, 20 * kMs_ns, 15.0, 1);  // first to last exactly 2 s
        EXPECT_EQ(game.Held(), held);
        game.Run(1, 20 * kMs_ns, 15.0, 1);
        EXPECT_EQ(game.Held(), held + 1);
    }
    game.Run(200, 3 * k60Hz_ns, 20.0, 0);
    ASSERT_EQ(game.Held(), 2);
    ASSERT_FALSE(game.pacer.Pipelined());
    // Heavy frames leave the mean with the window; kept since the last change they would hold
    // it above 14.7 ms.
    game.Run(50, 2 * k60Hz_ns, 12.0, 0);
    EXPECT_EQ(game.Held(), 1);

    Game hour{SwapIntervalPacer(8'333'333)};
    hour.Run(432'000, 8'333'333, 15.0, 0);
    EXPECT_EQ(hour.pacer.WindowFrames(), 242u);
}

}  // namespace
}  // namespace TalvexSim
