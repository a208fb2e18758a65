#!/bin/bash
# Cuts the glyphs of 2,000 distinct CJK characters out of Noto Sans CJK JP and reports the time and size.
# Usage: bench/cff_subset_bench.sh [BUILD_DIR] [GLYPHS]   (the build dir must have built cff_subset_bench)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
glyphs=${2:-2000}
bin=$build/bench/cff_subset_bench
if [ ! -x "$bin" ]; then
    echo "cff_subset_bench not built in $build (ninja -C $build cff_subset_bench)" >&2
    exit 1
fi
/usr/bin/time -f "peak memory %M KB" "$bin" "$glyphs" 5
