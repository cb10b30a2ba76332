#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace TalvexTest {

struct TraceEvent {
    enum class Kind { Begin, End, Counter };
    Kind kind;
    std::string name;   // empty for End
    int32_t value = 0;  // Counter only
};

// Captures the library's trace calls. The test executable defines libcutils' trace entry points
// (linked with -rdynamic), so the dynamic linker resolves the library's calls to them. Tracing
// reads as off unless a capture enables it.
class TraceCapture {
  public:
    explicit TraceCapture(bool enabled = true);
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    void SetEnabled(bool enabled);
    std::vector<TraceEvent> Events() const;
    std::vector<std::string> SectionNames() const;
    // Values set for one counter, in order.
    std::vector<int32_t> CounterValues(const std::string& name) const;
    // Number of begin calls minus end calls: 0 when every section closed.
    int OpenSections() const;
    void Clear();
};

}  // namespace TalvexTest
