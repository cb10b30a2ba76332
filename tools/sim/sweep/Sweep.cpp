#include "tools/sim/sweep/Sweep.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "tools/sim/cli/CommandLine.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/output/OutputFiles.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/input/StrictJson.h"

extern char** environ;

namespace TalvexSim {
namespace {

// A child's stderr beyond this is dropped: the message is for a person, and a run that loops
// printing must not grow the worker.
constexpr size_t kMessageLimit = size_t{64} * 1024;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    size_t start = 0;
    for (size_t at = text.find(separator); at != std::string::npos;
         at = text.find(separator, start)) {
        pieces.push_back(text.substr(start, at - start));
        start = at + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

std::string jsonText(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    writer["emitUTF8"] = true;
    return Json::writeString(writer, value) + "\n";
}

std::string trimmed(std::string text) {
    const std::string prefix = "talvex-sim: ";
    if (text.rfind(prefix, 0) == 0) text.erase(0, prefix.size());
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

// The child's stderr until it closes, or until the deadline; false when the deadline came first.
bool readUntil(int fd, std::chrono::steady_clock::time_point deadline, std::string& text) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd entry{fd, POLLIN, 0};
        const int ready =
            poll(&entry, 1, static_cast<int>(std::min<long long>(left.count(), 1000)));
        if (ready < 0 && errno != EINTR) return true;
        if (ready <= 0) continue;
        char buffer[4096];
        const ssize_t read = ::read(fd, buffer, sizeof buffer);
        if (read < 0 && errno == EINTR) continue;
        if (read <= 0) return true;
        if (text.size() < kMessageLimit) text.append(buffer, static_cast<size_t>(read));
    }
}

struct WorkerArguments {
    size_t run = 0;
    std::string scenarioPath;
    std::string policy = "talvex";
    std::vector<std::string> settings;
    double timeout_s = 0.0;
    std::string out;
};

WorkerArguments parseWorker(const std::vector<std::string>& arguments) {
    WorkerArguments parsed;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&]() -> const std::string& {
            if (i + 1 >= arguments.size())
                throw InputError("sweep-run: " + argument + " needs a value");
            return arguments[++i];
        };
        auto number = [&](double min) {
            const std::string& text = value();
            char* end = nullptr;
            const double read = std::strtod(text.c_str(), &end);
            if (text.empty() || *end != '\0' || !(read >= min)) {
                throw InputError("sweep-run: " + argument + " takes a number, not '" + text + "'");
            }
            return read;
        };
        if (argument == "--run") {
            parsed.run = static_cast<size_t>(number(1.0));
        } else if (argument == "--policy") {
            parsed.policy = value();
        } else if (argument == "--set") {
            parsed.settings.push_back(value());
        } else if (argument == "--timeout") {
            parsed.timeout_s = number(0.001);
        } else if (argument == "--out") {
            parsed.out = value();
        } else if (!argument.empty() && argument[0] == '-') {
            throw InputError("sweep-run: unknown option " + argument);
        } else {
            parsed.scenarioPath = argument;
        }
    }
    if (parsed.run == 0 || parsed.out.empty() || parsed.timeout_s <= 0.0) {
        throw InputError("sweep-run needs --run N, --timeout S and --out DIR");
    }
    return parsed;
}

struct Outcome {
    std::string status;
    std::string message;
};

// The run itself, in a child so that a crash or a hang stays there.
Outcome runChild(const WorkerArguments& worker) {
    std::vector<std::string> arguments;
    if (!worker.scenarioPath.empty()) arguments.push_back(worker.scenarioPath);
    arguments.insert(arguments.end(), {"--policy", worker.policy});
    for (const std::string& setting : worker.settings)
        arguments.insert(arguments.end(), {"--set", setting});
    arguments.insert(arguments.end(),
                     {"--out", worker.out, "--no-progress", "--trace-frames", "none"});

    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0)
        return {"failed", std::string("pipe: ") + std::strerror(errno)};
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        close(channel[0]);
        close(channel[1]);
        return {"failed", std::string("fork: ") + std::strerror(errno)};
    }
    if (child == 0) {
        const int quiet = open("/dev/null", O_WRONLY);
        dup2(quiet, STDOUT_FILENO);
        dup2(channel[1], STDERR_FILENO);
        const int status = RunCommandLine(arguments, stdout, stderr);
        std::fflush(nullptr);
        _exit(status);
    }
    close(channel[1]);
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(worker.timeout_s));
    std::string err;
    const bool ended = readUntil(channel[0], deadline, err);
    close(channel[0]);
    if (!ended) kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    err = trimmed(err);
    if (!ended) {
        return {"failed", "no result within the limit of " + FormatNumber(worker.timeout_s) +
                              " s; stopped" + (err.empty() ? "" : ": " + err)};
    }
    if (WIFSIGNALED(status)) {
        return {"failed", "killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
                              strsignal(WTERMSIG(status)) + ")" + (err.empty() ? "" : ": " + err)};
    }
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (code == 0) return {"ok", ""};
    // The scenario and the records loaded before the child started, so the only input left
    // to refuse is a record the library would not take.
    if (code == 2) return {"refused", err};
    return {"failed", "exit status " + std::to_string(code) + (err.empty() ? "" : ": " + err)};
}

}  // namespace

