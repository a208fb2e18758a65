#!/usr/bin/env bash
# Multi-column layout through the binary: the x of two and three columns, balanced columns ending at
# the same height, a column rule's pixels in the middle of the gap, a headline spanning the columns
# with balanced runs above and below it, a long container going on in columns on the next page, column
# breaks by both names, and nested containers and a container in a table cell set without a crash.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# words PDF PAGE: "word xmin ymin" for each word of a page.
words() {
    pdftotext -f "$2" -l "$2" -bbox "$1" - |
        sed -n 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)".*>\([^<]*\)<\/word>/\3 \1 \2/p'
}
# at PDF PAGE WORD: "xmin ymin" of the first such word on the page, empty when it isn't there.
at() { words "$1" "$2" | awk -v w="$3" '$1 == w { print $2, $3; exit }'; }
# near NAME ACTUAL EXPECTED TOLERANCE
near() {
    awk -v a="$2" -v e="$3" -v t="$4" 'BEGIN { d = a - e; if (d < 0) d = -d; exit !(a != "" && d <= t) }' ||
        fail "$1: expected $3 (within $4), got [$2]"
}
# pixel PDF X Y: the grey value (0 black, 255 white) of one pixel of page 1 at 72 dpi.
pixel() {
    pdftoppm -r 72 -gray -x "$2" -y "$3" -W 1 -H 1 -f 1 -l 1 "$1" px
    tail -c 1 px-1.pgm | od -An -tu1 | tr -d ' '
}
# paras PREFIX N: N one-line paragraphs PREFIX01, PREFIX02, ...
paras() {
    local i
    for i in $(seq 1 "$2"); do
        printf '<p>%s%02d</p>\n' "$1" "$i"
    done
}
# Pages of 400pt by 500pt with 30pt margins: a body of 340pt by 440pt, lines of 12pt.
head='<!DOCTYPE html><html><head><style>
@page { size: 400pt 500pt; margin: 30pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }'

# Two columns with a rule, and a headline across them: 340pt less a 20pt gap, columns of 160pt at
# x = 30 and x = 210; the rule at the middle of the gap, x = 200.
{
    echo "$head"
    echo '.m { columns: 2; column-gap: 20pt; column-rule: 4pt solid black }'
    echo 'h1 { column-span: all; font: bold 14pt/20pt "DejaVu Sans"; margin: 0 }'
    echo '</style></head><body><div class="m">'
    paras A 7
    echo '<h1>Headline</h1>'
    paras B 5
    echo '</div></body></html>'
} >two.html
timeout 60 "$VELLUM" two.html -o two.pdf 2>two.err
expect_eq "two: status" "$?" 0
qpdf_clean "two" two.pdf
expect_eq "two: no warning" "$(cat two.err)" ""
read -r x1 y1 <<<"$(at two.pdf 1 A01)"
read -r x5 y5 <<<"$(at two.pdf 1 A05)"
read -r x4 y4 <<<"$(at two.pdf 1 A04)"
read -r x7 y7 <<<"$(at two.pdf 1 A07)"
near "two: first column x" "$x1" 30 0.5
near "two: second column x" "$x5" 210 0.5
# Balanced: four lines and three, the second column starting level with the first, and the last lines
# of both columns within a line of each other.
near "two: second column top" "$y5" "$y1" 0.5
near "two: A04 ends the first column" "$x4" 30 0.5
near "two: last lines level" "$y7" "$y4" 12
read -r hx hy <<<"$(at two.pdf 1 Headline)"
near "two: headline at the left" "$hx" 30 0.5
awk -v h="$hy" -v a="$y4" 'BEGIN { exit !(h > a + 10) }' || fail "two: headline ($hy) not below the columns ($y4)"
read -r bx1 by1 <<<"$(at two.pdf 1 B01)"
read -r bx4 by4 <<<"$(at two.pdf 1 B04)"
near "two: run below starts in the first column" "$bx1" 30 0.5
near "two: run below balanced into the second column" "$bx4" 210 0.5
near "two: run below level" "$by4" "$by1" 0.5
awk -v b="$by1" -v h="$hy" 'BEGIN { exit !(b > h + 14) }' || fail "two: run ($by1) not below the headline ($hy)"
# The rule: black in the middle of the gap beside the lines, white in the gap beside it and above.
expect_eq "two: rule pixel" "$(pixel two.pdf 200 40)" 0
expect_eq "two: gap beside the rule" "$(pixel two.pdf 195 40)" 255
expect_eq "two: no rule above the columns" "$(pixel two.pdf 200 25)" 255

