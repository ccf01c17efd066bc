#!/usr/bin/env bash
# Makes the Debian packages of a build and looks at them: lintian, control data, files.
# Arguments: build folder, folder for the packages (made anew), camhost with its emulator before it.
set -euo pipefail
cd "$(dirname "$0")/../.."
export LC_ALL=C
build=$1
packages=$2
shift 2
version=$("$@" --version | sed 's/^camhost //')
source tests/install/names.sh

failed=0
expect() { # WHAT GIVEN EXPECTED
    if [ "$2" != "$3" ]; then
        printf '%s:\n  %s\nexpected:\n  %s\n' "$1" "${2//$'\n'/$'\n  '}" "${3//$'\n'/$'\n  '}"
        failed=1
    fi
}
architecture_of() { # PACKAGE
    case " ${names_for_all[*]} " in
    *" $1 "*) echo all ;;
    *) echo "$architecture" ;;
    esac
}
archive_of() { # PACKAGE
    echo "$packages/${1}_${version}_$(architecture_of "$1").deb"
}
field() { # PACKAGE FIELD
    dpkg-deb --field "$(archive_of "$1")" "$2"
}
control_file() { # PACKAGE FILE
    dpkg-deb --info "$(archive_of "$1")" "$2"
}

# By a user who lets nobody else read what he makes: the packages' files are for everybody all the same.
make_packages() ( # FOLDER
    log=$1/cpack.log
    umask 077
    rm -rf "$1"
    mkdir -p "$1"
    cpack --config "$build/CPackConfig.cmake" -B "$1" >"$log" 2>&1 || {
        cat "$log"
        exit 1
    }
    rm -rf "$1/_CPack_Packages"
)
export SOURCE_DATE_EPOCH=1767323045 # 2 January 2026, 03:04:05
make_packages "$packages"
architecture=$(dpkg-deb --field "$(find "$packages" -name 'libvarnox0_*.deb')" Architecture)

