#include "TraceCapture.h"

#include <atomic>
#include <mutex>

namespace TalvexTest {
namespace {

std::mutex eventsMutex;
std::vector<TraceEvent>& events() {
    static std::vector<TraceEvent>* list = new std::vector<TraceEvent>();
    return *list;
}
std::atomic<uint64_t> enabledTags{0};

void record(TraceEvent event) {
    std::lock_guard<std::mutex> lock(eventsMutex);
    events().push_back(std::move(event));
}

}  // namespace

TraceCapture::TraceCapture(bool enabled) {
    Clear();
    SetEnabled(enabled);
}

TraceCapture::~TraceCapture() {
    SetEnabled(false);
    Clear();
}

void TraceCapture::SetEnabled(bool enabled) { enabledTags.store(enabled ? 1u : 0u); }

std::vector<TraceEvent> TraceCapture::Events() const {
    std::lock_guard<std::mutex> lock(eventsMutex);
    return events();
}

std::vector<std::string> TraceCapture::SectionNames() const {
    std::vector<std::string> names;
    for (const TraceEvent& e : Events()) {
        if (e.kind == TraceEvent::Kind::Begin) names.push_back(e.name);
    }
    return names;
}

std::vector<int32_t> TraceCapture::CounterValues(const std::string& name) const {
    std::vector<int32_t> values;
    for (const TraceEvent& e : Events()) {
        if (e.kind == TraceEvent::Kind::Counter && e.name == name) values.push_back(e.value);
    }
    return values;
}

int TraceCapture::OpenSections() const {
    int open = 0;
    for (const TraceEvent& e : Events()) {
        if (e.kind == TraceEvent::Kind::Begin) ++open;
        if (e.kind == TraceEvent::Kind::End) --open;
    }
    return open;
}

void TraceCapture::Clear() {
    std::lock_guard<std::mutex> lock(eventsMutex);
    events().clear();
}

}  // namespace TalvexTest

// Interposed libcutils trace entry points (ATRACE_TAG_ALWAYS is bit 0).
extern "C" {

uint64_t atrace_get_enabled_tags() { return TalvexTest::enabledTags.load(); }

void atrace_begin_body(const char* name) {
    TalvexTest::record({TalvexTest::TraceEvent::Kind::Begin, name, 0});
}

void atrace_end_body() { TalvexTest::record({TalvexTest::TraceEvent::Kind::End, "", 0}); }

void atrace_int_body(const char* name, int32_t value) {
    TalvexTest::record({TalvexTest::TraceEvent::Kind::Counter, name, value});
}

}  // extern "C"
