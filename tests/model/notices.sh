#!/usr/bin/env bash
# Changes one line of a trace that the second model predicts, at many places, and expects it to notice
# each time: a lost frame, another byte, level, pause, word, line or result. Arguments: the program.
set -euo pipefail
program=$(realpath "$1")
model=$(cd "$(dirname "$0")" && pwd)/board_model.py
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
"$program" 7 3 60 >trace
"$model" untouched <trace

tried=0
# Changes the first, the middle and the last line that match, each alone. Arguments: what it is, which
# lines, the change as a sed command.
change() {
    local lines number
    mapfile -t lines < <(grep -nE "$2" trace | cut -d: -f1)
    [ "${#lines[@]}" -ge 3 ] || { echo "only ${#lines[@]} lines for $1" >&2; exit 1; }
    for number in "${lines[0]}" "${lines[${#lines[@]} / 2]}" "${lines[-1]}"; do
        sed -E "${number}{$3;}" trace >changed
        if cmp -s trace changed; then
            echo "line $number: $1 changed nothing" >&2
            exit 1
        fi
        if "$model" changed <changed >said; then
            echo "line $number: $1 was not noticed:" >&2
            sed -n "${number}p" trace changed >&2
            exit 1
        fi
        tried=$((tried + 1))
    done
}
change "a frame of another address" '\] SPI [0-9A-F]{2} .*[0-9A-E]$' 's/.$/F/'
change "a frame of another value" '\] SPI [0-8]' 's/\] SPI ./] SPI 9/'
change "a lost frame" '\] SPI [0-9A-F]{2} ' d
change "another store" '\] WRITE ' 's/(WRITE [^ ]+ 0x).*/\112345678/'
change "a lost store" '\] WRITE ' d
change "a lost load" '\] READ ' d
change "another level" '\] GPIO .* = 0' 's/= 0/= 1/'
change "a longer pause" '\] SLEEP ' 's/ ns/0 ns/'
change "another word" '\] NOTE WORD ' 's/$/1/'
change "another status line" '\] NOTE STATUS ' 's/STATUS /STATUS 1/'
change "another line of output" '\] NOTE OUT ' 's/OUT /OUT  /'
change "another base of standard output" '\] NOTE BASE now ' 's/now (hex|oct|dec)/now bin/'
change "another result" '\] NOTE [a-zA-Z]+.* -> ' 's/ -> /&1/'
echo "$tried changes noticed"
