#!/usr/bin/env bash
# Page floats through the program: a float taller than the page is split over the pages after its
# call; `unless-fit` inside a paragraph keeps a float that fits beside its line; footnotes called
# inside a page float reach the foot of the page, numbered first there, above the text's.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

pages_of() { pdfinfo "$1" | awk '/^Pages:/ { print $2 }'; }

head='<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }'

# A float taller than the page: its first part fills the page after its call, its rest comes first
# on the next page, followed by the text after the call that page 1 had no room for.
{
    echo "$head"
    echo '.t { float: top }
</style></head><body><p>Callpage text.</p><div class="t">'
    for i in $(seq 1 40); do echo "<p>Floatline$i</p>"; done
    echo '</div>'
    for i in $(seq 1 40); do echo "<p>Body$i text.</p>"; done
    echo '</body></html>'
} >tall.html
timeout 60 "$VELLUM" tall.html -o tall.pdf 2>tall.err
expect_eq "tall: status" "$?" 0
qpdf_clean "tall" tall.pdf
expect_eq "tall: no warnings" "$(cat tall.err)" ""
text=$(pdftotext tall.pdf -)
expect_eq "tall: every line of the float once" "$(grep -o 'Floatline[0-9]*' <<<"$text" | sort -u | wc -l)" 40
expect_eq "tall: no line of the float twice" "$(grep -o 'Floatline[0-9]*' <<<"$text" | wc -l)" 40
[ -n "$(box_of tall.pdf 2 Floatline1)" ] || fail "tall: the float does not start on page 2"
# 28 lines of 12pt fill a body of 340pt: the rest of the float, from line 29, opens page 3.
read -r fx fy <<<"$(box_of tall.pdf 3 Floatline29)"
awk -v y="$fy" 'BEGIN { exit !(y < 33) }' || fail "tall: the float's rest is not at the top of page 3 ($fy)"
read -r bx by <<<"$(box_of tall.pdf 3 Body40)"
awk -v b="$by" -v f="$fy" 'BEGIN { exit !(b > f) }' || fail "tall: the text below the float's rest on page 3"
[ -n "$(box_of tall.pdf 1 Body1)" ] || fail "tall: the text after the call does not go on on page 1"

# unless-fit inside a paragraph: where the float fits it stays beside its line at the left.
cat >unless.html <<HTML
$head
.u { display: block; float: top unless-fit; width: 70pt; border: 1pt solid }
</style></head><body><p>Before words <span class="u">Keptfloat</span> after words.</p></body></html>
HTML
timeout 60 "$VELLUM" unless.html -o unless.pdf 2>unless.err
expect_eq "unless-fit: status" "$?" 0
read -r kx ky <<<"$(box_of unless.pdf 1 Keptfloat)"
read -r bx by <<<"$(box_of unless.pdf 1 Before)"
awk -v x="$kx" -v y="$ky" 'BEGIN { exit !(x < 33 && y < 35) }' || fail "unless-fit: float at $kx,$ky"
awk -v x="$bx" 'BEGIN { exit !(x > 100) }' || fail "unless-fit: the line ($bx) does not run beside the float"

