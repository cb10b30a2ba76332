#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "talvex/user_settings/UserSetting.h"
#include "tools/sim/loop/Timeline.h"
#include "tools/sim/model/FaultOutcome.h"
#include "tools/sim/report/EffectiveFloor.h"
#include "tools/sim/report/Findings.h"

namespace TalvexSim {

// The session report: what a person tuning the settings for one game on one device needs to
// judge a run, and what to compare between policies.
//
// Definitions (every policy alike):
// - A steady row is running, ends after the first 10 s of the run, and lies more than 3 s from
//   a pause, a resume or a change of the held rate (row.heldFps), before or after it.
//   fps_stability is the share of steady time whose OFPS is within 1 FPS of the held rate; when
//   nothing holds a rate and the game does not reach its cap, the held rate is the median OFPS
//   of those steady rows. cadence_match is the share of the steady rows' displayed intervals
//   within 2 ms of 1000 / the held rate.
// - Displayed frames (closed loop): display_fps is frames shown per running second; intervals
//   are present to present, never across a pause; the histogram counts them in whole periods
//   of the panel's top rate (nearest; the last bin 6 or more). A frame is slow past 50 (34) ms;
//   slow_session when over 25 % of the intervals after the first running minute are slow at
//   50 ms. A jank is an interval over twice the mean of the three before it and over 84 ms
//   (big: 125 ms), per running hour. Latency runs from the start of a frame's work to the glass.
// - render_fps: frames per running second (a replay, which has no frames: the mean OFPS).
//   render_jank_per_min: the rows' jank frames per running minute.
// - Temperatures are the device model's own (without the sensors' noise or faults).
//   time_above_upper_bound_s counts running and paused time alike. energy_j sums power times
//   interval over every row; mean_power_w divides it by the time the rows cover.
// - The SFPS of a running row is held when positive; one below -1 (exploring) is skipped; 0
//   or -1, or a pause, ends the stabilization. A change is a held SFPS that differs from the
//   last one held before it; the first SFPS of a stabilization is not a change. A reversal is
//   a change opposite in direction to the previous change of the same stabilization. GFPS
//   changes alike, over running rows with a positive GFPS; a pause breaks the chain. Rates are
//   per 10 running minutes.
// - time_to_first_decrease_s: the first running row with 0 < SFPS < GFPS.
//   time_to_recover_s: the first stabilization (0 < SFPS < GFPS) that ends, the SFPS back at
//   the GFPS or no longer held, on a running row while the device is below the lower bound,
//   timed from the last running row at which its temperature fell below that bound. A pause
//   ends a stabilization without a recovery. Nothing when it never happens.
struct ReportContext {
    std::string scenario;
    std::string policy;  // as written: "talvex", "fixed:45", ...
    std::uint64_t seed = 0;
    double running_s = 0.0;
    int gameCapFps = 0;
    int refreshRate_Hz = 60;
    DisplayParams display;
    // The setting records handed to the FPS manager, in the order it took them.
    std::vector<UserSettings::UserSetting> settings;
    std::optional<std::uint64_t> efpsMaxWrites;
    std::vector<FaultOutcome> faults;
    std::uint64_t hostTicks = 0;
    std::uint64_t exploringTicks = 0;  // host ticks after which the SFPS explored
};

struct Report {
    std::string scenario;
    std::string policy;
    std::uint64_t seed = 0;
    double simulated_s = 0.0;  // the time the rows cover
    double running_s = 0.0;
    std::uint64_t frames = 0;
    int gameCapFps = 0;
    int refreshRate_Hz = 0;

    double steady_s = 0.0;
    std::optional<double> fpsStability;  // nothing without a steady row
    double meanFps = 0.0;
    std::optional<double> frameP50_ms;
    std::optional<double> frameP99_ms;
    double jankPerMin = 0.0;
    std::optional<double> peakTemperature_C;
    double timeAboveUpperBound_s = 0.0;
    double energy_J = 0.0;
    double meanPower_W = 0.0;
    std::optional<double> timeToFirstDecrease_s;
    std::optional<double> timeToRecover_s;
    double sfpsChangesPer10Min = 0.0;
    double sfpsReversalsPer10Min = 0.0;
    double gfpsChangesPer10Min = 0.0;

    // A device of real parts (null on the older model): the clocks' mean over running time,
    // each side's mean power over all rows, the time a thermal ceiling held a domain below
    // what its load asked for, and the die's peak.
    std::optional<double> meanCpu_MHz;
    std::optional<double> meanGpu_MHz;
    std::optional<double> cpuPower_W;
    std::optional<double> gpuPower_W;
    std::optional<double> timeCapped_s;
    std::optional<double> peakDieTemperature_C;

