#include "BenchSupport.h"

#include <sys/utsname.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "harness/AllocationCounter.h"
#include "harness/Trace.h"

namespace TalvexBench {
namespace {

// The bodies only count, so that a traced frame costs what the entry points cost.
class TraceCounter : public TalvexHarness::TraceReceiver {
  public:
    void Begin(const char*) override { count(); }
    void End() override { count(); }
    void Counter(const char*, std::int32_t) override { count(); }
    std::uint64_t Calls() const { return calls.load(std::memory_order_relaxed); }

  private:
    void count() { calls.fetch_add(1, std::memory_order_relaxed); }
    std::atomic<std::uint64_t> calls{0};
};

TraceCounter& traceCounter() {
    static TraceCounter counter;
    return counter;
}

}  // namespace

void SetTraceEnabled(bool enabled) {
    if (enabled) {
        traceCounter().Activate();
    } else {
        traceCounter().Deactivate();
    }
}

std::uint64_t TraceCalls() { return traceCounter().Calls(); }

std::uint64_t Allocations() {
    static const TalvexHarness::AllocationCounter sinceFirstCall;
    return sinceFirstCall.ProcessCount();
}

std::string CommandLine(int argc, char** argv) {
    std::string command;
    for (int i = 0; i < argc; ++i) {
        std::string argument = argv[i];
        if (i == 0) {
            std::error_code ignored;
            const auto relative = std::filesystem::relative(argument, ignored);
            if (!relative.empty()) argument = relative.string();
        }
        command += (i == 0 ? "" : " ") + argument;
    }
    return command;
}

std::string MachineDescription() {
    std::string model = "unknown CPU";
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line);) {
        if (line.rfind("model name", 0) == 0) {
            const auto colon = line.find(':');
            if (colon != std::string::npos) model = line.substr(colon + 2);
            break;
        }
    }
    struct utsname names {};
    uname(&names);
    // Other work on a shared machine shows in the load.
    std::string load = "?";
    std::ifstream loadavg("/proc/loadavg");
    loadavg >> load;
    return model + ", " + std::to_string(std::thread::hardware_concurrency()) + " cores, " +
           names.sysname + " " + names.release + " " + names.machine + ", load average " + load +
           " at start";
}

}  // namespace TalvexBench
