#!/usr/bin/env bash
# Real pages: the page size and margins of @page, a header in the top margin, text over several pages
# in reading order, page numbers in the margin, and embedded font subsets.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# An A5 page with a centred header in its top margin.
cat > a5.html <<'HTML'
<!DOCTYPE html><html><head><title>A5</title><style>
@page { size: A5; margin: 2cm; @top-center { content: "Title" } }
body { font-family: sans-serif; font-size: 11pt }
</style></head><body><p>Body text on an A5 page.</p></body></html>
HTML
"$VELLUM" a5.html -o a5.pdf 2>err.txt; rc=$?
expect_eq "a5: status" "$rc" 0
qpdf_clean "a5" a5.pdf
expect_eq "a5: one page" "$(pdfinfo a5.pdf | sed -n 's/^Pages: *//p')" 1
# A5 is 148 by 210 mm: 419.53 by 595.28 points.
expect_contains "a5: media box" "$(pdfinfo -box a5.pdf | tr -s ' ')" "MediaBox: 0.00 0.00 419.53 595.28"
# The header's word stands centred on the page, inside the top margin of 2cm (56.69pt); pdftotext
# measures y downward from the top of the page.
bbox=$(pdftotext -bbox a5.pdf - | grep '>Title<')
[ -n "$bbox" ] || fail "a5: header text not found"
read -r xmin ymin xmax ymax <<<"$(echo "$bbox" | sed 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)" xMax="\([0-9.]*\)" yMax="\([0-9.]*\)".*/\1 \2 \3 \4/')"
centre_ok=$(awk -v a="$xmin" -v b="$xmax" 'BEGIN { c = (a + b) / 2; print (c > 207.8 && c < 211.8) ? "yes" : "no" }')
expect_eq "a5: header centred ($xmin..$xmax)" "$centre_ok" yes
in_margin=$(awk -v a="$ymin" -v b="$ymax" 'BEGIN { print (a >= 0 && b <= 56.7) ? "yes" : "no" }')
expect_eq "a5: header in the top margin ($ymin..$ymax)" "$in_margin" yes
body_ok=$(pdftotext -bbox a5.pdf - | grep '>Body<' | sed 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)".*/\1 \2/' |
    awk '{ print ($1 > 56 && $1 < 58 && $2 > 56.6) ? "yes" : "no" }')
expect_eq "a5: body text at the margins" "$body_ok" yes

# Many paragraphs over several pages, with page numbers at the foot.
{
    echo '<!DOCTYPE html><html><head><title>Long</title><style>'
    echo '@page { size: A6; margin: 1.5cm; @bottom-center { content: "Page " counter(page) " of " counter(pages) } }'
    echo 'body { font: 10pt serif } h1 { font-size: 14pt }</style></head><body><h1>Chapter</h1>'
    for i in $(seq 1 40); do
        echo "<p>Paragraph number $i says résumé, naïve and Ελληνικά without trouble.</p>"
    done
    echo '</body></html>'
} > long.html
"$VELLUM" long.html -o long.pdf 2>err.txt; rc=$?
expect_eq "long: status" "$rc" 0
qpdf_clean "long" long.pdf
pages=$(pdfinfo long.pdf | sed -n 's/^Pages: *//p')
[ "${pages:-0}" -gt 2 ] || fail "long: expected several pages, got $pages"
text=$(pdftotext long.pdf -)
# Lines wrap on a small page: the words are compared with line ends as spaces.
flat=$(echo "$text" | tr '\n' ' ' | tr -s ' ')
expect_contains "long: first paragraph" "$flat" "Paragraph number 1 says résumé, naïve and Ελληνικά without trouble."
expect_contains "long: last paragraph" "$text" "Paragraph number 40 says"
expect_contains "long: page total" "$text" "Page 2 of $pages"
# Reading order: the paragraphs come out in the order they were written.
order=$(echo "$flat" | grep -o 'Paragraph number [0-9]* says' | sed 's/[^0-9]//g' | tr '\n' ' ')
expect_eq "long: reading order" "$order" "$(seq 1 40 | tr '\n' ' ')"
fonts=$(pdffonts long.pdf | tail -n +3)
[ -n "$fonts" ] || fail "long: no fonts listed"
while read -r line; do
    case "$line" in
    *" yes yes yes "*) ;;
    *) fail "long: font not embedded, subset, with ToUnicode: $line" ;;
    esac
done <<<"$fonts"

# The euro of a MacRoman-encoded font is drawn from the font's own glyph (open to the right, so more
# ink on its left), not as the empty box of .notdef, and reads back as the euro.
cat > euro.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 200pt; margin: 20pt }
body { font: 120pt/1 "DejaVu Sans" } p { margin: 0 }</style></head><body><p>€</p></body></html>
HTML
"$VELLUM" euro.html -o euro.pdf 2>err.txt
expect_eq "euro: read back" "$(pdftotext euro.pdf - | tr -d '\f\n ')" "€"
expect_contains "euro: MacRoman with ToUnicode" "$(pdffonts euro.pdf)" "MacRoman         yes yes yes"
pdftoppm -r 36 -png euro.pdf euro >/dev/null 2>&1
sides=$(/usr/bin/python3 - euro-1.png <<'PY'
import sys
from PIL import Image
im = Image.open(sys.argv[1]).convert("L")
w, h = im.size
px = im.load()
dark = [(x, y) for x in range(w) for y in range(h) if px[x, y] < 128]
if not dark:
    print("no ink")
else:
    mid = (min(x for x, _ in dark) + max(x for x, _ in dark)) / 2
    left = sum(1 for x, _ in dark if x < mid)
    right = len(dark) - left
    print("euro" if left > 1.2 * right else "box (%d left, %d right)" % (left, right))
PY
)
expect_eq "euro: the font's glyph is drawn" "$sides" euro

# A rendered page has ink where the text is.
if pdftoppm -r 36 -f 1 -l 1 -png long.pdf page >/dev/null 2>&1; then
    [ -s page-1.png ] || [ -s page-01.png ] || fail "long: no rendered page"
fi

# A margin box's opacity: a blue top-centre box at half opacity shows as light blue over the white
# page, and its text as grey.
cat > opacity.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 200pt; margin: 50pt;
  @top-center { content: ''; background: rgb(0, 0, 255); opacity: .5 }
  @bottom-center { content: '\2588\2588\2588'; color: black; opacity: .5; font-size: 30pt } }
</style></head><body><p>x</p></body></html>
HTML
"$VELLUM" opacity.html -o opacity.pdf 2>err.txt
expect_eq "opacity: status" "$?" 0
if pdftoppm -r 72 -png opacity.pdf opacity >/dev/null 2>&1; then
    colours=$(/usr/bin/python3 - <<'PY'
from PIL import Image
im = Image.open("opacity-1.png").convert("RGB")
box = im.getpixel((100, 25))
# The darkest pixel of the bottom margin box's text.
dark = min(sum(im.getpixel((x, y))) // 3 for x in range(60, 140) for y in range(155, 195))
print("box %s text %s" % ("half" if 110 <= box[0] <= 145 and box[2] >= 250 else box, "half" if 100 <= dark <= 160 else dark))
PY
)
    expect_eq "opacity: margin boxes at half opacity" "$colours" "box half text half"
fi

finish
