#!/usr/bin/env bash
# List markers: the counter styles beyond decimal, reversed lists, and ::marker styles on the marker.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >lists.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 500pt 800pt; margin: 40pt }
body { margin: 0; font: 11pt "DejaVu Sans" }
ol, ul { margin: 0 0 4pt 0 }
.marker li::marker { color: rgb(255, 0, 0); font-weight: bold }
</style></head><body>
<ol style="list-style-type: upper-hexadecimal" start="254"><li>hex one</li><li>hex two</li></ol>
<ol style="list-style-type: lower-russian" start="28"><li>russian</li></ol>
<ol style="list-style-type: upper-greek" start="3"><li>greek</li></ol>
<ol style="list-style-type: binary" start="5"><li>binary</li></ol>
<ol style="list-style-type: arabic-indic" start="12"><li>indic</li></ol>
<ol reversed><li>rev three</li><li>rev two</li><li>rev one</li></ol>
<ol reversed start="10"><li>ten</li><li>nine</li></ol>
<ul style="list-style-type: check"><li>checked</li></ul>
<ol class="marker" start="7"><li>styled marker text</li></ol>
</body></html>
HTML
timeout 60 "$VELLUM" lists.html -o lists.pdf 2>lists.err
expect_eq "status" "$?" 0
qpdf_clean "lists" lists.pdf
text=$(pdftotext -layout lists.pdf -)

# line_of WORD: the line of the text that holds WORD, spaces squeezed.
line_of() { echo "$text" | grep -- "$1" | head -1 | tr -s ' ' | sed 's/^ //'; }
expect_eq "upper-hexadecimal" "$(line_of 'hex one')" "FE. hex one"
expect_eq "upper-hexadecimal, next" "$(line_of 'hex two')" "FF. hex two"
expect_eq "lower-russian" "$(line_of russian)" "я. russian"
expect_eq "upper-greek" "$(line_of greek)" "Γ. greek"
expect_eq "binary" "$(line_of binary)" "101. binary"
expect_eq "arabic-indic" "$(line_of indic)" "١٢. indic"
expect_eq "reversed: first" "$(line_of 'rev three')" "3. rev three"
expect_eq "reversed: last" "$(line_of 'rev one')" "1. rev one"
expect_eq "reversed with start" "$(line_of nine)" "9. nine"
expect_eq "check glyph" "$(line_of checked)" "✓ checked"

# The ::marker colour and weight reach the marker, not the item's text: red pixels left of the text
# line, none in the text.
pdftoppm -r 72 -png lists.pdf page
y=$(pdftotext -bbox lists.pdf - | grep '>styled<' | sed 's/.*yMin="\([0-9.]*\)".*yMax="\([0-9.]*\)".*/\1 \2/')
x=$(pdftotext -bbox lists.pdf - | grep '>styled<' | sed 's/.*xMin="\([0-9.]*\)".*/\1/')
red=$(/usr/bin/python3 - "$y" "$x" <<'PY'
import sys
from PIL import Image
y0, y1 = (float(v) for v in sys.argv[1].split())
x = float(sys.argv[2])
im = Image.open("page-1.png").convert("RGB")
def reds(x0, x1):
    n = 0
    for yy in range(int(y0), int(y1) + 1):
        for xx in range(int(x0), int(x1)):
            r, g, b = im.getpixel((xx, yy))
            n += r > 200 and g < 90 and b < 90
    return n
print(reds(0, x - 1) > 5, reds(x, im.size[0]) == 0)
PY
)
expect_eq "::marker colour on the marker only" "$red" "True True"
expect_contains "marker bold" "$(pdffonts lists.pdf)" "Bold"

# A right-to-left list: the marker hangs right of the item's text, the text ends at the content's
# right edge; a left-to-right list in the same document keeps its marker on the left.
cat >rtl.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 200pt; margin: 30pt }
body { margin: 0; font: 12pt/16pt "DejaVu Sans" }
ul { margin: 0; padding: 0 40pt }
.r { direction: rtl }
</style></head><body>
<ul class="r"><li>&#x5D0;&#x5DC;&#x5E3; &#x5D1;&#x5D9;&#x5EA;</li></ul>
<ul><li>Lefttoright</li></ul>
</body></html>
HTML
timeout 60 "$VELLUM" rtl.html -o rtl.pdf 2>rtl.err
expect_eq "rtl: status" "$?" 0
qpdf_clean "rtl" rtl.pdf
# "word xmin xmax ymin" for each word.
words=$(pdftotext -bbox rtl.pdf - |
    sed -n 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)" xMax="\([0-9.]*\)".*>\([^<]*\)<\/word>/\4 \1 \3 \2/p')
read -r _ bx0 bx1 by <<<"$(awk '$4 < 40' <<<"$words" | grep '^•' | head -1)"
text_right=$(awk '$4 < 40 && $1 != "•" { if ($3 > m) m = $3 } END { print m }' <<<"$words")
# The content box is 30 + 40 = 70pt to 270 - 40 = 230pt: the text ends at 230, the marker starts
# half an em (6pt) to its right.
awk -v r="$text_right" -v b="$bx0" 'BEGIN { exit !(r > 228 && r < 230.5 && b > 235 && b < 237) }' ||
    fail "rtl: text ends at $text_right and the marker starts at $bx0 (want about 230 and 236)"
read -r _ lx0 lx1 ly <<<"$(awk '$4 > 40' <<<"$words" | grep '^•' | head -1)"
read -r _ tx0 tx1 ty <<<"$(grep '^Lefttoright' <<<"$words")"
awk -v m="$lx1" -v t="$tx0" 'BEGIN { exit !(m < t && m > t - 8) }' ||
    fail "ltr: marker ends at $lx1, the text starts at $tx0"
finish
