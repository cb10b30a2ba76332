// Both halves of the library at once, as a host process runs them: two managers ticking on their
// own threads, four threads sending setting records through either manager, pauses, resumes and
// rebuilt managers, and a pacing object on a render thread. The ThreadSanitizer job runs it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <regex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/Log.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"
#include "talvex/pacing/Quillet.h"
#include "talvex/user_settings/UserSettingsCenter.h"

namespace TalvexTest {

using TalvexHarness::LogSink;
using TalvexHarness::NodeDirectory;
using TalvexHarness::VirtualClock;
namespace {

using android::FpsStabilizer::FpsManager;
using android::FpsStabilizer::SYS_INFO;
using android::Nimbrel::Quillet::Quillet;
using UserSettings::UserSetting;
using RecordsByKey = std::map<std::string, std::string>;

constexpr int kPids[] = {4101, 4102};
constexpr int kSenders = 4;
constexpr int kRecordsPerSender = 10000;
constexpr int kOpeningRecords = 500;

// Listings read the center without its lock, so the host keeps them, and everything that moves
// the current PID, apart from other settings traffic. Writers go first, or four busy readers
// would starve them; readers wait for them on a relaxed flag, so that the gate orders nothing
// between readers that the library itself does not.
class SettingsGate {
  public:
    void LockShared() {
        while (writersWaiting.load(std::memory_order_relaxed) > 0) std::this_thread::yield();
        readers.lock_shared();
    }
    void UnlockShared() { readers.unlock_shared(); }
    void Lock() {
        writersWaiting.fetch_add(1, std::memory_order_relaxed);
        readers.lock();
        writersWaiting.fetch_sub(1, std::memory_order_relaxed);
    }
    void Unlock() { readers.unlock(); }

  private:
    std::atomic<int> writersWaiting{0};
    std::shared_mutex readers;
};

// What the center must hold, kept by the test beside the real traffic. The PID state changes only
// under the exclusive gate and is read under the shared one; each sender keeps the records it
// expects in its own slot, since it alone sends its keys.
struct CenterModel {
    int currentPid = -1;
    std::map<int, bool> registered;
    std::map<int, RecordsByKey> records[kSenders];