# Three columns by width: columns: 100pt with a 20pt gap gives three columns of 100pt.
{
    echo "$head"
    echo '.m { columns: 100pt; column-gap: 20pt }'
    echo '</style></head><body><div class="m">'
    paras C 9
    echo '</div></body></html>'
} >three.html
timeout 60 "$VELLUM" three.html -o three.pdf 2>three.err
expect_eq "three: status" "$?" 0
qpdf_clean "three" three.pdf
near "three: C01" "$(at three.pdf 1 C01 | cut -d' ' -f1)" 30 0.5
near "three: C04" "$(at three.pdf 1 C04 | cut -d' ' -f1)" 150 0.5
near "three: C07" "$(at three.pdf 1 C07 | cut -d' ' -f1)" 270 0.5
near "three: C09 ends the third column" "$(at three.pdf 1 C09 | cut -d' ' -f2)" "$(at three.pdf 1 C03 | cut -d' ' -f2)" 0.5

# A container longer than a page: 36 lines a column, so 100 lines fill page 1 with 72 and go on with
# 28 on page 2, balanced 14 and 14, in the same columns.
{
    echo "$head"
    echo '.m { column-count: 2; column-gap: 20pt }'
    echo '</style></head><body><div class="m">'
    paras L 100
    echo '</div></body></html>'
} >long.html
timeout 60 "$VELLUM" long.html -o long.pdf 2>long.err
expect_eq "long: status" "$?" 0
qpdf_clean "long" long.pdf
expect_eq "long: pages" "$(pdfinfo long.pdf | awk '/^Pages:/ { print $2 }')" 2
near "long: L37 tops the second column" "$(at long.pdf 1 L37 | cut -d' ' -f1)" 210 0.5
near "long: L73 on page 2, first column" "$(at long.pdf 2 L73 | cut -d' ' -f1)" 30 0.5
read -r px py <<<"$(at long.pdf 2 L87)"
near "long: L87 tops page 2's second column" "$px" 210 0.5
near "long: page 2 second column level" "$py" "$(at long.pdf 2 L73 | cut -d' ' -f2)" 0.5
expect_eq "long: nothing lost" "$(pdftotext long.pdf - | grep -o 'L[0-9]*' | sort -u | wc -l)" 100

# Column breaks: break-before: column and the old column-break-after.
{
    echo "$head"
    echo '.m { columns: 3; column-gap: 20pt } .b { break-before: column } .a { column-break-after: always }'
    echo '</style></head><body><div class="m">'
    echo '<p>K01</p><p class="b">K02</p><p class="a">K03</p><p>K04</p>'
    echo '</div></body></html>'
} >breaks.html
timeout 60 "$VELLUM" breaks.html -o breaks.pdf 2>breaks.err
expect_eq "breaks: status" "$?" 0
near "breaks: K01" "$(at breaks.pdf 1 K01 | cut -d' ' -f1)" 30 0.5
near "breaks: K02 after break-before" "$(at breaks.pdf 1 K02 | cut -d' ' -f1)" 150 0.5
near "breaks: K03 stays" "$(at breaks.pdf 1 K03 | cut -d' ' -f1)" 150 0.5
near "breaks: K04 after column-break-after" "$(at breaks.pdf 1 K04 | cut -d' ' -f1)" 270 0.5

# Nested containers, and a container in a table cell: set, nothing lost, no crash.
{
    echo "$head"
    echo '.m { columns: 2; column-gap: 20pt }'
    echo '</style></head><body><div class="m">'
    paras N 6
    echo '<div class="m">'
    paras I 30
    echo '</div>'
    paras N 6 | sed 's/N0/M0/'
    echo '</div><table><tr><td class="m">'
    paras T 8
    echo '</td></tr></table></body></html>'
} >nested.html
timeout 60 "$VELLUM" nested.html -o nested.pdf 2>nested.err
expect_eq "nested: status" "$?" 0
qpdf_clean "nested" nested.pdf
text=$(pdftotext nested.pdf -)
expect_eq "nested: nothing lost" "$(grep -o '[NIMT][0-9][0-9]' <<<"$text" | sort -u | wc -l)" 50

