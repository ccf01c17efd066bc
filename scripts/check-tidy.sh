#!/usr/bin/env bash
# Static analysis by clang-tidy of what ships. Argument: a configured build folder. With a commit in
# HEAD_CHANGED_SINCE: of what changed since then.
set -euo pipefail
cd "$(dirname "$0")/.."
sources=$(scripts/shipped-sources.sh)
if [ -z "$sources" ]; then
    echo "nothing that ships changed"
    exit 0
fi
# Long files first, so that no processor waits for the last one.
xargs wc -c <<<"$sources" | awk '$2 != "total"' | sort -rn | awk '{ print $2 }' |
    xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p "$1" --warnings-as-errors='*' 2>/dev/null
echo "$(wc -l <<<"$sources") files"