    bool IsRegistered(int pid) const {
        const auto found = registered.find(pid);
        return found != registered.end() && found->second;
    }
    void Forget(int pid) {
        registered[pid] = false;
        for (auto& bySender : records) bySender[pid].clear();
        if (currentPid == pid) currentPid = -1;
    }
    void Build(int pid) {
        registered[pid] = true;
        currentPid = pid;
    }
    RecordsByKey Expected(int pid) const {
        RecordsByKey all;
        for (const auto& bySender : records) {
            const auto found = bySender.find(pid);
            if (found != bySender.end()) all.insert(found->second.begin(), found->second.end());
        }
        return all;
    }
};

// One step of a sender: the record, whether it is meant to be accepted by a registered action
// (component) or by the manager itself (switch), or to be refused.
struct Step {
    enum Kind { Component, Switch, Refused, Print };
    UserSetting record;
    Kind kind;
};

// Each sender owns its component keys, so the last value it sent for a key is the one the
// records must hold. An sfps list is sent only right after the gfps list it fits.
std::vector<Step> ComponentSteps(int sender, uint32_t draw) {
    const bool alt = (draw & 1) != 0;
    switch (sender) {
        case 0:
            return {{{"stabilizer", "ex_du", "0"}, Step::Refused},
                    {{"stabilizer", "ex_du", alt ? "20" : "reset"}, Step::Component},
                    {{"stabilizer", "ex_buf", alt ? "6" : "2"}, Step::Component}};
        case 1:
            return {
                {{"sfps_temperature", "max_temperature", "warm"}, Step::Refused},
                {{"sfps_temperature", "start_temperature", alt ? "38.5" : "41"}, Step::Component},
                {{"sfps_temperature", "max_temperature", alt ? "reset" : "47"}, Step::Component}};
        case 2:
            return {{{"sfps_current", "ecttcf", "amps"}, Step::Refused},
                    {{"sfps_current", "current_threshold", alt ? "1800" : "nan"}, Step::Component},
                    {{"sfps_current", "ecttcf", alt ? "2500.5" : "2400"}, Step::Component}};
        default:
            // No gfps list here admits this one: too short for three, too high for 30-60.
            return {{{"stabilizer", "sfps", "0-70"}, Step::Refused},
                    {{"stabilizer", "gfps", alt ? "30-45-60" : "30-60"}, Step::Component},
                    {{"stabilizer", "sfps", alt ? "0-40-50" : "0-45"}, Step::Component},
                    {{"stabilizer", "lower_bound_stabilize", alt ? "1" : "0"}, Step::Component},
                    {{"sfps_current", "ttsigal", alt ? "0" : "5"}, Step::Component},
                    {{"sfps_temperature", "ttsigal", alt ? "3" : "reset"}, Step::Component}};
    }
}

// Records every sender may send: log switches (levels that keep ERROR messages, so every refusal
// is counted), and refusals of the manager and the center.
std::vector<Step> SharedSteps(uint32_t draw) {
    const bool alt = (draw & 1) != 0;
    return {{{"basics", "log_level", alt ? "1" : "0"}, Step::Switch},
            {{"basics", "DebugMode", alt ? "1" : "0"}, Step::Switch},
            {{"basics", "LogLevel", "loud"}, Step::Refused},
            {{"basics", "set_debug", "true"}, Step::Refused},
            {{"basics", "loglevel", "1"}, Step::Refused},
            {{"stabilizer", "no_such_key", "1"}, Step::Refused},
            {{"no_such_category", "gfps", "30-60"}, Step::Refused}};
}

std::vector<Step> PrintSteps(uint32_t draw) {
    return {{{draw & 1 ? "print_candidates" : "candidates", "", ""}, Step::Print},
            {{draw & 2 ? "history" : "print_records", "any", "thing"}, Step::Print}};
}

uint32_t NextDraw(uint32_t& seed) {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
}

SYS_INFO Reading(int tick) {
    SYS_INFO info{};
    info.temperature_mC = tick % 3 != 0 ? 47000u : 30000u;
    info.electricCurrent_uA = 2600000u;
    return info;
}

// The records listing of one PID, as the center writes it to the log.
RecordsByKey ListedRecords(LogSink& logs, int pid) {
    logs.Clear();
    UserSettings::UserSettingsCenter::GetInstance().PrintUserSettingRecords(pid);
    const auto listings = logs.Find(ANDROID_LOG_INFO, "Game: " + std::to_string(pid) + " ");
    RecordsByKey listed;
    if (listings.size() != 1) return {{"<listings>", std::to_string(listings.size())}};
    static const std::regex entry(R"(\(([^,()]+), ([^()]*)\))");
    const std::string& text = listings.front().text;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), entry);
         it != std::sregex_iterator(); ++it) {
        listed[(*it)[1]] = (*it)[2];
    }
    return listed;
}

// Four senders, two hosts and a render thread, started together. The gate and the model keep the
// test's expectations in step with what the threads do to the center.
class ReliabilityConcurrency : public ::testing::Test {
  protected:
    ReliabilityConcurrency() {
        // Registration files under the process-wide current PID: build on one thread.
        for (int i = 0; i < 2; ++i) {
            managers[i] = std::make_unique<FpsManager>(kPids[i], 60);
            model.Build(kPids[i]);
        }
    }

    void WaitForGo() const {
        while (!go) std::this_thread::yield();
    }

    // Sends kRecordsPerSender records through either manager, counting what must be refused and
    // what accepted; a listing now and then, alone.
    void SenderLoop(int sender) {
        WaitForGo();
        uint32_t seed = 7919u * static_cast<uint32_t>(sender + 1);
        int sent = 0;
        while (sent < kRecordsPerSender) {
            const uint32_t draw = NextDraw(seed);
            const int door = draw % 2;
            if (draw % 200 == 7) {
                const Step print = PrintSteps(draw >> 4)[(draw >> 6) % 2];
                gate.Lock();
                managers[door]->OnUserSettingParameters(
                    std::make_shared<const std::vector<UserSetting>>(1, print.record));
                gate.Unlock();
                ++sent;
                continue;
            }
            // A run of records from one list: the sender's own keys four times in five.
            const std::vector<Step> steps =
                (draw >> 3) % 5 == 0 ? SharedSteps(draw >> 5) : ComponentSteps(sender, draw >> 5);
            size_t first = (draw >> 9) % steps.size();
            if (steps[first].record.key == "sfps" && steps[first].kind == Step::Component) {
                --first;  // the list it fits goes first
            }
            const size_t count = std::min<size_t>(steps.size() - first, kRecordsPerSender - sent);
            const std::vector<Step> batch(steps.begin() + first, steps.begin() + first + count);
            auto records = std::make_shared<std::vector<UserSetting>>();
            for (const Step& step : batch) records->push_back(step.record);

            gate.LockShared();
            const int pid = model.currentPid;
            const bool registered = model.IsRegistered(pid);
            managers[door]->OnUserSettingParameters(records);
            for (const Step& step : batch) {
                if (step.kind == Step::Refused || (step.kind == Step::Component && !registered)) {
                    ++expectedRefusals[sender];
                } else if (step.kind == Step::Component) {
                    model.records[sender][pid][step.record.key] = step.record.value;
                    ++accepted[sender];
                }
            }
            gate.UnlockShared();
            if (sent < kOpeningRecords &&
                sent + static_cast<int>(batch.size()) >= kOpeningRecords) {
                ++sendersOpened;
            }
            sent += static_cast<int>(batch.size());
        }
        --sendersLeft;
    }