# Footnotes called in a column take room at the foot of the page: both columns end above them. A
# float to the top of a column goes above the line before it. A column footnote stands at the foot of
# the column of its call, above the page's footnotes, and numbered with them.
{
    echo "$head"
    echo '.m { columns: 2; column-gap: 20pt } .cf { float: column-top } .cn { float: column-footnote }'
    echo '.pn { float: footnote }'
    echo '</style></head><body><div class="m">'
    echo '<p>F01</p><div class="cf">Colfloat</div>'
    echo '<p>F02 note<span class="pn">Pagenote text.</span> and<span class="cn">Colnote text.</span></p>'
    paras G 80
    echo '</div></body></html>'
} >notes.html
timeout 60 "$VELLUM" notes.html -o notes.pdf 2>notes.err
expect_eq "notes: status" "$?" 0
qpdf_clean "notes" notes.pdf
expect_not_contains "notes: no column float warning" "$(cat notes.err)" "column floats"
expect_not_contains "notes: no column footnote warning" "$(cat notes.err)" "column footnotes"
read -r fx fy <<<"$(at notes.pdf 1 Colfloat)"
near "notes: column float at the column's top" "$fy" 30 1
near "notes: column float in the first column" "$fx" 30 0.5
awk -v f="$fy" -v p="$(at notes.pdf 1 F01 | cut -d' ' -f2)" 'BEGIN { exit !(p >= f + 12) }' ||
    fail "notes: F01 not below the column float"
text=$(pdftotext notes.pdf -)
expect_contains "notes: column float kept" "$text" "Colfloat"
expect_contains "notes: numbered after the page's" "$(pdftotext -layout notes.pdf - | tr -s ' ')" "2. Colnote text."
note_y=$(at notes.pdf 1 Pagenote | cut -d' ' -f2)
read -r cx cy <<<"$(at notes.pdf 1 Colnote)"
low1=$(words notes.pdf 1 | awk '$1 ~ /^G[0-9]/ && $2 < 100 { if ($3 > m) m = $3 } END { print m }')
low2=$(words notes.pdf 1 | awk '$1 ~ /^G[0-9]/ && $2 > 200 { if ($3 > m) m = $3 } END { print m }')
awk -v n="$note_y" -v a="$low1" -v b="$low2" 'BEGIN { exit !(n != "" && a + 12 <= n && b + 12 <= n) }' ||
    fail "notes: columns (last lines at $low1, $low2) reach the footnote ($note_y)"
awk -v x="$cx" -v y="$cy" -v a="$low1" -v n="$note_y" 'BEGIN { exit !(x != "" && x < 200 && a + 8 <= y && y + 8 <= n) }' ||
    fail "notes: column footnote at ($cx, $cy) not between the first column's text ($low1) and the page's ($note_y)"
awk -v a="$low1" -v b="$low2" 'BEGIN { exit !(b >= a + 8) }' ||
    fail "notes: the second column ($low2) stops short as the first ($low1), above a footnote not its own"

