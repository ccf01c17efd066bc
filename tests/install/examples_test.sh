#!/usr/bin/env bash
# Does with the packages what somebody does who writes a host, a plug-in or a test: unpacks them, copies the examples,
# builds them as they stand with the compiler's own settings, and runs them.
# Arguments: folder with the packages, COMPILER...
set -euo pipefail
cd "$(dirname "$0")/../.."
expected=$PWD/tests/install/examples
packages=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

step() { echo "== $*"; }
fail() {
    echo "FAILED: $*" >&2
    exit 1
}

for archive in "$packages"/*.deb; do
    dpkg-deb --extract "$archive" "$folder/root"
done
root=$folder/root/usr
libraries=$(dirname "$(find "$root/lib" -name libvarnox.so)")
plugin=$libraries/varnox/sensor_board_3u5mgxs.so
settings=$root/share/virtual-head

build() { # EXAMPLE: into $folder/EXAMPLE/build
    local copied=$folder/${1##*/} log=$folder/log
    rm -rf "$copied"
    cp -r "$root/share/doc/$1" "$copied"
    # Not even the project's own warnings are on; any is an error, so that the examples stay free of them.
    { cmake -G Ninja -S "$copied" -B "$copied/build" -DCMAKE_PREFIX_PATH="$root" \
        -DCMAKE_CXX_FLAGS='-Wall -Wextra -Wpedantic -Werror' && cmake --build "$copied/build"; } >"$log" 2>&1 ||
        fail "$1 by $CXX: $(cat "$log")"
}
same() { # WHAT FILE: standard input is the file
    diff "$expected/$2" - || fail "$1 by $CXX does not say what $2 does"
}

step "pkg-config says what the headers need"
for library in varnox pellum virtual-head; do
    grep -q '^Description: .*C++17' "$libraries/pkgconfig/$library.pc" || fail "$library.pc does not say C++17"
done

step "the rehearsal of docs/first-day.md is what it shows"
page=docs/first-day.md
rehearsal=$(sed -n '/^## 1\. Rehearse/,/^## 2/p' "$page" | sed -n 's/^    //p')
[ "$(grep -c '^virtual-head' <<<"$rehearsal")" -eq 1 ] || fail "$page shows no rehearsal"
# The command, and the line that its output is said to end with.
command=$(sed '$d' <<<"$rehearsal")
PATH=$root/bin:$PATH bash -euc "${command//\/usr\//$root\/}" >"$folder/output" 2>"$folder/errors" ||
    fail "$command: $(cat "$folder/output" "$folder/errors")"
[ "$(tail -n 1 "$folder/output")" = "$(tail -n 1 <<<"$rehearsal")" ] || fail "$page: it ends with $(tail -n 1 "$folder/output")"

for CXX in "$@"; do
    export CXX
    step "by $CXX: the host captures, and says so"
    build libvarnox-dev/examples/host
    host=$folder/host/build/host
    "$root/bin/virtual-head" --workdir "$settings" --summary "$folder/summary" -- "$host" "$plugin" /dev/spidev1.0 \
        >"$folder/output" 2>"$folder/errors" || fail "host: $(cat "$folder/output" "$folder/errors")"
    same host host.txt <"$folder/output"
    grep -qx '  frames: 4' "$folder/summary" && grep -qx '  violations: none' "$folder/summary" ||
        fail "the head saw: $(cat "$folder/summary")"

    step "by $CXX: the host tells what goes wrong"
    errors_of() { # ARGUMENT...
        local status=0
        "$root/bin/virtual-head" --workdir "$settings" --summary /dev/null "${head[@]}" -- "$host" "$@" 2>&1 >/dev/null || status=$?
        echo "status $status"
    }
    head=(--scenario "$settings/scenarios/supply-low.ini")
    {
        errors_of "$plugin" /dev/spidev1.0
        head=()
        errors_of
        errors_of ./nothing.so /dev/spidev1.0
        errors_of "$libraries/libpellum.so" /dev/spidev1.0
    } | sed "s|$libraries/||" | same "host" host-errors.txt

    step "by $CXX: the skeleton of a plug-in runs in camhost"
    build libvarnox-dev/examples/board
    board=$folder/board/build/example_board.so
    [ "$(nm -D --defined-only "$board" | awk '{ print $NF }' | sort | tr '\n' ' ')" = "makeSensor sensorType " ] ||
        fail "the plug-in exports $(nm -D --defined-only "$board")"
    "$root/bin/virtual-head" --summary /dev/null -- "$root/bin/camhost" --plugin "$board" --spi /dev/spidev1.0 --echo \
        --keep-going "$expected/board.camhost" >"$folder/output" 2>&1 || true
    # What camhost says of a result beside its number is its own business.
    sed "s|$folder/||; s|^camhost: $expected/board.camhost:\([0-9]*\): |line \1: |; s/\(result [0-9]*\)[:,][^)]*/\1/" \
        "$folder/output" | same "the plug-in" board.txt

    step "by $CXX: the test of a camera stack passes, and notices a stack that takes any supply"
    build libvirtual-head-dev/examples/head-test
    ctest --test-dir "$folder/head-test/build" --verbose >"$folder/output" 2>&1 || fail "$(cat "$folder/output")"
    sed -n 's/^1: \(ok\|FAILED\): /\1: /p' "$folder/output" | same "the test" head-test.txt
    sed -i 's/withRail(sim::kRail1V2, 1.0)/withRail(sim::kRail1V2, 1.2)/' "$folder/head-test/low_supply_test.cpp"
    cmake --build "$folder/head-test/build" >/dev/null
    ! ctest --test-dir "$folder/head-test/build" >/dev/null 2>&1 || fail "the test passes on a head without its fault"

    # Which says in its description what the headers take: clang++ 14 begins with C++14.
    step "by $CXX: pkg-config leads the test to its library"
    export PKG_CONFIG_PATH=$libraries/pkgconfig
    # shellcheck disable=SC2046
    "$CXX" -std=c++17 "$root/share/doc/libvirtual-head-dev/examples/head-test/low_supply_test.cpp" -o "$folder/by-hand" \
        $(pkg-config --define-variable=prefix="$root" --cflags --libs virtual-head varnox) "-Wl,-rpath,$libraries"
    "$folder/by-hand" "$plugin" "$settings" >"$folder/output" 2>&1 || fail "$(cat "$folder/output")"
done
