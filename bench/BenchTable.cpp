// Turns the JSON written by the benchmark programs into the results table of docs/benchmarks.md
// (Markdown on standard output). Every ratio is computed from figures of the same file, that is of
// one run.
#include <json/json.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Measure {
    double time_ns = NAN;
    std::map<std::string, double> counters;
    double Counter(const std::string& name) const {
        const auto found = counters.find(name);
        return found == counters.end() ? NAN : found->second;
    }
};

// Google Benchmark output: the median of the repetitions when there are several, else the run.
struct BenchmarkFile {
    std::string path;
    std::string machine;
    std::string date;
    std::string command;
    std::map<std::string, Measure> runs;
    bool Has(const std::string& name) const { return runs.count(name) != 0; }
    const Measure& Get(const std::string& name) const { return runs.at(name); }
};

struct Goal {
    std::string text;
    bool met;
    std::string figure;
};

double toNanoseconds(double value, const std::string& unit) {
    if (unit == "us") return value * 1e3;
    if (unit == "ms") return value * 1e6;
    if (unit == "s") return value * 1e9;
    return value;
}

bool readJson(const std::string& path, Json::Value& root) {
    std::ifstream file(path);
    if (!file) {
        std::cerr << "cannot read " << path << "\n";
        return false;
    }
    Json::CharReaderBuilder builder;
    // Google Benchmark writes NaN for the variation of counters whose mean is 0.
    builder["allowSpecialFloats"] = true;
    std::string errors;
    if (!Json::parseFromStream(builder, file, &root, &errors)) {
        std::cerr << path << ": " << errors << "\n";
        return false;
    }
    return true;
}

BenchmarkFile readBenchmarks(const std::string& path, const Json::Value& root) {
    BenchmarkFile file;
    file.path = path;
    file.machine = root["context"]["machine"].asString();
    file.date = root["context"]["date"].asString();
    file.command = root["context"]["command"].asString();
    std::map<std::string, bool> fromMedian;
    for (const Json::Value& entry : root["benchmarks"]) {
        const std::string name = entry["run_name"].asString();
        const bool isMedian = entry["run_type"].asString() == "aggregate" &&
                              entry["aggregate_name"].asString() == "median";
        const bool isIteration = entry["run_type"].asString() == "iteration";
        if (!isMedian && !(isIteration && !fromMedian[name])) continue;
        if (isIteration && file.runs.count(name) != 0) continue;  // first repetition only
        Measure measure;
        measure.time_ns =
            toNanoseconds(entry["cpu_time"].asDouble(), entry["time_unit"].asString());
        // The user counters sit beside the standard fields.
        for (const std::string& member : entry.getMemberNames()) {
            if (entry[member].isNumeric()) measure.counters[member] = entry[member].asDouble();
        }
        file.runs[name] = measure;
        if (isMedian) fromMedian[name] = true;
    }
    return file;
}

std::string format(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof(text), pattern, value);
    return text;
}

std::string yesNo(bool met) { return met ? "met" : "**not met**"; }

std::string source(const std::string& command, const std::string& machine,
                   const std::string& date) {
    return "Command: `" + command + "` (" + machine + ", " + date + ").\n\n";
}

