#!/usr/bin/env bash
# Builds the plug-in again, in a folder of another name, for the date and time that a built one carries, and compares
# the two byte for byte. Arguments: the build folder of that one, which was built by the clock; a folder to build in,
# made anew. Further arguments go to CMake.
set -euo pipefail
built=$(realpath "$1")/lib/sensor_board_3u5mgxs.so
folder=$2
shift 2
cd "$(dirname "$0")/.."
# As the compiler writes them: "Jan  2 1970 03:04:05".
date=$(grep -aoE -m 1 '"SW:[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}"' "$built" | tr -d '"' || true)
if [ -z "$date" ]; then
    echo "$built does not carry its date" >&2
    exit 1
fi
# The compiler takes the date for one in UTC.
SOURCE_DATE_EPOCH=$(date --utc --date "${date#SW:}" +%s)
export SOURCE_DATE_EPOCH
rm -rf "$folder"
cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr -DBUILD_TESTING=OFF \
    --log-level=WARNING "$@" >/dev/null
cmake --build "$folder" --target sensor_board_3u5mgxs -- --quiet
cmp "$built" "$folder/lib/sensor_board_3u5mgxs.so"
