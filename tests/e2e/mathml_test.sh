#!/usr/bin/env bash
# MathML: formulas inline and displayed, in HTML and XHTML, set in the math font with fractions, roots,
# scripts, limits, stretched delimiters and a matrix.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

formulas='
<p>Inline: <math><msup><mi>e</mi><mrow><mi>i</mi><mi>π</mi></mrow></msup><mo>+</mo><mn>1</mn><mo>=</mo><mn>0</mn></math> ends the line.</p>
<p>Quadratic:</p>
<math display="block"><mi>x</mi><mo>=</mo><mfrac><mrow><mo>-</mo><mi>b</mi><mo>±</mo><msqrt><msup><mi>b</mi><mn>2</mn></msup><mo>-</mo><mn>4</mn><mi>a</mi><mi>c</mi></msqrt></mrow><mrow><mn>2</mn><mi>a</mi></mrow></mfrac></math>
<p>Sum:</p>
<math display="block"><munderover><mo>∑</mo><mrow><mi>k</mi><mo>=</mo><mn>1</mn></mrow><mi>n</mi></munderover><msup><mi>k</mi><mn>2</mn></msup><mo>=</mo><mfrac><mrow><mi>n</mi><mo>(</mo><mi>n</mi><mo>+</mo><mn>1</mn><mo>)</mo><mo>(</mo><mn>2</mn><mi>n</mi><mo>+</mo><mn>1</mn><mo>)</mo></mrow><mn>6</mn></mfrac></math>
<p>Integral:</p>
<math display="block"><msubsup><mo>∫</mo><mn>0</mn><mi>∞</mi></msubsup><msup><mi>e</mi><mrow><mo>-</mo><msup><mi>x</mi><mn>2</mn></msup></mrow></msup><mi>d</mi><mi>x</mi><mo>=</mo><mfrac><msqrt><mi>π</mi></msqrt><mn>2</mn></mfrac></math>
<p>Nested:</p>
<math display="block"><mrow><mo>(</mo><mfrac><mrow><mn>1</mn><mo>+</mo><mfrac><mn>1</mn><mi>y</mi></mfrac></mrow><mroot><mi>z</mi><mn>3</mn></mroot></mfrac><mo>)</mo></mrow><mo>+</mo><msubsup><mi>x</mi><mi>i</mi><mn>2</mn></msubsup></math>
<p>Matrix:</p>
<math display="block"><mi>A</mi><mo>=</mo><mrow><mo>[</mo><mtable><mtr><mtd><mn>1</mn></mtd><mtd><mn>0</mn></mtd></mtr><mtr><mtd><mn>0</mn></mtd><mtd><mn>1</mn></mtd></mtr></mtable><mo>]</mo></mrow></math>
'

cat >math.html <<HTML
<!DOCTYPE html><html><head><style>
@page { size: 400pt 600pt; margin: 30pt }
body { margin: 0; font: 12pt "DejaVu Serif" }
p { margin: 4pt 0 }
</style></head><body>
$formulas
</body></html>
HTML

cat >math.xhtml <<XHTML
<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:m="http://www.w3.org/1998/Math/MathML"><head><style>
@page { size: 400pt 600pt; margin: 30pt }
body { margin: 0; font: 12pt "DejaVu Serif" }
</style></head><body>
<p>Inline <m:math><m:mfrac><m:mi>a</m:mi><m:mi>b</m:mi></m:mfrac></m:math> fraction.</p>
<m:math display="block"><m:msqrt><m:mi>x</m:mi></m:msqrt><m:mo>≠</m:mo><m:mn>3</m:mn></m:math>
<p>Error: <math xmlns="http://www.w3.org/1998/Math/MathML"><mfrac><mi>a</mi></mfrac><mi>q</mi></math></p>
</body></html>
XHTML

