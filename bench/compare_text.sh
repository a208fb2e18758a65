#!/bin/bash
# Converts the benchmark books with two builds of vellum and compares what the PDFs say: the text as
# pdftotext lays it out, the fonts as pdffonts lists them (object numbers aside) and the page count. A
# change meant to make conversion faster or smaller must leave all three as they were. Also prints the
# time and peak memory of each run, as /usr/bin/time measures them.
# Usage: bench/compare_text.sh OLD_VELLUM NEW_VELLUM [BOOK...]
#   BOOK: a page count for the plain book of gen_book.py, or a name of ../shared/bench/gen_corpus.py
#   (default: 1000 book1000).
set -eu
here=$(cd "$(dirname "$0")" && pwd)
old=$1
new=$2
shift 2
books=("$@")
[ ${#books[@]} -gt 0 ] || books=(1000 book1000)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
shared=$here/../../shared/bench
if [ -f "$shared/gen_corpus.py" ]; then
    /usr/bin/python3 "$shared/gen_corpus.py" "$work" >/dev/null
fi
status=0
for book in "${books[@]}"; do
    if [[ $book =~ ^[0-9]+$ ]]; then
        input=$work/plain-$book.html
        /usr/bin/python3 "$here/gen_book.py" "$input" "$book"
    else
        input=$work/$book.html
    fi
    for which in old new; do
        bin=${!which}
        /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$input" -o "$work/$which.pdf" 2>"$work/log" || {
            echo "$which vellum failed on $book:" >&2
            cat "$work/log" >&2
            exit 1
        }
        read -r secs user kb <"$work/time"
        printf '%s, %s: %s s elapsed, %s s user, peak memory %s MB\n' "$book" "$which" "$secs" "$user" "$((kb / 1024))"
        pdftotext -layout "$work/$which.pdf" "$work/$which.txt"
        pdffonts "$work/$which.pdf" | awk 'NR > 2 { $NF = ""; $(NF - 1) = ""; print }' >"$work/$which.fonts"
        pdfinfo "$work/$which.pdf" | awk '/^Pages:/ { print $2 }' >"$work/$which.pages"
    done
    for part in txt fonts pages; do
        if ! cmp -s "$work/old.$part" "$work/new.$part"; then
            echo "$book: the $part differ:"
            diff "$work/old.$part" "$work/new.$part" | head -20
            status=1
        fi
    done
    [ $status -ne 0 ] || echo "$book: same text, fonts and pages ($(cat "$work/new.pages") pages)"
done
exit $status
