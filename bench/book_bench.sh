#!/bin/bash
# Times the whole conversion of a generated book: pages per second and peak memory.
# Usage: bench/book_bench.sh [BUILD_DIR] [PAGES...]   (default sizes: 100 and 1000 pages)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
shift || true
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(100 1000)
for pages in "${sizes[@]}"; do
    input=$work/book-$pages.html
    output=$work/book-$pages.pdf
    /usr/bin/python3 "$here/gen_book.py" "$input" "$pages"
    /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$input" -o "$output" 2>"$work/log" || {
        echo "vellum failed on the $pages-page book:" >&2
        cat "$work/log" >&2
        exit 1
    }
    read -r secs user kb <"$work/time"
    made=$(pdfinfo "$output" | awk '/^Pages:/ {print $2}')
    rate=$(awk -v p="$made" -v s="$secs" 'BEGIN { if (s > 0) printf "%.1f", p / s; else print "inf" }')
    printf '%s-page book: %s bytes of HTML, %s pages in %s s (%s s user, %s pages/s), peak memory %s MB\n' \
        "$pages" "$(stat -c %s "$input")" "$made" "$secs" "$user" "$rate" "$((kb / 1024))"
done
