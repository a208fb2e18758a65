#!/usr/bin/env bash
# Footnotes: the call numbered in the text, the body with its marker at the foot of the page of its
# call, below the @footnote area's border; a long body split with its rest first on the next page; a
# line whose footnote cannot start on the page goes on with it; and the warning for a footnote that
# fits on no page.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# words_at PDF PAGE: "word ymin" for each word of a page, from pdftotext -bbox.
words_at() {
    pdftotext -f "$2" -l "$2" -bbox "$1" - | sed -n 's/.*yMin="\([0-9.]*\)".*>\([^<]*\)<\/word>/\2 \1/p'
}
# y_of PDF PAGE WORD: the top of the first such word on the page, empty when it isn't there.
y_of() { words_at "$1" "$2" | awk -v w="$3" '$1 == w { print $2; exit }'; }

filler() {
    local i
    for i in $(seq 1 "$1"); do
        printf '<p>Filler line %s.</p>\n' "$i"
    done
}

{
    cat <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt; @footnote { border-top: 1pt solid black; padding-top: 4pt } }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.fn { float: footnote; font-size: 8pt; line-height: 10pt }
</style></head><body>
<p>Alpha calls here<span class="fn">Firstnote body.</span> and a second<span class="fn">Secondnote body.</span>
one.</p>
HTML
    filler 40
    echo '<p>Gamma calls<span class="fn">Thirdnote body.</span> on a later page.</p>'
    echo '</body></html>'
} >notes.html
timeout 60 "$VELLUM" notes.html -o notes.pdf 2>notes.err
expect_eq "status" "$?" 0
qpdf_clean "notes" notes.pdf
expect_eq "no warnings" "$(cat notes.err)" ""
text=$(pdftotext -layout notes.pdf -)
expect_contains "first call numbered" "$text" "here1 and a second2"
expect_contains "first marker" "$text" "1. Firstnote body."
expect_contains "second marker" "$text" "2. Secondnote body."
expect_contains "numbering goes on over pages" "$text" "3. Thirdnote body."

# The bodies lie at the foot of the page of their call, below the text.
y1=$(y_of notes.pdf 1 "Firstnote")
[ -n "$y1" ] || fail "first footnote not on the page of its call"
y_filler=$(words_at notes.pdf 1 | awk '$1 == "Filler" { y = $2 } END { print y }')
if [ -n "$y1" ] && [ -n "$y_filler" ]; then
    awk -v a="$y1" -v b="$y_filler" 'BEGIN { exit !(a > b && a > 300) }' ||
        fail "footnote body at y=$y1 is not below the last text line (y=$y_filler) at the foot of the page"
fi
gamma_page=$(for p in $(seq 1 "$(pdfinfo notes.pdf | awk '/^Pages:/ { print $2 }')"); do
    [ -n "$(y_of notes.pdf "$p" Gamma)" ] && echo "$p" && break
done)
[ -n "$(y_of notes.pdf "$gamma_page" Thirdnote)" ] || fail "third footnote not on the page of its call ($gamma_page)"

# The @footnote border is drawn above the bodies: dark pixels in a row just above the first body.
pdftoppm -r 72 -gray -f 1 -l 1 -png notes.pdf page
rule=$(/usr/bin/python3 - "$y1" <<'PY'
import sys
from PIL import Image
im = Image.open("page-1.png").convert("L")
y1 = float(sys.argv[1])
rows = [y for y in range(int(y1) - 12, int(y1)) if sum(im.getpixel((x, y)) < 128 for x in range(40, 260)) > 150]
print("yes" if rows else "no")
PY
)
expect_eq "footnote area border" "$rule" "yes"

# A body longer than the room left is split: its start stays on the page of its call and its rest
# comes first on the next page, before the next page's own footnotes.
long=$(for i in $(seq 1 60); do printf 'longword%s ' "$i"; done)
{
    cat <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.fn { float: footnote; font-size: 8pt; line-height: 10pt }
</style></head><body>
HTML
    filler 18
    echo "<p>Delta calls<span class=\"fn\">Longnote $long end.</span> a long note.</p>"
    filler 30
    echo '<p>Omega calls<span class="fn">Shortnote body.</span> a short one.</p>'
    echo '</body></html>'
} >split.html
timeout 60 "$VELLUM" split.html -o split.pdf 2>split.err
expect_eq "split: status" "$?" 0
qpdf_clean "split" split.pdf
delta_page=$(for p in 1 2 3; do [ -n "$(y_of split.pdf "$p" Delta)" ] && echo "$p" && break; done)
[ -n "$(y_of split.pdf "$delta_page" Longnote)" ] || fail "split: long footnote does not start on its call's page"
[ -n "$(y_of split.pdf "$delta_page" longword60)" ] && fail "split: the long footnote was not split"
next=$((delta_page + 1))
[ -n "$(y_of split.pdf "$next" longword60)" ] || fail "split: the rest is not on the next page"
filler_top=$(words_at split.pdf "$next" | awk '$1 == "Filler" { print $2; exit }')
[ -n "$filler_top" ] || fail "split: the next page holds no text"

