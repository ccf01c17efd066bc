#!/usr/bin/env bash
# Fails when a platform library's binary interface is not the recorded one. Arguments: the library's
# name, its file with debug information.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/abi.sh
record=$(record_of "$1" "$2")
now=$(mktemp)
trap 'rm -f "$now"' EXIT
write_interface "$1" "$2" "$now"
if ! abidiff "$record" "$now"; then
    echo "The binary interface of $1 is not that of $record."
    echo "If it is meant: scripts/record-abi.sh BUILD-FOLDER ... (docs/platform.md, \"Binary interface\")."
    exit 1
fi