std::string SweepAxis::Text() const {
    std::string text = category + "," + key + "=";
    for (size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : "|") + values[i];
    return text;
}

SweepAxis ParseAxis(const std::string& text) {
    const size_t equals = text.find('=');
    const std::vector<std::string> names = split(text.substr(0, equals), ',');
    if (equals == std::string::npos || names.size() != 2 || names[0].empty() || names[1].empty()) {
        throw std::invalid_argument("'" + text + "' is not CATEGORY,KEY=VALUE|VALUE|...");
    }
    SweepAxis axis{names[0], names[1], {}};
    const std::string values = text.substr(equals + 1);
    if (values.empty()) throw std::invalid_argument("'" + text + "' lists no values");
    for (const std::string& value : split(values, '|')) {
        if (value.empty() || value.find(',') != std::string::npos) {
            throw std::invalid_argument("'" + text + "': '" + value +
                                        "' is not a value (empty, or holding a comma)");
        }
        if (std::find(axis.values.begin(), axis.values.end(), value) != axis.values.end()) {
            throw std::invalid_argument("'" + text + "' lists '" + value + "' twice");
        }
        axis.values.push_back(value);
    }
    return axis;
}

std::vector<std::vector<std::string>> ExpandGrid(const std::vector<SweepAxis>& axes) {
    std::vector<std::vector<std::string>> grid;
    if (axes.empty()) return grid;
    grid.emplace_back();
    for (const SweepAxis& axis : axes) {
        std::vector<std::vector<std::string>> wider;
        for (const auto& combination : grid) {
            for (const std::string& value : axis.values) {
                wider.push_back(combination);
                wider.back().push_back(axis.category + "," + axis.key + "," + value);
            }
        }
        grid = std::move(wider);
    }
    return grid;
}

size_t SweepDefinition::Runs() const {
    if (axes.empty()) return 0;
    size_t runs = 1;
    for (const SweepAxis& axis : axes) runs *= axis.values.size();
    return runs;
}

std::string SweepJson(const SweepDefinition& definition) {
    Json::Value root(Json::objectValue);
    root["scenario"] = definition.scenario;
    root["policy"] = definition.policy;
    root["vary"] = Json::Value(Json::arrayValue);
    for (const SweepAxis& axis : definition.axes) root["vary"].append(axis.Text());
    root["objective"] = definition.objective;
    root["runs"] = Json::UInt64(definition.Runs());
    return jsonText(root);
}

SweepDefinition ReadSweepJson(const std::string& path) {
    const JsonDocument document(ReadTextFile(path), path);
    ObjectReader top(document, document.Root(), "",
                     {"scenario", "policy", "vary", "objective", "runs"});
    SweepDefinition definition;
    definition.scenario = top.String("scenario");
    definition.policy = top.String("policy");
    definition.objective = top.String("objective");
    const Json::Value& vary = ExpectArray(document, top.Member("vary"), "vary");
    for (Json::ArrayIndex i = 0; i < vary.size(); ++i) {
        const std::string where = "vary[" + std::to_string(i) + "]";
        try {
            definition.axes.push_back(ParseAxis(ExpectString(document, vary[i], where)));
        } catch (const std::invalid_argument& error) {
            document.Fail(vary[i], where, error.what());
        }
    }
    if (static_cast<double>(definition.Runs()) != top.Number("runs", 1, 1e9)) {
        document.Fail(top.Member("runs"), "runs", "does not match the values listed under vary");
    }
    return definition;
}

