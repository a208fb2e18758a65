#!/usr/bin/env bash
# Ordinary floats through the binary: text beside a left and a right float, clear moving a block
# below them, a float wider than the page placed once (no endless pages), a float too tall for the
# rest of the page moving on with the text after it, and a margin note pulled into the page margin by
# a negative margin taking no room from the text.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >floats.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 500pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.l { float: left; width: 100pt; height: 60pt }
.r { float: right; width: 80pt; height: 40pt }
.c { clear: both }
</style></head><body>
<div class="l">Leftfloat</div><div class="r">Rightfloat</div>
<p>Flowtext runs beside both floats and goes on below them when they end, word after word after word.</p>
<p class="c">Cleared paragraph.</p>
</body></html>
HTML
timeout 60 "$VELLUM" floats.html -o floats.pdf 2>floats.err
expect_eq "status" "$?" 0
qpdf_clean "floats" floats.pdf
read -r lx ly <<<"$(box_of floats.pdf 1 Leftfloat)"
read -r rx ry <<<"$(box_of floats.pdf 1 Rightfloat)"
read -r tx ty <<<"$(box_of floats.pdf 1 Flowtext)"
read -r cx cy <<<"$(box_of floats.pdf 1 Cleared)"
awk -v lx="$lx" -v tx="$tx" -v ly="$ly" -v ty="$ty" 'BEGIN { exit !(tx >= lx + 100 && ty < ly + 2) }' ||
    fail "text not beside the left float (float at $lx,$ly; text at $tx,$ty)"
awk -v rx="$rx" 'BEGIN { exit !(rx > 280) }' || fail "right float not at the right edge ($rx)"
# The floats' tops are level with the text's first line; the cleared block starts below the taller.
awk -v cy="$cy" -v ly="$ly" -v cx="$cx" 'BEGIN { exit !(cy >= ly + 58 && cx < 35) }' ||
    fail "clear: paragraph at $cx,$cy is not below the left float (top $ly)"

# A float wider than the page: placed once, overflowing, and the text after it still comes.
cat >wide.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt "DejaVu Sans" }
.w { float: left; width: 500pt; height: 50pt }
</style></head><body>
<p>Before the wide float.</p><div class="w">Widefloat</div><p>Afterwide text.</p>
</body></html>
HTML
timeout 60 "$VELLUM" wide.html -o wide.pdf 2>wide.err
expect_eq "wide: status" "$?" 0
expect_eq "wide: one page" "$(pdfinfo wide.pdf | awk '/^Pages:/ { print $2 }')" 1
expect_contains "wide: text after it" "$(pdftotext wide.pdf -)" "Afterwide text."

# A float too tall for the rest of the page goes on to the next with the text after it; the text
# before it stays.
{
    echo '<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.t { float: right; width: 80pt; height: 200pt }
</style></head><body>'
    for i in $(seq 1 20); do echo "<p>Line $i.</p>"; done
    echo '<p>Stayshere before.</p><div class="t">Tallfloat</div><p>Goeson after.</p></body></html>'
} >tall.html
timeout 60 "$VELLUM" tall.html -o tall.pdf 2>tall.err
expect_eq "tall: status" "$?" 0
[ -n "$(box_of tall.pdf 1 Stayshere)" ] || fail "tall: the text before the float left page 1"
[ -n "$(box_of tall.pdf 2 Tallfloat)" ] || fail "tall: the float is not on page 2"
[ -n "$(box_of tall.pdf 2 Goeson)" ] || fail "tall: the text after the float is not on page 2"

