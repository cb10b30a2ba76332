#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
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

// A host's logger may wait on a thread that uses the center: a refusal is logged only once the
// center's lock is released.
TEST(SettingsCenterConcurrency, RefusalIsLoggedAfterTheLockIsReleased) {
    TalvexHarness::SettingsCenterScope emptied;
    static std::thread reader;
    static bool readWhileLogging = false;
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {
        auto read = std::make_shared<std::promise<void>>();
        reader = std::thread([read] {
            UserSettings::UserSettingsCenter::GetInstance().GetVersion();
            read->set_value();
        });
        readWhileLogging =
            read->get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    });
    UserSettings::UserSettingsCenter::GetInstance().OnUserSettingParameter({"c", "unknown", "1"});
    __android_log_set_logger(__android_log_stderr_logger);
    reader.join();
    EXPECT_TRUE(readWhileLogging);
}

}  // namespace
