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

[ "$failures" -eq 0 ]