# A column footnote longer than its column runs on at the foot of the next; one outside columns
# joins the page's footnotes, with one warning.
long=$(seq -f 'L%g' 1 400 | tr '\n' ' ')
{
    echo "$head"
    echo '.m { columns: 2; column-gap: 20pt } .cn { float: column-footnote; font-size: 7pt }'
    echo '</style></head><body><div class="m">'
    echo "<p>H01 long<span class=\"cn\">Longnote $long Endnote</span></p>"
    paras H 20
    echo '</div><p>Out<span class="cn">Outnote one.</span> and<span class="cn">Outnote two.</span></p></body></html>'
} >longnote.html
timeout 60 "$VELLUM" longnote.html -o longnote.pdf 2>longnote.err
expect_eq "longnote: status" "$?" 0
qpdf_clean "longnote" longnote.pdf
expect_eq "longnote: warned once" "$(grep -c 'column footnotes outside a multi-column container' longnote.err)" 1
text=$(pdftotext longnote.pdf -)
expect_eq "longnote: every word of the note" "$(grep -o '\bL[0-9]*\b' <<<"$text" | sort -u | wc -l)" 400
expect_eq "longnote: every paragraph" "$(grep -o '\bH[0-9][0-9]\b' <<<"$text" | sort -u | wc -l)" 20
expect_contains "longnote: outside notes kept" "$text" "Outnote two."
read -r sx sy <<<"$(at longnote.pdf 1 Longnote)"
read -r ex ey <<<"$(at longnote.pdf 1 Endnote)"
awk -v s="$sx" -v e="$ex" 'BEGIN { exit !(s != "" && e != "" && s < 200 && e > 200) }' ||
    fail "longnote: the note starts in the first column ($sx) and ends in the second ($ex)"

# The footnotes a column float calls are numbered before those of the text below it, and placed: the
# page's at the foot of the page, the column's at the foot of the float's column.
{
    echo "$head"
    echo '.m { columns: 2; column-gap: 20pt } .t { float: column-top } .n { float: footnote }'
    echo '.c { float: column-footnote }'
    echo '</style></head><body><div class="m"><p>K01 text<span class="n">Textnote.</span></p>'
    echo '<div class="t">Float<span class="n">Floatpage.</span> and<span class="c">Floatcol.</span></div>'
    paras K 6 | sed 's/K01/K00/'
    echo '</div></body></html>'
} >floatnotes.html
timeout 60 "$VELLUM" floatnotes.html -o floatnotes.pdf 2>floatnotes.err
expect_eq "floatnotes: status" "$?" 0
qpdf_clean "floatnotes" floatnotes.pdf
text=$(pdftotext -layout floatnotes.pdf - | tr -s ' ')
expect_contains "floatnotes: float's page note first" "$text" "1. Floatpage."
expect_contains "floatnotes: float's column note" "$text" "2. Floatcol."
expect_contains "floatnotes: text's note after them" "$text" "3. Textnote."
read -r cx cy <<<"$(at floatnotes.pdf 1 Floatcol.)"
py=$(at floatnotes.pdf 1 Floatpage. | cut -d' ' -f2)
awk -v x="$cx" -v y="$cy" -v p="$py" 'BEGIN { exit !(x != "" && x < 200 && y + 8 <= p) }' ||
    fail "floatnotes: the column note ($cx, $cy) is not in the first column above the page's notes ($py)"

# A newsletter: a headline across three columns of running text longer than a page. Page 1 fills its
# columns below the headline; page 2 goes on in the same three columns, balanced.
{
    echo "$head"
    echo '.m { columns: 3; column-gap: 20pt; column-rule: 1pt solid black; text-align: justify }'
    echo 'h1 { column-span: all; font: bold 20pt/24pt "DejaVu Sans"; margin: 0 0 10pt }'
    echo '</style></head><body><div class="m"><h1>Newsletter</h1>'
    for i in $(seq 1 25); do
        printf '<p>S%02d the quick brown fox jumps over the lazy dog while the compositor sets type.</p>\n' "$i"
    done
    echo '</div></body></html>'
} >news.html
timeout 60 "$VELLUM" news.html -o news.pdf 2>news.err
expect_eq "news: status" "$?" 0
qpdf_clean "news" news.pdf
expect_eq "news: pages" "$(pdfinfo news.pdf | awk '/^Pages:/ { print $2 }')" 2
near "news: headline" "$(at news.pdf 1 Newsletter | cut -d' ' -f1)" 30 0.5
# Each column's lowest line on page 2, by the column its words start in.
read -r c1 c2 c3 <<<"$(words news.pdf 2 | awk '{ c = ($2 < 140) ? 1 : ($2 < 260) ? 2 : 3; if ($3 > m[c]) m[c] = $3 }
    END { print m[1] + 0, m[2] + 0, m[3] + 0 }')"
