#!/usr/bin/env bash
# Unpacks Debian's kernel for the target and what its first process runs on, and makes the board's device tree.
# Argument: the folder. Does nothing when it is up to date.
set -euo pipefail
folder=$1
here=$(cd "$(dirname "$0")" && pwd)
scripts=$here/../../scripts
stamp=$folder/.packages
made=$(cat "$0" "$here/device-tree.sh" | cksum)
if [ -e "$stamp" ] && [ "$(cat "$stamp")" = "$made" ]; then
    exit 0
fi
rm -rf "$folder"
mkdir -p "$folder/modules"

# The first download lets apt know of armhf; then it can tell which kernel the newest one is.
"$scripts/download-armhf.sh" "$folder/archives" busybox-static
kernel=$(apt-cache depends linux-image-armmp:armhf | sed -n 's/^ *Depends: \(linux-image-[^:]*\).*/\1/p' | head -n 1)
[ -n "$kernel" ] || {
    echo "apt knows no linux-image-armmp for armhf" >&2
    exit 1
}
"$scripts/download-armhf.sh" "$folder/archives" "$kernel"
for archive in "$folder"/archives/*.deb; do
    dpkg-deb --extract "$archive" "$folder/unpacked"
done

unpacked=$folder/unpacked
cp "$unpacked/bin/busybox" "$folder/busybox"
cp "$unpacked"/boot/vmlinuz-* "$folder/vmlinuz"
for module in gpio-mxc i2c-imx i2c-dev spi-imx imx2_wdt; do
    find "$unpacked/lib/modules" -name "$module.ko" -exec cp {} "$folder/modules/" \;
    [ -e "$folder/modules/$module.ko" ] || {
        echo "$kernel has no module $module" >&2
        exit 1
    }
done
"$here/device-tree.sh" "$(find "$unpacked" -name imx6q-sabrelite.dtb)" "$folder/board.dtb"
echo "$kernel $(dpkg-deb --field "$folder"/archives/linux-image-*.deb Version)" >"$folder/version"
rm -rf "$folder/archives" "$unpacked"
echo "$made" >"$stamp"
