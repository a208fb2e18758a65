#!/usr/bin/env bash
# Page labels: a book's front matter numbered in roman numerals, the body from 1 again, an appendix
# with a prefix, and a label of text alone; a viewer shows i, ii, iii, 1, 2, A-1, A-2, ...
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
command -v qpdf >/dev/null || exit 77

cat >book.html <<'HTML'
<!DOCTYPE html><html><head><title>Book</title><style>
@page { size: 300pt 300pt; margin: 30pt }
@page front { -vellum-pdf-page-label: counter(page, lower-roman) }
@page appendix { -vellum-pdf-page-label: "A-" counter(page) }
@page plate { -vellum-pdf-page-label: "Plate " counter(page, decimal-leading-zero) " (colour)" }
.front { page: front }
.main { counter-reset: page 1 }
.app { page: appendix; counter-reset: page 1 }
.plate { page: plate; counter-reset: page 7 }
section { page-break-before: always }
body { font: 12pt "DejaVu Sans" }
</style></head><body>
<div class="front"><section>Title</section><section>Preface</section><section>Contents</section></div>
<div class="main"><section>Chapter one</section><section>Chapter two</section><section>Chapter three</section></div>
<div class="app"><section>Appendix one</section><section>Appendix two</section></div>
<div class="plate"><section>A plate</section></div>
</body></html>
HTML
timeout 60 "$VELLUM" book.html -o book.pdf 2>book.err
expect_eq "status" "$?" 0
qpdf_clean "book" book.pdf

# The labels a viewer shows, page by page, from the /PageLabels number tree as qpdf reads it.
labels() {
    qpdf --json --json-key=pagelabels --json-key=pages "$1" | /usr/bin/python3 -c '
import json, sys
doc = json.load(sys.stdin)
count = len(doc["pages"])
ranges = [(r["index"], r["label"]) for r in doc["pagelabels"]]
def roman(n):
    out = ""
    for v, s in ((1000, "m"), (900, "cm"), (500, "d"), (400, "cd"), (100, "c"), (90, "xc"), (50, "l"),
                 (40, "xl"), (10, "x"), (9, "ix"), (5, "v"), (4, "iv"), (1, "i")):
        while n >= v:
            out += s
            n -= v
    return out
out = []
for page in range(count):
    start, label = [r for r in ranges if r[0] <= page][-1] if ranges else (0, {})
    n = label.get("/St", 1) + page - start
    style = label.get("/S", "")
    text = {"/D": str(n), "/r": roman(n), "/R": roman(n).upper(), "/a": chr(96 + n), "/A": chr(64 + n)}.get(style, "")
    out.append(label.get("/P", "u:")[2:] + text)
print(",".join(out) if ranges else "none")
'
}
expect_eq "labels" "$(labels book.pdf)" "i,ii,iii,1,2,3,A-1,A-2,Plate 07 (colour)"
# Consecutive pages of one style make one entry.
expect_eq "entries" "$(qpdf --json --json-key=pagelabels book.pdf | grep -c '"index"')" 4

# A document that numbers its pages plainly from 1 needs no labels.
cat >plain.html <<'HTML'
<!DOCTYPE html><html><body><p>one</p><p style="page-break-before: always">two</p></body></html>
HTML
timeout 60 "$VELLUM" plain.html -o plain.pdf 2>plain.err
expect_eq "plain: status" "$?" 0
expect_not_contains "plain: no labels" "$(qpdf --show-object=1 plain.pdf)" "/PageLabels"

# A page counter reset in a plain document shows in the labels.
cat >reset.html <<'HTML'
<!DOCTYPE html><html><body><p>cover</p><p style="page-break-before: always; counter-reset: page 10">ten</p></body></html>
HTML
timeout 60 "$VELLUM" reset.html -o reset.pdf 2>reset.err
expect_eq "reset: labels" "$(labels reset.pdf)" "1,10"
finish
