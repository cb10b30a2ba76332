#include "harness/LogSink.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harness/VirtualClock.h"
#include "talvex/basics/Clock.h"
#include "talvex/brain_src/fps_stabilizer/FpsManager.h"

namespace TalvexHarness {
namespace {

std::atomic<LogSink*> activeSink{nullptr};

constexpr size_t kKeptErrors = 256;


// The library's gate: ERROR from level 0, WARN from 1, INFO from 2, DEBUG from 3.
int levelNeededFor(int priority) {
    switch (priority) {
        case ANDROID_LOG_FATAL:
        case ANDROID_LOG_ERROR:
            return 0;
        case ANDROID_LOG_WARN:
            return 1;
        case ANDROID_LOG_INFO:
            return 2;
        case ANDROID_LOG_DEBUG:
            return 3;
        default:
            return 4;
    }
}

char priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_FATAL:
            return 'F';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_DEBUG:
            return 'D';
        default:
            return 'V';
    }
}

}  // namespace

LogSink::LogSink(Mode mode_)
    : mode(mode_),
      previous(activeSink.exchange(this)),
      previousMinimumPriority(__android_log_get_minimum_priority()) {
    __android_log_set_logger(&LogSink::receive);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

LogSink::~LogSink() {
    activeSink.store(previous);
    __android_log_set_minimum_priority(previousMinimumPriority);
    if (previous == nullptr) __android_log_set_logger(__android_log_stderr_logger);
}

void LogSink::receive(const struct __android_logger_data* data, const char* message) {
    LogSink* sink = activeSink.load();
    if (sink != nullptr && message != nullptr) sink->add(data->priority, data->tag, message);
}

void LogSink::add(int priority, const char* tag, const char* message) {
    std::lock_guard<std::mutex> lock(mutex);
    constexpr const char* kEfpsLine = android::FpsStabilizer::kFinalEfpsLinePrefix;
    constexpr size_t kEfpsLineLength = sizeof android::FpsStabilizer::kFinalEfpsLinePrefix - 1;
    if (priority == ANDROID_LOG_DEBUG && std::strncmp(message, kEfpsLine, kEfpsLineLength) == 0) {
        efps = std::atoi(message + kEfpsLineLength);
    }
    if (priority >= ANDROID_LOG_ERROR) {
        ++errorCount;
        if (errors.size() < kKeptErrors) errors.emplace_back(message);
    }
    if (priority == ANDROID_LOG_WARN) ++warnings;
    if (mode == Mode::Capture) messages.push_back({priority, tag != nullptr ? tag : "", message});
    if (mode != Mode::Lines || visibleLevel < levelNeededFor(priority)) return;

    char stamp[40] = "";
    if (stampWithVirtualTime) {
        const double elapsed_s =
            static_cast<double>(VirtualClock::SinceStart_ns(Basics::Now())) / 1e9;
        std::snprintf(stamp, sizeof stamp, "%12.6f ", elapsed_s);
    }
    std::string line = stamp;
    line += priorityLetter(priority);
    line += ' ';
    line += message;
    line += '\n';
    if (lineSink) {
        lineSink(line);
    } else {
        text += line;
    }
}

std::vector<LogMessage> LogSink::Messages() const {
    std::lock_guard<std::mutex> lock(mutex);
    return messages;
}

std::vector<LogMessage> LogSink::Find(int priority, const std::string& fragment) const {
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<LogMessage> found;
    for (const LogMessage& m : messages) {
        if ((priority == kAnyPriority || m.priority == priority) &&
            m.text.find(fragment) != std::string::npos) {
            found.push_back(m);
        }
    }
    return found;
}

std::vector<std::string> LogSink::Texts(int priority, const std::string& fragment) const {
    std::vector<std::string> texts;
    for (LogMessage& m : Find(priority, fragment)) texts.push_back(std::move(m.text));
    return texts;
}

size_t LogSink::Count(int priority, const std::string& fragment) const {
    return Find(priority, fragment).size();
}

void LogSink::Clear() {
    std::lock_guard<std::mutex> lock(mutex);
    messages.clear();
}

size_t LogSink::ErrorCount() const {
    std::lock_guard<std::mutex> lock(mutex);
    return errorCount;
}

size_t LogSink::WarningCount() const {
    std::lock_guard<std::mutex> lock(mutex);
    return warnings;
}

std::string LogSink::Error(size_t index) const {
    std::lock_guard<std::mutex> lock(mutex);
    return index < errors.size() ? errors[index] : std::string();
}

void LogSink::ClearEfps() {
    std::lock_guard<std::mutex> lock(mutex);
    efps.reset();
}

std::optional<int> LogSink::Efps() const {
    std::lock_guard<std::mutex> lock(mutex);
    return efps;
}

}  // namespace TalvexHarness