# Footnotes called in a page float are placed at the foot of the page, numbered first there: the
# float stands above the text. The text's calls before and after it are 2 and 3.
cat >notes.html <<HTML
$head
.t { float: top; border-bottom: 1pt solid }
.fn { float: footnote; font-size: 8pt }
</style></head><body><p>Textone<span class="fn">Noteone.</span> words.</p>
<div class="t">Floattext<span class="fn">Notefloat.</span> here.</div>
<p>Texttwo<span class="fn">Notetwo.</span> words.</p></body></html>
HTML
timeout 60 "$VELLUM" notes.html -o notes.pdf 2>notes.err
expect_eq "float notes: status" "$?" 0
qpdf_clean "float notes" notes.pdf
expect_eq "float notes: no warnings" "$(cat notes.err)" ""
text=$(pdftotext -layout notes.pdf -)
expect_contains "float notes: call in the float" "$text" "Floattext1"
expect_contains "float notes: call before the float" "$text" "Textone2"
expect_contains "float notes: call after the float" "$text" "Texttwo3"
read -r n1x n1y <<<"$(box_of notes.pdf 1 Notefloat.)"
read -r n2x n2y <<<"$(box_of notes.pdf 1 Noteone.)"
read -r n3x n3y <<<"$(box_of notes.pdf 1 Notetwo.)"
awk -v a="$n1y" -v b="$n2y" -v c="$n3y" 'BEGIN { exit !(a > 300 && b > a && c > b) }' ||
    fail "float notes: bodies at $n1y, $n2y, $n3y, not at the foot in the order of their numbers"

# A float taller than the page calling a footnote: the note goes on to the page after the float's first
# part, numbered after the calls of page 1 (the text after the float goes on there).
{
    echo "$head"
    echo '.t { float: top } .fn { float: footnote; font-size: 8pt }
</style></head><body><p>Start<span class="fn">Firstnote.</span> text.</p><div class="t">'
    echo '<p>Tallfloat<span class="fn">Tallnote.</span> begins.</p>'
    for i in $(seq 1 40); do echo "<p>More$i</p>"; done
    echo '</div><p>Later<span class="fn">Laternote.</span> text.</p></body></html>'
} >tallnote.html
timeout 60 "$VELLUM" tallnote.html -o tallnote.pdf 2>tallnote.err
expect_eq "tall float note: status" "$?" 0
expect_eq "tall float note: no warnings" "$(cat tallnote.err)" ""
text=$(pdftotext -layout tallnote.pdf -)
expect_eq "tall float note: each note once" "$(grep -o -e Firstnote -e Tallnote -e Laternote <<<"$text" | sort -u | wc -l)" 3
# The float's note goes on to page 3, under the rest of the float.
[ -n "$(box_of tallnote.pdf 3 Tallnote.)" ] || fail "tall float note: the float's note is not on page 3"
expect_contains "tall float note: the float's call, placed after the text of page 1" "$text" "Tallfloat3"
expect_contains "tall float note: the call after it, on page 1" "$text" "Later2"

# Corner floats stand at the outside of the body: at the right on page 1 (a right-hand page), at
# the left on page 2. `snap` goes to the edge nearer to its call: a call near the top of the body
# sends it to the top, one in the lower half to the bottom.
{
    echo "$head"
    echo '.c { float: top-corner; width: 60pt; border: 1pt solid }
.b { float: bottom-corner; width: 60pt }
.s { float: snap; width: 60pt }
</style></head><body><p>Firstline.</p><div class="c">Cornerone</div><div class="b">Cornerbottom</div>'
    for i in $(seq 1 18); do echo "<p>Filler$i text.</p>"; done
    echo '<div class="s">Snaplow</div>'
    for i in $(seq 19 30); do echo "<p>Filler$i text.</p>"; done
    echo '<div class="c">Cornertwo</div><div class="s">Snaphigh</div><p>Secondpage.</p>'
    for i in $(seq 31 50); do echo "<p>Filler$i text.</p>"; done
    echo '</body></html>'
} >corner.html
timeout 60 "$VELLUM" corner.html -o corner.pdf 2>corner.err
expect_eq "corner: status" "$?" 0
qpdf_clean "corner" corner.pdf
expect_eq "corner: no warnings" "$(cat corner.err)" ""
read -r c1x c1y <<<"$(box_of corner.pdf 1 Cornerone)"
awk -v x="$c1x" -v y="$c1y" 'BEGIN { exit !(x > 200 && x < 270 && y < 40) }' ||
    fail "corner: top corner float on page 1 at $c1x,$c1y, not at the top right"
