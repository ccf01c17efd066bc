#!/usr/bin/env bash
# Builds the plug-in twice, in folders of different names, for one date, and compares the two byte for
# byte. Argument: a folder for both, made anew. Further arguments go to CMake.
set -euo pipefail
folder=$1
shift
cd "$(dirname "$0")/.."
export SOURCE_DATE_EPOCH=97445 # 2 January 1970, 03:04:05
rm -rf "$folder"
for build in one another-one; do
    cmake -S . -B "$folder/$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF \
        --log-level=WARNING "$@" >/dev/null
    cmake --build "$folder/$build" --target sensor_board_3u5mgxs -- --quiet
done
one=$folder/one/lib/sensor_board_3u5mgxs.so
another=$folder/another-one/lib/sensor_board_3u5mgxs.so
if ! grep -q 'Jan  2 1970' "$one" || ! grep -q '03:04:05' "$one"; then
    echo "$one does not carry the date of SOURCE_DATE_EPOCH" >&2
    exit 1
fi
cmp "$one" "$another"
