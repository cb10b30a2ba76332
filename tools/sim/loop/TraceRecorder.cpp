#include "tools/sim/loop/TraceRecorder.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "harness/VirtualClock.h"
#include "talvex/basics/Clock.h"

namespace TalvexSim {
namespace {

constexpr std::int64_t kKeptBeforeChange_ns = 2'000'000'000;
constexpr std::int64_t kKeptAfterChange_ns = 2'000'000'000;
// A target that wobbles between two rates would otherwise keep nearly every frame.
constexpr std::int64_t kLeastGapBetweenWindows_ns = 60'000'000'000;
// Viewers cannot open the trace of a whole day, and a long run must not grow without bound:
// only the first hour is traced.
constexpr std::int64_t kTracedSpan_ns = 3600'000'000'000;

std::string jsonString(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
            quoted += escaped;
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

// Microseconds with the nanoseconds kept, in integer arithmetic so the text is exact.
std::string microseconds(std::int64_t ns) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld.%03lld", static_cast<long long>(ns / 1000),
                  static_cast<long long>(ns % 1000));
    return text;
}

}  // namespace

TraceRecorder::TraceRecorder(FrameDetail detail_)
    : detail(detail_), keepFramesUntil_ns(kKeptAfterChange_ns), windowStart_ns(0) {}

TraceRecorder::~TraceRecorder() { Deactivate(); }

std::int64_t TraceRecorder::now() const {
    return TalvexHarness::VirtualClock::SinceStart_ns(Basics::Now());
}

std::uint16_t TraceRecorder::intern(const char* name) {
    // The library passes string literals, so the pointer almost always identifies the name;
    // the comparison guards against a reused buffer.
    const auto cached = idOfPointer.find(name);
    if (cached != idOfPointer.end() && names[cached->second] == name) return cached->second;
    auto known = idOfName.find(name);
    if (known == idOfName.end()) {
        known = idOfName.emplace(name, static_cast<std::uint16_t>(names.size())).first;
        names.emplace_back(name);
    }
    idOfPointer[name] = known->second;
    return known->second;
}

void TraceRecorder::add(const Event& event) {
    if (event.time_ns > kTracedSpan_ns) return;
    if ((event.track == TraceTrack::Host && !hostAtFrameRate) || detail == FrameDetail::All) {
        kept.push_back(event);
        return;
    }
    if (detail == FrameDetail::None) return;
    if (event.time_ns <= keepFramesUntil_ns) {
        kept.push_back(event);
        return;
    }
    pendingFrames.push_back(event);
    while (!pendingFrames.empty() &&
           pendingFrames.front().time_ns < event.time_ns - kKeptBeforeChange_ns) {
        pendingFrames.pop_front();
    }
}

void TraceRecorder::Begin(const char* name) {
    open[static_cast<size_t>(currentTrack)].push_back({now(), intern(name)});
}

void TraceRecorder::End() {
    std::vector<OpenSection>& sections = open[static_cast<size_t>(currentTrack)];
    if (sections.empty()) return;
    const OpenSection section = sections.back();
    sections.pop_back();
    add({section.time_ns, now() - section.time_ns, 0, section.name, 'X', currentTrack});
}

void TraceRecorder::Counter(const char* name, std::int32_t value) {
    add({now(), 0, value, intern(name), 'C', currentTrack});
}

void TraceRecorder::MarkTargetChange(std::int64_t time_ns) {
    if (time_ns > keepFramesUntil_ns && time_ns - windowStart_ns < kLeastGapBetweenWindows_ns &&
        windowStart_ns >= 0) {
        return;
    }
    if (time_ns > keepFramesUntil_ns) windowStart_ns = time_ns;
    kept.insert(kept.end(), pendingFrames.begin(), pendingFrames.end());
    pendingFrames.clear();
    keepFramesUntil_ns = std::max(keepFramesUntil_ns, time_ns + kKeptAfterChange_ns);
}

void TraceRecorder::ModelCounter(const char* name, std::int64_t time_ns, double value) {
    if (time_ns > kTracedSpan_ns) return;
    modelEvents.push_back({time_ns, value, intern(name)});
}

void TraceRecorder::WriteJson(std::ostream& out, const TraceNames& traceNames) const {
    const int pid = traceNames.pid;
    const int modelPid = pid + 1;
    out << "{\"traceEvents\":[\n";
    out << "{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":" << pid
        << ",\"tid\":1,\"args\":{\"name\":" << jsonString(traceNames.processName) << "}},\n";
    out << "{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":" << pid
        << ",\"tid\":1,\"args\":{\"name\":\"host tick (FpsManager)\"}},\n";
    out << "{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":" << pid
        << ",\"tid\":2,\"args\":{\"name\":\"render thread (Quillet)\"}},\n";
    out << "{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":" << modelPid
        << ",\"tid\":1,\"args\":{\"name\":\"simulated device\"}}";

    std::vector<Event> events = kept;
    std::stable_sort(events.begin(), events.end(),
                     [](const Event& a, const Event& b) { return a.time_ns < b.time_ns; });
    for (const Event& event : events) {
        out << ",\n{\"name\":" << jsonString(names[event.name]) << ",\"ph\":\"" << event.phase
            << "\",\"ts\":" << microseconds(event.time_ns);
        if (event.phase == 'X') out << ",\"dur\":" << microseconds(event.duration_ns);
        out << ",\"pid\":" << pid << ",\"tid\":" << static_cast<int>(event.track);
        if (event.phase == 'C') out << ",\"args\":{\"value\":" << event.value << "}";
        out << "}";
    }
    char value[32];
    for (const ModelEvent& event : modelEvents) {
        std::snprintf(value, sizeof value, "%.6g", event.value);
        out << ",\n{\"name\":" << jsonString(names[event.name])
            << ",\"ph\":\"C\",\"ts\":" << microseconds(event.time_ns) << ",\"pid\":" << modelPid
            << ",\"tid\":1,\"args\":{\"value\":" << value << "}}";
    }
    out << "\n],\"displayTimeUnit\":\"ms\"}\n";
}

}  // namespace TalvexSim
