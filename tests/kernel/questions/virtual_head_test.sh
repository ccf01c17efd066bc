#!/usr/bin/env bash
# Asks the virtual head what the kernel was asked: the same answers, to the byte. Arguments: launcher, questions. Their
# emulator is in EMULATOR.
set -euo pipefail
launcher=$1
questions=$2
read -ra emulator <<<"${EMULATOR:-}"
answers=$(dirname "$0")/kernel.txt
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
status=0
"${emulator[@]}" "$launcher" --summary "$folder/summary" -- "${emulator[@]}" "$questions" >"$folder/given" \
    2>"$folder/errors" || status=$?
# 9: rules were broken, as they are meant to be here.
if [ "$status" -ne 9 ]; then
    tail -n 20 "$folder/given" "$folder/errors"
    echo "the questions ended with status $status"
    exit 1
fi
diff "$answers" "$folder/given" || {
    echo "< the kernel, > the virtual head"
    exit 1
}
echo "$(wc -l <"$answers") answers are the kernel's"