# A margin note: a right float pulled out of the text column by a negative right margin. The text
# keeps the column's full width, and the note sits in the page margin.
cat >note.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 300pt; margin: 30pt 150pt 30pt 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
.note { float: right; width: 50%; margin-right: -60%; font-size: 8pt }
</style></head><body>
<p>Before<span class="note">Marginnote</span> the note and then a long run of words that fills the line to the column edge.</p>
</body></html>
HTML
timeout 60 "$VELLUM" note.html -o note.pdf 2>note.err
expect_eq "note: status" "$?" 0
read -r nx ny <<<"$(box_of note.pdf 1 Marginnote)"
awk -v nx="$nx" 'BEGIN { exit !(nx >= 250) }' || fail "note: not in the page margin (x=$nx)"
widest=$(pdftotext -f 1 -l 1 -bbox note.pdf - | sed -n 's/.*xMax="\([0-9.]*\)".*>\([^<]*\)<\/word>/\1 \2/p' |
    awk '$2 != "Marginnote" && $1 > m { m = $1 } END { print m }')
awk -v w="$widest" 'BEGIN { exit !(w > 200) }' || fail "note: the text lost width to the note (right edge $widest)"

# A float called in the middle of a line stands beside that line, and the paragraph goes on around
# it: a side note level with the line of its call, with the words after the call on the same line,
# and a page number floated right at the end of a contents entry, level with the entry.
cat >midline.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 300pt; margin: 30pt 150pt 30pt 30pt }
body { margin: 0; font: 10pt/14pt "DejaVu Sans" }
p { margin: 0 0 10pt }
.note { float: right; clear: right; width: 50%; margin-right: -60%; font-size: 8pt; line-height: 1.3 }
li { list-style: none; border-top: 0.5pt solid #999 }
.num { float: right }
</style></head><body>
<p>Firstword<span class="note">Sidenote text</span> Aftercall and then a long run of words to fill lines.</p>
<ul><li><a href="#t">Entryone<span class="num">42</span></a></li><li id="t">Entrytwo</li></ul>
</body></html>
HTML
timeout 60 "$VELLUM" midline.html -o midline.pdf 2>midline.err
expect_eq "mid-line float: status" "$?" 0
qpdf_clean "mid-line float" midline.pdf
read -r fx fy <<<"$(box_of midline.pdf 1 Firstword)"
read -r ax ay <<<"$(box_of midline.pdf 1 Aftercall)"
read -r sx sy <<<"$(box_of midline.pdf 1 Sidenote)"
awk -v fy="$fy" -v ay="$ay" 'BEGIN { d = fy - ay; exit !(d < 1 && d > -1) }' ||
    fail "mid-line float: the words after the call ($ay) left the line of the call ($fy)"
awk -v fy="$fy" -v sy="$sy" -v sx="$sx" 'BEGIN { exit !(sy < fy + 3 && sy > fy - 3 && sx >= 250) }' ||
    fail "mid-line float: side note at $sx,$sy, not in the margin beside the line at $fy"
read -r ex ey <<<"$(box_of midline.pdf 1 Entryone)"
read -r nx ny <<<"$(box_of midline.pdf 1 42)"
awk -v ey="$ey" -v ny="$ny" -v nx="$nx" 'BEGIN { exit !(ny < ey + 1 && ny > ey - 1 && nx > 200) }' ||
    fail "mid-line float: page number at $nx,$ny, not at the right end of its entry's line ($ey)"

# Page floats: a float to the top goes above the text before its call, one to the bottom under the
# text after it; both keep the body's width, and no warning is given.
cat >pagefloat.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.top { float: top; height: 50pt; background: #ccc }
.bottom { float: bottom; height: 40pt; background: #888 }
</style></head><body><p>Beforecall text.</p><div class="top">Topfloat one</div>
<div class="bottom">Bottomfloat two</div><p>Aftercall text.</p></body></html>
HTML
timeout 60 "$VELLUM" pagefloat.html -o pagefloat.pdf 2>pagefloat.err
expect_eq "page floats: status" "$?" 0
qpdf_clean "page floats" pagefloat.pdf
expect_eq "page floats: one page" "$(pdfinfo pagefloat.pdf | awk '/^Pages:/ { print $2 }')" 1
read -r tx ty <<<"$(box_of pagefloat.pdf 1 Topfloat)"
read -r bx by <<<"$(box_of pagefloat.pdf 1 Bottomfloat)"
read -r px py <<<"$(box_of pagefloat.pdf 1 Beforecall)"
read -r ax ay <<<"$(box_of pagefloat.pdf 1 Aftercall)"
# The top float's first line stands at the top of the body (y = 30), the text below its 50pt.
awk -v ty="$ty" -v py="$py" 'BEGIN { exit !(ty < 33 && py >= 79) }' ||
    fail "page floats: top float at $ty, text before its call at $py"
awk -v ay="$ay" -v py="$py" 'BEGIN { exit !(ay > py && ay < py + 15) }' ||
    fail "page floats: the text after the calls ($ay) does not follow the text before ($py)"
# The bottom float's box ends on the body's bottom (y = 370): its first line is in its last 40pt.
awk -v by="$by" 'BEGIN { exit !(by >= 330 && by < 345) }' || fail "page floats: bottom float at $by"
expect_not_contains "page floats: no warning" "$(cat pagefloat.err)" "page float"
# The float's background spans the body: a grey row across the page under the top float's text.
pdftoppm -r 72 -gray -f 1 -l 1 -x 0 -y 60 -W 300 -H 1 pagefloat.pdf row
row=$(python3 -c "
import sys
d=open('row-1.pgm','rb').read().split(b'\n',3)[3]
print(sum(1 for v in d if v < 230))")
awk -v n="$row" 'BEGIN { exit !(n >= 235 && n <= 245) }' || fail "page floats: grey row $n px wide, not the body's 240"

# The page rule's @page-float-top region frames the top floats: its border is drawn under them and
# its margin keeps the text away.
cat >region.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt; @page-float-top { border-bottom: 2pt solid black; margin-bottom: 8pt } }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.top { float: top; height: 40pt }
</style></head><body><p>Regiontext first.</p><div class="top">Framedfloat</div></body></html>
HTML
timeout 60 "$VELLUM" region.html -o region.pdf 2>region.err
expect_eq "region: status" "$?" 0
read -r rx ry <<<"$(box_of region.pdf 1 Regiontext)"
# The float takes 40pt from the body's top at 30, the border 2pt, the margin 8pt: text at 80.
awk -v ry="$ry" 'BEGIN { exit !(ry >= 79.5 && ry < 83) }' || fail "region: text at $ry, not below the framed float"
# A black rule across the body at y 70 to 72.
pdftoppm -r 72 -gray -f 1 -l 1 -x 0 -y 71 -W 300 -H 1 region.pdf rule
dark=$(python3 -c "
d=open('rule-1.pgm','rb').read().split(b'\n',3)[3]
print(sum(1 for v in d if v < 100))")
awk -v n="$dark" 'BEGIN { exit !(n >= 235 && n <= 245) }' || fail "region: the border under the floats is $dark px wide"

# A float too tall for what is left of the page waits for the next page's top; the text goes on
# around it, and the float after it waits behind it, in order. A float with "next" never lands on
# the page of its call.
{
    echo '<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.big { float: top; height: 200pt }
.small { float: top; height: 20pt }
.next { float: bottom next; height: 20pt }
</style></head><body>'
    for i in $(seq 1 15); do echo "<p>Line $i.</p>"; done
    echo '<p>Nextcall here.</p><div class="next">Nextfloat</div>'
    echo '<div class="big">Bigfloat</div><div class="small">Smallfloat</div>'
    for i in $(seq 16 30); do echo "<p>Line $i.</p>"; done
    echo '</body></html>'
} >defer.html
timeout 60 "$VELLUM" defer.html -o defer.pdf 2>defer.err
expect_eq "defer: status" "$?" 0
qpdf_clean "defer" defer.pdf
[ -n "$(box_of defer.pdf 1 Nextcall)" ] || fail "defer: the call of the next float is not on page 1"
[ -z "$(box_of defer.pdf 1 Nextfloat)" ] || fail "defer: a next float on the page of its call"
[ -n "$(box_of defer.pdf 2 Nextfloat)" ] || fail "defer: the next float is not on page 2"
read -r gx gy <<<"$(box_of defer.pdf 2 Bigfloat)"
read -r sx sy <<<"$(box_of defer.pdf 2 Smallfloat)"
awk -v gy="$gy" -v sy="$sy" 'BEGIN { exit !(gy < 33 && sy > gy + 195) }' ||
    fail "defer: big float at $gy and small float at $sy on page 2, not stacked in order at the top"
# The text after the calls fills page 1 before going on below the floats of page 2.
pdftotext -f 1 -l 1 defer.pdf - | grep -q "Line 20" || fail "defer: page 1 not filled with the text after the calls"
expect_eq "defer: each float once" "$(pdftotext defer.pdf - | grep -c -e Bigfloat -e Smallfloat -e Nextfloat)" 3

# A page float inside a paragraph leaves the line and goes to the top; "unless-fit" keeps a float
# that fits where it stands in the flow.
cat >inpara.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
</style></head><body><p>Firstline words <span style="float: top; display: block">Spanfloat</span> goes on.</p>
<div style="float: bottom unless-fit">Staysput here</div><p>Lastline.</p></body></html>
HTML
timeout 60 "$VELLUM" inpara.html -o inpara.pdf 2>inpara.err
expect_eq "in paragraph: status" "$?" 0
read -r sx sy <<<"$(box_of inpara.pdf 1 Spanfloat)"
read -r fx fy <<<"$(box_of inpara.pdf 1 Firstline)"
read -r ux uy <<<"$(box_of inpara.pdf 1 Staysput)"
read -r lx ly <<<"$(box_of inpara.pdf 1 Lastline.)"
awk -v sy="$sy" -v fy="$fy" 'BEGIN { exit !(sy < 33 && fy > sy + 10) }' ||
    fail "in paragraph: float at $sy, its paragraph at $fy"
awk -v uy="$uy" -v ly="$ly" 'BEGIN { exit !(uy < ly && ly < uy + 15) }' ||
    fail "unless-fit: the float ($uy) is not in the flow before the last line ($ly)"

# Floats of "auto" width shrink to fit: one holding two words is as wide as they are, with the text
# after it beside them; one holding words for many lines is as wide as the body, with the text after
# it below.
words=$(printf 'words %.0s' $(seq 80))
cat >shrink.html <<HTML
<!DOCTYPE html><html><head><style>
@page { size: 400pt 500pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.f { float: left; border-right: 2pt solid }
</style></head><body>
<div class="f">Narrow float</div><p>Besideit text.</p>
<div style="clear: both"></div>
<div class="f">Widefloat $words</div><p>Belowit text.</p>
</body></html>
HTML
timeout 60 "$VELLUM" shrink.html -o shrink.pdf 2>shrink.err
expect_eq "shrink-to-fit: status" "$?" 0
read -r nx ny <<<"$(box_of shrink.pdf 1 Narrow)"
read -r bx by <<<"$(box_of shrink.pdf 1 Besideit)"
read -r wx wy <<<"$(box_of shrink.pdf 1 Widefloat)"
read -r ux uy <<<"$(box_of shrink.pdf 1 Belowit)"
awk -v nx="$nx" -v ny="$ny" -v bx="$bx" -v by="$by" 'BEGIN { exit !(bx > nx + 60 && bx < nx + 100 && by < ny + 2 && by > ny - 2) }' ||
    fail "shrink-to-fit: text at $bx,$by not just beside the narrow float at $nx,$ny"
awk -v wy="$wy" -v ux="$ux" -v uy="$uy" 'BEGIN { exit !(ux < 35 && uy > wy + 60) }' ||
    fail "shrink-to-fit: text at $ux,$uy not below the wide float (top $wy)"

finish