awk -v a="$c1" -v b="$c2" -v c="$c3" 'BEGIN { exit !(a > 0 && b > 0 && c > 0) }' ||
    fail "news: page 2 does not use three columns ($c1 $c2 $c3)"
near "news: page 2 columns 1 and 2 balanced" "$c2" "$c1" 12
# Orphans and widows of two lines keep the third column three lines short of the others here.
awk -v a="$c1" -v c="$c3" 'BEGIN { exit !(c <= a + 0.5 && c >= a - 36.5) }' ||
    fail "news: page 2 third column ($c3) not within three lines above the first ($c1)"
awk -v a="$c1" 'BEGIN { exit !(a < 400) }' || fail "news: page 2 not balanced (first column down to $c1)"
expect_eq "news: nothing lost" "$(pdftotext news.pdf - | grep -o 'S[0-9][0-9]' | sort -u | wc -l)" 25
# Column floats: met on the first page of a container that goes on to the next, one is placed once, at
# the top of its column, and not again on the next page; with `next` it goes to the next column (from
# the last one, to the first of the next page); with
# `unless-fit` it stays in the flow where it fits whole, and floats (once) where it does not.
# column_float_doc NAME FLOAT LINES_BEFORE LINES_AFTER
column_float_doc() {
    {
        echo '<!DOCTYPE html><html><head><style>@page { size: 300pt 200pt; margin: 20pt }'
        echo 'body { margin: 0; font: 10pt/12pt "DejaVu Serif" } p { margin: 0 }'
        echo '.mc { columns: 2; column-gap: 10pt; column-fill: auto }'
        echo ".f { float: $2; height: 60pt; background: #ccf; margin: 0 }</style></head><body><div class=\"mc\">"
        for i in $(seq 1 "$3"); do echo "<p>Line $i of the text.</p>"; done
        echo '<div class="f">FLOATBOX</div>'
        for i in $(seq 1 "$4"); do echo "<p>After $i text.</p>"; done
        echo '</div></body></html>'
    } >"$1.html"
    timeout 60 "$VELLUM" "$1.html" -o "$1.pdf" 2>"$1.err"
    expect_eq "$1: status" "$?" 0
    expect_eq "$1: placed once" "$(pdftotext "$1.pdf" - | grep -c FLOATBOX)" 1
    expect_eq "$1: all of the text" "$(pdftotext "$1.pdf" - | grep -c 'After [0-9]* text')" "$4"
}
float_x() { pdftotext -bbox "$1.pdf" - | grep -m1 '>FLOATBOX<' | sed 's/.*xMin="\([0-9.]*\)".*/\1/'; }
float_y() { pdftotext -bbox "$1.pdf" - | grep -m1 '>FLOATBOX<' | sed 's/.*yMin="\([0-9.]*\)".*/\1/'; }
column_float_doc cfloat column-top 6 20
expect_eq "column float: pages" "$(pdfinfo cfloat.pdf | awk '/^Pages:/ {print $2}')" 2
expect_eq "column float: on the first page" "$(pdftotext -f 1 -l 1 cfloat.pdf - | grep -c FLOATBOX)" 1
awk -v x="$(float_x cfloat)" -v y="$(float_y cfloat)" 'BEGIN { exit !(x < 100 && y < 30) }' ||
    fail "column float: not at the top of the first column"
column_float_doc cnext "column-top next" 3 20
awk -v x="$(float_x cnext)" -v y="$(float_y cnext)" 'BEGIN { exit !(x > 150 && y < 30) }' ||
    fail "column float with next: not at the top of the second column"
# Met in the last column with more of the container to come, it goes to the next page's first column.
column_float_doc cnextpage "column-top next" 20 20
expect_eq "column float with next from the last column: not on page 1" "$(pdftotext -f 1 -l 1 cnextpage.pdf - | grep -c FLOATBOX)" 0
expect_eq "column float with next from the last column: on page 2" "$(pdftotext -f 2 -l 2 cnextpage.pdf - | grep -c FLOATBOX)" 1
column_float_doc cfits "column-top unless-fit" 3 5
awk -v y="$(float_y cfits)" 'BEGIN { exit !(y > 50) }' || fail "unless-fit float that fits: not in the flow (y $(float_y cfits))"
column_float_doc cnofit "column-top unless-fit" 12 20
awk -v y="$(float_y cnofit)" 'BEGIN { exit !(y < 30) }' || fail "unless-fit float that does not fit: not at a column top"

