#!/usr/bin/env bash
# Installs the target's packages beside those that they depend on, and does the main job with them on the
# emulator. dpkg itself is the build machine's: it checks the dependencies and unpacks, and there are no
# scripts of the target to run. What needs root and how this ends without: root.sh.
# Arguments: folder with the packages, build folder, the emulator.
set -euo pipefail
cd "$(dirname "$0")/../.."
export LC_ALL=C
source tests/install/root.sh
packages=$1
build=$2
shift 2
make_root
version=$(dpkg-deb --field "$packages"/libvarnox0_*.deb Version)
libraries=usr/lib/arm-linux-gnueabihf

files_in_root() { # but for dpkg's own books
    (cd "$root" && find . -not -path './var/lib/dpkg/*' | sort)
}
install_files() { # FILE...
    "${as_root[@]}" dpkg --root="$root" --log=/dev/null --install "$@"
}
# Arguments: folder of the results, of the data, launcher, camhost, plug-in, the emulator.
main_job() {
    local results=$1 data=$2 launcher=$3 camhost=$4 plugin=$5
    shift 5
    mkdir -p "$results"
    "$@" "$launcher" --scenario "$data/scenarios/healthy.ini" --workdir "$data" --log "$results/events" \
        --summary "$results/summary" -- "$@" "$camhost" --plugin "$plugin" --spi /dev/spidev1.0 \
        --echo "$data/main-job.camhost" >"$results/output" 2>"$results/errors" ||
        fail "main job: $(cat "$results/output" "$results/errors")"
    sed -i "s|^camhost: $(dirname "$plugin")/|camhost: |" "$results/output"
}

names=("${names_for_one[@]}")

step "the target's packages that ours depend on"
scripts/armhf-root.sh "$build/debian/root"
cp -a "$build/debian/root/." "$root"
"${as_root[@]}" chown -R 0:0 "$root"
[ -z "$(dpkg --root="$root" --audit)" ] || fail "incomplete: $(dpkg --root="$root" --audit)"
files_in_root >"$folder/before"

step "dpkg refuses the plug-in without the libraries"
! install_files "$packages"/sensor-board-3u5mgxs_*.deb >"$folder/log" 2>&1 || fail "it is installed without them"
grep -qF "sensor-board-3u5mgxs:armhf depends on libvarnox0 (>= $version)" "$folder/log" ||
    fail "$(cat "$folder/log")"

step "all of them are installed and configured"
install_files "$packages"/*_armhf.deb >"$folder/log" 2>&1 || fail "$(cat "$folder/log")"
for name in "${names[@]}"; do
    [ "$(dpkg-query --root="$root" --show --showformat '${Version} ${Architecture} ${Status}' "$name:armhf")" = \
        "$version armhf install ok installed" ] || fail "$name"
done
[ -z "$(dpkg --root="$root" --verify "${names[@]/%/:armhf}")" ] || fail "files differ"

step "the main job does with them what it does in the build folder, to the byte"
emulator=("$1" -cpu cortex-a9 -L "$root" -E "LD_LIBRARY_PATH=$root/$libraries:$root/lib/arm-linux-gnueabihf")
[ "$("${emulator[@]}" "$root/usr/bin/camhost" --version)" = "camhost $version" ] || fail "camhost --version"
[ "$("${emulator[@]}" "$root/usr/bin/virtual-head" --version)" = "virtual-head $version" ] ||
    fail "virtual-head --version"
main_job "$folder/there" "$root/usr/share/virtual-head" "$root/usr/bin/virtual-head" "$root/usr/bin/camhost" \
    "$root/$libraries/varnox/sensor_board_3u5mgxs.so" "${emulator[@]}"
main_job "$folder/here" "$PWD/data" "$build/bin/virtual-head" "$build/bin/camhost" \
    "$build/lib/sensor_board_3u5mgxs.so" "$@"
for file in output events summary; do
    diff "$folder/here/$file" "$folder/there/$file" || fail "$file differ"
done
grep -qF "[1] Ending capture..." "$folder/there/output" || fail "no capture: $(cat "$folder/there/output")"
grep -qx "  violations: none" "$folder/there/summary" || fail "$(cat "$folder/there/summary")"

step "nothing of them is left when they are purged"
"${as_root[@]}" dpkg --root="$root" --log=/dev/null --purge "${names[@]/%/:armhf}" >"$folder/log" 2>&1 ||
    fail "$(cat "$folder/log")"
files_in_root >"$folder/after"
diff "$folder/before" "$folder/after" || fail "left behind"
