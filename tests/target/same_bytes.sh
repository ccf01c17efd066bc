#!/usr/bin/env bash
# Runs the same random operations in two builds and compares what they print, byte for byte: results,
# status lines, published words, every event at the device boundary with its time, standard error.
# Arguments: the program in one build and in the other, boards, operations a board. The second
# program's emulator is in EMULATOR, the seed in HEAD_SEED.
set -euo pipefail
one=$1 other=$2 boards=$3 operations=$4
seed=${HEAD_SEED:-1}
read -ra emulator <<<"${EMULATOR:-}"
if [ ! -x "$one" ]; then
    echo "$one is missing: build the preset \"release\" first, the target is compared with it" >&2
    exit 1
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# Each in a working directory of its own. Arguments: the directory, the program.
run() {
    local status=0
    mkdir "$1"
    (cd "$1" && "${@:2}" "$seed" "$boards" "$operations" >out 2>err) || status=$?
    if [ "$status" -ne 0 ]; then
        echo "seed $seed: ${*:2} ended with status $status:" >&2
        tail -n 20 "$1/err" >&2
        exit 1
    fi
}
run "$folder/one" "$one"
run "$folder/other" "${emulator[@]}" "$other"
for file in out err; do
    if ! cmp "$folder/one/$file" "$folder/other/$file"; then
        echo "seed $seed; $one < > $other:" >&2
        diff "$folder/one/$file" "$folder/other/$file" >"$folder/difference" || true
    head -n 20 "$folder/difference" >&2
        exit 1
    fi
done
lines=$(wc -l <"$folder/one/out")
if [ "$lines" -lt $((boards * operations)) ]; then
    echo "only $lines lines of $((boards * operations)) operations" >&2
    exit 1
fi
echo "seed $seed: $boards boards, $operations operations each, $lines lines of events and results, the same"
