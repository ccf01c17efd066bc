#!/usr/bin/env bash
# Prints CHANGELOG.md as the change log of a Debian package. What is not released yet gets the
# distribution UNRELEASED and, for its date, that of SOURCE_DATE_EPOCH, or today.
# Arguments: the file, the source package, its maintainer.
set -euo pipefail
file=$1
package=$2
maintainer=$3

date_of() { # RELEASE-DATE or "unreleased"
    local seconds=${SOURCE_DATE_EPOCH:-$(date +%s)}
    [ "$1" = unreleased ] || seconds=$(date -u -d "$1" +%s)
    LC_ALL=C date -u -R -d "@$seconds"
}
end_item() {
    [ -z "$item" ] || fold -s -w 74 <<<"$item" | sed 's/ *$//; 1s/^/  * /; 1!s/^/    /'
    item=
}
end_entry() {
    end_item
    [ -z "$released" ] || printf '\n -- %s  %s\n\n' "$maintainer" "$(date_of "$released")"
}

released=
item=
while IFS= read -r line; do
    if [[ $line =~ ^'## ['([^]]+)'] - '(.+)$ ]]; then
        end_entry
        released=${BASH_REMATCH[2]}
        distribution=stable
        [ "$released" != unreleased ] || distribution=UNRELEASED
        printf '%s (%s) %s; urgency=medium\n\n' "$package" "${BASH_REMATCH[1]}" "$distribution"
    elif [ -z "$released" ]; then
        continue # the file's own introduction
    elif [[ $line =~ ^'### '(.+)$ ]]; then
        end_item
        printf '  [ %s ]\n' "${BASH_REMATCH[1]}"
    elif [[ $line =~ ^'- '(.+)$ ]]; then
        end_item
        item=${BASH_REMATCH[1]}
    elif [[ $line =~ ^'  '(.+)$ ]]; then
        item+=" ${BASH_REMATCH[1]}"
    elif [ -n "$line" ]; then
        echo "$file: neither a heading nor an item: $line" >&2
        exit 1
    fi
done <"$file"
[ -n "$released" ] || {
    echo "$file: no version" >&2
    exit 1
}
end_entry
