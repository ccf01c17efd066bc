#!/usr/bin/env bash
# Makes a folder as if the target's packages that ours depend on were installed in it, with dpkg's
# database: `dpkg --root` installs ours there. Their symbols and shlibs files, from which dpkg-shlibdeps
# works out dependencies, are in its DEBIAN. Argument: the folder. Does nothing when it is up to date.
set -euo pipefail
folder=$1
packages=(
    libc6 libcrypt1 libgcc-s1 gcc-12-base libstdc++6 libinih1 libinireader0
    libedit2 libbsd0 libmd0 libtinfo6 libpng16-16 zlib1g
    libmicrohttpd12 libgnutls30 libp11-kit0 libidn2-0 libunistring2 libtasn1-6 libnettle8 libhogweed6 libgmp10
    libffi8
)
stamp=$folder/.packages
made=$(cksum <"$0")
if [ -e "$stamp" ] && [ "$(cat "$stamp")" = "$made" ]; then
    exit 0
fi
rm -rf "$folder"
"$(dirname "$0")/download-armhf.sh" "$folder/archives" "${packages[@]}"
database=$folder/var/lib/dpkg
mkdir -p "$folder/DEBIAN" "$folder/tmp" "$database/info" "$database/updates" "$database/triggers"
printf '%s\n' "$(dpkg --print-architecture)" armhf >"$database/arch"
echo 1 >"$database/info/format"
for archive in "$folder"/archives/*.deb; do
    dpkg-deb --extract "$archive" "$folder"
    dpkg-deb --control "$archive" "$folder/control"
    name=$(dpkg-deb --field "$archive" Package):armhf
    sed '/^Package:/a Status: install ok installed' "$folder/control/control" >>"$database/status"
    echo >>"$database/status"
    dpkg-deb --fsys-tarfile "$archive" | tar --list | sed 's|^\.||; s|/$||; s|^$|/.|' >"$database/info/$name.list"
    cp "$folder/control/md5sums" "$database/info/$name.md5sums"
    for file in symbols shlibs; do
        [ ! -e "$folder/control/$file" ] || cat "$folder/control/$file" >>"$folder/DEBIAN/$file"
    done
    rm -rf "$folder/control"
done
rm -rf "$folder/archives"
echo "$made" >"$stamp"
