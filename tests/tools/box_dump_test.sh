#!/bin/bash
# Runs box-dump over each .html or .xml file of a folder and compares the output with the .txt file of
# the same name. VELLUM_REBASELINE=1 rewrites the expected files for a reviewed diff.
set -u
tool=$1
dir=$2
status=0
for input in "$dir"/*.html "$dir"/*.xml; do
    [ -e "$input" ] || continue
    expected=${input%.*}.txt
    actual=$("$tool" "$input" 2>/dev/null)
    if [ "${VELLUM_REBASELINE:-}" = 1 ]; then
        printf '%s\n' "$actual" > "$expected"
        continue
    fi
    if ! diff -u "$expected" <(printf '%s\n' "$actual"); then
        echo "FAIL: $input"
        status=1
    fi
done
exit $status
