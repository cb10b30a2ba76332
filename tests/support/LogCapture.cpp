#include "LogCapture.h"

#include <atomic>

namespace TalvexTest {
namespace {

std::atomic<LogCapture*> active{nullptr};

}  // namespace

LogCapture::LogCapture() {
    active.store(this);
    __android_log_set_logger(&LogCapture::logger);
    previousMinimumPriority = __android_log_get_minimum_priority();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(previousMinimumPriority);
    active.store(nullptr);
}

void LogCapture::logger(const struct __android_logger_data* data, const char* message) {
    LogCapture* capture = active.load();
    if (capture == nullptr) return;
    std::lock_guard<std::mutex> lock(capture->mutex);
    capture->messages.push_back(
        {data->priority, data->tag != nullptr ? data->tag : "", message != nullptr ? message : ""});
}

std::vector<LogMessage> LogCapture::Messages() const {
    std::lock_guard<std::mutex> lock(mutex);
    return messages;
}

std::vector<LogMessage> LogCapture::Find(int priority, const std::string& fragment) const {
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<LogMessage> found;
    for (const LogMessage& m : messages) {
        if (m.priority == priority && m.text.find(fragment) != std::string::npos) {
            found.push_back(m);
        }
    }
    return found;
}

size_t LogCapture::Count(int priority, const std::string& fragment) const {
    return Find(priority, fragment).size();
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(mutex);
    messages.clear();
}

}  // namespace TalvexTest
