#pragma once

// What the state-machine fuzzers share: virtual time that moves only when the input says so, a
// scratch directory for the kernel nodes, and liblog and standard output kept quiet, so that
// messages and listings cost no terminal time however often an input asks for them.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include "harness/LogSink.h"
#include "harness/NodeDirectory.h"
#include "harness/VirtualClock.h"

namespace FuzzEnvironment {

// Set up on the first input, kept for the process.
struct Environment {
    TalvexHarness::VirtualClock clock;
    TalvexHarness::LogSink log{TalvexHarness::LogSink::Mode::Discard};
    TalvexHarness::NodeDirectory nodes;
};

inline Environment& environment() {
    static Environment shared;
    return shared;
}

// Called first by every input: restarts the clock.
inline void Start() { environment().clock.Set(TalvexHarness::VirtualClock::kStart); }

// Steps are at most about 18 minutes and the clock restarts with every input, so it never wraps.
inline void Advance(uint64_t step_ns) {
    TalvexHarness::VirtualClock::Advance(
        std::chrono::nanoseconds(static_cast<int64_t>(step_ns & ((1ULL << 40) - 1))));
}

inline std::string NodePath(const char* node) { return environment().nodes.NodePath(node); }

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
