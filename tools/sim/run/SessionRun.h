#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/sim/base/ResourceUsage.h"
#include "tools/sim/input/Policy.h"
#include "tools/sim/input/ReplayLog.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/loop/DeciderBounds.h"
#include "tools/sim/loop/Simulation.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/report/Report.h"

namespace TalvexSim {

// One run of a scenario under one policy, written into a folder of an output set.
struct SessionRequest {
    const Scenario* scenario = nullptr;
    Policy policy;
    const std::vector<ReplayTick>* replay = nullptr;  // null for a closed loop
    std::string replayPath;
    FrameDetail frameDetail = FrameDetail::AroundChanges;
    std::string nodeDirectory;
    std::string folder;  // inside the output set; empty for its top
    std::function<void(double simulated_s)> progress;
};

// What a run leaves besides its files: its figures, and its rows thinned for charts.
struct SessionRecord {
    std::string policy;
    Report report;
    RunResult result;                    // without rows, log or trace: those went to the files
    std::vector<TimelineRow> chartRows;  // every row of a short run, fewer of a long one
    DeciderBounds finalBounds;           // in force at the end of the run
    std::vector<std::string> files;      // as named in the output set
    // Resident memory after the first simulated hour and when the loop ended, for long runs:
    // what the loop keeps grows no further once the first hour is traced.
    std::optional<ResidentMemory> memoryAtFirstHour;
    std::optional<ResidentMemory> memoryAtEnd;
};

// The summary's lines on fault events and on memory, where the run had them.
std::string SessionSummaryLines(const SessionRecord& record);

// Streams the timeline and the library's log into the set as the run goes, then adds the
// chart and the trace. Throws what the run throws (InputError for a refused setting); the set
// is then left uncommitted.
SessionRecord RunSession(OutputSet& outputs, const SessionRequest& request);

// The rows a chart draws for a run this long: all of them up to an hour, then one in every few,
// always keeping those where the game pauses or resumes.
class ChartRows {
  public:
    explicit ChartRows(double duration_s, double row_s);
    void Add(const TimelineRow& row);
    std::vector<TimelineRow> Take() { return std::move(rows); }

  private:
    size_t every;
    size_t seen = 0;
    std::optional<TimelineRow> previous;
    std::vector<TimelineRow> rows;
};

}  // namespace TalvexSim
