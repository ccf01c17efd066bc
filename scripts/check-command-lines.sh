#!/usr/bin/env bash
# Fails when a program's options, manual page and completion do not name the same options.
# Arguments: the program, its manual page, its completion; the program's emulator in EMULATOR.
set -euo pipefail
cd "$(dirname "$0")/.."
read -ra emulator <<<"${EMULATOR:-}"
options() { grep -oE -- '--[a-z][a-z-]+' | sort -u; }
offered=$("${emulator[@]}" "$1" --help | grep -E '^  -' | options)
described=$(sed 's/\\-/-/g; s/\\fR//g' "$2" | grep -E '^\.(B|BI|BR) -' | options)
completed=$(sed -n '/local options=/,/"$/p' "$3" | options)
failed=0
for list in described completed; do
    if ! difference=$(diff <(echo "$offered") <(echo "${!list}")); then
        echo "$1: options that are offered (<) and $list (>):"
        echo "$difference"
        failed=1
    fi
done
exit "$failed"
