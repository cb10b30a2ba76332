#include "tools/sim/CommandLine.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "tools/sim/Chart.h"
#include "tools/sim/DefaultScenario.h"
#include "tools/sim/InputError.h"
#include "tools/sim/LibraryLog.h"
#include "tools/sim/OutputFiles.h"
#include "tools/sim/Progress.h"
#include "tools/sim/ReplayLog.h"
#include "tools/sim/Scenario.h"
#include "tools/sim/Simulation.h"
#include "tools/sim/Summary.h"

namespace TalvexSim {
namespace {

constexpr const char kUsage[] =
    "Usage: talvex-sim [OPTIONS] [SCENARIO.json]\n"
    "\n"
    "Runs a game session through both halves of Talvex on virtual time and writes\n"
    "timeline.csv, trace.json, chart.svg and library.log to the output folder.\n"
    "Without SCENARIO.json the embedded default scenario runs.\n"
    "\n"
    "Options:\n"
    "  --replay FILE.csv    feed a recorded tick log to an FpsManager in open loop;\n"
    "                       the scenario gives the PID and the settings\n"
    "  --out DIR            output folder (default: out/<scenario name>, or\n"
    "                       out/<log name> for a replay)\n"
    "  --seed N             replace the scenario's seed\n"
    "  --trace-frames MODE  per-frame pacing events in trace.json: 'changes' (default;\n"
    "                       the frames around each change of the pacing target),\n"
    "                       'all' or 'none'\n"
    "  --node-dir DIR       keep the simulated kernel nodes in DIR (default: a\n"
    "                       temporary folder, removed afterwards)\n"
    "  --no-progress        no progress bar on a terminal\n"
    "  --print-default      print the embedded default scenario and exit\n"
    "  -h, --help           this text\n"
    "\n"
    "Exit status: 0 done, 1 the outputs could not be written, 2 bad arguments or input.\n";

struct Arguments {
    std::string scenarioPath;
    std::string replayPath;
    std::string outputDirectory;
    std::optional<std::uint64_t> seed;
    FrameDetail frameDetail = FrameDetail::AroundChanges;
    std::string nodeDirectory;
    bool progress = true;
    bool printDefault = false;
    bool help = false;
};

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

std::uint64_t parseSeed(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long seed = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || text[0] == '-' || *end != '\0' || errno == ERANGE) {
        throw UsageError("--seed takes a whole number, not '" + text + "'");
    }
    return seed;
}

Arguments parseArguments(const std::vector<std::string>& arguments) {
    Arguments parsed;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&]() -> const std::string& {
            if (i + 1 >= arguments.size()) throw UsageError(argument + " needs a value");
            return arguments[++i];
        };
        if (argument == "-h" || argument == "--help") {
            parsed.help = true;
        } else if (argument == "--replay") {
            parsed.replayPath = value();
        } else if (argument == "--out") {
            parsed.outputDirectory = value();
        } else if (argument == "--seed") {
            parsed.seed = parseSeed(value());
        } else if (argument == "--trace-frames") {
            const std::string& mode = value();
            if (mode == "changes") {
                parsed.frameDetail = FrameDetail::AroundChanges;
            } else if (mode == "all") {
                parsed.frameDetail = FrameDetail::All;
            } else if (mode == "none") {
                parsed.frameDetail = FrameDetail::None;
            } else {
                throw UsageError("--trace-frames takes changes, all or none, not '" + mode + "'");
            }
        } else if (argument == "--node-dir") {
            parsed.nodeDirectory = value();
        } else if (argument == "--no-progress") {
            parsed.progress = false;
        } else if (argument == "--print-default") {
            parsed.printDefault = true;
        } else if (!argument.empty() && argument[0] == '-') {
            throw UsageError("unknown option " + argument);
        } else if (parsed.scenarioPath.empty()) {
            parsed.scenarioPath = argument;
        } else {
            throw UsageError("one scenario at a time ('" + parsed.scenarioPath + "' and '" +
                             argument + "')");
        }
    }
    return parsed;
}

// The decider bounds the chart draws: the library's defaults, then the scenario's settings in
// the order they are applied.
void applySettingsToChart(ChartInput& chart, const Scenario& scenario) {
    DeciderBounds bounds;
    ApplyToBounds(bounds, scenario.settings);
    for (const ScenarioEvent& event : scenario.events) ApplyToBounds(bounds, event.settings);
    chart.temperatureLowerBound_C = bounds.temperatureLower_C;
    chart.temperatureUpperBound_C = bounds.temperatureUpper_C;
    chart.currentThreshold_mA = bounds.currentThreshold_mA;
}

