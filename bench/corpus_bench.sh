#!/bin/bash
# Converts the books of the shared benchmark corpus (chapters, a contents page with target-counter,
# running headers, footnotes, lists, figures) and reports pages per second and peak memory, then checks
# each PDF with the corpus checker (which needs mutool, from Debian's mupdf-tools).
# Usage: bench/corpus_bench.sh [BUILD_DIR] [BOOK...]   (default: book200 book1000)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
shift || true
books=("$@")
[ ${#books[@]} -gt 0 ] || books=(book200 book1000)
shared=$here/../../shared/bench
/usr/bin/python3 "$shared/gen_corpus.py" "$work" >/dev/null
for book in "${books[@]}"; do
    /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$work/$book.html" -o "$work/$book.pdf" 2>"$work/log" || {
        echo "vellum failed on $book:" >&2
        cat "$work/log" >&2
        exit 1
    }
    read -r secs user kb <"$work/time"
    pages=$(pdfinfo "$work/$book.pdf" | awk '/^Pages:/ {print $2}')
    rate=$(awk -v p="$pages" -v s="$secs" 'BEGIN { if (s > 0) printf "%.1f", p / s; else print "inf" }')
    printf '%s: %s pages in %s s (%s s user, %s pages/s), peak memory %s MB\n' \
        "$book" "$pages" "$secs" "$user" "$rate" "$((kb / 1024))"
    if command -v mutool >/dev/null; then
        /usr/bin/python3 "$shared/check_book.py" "$work/$book.html" "$work/$book.pdf" | tail -1
    fi
done
