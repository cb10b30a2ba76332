// Real-time pacing accuracy: a render loop with a jittery busy workload and real sleeps, paced by
// the pacing object under each policy (the caller sleeps the returned milliseconds, or under
// Deadline also to the returned wake-up time), by a naive
// pacer (sleep for the period minus the work time) and by the floor (sleep to absolute deadlines).
// Each run's frame intervals are compared with the target period.
#include <sched.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "harness/NodeDirectory.h"
#include "talvex/basics/Log.h"
#include "talvex/pacing/Quillet.h"

namespace {

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::nanoseconds;

struct Options {
    double seconds = 10.0;
    double warmupSeconds = 1.0;
    std::vector<int> rates = {30, 45, 60};
    std::string out;
    unsigned seed = 20240611;
    int fifoPriority = 0;            // 0: the default policy
    std::string intervalsDirectory;  // one CSV of frame intervals per run when set
};

struct Result {
    int rate;
    std::string pacer;
    std::size_t frames;
    double meanRate;
    double rateError_pct;
    double intervalStddev_ms;
    double p99AbsError_ms;
    double meanAbsError_ms;
    double maxAbsError_ms;
};

// Work of a frame: 15% to 55% of the period, drawn from one seeded sequence so that every pacer
// of a rate sees the same frames.
class Workload {
  public:
    Workload(unsigned seed, Nanoseconds period)
        : engine(seed), fraction(0.15, 0.55), period(period) {}
    Nanoseconds Next() {
        return Nanoseconds(static_cast<Nanoseconds::rep>(fraction(engine) * period.count()));
    }

  private:
    std::mt19937 engine;
    std::uniform_real_distribution<double> fraction;
    Nanoseconds period;
};

void spinFor(Nanoseconds work) {
    const Clock::time_point until = Clock::now() + work;
    while (Clock::now() < until) {
    }
}

timespec toTimespec(Nanoseconds duration) {
    timespec value{};
    value.tv_sec = static_cast<time_t>(duration.count() / 1000000000);
    value.tv_nsec = static_cast<long>(duration.count() % 1000000000);
    return value;
}

void sleepRelative(Nanoseconds duration) {
    if (duration <= Nanoseconds::zero()) return;
    timespec request = toTimespec(duration);
    timespec remaining{};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &request, &remaining) == EINTR) request = remaining;
}

void sleepUntil(Clock::time_point deadline) {
    // steady_clock is CLOCK_MONOTONIC on Linux.
    const timespec request = toTimespec(deadline.time_since_epoch());
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &request, nullptr) == EINTR) {
    }
}

Nanoseconds periodOf(int rate) { return Nanoseconds(1000000000LL / rate); }

// Each pacer runs frames until the time is up and returns the end of every frame, warm-up
// excluded.
using FrameEnds = std::vector<Clock::time_point>;

// absolute: the caller sleeps to the wake-up time instead of for the returned milliseconds.
FrameEnds runQuillet(int rate, const Options& options,
                     android::Nimbrel::Quillet::PacingPolicy policy, bool absolute = false) {
    TalvexHarness::NodeDirectory nodes;
    android::Nimbrel::Quillet::Quillet quillet(policy);
    Workload workload(options.seed, periodOf(rate));
    FrameEnds ends;
    const Clock::time_point start = Clock::now();
    const auto measureFrom = start + std::chrono::duration<double>(options.warmupSeconds);
    const auto until = measureFrom + std::chrono::duration<double>(options.seconds);
    for (Clock::time_point now = start; now < until;) {
        quillet.Update(rate, 120, 120);
        spinFor(workload.Next());
        if (absolute) {
            // The library's clock is the steady clock here.
            sleepUntil(Clock::time_point(quillet.CalculateWakeUpTime().time_since_epoch()));
        } else {
            const float sleep_ms = quillet.CalculateSleepDuration_ms();
            sleepRelative(Nanoseconds(static_cast<Nanoseconds::rep>(sleep_ms * 1e6f)));
        }
        now = Clock::now();
        if (now >= measureFrom) ends.push_back(now);
        quillet.PostUpdate();
    }
    return ends;
}

