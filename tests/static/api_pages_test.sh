#!/usr/bin/env bash
# The API pages are made without a warning, have a page of every header that is installed and of nothing else, and
# their main page leads to where hosts, plug-ins and tests begin. A header whose docstrings are wanting is refused.
# Argument: build folder.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/../.."
build=$1
pages=$build/api/html
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() {
    echo "FAILED: $*" >&2
    exit 1
}

cmake --build "$build" --target api_pages >"$folder/log" 2>&1 || fail "$(cat "$folder/log")"

for component in sdk headsdk; do
    cmake --install "$build" --prefix "$folder/root" --component $component >/dev/null
done
# "virtual__head_8h.html" is the page of virtual_head.h; of two headers of the same name, it is one of
# "varnox_2export_8h.html" and the like.
shown=$(sed -n 's|.*<title>.*: \(.*\) File Reference</title>.*|\1|p' "$pages"/*_8h.html | sed 's|.*/||' | sort)
installed=$(cd "$folder/root/include" && find . -name '*.h' -printf '%f\n' | sort)
[ "$shown" = "$installed" ] || fail "$(diff <(echo "$installed") <(echo "$shown"))"

for page in classVarnox_1_1tcSensorBoard plugin__entry_8h classVarnox_1_1tcAbstractHandler classsim_1_1tcVirtualHead; do
    grep -q "href=\"$page.html" "$pages/index.html" || fail "the main page does not lead to $page.html"
    [ -s "$pages/$page.html" ] || fail "there is no $page.html"
done
grep -q '#include &lt;.*varnox/sensor_board.h' "$pages/classVarnox_1_1tcSensorBoard.html" ||
    fail "the page of a class does not say what to include"
! grep -rqF "$PWD" "$pages" || fail "pages name the folder of the sources"

# A function without a docstring, and one whose docstring names a parameter that it does not have.
is() { # taken|refused DECLARATION: what becomes of a header with it
    local expected=$1 found=taken
    mkdir -p "$folder/wanting"
    printf '/// \\file\n/// A header.\n\n%s\n' "$2" >"$folder/wanting.h"
    { cat "$build/Doxyfile"; echo "INPUT = \"$folder/wanting.h\""; echo "OUTPUT_DIRECTORY = \"$folder/wanting\""; } >"$folder/Doxyfile"
    doxygen "$folder/Doxyfile" >"$folder/log" 2>&1 || found=refused
    [ "$found" = "$expected" ] || fail "$found, not $expected: $2: $(cat "$folder/log")"
}
is taken $'/// \\return a number\nint documented();'
is refused 'int undocumented();'
is refused $'/// \\param other a number\nvoid misdocumented(int number);'
echo "$(wc -l <<<"$shown") headers"
