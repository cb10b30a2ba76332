#pragma once

// What the state-machine fuzzers share: virtual time that moves only when the input says so, a
// scratch directory for the kernel nodes, and liblog and standard output kept quiet, so that
// messages and listings cost no terminal time however often an input asks for them.
#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Clock.h"

namespace FuzzEnvironment {

// Far from zero: a zero time point means "no time taken yet" to the library.
constexpr int64_t kStart_ns = 1000LL * 1000 * 1000 * 1000;

inline std::atomic<int64_t>& nowNanoseconds() {
    static std::atomic<int64_t> now{kStart_ns};
    return now;
}

inline Basics::TimePoint virtualNow() {
    return Basics::TimePoint(std::chrono::nanoseconds(nowNanoseconds().load()));
}

// Steps are at most about 18 minutes and the clock restarts with every input, so it never wraps.
inline void Advance(uint64_t step_ns) {
    nowNanoseconds().fetch_add(static_cast<int64_t>(step_ns & ((1ULL << 40) - 1)));
}

inline void discardMessage(const struct __android_logger_data*, const char*) {}

inline std::string& nodeDirectory() {
    static std::string directory;
    return directory;
}

inline void removeNodeDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(nodeDirectory(), ignored);
}

// Called first by every input: sets the process up once, then restarts the clock.
inline void Start() {
    static const bool ready = [] {
        Basics::SetClockSource(&virtualNow);
        __android_log_set_logger(&discardMessage);
        // Memory-backed when possible, as sysfs is: a disk write per frame would set the pace.
        std::error_code error;
        const std::filesystem::path base = std::filesystem::is_directory("/dev/shm", error)
                                               ? std::filesystem::path("/dev/shm")
                                               : std::filesystem::temp_directory_path();
        std::string pattern = (base / "talvex-fuzz-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        nodeDirectory() = pattern;
        Basics::SetNodeDirectory(pattern);
        std::atexit(&removeNodeDirectory);
        return true;
    }();
    (void)ready;
    nowNanoseconds().store(kStart_ns);
}

inline std::string NodePath(const char* node) { return nodeDirectory() + "/" + node; }

// Standard output goes to /dev/null while alive; the listings write there.
class QuietStdout {
  public:
    QuietStdout() {
        std::fflush(stdout);
        saved = dup(STDOUT_FILENO);
        const int null = open("/dev/null", O_WRONLY);
        if (null >= 0) {
            dup2(null, STDOUT_FILENO);
            close(null);
        }
    }
    ~QuietStdout() {
        std::fflush(stdout);
        if (saved >= 0) {
            dup2(saved, STDOUT_FILENO);
            close(saved);
        }
    }
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

  private:
    int saved = -1;
};

}  // namespace FuzzEnvironment
