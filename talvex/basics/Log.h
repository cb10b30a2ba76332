#pragma once

#include <android/log.h>

#include <atomic>

namespace Basics {

// Process-wide log switches. Relaxed atomics: a reader may see an old value for a while and
// nothing depends on when a change is seen, but a racy plain int would be undefined behaviour.
class Log {
  public:
    Log() = delete;

    static void SetLogLevel(int level) { loglevel.store(level, std::memory_order_relaxed); }
    static void SetDebug(bool debug) { isDebugMode.store(debug, std::memory_order_relaxed); }
    static bool IsDebug() { return isDebugMode.load(std::memory_order_relaxed); }
    static int LogLevel() { return loglevel.load(std::memory_order_relaxed); }

  private:
    static std::atomic<int> loglevel;
    static std::atomic<bool> isDebugMode;
};

}  // namespace Basics

#define TALVEX_LOG_TAG "Talvex"

// The level is read right before each message; the arguments are evaluated only when it passes.
#define TALVEX_LOG_GATED(threshold, priority, ...)                        \
    do {                                                                  \
        if (::Basics::Log::LogLevel() >= (threshold)) {                   \
            __android_log_print((priority), TALVEX_LOG_TAG, __VA_ARGS__); \
        }                                                                 \
    } while (0)

#define TALVEX_LOGE(...) TALVEX_LOG_GATED(0, ANDROID_LOG_ERROR, __VA_ARGS__)
#define TALVEX_LOGW(...) TALVEX_LOG_GATED(1, ANDROID_LOG_WARN, __VA_ARGS__)
#define TALVEX_LOGI(...) TALVEX_LOG_GATED(2, ANDROID_LOG_INFO, __VA_ARGS__)
#define TALVEX_LOGD(...) TALVEX_LOG_GATED(3, ANDROID_LOG_DEBUG, __VA_ARGS__)

// For texts that are expensive to build: true when a message of that priority would be written.
#define TALVEX_LOG_ENABLED_W() (::Basics::Log::LogLevel() >= 1)
#define TALVEX_LOG_ENABLED_I() (::Basics::Log::LogLevel() >= 2)
#define TALVEX_LOG_ENABLED_D() (::Basics::Log::LogLevel() >= 3)
