#!/usr/bin/env bash
# Builds the benchmarks in a Release tree, runs them all, writes their JSON to out/bench/ and the
# results table to out/bench/results.md. Takes about five minutes, three of them the
# real-time pacing runs. Environment: BENCH_BUILD_DIR (default build-bench), JOBS (default 2),
# PACING_SECONDS (default 10 per run).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
for tool in cmake valgrind callgrind_annotate; do
    if ! command -v "$tool" > /dev/null; then
        echo "bench: $tool is missing (scripts/install-deps.sh tools installs valgrind)" >&2
        exit 1
    fi
done
cd "$root"
build="${BENCH_BUILD_DIR:-build-bench}"
jobs="${JOBS:-2}"
pacing_seconds="${PACING_SECONDS:-10}"
out=out/bench
ticks=2000

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release > /dev/null
targets=(talvex_bench_frame talvex_bench_tick talvex_bench_tick_instructions talvex_bench_pacing
         talvex_bench_table talvex-sim)
cmake --build "$build" -j "$jobs" --target "${targets[@]}"
bin="$build/bench"
mkdir -p "$out"

# Repetitions interleaved at random, so that a slow spell of this shared machine hits the
# floor and the measured case alike; the table uses the medians.
repeat=(--benchmark_repetitions=10 --benchmark_enable_random_interleaving=true
        --benchmark_report_aggregates_only=true --benchmark_out_format=json)

echo "== per-frame cost"
"$bin/talvex_bench_frame" "${repeat[@]}" --benchmark_out="$out/frame.json"

echo "== per-tick cost"
"$bin/talvex_bench_tick" "${repeat[@]}" --benchmark_out="$out/tick.json"

echo "== instructions per tick (callgrind)"
json_escape() { sed -e 's/\\/\\\\/g' -e 's/"/\\"/g'; }
machine_now() {
    printf '%s, %s cores, %s, load average %s at start' \
        "$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //')" "$(nproc)" \
        "$(uname -srm)" "$(cut -d' ' -f1 /proc/loadavg)"
}
machine="$(machine_now)"
rm -f "$out"/callgrind.*
{
    printf '{\n  "context": {"machine": "%s", "date": "%s", "command": "%s"},\n  "instructions": [' \
        "$(printf '%s' "$machine" | json_escape)" "$(date -u +%Y-%m-%dT%H:%M:%SZ)" \
        "valgrind --tool=callgrind --collect-atstart=no $bin/talvex_bench_tick_instructions STATE $ticks LOG_LEVEL"
    separator=""
    for run in no_lists:2 lists_idle:2 decider_stepping:2 no_lists:-1 lists_idle:-1 decider_stepping:-1; do
        state="${run%:*}"
        level="${run#*:}"
        callgrind_out="$out/callgrind.$state.$level.out"
        report="$(valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$callgrind_out" \
            "$bin/talvex_bench_tick_instructions" "$state" "$ticks" "$level" 2> "$out/callgrind.$state.$level.log")"
        changes="$(printf '%s\n' "$report" | sed -n 's/.*sfps_changes=\([0-9]*\).*/\1/p')"
        total="$(sed -n 's/^totals: *\([0-9]*\).*/\1/p' "$callgrind_out")"
        [ -n "$total" ] || total="$(sed -n 's/^summary: *\([0-9]*\).*/\1/p' "$callgrind_out")"
        if [ -z "$total" ] || [ "$total" -eq 0 ]; then
            echo "callgrind collected nothing for $state: was the program built with <valgrind/callgrind.h>?" >&2
            exit 1
        fi
        # The node's own reads and writes, inclusive of the stream code they run.
        node_io="$(callgrind_annotate --inclusive=yes --threshold=100 "$callgrind_out" 2> /dev/null |
            grep -E 'CharacterDevice::(updateDeviceStatus|writeStatusToDevice)' |
            awk '{ gsub(",", "", $1); sum += $1 } END { print sum + 0 }')"
        printf '%s\n    {"state": "%s", "log_level": %s, "ticks": %s, "sfps_changes": %s, "instructions": %s, "node_io_instructions": %s}' \
            "$separator" "$state" "$level" "$ticks" "${changes:-0}" "$total" "$node_io"
        separator=","
    done
    printf '\n  ]\n}\n'
} > "$out/instructions.json"
cat "$out/instructions.json"

echo "== simulator throughput"
machine="$(machine_now)"
sim_out="$out/sim-run"
sim_command="$build/tools/sim/talvex-sim --no-progress --out $sim_out"
# Three runs; the median wall time counts. The seed is fixed, so every run simulates the same frames.
walls=()
for run in 1 2 3; do
    rm -rf "$sim_out"
    start_ns="$(date +%s%N)"
    $sim_command > "$out/sim.txt" 2> "$out/sim.log"
    end_ns="$(date +%s%N)"
    walls+=("$(awk -v s="$start_ns" -v e="$end_ns" 'BEGIN { printf "%.6f", (e - s) / 1e9 }')")
done
cat "$out/sim.txt"
wall_median="$(printf '%s\n' "${walls[@]}" | sort -g | sed -n 2p)"
# "1800 s simulated in 2.28 s, 74,817 frames, ..." on the summary's first line.
run_line="$(grep -m1 ' s simulated in ' "$out/sim.txt")"
simulated_s="$(printf '%s\n' "$run_line" | sed -n 's/^ *run *\([0-9.,]*\) s simulated.*/\1/p' | tr -d ,)"
frames="$(printf '%s\n' "$run_line" | sed -n 's/.*, \([0-9,]*\) frames,.*/\1/p' | tr -d ,)"
if [ -z "$frames" ] || [ -z "$simulated_s" ]; then
    echo "cannot read the frame count from the simulator's summary" >&2
    exit 1
fi
printf '{\n  "context": {"machine": "%s", "date": "%s", "command": "%s"},\n  "simulator": {"scenario": "default", "frames": %s, "simulated_seconds": %s, "wall_seconds": %s, "wall_seconds_of_runs": [%s]}\n}\n' \
    "$(printf '%s' "$machine" | json_escape)" "$(date -u +%Y-%m-%dT%H:%M:%SZ)" "$sim_command" \
    "$frames" "$simulated_s" "$wall_median" "$(IFS=,; printf '%s' "${walls[*]}")" \
    > "$out/sim.json"

echo "== real-time pacing accuracy (5 pacers x 3 rates x ${pacing_seconds} s)"
# SCHED_FIFO where allowed (the program says so when it is refused and records the policy).
"$bin/talvex_bench_pacing" --seconds "$pacing_seconds" --rates 30,45,60 --fifo 10 \
    --intervals "$out" --out "$out/pacing.json"

"$bin/talvex_bench_table" "$out/frame.json" "$out/tick.json" "$out/instructions.json" \
    "$out/sim.json" "$out/pacing.json" > "$out/results.md"
echo "== results: $out/results.md"
cat "$out/results.md"
