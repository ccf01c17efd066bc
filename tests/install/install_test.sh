#!/usr/bin/env bash
# Installs the build into an empty folder and does with it what one does with an installation: the main
# job, a program on the SDK by pkg-config, and the plug-in alone by a stack that has these libraries
# already. Arguments: build folder, version.
set -euo pipefail
cd "$(dirname "$0")/../.."
source_folder=$PWD
build=$1
version=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
root=$folder/root

step() { echo "== $*"; }
fail() {
    echo "FAILED: $*" >&2
    exit 1
}
expect_lines() { # DESCRIPTION TEXT LINE...: each line is part of the text
    local description=$1 text=$2 line
    shift 2
    for line in "$@"; do
        grep -qF -- "$line" <<<"$text" || fail "$description does not say \"$line\" but: $text"
    done
}
main_job() { # PLUG-IN
    "$root/bin/virtual-head" --scenario "$root/share/virtual-head/scenarios/healthy.ini" \
        --workdir "$root/share/virtual-head" -- "$root/bin/camhost" --plugin "$1" \
        --spi /dev/spidev1.0 --echo "$root/share/virtual-head/main-job.camhost" 2>&1
}

step "each component holds what it should"
for component in plugin runtime sdk head headsdk tools decoders python; do
    cmake --install "$build" --prefix "$root" --component "$component" >"$folder/$component.log"
    sed -n "s|^-- Installing: $root/||p; s|^-- Up-to-date: $root/||p" "$folder/$component.log" >"$folder/$component"
done
library_folder=$(dirname "$(grep 'libvarnox\.so\.0$' "$folder/runtime")")
plugin_files=$(printf "$library_folder/varnox/sensor_board_3u5mgxs%s\n" .failures.json .registers.json .settings.json .so)
[ "$(grep -v '^lib/udev/' "$folder/plugin" | sort)" = "$plugin_files" ] || fail "plug-in: $(cat "$folder/plugin")"
grep -qxF lib/udev/rules.d/60-camera-head.rules "$folder/plugin" || fail "the plug-in lacks its rules for udev"
[ "$(sort "$folder/runtime")" = "$(printf "$library_folder/%s\n" libpellum.so.0 "libpellum.so.$version" \
    libvarnox.so.0 "libvarnox.so.$version")" ] || fail "runtime: $(cat "$folder/runtime")"
for file in bin/camhost bin/virtual-head share/man/man1/camhost.1 \
    share/man/man1/virtual-head.1 share/bash-completion/completions/camhost \
    share/bash-completion/completions/virtual-head share/virtual-head/main-job.camhost; do
    grep -qxF "$file" "$folder/tools" || fail "tools lack $file"
done
[ "$(sort "$folder/head")" = "$(printf "$library_folder/%s\n" libvirtual_head.so.0 "libvirtual_head.so.$version")" ] ||
    fail "virtual head: $(cat "$folder/head")"
decoder_files=$(printf 'share/libsigrokdecode/decoders/%s\n' {monitor,sensor}_3u5mgxs/{__init__.py,pd.py,sensor_board_3u5mgxs.registers.json})
[ "$(sort "$folder/decoders")" = "$(sort <<<"$decoder_files")" ] || fail "decoders: $(cat "$folder/decoders")"
for file in include/virtual-head/sim/virtual_head.h "$library_folder/libvirtual_head.so" \
    "$library_folder/pkgconfig/virtual-head.pc" "$library_folder/cmake/VirtualHead/VirtualHeadConfig.cmake"; do
    grep -qxF "$file" "$folder/headsdk" || fail "the virtual head's SDK lacks $file"
done
for library in varnox pellum; do
    for file in "$library_folder/lib$library.so" "$library_folder/pkgconfig/$library.pc" \
        "$library_folder/cmake/$library/${library}Config.cmake" \
        "$library_folder/cmake/$library/${library}ConfigVersion.cmake"; do
        grep -qxF "$file" "$folder/sdk" || fail "the SDK lacks $file"
    done
    headers=$(cd "platform/$library/include" && find "$library" -name '*.h' | sort)
    installed=$(sed -n "s|^include/||p" "$folder/sdk" | grep "^$library/" | sort)
    [ "$headers" = "$installed" ] || fail "headers of $library: $installed"
done

step "nothing looks for its libraries in the working directory"
scripts/check-run-paths.sh "$root" >"$folder/run-paths" || fail "$(cat "$folder/run-paths")"

step "the main job runs from the installed files"
output=$(main_job "$root/$library_folder/varnox/sensor_board_3u5mgxs.so") || fail "main job: $output"
expect_lines "main job" "$output" "serves sensor type 7" "init: result 0: success" "[1] Ending capture..." \
    "violations: none"

