#!/usr/bin/env bash
# Carries out the commands that the documents show of a fresh build, those that begin with build/run, in a folder
# that looks like the project's. Arguments: the build folder that stands in for build/run, the source folder.
set -euo pipefail
build=$1 source=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/build"
ln -s "$build" "$folder/build/run"
ln -s "$source/data" "$folder/data"
cd "$folder"
commands=0
fail() {
    echo "FAILED: $*" >&2
    exit 1
}
# Indented lines; a backslash at the end goes on in the next line.
commands_of() { # DOCUMENT
    sed -n -e ':more' -e '/^    .*\\$/{N;s/\\\n *//;b more' -e '}' -e 's/^    \(build\/run\/.*\)/\1/p' "$1"
}
for document in README.md docs/camhost.md docs/pictures.md docs/waveforms.md docs/run-report.md; do
    mapfile -t shown < <(commands_of "$source/$document")
    [ ${#shown[@]} -gt 0 ] || fail "$document shows no command"
    for command in "${shown[@]}"; do
        bash -euc "$command" >log 2>&1 || fail "$document: $command: $(cat log)"
        commands=$((commands + 1))
    done
done
# The page of failures shows one.
mapfile -t shown < <(commands_of "$source/docs/diagnostics.md")
[ ${#shown[@]} -eq 1 ] || fail "docs/diagnostics.md shows ${#shown[@]} commands"
status=0
bash -euc "${shown[0]}" >log 2>&1 || status=$?
[ "$status" -eq 5 ] && grep -q '^  lane 3 of 12 did not lock$' log || fail "${shown[0]}: status $status: $(cat log)"
commands=$((commands + 1))
for file in init.vcd init.svg run.vcd run.svg run.html shots/frame-0001.png; do
    [ -s "$file" ] || fail "$file was not written"
done
echo "$commands commands carried out"
