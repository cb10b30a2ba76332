#pragma once

#include <android/log.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TalvexSim {

// Receives the library's log while alive (liblog's logger hook) so that nothing reaches the
// terminal in the middle of the progress bar. It keeps the messages that the library's own log
// level would show, stamped with the simulated time, for library.log; keeps every ERROR so that
// refused settings can be reported; and reads the tick's final EFPS from the FPS manager's
// DEBUG line, which is the only place the library states it. Scopes nest: the previous
// receiver gets the log back on destruction.
class LibraryLog {
  public:
    LibraryLog();
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    // Lines are stamped with the virtual time from now on.
    void SetStampWithVirtualTime(bool stamp) { stampWithVirtualTime = stamp; }
    // The level the user's settings gave the library, for what library.log shows; the loop
    // raises the library's own level around a tick to read the EFPS.
    void SetVisibleLevel(int level) { visibleLevel = level; }
    // Lines go there as they come instead of being kept in Text().
    void SetSink(std::function<void(const std::string&)> sink) { lineSink = std::move(sink); }

    const std::string& Text() const { return text; }
    size_t ErrorCount() const { return errorCount; }
    // The text of an ERROR by its number; only the first ones are kept, so that a storm of
    // refused settings in a long run does not grow the memory. Empty for one not kept.
    const std::string& Error(size_t index) const;
    size_t WarningCount() const { return warnings; }

    void ClearEfps() { efps.reset(); }
    std::optional<int> Efps() const { return efps; }

  private:
    static void receive(const struct __android_logger_data* data, const char* message);
    void add(int priority, const char* message);

    LibraryLog* previous;
    int previousMinimumPriority;
    bool stampWithVirtualTime = false;
    int visibleLevel = 2;
    std::function<void(const std::string&)> lineSink;
    std::string text;
    std::vector<std::string> errors;
    size_t errorCount = 0;
    size_t warnings = 0;
    std::optional<int> efps;
};

}  // namespace TalvexSim