# avoid-page and avoid-column: outside columns only a page break is avoided; inside them every break ends
# a column, and one in the last column ends the page too.
# avoid_doc NAME CLASS LINES_BEFORE [cols]: a block of ten lines A01..A10 after LINES_BEFORE lines.
avoid_doc() {
    {
        echo "$head"
        echo '.m { columns: 2; column-gap: 20pt } .ap { break-inside: avoid-page } .ac { break-inside: avoid-column }'
        echo '</style></head><body>'
        [ "${4:-}" = cols ] && echo '<div class="m">'
        paras L "$3"
        echo "<div class=\"$2\">"
        paras A 10
        echo '</div>'
        paras Z 40
        [ "${4:-}" = cols ] && echo '</div>'
        echo '</body></html>'
    } >"$1.html"
    timeout 60 "$VELLUM" "$1.html" -o "$1.pdf" 2>"$1.err" || fail "$1: status $?"
}
avoid_doc flat_ap ap 30
near "avoid-page outside columns: the block tops page 2" "$(at flat_ap.pdf 2 A01 | cut -d' ' -f2)" "$(at flat_ap.pdf 1 L01 | cut -d' ' -f2)" 0.5
expect_eq "avoid-page outside columns: nothing of it on page 1" "$(at flat_ap.pdf 1 A01)" ""
avoid_doc flat_ac ac 30
near "avoid-column outside columns: the block splits at the page" "$(at flat_ac.pdf 1 A01 | cut -d' ' -f1)" 30 0.5
avoid_doc cols_ac ac 30 cols
near "avoid-column in columns: the block tops the second column" "$(at cols_ac.pdf 1 A01 | cut -d' ' -f1)" 210 0.5
near "avoid-column in columns: level with the first column's top" "$(at cols_ac.pdf 1 A01 | cut -d' ' -f2)" "$(at cols_ac.pdf 1 L01 | cut -d' ' -f2)" 0.5
avoid_doc cols_ap ap 30 cols
near "avoid-page in columns: the block starts in the first column" "$(at cols_ap.pdf 1 A01 | cut -d' ' -f1)" 30 0.5
near "avoid-page in columns: and goes on in the second" "$(at cols_ap.pdf 1 A10 | cut -d' ' -f1)" 210 0.5
avoid_doc cols_ap_last ap 66 cols
expect_eq "avoid-page in the last column: the block goes to page 2" "$(at cols_ap_last.pdf 1 A01)" ""
near "avoid-page in the last column: first column of page 2" "$(at cols_ap_last.pdf 2 A01 | cut -d' ' -f1)" 30 0.5
# Thirty containers nested in each other below a paragraph, and a paragraph that may not break at the
# top of the page. Balancing tries heights too short for some content: such a trial ends at the first
# column that takes nothing, rather than trying the content again in every column of every level
# (which took time doubling with each level), and it never splits what may not break to fit.
python3 -c "print('<p>first</p>' + '<div style=\"columns: 2\">' * 30 + 'one two three' + '</div>' * 30)" >deep.html
timeout 60 "$VELLUM" deep.html -o deep.pdf 2>deep.err
expect_eq "deep: status" "$?" 0
expect_eq "deep: all words" "$(pdftotext deep.pdf - | grep -o 'one\|two\|three' | sort | tr '\n' ' ')" "one three two "
{
    echo "$head"
    echo '.m { columns: 2; column-gap: 20pt } .k { break-inside: avoid }'
    echo '</style></head><body><div class="m"><p class="k">'
    for i in $(seq 1 6); do echo "Whole$i<br>"; done
    echo '</p></div></body></html>'
} >whole.html
timeout 60 "$VELLUM" whole.html -o whole.pdf 2>whole.err
expect_eq "whole: status" "$?" 0
for i in 1 6; do
    read -r x y <<<"$(at whole.pdf 1 "Whole$i")"
    near "whole: Whole$i in the first column" "$x" 30 0.5
done

finish
