#!/usr/bin/env bash
# Tables: column positions of fixed and automatic layouts, a long table split over pages with its
# header and footer on every page, collapsed borders painted by their winners, captions.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
command -v pdftoppm >/dev/null && [ -x /usr/bin/python3 ] || exit 77

# xmin WORD / xmax WORD / ymin WORD: the first word's box in the -bbox output of bbox.html.
word_box() { grep -m1 ">$2<" bbox.html | sed -E 's/.*xMin="([0-9.]+)" yMin="([0-9.]+)" xMax="([0-9.]+)" yMax="([0-9.]+)".*/\1 \2 \3 \4/' | awk -v k="$1" '{ printf "%.0f", $k }'; }

# ---- column positions ----
cat >cols.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 500pt 400pt; margin: 50pt }
body { margin: 0; font: 10pt "DejaVu Sans" }
table { border-spacing: 0 }
td { padding: 0 }
table.fixed { table-layout: fixed; width: 300pt }
table.pct { width: 400pt }
td.r { text-align: right }
</style></head><body>
<table class="fixed"><col style="width: 100pt"><col style="width: 50pt"><col>
<tr><td>Aone</td><td>Bone</td><td>Cone</td></tr>
<tr><td>Atwo</td><td class="r">Btwo</td><td style="padding-left: 5pt">Ctwo</td></tr></table>
<table class="pct"><tr><td style="width: 50%">Pfirst</td><td style="width: 100pt">Lfirst</td><td>Afirst</td></tr></table>
<table width="400" cellspacing="0" cellpadding="0"><tr><td width="25%">Qa</td><td>Qb</td></tr></table>
<table><tr><td>Wshort</td><td style="padding-left: 6pt">Wlonger cell text</td></tr></table>
</body></html>
HTML
timeout 60 "$VELLUM" cols.html -o cols.pdf 2>cols.err
expect_eq "cols: status" "$?" 0
qpdf_clean "cols" cols.pdf
pdftotext -bbox cols.pdf bbox.html
expect_eq "fixed: first column" "$(word_box 1 Aone)" 50
expect_eq "fixed: col width 100pt" "$(word_box 1 Bone)" 150
expect_eq "fixed: col width 50pt" "$(word_box 1 Cone)" 200
expect_eq "fixed: right-aligned cell ends at its column" "$(word_box 3 Btwo)" 200
expect_eq "percent column: 50% of 400pt" "$(word_box 1 Lfirst)" 250
expect_eq "length column: 100pt" "$(word_box 1 Afirst)" 350
expect_eq "HTML width attributes: 25% of 400px" "$(word_box 1 Qb)" 125
# An auto table is as wide as its content: the second cell starts right after the first word.
short_end=$(word_box 3 Wshort)
longer=$(word_box 1 Wlonger)
expect_eq "auto: columns side by side" "$((longer - short_end))" 6
expect_eq "no table warning" "$(grep -c 'table layout' cols.err)" 0

# ---- a long table over pages ----
{
    echo '<!DOCTYPE html><html><head><style>'
    echo '@page { size: 400pt 300pt; margin: 30pt } body { margin: 0; font: 10pt "DejaVu Sans" }'
    echo 'table { border-collapse: collapse } td, th { border: 1pt solid black; padding: 2pt }'
    echo '</style></head><body><table><caption>Long caption</caption>'
    echo '<thead><tr><th>Head</th><th>Value</th></tr></thead><tfoot><tr><td>Foot</td><td>end</td></tr></tfoot><tbody>'
    for i in $(seq 1 120); do echo "<tr><td>Row$i</td><td>v$i</td></tr>"; done
    echo '<tr style="page-break-before: always"><td>Forced</td><td>x</td></tr>'
    echo '</tbody></table></body></html>'
} >long.html
timeout 60 "$VELLUM" long.html -o long.pdf 2>long.err
expect_eq "long: status" "$?" 0
qpdf_clean "long" long.pdf
pages=$(pdfinfo long.pdf | awk '/^Pages:/ {print $2}')
expect_eq "long: several pages" "$((pages > 3))" 1
for p in $(seq 1 "$pages"); do
    t=$(pdftotext -f "$p" -l "$p" -layout long.pdf -)
    expect_contains "long: header on page $p" "$t" "Head"
    expect_contains "long: footer on page $p" "$t" "Foot"
