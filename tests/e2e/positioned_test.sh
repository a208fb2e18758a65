#!/usr/bin/env bash
# Positioned boxes through the real program: an absolute box at the place its offsets give, against its
# positioned ancestor and against the page area; a fixed letterhead on every page; z-index deciding
# which box paints on top; an inline block kept whole on one line, standing on the baseline.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >pos.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 300pt; margin: 20pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.box { position: relative; margin-left: 40pt; height: 100pt; border: 2pt solid black }
.note { position: absolute; top: 10pt; right: 10pt; width: 80pt }
.corner { position: absolute; bottom: 0; left: 0 }
.letterhead { position: fixed; top: 0; right: 0 }
.red { position: absolute; top: 150pt; left: 100pt; width: 60pt; height: 60pt; background: rgb(255,0,0); z-index: 2 }
.blue { position: absolute; top: 170pt; left: 120pt; width: 60pt; height: 60pt; background: rgb(0,0,255); z-index: 1 }
.ib { display: inline-block; border: 1pt solid green; padding: 0 2pt }
</style></head><body>
<div class="box">Inside the box <span class="note">NOTEWORD</span> more text.</div>
<p>Flow after the box.</p>
<div class="corner">CORNERWORD</div>
<div class="red"></div><div class="blue"></div>
<div class="letterhead">LETTERHEAD</div>
<p>Words before <span class="ib">INLINE BLOCK WORDS</span> words after.</p>
<p style="break-before: page">Second page.</p>
<p style="break-before: page">Third page.</p>
</body></html>
HTML
timeout 60 "$VELLUM" pos.html -o pos.pdf 2>pos.err
expect_eq "status" "$?" 0
qpdf_clean "positioned" pos.pdf
expect_not_contains "no warning about positioned boxes" "$(cat pos.err)" "position"
expect_eq "pages" "$(pdfinfo pos.pdf | sed -n 's/^Pages: *//p')" 3

bbox=$(pdftotext -bbox pos.pdf -)
# word_box WORD [N]: "xMin yMin xMax yMax" of the Nth (default first) occurrence of WORD, rounded.
word_box() {
    echo "$bbox" | grep ">$1<" | sed -n "${2:-1}p" |
        sed 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)" xMax="\([0-9.]*\)" yMax="\([0-9.]*\)".*/\1 \2 \3 \4/' |
        awk '{ printf "%d %d %d %d", $1 + 0.5, $2 + 0.5, $3 + 0.5, $4 + 0.5 }'
}
# The box's padding box runs from x 62 to 378 and from y 22 (top, measured down the page) on: the
# note's right edge at 368, its left at 288, its top 10pt below the padding edge.
set -- $(word_box NOTEWORD)
expect_eq "absolute: left edge from right and width" "$1" 288
expect_eq "absolute: top below the padding edge" "$2" 32
# No positioned ancestor: the page area, whose bottom is at 280.
set -- $(word_box CORNERWORD)
expect_eq "page-level absolute: left" "$1" 20
expect_eq "page-level absolute: bottom" "$4" 280
# The flow closes up behind boxes taken out of it.
set -- $(word_box Flow)
expect_eq "flow below the relative box" "$2" 124
# The spaces around an absolute box in a line collapse into one.
text=$(pdftotext -layout pos.pdf -)
expect_contains "text around the note" "$text" "Inside the box more text."

# The fixed letterhead: on every page, at the top right of the page area.
expect_eq "letterhead on every page" "$(echo "$bbox" | grep -c '>LETTERHEAD<')" 3
for n in 1 2 3; do
    set -- $(word_box LETTERHEAD $n)
    expect_eq "letterhead $n: right edge" "$(( $3 <= 380 && $3 >= 377 ))" 1
    expect_eq "letterhead $n: top" "$(( $2 >= 20 && $2 <= 22 ))" 1
done

