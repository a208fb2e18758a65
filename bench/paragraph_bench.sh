#!/bin/bash
# Times the conversion of the same words as one long paragraph and as many short ones: a long paragraph
# should cost about what its words cost. Reports seconds, peak memory and the ratio of the two.
# Usage: bench/paragraph_bench.sh [BUILD_DIR] [WORDS] [PARAGRAPHS]   (default: 20000 words, 200 paragraphs)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
words=${2:-20000}
paragraphs=${3:-200}
/usr/bin/python3 - "$work" "$words" "$paragraphs" <<'PY'
import random, sys
work, words, paragraphs = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
random.seed(1)
vocab = ("lorem ipsum dolor sit amet consectetur adipiscing elit sed do eiusmod tempor incididunt ut labore "
         "et dolore magna aliqua enim ad minim veniam quis nostrud exercitation ullamco laboris nisi aliquip "
         "ex ea commodo consequat").split()
text = [random.choice(vocab) for _ in range(words)]
head = "<!DOCTYPE html><html><head><style>body { font: 10pt serif }</style></head><body>"
with open(f"{work}/one.html", "w") as f:
    f.write(head + "<p>" + " ".join(text) + "</p></body></html>")
step = max(1, words // paragraphs)
with open(f"{work}/many.html", "w") as f:
    f.write(head + "".join("<p>" + " ".join(text[i:i + step]) + "</p>" for i in range(0, words, step)) +
            "</body></html>")
PY
run() {
    /usr/bin/time -f "%e %M" -o "$work/time" "$bin" "$work/$1.html" -o "$work/$1.pdf" 2>"$work/log" || {
        echo "vellum failed on $1.html:" >&2
        cat "$work/log" >&2
        exit 1
    }
    read -r secs kb <"$work/time"
    echo "$secs $kb $(pdfinfo "$work/$1.pdf" | awk '/^Pages:/ {print $2}')"
}
read -r many_s many_kb many_pages <<<"$(run many)"
read -r one_s one_kb one_pages <<<"$(run one)"
printf '%s words in %s paragraphs: %s s, %s pages, peak memory %s MB\n' "$words" "$paragraphs" "$many_s" "$many_pages" "$((many_kb / 1024))"
printf '%s words in one paragraph: %s s, %s pages, peak memory %s MB\n' "$words" "$one_s" "$one_pages" "$((one_kb / 1024))"
awk -v a="$one_s" -v b="$many_s" 'BEGIN { if (b > 0) printf "one paragraph / many paragraphs: %.2f\n", a / b }'
