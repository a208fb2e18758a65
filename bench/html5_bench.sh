#!/bin/bash
# Generates a ~20 MB HTML document and times the parser on it.
# Usage: bench/html5_bench.sh [BUILD_DIR] [MEGABYTES]   (the build dir must have built html5_bench)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
size=${2:-20}
bin=$build/bench/html5_bench
if [ ! -x "$bin" ]; then
    echo "html5_bench not built in $build (ninja -C $build html5_bench)" >&2
    exit 1
fi
input=$(mktemp --suffix=.html)
trap 'rm -f "$input"' EXIT
/usr/bin/python3 "$here/gen_html.py" "$input" "$size"
echo "generated $(stat -c %s "$input") bytes"
/usr/bin/time -f "peak memory %M KB" "$bin" "$input" 3
