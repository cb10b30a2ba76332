#include "tools/sim/sweep/Workers.h"

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

#include "tools/sim/base/Arguments.h"
#include "tools/sim/base/InputError.h"
#include "tools/sim/base/Text.h"
#include "tools/sim/input/Scenario.h"
#include "tools/sim/input/StrictJson.h"
#include "tools/sim/output/OutputFiles.h"

extern char** environ;

namespace TalvexSim {
namespace {

// A child's stderr beyond this is dropped: the message is for a person, and a run that loops
// printing must not grow the worker.
constexpr size_t kMessageLimit = size_t{64} * 1024;
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
    ArgumentReader<InputError> words(arguments, "sweep-run: ");
    while (words.Next()) {
        const std::string& word = words.Word();
        if (word == "--run") {
            parsed.run = static_cast<size_t>(words.Number(1.0, true, "a number"));
        } else if (word == "--policy") {
            parsed.policy = words.Value();
        } else if (word == "--set") {
            parsed.settings.push_back(words.Value());
        } else if (word == "--timeout") {
            parsed.timeout_s = words.Number(0.001, true, "a number");
        } else if (word == "--out") {
            parsed.out = words.Value();
        } else if (words.IsOption()) {
            words.Fail("unknown option " + word);
        } else {
            parsed.scenarioPath = word;
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
Outcome runChild(const WorkerArguments& worker, const CommandLineRunner& runOne) {
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
        const int status = runOne(arguments, stdout, stderr);
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
        return {"failed", "no result within the limit of " + ShortNumber(worker.timeout_s) +
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

int RunSweepWorker(const std::vector<std::string>& arguments, std::FILE* err,
                   const CommandLineRunner& runOne) {
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
        outcome = runChild(worker, runOne);
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
    WriteOutputFiles(worker.out, {{"run.json", PrettyJson(run)}});
    if (outcome.status == "failed") {
        std::fprintf(err, "talvex-sim: run %zu failed: %s\n", worker.run, outcome.message.c_str());
        return 1;
    }
    return 0;
}

}  // namespace TalvexSim
