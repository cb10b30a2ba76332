// Setting records through the FPS manager's door, mixed with everything else a host does: each
// input byte picks the next operation (records, ticks, pauses, resumes, new managers, another
// current PID) on two managers. Nothing may leave any of these operations, whatever the records,
// readings or order; the sanitizers watch the components the records reach.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzEnvironment.h"
#include "FuzzInput.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace {

using android::FpsStabilizer::FpsManager;
using android::FpsStabilizer::SYS_INFO;
using UserSettings::UserSetting;

template <size_t N>
std::string pick(FuzzInput& input, const char* const (&table)[N]) {
    const uint8_t choice = input.Byte();
    if (choice >= 0xF0) return input.ShortString();
    return table[choice % N];
}

const char* const kCategories[] = {
    "stabilizer", "sfps_temperature", "sfps_current", "basics",  "print_candidates",
    "candidates", "print_records",    "records",      "history", ""};

const char* const kKeys[] = {"gfps",
                             "efps",
                             "sfps",
                             "sfps_lower_bound",
                             "ofps_max",
                             "explore_duration_ms",
                             "ex_du",
                             "explore_buffer_size",
                             "ex_buf",
                             "use_lower_bound_to_stabilize",
                             "lower_bound_stabilize",
                             "temperature_lower_bound",
                             "start_temperature",
                             "temperature_upper_bound",
                             "max_temperature",
                             "time_to_stay_in_gfps_at_least",
                             "ttsigal",
                             "electric_current_threshold_to_compress_fps",
                             "current_threshold",
                             "set_loglevel",
                             "LogLevel",
                             "set_debug",
                             "DebugMode",
                             "loglevel",
                             ""};

const char* const kValues[] = {"0",
                               "1",
                               "-1",
                               "2",
                               "3",
                               "20",
                               "45",
                               "60",
                               "30-60",
                               "0-45",
                               "30-45-60",
                               "0-40-50",
                               "25-30-40-60-max",
                               "max",
                               "10-max",
                               "0-58-85",
                               "reset",
                               "nan",
                               "NAN",
                               "",
                               " 1",
                               "1e40",
                               "-1e40",
                               "inf",
                               "-inf",
                               "abc",
                               "4294967295",
                               "4294967296",
                               "2147483647",
                               "-2147483648",
                               "0x10",
                               "--5-",
                               "60-",
                               "-60",
                               "true",
                               "0.0001"};

const int kRates[] = {60, 90, 120, 144, 30, 0, -1, 1, 2147483647};

SYS_INFO reading(FuzzInput& input) {
    SYS_INFO info{};
    info.electricCurrent_uA = input.Value<uint32_t>();
    for (auto& utilisation : info.cpuUtils) utilisation = input.Byte();
    info.temperature_mC = input.Byte() & 1 ? input.Value<uint32_t>() : 30000u + input.Byte() * 100u;
    return info;
}

int rate(FuzzInput& input) {
    const uint8_t choice = input.Byte();
    if (choice >= 0xF0) return input.Value<int32_t>();
    return kRates[choice % (sizeof(kRates) / sizeof(kRates[0]))];
}

int pidFor(FuzzInput& input, int slot) {
    switch (input.Byte() % 4) {
        case 0:
            return 101 + slot;
        case 1:
            return 101;  // both managers may serve one PID
        case 2:
            return -1;
        default:
            return input.Value<int32_t>();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzEnvironment::Start();
    FuzzEnvironment::QuietStdout quiet;
    auto& center = UserSettings::UserSettingsCenter::GetInstance();
    center.ResetForTesting();
    Basics::Log::SetDebug(false);

    FuzzInput input(data, size);
    Basics::Log::SetLogLevel(input.Byte() % 5 - 1);
    std::unique_ptr<FpsManager> managers[2];
    // Built one after the other, as a host does: each registers under its own PID.
    managers[0] = std::make_unique<FpsManager>(101, 60);
    managers[1] = std::make_unique<FpsManager>(102, 60);

    while (!input.Empty()) {
        const uint8_t operation = input.Byte();
        FpsManager& manager = *managers[operation & 1];
        switch ((operation >> 1) % 9) {
            case 0:
            case 1: {
                auto records = std::make_shared<std::vector<UserSetting>>();
                const int count = 1 + input.Byte() % 4;
                for (int i = 0; i < count; ++i) {
                    UserSetting record;
                    record.category = pick(input, kCategories);
                    record.key = pick(input, kKeys);
                    record.value = pick(input, kValues);
                    records->push_back(std::move(record));
                }
                manager.OnUserSettingParameters(records);
                break;
            }
            case 2: {
                FuzzEnvironment::Advance(input.Byte() & 1 ? input.Value<uint64_t>()
                                                          : input.Byte() * 10000000ULL);
                const SYS_INFO info = reading(input);
                const int ofps = input.Byte() & 1 ? input.Value<int32_t>() : input.Byte() % 150;
                manager.Update(info, ofps, rate(input));
                manager.PostUpdate();
                break;
            }
            case 3:
                manager.PostUpdate();
                break;
            case 4:
                manager.OnPause();
                break;
            case 5:
                manager.OnResume(input.Value<int32_t>());
                break;
            case 6: {
                // A new manager for the slot; the old one forgets its settings as it goes.
                const int slot = operation & 1;
                const int pid = pidFor(input, slot);
                const int refresh = rate(input);
                managers[slot].reset();
                managers[slot] = std::make_unique<FpsManager>(pid, refresh);
                break;
            }
            case 7:
                center.OnCurrentBrainResume(pidFor(input, operation & 1));
                break;
            default: {
                std::shared_ptr<const std::vector<UserSetting>> none;
                manager.OnUserSettingParameters(none);
                manager.OnUserSettingParameters(std::make_shared<std::vector<UserSetting>>());
                (void)manager.GetGFPS();
                (void)manager.GetSFPS();
                break;
            }
        }
    }

    managers[0].reset();
    managers[1].reset();
    center.ResetForTesting();
    return 0;
}
