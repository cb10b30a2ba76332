#include "harness/Trace.h"

#include <atomic>

namespace TalvexHarness {
namespace {

std::atomic<TraceReceiver*> activeReceiver{nullptr};

}  // namespace

TraceReceiver::~TraceReceiver() { Deactivate(); }

void TraceReceiver::Activate() { activeReceiver.store(this, std::memory_order_release); }

void TraceReceiver::Deactivate() {
    TraceReceiver* self = this;
    activeReceiver.compare_exchange_strong(self, nullptr);
}

TraceCapture::TraceCapture(bool enabled) { SetEnabled(enabled); }

TraceCapture::~TraceCapture() { Deactivate(); }

void TraceCapture::SetEnabled(bool enabled) {
    if (enabled) {
        Activate();
    } else {
        Deactivate();
    }
}

std::vector<TraceEvent> TraceCapture::Events() const {
    std::lock_guard<std::mutex> lock(mutex);
    return events;
}

std::vector<std::string> TraceCapture::SectionNames() const {
    std::vector<std::string> names;
    for (const TraceEvent& e : Events()) {
        if (e.kind == TraceEvent::Kind::Begin) names.push_back(e.name);
    }
    return names;
}

std::vector<std::int32_t> TraceCapture::CounterValues(const std::string& name) const {
    std::vector<std::int32_t> values;
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
    std::lock_guard<std::mutex> lock(mutex);
    events.clear();
}

void TraceCapture::Begin(const char* name) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back({TraceEvent::Kind::Begin, name, 0});
}

void TraceCapture::End() {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back({TraceEvent::Kind::End, "", 0});
}

void TraceCapture::Counter(const char* name, std::int32_t value) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back({TraceEvent::Kind::Counter, name, value});
}

}  // namespace TalvexHarness

// Interposed libcutils trace entry points (ATRACE_TAG_ALWAYS, the library's only tag, is bit 0).
extern "C" {

uint64_t atrace_get_enabled_tags() {
    return TalvexHarness::activeReceiver.load(std::memory_order_acquire) != nullptr ? 1u : 0u;
}

void atrace_begin_body(const char* name) {
    if (auto* receiver = TalvexHarness::activeReceiver.load(std::memory_order_acquire)) {
        receiver->Begin(name);
    }
}

void atrace_end_body() {
    if (auto* receiver = TalvexHarness::activeReceiver.load(std::memory_order_acquire)) {
        receiver->End();
    }
}

void atrace_int_body(const char* name, int32_t value) {
    if (auto* receiver = TalvexHarness::activeReceiver.load(std::memory_order_acquire)) {
        receiver->Counter(name, value);
    }
}

}  // extern "C"
