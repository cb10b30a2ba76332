#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FpsManagerHarness.h"

namespace TalvexTest {
namespace {

using ::testing::IsEmpty;

class FpsManagerConcurrency : public FpsManagerTest {
  protected:
    FpsManagerConcurrency() { Basics::Log::SetLogLevel(2); }
};

// Each manager ticks on its own thread while one settings thread keeps retuning all of them
// through the settings center; the sanitizer job runs this under ThreadSanitizer.
TEST_F(FpsManagerConcurrency, ManagersTickOnTheirThreadsWhileSettingsArrive) {
    constexpr int kManagers = 3;
    constexpr int kTicks = 400;
    constexpr int kRounds = 60;
    std::vector<std::unique_ptr<FpsManager>> managers;
    for (int i = 0; i < kManagers; ++i)
        managers.push_back(std::make_unique<FpsManager>(301 + i, 60));

    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (auto& manager : managers) {
        threads.emplace_back([&, target = manager.get()] {
            while (!go) std::this_thread::yield();
            for (int tick = 0; tick < kTicks; ++tick) {
                clock.AdvanceMs(5);
                target->Update(Reading(tick % 2 ? 46.0f : 30.0f, 2500.0f), 58 - tick % 20, 60);
                target->PostUpdate();
                EXPECT_LE(target->GetSFPS(), target->GetGFPS());
            }
        });
    }
    threads.emplace_back([&] {
        while (!go) std::this_thread::yield();
        for (int round = 0; round < kRounds; ++round) {
            const bool odd = round % 2 != 0;
            for (int i = 0; i < kManagers; ++i) {
                Center().OnCurrentBrainResume(301 + i);
                managers[i]->OnUserSettingParameters(MakeRecords(
                    {{"stabilizer", "gfps", odd ? "30-45-60" : "30-60"},
                     {"stabilizer", "sfps", odd ? "0-40-" + std::to_string(53 + i) : "0-45"},
                     {"stabilizer", "lower_bound_stabilize", odd ? "1" : "0"},
                     {"stabilizer", "ex_du", odd ? "50" : "20"},
                     {"sfps_temperature", "ttsigal", odd ? "0" : "1"},
                     {"sfps_current", "current_threshold", odd ? "2000" : "nan"}}));
            }
        }
    });
    go = true;
    for (std::thread& thread : threads) thread.join();

    EXPECT_THAT(logs.Find(ANDROID_LOG_ERROR), IsEmpty());
    EXPECT_EQ(trace.SectionNames().size(), static_cast<size_t>(kManagers * kTicks));
    EXPECT_EQ(trace.OpenSections(), 0);
    // Every manager got the last settings meant for it: the switch on, its own lower bound.
    for (int i = 0; i < kManagers; ++i) {
        Tick(*managers[i], 60);
        EXPECT_EQ(managers[i]->GetGFPS(), 60);
        EXPECT_EQ(managers[i]->GetSFPS(), 53 + i);
    }
}

}  // namespace
}  // namespace TalvexTest
