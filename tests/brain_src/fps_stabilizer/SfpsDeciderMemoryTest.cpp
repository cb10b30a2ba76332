#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "ManualClock.h"
#include "talvex/brain_src/fps_stabilizer/SfpsDecider.h"
#include "talvex/user_settings/UserSettingsCenter.h"

// Counts every allocation of the process, the library's included, so that a decider that keeps
// growing shows up however it stores its readings.
namespace {
std::atomic<long long> heapAllocations{0};
}  // namespace

// GCC takes the free() inside a replaced operator delete for a mismatched deallocation.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(std::size_t size) {
    ++heapAllocations;
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { ::operator delete(block); }

namespace {

// One tick per second at a stable GFPS, through the states in which readings pile up: idle with
// the threshold unset or not reached, activated without a step, and stepping at the floor.
TEST(SfpsDeciderMemory, ADayOfTicksAtAStableGfpsNeedsNoMoreMemoryThanTheFirstHour) {
    auto& center = UserSettings::UserSettingsCenter::GetInstance();
    for (const char* threshold : {"nan", "3000", "2000"}) {
        for (float electricCurrent_mA : {1500.0f, 2080.0f, 2500.0f}) {
            TalvexTest::ManualClock clock;
            center.ResetForTesting();
            android::FpsStabilizer::SfpsDeciderAccordingToTemperature temperature;
            android::FpsStabilizer::SfpsDeciderAccordingToElectricCurrent current;
            current.SetElectricCurrentToStabilizeFPS(threshold);
            long long allocationsAfterHour = 0;
            for (int second = 0; second < 24 * 3600; ++second) {
                if (second == 3600) allocationsAfterHour = heapAllocations;
                clock.AdvanceSeconds(1);
                temperature.Update(60, 45, 42.0f);
                current.Update(60, 45, electricCurrent_mA);
            }
            EXPECT_EQ(heapAllocations, allocationsAfterHour)
                << threshold << " " << electricCurrent_mA;
            EXPECT_TRUE(temperature.IsActivated());
            center.ResetForTesting();
        }
    }
}

}  // namespace
