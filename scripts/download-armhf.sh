#!/usr/bin/env bash
# Downloads Debian's armhf packages into a folder, where a package has no such version that for every
# processor. Lets apt know of armhf first. Arguments: the folder, names of packages.
set -euo pipefail
folder=$1
shift
"$(dirname "$0")/apt-knows-armhf.sh"
mkdir -p "$folder"
cd "$folder"
# All by one call: apt takes more than a second to know its lists.
mapfile -t ours < <(apt-cache show --no-all-versions "${@/%/:armhf}" 2>/dev/null | sed -n 's/^Package: //p' | sort -u)
wanted=("${ours[@]/%/:armhf}")
for package in "$@"; do
    case " ${ours[*]} " in
    *" $package "*) ;;
    *) wanted+=("$package") ;;
    esac
done
apt-get download -q "${wanted[@]}" >/dev/null 2>errors || { cat errors >&2; exit 1; }
rm -f errors
