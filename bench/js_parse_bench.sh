#!/bin/bash
# Times the script parser on a generated script (1 MB by default).
# Usage: bench/js_parse_bench.sh [BUILD_DIR] [MEGABYTES]   (the build dir must have built js_parse_bench)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
size=${2:-1}
bin=$build/bench/js_parse_bench
if [ ! -x "$bin" ]; then
    echo "js_parse_bench not built in $build (ninja -C $build js_parse_bench)" >&2
    exit 1
fi
/usr/bin/time -f "peak memory %M KB" "$bin" "$size" 5
