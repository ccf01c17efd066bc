#!/usr/bin/env bash
# Lists the sources of what ships, one a line, but code for the target's processor. With a commit in
# HEAD_CHANGED_SINCE: those that changed since then, or that include by name a header that did.
set -euo pipefail
cd "$(dirname "$0")/.."
sources=$(bash scripts/sources.sh | grep -E '^(common|sensor|fpga|plugin|platform|sim|apps)/.*\.cpp$' |
    grep -vE '_arm\.cpp$')
if [ -z "${HEAD_CHANGED_SINCE:-}" ]; then
    echo "$sources"
    exit 0
fi
changed=$({ git diff --name-only "$HEAD_CHANGED_SINCE"; git ls-files --others --exclude-standard; } | LC_ALL=C sort -u)
{
    comm -12 <(LC_ALL=C sort <<<"$changed") <(LC_ALL=C sort <<<"$sources")
    while read -r header; do
        # As sources name it: from the repository, or from an include folder.
        grep -lF "\"$header\"" $sources || true
        grep -lF "<${header##*/include/}>" $sources || true
    done < <(grep -E '\.h$' <<<"$changed")
} | sort -u
