#!/usr/bin/env bash
# Installs the packages on a Debian with nothing on it but what they ask for, and does the main job
# there. That Debian is a folder of the machine's own packages: the essential ones, and those that the
# new ones depend on, file by file, with their entries in dpkg's database. Nothing is downloaded and
# nothing forced: dpkg checks, unpacks, configures and removes as ever.
#
# Needs root: the user's own, that of a user namespace, or sudo's. Ends with 77 where there is none.
# Arguments: folder with the packages, build folder to compare the main job with.
set -euo pipefail
cd "$(dirname "$0")/../.."
export LC_ALL=C
source tests/install/root.sh
source_folder=$PWD
packages=$1
build=$2
make_root

inside() { # COMMAND...: runs it in the clean Debian
    # Not everybody may mount /proc, by which the loader sees in which folder a program lies. Python's own modules are
    # not compiled here, and are not to be by who uses them.
    "${as_root[@]}" env -i LD_ORIGIN_PATH=/usr/bin PYTHONDONTWRITEBYTECODE=1 LC_ALL=C PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive \
        chroot "$root" "$@"
}

architecture=$(dpkg --print-architecture)

# The packages that the root is made of, as dpkg's database calls them.
bare_debian() {
    local names
    names=$({
        dpkg-query --show --showformat '${Essential} ${Package}\n' | sed -n 's/^yes //p'
        for archive in "$packages"/*.deb; do dpkg-deb --field "$archive" Depends; done |
            tr ',' '\n' | sed 's/^ *//; s/[ (].*//' | grep -vxE "libvarnox0|libvirtual-head0"
    } | sort -u | xargs apt-cache depends --recurse --installed --no-recommends --no-suggests \
        --no-conflicts --no-breaks --no-replaces --no-enhances | grep '^[a-z0-9]' | sort -u)
    dpkg-query --show --showformat '${Package} ${Architecture} ${binary:Package} ${db:Status-Status}\n' |
        awk -v architecture="$architecture" -v names="$names" '
            BEGIN { split(names, list, "\n"); for (i in list) wanted[list[i]] = 1 }
            ($2 == architecture || $2 == "all") && $4 == "installed" && $1 in wanted { print $3 }'
}
# What a machine was told to leave out, documents for instance, is missing in the root as well. The
# links that join /bin, /lib and /sbin with /usr are no package's.
files_of() { # PACKAGE...
    local path
    dpkg-query --listfiles "$@" | grep '^/.' | sort -u | while IFS= read -r path; do
        if [ -L "$path" ] || [ -e "$path" ]; then
            case $path in
            /bin | /sbin | /lib | /lib32 | /lib64 | /libx32) ;;
            *) echo ".$path" ;;
            esac
        fi
    done
}
lay_out() { # PACKAGE...
    local database=$root/var/lib/dpkg link package
    mkdir -p "$root/usr" "$root/dev"
    for link in bin sbin lib lib32 lib64 libx32; do
        [ ! -e "/$link" ] || { mkdir -p "$root/usr/$link" && ln -s "usr/$link" "$root/$link"; }
    done
    files_of "$@" >"$folder/files"
    tar --create --directory / --no-recursion --files-from "$folder/files" --ignore-failed-read |
        "${as_root[@]}" tar --extract --directory "$root" --no-same-owner --keep-directory-symlink
    # What the packages' scripts made when they were configured, as far as anything here needs it.
    cp /usr/share/base-passwd/passwd.master "$root/etc/passwd"
    cp /usr/share/base-passwd/group.master "$root/etc/group"
    : >"$root/dev/null"
    mkdir -p "$database/info" "$database/updates" "$database/triggers"
    dpkg-query --status "$@" >"$database/status"
    cp /var/lib/dpkg/info/format "$database/info"
    for package in "$@"; do
        cp "/var/lib/dpkg/info/$package".* "$database/info"
    done
    # dpkg finds out who waits for what, and whoever waits looks once.
    inside dpkg --configure --pending >/dev/null
    inside ldconfig
}
files_in_root() { # but for dpkg's own books
    (cd "$root" && "${as_root[@]}" find . -not -path './var/lib/dpkg/*' -not -name dpkg.log \
        -not -path './var/cache/ldconfig/*' | sort)
}
main_job() { # DATA-FOLDER RESULT-FOLDER LAUNCHER CAMHOST PLUG-IN [COMMAND...]: the command runs it
    local data=$1 results=$2 launcher=$3 camhost=$4 plugin=$5
    shift 5
    "$@" "$launcher" --scenario "$data/scenarios/healthy.ini" --workdir "$data" --log "$results/events" \
        --summary "$results/summary" -- "$camhost" --plugin "$plugin" --spi /dev/spidev1.0 \
        --echo "$data/main-job.camhost"
}

