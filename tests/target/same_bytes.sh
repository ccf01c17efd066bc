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
mkdir "$folder/one" "$folder/other"
# Each in a working directory of its own, from an environment that is the same.
(cd "$folder/one" && "$one" "$seed" "$boards" "$operations" >out 2>err)
(cd "$folder/other" && "${emulator[@]}" "$other" "$seed" "$boards" "$operations" >out 2>err)
for file in out err; do
    if ! cmp "$folder/one/$file" "$folder/other/$file"; then
        echo "seed $seed; $one < > $other:" >&2
        diff "$folder/one/$file" "$folder/other/$file" | head -n 20 >&2
        exit 1
    fi
done
lines=$(wc -l <"$folder/one/out")
if [ "$lines" -lt $((boards * operations)) ]; then
    echo "only $lines lines of $((boards * operations)) operations" >&2
    exit 1
fi
echo "seed $seed: $boards boards, $operations operations each, $lines lines of events and results, the same"
