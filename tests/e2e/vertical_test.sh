#!/usr/bin/env bash
# Vertical text: a block in writing-mode vertical-rl inside a horizontal page. Its lines run down the page
# from right to left; ideographs and kana stand upright, the ideographic full stop takes its vertical
# form, Latin text lies sideways, and the text copies out in logical order.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cjk=/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc
if [ ! -f "$cjk" ]; then
    echo "Noto Sans CJK is not installed" >&2
    exit 77
fi

cat >vertical.html <<HTML
<!DOCTYPE html><html><head><style>
@font-face { font-family: "CJK"; src: url("$cjk") }
@page { size: 400pt 800pt; margin: 20pt }
body { margin: 0; font: 16pt/24pt "CJK" }
.v { writing-mode: vertical-rl; height: 300pt }
.en { height: 200pt }
</style></head><body>
<div class="v" lang="ja">吾輩は猫である。名前はまだ無い。</div>
<div class="v en">Vertical English text</div>
<p>After the blocks.</p>
</body></html>
HTML
timeout 60 "$VELLUM" vertical.html -o vertical.pdf 2>vertical.err
expect_eq "status" "$?" 0
qpdf_clean "vertical" vertical.pdf
expect_contains "CJK font embedded" "$(pdffonts vertical.pdf)" "NotoSansCJK"

# Copying gives the characters in the order they are read, the Latin words too.
text=$(pdftotext vertical.pdf - | tr -d ' \n')
expect_contains "Japanese text in logical order" "$text" "吾輩は猫である。名前はまだ無い。"
expect_contains "English text" "$(pdftotext vertical.pdf - | tr -s ' \n' ' ')" "Vertical English text"

# The Japanese block stands as one column 300pt high: its first character at the top, the paragraph
# after both blocks below them.
bbox=$(pdftotext -bbox vertical.pdf -)
ymin_of() { grep -m1 ">$1" <<<"$bbox" | sed 's/.*yMin="\([0-9.]*\)".*/\1/'; }
first_y=$(ymin_of '吾')
after_y=$(ymin_of 'After')
awk -v a="$first_y" -v b="$after_y" 'BEGIN { exit !(a < 40 && b > 500) }' ||
    fail "layout: the column starts at y=$first_y, the paragraph after it at y=$after_y"

# Pixels of single large characters: an ideograph taller than wide stays taller than wide (lying
# sideways it would be wider), and the full stop after it sits in the upper right of its own cell, as
# its vertical form does (the horizontal one sits low and to the left, and turned with the line it
# would sit high and to the left).
cat >cells.html <<HTML
<!DOCTYPE html><html><head><style>
@font-face { font-family: "CJK"; src: url("$cjk") }
@page { size: 200pt 300pt; margin: 20pt }
body { margin: 0; font: 60pt/80pt "CJK" }
.v { writing-mode: vertical-rl; height: 200pt }
</style></head><body><div class="v" lang="ja">日。</div></body></html>
HTML
timeout 60 "$VELLUM" cells.html -o cells.pdf 2>cells.err
expect_eq "cells status" "$?" 0
qpdf_clean "cells" cells.pdf
pdftoppm -r 72 -png cells.pdf cells
shapes=$(/usr/bin/python3 - <<'PY'
from PIL import Image
im = Image.open("cells-1.png").convert("L")
w, h = im.size
ink = [[im.getpixel((x, y)) < 128 for x in range(w)] for y in range(h)]
rows = [y for y in range(h) if any(ink[y])]
# Two groups of inked rows: the ideograph, then the full stop below it.
groups = []
for y in rows:
    if groups and y - groups[-1][-1] <= 2:
        groups[-1].append(y)
    else:
        groups.append([y])
if len(groups) != 2:
    print("groups", len(groups))
    raise SystemExit
def box(ys):
    xs = [x for y in ys for x in range(w) if ink[y][x]]
    return min(xs), ys[0], max(xs), ys[-1]
x0, y0, x1, y1 = box(groups[0])
sx0, sy0, sx1, sy1 = box(groups[1])
em = 60
cell_top = y0 + (y1 - y0) / 2 + em / 2   # the ideograph's cell is one em, centred on its ink
print("upright" if (y1 - y0) > 1.15 * (x1 - x0) else "sideways",
      "right" if (sx0 + sx1) / 2 > (x0 + x1) / 2 + em / 8 else "left",
      "upper" if (sy0 + sy1) / 2 < cell_top + em / 2 else "lower")
PY
)
expect_eq "upright ideograph, vertical full stop" "$shapes" "upright right upper"

# A number in ideographic digits, which stand upright in vertical text as the rest does.
kanji() { sed 'y/0123456789/〇一二三四五六七八九/' <<<"$1"; }

