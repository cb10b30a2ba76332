// Cost of one tick of the FPS manager (Update + PostUpdate) with the node unchanged, debug off,
// at log level 2 and with the log silenced: a message gated off must cost nothing.
#include <benchmark/benchmark.h>

#include <string>

#include "BenchSupport.h"
#include "TickScenario.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"

namespace {

using TalvexBench::TickState;

void BM_FpsManagerTick(benchmark::State& state) {
    const auto tickState = static_cast<TickState>(state.range(0));
    const int logLevel = static_cast<int>(state.range(1));
    TalvexHarness::VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::LogSwitchesScope log(logLevel, false);
    TalvexBench::SetTraceEnabled(false);
    TalvexBench::TickScenario scenario(tickState);
    const std::uint64_t allocationsBefore = TalvexBench::Allocations();
    std::uint64_t changes = 0;
    for (auto _ : state) changes += scenario.Tick() ? 1 : 0;
    const double ticks = static_cast<double>(state.iterations());
    state.counters["allocs_per_tick"] =
        static_cast<double>(TalvexBench::Allocations() - allocationsBefore) / ticks;
    state.counters["sfps_changes_per_tick"] = static_cast<double>(changes) / ticks;
    state.SetLabel(TalvexBench::TickStateName(tickState));
}
BENCHMARK(BM_FpsManagerTick)
    ->ArgNames({"state", "log"})
    ->ArgsProduct({{static_cast<int>(TickState::NoLists), static_cast<int>(TickState::ListsIdle)},
                   {2, -1}});

}  // namespace

int main(int argc, char** argv) {
    const std::string command = TalvexBench::CommandLine(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::AddCustomContext("machine", TalvexBench::MachineDescription());
    benchmark::AddCustomContext("command", command);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