class Table {
  public:
    void Frame(const BenchmarkFile& file) {
        out << "### Per-frame cost (`Update` + `CalculateSleepDuration_ms` + `PostUpdate`)\n\n"
            << "Virtual time, node in tmpfs (`/dev/shm`), log level 2. Median CPU time (user and "
               "system) of the "
               "repetitions; every ratio within this one run.\n"
            << source(file.command, file.machine, file.date)
            << "| Case | ns per frame | Floor, ns | Ratio to floor | Allocations per frame |\n"
            << "|---|---:|---:|---:|---:|\n";
        // The Deadline frame against a floor that writes a line as long as its own.
        const char* const policies[][3] = {
            {"Frame", "BM_QuilletFrame", "BM_FrameFloor"},
            {"Deadline frame", "BM_DeadlineFrame", "BM_DeadlineFloor"}};
        for (const auto& [label, frameName, floorName] : policies) {
            for (const char* trace : {"0", "1"}) {
                const std::string frame = std::string(frameName) + "/trace:" + trace;
                const std::string floor = std::string(floorName) + "/trace:" + trace;
                if (!file.Has(frame) || !file.Has(floor)) continue;
                const Measure& f = file.Get(frame);
                const Measure& base = file.Get(floor);
                const double ratio = f.time_ns / base.time_ns;
                const double allocs = f.Counter("allocs_per_frame");
                const std::string name =
                    std::string(label) + ", trace tag " + (trace[0] == '1' ? "on" : "off");
                out << "| " << name << " | " << format("%.0f", f.time_ns) << " | "
                    << format("%.0f", base.time_ns) << " | " << format("%.2f", ratio) << " | "
                    << format("%.2f", allocs) << " |\n";
                goals.push_back({name + ": at most 1.15 times the floor", ratio <= 1.15,
                                 format("%.2f", ratio) + " times"});
                if (frameName == std::string("BM_DeadlineFrame")) {
                    goals.push_back({name + ": no allocation in the steady state", allocs == 0.0,
                                     format("%.2f", allocs) + " allocations per frame"});
                }
            }
        }
        frameWithoutTelemetry(file);
        if (file.Has("BM_FormatInfoLine")) {
            out << "| Of which: formatting the line (dump row and nine fields) | "
                << format("%.0f", file.Get("BM_FormatInfoLine").time_ns) << " | | | |\n";
        }
        if (file.Has("BM_FrameFloor/trace:0")) {
            out << "\nThe floor is three clock reads through `Basics::Now()` and one "
                   "open-truncate-write-close of a "
                << format("%.0f", file.Get("BM_FrameFloor/trace:0").Counter("line_bytes"))
                << "-byte line (the pacing object's own steady-state line) into the same "
                   "directory; with the trace tag on it also makes the three sections and seven "
                   "counter calls a frame must emit (the interposed trace entry points only "
                   "count). The Deadline frame's floor writes a line as long as that frame's own ("
                << format("%.0f", file.Has("BM_DeadlineFloor/trace:0")
                                      ? file.Get("BM_DeadlineFloor/trace:0").Counter("line_bytes")
                                      : NAN)
                << " bytes). Without telemetry the floor is the three clock reads and the failed "
                   "open of the missing node, which the frame still attempts.\n";
        }
        out << "\n";
    }

    // The row of a frame whose node is missing, against its own floor when that ran.
    void frameWithoutTelemetry(const BenchmarkFile& file) {
        if (file.Has("BM_QuilletFrameNoTelemetry")) {
            const Measure& f = file.Get("BM_QuilletFrameNoTelemetry");
            const double allocs = f.Counter("allocs_per_frame");
            out << "| Frame without telemetry (node missing, log level -1) | "
                << format("%.0f", f.time_ns) << " | ";
            if (file.Has("BM_NoTelemetryFloor")) {
                const double base = file.Get("BM_NoTelemetryFloor").time_ns;
                out << format("%.0f", base) << " | " << format("%.2f", f.time_ns / base);
            } else {
                out << " | ";
            }
            out << " | " << format("%.2f", allocs) << " |\n";
            goals.push_back({"Frame without telemetry: no allocation in the steady state",
                             allocs == 0.0, format("%.2f", allocs) + " allocations per frame"});
        }
    }

    void Tick(const BenchmarkFile& file) {
        out << "### Per-tick cost (`FpsManager::Update` + `PostUpdate`)\n\n"
            << "Virtual time (one tick per second), node in tmpfs and unchanged, debug off. "
               "Median CPU time (user and system) of the repetitions; every ratio within this one "
               "run.\n"
            << source(file.command, file.machine, file.date)
            << "| State | ns per tick, log level 2 | ns per tick, log level -1 | Ratio | "
               "Allocations per tick (level 2) |\n"
            << "|---|---:|---:|---:|---:|\n";
        const char* names[] = {"no lists set", "lists set, deciders idle"};
        for (int state = 0; state < 2; ++state) {
            const std::string prefix = "BM_FpsManagerTick/state:" + std::to_string(state);
            if (!file.Has(prefix + "/log:2") || !file.Has(prefix + "/log:-1")) continue;
            const Measure& at2 = file.Get(prefix + "/log:2");
            const Measure& silent = file.Get(prefix + "/log:-1");
            const double ratio = at2.time_ns / silent.time_ns;
            out << "| " << names[state] << " | " << format("%.0f", at2.time_ns) << " | "
                << format("%.0f", silent.time_ns) << " | " << format("%.3f", ratio) << " | "
                << format("%.2f", at2.Counter("allocs_per_tick")) << " |\n";
            goals.push_back(
                {std::string("Tick, ") + names[state] + ": log level 2 within 5% of level -1",
                 std::fabs(ratio - 1.0) <= 0.05, format("%.3f times", ratio)});
        }
        out << "\n";
    }

