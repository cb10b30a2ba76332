#include "tools/sim/output/TimelineCsv.h"

#include "tools/sim/base/Text.h"

namespace TalvexSim {

void WriteTimelineHeader(std::ostream& out, bool withModel) {
    out << "time_s,paused,temperature_C,current_mA,ofps,efps,gfps,sfps,node,exploring_ticks,"
           "frame_ms_mean,frame_ms_p50,frame_ms_p99";
    if (withModel) {
        out << ",device_temperature_C,power_W,held_fps,jank_frames,governor_state,cpu_mhz,gpu_mhz,"
               "die_temperature_C,capped";
    }
    out << '\n';
}

void WriteTimelineRow(std::ostream& out, const TimelineRow& row, bool withModel) {
    out << Fixed(row.time_s, 3) << ',' << (row.paused ? 1 : 0) << ',' << Fixed(row.temperature_C, 3)
        << ',' << Fixed(row.current_mA, 3) << ',' << row.ofps << ','
        << (row.efps ? std::to_string(*row.efps) : "") << ',' << row.gfps << ',' << row.sfps << ','
        << CsvQuoted(row.node) << ',' << row.exploringTicks << ',';
    if (row.frames) {
        out << Fixed(row.frames->mean_ms, 3) << ',' << Fixed(row.frames->p50_ms, 3) << ','
            << Fixed(row.frames->p99_ms, 3);
    } else {
        out << ",,";
    }
    if (withModel) {
        out << ',' << Fixed(row.deviceTemperature_C, 3) << ',' << Fixed(row.power_W, 3) << ','
            << row.heldFps << ',' << row.jankFrames << ',' << row.governorState << ','
            << Fixed(row.cpu_MHz, 1) << ',' << Fixed(row.gpu_MHz, 1) << ','
            << Fixed(row.dieTemperature_C, 3) << ',' << (row.capped ? 1 : 0);
    }
    out << '\n';
}

void WriteTimelineCsv(std::ostream& out, const std::vector<TimelineRow>& rows, bool withModel) {
    WriteTimelineHeader(out, withModel);
    for (const TimelineRow& row : rows) WriteTimelineRow(out, row, withModel);
}

}  // namespace TalvexSim
