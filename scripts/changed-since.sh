#!/usr/bin/env bash
# Prints the commit that the working tree's changes are counted from: where this branch left the main one, or
# HEAD where it has not, or where there is no main branch.
set -euo pipefail
cd "$(dirname "$0")/.."
for main in main origin/main; do
    if base=$(git merge-base HEAD "$main" 2>/dev/null); then
        echo "$base"
        exit 0
    fi
done
git rev-parse HEAD
