#!/usr/bin/env bash
# Fails when a source is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/sources.sh | xargs clang-format --dry-run --Werror
