#include "tools/sim/report/Metrics.h"

#include "tools/sim/base/Text.h"

namespace TalvexSim {

ReportMetrics CollectMetrics(const Report& report) {
    return {{"fps_stability", report.fpsStability, 3},
            {"cadence_match", report.cadenceMatch, 3},
            {"display_fps", report.displayFps, 1},
            {"display_interval_ms_p50", report.displayIntervalP50_ms, 2},
            {"display_interval_ms_p99", report.displayIntervalP99_ms, 2},
            {"slow_frames_50ms_share", report.slowFrames50Share, 3},
            {"slow_frames_34ms_share", report.slowFrames34Share, 3},
            {"jank_per_hour", report.jankPerHour, 1},
            {"big_jank_per_hour", report.bigJankPerHour, 1},
            {"latency_ms_p50", report.latencyP50_ms, 1},
            {"latency_ms_p99", report.latencyP99_ms, 1},
            {"render_fps", report.meanFps, 1},
            {"render_frame_ms_p50", report.frameP50_ms, 2},
            {"render_frame_ms_p99", report.frameP99_ms, 2},
            {"render_jank_per_min", report.jankPerMin, 2},
            {"peak_temperature_c", report.peakTemperature_C, 1},
            {"time_above_upper_bound_s", report.timeAboveUpperBound_s, 0},
            {"energy_j", report.energy_J, 0},
            {"mean_power_w", report.meanPower_W, 2},
            {"mean_cpu_mhz", report.meanCpu_MHz, 0},
            {"mean_gpu_mhz", report.meanGpu_MHz, 0},
            {"cpu_power_w", report.cpuPower_W, 2},
            {"gpu_power_w", report.gpuPower_W, 2},
            {"time_capped_s", report.timeCapped_s, 0},
            {"peak_die_temperature_c", report.peakDieTemperature_C, 1},
            {"time_to_first_decrease_s", report.timeToFirstDecrease_s, 0},
            {"time_to_recover_s", report.timeToRecover_s, 0},
            {"sfps_changes_per_10min", report.sfpsChangesPer10Min, 1},
            {"sfps_reversals_per_10min", report.sfpsReversalsPer10Min, 1},
            {"gfps_changes_per_10min", report.gfpsChangesPer10Min, 1}};
}

std::vector<std::string> ReportMetricNames() {
    std::vector<std::string> names;
    for (const ReportMetric& metric : CollectMetrics(Report{})) names.push_back(metric.key);
    return names;
}

int MetricDecimals(const std::string& key) {
    for (const ReportMetric& metric : CollectMetrics(Report{})) {
        if (metric.key == key) return metric.decimals;
    }
    return 3;
}

MetricValues MetricValuesOf(const Report& report) {
    MetricValues values;
    for (const ReportMetric& metric : CollectMetrics(report)) values[metric.key] = metric.value;
    return values;
}

std::optional<double> MetricValue(const MetricValues& values, const std::string& key) {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : found->second;
}

std::string MetricCell(const MetricValues& values, const std::string& key) {
    const std::optional<double> value = MetricValue(values, key);
    return value ? Fixed(*value, MetricDecimals(key)) : std::string();
}

}  // namespace TalvexSim
