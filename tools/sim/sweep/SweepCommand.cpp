#include "tools/sim/sweep/SweepCommand.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "tools/sim/base/Arguments.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/base/Text.h"
#include "tools/sim/input/Policy.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/input/StrictJson.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/output/Progress.h"
#include "tools/sim/report/Metrics.h"
#include "tools/sim/sweep/Merge.h"
#include "tools/sim/sweep/Plan.h"
#include "tools/sim/sweep/Workers.h"

namespace TalvexSim {
namespace {

constexpr const char* kDefaultObjective =
    "max display_fps subject to time_above_upper_bound_s <= 0";
// More runs than this is a typo in a --vary more often than a plan.
constexpr size_t kMostRuns = 10000;
// The limit of a run unless given: a minute, plus far more than the simulator needs for the
// scenario on a loaded machine (it does about 2,000 simulated seconds per wall second).
constexpr double kLimitBase_s = 60.0;
constexpr double kLimitPerSimulated_s = 1.0 / 20.0;

struct SweepArguments {
    std::string scenarioPath;
    std::vector<SweepAxis> axes;
    std::string policy = "talvex";
    unsigned jobs = 0;
    std::string objective = kDefaultObjective;
    double timeout_s = 0.0;
    std::string planPath;
    std::string outputDirectory;
    bool progress = true;
};

void addAxis(ArgumentReader<InputError>& words, std::vector<SweepAxis>& axes) {
    try {
        axes.push_back(ParseAxis(words.Value()));
    } catch (const std::invalid_argument& error) {
        words.Fail(std::string("--vary ") + error.what());
    }
    try {
        RefuseRepeatedSettings(axes);
    } catch (const std::invalid_argument& error) {
        words.Fail(error.what());
    }
}

SweepArguments parseSweep(const std::vector<std::string>& arguments) {
    SweepArguments parsed;
    ArgumentReader<InputError> words(arguments, "sweep: ");
    while (words.Next()) {
        const std::string& word = words.Word();
        if (word == "--vary") {
            addAxis(words, parsed.axes);
        } else if (word == "--policy") {
            parsed.policy = words.Value();
        } else if (word == "--jobs") {
            const double jobs = words.Number(0.0, false, "a positive number");
            if (jobs != static_cast<unsigned>(jobs)) {
                words.Fail("--jobs takes a whole number, not '" + words.Word() + "'");
            }
            parsed.jobs = static_cast<unsigned>(jobs);
        } else if (word == "--objective") {
            parsed.objective = words.Value();
        } else if (word == "--timeout") {
            parsed.timeout_s = words.Number(0.0, false, "a positive number");
        } else if (word == "--plan") {
            parsed.planPath = words.Value();
        } else if (word == "--out") {
            parsed.outputDirectory = words.Value();
        } else if (word == "--no-progress") {
            parsed.progress = false;
        } else if (words.IsOption()) {
            words.Fail("unknown option " + word + " (see talvex-sim --help)");
        } else if (parsed.scenarioPath.empty()) {
            parsed.scenarioPath = word;
        } else {
            words.Fail("one scenario at a time ('" + parsed.scenarioPath + "' and '" + word + "')");
        }
    }
    return parsed;
}

SweepDefinition defineSweep(const SweepArguments& arguments, const Scenario& scenario) {
    SweepDefinition definition;
    definition.scenario = scenario.name;
    try {
        definition.policy = ParsePolicy(arguments.policy).name;
    } catch (const std::invalid_argument& error) {
        throw InputError(std::string("sweep: --policy: ") + error.what());
    }
    definition.axes = arguments.axes;
    if (definition.Runs() == 0) {
        throw InputError(
            "sweep: the grid is empty; give at least one --vary CATEGORY,KEY=V1|V2|...");
    }
    if (definition.Runs() > kMostRuns) {
        throw InputError("sweep: the grid has " + std::to_string(definition.Runs()) +
                         " runs; at most " + std::to_string(kMostRuns));
    }
    try {
        definition.objective = ParseObjective(arguments.objective, ReportMetricNames()).Text();
    } catch (const std::invalid_argument& error) {
        throw InputError(std::string("sweep: --objective: ") + error.what());
    }
    return definition;
}

std::string absolute(const std::string& path) {
    return path.empty() ? path : std::filesystem::absolute(path).lexically_normal().string();
}

std::string elapsed(std::chrono::steady_clock::time_point start) {
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return Fixed(seconds, seconds < 10.0 ? 2 : 1);
}

}  // namespace

std::string CurrentExecutable() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) throw std::runtime_error("cannot find the program's own file: " + error.message());
    return self.string();
}

