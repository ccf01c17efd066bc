#!/usr/bin/env bash
# Moves the record of the platform libraries' binary interfaces to what they are now. Arguments:
# build folders, one for each processor (build/release build/armhf). An interface that programs built
# before cannot use any more needs another soname first: HEAD_PLATFORM_SOVERSION in platform/CMakeLists.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/abi.sh
[ $# -gt 0 ] || { echo "usage: scripts/record-abi.sh BUILD-FOLDER..." >&2; exit 2; }
now=$(mktemp)
trap 'rm -f "$now"' EXIT
for folder in "$@"; do
    for library in varnox pellum; do
        file=$folder/lib/lib$library.so
        record=$(record_of "$library" "$file")
        write_interface "$library" "$file" "$now"
        if [ -e "$record" ]; then
            changes=0
            abidiff "$record" "$now" || changes=$?
            if [ "$changes" -eq 0 ]; then
                echo "$record stays: nothing changed" # abidw numbers its types anew each time
                continue
            fi
            # Bit 3 of abidiff's status: incompatible.
            if [ $((changes & 8)) -ne 0 ] && grep -qF "soname='$(soname_of "$file")'" "$record"; then
                echo "$record stays: programs built before cannot use this $library, so it needs another" >&2
                echo "soname (HEAD_PLATFORM_SOVERSION in platform/CMakeLists.txt)." >&2
                exit 1
            fi
        fi
        mkdir -p "$(dirname "$record")"
        cat "$now" >"$record"
        echo "$record"
    done
done
