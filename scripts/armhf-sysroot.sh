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
    libmicrohttpd-dev libmicrohttpd12 libgnutls30 libp11-kit0 libidn2-0 libunistring2 libtasn1-6 libnettle8
    libhogweed6 libgmp10 libffi8
    i2c-tools libi2c0 spi-tools
    libcli11-dev libasio-dev nlohmann-json3-dev googletest
)
stamp=$folder/.packages
made=$(cksum <"$0")
if [ -e "$stamp" ] && [ "$(cat "$stamp")" = "$made" ]; then
    exit 0
fi
rm -rf "$folder"
"$(dirname "$0")/download-armhf.sh" "$folder/archives" "${packages[@]}"
for archive in "$folder"/archives/*.deb; do
    dpkg-deb --extract "$archive" "$folder"
done
rm -rf "$folder/archives"
# A link from the root leads out of the folder; the linker would take the static library beside it.
find "$folder" -lname '/*' -printf '%p %l\n' | while read -r link target; do
    ln -sfnr "$folder$target" "$link"
done
echo "$made" >"$stamp"
