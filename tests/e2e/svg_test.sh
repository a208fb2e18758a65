#!/usr/bin/env bash
# SVG drawings: inline svg elements and SVG files (img, object, background-image, content: url()) are
# painted as vector forms at their place and size, with gradients, clip paths, group opacity and text
# in the document's fonts; a broken drawing warns and the run goes on.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
PY=/usr/bin/python3
if ! $PY -c 'import PIL' 2>/dev/null; then
    echo "python3-pil is missing" >&2
    exit 77
fi

# pixel FILE X Y: the colour at a pixel, as "r g b".
pixel() {
    $PY - "$@" <<'PY'
import sys
from PIL import Image
im = Image.open(sys.argv[1]).convert("RGB")
print(*im.getpixel((int(sys.argv[2]), int(sys.argv[3]))))
PY
}

# is_color "r g b" R G B: within 40 of each channel.
is_color() {
    $PY - "$1" "$2" "$3" "$4" <<'PY'
import sys
got = [int(v) for v in sys.argv[1].split()]
want = [int(v) for v in sys.argv[2:5]]
print("yes" if all(abs(a - b) <= 40 for a, b in zip(got, want)) else "no: %s" % sys.argv[1])
PY
}

cat >blue.svg <<'SVG'
<?xml version="1.0"?>
<!DOCTYPE svg PUBLIC "-//W3C//DTD SVG 1.1//EN" "http://www.w3.org/Graphics/SVG/1.1/DTD/svg11.dtd">
<svg xmlns="http://www.w3.org/2000/svg" width="40" height="40" viewBox="0 0 4 4">
  <style>.b { fill: rgb(0, 0, 255) }</style>
  <rect class="b" width="4" height="4"/>
</svg>
SVG
printf '<svg xmlns="http://www.w3.org/2000/svg"><rect width="1"' >broken.svg

# A 200pt page without margins: at 72 dpi a pixel is a point, and a CSS pixel 0.75pt.
cat >inline.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 200pt; margin: 0 } body { margin: 0; font: 10pt "DejaVu Sans" }
svg, img { display: block }
</style></head><body>
<svg width="200" height="100">
  <defs>
    <linearGradient id="g"><stop offset="0" stop-color="#f00"/><stop offset="1" stop-color="#00f"/></linearGradient>
    <clipPath id="c"><circle cx="180" cy="40" r="10"/></clipPath>
  </defs>
  <rect x="20" y="20" width="40" height="40" fill="red"/>
  <rect x="80" y="20" width="60" height="40" fill="url(#g)"/>
  <rect x="160" y="20" width="40" height="40" fill="lime" clip-path="url(#c)"/>
  <text x="20" y="90" font-family="DejaVu Sans" font-size="12">Chart label</text>
  <path d="M 0 0 L 10"/>
</svg>
<img src="blue.svg" style="width: 40pt; height: 40pt">
<img src="broken.svg" alt="broken drawing">
</body></html>
HTML
timeout 60 "$VELLUM" inline.html -o inline.pdf 2>inline.err
expect_eq "inline: status" "$?" 0
qpdf_clean "inline" inline.pdf
pdftoppm -r 72 -png inline.pdf inline
expect_eq "red rect inside" "$(is_color "$(pixel inline-1.png 30 30)" 255 0 0)" yes
expect_eq "red rect ends at 45pt" "$(is_color "$(pixel inline-1.png 47 30)" 255 255 255)" yes
expect_eq "nothing above the rect" "$(is_color "$(pixel inline-1.png 30 12)" 255 255 255)" yes
expect_eq "gradient starts red" "$(is_color "$(pixel inline-1.png 62 30)" 245 0 10)" yes
expect_eq "gradient ends blue" "$(is_color "$(pixel inline-1.png 103 30)" 10 0 245)" yes
expect_eq "clip path keeps the circle" "$(is_color "$(pixel inline-1.png 135 30)" 0 255 0)" yes
expect_eq "clip path cuts the corner" "$(is_color "$(pixel inline-1.png 122 17)" 255 255 255)" yes
expect_contains "svg text is extractable" "$(pdftotext inline.pdf -)" "Chart label"
expect_contains "svg text in the document's font" "$(pdffonts inline.pdf)" "DejaVuSans"
# The img's drawing: 40pt square below the 75pt-high inline drawing.
expect_eq "img svg drawn" "$(is_color "$(pixel inline-1.png 20 95)" 0 0 255)" yes
expect_eq "img svg sized by CSS" "$(is_color "$(pixel inline-1.png 45 95)" 255 255 255)" yes
expect_contains "bad path data warns" "$(cat inline.err)" "svg: path: command L/l: (x, y)+ required."
expect_contains "broken file warns" "$(cat inline.err)" "broken.svg"
expect_contains "broken file shows its alt text" "$(pdftotext inline.pdf -)" "broken drawing"

