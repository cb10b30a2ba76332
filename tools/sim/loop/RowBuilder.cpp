#include "tools/sim/loop/RowBuilder.h"

#include <utility>

#include "tools/sim/base/Units.h"

namespace TalvexSim {

RowBuilder::RowBuilder(const RunOptions& options_, Session& session_, const Device* device_,
                       std::int64_t row_ns, RunResult& result_)
    : options(options_),
      session(session_),
      device(device_),
      interval_s(NsToSeconds(row_ns)),
      result(result_) {}

void RowBuilder::AddFrame(float length_ms, bool jank) {
    stretch.frames_ms.push_back(length_ms);
    if (jank) ++stretch.jankFrames;
}

void RowBuilder::AddShown(std::optional<double> interval_ms) {
    ++stretch.shownFrames;
    if (interval_ms) stretch.shownIntervals_ms.push_back(static_cast<float>(*interval_ms));
}

void RowBuilder::CountTick(int sfps) {
    ++result.hostTicks;
    if (IsExploringSfps(sfps)) {
        ++stretch.exploringTicks;
        ++result.exploringTicks;
        stretch.exploringSfps = sfps;
    }
}

TimelineRow RowBuilder::rowOf(Stretch stretch, int ofps, std::optional<int> efps) {
    TimelineRow row;
    row.ofps = ofps;
    row.efps = efps;
    row.frames = ComputeFrameStats(std::move(stretch.frames_ms));
    row.exploringTicks = stretch.exploringTicks;
    row.exploringSfps = stretch.exploringSfps;
    row.jankFrames = stretch.jankFrames;
    row.shownFrames = stretch.shownFrames;
    row.shownIntervals_ms = std::move(stretch.shownIntervals_ms);
    return row;
}

TimelineRow RowBuilder::TakeStretch(int ofps, std::optional<int> efps) {
    TimelineRow row = rowOf(std::move(stretch), ofps, efps);
    stretch = Stretch();
    return row;
}

void RowBuilder::HoldStretch(std::int64_t time_ns) {
    held.emplace_back(time_ns, std::move(stretch));
    stretch = Stretch();
}

void RowBuilder::ReleaseHeld(std::optional<int> ofps, std::optional<int> efps, RowMoment moment) {
    for (auto& [time_ns, waiting] : held) {
        const int own = static_cast<int>(waiting.frames_ms.size());
        moment.time_ns = time_ns;
        moment.time_s = NsToSeconds(time_ns);
        Emit(rowOf(std::move(waiting), ofps.value_or(own), efps), moment);
    }
    held.clear();
}

void RowBuilder::Emit(TimelineRow row, const RowMoment& moment) {
    row.time_s = moment.time_s;
    row.paused = moment.paused;
    row.temperature_C = moment.temperature_C;
    row.current_mA = moment.current_mA;
    row.gfps = session.Gfps();
    row.sfps = session.Sfps();
    row.node = moment.node;
    row.interval_s = interval_s;
    row.heldFps = moment.heldFps;
    row.rateHeld = moment.rateHeld;
    const DeciderBounds& bounds = session.Bounds();
    row.lowerBound_C = bounds.temperatureLower_C;
    row.upperBound_C = bounds.temperatureUpper_C;
    row.currentThreshold_mA = bounds.currentThreshold_mA;
    if (device != nullptr) {
        row.deviceTemperature_C = device->Temperature_C();
        row.power_W = (device->EnergyDrawn_J() - energyAtLastRow_J) / row.interval_s;
        energyAtLastRow_J = device->EnergyDrawn_J();
        row.governorState = device->GovernorState();
        const DeviceClocks clocks = device->Clocks();
        row.cpu_MHz = clocks.cpu_MHz;
        row.gpu_MHz = clocks.gpu_MHz;
        row.cpuPower_W = clocks.cpuPower_W;
        row.gpuPower_W = clocks.gpuPower_W;
        row.dieTemperature_C = clocks.die_C;
        row.capped = clocks.capped;
    }
    TraceRecorder& trace = session.Trace();
    trace.ModelCounter("temperature (\u00b0C)", moment.time_ns, row.temperature_C);
    trace.ModelCounter("current (mA)", moment.time_ns, row.current_mA);
    trace.ModelCounter("OFPS", moment.time_ns, row.ofps);
    if (options.progress) options.progress(row.time_s);
    if (options.rowSink) {
        options.rowSink(row);
    } else {
        result.rows.push_back(std::move(row));
    }
}

}  // namespace TalvexSim
