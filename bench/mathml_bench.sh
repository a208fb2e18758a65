#!/bin/bash
# Times a document of many formulas (fractions, roots, scripts, sums with limits, stretched fences and
# small matrices, inline and displayed) against the same text with the formulas written out as plain
# words: elapsed and user seconds and peak memory of each, and what a formula costs.
# Usage: bench/mathml_bench.sh [BUILD_DIR] [FORMULAS]   (default 2000 formulas)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
count=${2:-2000}
/usr/bin/python3 - "$work" "$count" <<'PY'
import sys
work, n = sys.argv[1], int(sys.argv[2])
forms = [
    '<math><mi>x</mi><mo>=</mo><mfrac><mrow><mo>-</mo><mi>b</mi><mo>±</mo><msqrt><msup><mi>b</mi><mn>2</mn></msup><mo>-</mo><mn>4</mn><mi>a</mi><mi>c</mi></msqrt></mrow><mrow><mn>2</mn><mi>a</mi></mrow></mfrac></math>',
    '<math display="block"><munderover><mo>∑</mo><mrow><mi>k</mi><mo>=</mo><mn>1</mn></mrow><mi>n</mi></munderover><mrow><mo>(</mo><mfrac><mi>k</mi><mrow><mi>k</mi><mo>+</mo><mn>1</mn></mrow></mfrac><mo>)</mo></mrow></math>',
    '<math><msubsup><mi>x</mi><mi>i</mi><mn>2</mn></msubsup><mo>+</mo><mroot><mi>y</mi><mn>3</mn></mroot></math>',
    '<math display="block"><mrow><mo>[</mo><mtable><mtr><mtd><mi>a</mi></mtd><mtd><mi>b</mi></mtd></mtr><mtr><mtd><mi>c</mi></mtd><mtd><mi>d</mi></mtd></mtr></mtable><mo>]</mo></mrow></math>',
]
words = ['x equals minus b plus or minus root', 'sum of k over k plus one', 'x i squared plus cube root of y', 'matrix a b c d']
head = '<!DOCTYPE html><html><head><style>body { font: 11pt "DejaVu Serif" }</style></head><body>\n'
with open(work + '/math.html', 'w') as m, open(work + '/plain.html', 'w') as p:
    m.write(head)
    p.write(head)
    for i in range(n):
        m.write('<p>Formula %d: %s and text after it.</p>\n' % (i, forms[i % 4]))
        p.write('<p>Formula %d: %s and text after it.</p>\n' % (i, words[i % 4]))
    m.write('</body></html>\n')
    p.write('</body></html>\n')
PY
declare -A user
for kind in plain math; do
    /usr/bin/time -f "%e %U %M" -o "$work/time" "$bin" "$work/$kind.html" -o "$work/$kind.pdf" 2>"$work/log" || {
        echo "vellum failed on the $kind document:" >&2
        cat "$work/log" >&2
        exit 1
    }
    read -r secs usr kb <"$work/time"
    user[$kind]=$usr
    made=$(pdfinfo "$work/$kind.pdf" | awk '/^Pages:/ {print $2}')
    printf '%s: %s pages in %s s (user %s s), peak memory %s MB\n' "$kind" "$made" "$secs" "$usr" "$((kb / 1024))"
done
awk -v a="${user[plain]}" -v b="${user[math]}" -v n="$count" \
    'BEGIN { printf "formulas cost %.2f ms of user time each\n", (b - a) * 1000 / n }'