# keep-with-line: a call on the last line whose footnote doesn't fit below it goes on, line and all.
{
    cat <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.fn { float: footnote; font-size: 8pt; line-height: 10pt; -vellum-footnote-policy: line }
</style></head><body>
HTML
    filler 20
    echo "<p>Kappa calls<span class=\"fn\">Keptnote $long end.</span> at the foot.</p>"
    echo '</body></html>'
} >keep.html
timeout 60 "$VELLUM" keep.html -o keep.pdf 2>keep.err
expect_eq "keep: status" "$?" 0
kappa_page=$(for p in 1 2 3; do [ -n "$(y_of keep.pdf "$p" Kappa)" ] && echo "$p" && break; done)
[ -n "$(y_of keep.pdf "$kappa_page" Keptnote)" ] || fail "keep: footnote not with its call (page $kappa_page)"
[ -n "$(y_of keep.pdf "$kappa_page" longword60)" ] || fail "keep: the kept footnote was split"

# An absolutely positioned box inside a footnote is placed: with no positioned box around it, against
# the page area (top left of the page's body, margins of 72pt at 612x792); inside a positioned block
# of the footnote, against that block.
cat >fnabs.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 612pt 792pt; margin: 72pt }
body { font: 10pt "DejaVu Sans" }
.fn { float: footnote } .abs { position: absolute; top: 0; left: 0 }
.rel { position: relative } .rel .abs { top: auto; bottom: 0; left: 100pt }
</style></head>
<body><p>Text<span class="fn">Note <span class="abs">Placedword</span> here</span> more.</p>
<p>Again<span class="fn"><span class="rel" style="display: block">Second note <span class="abs">Innerword</span></span></span>.</p></body></html>
HTML
timeout 60 "$VELLUM" fnabs.html -o fnabs.pdf 2>fnabs.err
expect_eq "absolute in footnote: status" "$?" 0
qpdf_clean "absolute in footnote" fnabs.pdf
expect_contains "absolute in footnote: the note is set" "$(pdftotext fnabs.pdf -)" "Note here"
expect_not_contains "absolute in footnote: no warning" "$(cat fnabs.err)" "absolutely positioned"
read -r px py <<<"$(pdftotext -bbox fnabs.pdf - | sed -n 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)".*>Placedword<.*/\1 \2/p')"
awk -v x="$px" -v y="$py" 'BEGIN { exit !(x > 71 && x < 74 && y > 71 && y < 75) }' ||
    fail "absolute in footnote: not at the page area's top left ($px, $py)"
read -r ix iy <<<"$(pdftotext -bbox fnabs.pdf - | sed -n 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)".*>Innerword<.*/\1 \2/p')"
read -r sx sy <<<"$(pdftotext -bbox fnabs.pdf - | sed -n 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)".*>Second<.*/\1 \2/p')"
awk -v ix="$ix" -v iy="$iy" -v sy="$sy" 'BEGIN { exit !(ix > 171 && ix < 176 && iy > 500 && iy < sy + 12) }' ||
    fail "absolute in positioned footnote: at ($ix, $iy), the note's first line at $sy"

# counter-reset: footnote in the page rule numbers the footnotes of each page from 1.
sed 's/@page { size: 300pt 400pt; margin: 30pt;/@page { size: 300pt 400pt; margin: 30pt; counter-reset: footnote;/' \
    notes.html >perpage.html
timeout 60 "$VELLUM" perpage.html -o perpage.pdf 2>perpage.err
expect_eq "per page: status" "$?" 0
ptext=$(pdftotext -layout perpage.pdf -)
expect_contains "per page: first page counts from 1" "$ptext" "2. Secondnote body."
expect_contains "per page: a later page counts from 1 again" "$ptext" "1. Thirdnote body."
expect_contains "per page: the call too" "$ptext" "Gamma calls1"

# A note longer than a page called in the next-to-last line of a paragraph: the call stays on the page
# where its line falls and the note starts under it. The rest of the note has the next page to itself,
# so moving the call's line on to spare the paragraph's last line a widow would only leave this page
# three quarters empty.
/usr/bin/python3 - >widow.html <<'PY'
words = " ".join("word%d" % i for i in range(201))
note = " ".join("n%d" % i for i in range(260))
print('<!DOCTYPE html><html><head><style>@page { size: 300pt 400pt; margin: 30pt }'
      ' body { margin: 0; font: 10pt/12pt "DejaVu Sans" } .fn { float: footnote }</style></head><body>'
      '<p>%s CALLED<span class="fn">%s</span> and the last line of the paragraph.</p>'
      '<p>NEXT paragraph.</p></body></html>' % (words, note))
PY
timeout 60 "$VELLUM" widow.html -o widow.pdf 2>widow.err
expect_eq "widow: status" "$?" 0
call_page=$(for p in 1 2 3; do [ -n "$(y_of widow.pdf $p CALLED)" ] && echo $p; done | head -1)
expect_eq "widow: the call is on page 2" "$call_page" 2
expect_eq "widow: the note starts on the page of its call" "$([ -n "$(y_of widow.pdf 2 n0)" ] && echo yes)" yes
expect_eq "widow: page 2 is full" "$(pdftotext -f 2 -l 2 -layout widow.pdf - | grep -c .)" 29
expect_eq "widow: nothing lost" "$(pdftotext widow.pdf - | grep -ow 'n[0-9]\+' | sort -u | wc -l)" 260

finish
