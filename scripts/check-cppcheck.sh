#!/usr/bin/env bash
# Static analysis by cppcheck. Argument: a configured build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
cppcheck --quiet --project="$1/compile_commands.json" --enable=warning,performance,portability \
    --inline-suppr --suppress='*:*/gtest/*' --suppress='*:/usr/*' --suppress=internalAstError \
    --suppress='*:*/tests/*' --suppress='*:tests/*' --error-exitcode=1 -i "$PWD/tests" -j "$(nproc)"
