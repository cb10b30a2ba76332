#pragma once

#include <android/log.h>

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace TalvexHarness {

struct LogMessage {
    int priority;
    std::string tag;
    std::string text;
};

// Find and Texts take it to match every priority.
constexpr int kAnyPriority = ANDROID_LOG_UNKNOWN;

// Receives everything written through liblog while alive (its logger hook), instead of the
// terminal. Capture keeps every message; Discard keeps none; Lines formats the messages that a
// library log level would show as "P text" lines, optionally stamped with the virtual time, into
// Text() or a sink. In every mode it counts errors and warnings, keeps the first ERROR texts and
// reads the FPS manager's final EFPS from its DEBUG line, the only place the library states it.
// It lowers liblog's minimum priority so that DEBUG arrives; the library's own level gates.
// Scopes nest: the previous sink gets the log back on destruction.
class LogSink {
  public:
    enum class Mode { Capture, Discard, Lines };

    explicit LogSink(Mode mode = Mode::Capture);
    ~LogSink();
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;

    // Capture.
    std::vector<LogMessage> Messages() const;
    // Messages of one priority whose text contains the fragment.
    std::vector<LogMessage> Find(int priority, const std::string& fragment = "") const;
    std::vector<std::string> Texts(int priority, const std::string& fragment = "") const;
    size_t Count(int priority, const std::string& fragment = "") const;
    void Clear();

    // Lines.
    void SetStampWithVirtualTime(bool stamp) { stampWithVirtualTime = stamp; }
    // The library log level whose messages become lines.
    void SetVisibleLevel(int level) { visibleLevel = level; }
    // Lines go there as they come instead of being kept in Text().
    void SetSink(std::function<void(const std::string&)> sink) { lineSink = std::move(sink); }
    const std::string& Text() const { return text; }

    size_t ErrorCount() const;
    size_t WarningCount() const;
    // The text of an ERROR by its number; only the first ones are kept, so that a storm of
    // errors in a long run does not grow the memory. Empty for one not kept.
    std::string Error(size_t index) const;
    void ClearEfps();
    std::optional<int> Efps() const;

  private:
    static void receive(const struct __android_logger_data* data, const char* message);
    void add(int priority, const char* tag, const char* message);

    const Mode mode;
    LogSink* const previous;
    const int previousMinimumPriority;
    mutable std::mutex mutex;
    std::vector<LogMessage> messages;
    bool stampWithVirtualTime = false;
    int visibleLevel = 2;
    std::function<void(const std::string&)> lineSink;
    std::string text;
    std::vector<std::string> errors;
    size_t errorCount = 0;
    size_t warnings = 0;
    std::optional<int> efps;
};

}  // namespace TalvexHarness
