#!/usr/bin/env bash
# Fails when a test of one build is missing in another and tests/not-emulated.txt does not say why.
# Arguments: the build folder with all tests, the other one.
set -euo pipefail
cd "$(dirname "$0")/.."
names() {
    ctest --test-dir "$1" -N | sed -n 's/^ *Test *#[0-9]*: //p' | sed 's/  # GetParam.*//' | sort
}
mapfile -t excepted < <(grep -v '^ *\(#\|$\)' tests/not-emulated.txt)
missing=0
failed=0
while read -r name; do
    missing=$((missing + 1))
    known=no
    for pattern in "${excepted[@]}"; do
        # shellcheck disable=SC2053
        if [[ $name == $pattern || $name == *[./]$pattern ]]; then
            known=yes
        fi
    done
    if [ "$known" = no ]; then
        echo "not in $2: $name"
        failed=1
    fi
done < <(comm -23 <(names "$1") <(names "$2"))
echo "$(names "$1" | wc -l) tests in $1, $missing of them not on the target (tests/not-emulated.txt)"
exit "$failed"