step "pytest finds the fixtures by itself, and a bench the installed programs"
python_folder=$root/lib/python3/dist-packages
grep -qx "Version: $version" "$python_folder/virtual_head-$version.dist-info/METADATA" || fail "another version of the Python package"
PATH=$root/bin:$PATH PYTHONPATH=$python_folder CAMHOST_PLUGIN=$root/$library_folder/varnox/sensor_board_3u5mgxs.so \
    /usr/bin/python3 -B -m pytest -q -p no:cacheprovider --rootdir "$root/share/doc" -k 'supplies or dead_lane' \
    "$root/share/doc/python3-virtual-head/examples/python-bench" >"$folder/log" 2>&1 || fail "the bench: $(cat "$folder/log")"
grep -q '^2 passed' "$folder/log" || fail "the bench: $(cat "$folder/log")"

step "pkg-config leads a program to the SDK"
mkdir "$folder/program"
cat >"$folder/program/main.cpp" <<'END'
#include <iostream>
#include <pellum/gpio.h>
#include <varnox/roi.h>
int main() {
    std::cout << (Varnox::ROI{1, 2, 3, 4}).toString() << ' '
              << (Pellum::tcGpio::GetPinFromDTName("no such line") < 0) << std::endl;
}
END
export PKG_CONFIG_PATH=$root/$library_folder/pkgconfig
[ "$(pkg-config --modversion varnox pellum)" = "$version"$'\n'"$version" ] || fail "versions by pkg-config"
read -ra flags <<<"$(pkg-config --cflags --libs varnox pellum)"
"${CXX:-c++}" -std=c++17 "$folder/program/main.cpp" -o "$folder/program/main" "${flags[@]}" \
    "-Wl,-rpath,$root/$library_folder"
expect_lines "program" "$("$folder/program/main")" "[y: 1, x: 2, width: 3, height: 4] 1"

step "CMake finds the version that one asks for, and no other"
cat >"$folder/program/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(program LANGUAGES CXX)
find_package(varnox ${WANTED} REQUIRED)
find_package(pellum ${WANTED} REQUIRED)
add_executable(program main.cpp)
target_link_libraries(program varnox::varnox pellum::pellum)
END
find_and_build() {
    rm -rf "$folder/program/build-$1"
    cmake -G Ninja -S "$folder/program" -B "$folder/program/build-$1" -DCMAKE_PREFIX_PATH="$root" \
        -DWANTED="$1" && cmake --build "$folder/program/build-$1"
}
# The project sets no C++ standard: clang++ begins with an older one than the headers take, g++ does not.
for compiler in g++ clang++; do
    CXX=$compiler find_and_build "${version%.*}" >"$folder/log" 2>&1 || fail "version $version, $compiler: $(cat "$folder/log")"
    expect_lines "program by CMake, $compiler" "$("$folder/program/build-${version%.*}/program")" "[y: 1, x: 2, width: 3, height: 4] 1"
done
! find_and_build 99.0 >"$folder/log" 2>&1 || fail "version 99.0 is found"

step "a stack with these libraries builds the plug-in alone"
cmake -G Ninja -S "$source_folder" -B "$folder/plug-in" -DUSE_BUNDLED_PLATFORM=OFF \
    -DCMAKE_PREFIX_PATH="$root" -DCMAKE_INSTALL_PREFIX=/usr >"$folder/log" 2>&1 &&
    cmake --build "$folder/plug-in" >>"$folder/log" 2>&1 || fail "plug-in alone: $(tail -n 40 "$folder/log")"
grep -qx 'CMAKE_BUILD_TYPE:STRING=RelWithDebInfo' "$folder/plug-in/CMakeCache.txt" || fail "not built as it ships"
[ -z "$(find "$folder/plug-in" -name 'libvarnox*' -o -name 'camhost*')" ] || fail "built more than the plug-in"
output=$(main_job "$folder/plug-in/lib/sensor_board_3u5mgxs.so") || fail "plug-in alone: $output"
expect_lines "plug-in alone" "$output" "serves sensor type 7" "violations: none"
cmake --install "$folder/plug-in" --prefix "$folder/alone" >/dev/null
[ "$(cd "$folder/alone" && find * -type f | sort)" = "$plugin_files" ] ||
    fail "installed beside the plug-in: $(find "$folder/alone" -type f)"
scripts/check-run-paths.sh "$folder/plug-in/lib" "$folder/alone" >"$folder/run-paths" || fail "$(cat "$folder/run-paths")"
