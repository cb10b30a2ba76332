#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/sim/loop/Session.h"
#include "tools/sim/loop/Simulation.h"
#include "tools/sim/loop/Timeline.h"
#include "tools/sim/model/Device.h"

namespace TalvexSim {

// What the loop knows at a row's time besides the frames and ticks of its stretch.
struct RowMoment {
    std::int64_t time_ns = 0;
    double time_s = 0.0;
    bool paused = false;
    double temperature_C = 0.0;  // the readings handed to the library
    double current_mA = 0.0;
    int heldFps = 0;
    bool rateHeld = false;
    std::string node;
};

// The timeline of a run, for the closed loop and the replay alike: gathers the frames and host
// ticks of the stretch up to the next row, completes each row with the library's state, the
// decider bounds and (in a closed loop) the device's, and hands it on as it is made.
class RowBuilder {
  public:
    // `device` is null for a replay, which has no device model.
    RowBuilder(const RunOptions& options, Session& session, const Device* device,
               std::int64_t row_ns, RunResult& result);

    void AddFrame(float length_ms, bool jank);
    // A frame reached the glass; the interval since the one before it, if any.
    void AddShown(std::optional<double> interval_ms);
    // A host tick that ran. An exploring SFPS often lasts only a few frames, so a row counts
    // the ticks that showed one instead of sampling it.
    void CountTick(int sfps);
    size_t StretchFrames() const { return stretch.frames_ms.size(); }
    // The stretch's frames are forgotten, its ticks and stutters kept for the next row.
    void DropStretchFrames() {
        stretch.frames_ms.clear();
        stretch.shownFrames = 0;
        stretch.shownIntervals_ms.clear();
    }

    // The stretch as a row now, with the host's OFPS and EFPS.
    TimelineRow TakeStretch(int ofps, std::optional<int> efps);
    // A host that ticks every frame gives a row its OFPS at the first tick after the row's
    // time, so the stretch waits for it.
    void HoldStretch(std::int64_t time_ns);
    bool Holding() const { return !held.empty(); }
    // The waiting rows, with that tick's OFPS and EFPS, or (no tick coming) their own frame
    // counts as OFPS; all at the moment's readings and state.
    void ReleaseHeld(std::optional<int> ofps, std::optional<int> efps, RowMoment moment);

    void Emit(TimelineRow row, const RowMoment& moment);

  private:
    struct Stretch {
        std::vector<float> frames_ms;
        int exploringTicks = 0;
        int exploringSfps = -1;
        int jankFrames = 0;
        int shownFrames = 0;
        std::vector<float> shownIntervals_ms;
    };
    static TimelineRow rowOf(Stretch stretch, int ofps, std::optional<int> efps);

    const RunOptions& options;
    Session& session;
    const Device* device;
    const double interval_s;
    RunResult& result;
    Stretch stretch;
    std::vector<std::pair<std::int64_t, Stretch>> held;
    double energyAtLastRow_J = 0.0;
};

}  // namespace TalvexSim
