#!/usr/bin/env bash
# Fails when a source of what ships is compiled without the flags that it is to be compiled with.
# Fortification leaves no trace in a program that calls nothing it guards: hence the commands.
# Argument: a configured build folder.
set -euo pipefail
folders='common|sensor|fpga|plugin|platform|apps|sim'
failed=0
sources=0
while read -r command; do
    source=${command##* }
    sources=$((sources + 1))
    wanted=(-O2 -fstack-protector-strong -fPIC -fvisibility=hidden -ffp-contract=off -Werror)
    # The preloaded library stands in for the functions that fortification redirects.
    case $source in
    */sim/*) ;;
    *) wanted+=(-D_FORTIFY_SOURCE=2) ;;
    esac
    for flag in "${wanted[@]}"; do
        case " $command " in
        *" $flag "*) ;;
        *" -fPIE "*) [ "$flag" = -fPIC ] || { echo "$source: compiled without $flag"; failed=1; } ;;
        *)
            echo "$source: compiled without $flag"
            failed=1
            ;;
        esac
    done
done < <(sed -n 's/^ *"command": "\(.*\)",$/\1/p' "$1/compile_commands.json" |
    grep -E " -c [^ ]*/($folders)/[^ ]*$" | grep -v /tests/)
[ "$sources" -gt 50 ] || { echo "only $sources sources found"; failed=1; }
exit "$failed"