# An SVG file shown many times is written once; as background, content and object it shows as well.
cat >files.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 200pt; margin: 0 } body { margin: 0 }
div.bg { width: 60pt; height: 30pt; background: url(blue.svg) no-repeat; background-size: 30pt 30pt }
p.c::before { content: url(blue.svg) }
p { margin: 0 }
</style></head><body>
<div class="bg"></div>
<p class="c"></p>
<object data="blue.svg" style="display: block; width: 30pt; height: 30pt"></object>
<p><img src="blue.svg" style="width: 10pt"><img src="blue.svg" style="width: 10pt"></p>
</body></html>
HTML
timeout 60 "$VELLUM" files.html -o files.pdf 2>files.err
expect_eq "files: status" "$?" 0
qpdf_clean "files" files.pdf
expect_eq "files: no warnings" "$(cat files.err)" ""
pdftoppm -r 72 -png files.pdf files
expect_eq "background drawing" "$(is_color "$(pixel files-1.png 15 15)" 0 0 255)" yes
expect_eq "background not repeated" "$(is_color "$(pixel files-1.png 45 15)" 255 255 255)" yes
# The drawing's form is the only object whose box is the file's 40 by 40 pixels.
bboxes=$(qpdf --qdf --object-streams=disable files.pdf - | tr -s ' \n' ' ' | grep -a -o '/BBox \[ 0[.0]* 0[.0]* 40[.0]* 40[.0]* \]' | wc -l)
expect_eq "one form for the file" "$bboxes" 1


# An svg element with a viewBox and no width or height is as wide as its container, its height
# following the viewBox's proportions; width and height attributes, or CSS, still size it.
cat >ratio.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 300pt; margin: 0 } body { margin: 0 } div { line-height: 0 }
</style></head><body>
<div><svg viewBox="0 0 100 50"><rect width="100" height="50" fill="red"/></svg></div>
<div><svg viewBox="0 0 100 50" width="40"><rect width="100" height="50" fill="blue"/></svg></div>
<div><svg viewBox="0 0 100 50" style="width: 60pt"><rect width="100" height="50" fill="lime"/></svg></div>
</body></html>
HTML
timeout 60 "$VELLUM" ratio.html -o ratio.pdf 2>ratio.err
expect_eq "ratio: status" "$?" 0
qpdf_clean "ratio" ratio.pdf
pdftoppm -r 72 -png ratio.pdf ratio
# 200pt wide, so 100pt high: red from the left edge to the right one, down to 100pt.
expect_eq "ratio: full width" "$(is_color "$(pixel ratio-1.png 195 5)" 255 0 0)" yes
expect_eq "ratio: height by the viewBox" "$(is_color "$(pixel ratio-1.png 100 95)" 255 0 0)" yes
# The 40px (30pt) drawing below it keeps its own size.
expect_eq "ratio: sized by width attribute" "$(is_color "$(pixel ratio-1.png 25 105)" 0 0 255)" yes
expect_eq "ratio: not stretched" "$(is_color "$(pixel ratio-1.png 60 105)" 255 255 255)" yes
# The same drawing as a file shown by img.
printf '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 100 50"><rect width="100" height="50" fill="red"/></svg>' >ratio.svg
cat >ratio-img.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 300pt; margin: 0 } body { margin: 0 } div { line-height: 0 }
</style></head><body><div><img src="ratio.svg"></div><div><img src="ratio.svg" width="40"></div></body></html>
HTML
timeout 60 "$VELLUM" ratio-img.html -o ratio-img.pdf 2>ratio-img.err
expect_eq "ratio img: status" "$?" 0
pdftoppm -r 72 -png ratio-img.pdf ratio-img
expect_eq "ratio img: full width" "$(is_color "$(pixel ratio-img-1.png 195 5)" 255 0 0)" yes
expect_eq "ratio img: height by the viewBox" "$(is_color "$(pixel ratio-img-1.png 100 95)" 255 0 0)" yes
expect_eq "ratio img: width attribute kept" "$(is_color "$(pixel ratio-img-1.png 60 105)" 255 255 255)" yes

