// Sequences of pacing targets and frame times on virtual time: each input byte picks the next
// operation of a render thread (a target, a sleep calculation, a frame end, time passing, a new
// pacing object, of the other policy, a vsync, a latch margin, a frame sleeping to its wake-up
// time). Nothing may leave the pacing object, the sleep it returns is never negative nor NaN, a
// wake-up time is never before the frame's clock read, and its node holds either the cleared line
// or nine fields, with NaN written as nan.
#include <chrono>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "FuzzEnvironment.h"
#include "FuzzInput.h"
#include "talvex/basics/Log.h"
#include "talvex/pacing/Quillet.h"

namespace {

using android::Nimbrel::Quillet::PacingPolicy;
using android::Nimbrel::Quillet::Quillet;

const int kTargets[] = {60, 45, 30, 90, 120, 11, 10, 0, -5, -10, -11, -30, -60, -120, 61, 59};
const int kLimits[] = {60, 90, 120, 144, 30, 0, -1, 2147483647};

int fromTable(FuzzInput& input, const int* table, size_t count) {
    const uint8_t choice = input.Byte();
    if (choice >= 0xF0) return input.Value<int32_t>();
    return table[choice % count];
}

// Frame times as a game has them (a few ms to a few frames), or anything at all.
uint64_t duration_ns(FuzzInput& input) {
    const uint8_t scale = input.Byte();
    switch (scale % 4) {
        case 0:
            return input.Byte() * 100000ULL;  // up to 25.5 ms
        case 1:
            return input.Value<uint16_t>() * 1000ULL;  // up to 65 ms
        case 2:
            return 0;
        default:
            return input.Value<uint64_t>();
    }
}

void checkNode() {
    std::ifstream file(FuzzEnvironment::NodePath("egl_buf"), std::ios::binary);
    if (!file.is_open()) return;
    const std::string line((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    if (line.empty() || line == "\n") return;
    if (line.back() != '\n') __builtin_trap();
    size_t fields = 1, windowParts = 1;
    for (const char c : line) {
        fields += c == ';' ? 1 : 0;
        windowParts += c == ',' && fields == 4 ? 1 : 0;
    }
    if (fields != 9 || windowParts != 4) __builtin_trap();
    if (line.find("-nan") != std::string::npos) __builtin_trap();
}

void checkSleep(float sleep_ms) {
    if (!(sleep_ms >= 0.0f)) __builtin_trap();
}

// Some nanoseconds either side of zero, as vsync times around now and periods come.
std::chrono::nanoseconds signedDuration(FuzzInput& input) {
    const bool negative = input.Byte() % 2 == 1;
    const auto span = static_cast<int64_t>(duration_ns(input) & ((1ULL << 62) - 1));
    return std::chrono::nanoseconds(negative ? -span : span);
}

// A vsync, a latch margin, or a frame that sleeps to its wake-up time.
void displayOperation(uint8_t operation, FuzzInput& input, Quillet& quillet, int target,
                      int refreshRate, int maxFPS) {
    switch (operation % 3) {
        case 0:
            quillet.OnVsync(TalvexHarness::VirtualClock::Now() + signedDuration(input),
                            signedDuration(input));
            break;
        case 1:
            quillet.SetLatchMargin(signedDuration(input));
            break;
        default: {
            quillet.Update(target, refreshRate, maxFPS);
            FuzzEnvironment::Advance(duration_ns(input));
            const Basics::TimePoint read = TalvexHarness::VirtualClock::Now();
            const Basics::TimePoint wake = quillet.CalculateWakeUpTime();
            if (wake < read) __builtin_trap();
            checkNode();
            FuzzEnvironment::Advance(static_cast<uint64_t>((wake - read).count()));
            quillet.PostUpdate();
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzEnvironment::Start();
    FuzzInput input(data, size);
    Basics::Log::SetLogLevel(input.Byte() % 5 - 1);

    constexpr size_t kTargetCount = sizeof(kTargets) / sizeof(kTargets[0]);
    constexpr size_t kLimitCount = sizeof(kLimits) / sizeof(kLimits[0]);
    PacingPolicy policy = PacingPolicy::Quota;
    auto quillet = std::make_unique<Quillet>(policy);
    int target = 60;
    int refreshRate = 60;
    int maxFPS = 60;
    while (!input.Empty()) {
        const uint8_t operation = input.Byte();
        if (operation >= 0xE0) {
            displayOperation(operation, input, *quillet, target, refreshRate, maxFPS);
            continue;
        }
        switch (operation % 7) {
            case 0:
                target = fromTable(input, kTargets, kTargetCount);
                refreshRate = fromTable(input, kLimits, kLimitCount);
                maxFPS = fromTable(input, kLimits, kLimitCount);
                quillet->Update(target, refreshRate, maxFPS);
                break;
            case 1:
                checkSleep(quillet->CalculateSleepDuration_ms());
                checkNode();
                break;
            case 2:
                quillet->PostUpdate();
                break;
            case 3:
                FuzzEnvironment::Advance(duration_ns(input));
                break;
            case 4:
                quillet.reset();
                policy =
                    policy == PacingPolicy::Quota ? PacingPolicy::Deadline : PacingPolicy::Quota;
                quillet = std::make_unique<Quillet>(policy);
                break;
            default: {
                // A whole frame that sleeps what it is told.
                quillet->Update(target, refreshRate, maxFPS);
                FuzzEnvironment::Advance(duration_ns(input));
                const float sleep_ms = quillet->CalculateSleepDuration_ms();
                checkSleep(sleep_ms);
                checkNode();
                FuzzEnvironment::Advance(sleep_ms < 1e9f ? static_cast<uint64_t>(sleep_ms * 1e6f)
                                                         : 0);
                quillet->PostUpdate();
                break;
            }
        }
    }
    return 0;
}
