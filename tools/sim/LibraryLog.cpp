#include "tools/sim/LibraryLog.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "talvex/basics/Clock.h"
#include "tools/sim/VirtualClock.h"

namespace TalvexSim {
namespace {

std::atomic<LibraryLog*> activeLog{nullptr};

constexpr size_t kKeptErrors = 256;

constexpr const char kEfpsLine[] = "[FpsManager] Finally, EFPS = ";

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

LibraryLog::LibraryLog()
    : previous(activeLog.exchange(this)),
      previousMinimumPriority(__android_log_get_minimum_priority()) {
    __android_log_set_logger(&LibraryLog::receive);
    // liblog on Linux drops DEBUG by default; the library's own level does the gating.
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

LibraryLog::~LibraryLog() {
    activeLog.store(previous);
    __android_log_set_minimum_priority(previousMinimumPriority);
    if (previous == nullptr) __android_log_set_logger(__android_log_stderr_logger);
}

const std::string& LibraryLog::Error(size_t index) const {
    static const std::string notKept;
    return index < errors.size() ? errors[index] : notKept;
}

void LibraryLog::receive(const struct __android_logger_data* data, const char* message) {
    LibraryLog* log = activeLog.load();
    if (log != nullptr && message != nullptr) log->add(data->priority, message);
}

void LibraryLog::add(int priority, const char* message) {
    if (priority == ANDROID_LOG_DEBUG &&
        std::strncmp(message, kEfpsLine, sizeof kEfpsLine - 1) == 0) {
        efps = std::atoi(message + sizeof kEfpsLine - 1);
    }
    if (priority >= ANDROID_LOG_ERROR) {
        ++errorCount;
        if (errors.size() < kKeptErrors) errors.emplace_back(message);
    }
    if (priority == ANDROID_LOG_WARN) ++warnings;
    if (visibleLevel < levelNeededFor(priority)) return;

    char stamp[40] = "";
    if (stampWithVirtualTime) {
        const auto elapsed = Basics::Now() - VirtualClock::ToTimePoint(0);
        std::snprintf(stamp, sizeof stamp, "%12.6f ", static_cast<double>(elapsed.count()) / 1e9);
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

}  // namespace TalvexSim