FrameEnds runNaive(int rate, const Options& options) {
    const Nanoseconds period = periodOf(rate);
    Workload workload(options.seed, period);
    FrameEnds ends;
    const Clock::time_point start = Clock::now();
    const auto measureFrom = start + std::chrono::duration<double>(options.warmupSeconds);
    const auto until = measureFrom + std::chrono::duration<double>(options.seconds);
    for (Clock::time_point frameStart = start; frameStart < until;) {
        spinFor(workload.Next());
        sleepRelative(period - (Clock::now() - frameStart));
        frameStart = Clock::now();
        if (frameStart >= measureFrom) ends.push_back(frameStart);
    }
    return ends;
}

FrameEnds runFloor(int rate, const Options& options) {
    const Nanoseconds period = periodOf(rate);
    Workload workload(options.seed, period);
    FrameEnds ends;
    const Clock::time_point start = Clock::now();
    const auto measureFrom = start + std::chrono::duration<double>(options.warmupSeconds);
    const auto until = measureFrom + std::chrono::duration<double>(options.seconds);
    for (Clock::time_point deadline = start + period; deadline < until + period;
         deadline += period) {
        spinFor(workload.Next());
        sleepUntil(deadline);
        const Clock::time_point now = Clock::now();
        if (now >= measureFrom && now < until) ends.push_back(now);
    }
    return ends;
}

Result summarise(int rate, const std::string& pacer, const FrameEnds& ends) {
    const double period_ms = 1000.0 / rate;
    std::vector<double> intervals_ms;
    for (std::size_t i = 1; i < ends.size(); ++i) {
        intervals_ms.push_back(
            std::chrono::duration<double, std::milli>(ends[i] - ends[i - 1]).count());
    }
    Result result{rate, pacer, ends.size(), 0, 0, 0, 0, 0, 0};
    if (intervals_ms.empty()) return result;
    const double span_ms =
        std::chrono::duration<double, std::milli>(ends.back() - ends.front()).count();
    result.meanRate = 1000.0 * static_cast<double>(intervals_ms.size()) / span_ms;
    result.rateError_pct = 100.0 * (result.meanRate - rate) / rate;
    const double mean_ms = span_ms / static_cast<double>(intervals_ms.size());
    double squares = 0;
    std::vector<double> absErrors;
    for (double interval : intervals_ms) {
        squares += (interval - mean_ms) * (interval - mean_ms);
        absErrors.push_back(std::fabs(interval - period_ms));
    }
    result.intervalStddev_ms = std::sqrt(squares / static_cast<double>(intervals_ms.size()));
    std::sort(absErrors.begin(), absErrors.end());
    const std::size_t p99 = std::min(
        absErrors.size() - 1, static_cast<std::size_t>(std::ceil(0.99 * absErrors.size())) - 1);
    result.p99AbsError_ms = absErrors[p99];
    double sum = 0;
    for (double error : absErrors) sum += error;
    result.meanAbsError_ms = sum / static_cast<double>(absErrors.size());
    result.maxAbsError_ms = absErrors.back();
    return result;
}

void writeIntervals(const Options& options, int rate, const std::string& pacer,
                    const FrameEnds& ends) {
    std::ofstream csv(options.intervalsDirectory + "/intervals-" + std::to_string(rate) + "-" +
                      pacer + ".csv");
    csv << "frame,interval_ms\n";
    for (std::size_t i = 1; i < ends.size(); ++i) {
        csv << i << "," << std::chrono::duration<double, std::milli>(ends[i] - ends[i - 1]).count()
            << "\n";
    }
}

std::string jsonEscape(const std::string& text) {
    std::string escaped;
    for (char c : text) {
        if (c == '"' || c == '\\') escaped += '\\';
        if (c == '\n') {
            escaped += "\\n";
            continue;
        }
        escaped += c;
    }
    return escaped;
}

std::string toJson(const std::vector<Result>& results, const Options& options,
                   const std::string& command, const std::string& scheduling) {
    std::ostringstream json;
    json.precision(9);
    const std::time_t now = std::time(nullptr);
    char date[32];
    std::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    json << "{\n  \"context\": {\"machine\": \"" << jsonEscape(TalvexBench::MachineDescription())
         << "\", \"date\": \"" << date << "\", \"command\": \"" << jsonEscape(command)
         << "\", \"seconds\": " << options.seconds
         << ", \"warmup_seconds\": " << options.warmupSeconds << ", \"seed\": " << options.seed
         << ", \"scheduling\": \"" << scheduling << "\"},\n  \"runs\": [";
    for (std::size_t i = 0; i < results.size(); ++i) {
        const Result& r = results[i];
        json << (i == 0 ? "\n" : ",\n") << "    {\"rate\": " << r.rate << ", \"pacer\": \""
             << r.pacer << "\", \"frames\": " << r.frames << ", \"mean_rate\": " << r.meanRate
             << ", \"rate_error_pct\": " << r.rateError_pct
             << ", \"interval_stddev_ms\": " << r.intervalStddev_ms
             << ", \"p99_abs_error_ms\": " << r.p99AbsError_ms
             << ", \"mean_abs_error_ms\": " << r.meanAbsError_ms
             << ", \"max_abs_error_ms\": " << r.maxAbsError_ms << "}";
    }
    json << "\n  ]\n}\n";
    return json.str();
}

