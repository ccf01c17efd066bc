#!/usr/bin/env bash
# Long runs of fuzz targets, one after the other. Arguments: inputs a target (10000000), targets (ini
# camhost). What is found lies in build/fuzz-long, the row for docs/reliability.md is printed. A run
# starts from what earlier ones found.
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -ge 2 ] || { echo "usage: scripts/fuzz-long.sh INPUTS TARGET..." >&2; exit 2; }
runs=$1
shift
build=$PWD/build/fuzz-long
# What would take most of the time, and can be missed: comparisons traced for guesses at words, which
# are in the dictionaries anyway; stacks of allocations, freed memory kept warm beyond the processor's
# cache; a thread that watches the memory in use (on the virtual head its sleep is virtual, so that it
# never rests); a search for leaks after inputs whose threads are still at work (the one at the end stays).
cmake --preset fuzz -B "$build" -DCMAKE_CXX_FLAGS=-fno-sanitize-coverage=trace-cmp \
    -DCMAKE_CXX_FLAGS_DEBUG="-O2 -g1 -D_GLIBCXX_ASSERTIONS" >/dev/null
cmake --build "$build" --target "${@/#/fuzz_}"
export ASAN_OPTIONS=malloc_context_size=1:quarantine_size_mb=4
for target in "$@"; do
    log=$build/$target.log
    mkdir -p "$build/found/$target"
    "$build/bin/fuzz_$target" "$build/found/$target" "$PWD/tests/fuzz/corpus/$target" \
        -dict="$PWD/tests/fuzz/$target.dict" -runs="$runs" -max_len=512 \
        -handle_segv=0 -handle_bus=0 -rss_limit_mb=0 -malloc_limit_mb=2048 -detect_leaks=0 -entropic=0 \
        -artifact_prefix="$build/$target-" -print_final_stats=1 >"$log" 2>&1 ||
        { tail -n 40 "$log"; echo "$target: failed; the input is $build/$target-*" >&2; exit 1; }
    awk -v target="$target" '/number_of_executed_units/ { inputs = $2 } /average_exec_per_sec/ { rate = $2 }
        END { printf "| `%s` | %d | %d |\n", target, inputs, rate }' "$log"
done