int RunSweepCommand(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err,
                    const std::string& executable) {
    const auto start = std::chrono::steady_clock::now();
    const SweepArguments parsed = parseSweep(arguments);
    const Scenario scenario =
        parsed.scenarioPath.empty() ? LoadDefaultScenario() : LoadScenarioFile(parsed.scenarioPath);
    SweepPlan plan;
    plan.definition = defineSweep(parsed, scenario);
    plan.executable = executable;
    plan.scenarioPath = absolute(parsed.scenarioPath);
    const std::string directory =
        (parsed.outputDirectory.empty() ? "out/" + scenario.name : parsed.outputDirectory) +
        "/sweep";
    plan.directory = absolute(directory);
    plan.timeout_s = parsed.timeout_s > 0.0
                         ? parsed.timeout_s
                         : kLimitBase_s + scenario.duration_s * kLimitPerSimulated_s;
    const auto commands = PlanCommands(plan);

    RemoveEarlierRuns(plan.directory);
    WriteOutputFiles(plan.directory, {{"sweep.json", SweepJson(plan.definition)}});
    if (!parsed.planPath.empty()) {
        std::string lines;
        for (const auto& command : commands) lines += ShellLine(command) + "\n";
        const std::filesystem::path planPath(parsed.planPath);
        WriteOutputFiles(planPath.has_parent_path() ? planPath.parent_path().string() : ".",
                         {{planPath.filename().string(), lines}});
        std::fprintf(out,
                     "talvex-sim sweep: %s, %zu runs planned in %s, one command a line.\n"
                     "Run them (for example: parallel < %s), then: talvex-sim merge %s\n",
                     scenario.name.c_str(), commands.size(), parsed.planPath.c_str(),
                     parsed.planPath.c_str(), directory.c_str());
        return 0;
    }

    const unsigned jobs = parsed.jobs > 0
                              ? parsed.jobs
                              : static_cast<unsigned>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    ProgressBar progress(err, parsed.progress && isatty(fileno(err)) == 1,
                         scenario.duration_s * static_cast<double>(commands.size()));
    RunCommands(commands, jobs, [&](size_t finished) {
        progress.Update(scenario.duration_s * static_cast<double>(finished));
    });
    progress.Finish();
    const SweepResult result = MergeSweep({plan.directory}, plan.directory);
    std::fprintf(out, "talvex-sim sweep: %s (seed %llu), %zu runs with %u jobs in %s s\n",
                 scenario.name.c_str(), static_cast<unsigned long long>(scenario.seed),
                 commands.size(), jobs, elapsed(start).c_str());
    std::fputs(FormatSweepResult(result, directory).c_str(), out);
    return result.Count("failed") + result.Count("missing") > 0 ? 1 : 0;
}

int RunMergeCommand(const std::vector<std::string>& arguments, std::FILE* out) {
    std::vector<std::string> directories;
    std::string outputDirectory;
    ArgumentReader<InputError> words(arguments, "merge: ");
    while (words.Next()) {
        if (words.Word() == "--out") {
            outputDirectory = words.Value();
        } else if (words.IsOption()) {
            words.Fail("unknown option " + words.Word() + " (see talvex-sim --help)");
        } else {
            directories.push_back(words.Word());
        }
    }
    if (directories.empty()) throw InputError("merge: name the sweep folder(s) to merge");
    if (outputDirectory.empty()) outputDirectory = directories.front();
    const SweepResult result = MergeSweep(directories, outputDirectory);
    std::fprintf(out, "talvex-sim merge: %s, %zu runs from %zu folder(s)\n",
                 result.definition.scenario.c_str(), result.rows.size(), directories.size());
    std::fputs(FormatSweepResult(result, outputDirectory).c_str(), out);
    return result.Count("failed") + result.Count("missing") > 0 ? 1 : 0;
}

}  // namespace TalvexSim
