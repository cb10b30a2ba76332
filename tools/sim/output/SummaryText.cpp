#include "tools/sim/output/SummaryText.h"

#include "tools/sim/base/Text.h"

namespace TalvexSim {
namespace {

std::string writes(const std::optional<std::uint64_t>& count) {
    return count ? GroupThousands(*count) : "not counted";
}

std::string speed(const Report& report, const SummaryContext& context) {
    std::string text =
        Fixed(report.simulated_s, 0) + " s simulated in " + Fixed(context.wall_s, 2) + " s";
    if (report.frames > 0 && context.wall_s > 0.0) {
        text += ", " + GroupThousands(report.frames) + " frames, " +
                GroupThousands(static_cast<std::uint64_t>(static_cast<double>(report.frames) /
                                                          context.wall_s)) +
                " frames per wall second";
    }
    return text;
}

}  // namespace

std::string FormatSummary(const Report& report, const SummaryContext& context) {
    std::string text =
        "talvex-sim: " + report.scenario + " (seed " + std::to_string(report.seed) + ")";
    if (!context.replayFile.empty()) text += ", replay of " + context.replayFile;
    text += "\n";
    text += LabelLine("run", speed(report, context));
    text += LabelLine(
        "time to first SFPS decrease",
        report.timeToFirstDecrease_s ? Fixed(*report.timeToFirstDecrease_s, 0) + " s" : "never");
    text += LabelLine("lowest SFPS", report.lowestSfps ? std::to_string(*report.lowestSfps)
                                                       : "none (never stabilized)");
    if (report.displayFps && report.displayIntervalP50_ms) {
        text += LabelLine("displayed FPS", Fixed(*report.displayFps, 1));
        text += LabelLine("displayed interval p50 / p99",
                          Fixed(*report.displayIntervalP50_ms, 2) + " / " +
                              Fixed(*report.displayIntervalP99_ms, 2) + " ms");
    }
    text += LabelLine(context.replayFile.empty() ? "rendered FPS" : "mean OFPS",
                      Fixed(report.meanFps, 1));
    if (report.frameP50_ms && report.frameP99_ms) {
        text +=
            LabelLine("rendered frame time p50 / p99", Fixed(*report.frameP50_ms, 2) + " / " +
                                                           Fixed(*report.frameP99_ms, 2) + " ms");
    }
    text += LabelLine("time stabilized", Fixed(report.heldShare * 100.0, 1) + " %");
    if (report.exploringShare > 0.0) {
        text +=
            LabelLine("time exploring (SFPS < -1)", Fixed(report.exploringShare * 100.0, 1) + " %");
    }
    text += LabelLine("node writes", "efps_max " + writes(context.efpsMaxWrites) + ", egl_buf " +
                                         writes(context.eglBufWrites));
    if (context.libraryErrors > 0 || context.libraryWarnings > 0) {
        text += LabelLine("library log", std::to_string(context.libraryErrors) + " error(s), " +
                                             std::to_string(context.libraryWarnings) +
                                             " warning(s), see library.log");
    }
    std::string files;
    for (const std::string& file : context.outputFiles) files += (files.empty() ? "" : ", ") + file;
    text += LabelLine("outputs", context.outputDirectory + "/ (" + files + ")");
    return text;
}

}  // namespace TalvexSim