timeout 60 "$VELLUM" math.html -o math.pdf 2>math.err
expect_eq "html status" "$?" 0
qpdf_clean "html" math.pdf
expect_not_contains "no unsupported warning" "$(cat math.err)" "not supported"
text=$(pdftotext -layout math.pdf -)
squeezed=$(echo "$text" | tr -d ' \n')
# The characters come back, the italic letters as plain letters and the minus as U+2212.
expect_contains "inline formula" "$squeezed" "ends"
expect_contains "quadratic: b squared" "$squeezed" "4ac"
expect_contains "minus sign" "$text" "−"
expect_contains "sum sign" "$text" "∑"
expect_contains "integral sign" "$text" "∫"
expect_contains "radical sign" "$text" "√"
expect_contains "plus-minus" "$text" "±"
expect_contains "pi" "$text" "π"
fonts=$(pdffonts math.pdf)
expect_contains "math font embedded" "$fonts" "DejaVuMathTeXGyre"
echo "$fonts" | grep DejaVuMathTeXGyre | grep -q ' yes ' || fail "math font not embedded: $fonts"

# The inline formula's baseline is the line's: "Inline:" and "+" stand on one line of the text.
bbox=$(pdftotext -bbox math.pdf -)
ymax_of() { echo "$bbox" | grep ">$1<" | head -1 | sed 's/.*yMax="\([0-9.]*\)".*/\1/'; }
y_inline=$(ymax_of 'Inline:')
y_ends=$(ymax_of 'ends')
expect_eq "inline baseline" "$y_inline" "$y_ends"

# Pixels: fraction bars and radical bars are drawn.
pdftoppm -r 150 -png math.pdf page
result=$(/usr/bin/python3 - <<'PY'
from PIL import Image
im = Image.open("page-1.png").convert("L")
w, h = im.size
# Long dark horizontal runs: fraction bars and radical bars.
bars = 0
for y in range(h):
    run = best = 0
    for x in range(w):
        if im.getpixel((x, y)) < 100:
            run += 1
            best = max(best, run)
        else:
            run = 0
    if best >= 40:
        bars += 1
print(bars)
PY
)
read bars <<<"$result"
[ "$bars" -ge 3 ] || fail "expected fraction and radical bars, found $bars dark rows"

timeout 60 "$VELLUM" math.xhtml -o xmath.pdf 2>xmath.err
expect_eq "xhtml status" "$?" 0
qpdf_clean "xhtml" xmath.pdf
xtext=$(pdftotext -layout xmath.pdf - | tr -d ' \n')
expect_contains "xhtml inline" "$xtext" "Inline"
expect_contains "xhtml radical" "$xtext" "√"
expect_contains "xhtml not equal" "$xtext" "≠"
expect_contains "wrong child count" "$(cat xmath.err)" "1 children in mfrac"
# The formula after the error still shows.
expect_contains "after the error" "$xtext" "q"


# Equation labels of mlabeledtr stand beside their rows: on the right by default, on the left with
# side="left", the equation moving over to make room.
cat >labels.html <<'HTML'
<!DOCTYPE html><html><body>
<math display="block"><mtable><mlabeledtr><mtd><mtext>(7)</mtext></mtd><mtd><mi>E</mi><mo>=</mo><mi>m</mi></mtd></mlabeledtr></mtable></math>
<math display="block"><mtable side="left"><mlabeledtr><mtd><mtext>(8)</mtext></mtd><mtd><mi>F</mi><mo>=</mo><mi>a</mi></mtd></mlabeledtr></mtable></math>
</body></html>
HTML
timeout 60 "$VELLUM" labels.html -o labels.pdf 2>labels.err
expect_eq "labels status" "$?" 0
qpdf_clean "labels" labels.pdf
expect_not_contains "labels: no warning" "$(cat labels.err)" "mlabeledtr"
lbox=$(pdftotext -bbox labels.pdf -)
x_of() { echo "$lbox" | grep ">$1<" | head -1 | sed 's/.*xMin="\([0-9.]*\)".*/\1/'; }
right=$(awk -v l="$(x_of '(7)')" -v e="$(x_of E)" 'BEGIN { print (l != "" && e != "" && l > e) ? "yes" : "no: " l " " e }')
expect_eq "label on the right" "$right" yes
left=$(awk -v l="$(x_of '(8)')" -v e="$(x_of F)" 'BEGIN { print (l != "" && e != "" && l < e) ? "yes" : "no: " l " " e }')
expect_eq "label on the left" "$left" yes

