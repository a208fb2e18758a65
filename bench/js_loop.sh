#!/bin/bash
# Times the script engine's run loop on a tight counting loop of ten million iterations at global scope,
# and the same loop inside a function (where the variables live in registers).
# Usage: bench/js_loop.sh [BUILD_DIR] [RUNS]   (the build dir must have built js-run)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
runs=${2:-3}
bin=$build/bin/js-run
if [ ! -x "$bin" ]; then
    echo "js-run not built in $build (ninja -C $build js-run)" >&2
    exit 1
fi
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
echo 'var s = 0; for (var i = 0; i < 1e7; i++) s += i; s' > "$dir/global.js"
echo 'function f() { var s = 0; for (var i = 0; i < 1e7; i++) s += i; return s; } f()' > "$dir/function.js"
for name in global function; do
    for ((r = 1; r <= runs; r++)); do
        /usr/bin/time -f "$name loop, run $r: %e s elapsed, %U s user, peak memory %M KB" "$bin" "$dir/$name.js" > "$dir/out.txt"
        if [ "$(cat "$dir/out.txt")" != "49999995000000" ]; then
            echo "wrong result: $(cat "$dir/out.txt")" >&2
            exit 1
        fi
    done
done