# Text positions: an x list places each character, a rotate list turns them, and text on a path follows
# the path's direction, anchored at its middle by startOffset="50%".
cat >textpos.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 300pt 300pt; margin: 0 } body { margin: 0 }</style></head><body>
<svg xmlns="http://www.w3.org/2000/svg" width="400" height="400" style="display: block">
<defs><path id="diag" d="M 20 200 L 380 380"/></defs>
<text x="20 120 220" y="40" font-family="DejaVu Sans" font-size="20">ABC</text>
<text x="20" y="100" font-family="DejaVu Sans" font-size="20"><tspan dy="0 20 20">DEF</tspan></text>
<text x="300" y="60" font-family="DejaVu Sans" font-size="30" fill="#00f" rotate="90">I</text>
<text x="200" y="170" font-family="DejaVu Sans" font-size="60" font-weight="bold" fill="none" stroke="#0a0" stroke-width="3">O</text>
<text font-family="DejaVu Sans" font-size="20"><textPath href="#diag" startOffset="50%" text-anchor="middle">MNOPQR</textPath></text>
</svg>
</body></html>
HTML
"$VELLUM" textpos.html -o textpos.pdf 2>textpos.err
expect_eq "text positions: status" "$?" 0
qpdf_clean "text positions" textpos.pdf
expect_not_contains "text positions: nothing unsupported" "$(cat textpos.err)" "not supported"
tbox=$(pdftotext -bbox textpos.pdf -)
# word TEXT FIELD: a field (xMin, yMin, ...) of the word, in points.
# pdftotext joins neighbouring letters on a slant into one word: a letter stands for the word holding it.
word() { echo "$tbox" | grep ">[A-Z]*$1[A-Z]*<" | head -1 | sed "s/.*$2=\"\([0-9.]*\)\".*/\1/"; }
# 100 user units are 75pt apart.
gaps=$(awk -v a="$(word A xMin)" -v b="$(word B xMin)" -v c="$(word C xMin)" \
    'BEGIN { print (b - a > 70 && b - a < 80 && c - b > 70 && c - b < 80) ? "yes" : "no: " a " " b " " c }')
expect_eq "x list places each character" "$gaps" yes
steps=$(awk -v d="$(word D yMin)" -v e="$(word E yMin)" -v f="$(word F yMin)" \
    'BEGIN { print (e - d > 13 && e - d < 17 && f - e > 13 && f - e < 17) ? "yes" : "no: " d " " e " " f }')
expect_eq "dy list steps each character down" "$steps" yes
expect_contains "text on a path is extractable" "$(pdftotext textpos.pdf - | tr -d ' \n')" "MNOPQR"
# Along the diagonal each letter stands lower and further right than the one before.
along=$(awk -v m="$(word M yMin)" -v r="$(word R yMin)" -v mx="$(word M xMin)" -v rx="$(word R xMin)" \
    'BEGIN { print (r - m > 15 && rx - mx > 30) ? "yes" : "no: " m " " r " " mx " " rx }')
