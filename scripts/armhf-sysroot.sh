#!/usr/bin/env bash
# Unpacks the libraries that the target build needs into a folder of its own, from Debian's armhf
# packages. They are not installed: on a machine whose own libraries come from another update of the
# distribution the two architectures' packages would exclude each other.
# Argument: the folder. Does nothing when it is up to date.
set -euo pipefail
folder=$1
packages=(
    libinih-dev libinih1 libinireader0
    libgtest-dev libgmock-dev libbenchmark-dev libbenchmark1debian
    libedit-dev libedit2 libbsd-dev libbsd0 libmd-dev libmd0 libtinfo6 libncurses-dev libncurses6 libncursesw6
    libpng-dev libpng16-16 zlib1g-dev zlib1g
    libcli11-dev libasio-dev nlohmann-json3-dev googletest
)
stamp=$folder/.packages
if [ -e "$stamp" ] && [ "$(cat "$stamp")" = "${packages[*]}" ]; then
    exit 0
fi
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    "${as_root[@]}" dpkg --add-architecture armhf
    "${as_root[@]}" apt-get update -q >/dev/null 2>&1 || true # the downloads tell
elif ! apt-cache show libinih1:armhf >/dev/null 2>&1; then
    "${as_root[@]}" apt-get update -q >/dev/null 2>&1 || true # the downloads tell
fi
rm -rf "$folder"
mkdir -p "$folder/archives"
(
    cd "$folder/archives"
    for package in "${packages[@]}"; do
        apt-get download -q "$package:armhf" >/dev/null 2>&1 || apt-get download -q "$package" >/dev/null
    done
    for archive in *.deb; do
        dpkg-deb --extract "$archive" ..
    done
)
rm -rf "$folder/archives"
echo "${packages[*]}" >"$stamp"
