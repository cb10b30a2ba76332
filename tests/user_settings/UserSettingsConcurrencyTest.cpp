#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace {

// Settings arrive on several threads while components register: every record either reaches its
// action and is recorded, or is reported as one error; none is lost and nothing deadlocks.
TEST(SettingsCenterConcurrency, DispatchWhileRegisteringLosesNothing) {
    constexpr int kDispatchers = 4, kRegistrars = 2, kRecords = 400, kLateKeys = 100;
    TalvexHarness::SettingsCenterScope emptied;
    UserSettings::UserSettingsCenter& center = UserSettings::UserSettingsCenter::GetInstance();
    TalvexHarness::LogSink logs;
    center.OnCurrentBrainResume(42);
    std::vector<std::atomic<int>> earlyCalls(kDispatchers);
    for (int d = 0; d < kDispatchers; ++d) {
        center.RegisterUserSetting(
            "early" + std::to_string(d), [&earlyCalls, d](std::string) { ++earlyCalls[d]; },
            "load");
    }
    const auto lateKey = [](int r, int i) {
        return "late" + std::to_string(r) + "_" + std::to_string(i);
    };

    std::atomic<int> lateCalls{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int r = 0; r < kRegistrars; ++r) {
        threads.emplace_back([&, r] {
            while (!go) std::this_thread::yield();
            for (int i = 0; i < kLateKeys; ++i) {
                center.RegisterUserSetting(
                    lateKey(r, i),
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
            for (int i = 0; i < kRecords; ++i) {
                center.OnUserSettingParameter(
                    {"load", "early" + std::to_string(d), std::to_string(i)});
                center.OnUserSettingParameter(
                    {"load", lateKey(d % kRegistrars, i % kLateKeys), "x"});
            }
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();

    for (int d = 0; d < kDispatchers; ++d) EXPECT_EQ(earlyCalls[d], kRecords);
    // A record for a key not registered yet is reported, never silently dropped.
    EXPECT_EQ(lateCalls + static_cast<int>(logs.Count(ANDROID_LOG_ERROR, "\t PID: '42'")),
              kDispatchers * kRecords);
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), logs.Count(ANDROID_LOG_ERROR, "\t PID: '42'"));
    ::testing::internal::CaptureStdout();
    center.PrintUserSettingRecords(42);
    const std::string records = ::testing::internal::GetCapturedStdout();
    for (int d = 0; d < kDispatchers; ++d) {  // each dispatcher's last value is recorded
        EXPECT_THAT(records, ::testing::HasSubstr("(early" + std::to_string(d) + ", " +
                                                  std::to_string(kRecords - 1) + ")"));
    }
    // Every registration arrived.
    logs.Clear();
    lateCalls = 0;
    for (int r = 0; r < kRegistrars; ++r) {
        for (int i = 0; i < kLateKeys; ++i)
            center.OnUserSettingParameter({"load", lateKey(r, i), ""});
    }
    EXPECT_EQ(lateCalls, kRegistrars * kLateKeys);
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), 0u);
}

}  // namespace
