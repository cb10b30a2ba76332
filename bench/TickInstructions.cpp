// Ticks of the FPS manager for counting instructions under callgrind: collection is switched on
// only around the measured ticks. Run as
//   valgrind --tool=callgrind --collect-atstart=no talvex_bench_tick_instructions STATE TICKS [LOG]
// and divide the collected instructions by TICKS. LOG is the log level, 2 unless given.
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
// Without valgrind's header the program still runs, as the quick test does; bench/run.sh
// refuses a count of zero.
#define CALLGRIND_TOGGLE_COLLECT
#endif

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "BenchSupport.h"
#include "TickScenario.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"

using TalvexBench::TickState;

int main(int argc, char** argv) {
    const TickState states[] = {TickState::NoLists, TickState::ListsIdle,
                                TickState::DeciderStepping};
    if (argc != 3 && argc != 4) {
        std::fprintf(stderr, "usage: %s no_lists|lists_idle|decider_stepping TICKS [LOG_LEVEL]\n",
                     argv[0]);
        return 2;
    }
    const TickState* state = nullptr;
    for (const TickState& candidate : states) {
        if (std::strcmp(argv[1], TalvexBench::TickStateName(candidate)) == 0) state = &candidate;
    }
    const long ticks = std::atol(argv[2]);
    const int logLevel = argc == 4 ? std::atoi(argv[3]) : 2;
    if (state == nullptr || ticks <= 0) {
        std::fprintf(stderr, "unknown state or tick count\n");
        return 2;
    }
    try {
        TalvexHarness::VirtualClock clock;
        TalvexHarness::NodeDirectory nodes;
        TalvexHarness::LogSwitchesScope log(logLevel, false);
        TalvexBench::TickScenario scenario(*state);
        long changes = 0;
        CALLGRIND_TOGGLE_COLLECT;
        for (long i = 0; i < ticks; ++i) changes += scenario.Tick() ? 1 : 0;
        CALLGRIND_TOGGLE_COLLECT;
        std::printf("state=%s ticks=%ld sfps_changes=%ld log_level=%d\n", argv[1], ticks, changes,
                    logLevel);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