    void Instructions(const Json::Value& root) {
        const Json::Value& context = root["context"];
        out << "### Instructions per tick (callgrind)\n\n"
            << "Instructions executed by `Update` + `PostUpdate`, collected only around the "
               "measured ticks after the state was reached; debug off, node in tmpfs. The node's "
               "own reads and writes (`CharacterDevice` stream code, inclusive) are counted "
               "apart. Instruction counts repeat from run to run where times do not, so the two "
               "log levels are compared here too.\n"
            << source(context["command"].asString(), context["machine"].asString(),
                      context["date"].asString())
            << "| State | Ticks | SFPS changes per tick | Instructions per tick | Node I/O per "
               "tick | Per tick, node I/O aside | Same at log level -1 | Ratio level 2 / -1 |\n"
            << "|---|---:|---:|---:|---:|---:|---:|---:|\n";
        std::map<std::string, double> silentAside;
        for (const Json::Value& run : root["instructions"]) {
            if (run["log_level"].asInt() != -1) continue;
            silentAside[run["state"].asString()] =
                (run["instructions"].asDouble() - run["node_io_instructions"].asDouble()) /
                run["ticks"].asDouble();
        }
        for (const Json::Value& run : root["instructions"]) {
            if (run["log_level"].asInt() == -1) continue;
            const double ticks = run["ticks"].asDouble();
            const double total = run["instructions"].asDouble() / ticks;
            const double node = run["node_io_instructions"].asDouble() / ticks;
            const std::string state = run["state"].asString();
            out << "| " << state << " | " << run["ticks"].asInt() << " | "
                << format("%.2f", run["sfps_changes"].asDouble() / ticks) << " | "
                << format("%.0f", total) << " | " << format("%.0f", node) << " | "
                << format("%.0f", total - node) << " | ";
            if (silentAside.count(state) != 0) {
                out << format("%.0f", silentAside[state]) << " | "
                    << format("%.4f", (total - node) / silentAside[state]);
            } else {
                out << " | ";
            }
            out << " |\n";
            goals.push_back({"Tick, " + state + ": under 20,000 instructions, node write aside",
                             total - node < 20000.0, format("%.0f", total - node)});
        }
        out << "\n";
    }

    void Simulator(const Json::Value& root) {
        const Json::Value& context = root["context"];
        const Json::Value& run = root["simulator"];
        const double wall = run["wall_seconds"].asDouble();
        out << "### Simulator throughput\n\n"
            << "The default scenario of `talvex-sim` on virtual time, both halves of the library "
               "in the loop; median wall time of three runs of the whole process, output files "
               "included.\n"
            << source(context["command"].asString(), context["machine"].asString(),
                      context["date"].asString())
            << "| Scenario | Simulated time, s | Frames | Wall time, s | Simulated frames per "
               "wall second | Simulated seconds per wall second |\n"
            << "|---|---:|---:|---:|---:|---:|\n"
            << "| " << run["scenario"].asString() << " | "
            << format("%.0f", run["simulated_seconds"].asDouble()) << " | "
            << run["frames"].asUInt64() << " | " << format("%.2f", wall) << " | "
            << format("%.0f", run["frames"].asDouble() / wall) << " | "
            << format("%.0f", run["simulated_seconds"].asDouble() / wall) << " |\n\n";
    }

