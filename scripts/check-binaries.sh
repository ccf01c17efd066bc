#!/usr/bin/env bash
# Fails when what ships is not hardened, needs another library than it may, exports what it should not,
# runs code when it is loaded, or is too large. Arguments: KIND FILE..., KIND one of plugin, library,
# preload, program. STRIP is the target's strip.
set -euo pipefail
export LC_ALL=C
kind=$1
shift
failed=0
complain() {
    echo "$file: $*"
    failed=1
}

# Largest size of the stripped plug-in's text and data on the target [bytes].
largest_plugin=$((150 * 1024))

check_hardening() {
    local headers dynamic imports
    headers=$(readelf -W --program-headers "$file")
    dynamic=$(readelf -W --dynamic "$file")
    imports=$(readelf -W --dyn-syms "$file" | awk '$7 == "UND" { sub(/@.*/, "", $8); print $8 }')
    grep -q GNU_RELRO <<<"$headers" || complain "no RELRO"
    grep -qE '\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW|\(BIND_NOW\)' <<<"$dynamic" || complain "symbols are bound lazily"
    ! grep GNU_STACK <<<"$headers" | grep -q RWE || complain "executable stack"
    readelf -h "$file" | grep -q 'Type: *DYN' || complain "not position independent"
    if [ "$kind" = program ]; then
        grep -q 'FLAGS_1.*PIE' <<<"$dynamic" || complain "no PIE"
    fi
    ! grep -q TEXTREL <<<"$dynamic" || complain "text relocations"
    grep -qx __stack_chk_fail <<<"$imports" || complain "no stack protector"
}

check_plugin_libraries() {
    local needed
    needed=$(readelf -W --dynamic "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    while read -r library; do
        case $library in
        libc.so.6 | libstdc++.so.6 | libgcc_s.so.1 | libm.so.6 | libINIReader.so.0 | libinih.so.1) ;;
        libvarnox.so.0 | libpellum.so.0 | ld-linux*) ;;
        *) complain "needs $library" ;;
        esac
    done <<<"$needed"
}

check_exports() {
    local exported
    exported=$(readelf -W --dyn-syms "$file" |
        awk '$7 != "UND" && $5 != "LOCAL" && $8 != "" && NR > 3 { print $8 }' | sort | tr '\n' ' ')
    [ "$exported" = "makeSensor sensorType " ] || complain "exports $exported"
}

# Whoever only asks for the sensor type starts nothing: beside the compiler's frame_dummy there may be
# what <iostream> leaves in a source, which makes sure that the standard streams exist.
check_constructors() {
    local size entry streams calls
    size=$(readelf -W --sections "$file" |
        sed -n 's/.* \.init_array *INIT_ARRAY *[0-9a-f]* [0-9a-f]* \([0-9a-f]*\) .*/\1/p')
    entry=4
    ! readelf -h "$file" | grep -q 'Class: *ELF64' || entry=8
    streams=$(nm "$file" | grep -c ' t _GLOBAL__sub_I_' || true)
    [ $((16#$size)) -eq $((entry * (1 + streams))) ] ||
        complain "$((16#$size / entry)) functions run at load time, $streams of them known"
    calls=$("${OBJDUMP:-objdump}" -d --no-show-raw-insn "$file" |
        awk '/^[0-9a-f]+ <_GLOBAL__sub_I_/ { inside = 1; next } /^$/ { inside = 0 }
             inside && $2 ~ /^(call|jmp|bl|blx|b|b\.w|b\.n)$/ { print $NF }' |
        grep -vE '^<(_ZNSt8ios_base4InitC1Ev|__cxa_atexit|__aeabi_atexit)@plt>$' | sort -u || true)
    [ -z "$calls" ] || complain "calls at load time:" $calls
    if readelf -W --sections "$file" | grep -q ' \.preinit_array '; then
        complain "has a .preinit_array"
    fi
}

check_size() {
    local stripped size
    stripped=$(mktemp)
    "${STRIP:-strip}" -o "$stripped" "$file"
    size=$(size "$stripped" | awk 'NR == 2 { print $1 + $2 }')
    rm -f "$stripped"
    echo "$file: $size bytes of text and data"
    readelf -h "$file" | grep -q 'Machine: *ARM' || return 0
    [ "$size" -le "$largest_plugin" ] || complain "more than $largest_plugin bytes"
}

for file in "$@"; do
    check_hardening
    if [ "$kind" = plugin ]; then
        check_plugin_libraries
        check_exports
        check_constructors
        check_size
    fi
done
exit "$failed"
