#!/usr/bin/env bash
# Records the main job in one build and plays the recording to the same job in another: the shipped
# plug-in must do the same at the device boundary, call by call, and say the same.
# Arguments: the build folder that records, the one that is played to, the source folder. The second
# one's emulator is in EMULATOR.
set -euo pipefail
one=$1 other=$2 source=$3
read -ra emulator <<<"${EMULATOR:-}"
if [ ! -x "$one/bin/virtual-head" ]; then
    echo "$one/bin/virtual-head is missing: build the preset \"release\" first" >&2
    exit 1
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Arguments: the build folder, where the output goes, an option of the launcher, an emulator's words.
main_job() {
    local build=$1 output=$2 option=$3
    local status=0
    shift 3
    "$@" "$build/bin/virtual-head" --workdir "$source/data" "$option" "$folder/run.rec" -- \
        "$@" "$build/bin/camhost" --plugin "$build/lib/sensor_board_3u5mgxs.so" --spi /dev/spidev1.0 \
        "$source/data/main-job.camhost" >"$folder/$output" 2>"$folder/$output.errors" || status=$?
    if [ "$status" -ne 0 ]; then
        echo "$option in $build ended with status $status:" >&2
        tail -n 20 "$folder/$output.errors" >&2
        exit 1
    fi
}

# What was said, without the build's own folder and the time at which it was built.
said() {
    sed "s|$1/||; s|\"SW:[^\"]*\"|\"SW:...\"|" "$folder/$2"
}

main_job "$one" recorded --record
main_job "$other" played --replay "${emulator[@]}"
diff <(said "$one" recorded) <(said "$other" played)
grep -q "played to its end" "$folder/played.errors"
calls=$(grep -c ' = ' "$folder/run.rec")
if [ "$calls" -lt 300 ]; then
    echo "only $calls calls in the recording" >&2
    exit 1
fi
echo "$calls calls recorded in $one, the same in $other"
