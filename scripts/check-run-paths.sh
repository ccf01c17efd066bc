#!/usr/bin/env bash
# Fails when a binary of a folder looks for its libraries in the working directory, where a host keeps its
# settings: an empty element of a run path is that directory, and so is one that is not absolute. Arguments:
# FOLDER...
set -euo pipefail
export LC_ALL=C
binaries=0
failed=0
while IFS= read -r -d '' file; do
    [ "$(head -c 4 "$file" | tail -c 3)" = ELF ] || continue
    dynamic=$(readelf -W --dynamic "$file" 2>/dev/null) || continue
    binaries=$((binaries + 1))
    while IFS= read -r path; do
        while IFS= read -r element; do
            # shellcheck disable=SC2016
            case $element in
            '$ORIGIN' | '$ORIGIN/'* | /*) ;;
            *)
                echo "$file: its run path \"$path\" has the element \"$element\": the loader looks for" \
                    "libraries in the working directory; give every element from \$ORIGIN (cmake/Install.cmake)"
                failed=1
                ;;
            esac
        done < <(tr : '\n' <<<"$path")
    done < <(sed -nE 's/.*\((RUNPATH|RPATH)\).*\[(.*)\]$/\2/p' <<<"$dynamic")
done < <(find "$@" -type f \( -name '*.so*' -o -perm -u+x \) -print0)
[ "$binaries" -gt 0 ] || { echo "no binary in $*"; failed=1; }
echo "$binaries binaries"
exit "$failed"