done
all=$(pdftotext long.pdf -)
expect_eq "long: every row once" "$(echo "$all" | grep -o 'Row[0-9]*' | sort -u | wc -l)" 120
expect_eq "long: no row twice" "$(echo "$all" | grep -o 'Row[0-9]*' | wc -l)" 120
expect_eq "long: caption once" "$(echo "$all" | grep -c 'Long caption')" 1
last=$(pdftotext -f "$pages" -l "$pages" long.pdf -)
expect_contains "long: forced break before the last row" "$last" "Forced"
expect_not_contains "long: forced row alone" "$last" "Row120"
# caption-page: a caption shown on every part of a split table, and one under the parts that follow
# the first.
{
    echo '<!DOCTYPE html><html><head><style>'
    echo '@page { size: 400pt 300pt; margin: 30pt } body { margin: 0; font: 10pt "DejaVu Sans" }'
    echo 'table { width: 100% } .all { caption-page: all } .next { caption-side: bottom; caption-page: following }'
    echo '</style></head><body><table><caption class="all">Everypage caption</caption>'
    echo '<caption class="next">Continued caption</caption><tbody>'
    for i in $(seq 1 60); do echo "<tr><td>Row$i</td></tr>"; done
    echo '</tbody></table></body></html>'
} >captions.html
timeout 60 "$VELLUM" captions.html -o captions.pdf 2>captions.err
expect_eq "captions: status" "$?" 0
qpdf_clean "captions" captions.pdf
cpages=$(pdfinfo captions.pdf | awk '/^Pages:/ {print $2}')
expect_eq "captions: several pages" "$((cpages >= 3))" 1
for p in $(seq 1 "$cpages"); do
    t=$(pdftotext -f "$p" -l "$p" captions.pdf - | tr -d '\f')
    expect_contains "captions: top caption on page $p" "$(echo "$t" | grep -v '^$' | head -1)" "Everypage caption"
    if [ "$p" = 1 ]; then
        expect_not_contains "captions: no continued caption on page 1" "$t" "Continued caption"
    else
        expect_contains "captions: continued caption last on page $p" "$(echo "$t" | grep -v '^$' | tail -1)" \
            "Continued caption"
    fi
done
expect_eq "captions: every row once" "$(pdftotext captions.pdf - | grep -o 'Row[0-9]*' | wc -l)" 60

# An inline table stands on its first row's baseline; table-baseline: 2 on its second row's.
# (XHTML, where a table may stand inside a paragraph.)
cat >inline.xhtml <<'HTML'
<html xmlns="http://www.w3.org/1999/xhtml"><head><style>
@page { size: 400pt 300pt; margin: 30pt } body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
table { display: inline-table } td { padding: 2pt }
</style></head><body>
<p>Firstbase <table><tr><td>Rowone</td></tr><tr><td>Rowtwo</td></tr></table> text.</p>
<p>Secondbase <table style="table-baseline: 2"><tr><td>Rowthree</td></tr><tr><td>Rowfour</td></tr></table> text.</p>
</body></html>
HTML
timeout 60 "$VELLUM" inline.xhtml -o inline.pdf 2>inline.err
expect_eq "inline table: status" "$?" 0
pdftotext -bbox inline.pdf bbox.html
expect_eq "inline table: first row on the baseline" "$(word_box 4 Rowone)" "$(word_box 4 Firstbase)"
expect_eq "inline table: table-baseline 2" "$(word_box 4 Rowfour)" "$(word_box 4 Secondbase)"

# The rows of a page follow each other: Row1 under the header, in order.
first=$(pdftotext -f 1 -l 1 long.pdf - | grep -o '^Row[0-9]*$' | tr '\n' ' ')
expect_contains "long: rows in order" "$first" "Row1 Row2 Row3 "