    // One manager's host thread: ticks, and once every sender has opened, now and then a pause,
    // a resume or a new manager.
    void HostLoop(int i) {
        WaitForGo();
        const int pid = kPids[i];
        for (int tick = 0; sendersLeft > 0 || tick < 300; ++tick) {
            clock.AdvanceMs(250);
            managers[i]->Update(Reading(tick), 58 - tick % 7, 60);
            managers[i]->PostUpdate();
            if (i == 0) publishedSFPS = managers[i]->GetSFPS();
            const int phase = (tick + 400 * i) % 997;
            if (sendersOpened < kSenders) continue;
            if (phase != 800 && phase != 880 && phase != 996 && tick % 3989 != 2000) continue;
            gate.Lock();
            if (phase == 800) {
                managers[i]->OnPause();
                model.Forget(pid);
            } else if (phase == 880) {
                managers[i]->OnResume(0);
                model.currentPid = pid;
            } else {
                managers[i].reset();
                if (model.IsRegistered(pid)) model.Forget(pid);
                managers[i] = std::make_unique<FpsManager>(pid, 60);
                model.Build(pid);
            }
            gate.Unlock();
        }
    }

    // The game's render thread follows the first manager's decision, or walks through targets
    // of its own while there is none.
    void RenderLoop() {
        WaitForGo();
        Quillet quillet;
        const int ownTargets[] = {60, 45, -60, 30, 0, -30, 90, 11};
        for (; sendersLeft > 0 || frames < 2000; ++frames) {
            const int decided = publishedSFPS;
            quillet.Update(decided > 0 ? decided : ownTargets[frames / 64 % 8], 60, 60);
            clock.AdvanceMs(4 + frames % 13);
            const float sleep_ms = quillet.CalculateSleepDuration_ms();
            if (!(sleep_ms >= 0.0f) || std::isinf(sleep_ms)) ++badSleeps;
            clock.AdvanceMs(sleep_ms);
            quillet.PostUpdate();
        }
    }

    TalvexHarness::SettingsCenterScope emptied;
    TalvexHarness::LogSwitchesScope warnings{1};
    VirtualClock clock;
    NodeDirectory nodes;
    LogSink logs;
    SettingsGate gate;
    CenterModel model;
    std::unique_ptr<FpsManager> managers[2];
    std::atomic<bool> go{false};
    std::atomic<int> sendersLeft{kSenders};
    std::atomic<int> sendersOpened{0};
    std::atomic<int> publishedSFPS{-1};
    int expectedRefusals[kSenders] = {};
    int accepted[kSenders] = {};
    int frames = 0;
    int badSleeps = 0;
};

TEST_F(ReliabilityConcurrency, SettingsTicksPausesAndFramesTogetherLoseNothing) {
    std::vector<std::thread> threads;
    for (int sender = 0; sender < kSenders; ++sender) {
        threads.emplace_back([this, sender] { SenderLoop(sender); });
    }
    for (int i = 0; i < 2; ++i) threads.emplace_back([this, i] { HostLoop(i); });
    threads.emplace_back([this] { RenderLoop(); });
    go = true;
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(badSleeps, 0);
    int refusals = 0;
    int acceptedTotal = 0;
    for (int sender = 0; sender < kSenders; ++sender) {
        refusals += expectedRefusals[sender];
        acceptedTotal += accepted[sender];
        // Each sender's opening records, sent before any pause, find their actions.
        EXPECT_GT(accepted[sender], kOpeningRecords / 4) << "sender " << sender;
    }
    EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), static_cast<size_t>(refusals))
        << "accepted " << acceptedTotal;
    Basics::Log::SetLogLevel(2);
    for (const int pid : kPids) {
        EXPECT_EQ(ListedRecords(logs, pid), model.Expected(pid)) << "PID " << pid;
    }
}

}  // namespace
}  // namespace TalvexTest