# mglyph: an image glyph (its bottom lowered by valign) and a glyph by number in the math font, in
# a line of text; enclosures drawn with a radical, an arrow and an angle.
/usr/bin/python3 -c "from PIL import Image; Image.new('RGB', (20, 20), (255, 0, 0)).save('red.png')"
cat >glyphs.html <<'HTML'
<!DOCTYPE html><html><head><style>@page { size: 300pt 200pt; margin: 20pt } body { font: 12pt "DejaVu Serif" }</style></head><body>
<p>Image <math><mi><mglyph src="red.png" width="15pt" height="15pt" valign="-3pt" alt="R"/></mi><mo>+</mo><mi><mglyph fontfamily="DejaVu Math TeX Gyre" index="200" alt="Z"/></mi></math> here.</p>
<math display="block"><mtable><mtr><mtd><maligngroup/><mi>x</mi><maligngroup/><mo>=</mo><mn>1</mn></mtd></mtr><mtr><mtd><maligngroup/><mi>abc</mi><mo>+</mo><mi>d</mi><maligngroup/><mo>=</mo><mn>22</mn></mtd></mtr></mtable></math>
<p>Enclosed <math><menclose notation="radical"><mi>x</mi></menclose><menclose notation="updiagonalarrow"><mi>y</mi></menclose><menclose notation="phasorangle"><mi>w</mi></menclose></math> too.</p>
</body></html>
HTML
timeout 60 "$VELLUM" glyphs.html -o glyphs.pdf 2>glyphs.err
expect_eq "glyphs status" "$?" 0
qpdf_clean "glyphs" glyphs.pdf
expect_not_contains "glyphs: no mglyph warning" "$(cat glyphs.err)" "mglyph"
expect_not_contains "glyphs: glyph found" "$(cat glyphs.err)" "unknown glyph"
expect_not_contains "glyphs: notations drawn" "$(cat glyphs.err)" "not drawn"
expect_eq "one image" "$(pdfimages -list glyphs.pdf | tail -n +3 | wc -l)" 1
gtext=$(pdftotext -layout glyphs.pdf - | tr -d ' \n')
expect_contains "glyph by number stands for its alt text" "$gtext" "Z"
expect_contains "radical" "$gtext" "√"
# The equals signs of the aligned rows share their x.
gbox=$(pdftotext -bbox glyphs.pdf -)
eq_x=$(echo "$gbox" | grep '>=[0-9]*<' | sed 's/.*xMin="\([0-9.]*\)".*/\1/' | sort -u)
expect_eq "aligned equals signs" "$(echo "$eq_x" | wc -l) $(echo "$gbox" | grep -c '>=[0-9]*<')" "1 2"
# The red square is 15pt (about 31 pixels at 150 dpi) on a side, and reaches 3pt (about 6 pixels)
# below the baseline of "Image".
pdftoppm -r 150 -png -f 1 -l 1 glyphs.pdf glyphs
bbox=$(pdftotext -bbox glyphs.pdf -)
base=$(echo "$bbox" | grep '>Image<' | head -1 | sed 's/.*yMax="\([0-9.]*\)".*/\1/')
read rw rh rbottom <<<"$(/usr/bin/python3 - <<'PY'
from PIL import Image
im = Image.open("glyphs-1.png").convert("RGB")
w, h = im.size
xs, ys = [], []
for y in range(h):
    for x in range(w):
        r, g, b = im.getpixel((x, y))
        if r > 200 and g < 60 and b < 60:
            xs.append(x); ys.append(y)
print(max(xs) - min(xs) + 1, max(ys) - min(ys) + 1, max(ys) + 1) if xs else print(0, 0, 0)
PY
)"
[ "$rw" -ge 29 ] && [ "$rw" -le 33 ] || fail "red glyph width $rw pixels"
[ "$rh" -ge 29 ] && [ "$rh" -le 33 ] || fail "red glyph height $rh pixels"
# yMax of a word lies at its descent; the baseline is above it, so compare against the square's
# bottom with the 3pt drop, allowing for the descent of the text font.
below=$(awk -v b="$rbottom" -v y="$base" 'BEGIN { d = b / 150 * 72 - y; print (d > -2 && d < 4) ? "yes" : "no: " d }')
expect_eq "image glyph lowered by valign" "$below" yes

[ "$failures" -eq 0 ]
