#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/sim/input/Policy.h"
#include "tools/sim/input/ReplayLog.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/Timeline.h"
#include "tools/sim/loop/TraceRecorder.h"
#include "tools/sim/model/FaultOutcome.h"

namespace TalvexSim {

struct RunOptions {
    Policy policy = ParsePolicy("talvex");  // closed loop only; a replay always runs the library
    FrameDetail frameDetail = FrameDetail::AroundChanges;
    std::string nodeDirectory;  // empty: a fresh temporary directory, removed afterwards
    std::function<void(double simulated_s)> progress;
    // Where the rows and the library's log lines go as they are made; when unset they are kept
    // in the result. A long run streams them, so that its memory stays flat.
    std::function<void(const TimelineRow&)> rowSink;
    std::function<void(const std::string&)> logSink;
};

struct RunResult {
    std::vector<TimelineRow> rows;  // empty when they went to RunOptions::rowSink
    FrameHistogram frames;          // every frame, as the game saw it
    ShownFrames shown;              // every frame, as the player saw it (closed loop only)
    double running_s = 0.0;         // simulated time not paused
    double simulated_s = 0.0;
    std::uint64_t hostTicks = 0;
    std::uint64_t exploringTicks = 0;  // host ticks after which the reported SFPS was negative
    std::optional<std::uint64_t> efpsMaxWrites;
    std::optional<std::uint64_t> eglBufWrites;
    std::unique_ptr<TraceRecorder> trace;
    std::string libraryLog;  // empty when it went to RunOptions::logSink
    size_t libraryErrors = 0;
    size_t libraryWarnings = 0;
    // Settings events the library refused during the run, with where each was written.
    std::vector<std::string> refusedEvents;
    std::vector<FaultOutcome> faults;     // one per fault event, in the scenario's order
    std::uint64_t escapedExceptions = 0;  // out of a library call, over the whole run
};

// A game session in one closed loop on virtual time: the game and device models produce frames
// and readings; once per host tick an FpsManager decides, and the SFPS read back from its node
// is the target a Quillet paces every following frame to. Throws InputError, naming where the
// setting was written, when the library refuses one of the scenario's settings; nothing has
// been written anywhere then.
RunResult RunClosedLoop(const Scenario& scenario, const RunOptions& options);

// A recorded tick log fed to an FpsManager in open loop, with the scenario's PID and settings
// (its configuration and settings events); the log's own readings replace the models.
RunResult RunReplay(const Scenario& scenario, const std::vector<ReplayTick>& ticks,
                    const RunOptions& options);

// The SFPS field of an efps_max text ("pid,sfps,gfps"); -1 when the text is not of that form.
int SfpsOfNodeText(const std::string& text);

}  // namespace TalvexSim
