#!/usr/bin/env bash
# Installs those of the named Debian packages that are missing. Silent when none is.
set -euo pipefail

missing=()
for package in "$@"; do
    status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "These packages are missing and only root can install them: ${missing[*]}" >&2
        echo "Run this as root, or install sudo." >&2
        exit 1
    fi
    as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# An index that cannot be had does no harm where the packages are known: the installation tells.
if ! { { "${as_root[@]}" apt-get update -q || true; } &&
    "${as_root[@]}" apt-get install -q -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    exit 1
fi
