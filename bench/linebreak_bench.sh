#!/bin/bash
# Breaks a generated 100,000-word text into justified lines and reports lines per second.
# Usage: bench/linebreak_bench.sh [BUILD_DIR] [WORDS] [WIDTH_PT]   (the build dir must have built linebreak_bench)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
words=${2:-100000}
width=${3:-300}
bin=$build/bench/linebreak_bench
if [ ! -x "$bin" ]; then
    echo "linebreak_bench not built in $build (ninja -C $build linebreak_bench)" >&2
    exit 1
fi
/usr/bin/time -f "peak memory %M KB" "$bin" "$words" "$width" 3
