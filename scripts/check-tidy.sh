#!/usr/bin/env bash
# Static analysis by clang-tidy of everything that ships. Argument: a configured build folder. Left
# out: code for the target's processor. With a commit in HEAD_CHANGED_SINCE: of the files alone that changed
# since then, or that include by name what changed.
set -euo pipefail
cd "$(dirname "$0")/.."
sources() {
    bash scripts/sources.sh | grep -E '^(common|sensor|fpga|plugin|platform|sim|apps)/.*\.cpp$' | grep -vE '_arm\.cpp$'
}
chosen=$(sources)
if [ -n "${HEAD_CHANGED_SINCE:-}" ]; then
    changed=$({ git diff --name-only "$HEAD_CHANGED_SINCE"; git ls-files --others --exclude-standard; } | sort -u)
    # Other settings may find something anywhere.
    if ! grep -qx '\.clang-tidy' <<<"$changed"; then
        chosen=$({ comm -12 <(sort <<<"$changed") <(sort <<<"$chosen")
            while read -r header; do
                # As sources name it: from the repository, or from an include folder.
                grep -lF "\"$header\"" $chosen || true
                grep -lF "<${header#*/include/}>" $chosen || true
            done < <(grep -E '\.h$' <<<"$changed"); } | sort -u)
    fi
fi
if [ -z "$chosen" ]; then
    echo "nothing that ships changed"
    exit 0
fi
# Long files first, so that no processor waits for the last one.
xargs wc -c <<<"$chosen" | grep -v ' total$' | sort -rn | awk '{ print $2 }' |
    xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p "$1" --warnings-as-errors='*' 2>/dev/null
echo "$(wc -l <<<"$chosen") files"
