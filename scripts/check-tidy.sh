#!/usr/bin/env bash
# Static analysis by clang-tidy of everything that ships. Argument: a configured build folder. Left
# out: code for the target's processor.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/sources.sh | grep -E '^(common|sensor|fpga|plugin|platform|sim|apps)/.*\.cpp$' |
    grep -vE '_arm\.cpp$' |
    xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p "$1" --warnings-as-errors='*' 2>/dev/null
