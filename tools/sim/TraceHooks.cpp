// libcutils' trace entry points, defined in the executable (exported with -rdynamic) so that
// the library's trace calls land in the simulator's recorder instead of doing nothing.
#include <cstdint>

#include "tools/sim/TraceRecorder.h"

extern "C" {

// ATRACE_TAG_ALWAYS, the library's only tag, is bit 0.
uint64_t atrace_get_enabled_tags() {
    return TalvexSim::TraceRecorder::Active() != nullptr ? 1u : 0u;
}

void atrace_begin_body(const char* name) {
    if (TalvexSim::TraceRecorder* recorder = TalvexSim::TraceRecorder::Active()) {
        recorder->Begin(name);
    }
}

void atrace_end_body() {
    if (TalvexSim::TraceRecorder* recorder = TalvexSim::TraceRecorder::Active()) recorder->End();
}

void atrace_int_body(const char* name, int32_t value) {
    if (TalvexSim::TraceRecorder* recorder = TalvexSim::TraceRecorder::Active()) {
        recorder->Counter(name, value);
    }
}

}  // extern "C"
