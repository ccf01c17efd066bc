#!/usr/bin/env bash
# Fails when the version in CMakeLists.txt is not what the programs and the change log say.
# Arguments: the version, camhost and virtual-head, each with its emulator before it in EMULATOR.
set -euo pipefail
cd "$(dirname "$0")/.."
version=$1
read -ra emulator <<<"${EMULATOR:-}"
failed=0
expect() {
    if [ "$2" != "$3" ]; then
        echo "$1: \"$2\", expected \"$3\""
        failed=1
    fi
}
expect camhost "$("${emulator[@]}" "$2" --version)" "camhost $version"
expect virtual-head "$("${emulator[@]}" "$3" --version)" "virtual-head $version"
newest=$(sed -n 's/^## \[\([^]]*\)\].*/\1/p' CHANGELOG.md | sed -n 1p)
expect "newest heading of CHANGELOG.md" "$newest" "$version"
exit "$failed"
