#!/bin/bash
# Times documents whose floats, absolutely positioned boxes and inline blocks nest in each other, each
# holding a word and the next box. Their shrink-to-fit widths are measured once per box, so the time
# should grow with the number of boxes, not with a power of the depth.
# Usage: bench/nesting_bench.sh [BUILD_DIR] [DEPTH...]   (default depths: 250, 500 and 1000)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
shift || true
depths=("$@")
[ ${#depths[@]} -gt 0 ] || depths=(250 500 1000)
declare -A open=(
    [floats]="<div style='float: left'>"
    [absolute]="<div style='position: absolute'>"
    [inline-blocks]="<div style='display: inline-block'>"
)
for kind in floats absolute inline-blocks; do
    for depth in "${depths[@]}"; do
        input=$work/$kind-$depth.html
        output=$work/$kind-$depth.pdf
        python3 -c "import sys; n = int(sys.argv[1]); print('<html><body>' + (sys.argv[2] + 'x ') * n + '</div>' * n + '</body></html>')" \
            "$depth" "${open[$kind]}" >"$input"
        /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$input" -o "$output" 2>"$work/log" || {
            echo "vellum failed on $depth nested $kind:" >&2
            cat "$work/log" >&2
            exit 1
        }
        read -r secs user kb <"$work/time"
        printf "%s nested %s: %s s (%s s user), peak memory %s MB\n" "$depth" "$kind" "$secs" "$user" "$((kb / 1024))"
    done
done
