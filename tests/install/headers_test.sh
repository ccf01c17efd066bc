#!/usr/bin/env bash
# Compiles each header that is installed for others, alone, with the installed headers and nothing else, as C++17:
# that is what Debian's g++ takes without being told. A warning is an error.
# Arguments: build folder, COMPILER...
set -euo pipefail
build=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
for component in sdk headsdk; do
    cmake --install "$build" --prefix "$folder/root" --component $component >/dev/null
done
headers=$folder/root/include

compile() { # INCLUDE-FOLDER HEADER COMPILER: says what is wrong with the header
    local output
    output=$("$3" -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c++ -I"$1" - <<<"#include <$2>" 2>&1) ||
        printf '== %s, by %s:\n%s\n' "$2" "$3" "$output"
}
export -f compile
for include in "$headers" "$headers/virtual-head"; do
    (cd "$include" && find . -name '*.h' -not -path './virtual-head/*' -printf '%P\n') | LC_ALL=C sort |
        while read -r header; do
            for compiler in "$@"; do printf '%s\n%s\n%s\n' "$include" "$header" "$compiler"; done
        done
done >"$folder/compilations"
for header in varnox/sensor_board.h pellum/gpio.h sim/virtual_head.h; do
    grep -qx "$header" "$folder/compilations" || { echo "$header is not installed"; exit 1; }
done
xargs -d '\n' -n 3 -P 2 bash -c 'compile "$@"' compile <"$folder/compilations" >"$folder/found"
cat "$folder/found"
echo "$(($(wc -l <"$folder/compilations") / 3)) compilations"
[ ! -s "$folder/found" ]
