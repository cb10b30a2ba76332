#include <gtest/gtest.h>

#include <vector>

#include "tools/sim/model/Display.h"

namespace TalvexSim {
namespace {

constexpr std::int64_t kMs = 1'000'000;

struct Panel {
    explicit Panel(DisplayParams params, int refreshRate_Hz = 60)
        : display(params, refreshRate_Hz,
                  [this](const ShownFrame& frame) { shown.push_back(frame); }) {}
    std::vector<ShownFrame> shown;
    Display display;
};

DisplayParams params(DisplayMode mode, int buffers = 3) {
    DisplayParams p;
    p.mode = mode;
    p.buffers = buffers;
    p.latchMargin_ms = 1.0;
    p.compositionDelay_ms = 5.0;
    return p;
}

TEST(DisplayTest, AFrameReadyInsideTheMarginWaitsForTheNextRefreshAndFreesTheOneOnScreen) {
    Panel panel(params(DisplayMode::Fixed, 2));
    panel.display.Queue(0, 16 * kMs);  // 0.67 ms before the refresh at 16.67: too late
    EXPECT_EQ(panel.display.NextLatch_ns(), 33'333'334);
    EXPECT_TRUE(panel.display.CanDequeue());
    panel.display.Queue(16 * kMs, 20 * kMs);
    EXPECT_FALSE(panel.display.CanDequeue());  // one queued on screen's behalf, one more queued
    panel.display.AdvanceTo(40 * kMs);
    ASSERT_EQ(panel.shown.size(), 1u);
    EXPECT_EQ(panel.shown[0].latched_ns, 33'333'334);
    EXPECT_EQ(panel.shown[0].glass_ns, 33'333'334 + 5 * kMs);
    // The first frame is on screen and the second still queued: two buffers in use.
    EXPECT_FALSE(panel.display.CanDequeue());
    EXPECT_EQ(panel.display.NextLatch_ns(), 50'000'001);
    panel.display.AdvanceTo(50'000'001);
    EXPECT_TRUE(panel.display.CanDequeue());
    panel.display.Release();
    panel.display.AdvanceTo(100 * kMs);
    EXPECT_EQ(panel.shown.size(), 2u);
}

TEST(DisplayTest, VariableRefreshShowsAtOnceWithinItsShortestAndLongestPeriods) {
    DisplayParams p = params(DisplayMode::Vrr);
    p.vrrMin_Hz = 30.0;
    Panel panel(p, 120);
    panel.display.Queue(0, 3 * kMs);  // sooner than one 120 Hz period after the last refresh
    EXPECT_EQ(panel.display.NextLatch_ns(), 8'333'333);
    panel.display.AdvanceTo(10 * kMs);
    panel.display.Queue(3 * kMs, 20 * kMs);
    EXPECT_EQ(panel.display.NextLatch_ns(), 21 * kMs);  // ready plus the margin
    panel.display.AdvanceTo(30 * kMs);
    // Nothing ready for longer than a 30 Hz period: the panel refreshes on its own, and the next
    // frame waits one shortest period after that refresh.
    panel.display.Queue(20 * kMs, 21 * kMs + 33'333'333 - 1);
    EXPECT_EQ(panel.display.NextLatch_ns(), 21 * kMs + 33'333'333 + 8'333'333);
    ASSERT_EQ(panel.shown.size(), 2u);
    EXPECT_EQ(panel.shown[1].latched_ns, 21 * kMs);
}

TEST(DisplayTest, APanelWithModesSwitchesAtTheNextRefresh) {
    DisplayParams p = params(DisplayMode::Modes);
    p.modes_Hz = {60, 90, 120};
    Panel panel(p, 120);
    EXPECT_EQ(panel.display.Rate_Hz(), 120);
    panel.display.HoldRate(45);
    EXPECT_EQ(panel.display.Rate_Hz(), 120);  // until the next refresh, at 8.3 ms
    panel.display.Queue(0, 9 * kMs);
    EXPECT_EQ(panel.display.NextLatch_ns(), 8'333'333 + 11'111'111);
    panel.display.AdvanceTo(8'333'333);
    EXPECT_EQ(panel.display.Rate_Hz(), 90);
    panel.display.HoldRate(40);  // no mode divides by 40: the top rate
    panel.display.AdvanceTo(20 * kMs);
    EXPECT_EQ(panel.display.Rate_Hz(), 120);
    panel.display.HoldRate(30);
    panel.display.AdvanceTo(30 * kMs);
    EXPECT_EQ(panel.display.Rate_Hz(), 60);
}

}  // namespace
}  // namespace TalvexSim
