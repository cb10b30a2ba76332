#include "tools/sim/loop/Session.h"

#include <algorithm>
#include <chrono>

#include "tools/sim/base/InputError.h"

namespace TalvexSim {
namespace {

using android::FpsStabilizer::FpsManager;
using android::Nimbrel::Quillet::Quillet;

// The FPS manager states its final EFPS only at this level.
constexpr int kLevelShowingEfps = 3;

std::string describe(const UserSettings::UserSetting& setting) {
    return setting.category + "," + setting.key + "," + setting.value;
}

std::string indented(const std::string& text) {
    std::string out = "    ";
    for (const char c : text) {
        out += c;
        if (c == '\n') out += "    ";
    }
    while (!out.empty() && (out.back() == ' ' || out.back() == '\n')) out.pop_back();
    return out;
}

}  // namespace

Session::Session(const Scenario& scenario_, const RunOptions& options, int refreshRate_Hz,
                 bool withManager)
    : scenario(scenario_),
      nodes(options.nodeDirectory, TalvexHarness::WriteCounting::On),
      trace(std::make_unique<TraceRecorder>(options.frameDetail)) {
    log.SetStampWithVirtualTime(true);
    log.SetSink(options.logSink);
    bounds.Apply(scenario.settings);
    trace->Activate();
    trace->SetTrack(TraceTrack::Host);
    if (!withManager) return;
    manager = std::make_unique<FpsManager>(scenario.pid, refreshRate_Hz);
    try {
        applyInitialSettings();
    } catch (...) {
        manager->OnPause();
        throw;
    }
}

Session::~Session() {
    quillet.reset();
    if (manager) manager->OnPause();
    if (trace) trace->Deactivate();
}

void Session::End(RunResult& result) {
    nodes.CountWrites();
    result.efpsMaxWrites = nodes.Writes("efps_max");
    result.eglBufWrites = nodes.Writes("egl_buf");
    trace->SetTrack(TraceTrack::Render);
    quillet.reset();
    trace->SetTrack(TraceTrack::Host);
    if (manager) manager->OnPause();
    manager.reset();
    trace->Deactivate();
    result.trace = std::move(trace);
    result.libraryLog = log.Text();
    result.libraryErrors = log.ErrorCount();
    result.libraryWarnings = log.WarningCount();
    result.escapedExceptions = escapedExceptions;
}

LibraryCounts Session::Counts() const {
    return {log.ErrorCount(), log.WarningCount(), escapedExceptions};
}

std::optional<int> Session::Tick(const android::FpsStabilizer::SYS_INFO& info, int ofps,
                                 int refreshRate_Hz, bool readEfps) {
    trace->SetTrack(TraceTrack::Host);
    const int level = Basics::Log::LogLevel();
    log.SetVisibleLevel(level);
    log.ClearEfps();
    if (readEfps) Basics::Log::SetLogLevel(std::max(level, kLevelShowingEfps));
    guard([&] { manager->Update(info, ofps, refreshRate_Hz); });
    guard([&] { manager->PostUpdate(); });
    Basics::Log::SetLogLevel(level);
    return log.Efps();
}

bool Session::ApplySettings(const SettingList& settings) {
    if (!manager) return true;
    trace->SetTrack(TraceTrack::Host);
    log.SetVisibleLevel(Basics::Log::LogLevel());
    const size_t errorsBefore = log.ErrorCount();
    const std::uint64_t escapedBefore = escapedExceptions;
    guard([&] { manager->OnUserSettingParameters(std::make_shared<const SettingList>(settings)); });
    return log.ErrorCount() == errorsBefore && escapedExceptions == escapedBefore;
}

void Session::ApplyEvent(const ScenarioEvent& event, RunResult& result) {
    bounds.Apply(event.settings);
    if (ApplySettings(event.settings)) return;
    std::string records;
    for (const auto& setting : event.settings) {
        records += (records.empty() ? "'" : ", '") + describe(setting) + "'";
    }
    result.refusedEvents.push_back(event.where + ": the library refused " + records +
                                   " (see library.log)");
}

void Session::PauseGame() {
    trace->SetTrack(TraceTrack::Render);
    quillet.reset();
    trace->SetTrack(TraceTrack::Host);
    if (manager) guard([&] { manager->OnPause(); });
    nodes.CountWrites();
}

void Session::ResumeGame(int pid) {
    if (manager) guard([&] { manager->OnResume(pid); });
}

void Session::CreatePacer(android::Nimbrel::Quillet::PacingPolicy policy) {
    trace->SetTrack(TraceTrack::Render);
    quillet = std::make_unique<Quillet>(policy);
    nodes.CountWrites();
}

void Session::SetLatchMargin(std::int64_t margin_ns) {
    trace->SetTrack(TraceTrack::Render);
    if (quillet) guard([&] { quillet->SetLatchMargin(std::chrono::nanoseconds(margin_ns)); });
}

void Session::OnVsync(std::int64_t refresh_ns, std::int64_t period_ns) {
    if (quillet) {
        guard([&] {
            quillet->OnVsync(TalvexHarness::VirtualClock::At(refresh_ns),
                             std::chrono::nanoseconds(period_ns));
        });
    }
}

void Session::BeginFrame(int target, int refreshRate_Hz) {
    trace->SetTrack(TraceTrack::Render);
    if (quillet) guard([&] { quillet->Update(target, refreshRate_Hz, refreshRate_Hz); });
}

float Session::SleepMs() {
    trace->SetTrack(TraceTrack::Render);
    float sleep_ms = 0.0f;
    if (quillet) guard([&] { sleep_ms = quillet->CalculateSleepDuration_ms(); });
    nodes.CountWrites();
    return sleep_ms;
}

std::int64_t Session::WakeUp_ns() {
    trace->SetTrack(TraceTrack::Render);
    Basics::TimePoint wakeUp = TalvexHarness::VirtualClock::Now();
    if (quillet) guard([&] { wakeUp = quillet->CalculateWakeUpTime(); });
    nodes.CountWrites();
    return TalvexHarness::VirtualClock::SinceStart_ns(wakeUp);
}

void Session::EndFrame() {
    trace->SetTrack(TraceTrack::Render);
    if (quillet) guard([&] { quillet->PostUpdate(); });
}

// One record at a time, so that a refusal names the line it came from.
void Session::applyInitialSettings() {
    for (size_t i = 0; i < scenario.settings.size(); ++i) {
        const size_t errorsBefore = log.ErrorCount();
        if (!ApplySettings({scenario.settings[i]})) {
            throw InputError(scenario.settingPlaces[i] + ": the library refused '" +
                             describe(scenario.settings[i]) + "':\n" +
                             indented(log.Error(errorsBefore)));
        }
    }
}

}  // namespace TalvexSim
