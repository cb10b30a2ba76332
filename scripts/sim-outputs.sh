#!/usr/bin/env bash
# Writes every output the simulator makes for a refactor check: each shipped scenario alone and
# compared under the default policies (the soak with --soak), the embedded default, a run with
# --set, a replay and the README's sweep. Run it with the program before and after a change,
# then compare the two folders with `scripts/sim-outputs.sh --compare A B`.
#
#   scripts/sim-outputs.sh [--soak] SIM OUT      SIM: a talvex-sim; OUT is emptied first
#   scripts/sim-outputs.sh --compare A B         exit 1 when an output differs
set -uo pipefail
scenarios="$(cd "$(dirname "$0")/../tools/sim/scenarios" && pwd)"

compare() {
    local a=$1 b=$2 status=0
    # A node directory's name and a source path differ from run to run and tree to tree.
    local mask='s/talvex-nodes-[A-Za-z0-9]+/NODES/g;s|/[^ ]*/talvex/|SRC/talvex/|g'
    diff -rq -x '*.stdout' -x library.log "$a" "$b" || status=1
    while read -r log; do
        cmp -s <(sed -E "$mask" "$a/$log") <(sed -E "$mask" "$b/$log") ||
            { echo "differ: $log"; status=1; }
    done < <(cd "$a" && find . -name library.log)
    # Standard output: wall times, memory and the output folder masked.
    local text='s/in [0-9.]+ s/in T s/g;s/[0-9,]+ frames per wall second/F frames per wall second/'
    text+=';s/peak RSS [0-9.]+ MiB/peak RSS M MiB/;s/first hour [-+0-9.]+ MiB/first hour G MiB/'
    for out in "$a"/*.stdout; do
        local name; name=$(basename "$out")
        diff <(sed -E "s#$a#OUT#g;$text" "$out") <(sed -E "s#$b#OUT#g;$text" "$b/$name") ||
            { echo "differ: $name (above)"; status=1; }
    done
    [ "$status" -eq 0 ] && echo "identical: every file and every standard output"
    return "$status"
}

if [ "${1:-}" = "--compare" ]; then compare "$2" "$3"; exit; fi
soak=0
if [ "${1:-}" = "--soak" ]; then soak=1; shift; fi
sim=$(realpath "$1") out=$2
rm -rf "$out" && mkdir -p "$out"
for scenario in "$scenarios"/*.json; do
    name=$(basename "$scenario" .json)
    if [ "$name" = soak ] && [ "$soak" -eq 0 ]; then continue; fi
    "$sim" --no-progress "$scenario" --out "$out/$name" > "$out/$name.stdout" 2>&1
    [ "$name" = soak ] && continue
    "$sim" --no-progress "$scenario" --compare --out "$out/$name" > "$out/$name.compare.stdout" 2>&1
done
"$sim" --no-progress --out "$out/embedded" > "$out/embedded.stdout" 2>&1
"$sim" --no-progress --set 'stabilizer,sfps,0-50' --out "$out/set" > "$out/set.stdout" 2>&1
# A replay of the default run's own readings, a tick a second.
awk -F, 'NR == 1 { print "time_s,ofps,refresh_rate_hz,current_uA,cpu0,cpu1,cpu2,cpu3,temperature_mC"; next }
         { printf "%s,%s,60,%d,80,50,30,10,%d\n", $1, $5, $4 * 1000, $3 * 1000 }' \
    "$out/embedded/timeline.csv" > "$out/replay.csv"
# From inside OUT, so that the chart names the log alike in every tree.
(cd "$out" && "$sim" --no-progress --replay replay.csv --out replay > replay.stdout 2>&1)
"$sim" sweep "$scenarios/flapping.json" --no-progress --jobs 2 --out "$out/flapping-sweep" \
    --vary 'stabilizer,gfps=25-30-40-45-60|20-30-40-45-60|25-35-40-45-60|30-35-40-45-60' \
    --vary 'stabilizer,sfps=20-25-35-40-45|0-25-35-40-45|0-0-35-40-45' \
    --objective 'max render_fps subject to gfps_changes_per_10min <= 1 and sfps_reversals_per_10min <= 5' \
    > "$out/sweep.stdout" 2>&1
echo "outputs in $out"