step "a Debian with what the packages depend on, and nothing else"
mapfile -t bare < <(bare_debian)
lay_out "${bare[@]}"
[ -z "$(inside dpkg --audit)" ] || fail "dpkg finds the bare Debian incomplete: $(inside dpkg --audit)"
! inside sh -c 'command -v gcc || command -v camhost || command -v virtual-head' || fail "not bare"
files_in_root >"$folder/before"
echo "${#bare[@]} packages, $(wc -l <"$folder/before") files and folders"
"${as_root[@]}" cp -t "$root/tmp" "$packages"/*.deb

step "dpkg refuses the plug-in without the libraries"
version=$(dpkg-deb --field "$packages"/libvarnox0_*.deb Version)
plugin_package=/tmp/sensor-board-3u5mgxs_${version}_$architecture.deb
! inside dpkg --install "$plugin_package" >"$folder/log" 2>&1 || fail "it is installed without them"
grep -qF "sensor-board-3u5mgxs depends on libvarnox0 (>= $version)" "$folder/log" || fail "$(cat "$folder/log")"
inside dpkg --purge sensor-board-3u5mgxs >/dev/null 2>&1

step "all of them are installed and configured"
inside sh -c 'dpkg --install /tmp/*.deb' >"$folder/log" 2>&1 || fail "$(cat "$folder/log")"
for name in "${names[@]}"; do
    [ "$(inside dpkg-query --show --showformat '${Version} ${Status}' "$name")" = "$version install ok installed" ] ||
        fail "$name is $(inside dpkg-query --status "$name")"
done
[ -z "$(inside dpkg --audit)" ] || fail "dpkg finds it incomplete: $(inside dpkg --audit)"
[ -z "$(inside dpkg --verify "${names[@]}")" ] || fail "changed: $(inside dpkg --verify "${names[@]}")"
libraries=$(inside sh -c 'dirname "$(dpkg --listfiles libvarnox0 | grep "/libvarnox\.so\.0$")"')
for library in libvarnox.so.0 libpellum.so.0 libvirtual_head.so.0; do
    grep -qF "$library (libc6,x86-64) => /" <<<"$(inside ldconfig -p)" || fail "ldconfig was not told of $library"
done

step "the programs say which version they are"
[ "$(inside camhost --version)" = "camhost $version" ] || fail "camhost: $(inside camhost --version)"
[ "$(inside virtual-head --version)" = "virtual-head $version" ] || fail "virtual-head: $(inside virtual-head --version)"

step "the main job does there what it does in the build folder, to the byte"
plugin=$libraries/varnox/sensor_board_3u5mgxs.so
mkdir "$folder/there" "$folder/here"
main_job /usr/share/virtual-head /tmp virtual-head camhost "$plugin" inside \
    >"$folder/there/output" 2>"$folder/there/errors" || fail "$(cat "$folder/there/"*)"
cp -t "$folder/there" "$root/tmp/events" "$root/tmp/summary"
main_job "$source_folder/data" "$folder/here" "$build/bin/virtual-head" "$build/bin/camhost" \
    "$build/lib/sensor_board_3u5mgxs.so" >"$folder/here/output" 2>"$folder/here/errors" ||
    fail "in the build folder: $(cat "$folder/here/"*)"
sed -i "s|^camhost: $build/lib/|camhost: ${plugin%/*}/|" "$folder/here/output"
for file in output errors events summary; do
    diff "$folder/here/$file" "$folder/there/$file" || fail "$file differ"
done
grep -qF "[1] Ending capture..." "$folder/there/output" || fail "no capture: $(cat "$folder/there/output")"
grep -qx "  violations: none" "$folder/there/summary" || fail "$(cat "$folder/there/summary")"
echo "$(cat "$folder/there/"* | wc -l) lines"

step "a bench in Python drives the installed programs"
modules=/usr/lib/python3/dist-packages/virtual_head
[ -n "$(inside find "$modules" -name '__init__.*.pyc')" ] || fail "the package's modules are not compiled"
# By the plug-in's path: without /proc camhost does not know where it lies itself.
inside python3 - "$plugin" >"$folder/log" 2>/dev/null <<'END' || fail "the bench says: $(cat "$folder/log")"
import sys

import virtual_head

with virtual_head.Camhost.start(plugin=sys.argv[1], spi="/dev/spidev1.0") as camhost:
    camhost.run("init")
    print(virtual_head.__file__, camhost.run("exposure 20004")["applied"])
    with camhost.head.fault("lanes 3 lost"):
        camhost.run("start")
        camhost.run("wait 100")
        print(camhost.head.state().link.aligned)
END
[ "$(cat "$folder/log")" = "$modules/__init__.py 20000"$'\n'"False" ] || fail "the bench says: $(cat "$folder/log")"

step "nothing of them is left when they are purged"
"${as_root[@]}" rm -rf "$root/tmp/"*
inside dpkg --purge "${names[@]}" >"$folder/log" 2>&1 || fail "$(cat "$folder/log")"
files_in_root >"$folder/after"
diff "$folder/before" "$folder/after" || fail "left behind"
for name in "${names[@]}"; do
    ! inside dpkg-query --status "$name" >/dev/null 2>&1 || fail "dpkg still knows $name"
done
! grep -E 'libvarnox|libpellum|libvirtual_head' <<<"$(inside ldconfig -p)" || fail "ldconfig still knows the libraries"