expect_eq "text follows the path" "$along" yes
# The middle of the path is (200, 290) in user units, 150pt x 217.5pt: the anchored text spans it.
mid=$(awk -v m="$(word M xMin)" -v r="$(word R xMax)" 'BEGIN { print (m < 150 && r > 150 && 150 - m < 40 && r - 150 < 40) ? "yes" : "no: " m " " r }')
expect_eq "startOffset 50% with a middle anchor centres the text" "$mid" yes
# The rotated I lies on its side: wider than tall in pixels.
pdftoppm -r 72 -png textpos.pdf textpos
iw=$($PY - <<'PY'
from PIL import Image
im = Image.open("textpos-1.png").convert("RGB")
xs, ys = [], []
for y in range(im.size[1]):
    for x in range(im.size[0]):
        r, g, b = im.getpixel((x, y))
        if b > 150 and r < 100 and g < 100:
            xs.append(x); ys.append(y)
print("yes" if xs and (max(xs) - min(xs)) > 2 * (max(ys) - min(ys)) else "no: %s" % ((max(xs) - min(xs), max(ys) - min(ys)) if xs else "none",))
PY
)
expect_eq "rotate turns the character" "$iw" yes
# The stroked, unfilled O: green on its outline, white inside.
ring=$($PY - <<'PY'
from PIL import Image
im = Image.open("textpos-1.png").convert("RGB")
pts = [(x, y) for y in range(im.size[1]) for x in range(im.size[0])
       if (lambda p: p[1] > 120 and p[0] < 80 and p[2] < 80)(im.getpixel((x, y)))]
if not pts:
    print("none")
else:
    xs = [p[0] for p in pts]; ys = [p[1] for p in pts]
    cx, cy = (min(xs) + max(xs)) // 2, (min(ys) + max(ys)) // 2
    print("yes" if im.getpixel((cx, cy)) == (255, 255, 255) and max(xs) - min(xs) > 25 else "no")
PY
)
expect_eq "stroked text draws its outline only" "$ring" yes

# Stroked text takes the stroke's dashes, joins and caps: the operators stand before the text object
# that strokes the glyphs (render mode 1).
cat >dashtext.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 200pt 100pt; margin: 0 } body { margin: 0 }</style></head><body>
<svg xmlns="http://www.w3.org/2000/svg" width="200" height="100"><text x="10" y="80" font-family="DejaVu Sans"
font-size="60" fill="none" stroke="#000" stroke-width="2" stroke-dasharray="6 3" stroke-dashoffset="1"
stroke-linejoin="round" stroke-linecap="square">Z</text></svg>
</body></html>
HTML
"$VELLUM" --no-compress dashtext.html -o dashtext.pdf 2>dashtext.err
expect_eq "dashed text: status" "$?" 0
qpdf_clean "dashed text" dashtext.pdf
ops=$(grep -a -E '^(\[[0-9. ]*\] [0-9.]+ d|[0-9] j|[0-9] J|[0-9] Tr)$' dashtext.pdf | tr '\n' ' ')
expect_eq "dashed text: dashes, round joins, square caps, stroked glyphs" \
    "$(grep -c -E '\[6(\.0*)? 3(\.0*)?\] 1(\.0*)? d .*1 j .*2 J|2 J 1 j \[6(\.0*)? 3(\.0*)?\] 1(\.0*)? d' <<<"$ops") $(grep -c '1 Tr' <<<"$ops")" "1 1"

# Masks: the brightness of the mask's drawing is the opacity of the masked element. A red square under
# a mask that is white on its left half and 50% grey on its right half shows red, then pink; outside
# the mask's drawing nothing shows.
cat >mask.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 200pt 200pt; margin: 0 } body { margin: 0 }</style></head><body>
<svg xmlns="http://www.w3.org/2000/svg" width="200pt" height="200pt" viewBox="0 0 200 200" style="display: block">
<defs><mask id="m" maskUnits="userSpaceOnUse" x="0" y="0" width="200" height="200">
<rect x="0" y="0" width="100" height="150" fill="white"/>
<rect x="100" y="0" width="100" height="150" fill="rgb(128,128,128)"/>
</mask></defs>
<rect x="0" y="0" width="200" height="200" fill="red" mask="url(#m)"/>
</svg>
</body></html>
HTML
"$VELLUM" mask.html -o mask.pdf 2>mask.err
expect_eq "mask: status" "$?" 0
qpdf_clean "mask" mask.pdf
expect_not_contains "mask: no warning" "$(cat mask.err)" "mask"
pdftoppm -r 72 -png mask.pdf mask
expect_eq "mask: white shows the element" "$(is_color "$(pixel mask-1.png 50 50)" 255 0 0)" yes
expect_eq "mask: grey shows it half" "$(is_color "$(pixel mask-1.png 150 50)" 255 127 127)" yes
expect_eq "mask: outside the drawing nothing shows" "$(is_color "$(pixel mask-1.png 50 180)" 255 255 255)" yes

