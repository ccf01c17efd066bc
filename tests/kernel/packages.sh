#!/usr/bin/env bash
# Makes the target's packages where they are missing or older than what is in them: after the stage armhf they are not.
# Argument: the target's build folder.
set -euo pipefail
build=$1
mkdir -p "$build/packages"
oldest=$(find "$build/packages" -name '*.deb' -printf '%T@ %p\n' | sort -n | head -n 1 | cut -d ' ' -f 2-)
if [ -z "$oldest" ] || [ -n "$(find "$build"/bin/camhost "$build"/bin/virtual-head "$build"/lib/*.so.* \
    "$build"/lib/sensor_board_3u5mgxs.so -newer "$oldest")" ]; then
    ctest --test-dir "$build" -R '^packages$' --no-tests=error --output-on-failure
fi
ls "$build"/packages/*.deb