# The inline block: its words on the line of the text around it, on one baseline.
line=$(echo "$text" | grep "INLINE" | tr -s ' ' | sed 's/^ //')
expect_eq "inline block on the line" "$line" "Words before INLINE BLOCK WORDS words after."
set -- $(word_box Words)
before_bottom=$4
set -- $(word_box INLINE)
expect_eq "inline block on the baseline" "$4" "$before_bottom"

# z-index: where red (2) and blue (1) overlap, red is on top; blue shows below red.
pdftoppm -r 72 -png -f 1 -l 1 pos.pdf page
pixel() {
    /usr/bin/python3 -c "
from PIL import Image
import sys
im = Image.open('page-1.png').convert('RGB')
print('%d %d %d' % im.getpixel((int(sys.argv[1]), int(sys.argv[2]))))" "$1" "$2"
}
expect_eq "overlap painted red" "$(pixel 150 200)" "255 0 0"
expect_eq "blue beside it" "$(pixel 190 240)" "0 0 255"

# z-index reversed: blue on top.
sed -e 's/z-index: 2 }/z-index: 1 }/' -e 's/0,0,255); z-index: 1 }/0,0,255); z-index: 3 }/' pos.html >rev.html
timeout 60 "$VELLUM" rev.html -o rev.pdf 2>rev.err
qpdf_clean "reversed" rev.pdf
pdftoppm -r 72 -png -f 1 -l 1 rev.pdf page
expect_eq "overlap painted blue" "$(pixel 150 200)" "0 0 255"
# A fixed box repeats on every page, also on those before the page its place in the text falls on.
cat >late.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 300pt; margin: 20pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
.stamp { position: fixed; bottom: 0; right: 0 }
a::after { content: target-counter(attr(href), page) }
</style></head><body>
<p>Stamp on page <a href="#late"></a>.</p>
<p style="break-before: page">Second page.</p>
<div class="stamp" id="late">LATESTAMP</div>
<p style="break-before: page">Third page.</p>
</body></html>
HTML
timeout 60 "$VELLUM" late.html -o late.pdf 2>late.err
expect_eq "late fixed: status" "$?" 0
qpdf_clean "late fixed" late.pdf
for n in 1 2 3; do
    count=$(pdftotext -f $n -l $n late.pdf - | grep -c LATESTAMP)
    expect_eq "late fixed: on page $n" "$count" 1
done

# An absolute box inside a float that is not positioned belongs to the float's containing block (here
# the page area, 20pt to 380pt across); right to left, a box with both offsets set keeps its right
# offset, and one left at its static place ends at the flow's right edge.
cat >inner.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 300pt; margin: 20pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
.fl { float: left; width: 100pt; height: 50pt; margin-top: 100pt }
.corner { position: absolute; top: 0; right: 0 }
.rtl { direction: rtl }
.both { position: absolute; top: 200pt; left: 10pt; right: 30pt; width: 50pt }
.stat { position: absolute; width: 60pt }
</style></head><body>
<div class="fl">Floattext <span class="corner">CORNERMARK</span></div>
<div class="rtl"><p>Line</p><div class="both">RTLBOTH</div><div class="stat">RTLSTATIC</div></div>
</body></html>
HTML
timeout 60 "$VELLUM" inner.html -o inner.pdf 2>inner.err
expect_eq "inner: status" "$?" 0
qpdf_clean "inner" inner.pdf
bbox=$(pdftotext -bbox inner.pdf -)
set -- $(word_box CORNERMARK)
expect_eq "absolute in float: against the page area's right" "$(( $3 >= 377 && $3 <= 381 ))" 1
expect_eq "absolute in float: at the page area's top" "$(( $2 >= 20 && $2 <= 23 ))" 1
set -- $(word_box RTLBOTH)
# Right offset 30pt: the 50pt box spans 300 to 350; its text starts at its right edge.
expect_eq "rtl absolute: right edge from the right offset" "$(( $3 >= 345 && $3 <= 351 ))" 1
set -- $(word_box RTLSTATIC)
expect_eq "rtl absolute: static place at the right" "$(( $3 >= 375 && $3 <= 381 ))" 1
finish