    void Pacing(const Json::Value& root) {
        const Json::Value& context = root["context"];
        out << "### Real-time pacing accuracy\n\n"
            << "Real render loop with real sleeps, busy-wait work of 15-55% of the period drawn "
               "from one seeded sequence, "
            << context["seconds"].asDouble() << " s per run after "
            << context["warmup_seconds"].asDouble() << " s of warm-up, scheduling policy "
            << context["scheduling"].asString()
            << "; the caller sleeps the returned milliseconds with `clock_nanosleep`, under "
               "each pacing policy, or to the returned wake-up time (`TIMER_ABSTIME`). Error: "
               "|frame interval - period|.\n"
            << source(context["command"].asString(), context["machine"].asString(),
                      context["date"].asString())
            << "| SFPS | Pacer | Frames | Mean rate | Rate error | Interval std. dev., ms | p99 "
               "error, ms | p99 error / floor's |\n"
            << "|---:|---|---:|---:|---:|---:|---:|---:|\n";
        std::map<int, double> floorP99;
        for (const Json::Value& run : root["runs"]) {
            if (run["pacer"].asString() == "floor") {
                floorP99[run["rate"].asInt()] = run["p99_abs_error_ms"].asDouble();
            }
        }
        for (const Json::Value& run : root["runs"]) {
            const int rate = run["rate"].asInt();
            const std::string pacer = run["pacer"].asString();
            const double p99 = run["p99_abs_error_ms"].asDouble();
            const double ratio = p99 / floorP99[rate];
            const double rateError = run["rate_error_pct"].asDouble();
            const std::string label = pacer == "quillet"    ? "Quillet, Quota"
                                      : pacer == "deadline" ? "Quillet, Deadline"
                                      : pacer == "deadline-abs"
                                          ? "Quillet, Deadline, sleeping to the wake-up time"
                                          : pacer;
            out << "| " << rate << " | " << label << " | " << run["frames"].asUInt64() << " | "
                << format("%.3f", run["mean_rate"].asDouble()) << " | "
                << format("%+.3f%%", rateError) << " | "
                << format("%.3f", run["interval_stddev_ms"].asDouble()) << " | "
                << format("%.3f", p99) << " | " << format("%.2f", ratio) << " |\n";
            addPacingGoals(rate, pacer, run, ratio);
        }
        out << "\n";
    }

    void addPacingGoals(int rate, const std::string& pacer, const Json::Value& run, double ratio) {
        const double rateError = run["rate_error_pct"].asDouble();
        if (pacer == "quillet") {
            goals.push_back({"SFPS " + std::to_string(rate) +
                                 " under Quota: mean rate within 0.5% of the target",
                             std::fabs(rateError) <= 0.5, format("%+.2f%%", rateError)});
            goals.push_back({"SFPS " + std::to_string(rate) +
                                 " under Quota: p99 error at most 1.5 times the floor's",
                             ratio <= 1.5, format("%.2f times", ratio)});
        }
        if (pacer == "deadline" || pacer == "deadline-abs") {
            const std::string prefix =
                "SFPS " + std::to_string(rate) +
                (pacer == "deadline" ? " under Deadline: " : " under Deadline, to wake-ups: ");
            const double stddev = run["interval_stddev_ms"].asDouble();
            goals.push_back({prefix + "p99 error at most 1.5 times the floor's", ratio <= 1.5,
                             format("%.2f times", ratio)});
            goals.push_back({prefix + "interval std. dev. at most 0.1 ms", stddev <= 0.1,
                             format("%.3f ms", stddev)});
            goals.push_back({prefix + "mean rate within 0.1% of the target",
                             std::fabs(rateError) <= 0.1, format("%+.3f%%", rateError)});
        }
    }

    void Goals() {
        if (goals.empty()) return;
        out << "### Goals\n\n| Goal | Result | Measured |\n|---|---|---|\n";
        for (const Goal& goal : goals) {
            out << "| " << goal.text << " | " << yesNo(goal.met) << " | " << goal.figure << " |\n";
        }
    }

    std::string Text() const { return out.str(); }

  private:
    std::ostringstream out;
    std::vector<Goal> goals;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: " << argv[0] << " RESULT.json...\n";
        return 2;
    }
    Table table;
    for (int i = 1; i < argc; ++i) {
        Json::Value root;
        if (!readJson(argv[i], root)) return 1;
        if (root.isMember("benchmarks")) {
            const BenchmarkFile file = readBenchmarks(argv[i], root);
            if (file.Has("BM_QuilletFrame/trace:0")) table.Frame(file);
            if (file.Has("BM_FpsManagerTick/state:0/log:2")) table.Tick(file);
        } else if (root.isMember("instructions")) {
            table.Instructions(root);
        } else if (root.isMember("simulator")) {
            table.Simulator(root);
        } else if (root.isMember("runs")) {
            table.Pacing(root);
        } else {
            std::cerr << argv[i] << ": not a result file of the benchmarks\n";
            return 1;
        }
    }
    table.Goals();
    std::cout << table.Text();
    return 0;
}
