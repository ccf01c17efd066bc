#!/usr/bin/env bash
# Lives lives by chance and lets the second model predict each. Arguments: the program, lives, operations
# each. The program's emulator is in EMULATOR, the seed in HEAD_SEED.
set -euo pipefail
program=$(realpath "$1") lives=$2 operations=$3
model=$(cd "$(dirname "$0")" && pwd)/board_model.py
seed=${HEAD_SEED:-1}
read -ra emulator <<<"${EMULATOR:-}"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
"${emulator[@]}" "$program" "$seed" "$lives" "$operations" | "$model" "seed $seed"
