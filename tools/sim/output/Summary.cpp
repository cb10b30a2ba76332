#include "tools/sim/output/Summary.h"

#include <algorithm>
#include <cstdio>

namespace TalvexSim {
namespace {

std::string format(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

// 1234567 as "1,234,567".
std::string grouped(std::uint64_t value) {
    std::string digits = std::to_string(value);
    for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) {
        digits.insert(static_cast<size_t>(i), ",");
    }
    return digits;
}

std::string writes(const std::optional<std::uint64_t>& count) {
    return count ? grouped(*count) : "not counted";
}

std::string line(const std::string& label, const std::string& value) {
    std::string text = "  " + label;
    text.resize(std::max<size_t>(text.size() + 1, 32), ' ');
    return text + value + "\n";
}

}  // namespace

void SummaryBuilder::Add(const TimelineRow& row) {
    if (row.paused) return;
    ++runningTicks;
    ofpsSum += row.ofps;
    if (row.sfps <= 0) return;
    ++stabilizedTicks;
    if (!summary.lowestSfps || row.sfps < *summary.lowestSfps) summary.lowestSfps = row.sfps;
    if (!summary.firstDecrease_s && row.sfps < row.gfps) summary.firstDecrease_s = row.time_s;
}

Summary SummaryBuilder::Finish(const FrameHistogram& frames, double running_s,
                               std::uint64_t hostTicks, std::uint64_t exploringTicks) const {
    Summary finished = summary;
    if (hostTicks > 0) {
        finished.exploringShare =
            static_cast<double>(exploringTicks) / static_cast<double>(hostTicks);
    }
    if (runningTicks > 0) {
        finished.stabilizedShare =
            static_cast<double>(stabilizedTicks) / static_cast<double>(runningTicks);
    }
    finished.frames = frames.Count();
    finished.running_s = running_s;
    if (frames.Count() > 0 && running_s > 0.0) {
        finished.meanFps = static_cast<double>(frames.Count()) / running_s;
    } else if (runningTicks > 0) {
        finished.meanFps = ofpsSum / static_cast<double>(runningTicks);
    }
    finished.frameTimes = frames.Stats();
    return finished;
}

Summary Summarize(const std::vector<TimelineRow>& rows, const FrameHistogram& frames,
                  double running_s, std::uint64_t hostTicks, std::uint64_t exploringTicks) {
    SummaryBuilder builder;
    for (const TimelineRow& row : rows) builder.Add(row);
    return builder.Finish(frames, running_s, hostTicks, exploringTicks);
}

std::string FormatSummary(const Summary& summary, const SummaryContext& context) {
    std::string text =
        "talvex-sim: " + context.scenario + " (seed " + std::to_string(context.seed) + ")";
    if (!context.replayFile.empty()) text += ", replay of " + context.replayFile;
    text += "\n";
    std::string speed =
        format("%.0f s simulated in ", context.simulated_s) + format("%.2f s", context.wall_s);
    if (summary.frames > 0 && context.wall_s > 0.0) {
        speed += ", " + grouped(summary.frames) + " frames, " +
                 grouped(static_cast<std::uint64_t>(static_cast<double>(summary.frames) /
                                                    context.wall_s)) +
                 " frames per wall second";
    }
    text += line("run", speed);
    text += line("time to first SFPS decrease",
                 summary.firstDecrease_s ? format("%.0f s", *summary.firstDecrease_s) : "never");
    text += line("lowest SFPS", summary.lowestSfps ? std::to_string(*summary.lowestSfps)
                                                   : "none (never stabilized)");
    text += line(context.replayFile.empty() ? "mean FPS" : "mean OFPS",
                 format("%.1f", summary.meanFps));
    if (summary.frameTimes) {
        text += line("frame time p50 / p99", format("%.2f", summary.frameTimes->p50_ms) + " / " +
                                                 format("%.2f ms", summary.frameTimes->p99_ms));
    }
    text += line("time stabilized", format("%.1f %%", summary.stabilizedShare * 100.0));
    if (summary.exploringShare > 0.0) {
        text +=
            line("time exploring (SFPS < 0)", format("%.1f %%", summary.exploringShare * 100.0));
    }
    text += line("node writes", "efps_max " + writes(context.efpsMaxWrites) + ", egl_buf " +
                                    writes(context.eglBufWrites));
    if (context.libraryErrors > 0 || context.libraryWarnings > 0) {
        text += line("library log", std::to_string(context.libraryErrors) + " error(s), " +
                                        std::to_string(context.libraryWarnings) +
                                        " warning(s), see library.log");
    }
    std::string files;
    for (const std::string& file : context.outputFiles) files += (files.empty() ? "" : ", ") + file;
    text += line("outputs", context.outputDirectory + "/ (" + files + ")");
    return text;
}

std::string FormatNumber(const char* pattern, double value) { return format(pattern, value); }

std::string GroupThousands(std::uint64_t value) { return grouped(value); }

std::string SummaryLine(const std::string& label, const std::string& value) {
    return line(label, value);
}

}  // namespace TalvexSim
