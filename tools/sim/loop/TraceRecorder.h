#pragma once

#include <cstdint>
#include <deque>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "harness/Trace.h"

namespace TalvexSim {

// Which thread of the simulated game process a library call runs on.
enum class TraceTrack : std::uint8_t { Host = 1, Render = 2 };

// How much of the per-frame pacing trace to keep. Every frame is about ten events, so a long
// run would give a trace file that the viewers cannot open; by default only the first seconds
// and the frames around a change of the pacing target are kept, where pacing does something
// worth looking at, at most one such window a minute. A host ticking once a period is always
// kept; one ticking every frame is kept like the frames. Only the first hour of a run is traced.
enum class FrameDetail { AroundChanges, All, None };

struct TraceNames {
    int pid = 0;
    std::string processName;
};

// Collects the library's trace sections and counters as the library emits them, on virtual
// time, and writes them in the Chrome trace-event format, while active; tests call the same
// operations directly.
class TraceRecorder : public TalvexHarness::TraceReceiver {
  public:
    explicit TraceRecorder(FrameDetail detail);
    ~TraceRecorder() override;

    void SetTrack(TraceTrack track) { currentTrack = track; }
    // A host that ticks every frame is kept like the frames.
    void SetHostAtFrameRate(bool atFrameRate) { hostAtFrameRate = atFrameRate; }
    void Begin(const char* name) override;
    void End() override;
    void Counter(const char* name, std::int32_t value) override;

    // The render thread gets a new pacing target at that time.
    void MarkTargetChange(std::int64_t time_ns);
    // A counter of the simulated device (temperature, current, OFPS), on its own process.
    void ModelCounter(const char* name, std::int64_t time_ns, double value);

    size_t EventCount() const { return kept.size() + modelEvents.size(); }
    void WriteJson(std::ostream& out, const TraceNames& names) const;

  private:
    struct Event {
        std::int64_t time_ns;
        std::int64_t duration_ns;  // complete sections only
        std::int32_t value;        // counters only
        std::uint16_t name;
        char phase;  // 'X' or 'C'
        TraceTrack track;
    };
    struct ModelEvent {
        std::int64_t time_ns;
        double value;
        std::uint16_t name;
    };
    struct OpenSection {
        std::int64_t time_ns;
        std::uint16_t name;
    };

    std::int64_t now() const;
    std::uint16_t intern(const char* name);
    void add(const Event& event);

    FrameDetail detail;
    TraceTrack currentTrack = TraceTrack::Host;
    bool hostAtFrameRate = false;
    std::vector<std::string> names;
    std::unordered_map<std::string, std::uint16_t> idOfName;
    std::unordered_map<const char*, std::uint16_t> idOfPointer;
    std::vector<OpenSection> open[3];
    std::vector<Event> kept;
    std::deque<Event> pendingFrames;
    std::int64_t keepFramesUntil_ns;
    std::int64_t windowStart_ns;
    std::vector<ModelEvent> modelEvents;
};

}  // namespace TalvexSim