expect "packages" "$(cd "$packages" && ls ./*.deb)" "$(for name in "${names[@]}"; do echo "./$(basename "$(archive_of "$name")")"; done | sort)"
# What lintian only supposes is not asked for: errors and warnings.
as_root=()
[ "$(id -u)" -ne 0 ] || as_root=(--allow-root)
lintian "${as_root[@]}" --fail-on error,warning "$packages"/*.deb

for name in "${names[@]}"; do
    expect "version of $name" "$(field "$name" Version)" "$version"
    expect "architecture of $name" "$(field "$name" Architecture)" "$(architecture_of "$name")"
    expect "source of $name" "$(field "$name" Source)" sensor-board-3u5mgxs
done

# Each minimal version is that of the newest symbol that a program uses.
case $architecture in
amd64)
    triplet=x86_64-linux-gnu
    plugin="libc6 (>= 2.32), libgcc-s1 (>= 3.0), libinireader0 (>= 48), libstdc++6 (>= 11), libvarnox0 (>= $version)"
    runtime='libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 5.2)'
    head='libc6 (>= 2.34), libgcc-s1 (>= 3.4), libinih1 (>= 40), libpng16-16 (>= 1.6.2-1), libstdc++6 (>= 11)'
    tools="libc6 (>= 2.34), libedit2 (>= 3.1-20140620-0), libgcc-s1 (>= 3.0), libinih1 (>= 40), libmicrohttpd12 (>= 0.9.50), libstdc++6 (>= 11), libvarnox0 (>= $version), libvirtual-head0 (= $version)"
    ;;
armhf)
    triplet=arm-linux-gnueabihf
    plugin="libc6 (>= 2.32), libgcc-s1 (>= 3.5), libinireader0 (>= 48), libstdc++6 (>= 11), libvarnox0 (>= $version)"
    runtime='libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 5.2)'
    head='libc6 (>= 2.34), libgcc-s1 (>= 3.5), libinih1 (>= 40), libpng16-16 (>= 1.6.2-1), libstdc++6 (>= 11)'
    tools="libc6 (>= 2.34), libedit2 (>= 3.1-20140620-0), libgcc-s1 (>= 3.5), libinih1 (>= 40), libmicrohttpd12 (>= 0.9.50), libstdc++6 (>= 11), libvarnox0 (>= $version), libvirtual-head0 (= $version)"
    ;;
*)
    echo "The dependencies for $architecture are not written down here." >&2
    exit 1
    ;;
esac
# What lintian knows of hardened programs is no error to it. The virtual head stands in for the very functions
# whose calls would be checked.
expect "hardening" "$(lintian "${as_root[@]}" --display-info --tags \
    hardening-no-bindnow,hardening-no-fortify-functions,hardening-no-pie,hardening-no-relro "$packages"/*.deb)" \
    "I: libvirtual-head0: hardening-no-fortify-functions [usr/lib/$triplet/libvirtual_head.so.$version]"
expect "plug-in: Depends" "$(field sensor-board-3u5mgxs Depends)" "$plugin"
expect "libraries: Depends" "$(field libvarnox0 Depends)" "$runtime"
expect "SDK: Depends" "$(field libvarnox-dev Depends)" "libvarnox0 (= $version)"
expect "virtual head: Depends" "$(field libvirtual-head0 Depends)" "$head"
expect "virtual head's SDK: Depends" "$(field libvirtual-head-dev Depends)" "libvirtual-head0 (= $version)"
expect "decoders: Depends" "$(field camera-head-decoders Depends)" libsigrokdecode4
expect "decoders: Recommends" "$(field camera-head-decoders Recommends)" "sigrok-cli | pulseview"
expect "tools: Depends" "$(field camera-head-tools Depends)" "$tools"
expect "tools: Recommends" "$(field camera-head-tools Recommends)" sensor-board-3u5mgxs
expect "benches: Depends" "$(field python3-virtual-head Depends)" "python3 (>= 3.11)"
expect "benches: Recommends" "$(field python3-virtual-head Recommends)" "camera-head-tools (= $version), python3-pytest"
expect "sections" "$(for name in "${names[@]}"; do field "$name" Section; done)" $'misc\nlibs\nlibdevel\nlibs\nlibdevel\nutils\nelectronics\ndoc\npython'
expect "summaries" "$(for name in "${names[@]}"; do field "$name" Description | sed -n 1p; done)" \
    'sensor-board plug-in for the 3U5MGXS image sensor
host and board-support library of a camera stack
host and board-support library of a camera stack, development files
virtual camera head for tests
virtual camera head for tests, development files
camera host for the command line, and a virtual camera head
camera head with a 3U5MGXS sensor, protocol decoders for sigrok
camera heads, their host libraries and the virtual head, API pages
virtual camera head for test benches in Python'
expect "shlibs" "$(control_file libvarnox0 shlibs)" \
    "libvarnox 0 libvarnox0 (>= $version)"$'\n'"libpellum 0 libvarnox0 (>= $version)"
expect "shlibs of the virtual head" "$(control_file libvirtual-head0 shlibs)" "libvirtual_head 0 libvirtual-head0 (= $version)"
for name in libvarnox0 libvirtual-head0; do
    expect "triggers of $name" "$(control_file "$name" triggers)" "activate-noawait ldconfig"
done
scripts_of() { # PACKAGE
    local script
    for script in preinst postinst prerm postrm; do
        ! control_file "$1" "$script" >/dev/null 2>&1 || echo "$1 $script"
    done
}
# For Python's byte code; nothing else needs one.
expect "scripts" "$(for name in "${names[@]}"; do scripts_of "$name"; done)" \
    $'python3-virtual-head postinst\npython3-virtual-head prerm'

expected_files() {
    sed "/^#/d; s/TRIPLET/$triplet/; s/VERSION/$version/" tests/install/package-files.txt
    find platform/*/include -name '*.h' | sed 's|^platform/[a-z]*/|libvarnox-dev /usr/|'
    (cd "$build/api" && find html -type f) | sed 's|^|camera-head-doc /usr/share/doc/camera-head-doc/|'
    find data -type f | sed 's|^data|camera-head-tools /usr/share/virtual-head|'
}
given_files() {
    local name
    for name in "${names[@]}"; do
        dpkg-deb --fsys-tarfile "$(archive_of "$name")" | tar --list |
            sed "/\/$/d; s|^\.|$name |"
    done
}
expect "files" "$(diff <(expected_files | sort) <(given_files | sort))" ""

# A change log with a release in it, and one that says what no package could.
changelog=$(mktemp)
trap 'rm -f "$changelog"' EXIT
cat >"$changelog" <<'END'
# Changelog

What changed.

## [0.2.0] - unreleased

### Added

- An item that goes on
  in a second line, and is longer than a line of a Debian change log may be.

## [0.1.0] - 2027-01-31

### Fixed

- One.
- Two.
END
expect "change log" "$(scripts/debian-changelog.sh "$changelog" source 'Name <name@host.example>')" \
    'source (0.2.0) UNRELEASED; urgency=medium

  [ Added ]
  * An item that goes on in a second line, and is longer than a line of a
    Debian change log may be.

 -- Name <name@host.example>  Fri, 02 Jan 2026 03:04:05 +0000

source (0.1.0) stable; urgency=medium

  [ Fixed ]
  * One.
  * Two.

 -- Name <name@host.example>  Sun, 31 Jan 2027 00:00:00 +0000'
echo 'Neither heading nor item' >>"$changelog"
! scripts/debian-changelog.sh "$changelog" source 'Name <name@host.example>' >/dev/null 2>&1 ||
    expect "a line that is neither heading nor item" "taken" "refused"

# The same date gives the same bytes, a second later and in another folder.
make_packages "$packages/again"
for archive in "$packages"/*.deb; do
    cmp "$archive" "$packages/again/${archive##*/}" || failed=1
done
rm -rf "$packages/again"

# For every user, and for root alone to change.
modes() {
    dpkg-deb --contents "$1" | awk '{ print $1, $2 }' | sort -u
}
for archive in "$packages"/*.deb; do
    expect "modes in $archive" "$(modes "$archive" |
        grep -vxE '(-rw-r--r--|-rwxr-xr-x|drwxr-xr-x|lrwxrwxrwx) root/root' || true)" ""
done
exit "$failed"
