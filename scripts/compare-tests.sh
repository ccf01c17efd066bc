#!/usr/bin/env bash
# Fails when a test that passed in one build did not pass in another and tests/not-emulated.txt does not say
# why, or says so of a test that passed. Arguments: CTest's JUnit results of the build with all tests, and of
# the other one.
set -euo pipefail
cd "$(dirname "$0")/.."
passed() { # RESULTS
    sed -n '/<testcase .*status="run"/s/.*<testcase name="\([^"]*\)".*/\1/p' "$1" | sed 's/  # GetParam.*//' | sort
}
mapfile -t excepted < <(grep -v '^ *\(#\|$\)' tests/not-emulated.txt)
declare -A used=()
left_out=0
failed=0
while read -r name; do
    known=no
    for pattern in "${excepted[@]}"; do
        # shellcheck disable=SC2053
        if [[ $name == $pattern || $name == *[./]$pattern ]]; then
            known=yes
            used[$pattern]=yes
        fi
    done
    if [ "$known" = yes ]; then
        left_out=$((left_out + 1))
    else
        echo "passed in $1, not in $2: $name"
        failed=1
    fi
done < <(comm -23 <(passed "$1") <(passed "$2"))
for pattern in "${excepted[@]}"; do
    if [ -z "${used[$pattern]:-}" ]; then
        echo "tests/not-emulated.txt excepts $pattern, but no test of that name passed in $1 alone"
        failed=1
    fi
done
count=$(passed "$1" | wc -l)
[ "$count" -gt 0 ] || { echo "no test passed in $1"; failed=1; }
echo "$count tests passed in $1, $left_out of them are not for the target (tests/not-emulated.txt)"
exit "$failed"
