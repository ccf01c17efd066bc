#!/usr/bin/env bash
# What ./run shows, in a folder that looks like the project's and has been built: nothing is installed or built
# here. Arguments: the build folder that stands in for build/run, the source folder.
set -euo pipefail
build=$1 source=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/build" "$folder/scripts" "$folder/bin"
ln -s "$build" "$folder/build/run"
ln -s "$source/data" "$folder/data"
cp "$source/run" "$folder/run"
echo 'build_packages=()' >"$folder/scripts/packages.sh"
printf '#!/bin/sh\n' | tee "$folder/scripts/install-packages.sh" >"$folder/bin/cmake"
chmod +x "$folder/scripts/install-packages.sh" "$folder/bin/cmake"
cd "$folder"
fail() {
    echo "FAILED: $*" >&2
    cat out err >&2
    exit 1
}
run() { # STATUS ARGUMENT...
    local expected=$1 status=0
    shift
    PATH="$folder/bin:$PATH" ./run "$@" >out 2>err || status=$?
    [ "$status" = "$expected" ] || fail "./run $* ended with $status, not $expected"
}
has() { # TEXT... lines or parts of them, in the order of the output
    local from=1 text line
    for text; do
        line=$(tail -n "+$from" out | grep -nF -m 1 -- "$text" | cut -d: -f1) || true
        [ -n "$line" ] || fail "\"$text\" is not there, or not in its place"
        from=$((from + line))
    done
}

run 0 --frames shots
has 'head' '  healthy.ini: A head of which nothing is wrong.' 'stages' '374.272 ms  link aligned' 'lanes' \
    '  0 1 2 3 4 5 6 7 8 9 10 11 locked, aligned' 'settings, asked and applied' '  interval              50000 us' \
    'pictures' "  7 delivered, 7 kept, the last one is $folder/shots/frame-0007.png" 'verdict' \
    '  All went well: 7 pictures delivered.'
[ "$(wc -l <out)" -lt 60 ] || fail 'more than a screen'
! grep -qE 'tc3U5MGXS|locked no' out || fail 'the driver is heard'
[ ! -s err ] || fail 'something is complained of'

run 5 --scenario dead-lane
has '  dead-lane.ini: Lane 3 carries nothing.' 'never  link aligned' '  0 1 2 - 4 5' 'status 5' 'Lane 3 did not lock' \
    '  cause: ' '  measure: '
grep -qF 'DPA failed to lock' err || fail 'the complaint is lost'

run 0 --verbose
has '> init' 'tc3U5MGXS::powerUp' 'init: result 0: success' '> capture 120'
grep -qF '  link in capture: enabled yes, locked yes, rgLocked yes, gbLocked yes, aligned yes' err ||
    fail 'the summary does not show the link in capture'

# The console, with a page that shows the head meanwhile.
printf 'init\nstatus\n' >commands
run 0 --bench <commands
has 'init: result 0: success' 'test pattern 0'
grep -qE '^virtual-head: bench at http://127.0.0.1:[0-9]+/$' err || fail 'nobody says where the bench is'
printf 'init\n' >commands
run 0 --shell <commands
! grep -q 'bench at' err || fail 'a bench that nobody asked for'

run 0 --log events
grep -qF '] OPEN /dev/spidev1.0' events || fail 'no events'
build/run/bin/virtual-head --log events2 --summary /dev/null --workdir data -- build/run/bin/camhost \
    --plugin "$build/lib/sensor_board_3u5mgxs.so" --spi /dev/spidev1.0 "$folder/data/main-job.camhost" >out
cmp events events2 || fail '--log of ./run and of virtual-head differ'
echo 'all as it should be'
