#include "TickScenario.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "harness/VirtualClock.h"
#include "talvex/user_settings/UserSetting.h"

namespace TalvexBench {
namespace {

constexpr int kPid = 4321;
constexpr int kRefreshRate = 60;
constexpr int kOFPS = 60;
// Lowest SFPS allowed at GFPS 60: the balanced rate falls from 60 at 40 degrees to it at 45.
constexpr int kLowerBound = 45;
// The balanced rate is 57 at 41 degrees and 48 at 44 degrees: switching every 8 ticks keeps the
// decider, which moves one FPS per second, always short of its target.
constexpr int kPhaseTicks = 8;

using Settings = std::vector<UserSettings::UserSetting>;

Settings settingsOf(TickState state) {
    Settings settings;
    if (state == TickState::NoLists) return settings;
    settings.push_back({"stabilizer", "gfps", "30-60"});
    settings.push_back({"stabilizer", "sfps", "20-45"});
    // The explorer kept waiting: its rounds feed the tick's own length (one second) to the EFPS,
    // which moves the GFPS, and with it the node, for a tick in every eleven.
    settings.push_back({"stabilizer", "explore_duration_ms", "1e9"});
    if (state == TickState::DeciderStepping) {
        settings.push_back({"sfps_temperature", "ttsigal", "0"});
    }
    return settings;
}

}  // namespace

const char* TickStateName(TickState state) {
    switch (state) {
        case TickState::NoLists:
            return "no_lists";
        case TickState::ListsIdle:
            return "lists_idle";
        case TickState::DeciderStepping:
            return "decider_stepping";
    }
    return "unknown";
}

TickScenario::TickScenario(TickState state)
    : state(state),
      manager(std::make_unique<android::FpsStabilizer::FpsManager>(kPid, kRefreshRate)) {
    info.electricCurrent_uA = 900000;
    info.cpuUtils[0] = 40;
    info.cpuUtils[1] = 30;
    info.cpuUtils[2] = 20;
    info.cpuUtils[3] = 10;
    info.temperature_mC = 35000;
    manager->OnUserSettingParameters(std::make_shared<const Settings>(settingsOf(state)));
    if (state == TickState::DeciderStepping) {
        // Hot enough for the lowest balanced rate: the decider waits no time, walks from 60 to
        // the lower bound one FPS per 10 s and activates there.
        info.temperature_mC = 45000;
        for (int i = 0; i < 400; ++i) Tick();
        if (SFPS() != kLowerBound) {
            throw std::runtime_error("the temperature decider did not activate: SFPS " +
                                     std::to_string(SFPS()));
        }
        alternating = true;
    } else {
        for (int i = 0; i < 30; ++i) Tick();
    }
    tick = 0;
}

TickScenario::~TickScenario() { manager->OnPause(); }

bool TickScenario::Tick() {
    if (state == TickState::DeciderStepping && alternating) {
        info.temperature_mC = (tick / kPhaseTicks) % 2 == 0 ? 41000 : 44000;
    }
    ++tick;
    const int before = manager->GetSFPS();
    TalvexHarness::VirtualClock::Advance(std::chrono::seconds(1));
    manager->Update(info, kOFPS, kRefreshRate);
    manager->PostUpdate();
    return manager->GetSFPS() != before;
}

}  // namespace TalvexBench