std::string chartSubtitle(const Scenario& scenario, const std::string& replayPath) {
    std::ostringstream text;
    if (!replayPath.empty()) {
        text << "replay of " << replayPath << ", settings of " << scenario.name;
        return text.str();
    }
    text << scenario.refreshRate_Hz << " Hz screen, game capped at " << scenario.game.targetFps
         << " FPS, seed " << scenario.seed;
    if (!scenario.description.empty()) text << " \u2014 " << scenario.description;
    return text.str();
}

std::string defaultOutputDirectory(const Arguments& arguments, const Scenario& scenario) {
    if (!arguments.outputDirectory.empty()) return arguments.outputDirectory;
    if (!arguments.replayPath.empty()) {
        return "out/" + std::filesystem::path(arguments.replayPath).stem().string();
    }
    return "out/" + scenario.name;
}

int run(const Arguments& arguments, std::FILE* out, std::FILE* err) {
    const auto wallStart = std::chrono::steady_clock::now();
    Scenario scenario = arguments.scenarioPath.empty() ? LoadDefaultScenario()
                                                       : LoadScenarioFile(arguments.scenarioPath);
    if (arguments.seed) scenario.seed = *arguments.seed;
    std::vector<ReplayTick> ticks;
    if (!arguments.replayPath.empty()) ticks = LoadReplayFile(arguments.replayPath);
    const std::string outputDirectory = defaultOutputDirectory(arguments, scenario);

    RunOptions options;
    options.frameDetail = arguments.frameDetail;
    options.nodeDirectory = arguments.nodeDirectory;
    const double total_s = ticks.empty() ? scenario.duration_s : ticks.back().time_s;
    ProgressBar progress(err, arguments.progress && isatty(fileno(err)) == 1, total_s);
    options.progress = [&progress](double done_s) { progress.Update(done_s); };
    RunResult result =
        ticks.empty() ? RunClosedLoop(scenario, options) : RunReplay(scenario, ticks, options);
    progress.Finish();
    for (const std::string& refusal : result.refusedEvents) {
        std::fprintf(err, "talvex-sim: warning: %s\n", refusal.c_str());
    }

    ChartInput chart;
    chart.title = "talvex-sim: " + scenario.name;
    chart.subtitle = chartSubtitle(scenario, arguments.replayPath);
    chart.rows = &result.rows;
    chart.refreshRate_Hz = ticks.empty() ? scenario.refreshRate_Hz : ticks.front().refreshRate_Hz;
    chart.tick_s = scenario.tick_s;
    applySettingsToChart(chart, scenario);

    std::ostringstream timeline;
    WriteTimelineCsv(timeline, result.rows, ticks.empty());
    std::ostringstream trace;
    result.trace->WriteJson(
        trace, {scenario.pid, scenario.package + " (pid " + std::to_string(scenario.pid) + ")"});
    const std::vector<std::pair<std::string, std::string>> files = {
        {"timeline.csv", timeline.str()},
        {"trace.json", trace.str()},
        {"chart.svg", RenderChart(chart)},
        {"library.log", result.libraryLog}};
    WriteOutputFiles(outputDirectory, files);

    SummaryContext context;
    context.scenario = scenario.name;
    context.seed = scenario.seed;
    context.replayFile = arguments.replayPath;
    context.simulated_s = result.simulated_s;
    context.wall_s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
    context.efpsMaxWrites = result.efpsMaxWrites;
    context.eglBufWrites = result.eglBufWrites;
    context.libraryErrors = result.libraryErrors;
    context.libraryWarnings = result.libraryWarnings;
    context.outputDirectory = outputDirectory;
    for (const auto& file : files) context.outputFiles.push_back(file.first);
    const Summary summary = Summarize(result.rows, result.frames, result.running_s,
                                      result.hostTicks, result.exploringTicks);
    std::fputs(FormatSummary(summary, context).c_str(), out);
    return 0;
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err) {
    // The library logs while the scenario is loaded too; keep that off the terminal.
    LibraryLog quiet;
    try {
        const Arguments parsed = parseArguments(arguments);
        if (parsed.help) {
            std::fputs(kUsage, out);
            return 0;
        }
        if (parsed.printDefault) {
            std::fputs(DefaultScenarioText(), out);
            return 0;
        }
        return run(parsed, out, err);
    } catch (const UsageError& error) {
        std::fprintf(err, "talvex-sim: %s\nTry 'talvex-sim --help'.\n", error.what());
        return 2;
    } catch (const InputError& error) {
        std::fprintf(err, "talvex-sim: %s\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(err, "talvex-sim: %s\n", error.what());
        return 1;
    }
}

}  // namespace TalvexSim
