#pragma once

#include <android/log.h>

#include <mutex>
#include <string>
#include <vector>

namespace TalvexTest {

struct LogMessage {
    int priority;
    std::string tag;
    std::string text;
};

// Captures every message written through liblog while alive. One at a time per process.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogMessage> Messages() const;
    // Messages of one priority whose text contains the fragment.
    std::vector<LogMessage> Find(int priority, const std::string& fragment = "") const;
    size_t Count(int priority, const std::string& fragment = "") const;
    void Clear();

  private:
    static void logger(const struct __android_logger_data* data, const char* message);

    mutable std::mutex mutex;
    std::vector<LogMessage> messages;
    int previousMinimumPriority;
};

}  // namespace TalvexTest
