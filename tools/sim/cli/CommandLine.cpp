#include "tools/sim/cli/CommandLine.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "harness/LogSink.h"
#include "tools/sim/base/Arguments.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/input/DefaultScenario.h"
#include "tools/sim/input/ReplayLog.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/output/Progress.h"
#include "tools/sim/output/ReportText.h"
#include "tools/sim/output/SummaryText.h"
#include "tools/sim/run/Compare.h"
#include "tools/sim/run/SessionRun.h"
#include "tools/sim/sweep/SweepCommand.h"
#include "tools/sim/sweep/Workers.h"

namespace TalvexSim {
namespace {

constexpr const char kUsage[] =
    "Usage: talvex-sim [OPTIONS] [SCENARIO.json]\n"
    "       talvex-sim sweep [SCENARIO.json] --vary CATEGORY,KEY=V1|V2|...[;...]\n"
    "                  [--vary ...] [--policy P] [--jobs N] [--objective EXPR]\n"
    "                  [--timeout S] [--plan FILE] [--out DIR] [--no-progress]\n"
    "       talvex-sim merge SWEEP_DIR... [--out DIR]\n"
    "\n"
    "Runs a game session through both halves of Talvex on virtual time and writes\n"
    "timeline.csv, trace.json, chart.svg, library.log, report.json and report.md to\n"
    "the output folder. Without SCENARIO.json the embedded default scenario runs.\n"
    "\n"
    "Options:\n"
    "  --policy P           who keeps the frame rate: talvex (default), talvex+deadline\n"
    "                       (its pacing to deadlines), talvex+deadline-vsync (to\n"
    "                       deadlines on the display's refreshes), swap-interval\n"
    "                       (whole refresh periods, as Android's frame pacing\n"
    "                       library paces),\n"
    "                       governor (the device's thermal governor alone, the\n"
    "                       game at its cap),\n"
    "                       fixed:N (the pacing object held at N with the\n"
    "                       scenario's pacing, no FPS manager) or\n"
    "                       none (no library and no governor)\n"
    "  --compare [P,...]    run the same scenario under several policies (default\n"
    "                       talvex,swap-interval,governor,none) into <out>/compare/:\n"
    "                       compare.md, compare.csv, compare.svg,\n"
    "                       display-intervals.svg and a folder per policy\n"
    "  --replay FILE.csv    feed a recorded tick log to an FpsManager in open loop;\n"
    "                       the scenario gives the PID and the settings\n"
    "  --out DIR            output folder (default: out/<scenario name>, or\n"
    "                       out/<log name> for a replay)\n"
    "  --seed N             replace the scenario's seed\n"
    "  --set C,K,V          one more setting record, applied after the scenario's\n"
    "                       configuration (repeatable); the run then also writes\n"
    "                       config.json, the online configuration it ran with\n"
    "  --trace-frames MODE  per-frame pacing events in trace.json: 'changes' (default;\n"
    "                       the frames around each change of the pacing target),\n"
    "                       'all' or 'none'\n"
    "  --node-dir DIR       keep the simulated kernel nodes in DIR (default: a\n"
    "                       temporary folder, removed afterwards)\n"
    "  --no-progress        no progress bar on a terminal\n"
    "  --print-default      print the embedded default scenario and exit\n"
    "  -h, --help           this text\n"
    "\n"
    "\n"
    "sweep runs the scenario once per combination of the --vary values (settings joined\n"
    "by ';' in one --vary take their values in step, lists of one length), each with the\n"
    "scenario's settings and then its own records, in --jobs worker processes (default:\n"
    "one per core), each stopped after --timeout seconds. Into <out>/sweep/ (out/<scenario>\n"
    "by default) it writes sweep.csv, sweep.md, pareto.svg, the runs' folders, and\n"
    "recommended.json, the online configuration of the best run under the objective:\n"
    "  max|min METRIC [subject to A OP B [and A OP B ...]]   OP: <= >= < >\n"
    "with the report's metrics (report.json's keys) and numbers; default:\n"
    "  'max display_fps subject to time_above_upper_bound_s <= 0'.\n"
    "--plan FILE writes one shell command per run instead of running them (for GNU\n"
    "parallel or a batch scheduler); merge then reads their folders back into the same\n"
    "outputs.\n"
    "\n"
    "Exit status: 0 done, 1 the outputs could not be written (or a sweep's run failed),\n"
    "2 bad arguments or input.\n";

struct Arguments {
    std::string scenarioPath;
    std::string replayPath;
    std::string outputDirectory;
    std::optional<std::uint64_t> seed;
    std::vector<std::string> settings;  // --set
    FrameDetail frameDetail = FrameDetail::AroundChanges;
    std::string nodeDirectory;
    Policy policy = ParsePolicy("talvex");
    std::optional<std::vector<Policy>> compare;
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

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

Policy policyOf(const std::string& text) {
    try {
        return ParsePolicy(text);
    } catch (const std::invalid_argument& error) {
        throw UsageError(std::string("--policy: ") + error.what());
    }
}

FrameDetail frameDetailOf(ArgumentReader<UsageError>& words) {
    const std::string& mode = words.Value();
    if (mode == "changes") return FrameDetail::AroundChanges;
    if (mode == "all") return FrameDetail::All;
    if (mode == "none") return FrameDetail::None;
    words.Fail("--trace-frames takes changes, all or none, not '" + mode + "'");
}

// The list is optional: the next word is one only if it cannot be a scenario.
std::vector<Policy> compareListOf(ArgumentReader<UsageError>& words) {
    std::string list;
    if (words.Word() != "--compare") {
        list = words.Word().substr(10);
        if (list.empty()) words.Fail("--compare= needs a list of policies");
    } else if (const std::string* next = words.Peek(); next != nullptr && !next->empty() &&
                                                       (*next)[0] != '-' &&
                                                       !endsWith(*next, ".json")) {
        list = words.Value();
    }
    try {
        return ParsePolicyList(list);
    } catch (const std::invalid_argument& error) {
        words.Fail(std::string("--compare: ") + error.what());
    }
}

Arguments parseArguments(const std::vector<std::string>& arguments) {
    Arguments parsed;
    ArgumentReader<UsageError> words(arguments, "");
    while (words.Next()) {
        const std::string& word = words.Word();
        if (word == "-h" || word == "--help") {
            parsed.help = true;
        } else if (word == "--replay") {
            parsed.replayPath = words.Value();
        } else if (word == "--out") {
            parsed.outputDirectory = words.Value();
        } else if (word == "--seed") {
            parsed.seed = parseSeed(words.Value());
        } else if (word == "--set") {
            parsed.settings.push_back(words.Value());
        } else if (word == "--trace-frames") {
            parsed.frameDetail = frameDetailOf(words);
        } else if (word == "--policy") {
            parsed.policy = policyOf(words.Value());
        } else if (word == "--compare" || word.rfind("--compare=", 0) == 0) {
            parsed.compare = compareListOf(words);
        } else if (word == "--node-dir") {
            parsed.nodeDirectory = words.Value();
        } else if (word == "--no-progress") {
            parsed.progress = false;
        } else if (word == "--print-default") {
            parsed.printDefault = true;
        } else if (words.IsOption()) {
            words.Fail("unknown option " + word);
        } else if (parsed.scenarioPath.empty()) {
            parsed.scenarioPath = word;
        } else {
            words.Fail("one scenario at a time ('" + parsed.scenarioPath + "' and '" + word + "')");
        }
    }
    if (parsed.compare && !parsed.replayPath.empty()) {
        throw UsageError("--compare runs the closed loop; a replay has one policy only");
    }
    if (parsed.policy.kind != PolicyKind::Library && !parsed.replayPath.empty()) {
        throw UsageError("--policy applies to the closed loop; a replay always runs the library");
    }
    return parsed;
}

std::string defaultOutputDirectory(const Arguments& arguments, const Scenario& scenario) {
    if (!arguments.outputDirectory.empty()) return arguments.outputDirectory;
    if (!arguments.replayPath.empty()) {
        return "out/" + std::filesystem::path(arguments.replayPath).stem().string();
    }
    return "out/" + scenario.name;
}

SummaryContext contextOf(const SessionRecord& record, const std::string& replayPath,
                         const std::string& folder, double wall_s) {
    SummaryContext context;
    context.replayFile = replayPath;
    context.wall_s = wall_s;
    context.efpsMaxWrites = record.result.efpsMaxWrites;
    context.eglBufWrites = record.result.eglBufWrites;
    context.libraryErrors = record.result.libraryErrors;
    context.libraryWarnings = record.result.libraryWarnings;
    context.outputDirectory = folder;
    context.outputFiles = record.files;
    return context;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void warnOfRefusals(const SessionRecord& record, std::FILE* err) {
    for (const std::string& refusal : record.result.refusedEvents) {
        std::fprintf(err, "talvex-sim: warning: %s\n", refusal.c_str());
    }
}

// What one invocation runs, loaded before anything is written.
struct Invocation {
    const Arguments& arguments;
    Scenario scenario;
    std::vector<ReplayTick> ticks;
    std::string outputDirectory;
    SessionRequest request;
    bool terminal = false;
    std::chrono::steady_clock::time_point wallStart;
};

int runOne(Invocation& run, std::FILE* out, std::FILE* err) {
    const Arguments& arguments = run.arguments;
    const double total_s = run.ticks.empty() ? run.scenario.duration_s : run.ticks.back().time_s;
    ProgressBar progress(err, run.terminal, total_s);
    run.request.progress = [&progress](double done_s) { progress.Update(done_s); };
    OutputSet outputs(run.outputDirectory);
    const SessionRecord record = RunSession(outputs, run.request);
    progress.Finish();
    if (!arguments.settings.empty()) outputs.Put("config.json", OnlineConfigJson(run.scenario));
    outputs.Commit();
    warnOfRefusals(record, err);
    SummaryContext context =
        contextOf(record, arguments.replayPath, run.outputDirectory, secondsSince(run.wallStart));
    if (!arguments.settings.empty()) context.outputFiles.push_back("config.json");
    std::fputs(FormatSummary(record.report, context).c_str(), out);
    std::fputs(ReportSummaryLines(record.report).c_str(), out);
    std::fputs(SessionSummaryLines(record).c_str(), out);
    return 0;
}

int runComparison(Invocation& run, std::FILE* out, std::FILE* err) {
    const std::vector<Policy>& policies = *run.arguments.compare;
    const double duration_s = run.scenario.duration_s;
    const std::string compareDirectory = run.outputDirectory + "/compare";
    OutputSet outputs(compareDirectory);
    ProgressBar progress(err, run.terminal, duration_s * static_cast<double>(policies.size()));
    std::vector<SessionRecord> records;
    for (const Policy& policy : policies) {
        run.request.policy = policy;
        run.request.folder = PolicyFolder(policy);
        const double before_s = duration_s * static_cast<double>(records.size());
        run.request.progress = [&progress, before_s](double done_s) {
            progress.Update(before_s + done_s);
        };
        records.push_back(RunSession(outputs, run.request));
    }
    progress.Finish();
    WriteComparison(outputs, run.scenario, records);
    if (!run.arguments.settings.empty()) {
        outputs.Put("config.json", OnlineConfigJson(run.scenario));
    }
    outputs.Commit();
    for (const SessionRecord& record : records) warnOfRefusals(record, err);
    std::fputs(
        FormatComparison(run.scenario, records, compareDirectory, secondsSince(run.wallStart))
            .c_str(),
        out);
    return 0;
}

int run(const Arguments& arguments, std::FILE* out, std::FILE* err) {
    Invocation run{arguments, {}, {}, {}, {}, false, std::chrono::steady_clock::now()};
    run.scenario = arguments.scenarioPath.empty()
                       ? LoadDefaultScenario(arguments.settings)
                       : LoadScenarioFile(arguments.scenarioPath, arguments.settings);
    if (arguments.seed) run.scenario.seed = *arguments.seed;
    if (!arguments.replayPath.empty()) run.ticks = LoadReplayFile(arguments.replayPath);
    run.outputDirectory = defaultOutputDirectory(arguments, run.scenario);
    run.request.scenario = &run.scenario;
    run.request.policy = arguments.policy;
    run.request.replay = run.ticks.empty() ? nullptr : &run.ticks;
    run.request.replayPath = arguments.replayPath;
    run.request.frameDetail = arguments.frameDetail;
    run.request.nodeDirectory = arguments.nodeDirectory;
    run.terminal = arguments.progress && isatty(fileno(err)) == 1;
    return arguments.compare ? runComparison(run, out, err) : runOne(run, out, err);
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err) {
    // The library logs while the scenario is loaded too; keep that off the terminal.
    TalvexHarness::LogSink quiet{TalvexHarness::LogSink::Mode::Discard};
    try {
        if (!arguments.empty() &&
            (arguments[0] == "sweep" || arguments[0] == "merge" || arguments[0] == "sweep-run")) {
            const std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
            if (arguments[0] == "sweep")
                return RunSweepCommand(rest, out, err, CurrentExecutable());
            if (arguments[0] == "merge") return RunMergeCommand(rest, out);
            return RunSweepWorker(rest, err, RunCommandLine);
        }
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
