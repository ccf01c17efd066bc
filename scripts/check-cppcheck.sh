#!/usr/bin/env bash
# Static analysis by cppcheck. Argument: a configured build folder. Test files, and what CMake makes of them in the
# build folder, are left out. With a commit in HEAD_CHANGED_SINCE: of what changed since then.
set -euo pipefail
cd "$(dirname "$0")/.."
filters=()
if [ -n "${HEAD_CHANGED_SINCE:-}" ]; then
    while read -r source; do
        [ -z "$source" ] || filters+=("--file-filter=$PWD/$source")
    done < <(scripts/shipped-sources.sh)
    if [ ${#filters[@]} -eq 0 ]; then
        echo "nothing that ships changed"
        exit 0
    fi
fi
cppcheck --quiet --project="$1/compile_commands.json" --enable=warning,performance,portability \
    --inline-suppr --suppress='*:*/gtest/*' --suppress='*:/usr/*' --suppress=internalAstError \
    --suppress='*:*/tests/*' --suppress='*:tests/*' --error-exitcode=1 -i "$PWD/tests" -i "$(realpath "$1")" \
    "${filters[@]}" -j "$(nproc)"