read -r cbx cby <<<"$(box_of corner.pdf 1 Cornerbottom)"
awk -v x="$cbx" -v y="$cby" 'BEGIN { exit !(x > 200 && y > 340) }' ||
    fail "corner: bottom corner float on page 1 at $cbx,$cby, not at the bottom right"
read -r fx fy <<<"$(box_of corner.pdf 1 Firstline.)"
awk -v x="$fx" -v y="$fy" 'BEGIN { exit !(x < 35 && y > 40) }' ||
    fail "corner: the text at $fx,$fy does not start at the left below the top float"
read -r slx sly <<<"$(box_of corner.pdf 1 Snaplow)"
# The bottom floats stack up from the foot in the order met: the corner float, met first, stands
# highest.
awk -v y="$sly" -v b="$cby" 'BEGIN { exit !(y > 300 && y > b) }' ||
    fail "corner: a snap float called low on page 1 is at $sly, not at the bottom below the corner ($cby)"
read -r c2x c2y <<<"$(box_of corner.pdf 2 Cornertwo)"
awk -v x="$c2x" -v y="$c2y" 'BEGIN { exit !(x < 35 && y < 40) }' ||
    fail "corner: top corner float on page 2 at $c2x,$c2y, not at the top left"
read -r shx shy <<<"$(box_of corner.pdf 2 Snaphigh)"
awk -v y="$shy" 'BEGIN { exit !(y < 60) }' || fail "corner: a snap float called high on page 2 is at $shy"

# A float to the bottom styled by its page region stands on the footnote area: the region's border
# above the float, the float, then the footnote area with its own border, and the note at the foot.
{
    echo '<!DOCTYPE html><html><head><style>
@page { size: 300pt 300pt; margin: 20pt;
  @page-float-bottom { border-top: 2pt solid #f00; padding-top: 4pt; margin-top: 6pt }
  @footnote { border-top: 1pt solid #00f; margin-top: 4pt } }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" } p { margin: 0 }
.b { float: bottom; height: 40pt } .n { float: footnote }
</style></head><body><p>Notecall text<span class="n">Footbody text.</span></p>
<div class="b">Bottomfloat</div><p>Aftertext.</p></body></html>'
} >bottomnote.html
timeout 60 "$VELLUM" bottomnote.html -o bottomnote.pdf 2>bottomnote.err
expect_eq "bottomnote: status" "$?" 0
expect_eq "bottomnote: no warnings" "$(cat bottomnote.err)" ""
read -r _ floaty <<<"$(box_of bottomnote.pdf 1 Bottomfloat)"
read -r _ notey <<<"$(box_of bottomnote.pdf 1 Footbody)"
read -r _ aftery <<<"$(box_of bottomnote.pdf 1 Aftertext.)"
# The float's 40pt and the footnote area's border and margin lie between the float's first line and
# the note; the text after the call stays in the flow above the float.
awk -v f="$floaty" -v n="$notey" -v a="$aftery" 'BEGIN { exit !(f != "" && n != "" && a < f && n >= f + 40 && n < 280) }' ||
    fail "bottomnote: float at $floaty, note at $notey, text after at $aftery"
pdftoppm -r 72 -png -singlefile bottomnote.pdf bottomnote
rows=$(/usr/bin/python3 - <<'PY'
from PIL import Image
im = Image.open("bottomnote.png").convert("RGB")
def row_of(colour):
    for y in range(im.height):
        if all(abs(a - b) < 60 for a, b in zip(im.getpixel((150, y)), colour)):
            return y
    return -1
print(row_of((255, 0, 0)), row_of((0, 0, 255)))
PY
)
read -r red blue <<<"$rows"
awk -v r="$red" -v b="$blue" -v f="$floaty" -v n="$notey" 'BEGIN { exit !(r >= 0 && r < f && b > f + 40 && b < n) }' ||
    fail "bottomnote: the region border ($red) is not above the float ($floaty), or the footnote border ($blue) not between it and the note ($notey)"

finish
