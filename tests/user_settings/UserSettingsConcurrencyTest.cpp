#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace {

using UserSettings::UserSettingsCenter;

// Settings arrive on several threads while components register: every record either reaches its
// action and is recorded, or is reported as one error; none is lost and nothing deadlocks.
TEST(SettingsCenterConcurrency, DispatchWhileRegisteringLosesNothing) {
    constexpr int kDispatchers = 4;
    constexpr int kRegistrars = 2;
    constexpr int kRecordsPerDispatcher = 400;
    constexpr int kLateKeys = 100;

    UserSettingsCenter& center = UserSettingsCenter::GetInstance();
    center.ResetForTesting();
    TalvexTest::LogCapture logs;
    center.OnCurrentBrainResume(42);

    std::vector<std::atomic<int>> earlyCalls(kDispatchers);
    for (int d = 0; d < kDispatchers; ++d) {
        center.RegisterUserSetting(
            "early" + std::to_string(d), [&earlyCalls, d](std::string) { ++earlyCalls[d]; },
            "load");
    }

    std::atomic<int> lateCalls{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int r = 0; r < kRegistrars; ++r) {
        threads.emplace_back([&, r] {
            while (!go) std::this_thread::yield();
            for (int i = 0; i < kLateKeys; ++i) {
                center.RegisterUserSetting(
                    "late" + std::to_string(r) + "_" + std::to_string(i),
                    [&](std::string) {
                        center.GetVersion();  // re-enters the lock it runs under
                        ++lateCalls;
                    },
                    "load");
            }
        });
    }
    for (int d = 0; d < kDispatchers; ++d) {
        threads.emplace_back([&, d] {
            while (!go) std::this_thread::yield();
            for (int i = 0; i < kRecordsPerDispatcher; ++i) {
                center.OnUserSettingParameter(
                    {"load", "early" + std::to_string(d), std::to_string(i)});
                const std::string late =
                    "late" + std::to_string(d % kRegistrars) + "_" + std::to_string(i % kLateKeys);
                center.OnUserSettingParameter({"load", late, std::to_string(d)});
            }
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();

    for (int d = 0; d < kDispatchers; ++d) EXPECT_EQ(earlyCalls[d], kRecordsPerDispatcher);
    // A record for a key not registered yet is reported, never silently dropped.
    EXPECT_EQ(lateCalls + static_cast<int>(logs.Count(ANDROID_LOG_ERROR, "\t PID: '42'")),
              kDispatchers * kRecordsPerDispatcher);
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), logs.Count(ANDROID_LOG_ERROR, "\t PID: '42'"));

    // Every registration arrived.
    logs.Clear();
    lateCalls = 0;
    for (int r = 0; r < kRegistrars; ++r) {
        for (int i = 0; i < kLateKeys; ++i) {
            center.OnUserSettingParameter(
                {"load", "late" + std::to_string(r) + "_" + std::to_string(i), "x"});
        }
    }
    EXPECT_EQ(lateCalls, kRegistrars * kLateKeys);
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), 0u);

    // Each dispatcher's last value is the one recorded for its key.
    ::testing::internal::CaptureStdout();
    center.PrintUserSettingRecords(42);
    const std::string records = ::testing::internal::GetCapturedStdout();
    for (int d = 0; d < kDispatchers; ++d) {
        EXPECT_THAT(records, ::testing::HasSubstr("(early" + std::to_string(d) + ", " +
                                                  std::to_string(kRecordsPerDispatcher - 1) + ")"));
    }
    center.ResetForTesting();
}

}  // namespace