int usage(const char* program) {
    std::fprintf(stderr,
                 "usage: %s [--seconds S] [--warmup S] [--rates 30,45,60] [--seed N] "
                 "[--fifo PRIORITY] [--intervals DIR] [--out FILE.json]\n",
                 program);
    return 2;
}

// False on anything but the documented options with sensible values.
bool parseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc) return false;
        const std::string value = argv[++i];
        if (arg == "--seconds") {
            options.seconds = std::atof(value.c_str());
        } else if (arg == "--warmup") {
            options.warmupSeconds = std::atof(value.c_str());
        } else if (arg == "--seed") {
            options.seed = static_cast<unsigned>(std::strtoul(value.c_str(), nullptr, 10));
        } else if (arg == "--intervals") {
            options.intervalsDirectory = value;
        } else if (arg == "--fifo") {
            options.fifoPriority = std::atoi(value.c_str());
        } else if (arg == "--out") {
            options.out = value;
        } else if (arg == "--rates") {
            options.rates.clear();
            std::istringstream list(value);
            for (std::string rate; std::getline(list, rate, ',');) {
                options.rates.push_back(std::atoi(rate.c_str()));
            }
        } else {
            return false;
        }
    }
    if (options.seconds <= 0 || options.rates.empty()) return false;
    for (int rate : options.rates) {
        if (rate < 11 || rate > 120) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const std::string command = TalvexBench::CommandLine(argc, argv);
    if (!parseOptions(argc, argv, options)) return usage(argv[0]);

    // A render thread runs at a raised priority; under SCHED_FIFO the other work of a shared
    // machine cannot preempt the loop, so the runs compare the pacers and not the neighbours.
    std::string scheduling = "SCHED_OTHER";
    if (options.fifoPriority > 0) {
        sched_param parameters{};
        parameters.sched_priority = options.fifoPriority;
        if (sched_setscheduler(0, SCHED_FIFO, &parameters) == 0) {
            scheduling = "SCHED_FIFO " + std::to_string(options.fifoPriority);
        } else {
            std::fprintf(stderr, "SCHED_FIFO refused; running with the default policy\n");
        }
    }
    Basics::Log::SetLogLevel(2);
    std::vector<Result> results;
    std::printf("%-6s %-12s %8s %10s %9s %11s %11s\n", "rate", "pacer", "frames", "mean rate",
                "error %", "stddev ms", "p99 err ms");
    for (int rate : options.rates) {
        for (const char* pacer : {"quillet", "deadline", "deadline-abs", "naive", "floor"}) {
            using android::Nimbrel::Quillet::PacingPolicy;
            const std::string name = pacer;
            const FrameEnds ends =
                name == "quillet"        ? runQuillet(rate, options, PacingPolicy::Quota)
                : name == "deadline"     ? runQuillet(rate, options, PacingPolicy::Deadline)
                : name == "deadline-abs" ? runQuillet(rate, options, PacingPolicy::Deadline, true)
                : name == "naive"        ? runNaive(rate, options)
                                         : runFloor(rate, options);
            const Result r = summarise(rate, name, ends);
            if (!options.intervalsDirectory.empty()) writeIntervals(options, rate, name, ends);
            std::printf("%-6d %-12s %8zu %10.3f %9.3f %11.4f %11.4f\n", r.rate, r.pacer.c_str(),
                        r.frames, r.meanRate, r.rateError_pct, r.intervalStddev_ms,
                        r.p99AbsError_ms);
            std::fflush(stdout);
            results.push_back(r);
        }
    }
    const std::string json = toJson(results, options, command, scheduling);
    if (!options.out.empty()) {
        std::ofstream file(options.out);
        file << json;
        if (!file) {
            std::fprintf(stderr, "cannot write %s\n", options.out.c_str());
            return 1;
        }
    }
    for (const Result& r : results) {
        if (r.frames < 2) return 1;
    }
    return 0;
}
