#include <gtest/gtest.h>

#include "harness/AllocationCounter.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/brain_src/fps_stabilizer/SfpsDecider.h"

namespace {

// One tick per second at a stable GFPS, through the states in which readings pile up: idle with
// the threshold unset or not reached, activated without a step, and stepping at the floor.
TEST(SfpsDeciderMemory, ADayOfTicksAtAStableGfpsNeedsNoMoreMemoryThanTheFirstHour) {
    for (const char* threshold : {"nan", "3000", "2000"}) {
        for (float electricCurrent_mA : {1500.0f, 2080.0f, 2500.0f}) {
            TalvexHarness::VirtualClock clock;
            TalvexHarness::SettingsCenterScope emptied;
            android::FpsStabilizer::SfpsDeciderAccordingToTemperature temperature;
            android::FpsStabilizer::SfpsDeciderAccordingToElectricCurrent current;
            current.SetElectricCurrentToStabilizeFPS(threshold);
            // Every allocation of the process, the library's included, so that a decider that
            // keeps growing shows up however it stores its readings.
            TalvexHarness::AllocationCounter allocations;
            std::uint64_t allocationsAfterHour = 0;
            for (int second = 0; second < 24 * 3600; ++second) {
                if (second == 3600) allocationsAfterHour = allocations.ProcessCount();
                clock.AdvanceSeconds(1);
                temperature.Update(60, 45, 42.0f);
                current.Update(60, 45, electricCurrent_mA);
            }
            EXPECT_EQ(allocations.ProcessCount(), allocationsAfterHour)
                << threshold << " " << electricCurrent_mA;
            EXPECT_TRUE(temperature.IsActivated());
        }
    }
}

}  // namespace