    // What the player sees.
    std::optional<double> displayFps;  // these stay empty when no frame was shown
    std::optional<double> displayIntervalP50_ms;
    std::optional<double> displayIntervalP99_ms;
    std::array<std::uint64_t, ShownFrames::kPeriodBins> displayIntervalHistogram{};
    std::optional<double> cadenceMatch;  // nothing without a steady interval
    std::optional<double> slowFrames50Share;
    std::optional<double> slowFrames34Share;
    bool slowSession = false;
    std::optional<double> jankPerHour;
    std::optional<double> bigJankPerHour;
    std::optional<double> latencyP50_ms;
    std::optional<double> latencyP99_ms;

    std::vector<SfpsFloor> effectiveSfpsFloor;  // ascending GFPS, each one held in the run
    std::vector<Finding> diagnostics;
    std::vector<FaultOutcome> faults;

    // For the summary on standard output, not in report.json.
    std::optional<int> lowestSfps;  // lowest SFPS held
    double heldShare = 0.0;         // share of running rows with a held SFPS
    double exploringShare = 0.0;    // share of host ticks after which the SFPS explored
};

// Takes the timeline one row at a time and keeps only counters and tables bounded by the
// distinct rates seen, so a run of a day costs no more memory than one of a minute. The steady
// rule looks 3 s ahead, so the rows of the last 3 s wait in a short queue.
class ReportBuilder {
  public:
    explicit ReportBuilder(int refreshRate_Hz_ = 60) : refreshRate_Hz(refreshRate_Hz_) {}
    void Add(const TimelineRow& row);
    // Not const: the rows still waiting for their steady verdict are settled.
    Report Finish(const ReportContext& context, const FrameHistogram& frames,
                  const ShownFrames& shown = ShownFrames());

  private:
    struct Pending {
        double time_s;
        double interval_s;
        int ofps;
        int heldFps;
        bool rateHeld;
        std::vector<float> shownIntervals_ms;
    };
    // Steady rows that run free, judged once their median rate is known.
    struct FreeRows {
        int capFps = 0;
        std::map<int, double> ofps_s;                    // OFPS -> steady seconds
        std::map<std::int64_t, std::uint64_t> shown_us;  // interval, to the microsecond
    };

    void addSteadyRow(const Pending& row);
    void finishSteady(Report& report);
    void finishShown(Report& report, const ShownFrames& shown, double running_s) const;
    void addSteady(const TimelineRow& row);
    void markEvent(double time_s);
    void settle(double before_s);
    void addSfps(const TimelineRow& row);
    void addRecovery(const TimelineRow& row);
    void addGfps(const TimelineRow& row);

    const int refreshRate_Hz;  // the panel's top rate

    // The steady rule.
    bool seenRow = false;
    bool lastPaused = false;
    int lastHeld = 0;
    std::optional<double> lastEvent_s;
    std::deque<Pending> pending;
    double steady_s = 0.0;
    double steadyWithin_s = 0.0;
    std::uint64_t steadyShown = 0;
    std::uint64_t steadyShownOnCadence = 0;
    FreeRows free;

    double covered_s = 0.0;
    double energy_J = 0.0;
    struct Parts {
        bool seen = false;
        double cpuMHz_s = 0.0;  // MHz x running seconds
        double gpuMHz_s = 0.0;
        double running_s = 0.0;
        double cpu_J = 0.0;
        double gpu_J = 0.0;
        double capped_s = 0.0;
        double peakDie_C = 0.0;
    } parts;
    void addParts(const TimelineRow& row);
    void finishParts(Report& report) const;
    std::optional<double> peak_C;
    double aboveUpper_s = 0.0;
    std::uint64_t jankFrames = 0;
    double runningOfps = 0.0;
    std::uint64_t runningRows = 0;

    std::optional<double> firstDecrease_s;
    bool stabilized = false;
    std::optional<double> coolSince_s;
    std::optional<double> recover_s;

    std::optional<int> lastSfps;
    int lastSfpsGfps = 0;  // the GFPS of lastSfps
    int lastSfpsDirection = 0;
    std::uint64_t sfpsReversals = 0;
    std::optional<int> lowestSfps;
    std::uint64_t heldRows = 0;

    std::optional<int> lastGfps;
    std::uint64_t gfpsChanges = 0;
    FindingTallies tallies;
};

}  // namespace TalvexSim
