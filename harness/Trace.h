#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace TalvexHarness {

// Where the library's trace calls land. Any program linking this harness defines libcutils'
// trace entry points (it must be linked with -rdynamic), so the dynamic linker resolves the
// library's calls to them; they forward to the active receiver. Tracing reads as on only while a
// receiver is active.
class TraceReceiver {
  public:
    TraceReceiver() = default;
    virtual ~TraceReceiver();
    TraceReceiver(const TraceReceiver&) = delete;
    TraceReceiver& operator=(const TraceReceiver&) = delete;

    // Takes the trace over from any other receiver.
    void Activate();
    // Tracing reads as off again, unless another receiver has taken over.
    void Deactivate();

    virtual void Begin(const char* name) = 0;
    virtual void End() = 0;
    virtual void Counter(const char* name, std::int32_t value) = 0;
};

struct TraceEvent {
    enum class Kind { Begin, End, Counter };
    Kind kind;
    std::string name;        // empty for End
    std::int32_t value = 0;  // Counter only
};

// Keeps every trace call, from any thread.
class TraceCapture : public TraceReceiver {
  public:
    explicit TraceCapture(bool enabled = true);
    ~TraceCapture() override;

    void SetEnabled(bool enabled);
    std::vector<TraceEvent> Events() const;
    std::vector<std::string> SectionNames() const;
    // Values set for one counter, in order.
    std::vector<std::int32_t> CounterValues(const std::string& name) const;
    // Number of begin calls minus end calls: 0 when every section closed.
    int OpenSections() const;
    void Clear();

    void Begin(const char* name) override;
    void End() override;
    void Counter(const char* name, std::int32_t value) override;

  private:
    mutable std::mutex mutex;
    std::vector<TraceEvent> events;
};

}  // namespace TalvexHarness
