#!/bin/bash
# Pipes the cases of data/html5_dump.dat (html5lib tree-construction layout) through html5-dump and
# compares the printed trees; then checks that input bytes are decoded before parsing.
# Usage: html5_dump_test.sh <html5-dump> <data dir>
set -u
dump=$1
data=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Split the .dat file: case N gives N.in (data without the section's closing newline), N.ctx (fragment
# context, if any) and N.out (expected tree).
awk -v dir="$work" '
    /^#data$/ { n++; section = "data"; first = 1; next }
    /^#errors$|^#new-errors$|^#script-on$|^#script-off$/ { section = "skip"; next }
    /^#document-fragment$/ { section = "ctx"; next }
    /^#document$/ { section = "out"; next }
    section == "data" { printf "%s%s", (first ? "" : "\n"), $0 > (dir "/" n ".in"); first = 0; next }
    section == "ctx" { print > (dir "/" n ".ctx"); next }
    section == "out" && $0 != "" { print > (dir "/" n ".out") }
' "$data/html5_dump.dat"

failures=0
count=0
for expected in "$work"/*.out; do
    n=$(basename "$expected" .out)
    count=$((count + 1))
    context=""
    if [ -f "$work/$n.ctx" ]; then
        context=$(cat "$work/$n.ctx")
    fi
    touch "$work/$n.in"
    if ! HTML5LIB_FRAGMENT_CONTEXT="$context" HTML5LIB_SCRIPTING=off "$dump" <"$work/$n.in" >"$work/$n.got"; then
        echo "case $n: html5-dump failed"
        failures=$((failures + 1))
        continue
    fi
    if ! diff -u "$expected" "$work/$n.got"; then
        echo "case $n (context '$context'): tree differs"
        failures=$((failures + 1))
    fi
done
if [ "$count" -lt 4 ]; then
    echo "only $count cases read from $data/html5_dump.dat"
    failures=$((failures + 1))
fi

# A windows-1252 byte (0xE9, e acute) in a document with no declaration must come out as UTF-8.
printf '<p title=caf\xe9>caf\xe9</p>' | "$dump" >"$work/latin.got"
printf '| <html>\n|   <head>\n|   <body>\n|     <p>\n|       title="caf\xc3\xa9"\n|       "caf\xc3\xa9"\n' >"$work/latin.out"
if ! diff -u "$work/latin.out" "$work/latin.got"; then
    echo "windows-1252 input: tree differs"
    failures=$((failures + 1))
fi

# Scripting on is refused rather than silently ignored.
if echo '<p>' | HTML5LIB_SCRIPTING=on "$dump" >/dev/null 2>&1; then
    echo "HTML5LIB_SCRIPTING=on was accepted"
    failures=$((failures + 1))
fi

echo "html5-dump: $count tree cases, $failures failures"
[ "$failures" -eq 0 ]