std::string RunFolder(const std::string& sweepDirectory, size_t run, size_t runs) {
    const size_t width = std::max<size_t>(3, std::to_string(runs).size());
    std::string name = std::to_string(run);
    name.insert(0, width - std::min(width, name.size()), '0');
    return sweepDirectory + "/runs/" + name;
}

std::vector<std::vector<std::string>> PlanCommands(const SweepPlan& plan) {
    const auto grid = ExpandGrid(plan.definition.axes);
    std::vector<std::vector<std::string>> commands;
    for (size_t i = 0; i < grid.size(); ++i) {
        std::vector<std::string> command{plan.executable, "sweep-run", "--run",
                                         std::to_string(i + 1)};
        if (!plan.scenarioPath.empty()) command.push_back(plan.scenarioPath);
        command.insert(command.end(), {"--policy", plan.definition.policy});
        for (const std::string& setting : grid[i])
            command.insert(command.end(), {"--set", setting});
        command.insert(command.end(), {"--timeout", FormatNumber(plan.timeout_s), "--out",
                                       RunFolder(plan.directory, i + 1, grid.size())});
        commands.push_back(std::move(command));
    }
    return commands;
}

std::string ShellLine(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command) {
        const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) ||
                   std::strchr("_-./:,=+@%", c) != nullptr;
        });
        std::string quoted = "'";
        for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += (line.empty() ? "" : " ") + (plain ? word : quoted + "'");
    }
    return line;
}

void RemoveEarlierRuns(const std::string& sweepDirectory) {
    const std::filesystem::path runs = std::filesystem::path(sweepDirectory) / "runs";
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(runs, error)) {
        if (std::filesystem::exists(entry.path() / "run.json")) {
            std::filesystem::remove_all(entry.path(), error);
        }
    }
}

void RunCommands(const std::vector<std::vector<std::string>>& commands, unsigned jobs,
                 const std::function<void(size_t finished)>& done) {
    std::map<pid_t, size_t> running;
    size_t next = 0;
    size_t finished = 0;
    while (finished < commands.size()) {
        while (next < commands.size() && running.size() < std::max(1u, jobs)) {
            std::vector<char*> argv;
            for (const std::string& word : commands[next])
                argv.push_back(const_cast<char*>(word.c_str()));
            argv.push_back(nullptr);
            pid_t pid = 0;
            const int error = posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
            if (error != 0) {
                for (const auto& [other, index] : running) kill(other, SIGKILL);
                throw std::runtime_error("cannot start " + commands[next][0] + ": " +
                                         std::strerror(error));
            }
            running[pid] = next++;
        }
        int status = 0;
        const pid_t pid = waitpid(-1, &status, 0);
        if (pid < 0) {
            if (errno == EINTR) continue;
            throw std::runtime_error(std::string("waiting for a run: ") + std::strerror(errno));
        }
        if (running.erase(pid) == 0) continue;  // not one of ours
        done(++finished);
    }
}

int RunSweepWorker(const std::vector<std::string>& arguments, std::FILE* err) {
    const WorkerArguments worker = parseWorker(arguments);
    std::error_code ignored;
    std::filesystem::remove(std::filesystem::path(worker.out) / "run.json", ignored);
    Outcome outcome;
    try {
        if (worker.scenarioPath.empty()) {
            LoadDefaultScenario(worker.settings);
        } else {
            LoadScenarioFile(worker.scenarioPath, worker.settings);
        }
        outcome = runChild(worker);
    } catch (const InputError& error) {
        outcome = {"failed", error.what()};
    }
    Json::Value run(Json::objectValue);
    run["run"] = Json::UInt64(worker.run);
    run["policy"] = worker.policy;
    run["settings"] = Json::Value(Json::arrayValue);
    for (const std::string& setting : worker.settings) run["settings"].append(setting);
    run["status"] = outcome.status;
    run["message"] = outcome.message;
    WriteOutputFiles(worker.out, {{"run.json", jsonText(run)}});
    if (outcome.status == "failed") {
        std::fprintf(err, "talvex-sim: run %zu failed: %s\n", worker.run, outcome.message.c_str());
        return 1;
    }
    return 0;
}

}  // namespace TalvexSim
