// Cost of one paced frame against the floor: the clock reads and the node write that a frame
// cannot avoid, measured in the same run on virtual time with the node in tmpfs.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <sstream>
#include <string>

#include "BenchSupport.h"
#include "harness/NodeDirectory.h"
#include "harness/Scopes.h"
#include "harness/VirtualClock.h"
#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Trace.h"
#include "talvex/math/ClearableFrameLengthsQueue.h"
#include "talvex/pacing/Quillet.h"
#include "talvex/pacing/QuilletImpl.h"

namespace {

using android::Nimbrel::Quillet::PacingPolicy;
using android::Nimbrel::Quillet::Quillet;
using TalvexHarness::VirtualClock;

// Virtual work per frame, varied so that the quota and the calibration keep moving.
constexpr std::array<float, 8> kWork_ms = {9.0f, 12.5f, 10.0f, 15.0f, 8.0f, 11.0f, 17.5f, 10.5f};
constexpr int kWarmupFrames = 200;

float workOf(std::size_t frame) { return kWork_ms[frame % kWork_ms.size()]; }

void runFrame(Quillet& quillet, std::size_t frame) {
    quillet.Update(60, 120, 120);
    VirtualClock::AdvanceMs(workOf(frame));
    VirtualClock::AdvanceMs(quillet.CalculateSleepDuration_ms());
    quillet.PostUpdate();
}

// A node line as the pacing object writes it in the steady state of runFrame.
std::string steadyStateLine(PacingPolicy policy) {
    VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::LogSwitchesScope log(2, false);
    std::string line;
    {
        Quillet quillet(policy);
        for (std::size_t frame = 0; frame < kWarmupFrames; ++frame) runFrame(quillet, frame);
        std::ifstream node(nodes.NodePath("egl_buf"), std::ios::binary);
        std::ostringstream content;
        content << node.rdbuf();
        line = content.str();
    }
    return line;
}

const std::string& floorLine(PacingPolicy policy) {
    static const std::string quota = steadyStateLine(PacingPolicy::Quota);
    static const std::string deadline = steadyStateLine(PacingPolicy::Deadline);
    return policy == PacingPolicy::Quota ? quota : deadline;
}

void writeNode(const std::string& path, const std::string& line) {
    const int node = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (node < 0) return;
    benchmark::DoNotOptimize(::write(node, line.data(), line.size()));
    ::close(node);
}

// What the steady-state frame cannot avoid: three clock reads (one for the time spent, two for
// the frame end before and after the queues) and one open-truncate-write-close of its line. With
// the tag on, also the three sections and seven counters the frame must emit.
void measureFloor(benchmark::State& state, PacingPolicy policy) {
    const bool trace = state.range(0) != 0;
    VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    TalvexBench::SetTraceEnabled(trace);
    const std::string& line = floorLine(policy);
    const std::string path = nodes.NodePath("egl_buf");
    std::size_t frame = 0;
    for (auto _ : state) {
        if (trace) atrace_begin(TALVEX_TRACE_TAG, "Quillet::Update()");
        if (trace) atrace_end(TALVEX_TRACE_TAG);
        VirtualClock::AdvanceMs(workOf(frame));
        if (trace) atrace_begin(TALVEX_TRACE_TAG, "Quillet::CalculateSleepDuration_ms()");
        benchmark::DoNotOptimize(Basics::Now());
        writeNode(path, line);
        if (trace) {
            atrace_int(TALVEX_TRACE_TAG, "AI + Quota (us)", 1);
            atrace_int(TALVEX_TRACE_TAG, "AI - Quota (us)", -1);
            atrace_int(TALVEX_TRACE_TAG, "AI SleepCalibration (us)", 1);
            atrace_int(TALVEX_TRACE_TAG, "AI TimeDiff (us)", 1);
            atrace_int(TALVEX_TRACE_TAG, "AI_Egl QuotaCounts", 1);
            atrace_int(TALVEX_TRACE_TAG, "AI Sleep duration (us)", 1);
            atrace_end(TALVEX_TRACE_TAG);
            atrace_begin(TALVEX_TRACE_TAG, "Quillet::PostUpdate()");
        }
        VirtualClock::AdvanceMs(16.6667f - workOf(frame));
        benchmark::DoNotOptimize(Basics::Now());
        if (trace) atrace_int(TALVEX_TRACE_TAG, "AI FrameLength (us)", 1);
        benchmark::DoNotOptimize(Basics::Now());
        if (trace) atrace_end(TALVEX_TRACE_TAG);
        ++frame;
    }
    TalvexBench::SetTraceEnabled(false);
    state.counters["line_bytes"] = static_cast<double>(line.size());
}

void BM_FrameFloor(benchmark::State& state) { measureFloor(state, PacingPolicy::Quota); }
BENCHMARK(BM_FrameFloor)->ArgName("trace")->Arg(0)->Arg(1);

// The same floor with a line as long as the Deadline frame's own.
void BM_DeadlineFloor(benchmark::State& state) { measureFloor(state, PacingPolicy::Deadline); }
BENCHMARK(BM_DeadlineFloor)->ArgName("trace")->Arg(0)->Arg(1);

// What the frame without telemetry still cannot avoid: the three clock reads and the open of the
// missing node, which fails.
void BM_NoTelemetryFloor(benchmark::State& state) {
    VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    nodes.MakeMissing("egl_buf");
    const std::string path = nodes.NodePath("egl_buf");
    std::size_t frame = 0;
    for (auto _ : state) {
        VirtualClock::AdvanceMs(workOf(frame));
        benchmark::DoNotOptimize(Basics::Now());
        benchmark::DoNotOptimize(
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        VirtualClock::AdvanceMs(16.6667f - workOf(frame));
        benchmark::DoNotOptimize(Basics::Now());
        benchmark::DoNotOptimize(Basics::Now());
        ++frame;
    }
}
BENCHMARK(BM_NoTelemetryFloor);

// Update + CalculateSleepDuration_ms + PostUpdate, node in tmpfs.
void measureFrame(benchmark::State& state, PacingPolicy policy) {
    const bool trace = state.range(0) != 0;
    VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    TalvexHarness::LogSwitchesScope log(2, false);
    TalvexBench::SetTraceEnabled(trace);
    Quillet quillet(policy);
    std::size_t frame = 0;
    for (; frame < kWarmupFrames; ++frame) runFrame(quillet, frame);
    const std::uint64_t allocationsBefore = TalvexBench::Allocations();
    const std::uint64_t traceCallsBefore = TalvexBench::TraceCalls();
    for (auto _ : state) runFrame(quillet, frame++);
    const double frames = static_cast<double>(state.iterations());
    state.counters["allocs_per_frame"] =
        static_cast<double>(TalvexBench::Allocations() - allocationsBefore) / frames;
    state.counters["trace_calls_per_frame"] =
        static_cast<double>(TalvexBench::TraceCalls() - traceCallsBefore) / frames;
    state.counters["line_bytes"] = static_cast<double>(nodes.Read("egl_buf").size());
    TalvexBench::SetTraceEnabled(false);
}

void BM_QuilletFrame(benchmark::State& state) { measureFrame(state, PacingPolicy::Quota); }
BENCHMARK(BM_QuilletFrame)->ArgName("trace")->Arg(0)->Arg(1);

// Frame ends scheduled one period apart; the virtual sleeps end on time, and the longer frames of
// the work cycle overrun their deadline.
void BM_DeadlineFrame(benchmark::State& state) { measureFrame(state, PacingPolicy::Deadline); }
BENCHMARK(BM_DeadlineFrame)->ArgName("trace")->Arg(0)->Arg(1);

// The same frame with only the computation left: the node is missing (its open fails at once)
// and the log is silenced, so its warning is gated off.
void BM_QuilletFrameNoTelemetry(benchmark::State& state) {
    VirtualClock clock;
    TalvexHarness::NodeDirectory nodes;
    nodes.MakeMissing("egl_buf");
    TalvexHarness::LogSwitchesScope log(-1, false);
    TalvexBench::SetTraceEnabled(false);
    Quillet quillet;
    std::size_t frame = 0;
    for (; frame < kWarmupFrames; ++frame) runFrame(quillet, frame);
    const std::uint64_t allocationsBefore = TalvexBench::Allocations();
    for (auto _ : state) runFrame(quillet, frame++);
    state.counters["allocs_per_frame"] =
        static_cast<double>(TalvexBench::Allocations() - allocationsBefore) /
        static_cast<double>(state.iterations());
}
BENCHMARK(BM_QuilletFrameNoTelemetry);

// Where the frame's time beyond the floor goes: the text of its line, the window's dump row and
// the nine fields, formatted as the frame formats them.
void BM_FormatInfoLine(benchmark::State& state) {
    Math::ClearableFrameLengthsQueue window;
    for (float frame_s : {0.0175f, 0.016f, 0.0171f, 0.0163f, 0.0166f})
        window.Update(frame_s, 60.0f);
    std::size_t length = 0;
    for (auto _ : state) {
        char row[96];
        window.FormatDumpedFileInfo(row, sizeof(row));
        const android::Nimbrel::Quillet::InfoLine line{60.0f,  120,   17.5f, row,   0.1667f,
                                                       59.76f, -1.1f, 10.5f, 5.233f};
        char text[256];
        length = static_cast<std::size_t>(
            android::Nimbrel::Quillet::FormatInfoLine(text, sizeof(text), line));
        benchmark::DoNotOptimize(text);
    }
    state.counters["line_bytes"] = static_cast<double>(length);
}
BENCHMARK(BM_FormatInfoLine);

}  // namespace

int main(int argc, char** argv) {
    const std::string command = TalvexBench::CommandLine(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::AddCustomContext("machine", TalvexBench::MachineDescription());
    benchmark::AddCustomContext("command", command);
    benchmark::AddCustomContext("floor_line", floorLine(PacingPolicy::Quota));
    benchmark::AddCustomContext("deadline_floor_line", floorLine(PacingPolicy::Deadline));
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
