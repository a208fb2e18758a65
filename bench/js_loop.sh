#!/bin/bash
# Times the script engine's run loop on a tight counting loop of ten million iterations at global scope,
# the same loop inside a function (where the variables live in registers), and a recursive Fibonacci
# (fib(27), about 630,000 calls) for the cost of calls, and a string built by 200,000 appends (`s += 'x'`,
# linear since appends extend a shared buffer in place).
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
echo 'function fib(n) { return n < 2 ? n : fib(n - 1) + fib(n - 2); } fib(27)' > "$dir/fib.js"
echo "var s = ''; for (var i = 0; i < 200000; i++) s += 'x'; s.length" > "$dir/append.js"
for name in global function fib append; do
    expected=49999995000000
    [ "$name" = fib ] && expected=196418
    [ "$name" = append ] && expected=200000
    for ((r = 1; r <= runs; r++)); do
        /usr/bin/time -f "$name, run $r: %e s elapsed, %U s user, peak memory %M KB" "$bin" "$dir/$name.js" > "$dir/out.txt"
        if [ "$(cat "$dir/out.txt")" != "$expected" ]; then
            echo "wrong result: $(cat "$dir/out.txt")" >&2
            exit 1
        fi
    done
done
