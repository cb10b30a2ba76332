#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TalvexSim {

struct FrameStats {
    double mean_ms = 0.0;
    double p50_ms = 0.0;
    double p99_ms = 0.0;
};

// Nearest-rank percentiles; nothing for no frames.
std::optional<FrameStats> ComputeFrameStats(std::vector<float> lengths_ms);

// Every frame of a run in fixed memory, however long the run: lengths to the microsecond up to
// a bound, the rare longer ones kept exactly. Percentiles are nearest-rank, to the microsecond.
class FrameHistogram {
  public:
    void Add(float length_ms);
    std::uint64_t Count() const { return count; }
    std::optional<FrameStats> Stats() const;

  private:
    static constexpr size_t kBins = 250'000;  // 1 us each: up to 250 ms
    std::vector<std::uint32_t> bins;
    std::vector<float> longer_ms;
    std::uint64_t count = 0;
    double sum_ms = 0.0;
};

// The frames shown on the panel over a whole run, in fixed memory: present-to-present intervals
// and latencies, slow frames and janks as the tools that judge smoothness count them.
class ShownFrames {
  public:
    static constexpr size_t kPeriodBins = 6;  // 1, 2, ... 6 or more refresh periods

    explicit ShownFrames(double refreshPeriod_ms = 1000.0 / 60) : period_ms(refreshPeriod_ms) {}
    // A frame on the glass after `latency_ms` from the start of its work, `running_s` into the
    // running time; `interval_ms` since the previous one shown, nothing for the first one after
    // a start or a resume.
    void Add(std::optional<double> interval_ms, double latency_ms, double running_s);

    std::uint64_t Count() const { return count; }
    const FrameHistogram& Intervals() const { return intervals; }
    const FrameHistogram& Latencies() const { return latencies; }
    const std::array<std::uint64_t, kPeriodBins>& PeriodCounts() const { return periods; }
    std::uint64_t SlowOver50() const { return slow50; }  // intervals over 50 ms
    std::uint64_t SlowOver34() const { return slow34; }
    // Intervals after the first running minute, and how many of them were over 50 ms.
    std::uint64_t LaterIntervals() const { return later; }
    std::uint64_t LaterSlow() const { return laterSlow50; }
    std::uint64_t Janks() const { return janks; }
    std::uint64_t BigJanks() const { return bigJanks; }

  private:
    double period_ms;
    std::uint64_t count = 0;
    FrameHistogram intervals;
    FrameHistogram latencies;
    std::array<std::uint64_t, kPeriodBins> periods{};
    std::uint64_t slow50 = 0;
    std::uint64_t slow34 = 0;
    std::uint64_t later = 0;
    std::uint64_t laterSlow50 = 0;
    std::uint64_t janks = 0;
    std::uint64_t bigJanks = 0;
    std::array<double, 3> previous{};  // the last three intervals, newest last
    int previousCount = 0;
};

// Whole refresh periods of an interval, nearest, at least one.
size_t PeriodsOf(double interval_ms, double period_ms);

// What the library's SFPS says of the pacing target: held at that rate, or exploring the game's
// own rate (the pacer measures and holds nothing); 0 and -1 hold nothing either.
inline bool IsHeldSfps(int sfps) { return sfps > 0; }
inline bool IsExploringSfps(int sfps) { return sfps < -1; }

// One host tick as the outputs show it.
struct TimelineRow {
    double time_s = 0.0;
    bool paused = false;
    double temperature_C = 0.0;  // the readings handed to the library
    double current_mA = 0.0;
    int ofps = 0;
    std::optional<int> efps;  // as the FPS manager stated it; nothing when it did not tick
    int gfps = -1;
    int sfps = -1;  // reported, with its sign
    std::string node;
    int exploringTicks = 0;                // host ticks of this row with an exploring SFPS
    int exploringSfps = -1;                // the last such SFPS, for the chart
    std::optional<FrameStats> frames;      // of the frames that ended in this tick
    int shownFrames = 0;                   // frames that reached the glass in this tick
    std::vector<float> shownIntervals_ms;  // their present-to-present intervals

    // What the report needs besides what the library saw.
    double deviceTemperature_C = 0.0;  // the model's own, without the sensors' noise or faults
    double power_W = 0.0;              // mean power drawn since the previous row
    double interval_s = 1.0;           // time this row stands for
    int heldFps = 0;        // the rate the frames are held to: the pacer's target, else the cap
    bool rateHeld = false;  // something holds the frames below the game's own cap
    int jankFrames = 0;     // frames of this row longer than 1.5 times the held period
    int governorState = 0;  // the thermal governor's cooling state (0: full clock)
    // A device of real parts (zero on the older model): clocks, powers and the die.
    double cpu_MHz = 0.0;
    double gpu_MHz = 0.0;
    double cpuPower_W = 0.0;
    double gpuPower_W = 0.0;
    double dieTemperature_C = 0.0;
    bool capped = false;       // a thermal ceiling below what the load asked for
    double lowerBound_C = 40;  // the temperature decider's bounds in force
    double upperBound_C = 45;
    double currentThreshold_mA = 0.0;  // NaN: off
};

}  // namespace TalvexSim
