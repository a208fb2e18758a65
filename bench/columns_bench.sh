#!/bin/bash
# Times a generated book set in one column and in two (the body a multi-column container whose chapter
# headings span the columns and begin new pages, so that each chapter is a run of columns whose last
# page is balanced): elapsed and user seconds, pages and peak memory of each, and the ratio of the times.
# Usage: bench/columns_bench.sh [BUILD_DIR] [PAGES]   (default 200 pages)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
pages=${2:-200}
/usr/bin/python3 "$here/gen_book.py" "$work/one.html" "$pages"
# The two-column book: the same document with the body's content set in two columns of narrower lines.
sed 's|</style>|body { columns: 2; column-gap: 6mm; column-rule: 0.5pt solid gray } h1 { column-span: all }\n</style>|' \
    "$work/one.html" >"$work/two.html"
grep -q 'columns: 2' "$work/two.html" || { echo "no style element to add the columns to" >&2; exit 1; }
# The same in columns filled one after the other, unbalanced: what the narrower lines cost alone.
sed 's|h1 { column-span: all }|h1 { column-span: all } body { column-fill: auto }|' "$work/two.html" >"$work/two-unbalanced.html"
declare -A user
for kind in one two-unbalanced two; do
    /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$work/$kind.html" -o "$work/$kind.pdf" 2>"$work/log" || {
        echo "vellum failed on the $kind-column book:" >&2
        cat "$work/log" >&2
        exit 1
    }
    read -r secs usr kb <"$work/time"
    user[$kind]=$usr
    made=$(pdfinfo "$work/$kind.pdf" | awk '/^Pages:/ {print $2}')
    printf '%s column(s): %s pages in %s s (user %s s), peak memory %s MB\n' \
        "$kind" "$made" "$secs" "$usr" "$((kb / 1024))"
done
awk -v a="${user[one]}" -v b="${user[two]}" -v u="${user[two-unbalanced]}" \
    'BEGIN { if (a > 0 && u > 0) printf "user time: two columns / one column %.2f, balanced / unbalanced %.2f\n", b / a, b / u }'