# A vertical block whose lines reach across more than the page is wide goes on below, and then on the
# next page: every sentence of it is there, and none of its columns lies beyond the page's right edge.
{
    echo "<!DOCTYPE html><html><head><style>"
    echo "@font-face { font-family: \"CJK\"; src: url(\"$cjk\") }"
    echo "@page { size: 300pt 400pt; margin: 20pt }"
    echo "body { margin: 0; font: 12pt/18pt \"CJK\" } .v { writing-mode: vertical-rl; height: 160pt }"
    echo "</style></head><body><div class=\"v\" lang=\"ja\">"
    for i in $(seq 1 100); do echo "第$(kanji "$i")文。"; done
    echo "</div></body></html>"
} >long.html
timeout 60 "$VELLUM" long.html -o long.pdf 2>long.err
expect_eq "long status" "$?" 0
qpdf_clean "long" long.pdf
# In the order the content shows it (the columns are too many for pdftotext to read in order by place).
long_text=$(pdftotext -raw long.pdf - | tr -d ' \n')
for i in 1 17 40 77 100; do
    expect_contains "sentence $i of the long vertical block" "$long_text" "第$(kanji "$i")文。"
done
long_pages=$(pdfinfo long.pdf | awk '/^Pages:/ {print $2}')
[ "$long_pages" -ge 2 ] || fail "the long vertical block takes $long_pages page(s), not two or more"
# The block is less than half as high as the page: the first page holds two parts, one below the other.
page1=$(pdftotext -f 1 -l 1 -raw long.pdf - | tr -d ' \n')
expect_contains "the second part on the first page" "$page1" "第$(kanji 50)文。"
beyond=$(pdftotext -bbox long.pdf - | grep -c 'xMax="\(2[89][0-9]\|[3-9][0-9][0-9]\)\.' || true)
expect_eq "columns beyond the page's right edge" "$beyond" 0

# A kana written with a combining voicing mark takes one cell of the column, as the composed kana
# does: the two columns, one with the mark and one composed, end at the same height, and the text
# copies out as written.
cat >marks.html <<HTML
<!DOCTYPE html><html><head><style>
@font-face { font-family: "CJK"; src: url("$cjk") }
@page { size: 200pt 300pt; margin: 20pt }
body { margin: 0; font: 20pt/30pt "CJK" }
.v { writing-mode: vertical-rl; height: 200pt; float: left; width: 40pt }
</style></head><body><div class="v" lang="ja">か&#x3099;き日</div><div class="v" lang="ja">がき日</div></body></html>
HTML
timeout 60 "$VELLUM" marks.html -o marks.pdf 2>marks.err
expect_eq "marks status" "$?" 0
marks_bbox=$(pdftotext -bbox marks.pdf -)
ends=$(grep '>日<' <<<"$marks_bbox" | sed 's/.*yMax="\([0-9.]*\)".*/\1/' | tr '\n' ' ')
awk -v e="$ends" 'BEGIN { n = split(e, v, " "); exit !(n == 2 && v[1] - v[2] < 1 && v[2] - v[1] < 1) }' ||
    fail "the last characters of the two columns end at $ends"
expect_contains "the mark copies out as written" "$(pdftotext -raw marks.pdf - | tr -d ' \n')" "か$(printf '\u3099')き日"

# Padding keeps its physical side when the block is turned: the wide left padding of a vertical block
# lies between its border and its last column, on the left, and its narrow top padding above the
# column's first character.
cat >padded.html <<HTML
<!DOCTYPE html><html><head><style>
@font-face { font-family: "CJK"; src: url("$cjk") }
@page { size: 300pt 300pt; margin: 20pt }
body { margin: 0; font: 20pt/30pt "CJK" }
.v { writing-mode: vertical-rl; height: 200pt; padding: 4pt 0 4pt 60pt; border-left: 6pt solid red }
</style></head><body><div class="v" lang="ja">日</div></body></html>
HTML
timeout 60 "$VELLUM" padded.html -o padded.pdf 2>padded.err
expect_eq "padded status" "$?" 0
read -r px py <<<"$(pdftotext -bbox padded.pdf - | grep -m1 '>日<' | sed 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)".*/\1 \2/')"
# The block: border 20-26pt, padding to 86pt, the 30pt column from 86 to 116pt; the text near the top
# (the left padding turned to the top would put it 60pt down).
awk -v x="$px" -v y="$py" 'BEGIN { exit !(x >= 86 && x <= 116 && y >= 10 && y <= 35) }' ||
    fail "the character of the padded block stands at ($px, $py), not right of the left padding and below the top"

finish