# Stop opacity fades a gradient: opaque red on the left, clear on the right.
cat >fade.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 200pt 100pt; margin: 0 } body { margin: 0 }</style></head><body>
<svg xmlns="http://www.w3.org/2000/svg" width="200pt" height="100pt" viewBox="0 0 200 100" style="display: block">
<defs><linearGradient id="f"><stop offset="0" stop-color="red"/><stop offset="1" stop-color="red" stop-opacity="0"/></linearGradient></defs>
<rect x="0" y="0" width="200" height="100" fill="url(#f)"/>
</svg>
</body></html>
HTML
"$VELLUM" fade.html -o fade.pdf 2>fade.err
expect_eq "fade: status" "$?" 0
qpdf_clean "fade" fade.pdf
pdftoppm -r 72 -png fade.pdf fade
expect_eq "fade: opaque end" "$(is_color "$(pixel fade-1.png 3 50)" 255 0 0)" yes
expect_eq "fade: middle half way" "$(is_color "$(pixel fade-1.png 100 50)" 255 127 127)" yes
expect_eq "fade: clear end" "$(is_color "$(pixel fade-1.png 196 50)" 255 255 255)" yes

# Text filled with a gradient: the ramp runs across the whole text, red at its start, blue at its end,
# and shows only inside the glyphs.
cat >gradtext.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 300pt 100pt; margin: 0 } body { margin: 0 }</style></head><body>
<svg xmlns="http://www.w3.org/2000/svg" width="300pt" height="100pt" viewBox="0 0 300 100" style="display: block">
<defs><linearGradient id="rb"><stop offset="0" stop-color="#f00"/><stop offset="1" stop-color="#00f"/></linearGradient></defs>
<text x="10" y="80" font-family="DejaVu Sans" font-weight="bold" font-size="80" fill="url(#rb)">IIII<tspan>IIII</tspan></text>
</svg>
</body></html>
HTML
"$VELLUM" gradtext.html -o gradtext.pdf 2>gradtext.err
expect_eq "gradient text: status" "$?" 0
qpdf_clean "gradient text" gradtext.pdf
expect_contains "gradient text: extractable" "$(pdftotext gradtext.pdf - | tr -d ' \n')" "IIIIIIII"
pdftoppm -r 72 -png gradtext.pdf gradtext
read first last between <<<"$($PY - <<'PY'
from PIL import Image
im = Image.open("gradtext-1.png").convert("RGB")
y = 50
inked = [x for x in range(im.size[0]) if im.getpixel((x, y)) != (255, 255, 255)]
r0, g0, b0 = im.getpixel((inked[2], y))
r1, g1, b1 = im.getpixel((inked[-3], y))
gap = next(x for x in range(inked[0], inked[-1]) if im.getpixel((x, y)) == (255, 255, 255))
print("red" if r0 > 180 and b0 < 80 else "no", "blue" if b1 > 180 and r1 < 80 else "no", "white" if gap else "no")
PY
)"
expect_eq "gradient text: red start, blue end, white between glyphs" "$first $last $between" "red blue white"
expect_eq "gradient text: no image" "$(pdfimages -list gradtext.pdf | tail -n +3 | wc -l)" 0

