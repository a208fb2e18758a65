#!/usr/bin/env bash
# Small text features: -vellum-text-replace on the document's text, and nested quotation marks.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >t.html <<'HTML'
<!DOCTYPE html><html><head><style>
body { font: 12pt "DejaVu Serif" }
.rep { -vellum-text-replace: "foo" "bar" "(c)" "©" }
.none { -vellum-text-replace: none }
.fl::first-line { color: rgb(0, 0, 255) }
.own { quotes: "<<" ">>" "<" ">" }
.bare { quotes: none }
.ell { width: 120pt; white-space: nowrap; overflow: hidden; text-overflow: ellipsis }
</style></head><body>
<p class="rep">foo fighters and foofoo (c) 2026</p>
<p class="rep"><span class="none">foo kept</span></p>
<p><q>outer <q>inner</q> outer</q></p>
<p class="own"><q>mine <q>nested <q>deeper</q></q></q></p>
<p class="bare">none<q>bare</q>none</p>
<p lang="de"><q>Deutsch <q>innen</q></q></p>
<p lang="fr"><q>Bonjour</q></p>
<div class="ell">Overflowing text that is far too long for its narrow box</div>
<div class="ell">Short fits</div>
<p class="fl" style="width: 200pt">Firstline words in blue that run on to a second line of black words</p>
</body></html>
HTML
timeout 60 "$VELLUM" t.html -o t.pdf 2>t.err
expect_eq "status" "$?" 0
qpdf_clean "text features" t.pdf
text=$(pdftotext -layout t.pdf -)
expect_contains "replaced, every occurrence, pairs in turn" "$text" "bar fighters and barbar © 2026"
expect_contains "none on a child keeps the text" "$text" "foo kept"
expect_contains "quotes alternate by depth" "$text" "“outer ‘inner’ outer”"
expect_contains "quotes of one's own, the last pair repeating" "$text" "<<mine <nested <deeper>>>>"
expect_contains "quotes: none" "$text" "nonebarenone"
expect_contains "German marks by lang" "$text" "„Deutsch ‚innen‘“"
expect_contains "French marks by lang" "$text" "« Bonjour »"
# text-overflow: ellipsis cuts an overflowing line so that the ellipsis ends inside the box; a line
# that fits shows none.
ell_line=$(echo "$text" | grep Overflowing)
expect_contains "ellipsis shown" "$ell_line" "…"
expect_not_contains "ellipsis: the rest is cut" "$ell_line" "narrow"
expect_not_contains "no ellipsis on a line that fits" "$(echo "$text" | grep 'Short fits')" "…"
body_left=$(pdftotext -bbox t.pdf - | grep '>Overflowing<' | sed 's/.*xMin="\([0-9.]*\)".*/\1/')
right=$(pdftotext -bbox t.pdf - | grep '…<' | head -1 | sed 's/.*xMax="\([0-9.]*\)".*/\1/')
inside=$(awk -v l="$body_left" -v r="$right" 'BEGIN { print (r != "" && r <= l + 120.5) ? "yes" : r }')
expect_eq "ellipsis inside the box" "$inside" "yes"

# ::first-line colours the paragraph's own text on its first line only.
pdftoppm -r 72 -png t.pdf page
bbox=$(pdftotext -bbox t.pdf -)
y1=$(echo "$bbox" | grep '>Firstline<' | sed 's/.*yMin="\([0-9.]*\)".*yMax="\([0-9.]*\)".*/\1 \2/')
y2=$(echo "$bbox" | grep '>black<' | sed 's/.*yMin="\([0-9.]*\)".*yMax="\([0-9.]*\)".*/\1 \2/')
blue=$(/usr/bin/python3 - "$y1" "$y2" <<'PY'
import sys
from PIL import Image
im = Image.open("page-1.png").convert("RGB")
def blues(span):
    y0, y1 = (float(v) for v in span.split())
    n = 0
    for yy in range(int(y0), int(y1) + 1):
        for xx in range(im.size[0]):
            r, g, b = im.getpixel((xx, yy))
            n += b > 180 and r < 90 and g < 90
    return n
print(blues(sys.argv[1]) > 20, blues(sys.argv[2]) == 0)
PY
)
expect_eq "::first-line colour on the first line only" "$blue" "True True"
finish
