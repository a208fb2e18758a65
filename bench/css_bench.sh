#!/bin/bash
# Generates a large style sheet and document and times parsing, indexing, the cascade and the whole
# styling with computed styles.
# Usage: bench/css_bench.sh [BUILD_DIR] [RULES] [SECTIONS]   (the build dir must have built css_bench)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
rules=${2:-5000}
sections=${3:-2000}
bin=$build/bench/css_bench
if [ ! -x "$bin" ]; then
    echo "css_bench not built in $build (ninja -C $build css_bench)" >&2
    exit 1
fi
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
/usr/bin/python3 "$here/gen_css.py" "$dir/bench.css" "$dir/bench.html" "$rules" "$sections"
/usr/bin/time -f "peak memory %M KB" "$bin" "$dir/bench.css" "$dir/bench.html" 3
