#!/usr/bin/env bash
# Fails when docs/porting.md does not name, in the row of its class, an operation that the plug-in takes
# from the platform libraries, or names one that the plug-in's sources do not. Arguments: the plug-in, the
# libraries.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
plugin=$1
shift
document=docs/porting.md
failed=0
complain() {
    echo "$document: $*"
    failed=1
}

# The row of a class: what stands in its second column.
calls_of() {
    awk -F '|' -v name="$1" '$2 ~ "`([A-Za-z]+::)?" name "`" { print $3; found = 1 } END { exit !found }' "$document"
}

taken=$(comm -12 <(nm -D --undefined-only "$plugin" | awk '{ print $NF }' | sort) \
    <(for library in "$@"; do nm -D --defined-only "$library"; done | awk '{ print $3 }' | sort -u) | c++filt)
[ -n "$taken" ] || complain "$plugin takes nothing from $*"

# "Varnox::tcSensorBoard::updateStatusFMT(char const*, ...)" is `updateStatusFMT` of tcSensorBoard.
while read -r symbol; do
    if [[ $symbol == "typeinfo for "* ]]; then
        calls_of "${symbol##*[: ]}" >/dev/null || complain "no row for ${symbol##*[: ]}"
        continue
    fi
    name=${symbol#non-virtual thunk to }
    name=${name%%(*}
    name=${name%%\[abi*}
    operation=${name##*::}
    class=${name%::*}
    class=${class##*::}
    if ! calls=$(calls_of "$class"); then
        complain "no row for $class, of which the plug-in takes $operation"
    elif [ "$operation" = "$class" ]; then
        [[ $calls == *constructor* ]] || complain "the row of $class has no constructor"
    elif [[ $operation != "~$class" && $calls != *"\`$operation\`"* ]]; then
        complain "the row of $class does not name $operation"
    fi
done <<<"$taken"

# What the plug-in inherits it need not name.
taken_names=$(sed 's/(.*//; s/\[abi.*//; s/.*:://' <<<"$taken")
while read -r name; do
    grep -qrwF --include='*.cpp' --include='*.h' -- "$name" plugin sensor fpga common ||
        grep -qxF -- "$name" <<<"$taken_names" || complain "the plug-in does not use $name"
done < <(sed -n '/^| type/,/^$/p' "$document" | awk -F '|' '{ print $3 }' | grep -oE '`[A-Za-z_]+`' | tr -d '`' | sort -u)

# Every header of the libraries that the product includes is one that a stack is told to have.
left_out=$(sed -n '/^Headers by the names/,/^Slots/p' "$document" | grep -oE '(varnox|pellum)/[a-z_]+\.h')
while read -r header; do
    ! grep -qxF -- "$header" <<<"$left_out" || complain "the plug-in includes $header"
done < <(grep -rhoE '#include <(varnox|pellum)/[a-z_0-9]+\.h>' plugin sensor fpga common | grep -oE '(varnox|pellum)/[a-z_0-9]+\.h' | sort -u)

echo "$(wc -l <<<"$taken") symbols of the platform libraries"
exit "$failed"