# Links in a drawing: an `a` around a shape makes a link annotation over the shape's place on the page.
cat >links.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 200pt 200pt; margin: 0 } body { margin: 0 }</style></head><body>
<svg xmlns="http://www.w3.org/2000/svg" xmlns:xlink="http://www.w3.org/1999/xlink" width="200pt" height="100pt" viewBox="0 0 200 100" style="display: block">
<a xlink:href="https://example.com/chart"><rect x="20" y="10" width="60" height="30" fill="#00f"/></a>
<a href="#below"><g transform="translate(100 50)"><circle cx="20" cy="20" r="10" fill="red"/></g></a>
</svg>
<p id="below">Below.</p>
</body></html>
HTML
"$VELLUM" links.html -o links.pdf 2>links.err
expect_eq "svg links: status" "$?" 0
qpdf_clean "svg links" links.pdf
qpdf --qdf --object-streams=disable links.pdf links-qdf.pdf
flat=$(tr '\r\n' '  ' <links-qdf.pdf | tr -s ' ')
expect_contains "svg links: web address" "$flat" "/URI (https://example.com/chart)"
# The rectangle lies 10 to 40 units below the top of a page 200pt tall: y from 160 to 190, x 20 to 80.
rects=$(echo "$flat" | grep -a -o '/Rect \[ [0-9. ]* \]' | tr -d '/Rect[]')
first=$(echo "$rects" | head -1)
inside=$(echo "$first" | awk '{ print ($1 > 19 && $1 < 21 && $2 > 159 && $2 < 161 && $3 > 79 && $3 < 81 && $4 > 189 && $4 < 191) ? "yes" : "no: " $0 }')
expect_eq "svg links: rectangle over the shape" "$inside" yes
expect_eq "svg links: two links, one to the paragraph" "$(echo "$rects" | wc -l) $(echo "$flat" | grep -a -c '/Dest \[')" "2 1"

# Text of both directions across spans: the Hebrew span reads right to left after the number that
# follows it, and right-to-left text starts at its right end.
cat >svgbidi.html <<'HTML'
<!DOCTYPE html><html><body>
<svg width="400" height="120" xmlns="http://www.w3.org/2000/svg" style="font-family: 'DejaVu Sans'; font-size: 20px">
<text x="10" y="40">abc <tspan fill="red">\u05D0\u05D1\u05D2</tspan> 123 def</text>
<text x="390" y="90" direction="rtl">\u05E9\u05DC\u05D5\u05DD xyz</text>
<rect x="389" y="60" width="2" height="40" fill="blue"/>
</svg></body></html>
HTML
printf '%b' "$(cat svgbidi.html)" >svgbidi2.html
timeout 60 "$VELLUM" svgbidi2.html -o svgbidi.pdf 2>svgbidi.err
num_x=$(box_of svgbidi.pdf 1 123 | cut -d' ' -f1)
heb_x=$(box_of svgbidi.pdf 1 "$(printf '\u05D2\u05D1\u05D0')" | cut -d' ' -f1)
def_x=$(box_of svgbidi.pdf 1 def | cut -d' ' -f1)
expect_eq "svg bidi: number, Hebrew span, def from left to right" \
    "$(awk -v n="$num_x" -v h="$heb_x" -v d="$def_x" 'BEGIN { print (n < h && h < d) ? "yes" : "no" }')" yes
xyz_x=$(box_of svgbidi.pdf 1 xyz | cut -d' ' -f1)
word_x=$(box_of svgbidi.pdf 1 "$(printf '\u05DD\u05D5\u05DC\u05E9')" | cut -d' ' -f1)
expect_eq "svg bidi: right-to-left text has its first word on the right" \
    "$(awk -v x="$xyz_x" -v w="$word_x" 'BEGIN { print (x < w) ? "yes" : "no" }')" yes