# ---- collapsed borders of a 3x3 grid ----
cat >grid.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 300pt; margin: 0 }
body { margin: 0 }
table { border-collapse: collapse; margin: 30pt; border: 4pt solid blue }
td { width: 60pt; height: 60pt; padding: 0; border: 2pt solid black }
td.mid { border: 6pt solid red }
td.dot { border: 2pt dotted lime }
</style></head><body>
<table><tr><td></td><td class="dot"></td><td></td></tr>
<tr><td></td><td class="mid"></td><td></td></tr>
<tr><td></td><td></td><td></td></tr></table>
</body></html>
HTML
timeout 60 "$VELLUM" grid.html -o grid.pdf 2>grid.err
expect_eq "grid: status" "$?" 0
qpdf_clean "grid" grid.pdf
pdftoppm -r 72 -png grid.pdf grid
# The colour runs along a line through the page: k black, r red, b blue, g green, w white.
runs() {
    /usr/bin/python3 - "$1" "$2" "$3" <<'PY'
import sys
from PIL import Image
im = Image.open("grid-1.png").convert("RGB")
axis, at, _ = sys.argv[1], int(sys.argv[2]), sys.argv[3]
w, h = im.size
pts = [(x, at) for x in range(w)] if axis == "row" else [(at, y) for y in range(h)]
def name(c):
    r, g, b = c
    if r > 200 and g > 200 and b > 200: return "w"
    if r > 150 and g < 100 and b < 100: return "r"
    if b > 150 and r < 100 and g < 100: return "b"
    if g > 150 and r < 100 and b < 100: return "g"
    if r < 80 and g < 80 and b < 80: return "k"
    return "?"
out = []
for p in pts:
    n = name(im.getpixel(p))
    if n == "?": continue
    if not out or out[-1][0] != n: out.append([n, 1])
    else: out[-1][1] += 1
# Runs of a pixel or two are antialiasing at the joins.
print(" ".join(n for n, k in out if k > 1 or n == "w"))
PY
}
# Rows at 62 (top row), 124 (middle), 186 (bottom); columns likewise.
expect_eq "grid: top row across: solid beats dotted of one width" "$(runs row 62 x)" "w b w k w k w b w"
expect_eq "grid: middle row across: red wins over black" "$(runs row 124 x)" "w b w r w r w b w"
expect_eq "grid: left column down" "$(runs col 62 x)" "w b w k w k w b w"
expect_eq "grid: middle column down: blue over dotted, then red" "$(runs col 124 x)" "w b w r w r w b w"
# The red border is 6pt wide where it wins.
red=$(/usr/bin/python3 -c "
from PIL import Image
im = Image.open('grid-1.png').convert('RGB')
print(sum(1 for x in range(300) if (lambda c: c[0] > 150 and c[1] < 100)(im.getpixel((x, 124)))))")
expect_eq "grid: two red edges of 6pt" "$((red >= 11 && red <= 13))" 1

# A row taller than a page is split where the page ends: each cell goes on in the rest of the row on
# the next page, under the repeated header, and no line of any cell is lost.
/usr/bin/python3 - >tall.html <<'PY'
cells = ["".join("<p>%s line %d</p>" % (tag, i) for i in range(1, n + 1)) for tag, n in (("alpha", 70), ("beta", 25))]
print("""<!DOCTYPE html><html><head><style>
@page { size: 300pt 300pt; margin: 20pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
table { border-collapse: collapse; width: 100% }
td, th { border: 1pt solid black; vertical-align: top }
</style></head><body>
<table><thead><tr><th>HEADA</th><th>HEADB</th></tr></thead>
<tr><td>before row</td><td>short</td></tr>
<tr><td>CELLA</td><td>CELLB</td></tr>
<tr><td>after row</td><td>end</td></tr>
</table></body></html>""".replace("CELLA", cells[0]).replace("CELLB", cells[1]))
PY
timeout 60 "$VELLUM" tall.html -o tall.pdf 2>tall.err
expect_eq "tall row: status" "$?" 0
qpdf_clean "tall row" tall.pdf
expect_not_contains "tall row: no warning" "$(cat tall.err)" "taller than"
text=$(pdftotext -layout tall.pdf -)
for i in $(seq 1 70); do
    [ "$(echo "$text" | grep -c "alpha line $i\b")" = 1 ] || fail "tall row: alpha line $i shown $(echo "$text" | grep -c "alpha line $i\b") times"
done
for i in $(seq 1 25); do
    [ "$(echo "$text" | grep -c "beta line $i\b")" = 1 ] || fail "tall row: beta line $i shown $(echo "$text" | grep -c "beta line $i\b") times"
done
pages=$(pdfinfo tall.pdf | sed -n 's/^Pages: *//p')
expect_eq "tall row: over several pages" "$((pages >= 4))" 1
# The row starts on the first page, beside the row before it, and every page repeats the header.
expect_contains "tall row: starts on page 1" "$(pdftotext -f 1 -l 1 tall.pdf -)" "alpha line 1"
expect_eq "tall row: header on every page" "$(echo "$text" | grep -c HEADA)" "$pages"
# Lines stay in order across the pages: the text of page 2 starts where page 1's ended.
last1=$(pdftotext -f 1 -l 1 tall.pdf - | grep -o 'alpha line [0-9]*' | tail -1 | grep -o '[0-9]*$')
first2=$(pdftotext -f 2 -l 2 tall.pdf - | grep -o 'alpha line [0-9]*' | head -1 | grep -o '[0-9]*$')
expect_eq "tall row: page 2 goes on from page 1" "$first2" "$((last1 + 1))"
expect_contains "tall row: the row after it" "$text" "after row"

# A cell spanning rows across a page break: its content goes on in its column on the next page.
/usr/bin/python3 - >span.html <<'PY'
side = "".join("<p>span line %d</p>" % i for i in range(1, 31))
rows = "".join("<tr><td>row %d</td></tr>" % i for i in range(2, 13))
print("""<!DOCTYPE html><html><head><style>
@page { size: 300pt 200pt; margin: 20pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
td { vertical-align: top; border: 1pt solid gray }
</style></head><body>
<table><tr><td rowspan="12">SIDE</td><td>row 1</td></tr>ROWS</table></body></html>""".replace("SIDE", side).replace("ROWS", rows))
PY
timeout 60 "$VELLUM" span.html -o span.pdf 2>span.err
expect_eq "rowspan: status" "$?" 0
qpdf_clean "rowspan" span.pdf
text=$(pdftotext -layout span.pdf -)
for i in $(seq 1 30); do
    [ "$(echo "$text" | grep -c "span line $i\b")" = 1 ] || fail "rowspan: span line $i shown $(echo "$text" | grep -c "span line $i\b") times"
done
# No line of the spanning cell runs below the page body (y 180 measured down the page).
low=$(pdftotext -bbox span.pdf - | grep '>line<' | sed 's/.*yMax="\([0-9.]*\)".*/\1/' | sort -n | tail -1)
expect_eq "rowspan: lines within the page body" "$(echo "$low <= 180.5" | bc)" 1
expect_eq "rowspan: over two pages or more" "$(( $(pdfinfo span.pdf | sed -n 's/^Pages: *//p') >= 2 ))" 1

# Tables nested in cells, each cell holding a long paragraph before the next table: the rows split
# over the pages at every level, every word shown once, in order, each page's text within its body.
/usr/bin/python3 - >nested.html <<'PY'
depth = 6
para = lambda d: "<p>" + " ".join("w%dx%d" % (d, i) for i in range(120)) + "</p>"
inner = ""
for d in reversed(range(depth)):
    inner = "<table><tr><td>" + para(d) + inner + "</td></tr></table>"
print("""<!DOCTYPE html><html><head><style>
@page { size: 300pt 200pt; margin: 20pt }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
td { border: 1pt solid gray; padding: 1pt }
p { margin: 0 }
</style></head><body>""" + inner + "</body></html>")
PY
timeout 60 "$VELLUM" nested.html -o nested.pdf 2>nested.err
expect_eq "nested: status" "$?" 0
qpdf_clean "nested" nested.pdf
words=$(pdftotext nested.pdf - | grep -o 'w[0-9]*x[0-9]*')
expect_eq "nested: every word once" "$(sort -u <<<"$words" | wc -l) $(wc -l <<<"$words")" "720 720"
expect_eq "nested: words in order" "$words" "$(sort -t x -k1.2,1n -k2,2n <<<"$words")"
low=$(pdftotext -bbox nested.pdf - | grep '>w[0-9]*x' | sed 's/.*yMax="\([0-9.]*\)".*/\1/' | sort -n | tail -1)
expect_eq "nested: words within the page body" "$(echo "$low <= 180.5" | bc)" 1


# ---- widths kept from the first pass only where the cell reads nothing of the pages ----
# A cell shows the page total, known in the second pass only ("0" in the first, then XXVIII): its
# column is measured again and fits the numeral. The plain cells beside it measure the same in both.
{
    echo '<!DOCTYPE html><html><head><style>'
    echo '@page { size: 400pt 300pt; margin: 30pt } body { margin: 0; font: 10pt "DejaVu Sans" }'
    echo 'table { border-spacing: 0 } td { padding: 0 4pt 0 0 } .n::after { content: counter(pages, upper-roman) }'
    echo '.brk { page-break-before: always }'
    echo '</style></head><body><table><tr><td>Plainfirst</td><td class="n"></td><td>Nextcell</td></tr></table>'
    for i in $(seq 2 28); do echo "<p class=\"brk\">page $i</p>"; done
    echo '</body></html>'
} >total.html
timeout 60 "$VELLUM" total.html -o total.pdf 2>total.err
expect_eq "page total in a cell: status" "$?" 0
qpdf_clean "total" total.pdf
expect_eq "page total in a cell: pages" "$(pdfinfo total.pdf | awk '/^Pages:/ { print $2 }')" 28
pdftotext -f 1 -l 1 -bbox total.pdf bbox.html
expect_eq "page total in a cell: the numeral" "$(grep -c '>XXVIII<' bbox.html)" 1
numeral_end=$(word_box 3 XXVIII)
next_start=$(word_box 1 Nextcell)
plain_end=$(word_box 3 Plainfirst)
numeral_start=$(word_box 1 XXVIII)
expect_eq "page total in a cell: its column fits it" "$((next_start - numeral_end))" 4
expect_eq "page total in a cell: the plain column before it" "$((numeral_start - plain_end))" 4

finish