# A clip path is the union of its shapes, each by its own clip-rule: two rectangles wound in opposite
# directions both clip in where they overlap, and a ring's hole stays out beside a rectangle.
cat >union.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 200pt; margin: 0 } body { margin: 0 } svg { display: block }
</style></head><body>
<svg width="200" height="200">
  <defs>
    <clipPath id="both"><path d="M 10 10 H 110 V 60 H 10 Z"/><path d="M 60 10 V 60 H 160 V 10 Z"/></clipPath>
    <clipPath id="ring">
      <path clip-rule="evenodd" d="M 10 100 H 110 V 190 H 10 Z M 40 130 H 80 V 160 H 40 Z"/>
      <rect x="130" y="100" width="50" height="50"/>
    </clipPath>
  </defs>
  <rect width="200" height="90" fill="lime" clip-path="url(#both)"/>
  <rect y="90" width="200" height="110" fill="lime" clip-path="url(#ring)"/>
</svg>
</body></html>
HTML
timeout 60 "$VELLUM" union.html -o union.pdf 2>union.err
expect_eq "union: status" "$?" 0
qpdf_clean "union" union.pdf
pdftoppm -r 72 -png union.pdf union
# User units are CSS pixels: a point is 0.75 of one.
expect_eq "first rectangle alone" "$(is_color "$(pixel union-1.png 22 26)" 0 255 0)" yes
expect_eq "overlap of opposite windings" "$(is_color "$(pixel union-1.png 64 26)" 0 255 0)" yes
expect_eq "second rectangle alone" "$(is_color "$(pixel union-1.png 105 26)" 0 255 0)" yes
expect_eq "outside both rectangles" "$(is_color "$(pixel union-1.png 64 55)" 255 255 255)" yes
expect_eq "ring" "$(is_color "$(pixel union-1.png 15 83)" 0 255 0)" yes
expect_eq "ring's hole" "$(is_color "$(pixel union-1.png 45 109)" 255 255 255)" yes
expect_eq "rectangle beside the ring" "$(is_color "$(pixel union-1.png 116 94)" 0 255 0)" yes
expect_eq "between ring and rectangle" "$(is_color "$(pixel union-1.png 90 94)" 255 255 255)" yes
# Where the profile forbids transparency the shapes still clip, as one path.
timeout 60 "$VELLUM" --pdf-profile="PDF/A-1b" union.html -o union-a.pdf 2>union-a.err
expect_eq "union, PDF/A-1b: status" "$?" 0
pdftoppm -r 72 -png union-a.pdf union-a
expect_eq "PDF/A-1b: first rectangle" "$(is_color "$(pixel union-a-1.png 22 26)" 0 255 0)" yes
expect_eq "PDF/A-1b: outside both rectangles" "$(is_color "$(pixel union-a-1.png 64 55)" 255 255 255)" yes

# A horizontal line has a bounding box of no height: a gradient in bounding-box units paints nothing
# on it, and a line is never filled, so nothing at all is drawn; a vertical line stroked in a plain
# colour beside it still is.
cat >zeroline.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 150pt 150pt; margin: 0 } body { margin: 0 } svg { display: block }</style></head><body>
<svg xmlns="http://www.w3.org/2000/svg" width="200" height="200">
<defs><linearGradient id="g"><stop offset="0" stop-color="red"/><stop offset="1" stop-color="blue"/></linearGradient></defs>
<line x1="10" y1="20" x2="190" y2="20" stroke="url(#g)" stroke-width="10"/>
<line x1="100" y1="50" x2="100" y2="150" stroke="#00f" stroke-width="10"/>
</svg></body></html>
HTML
timeout 60 "$VELLUM" zeroline.html -o zeroline.pdf 2>zeroline.err
expect_eq "zeroline: status" "$?" 0
pdftoppm -r 72 -png -singlefile zeroline.pdf zeroline
ink=$($PY - <<'PY'
from PIL import Image
im = Image.open("zeroline.png").convert("RGB")
band = [im.getpixel((x, y)) for x in range(0, 150) for y in range(8, 22)]
print(sum(1 for p in band if min(p) < 250))
PY
)
expect_eq "zeroline: nothing drawn for the horizontal line" "$ink" 0
expect_eq "zeroline: the vertical line is drawn" "$(is_color "$(pixel zeroline.png 75 75)" 0 0 255)" yes

finish
