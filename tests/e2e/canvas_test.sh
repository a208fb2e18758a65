#!/usr/bin/env bash
# Canvas drawing through scripts: a bar chart comes out as vector content (shapes, a gradient, real text)
# with no image, cleared areas show the canvas' background, a canvas drawn into another keeps the copy
# made at the call, image data becomes an image, and the members that cannot work warn once.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# pixel FILE X Y: the "r g b" of a pixel of a PNG.
pixel() {
    /usr/bin/python3 - "$@" <<'PY'
import sys
from PIL import Image
im = Image.open(sys.argv[1]).convert("RGB")
print(*im.getpixel((int(sys.argv[2]), int(sys.argv[3]))))
PY
}

# near NAME "r g b" "r g b": each channel within 12.
near() {
    read -r r1 g1 b1 <<<"$2"
    read -r r2 g2 b2 <<<"$3"
    for d in $((r1 - r2)) $((g1 - g2)) $((b1 - b2)); do
        if [ "${d#-}" -gt 12 ]; then
            fail "$1: expected about [$3], got [$2]"
            return
        fi
    done
}

cp "$DATA/data/canvas_chart.html" chart.html
timeout 60 "$VELLUM" --javascript chart.html -o chart.pdf 2>chart.err
expect_eq "chart: status" "$?" 0
qpdf_clean "chart" chart.pdf
expect_eq "chart: no warnings" "$(grep -c -i 'warning\|error' chart.err)" 0

# Vector content only: no image at all, the drawing a form with filled rectangles, a stroked path and an
# axial shading for the gradient bars.
expect_eq "chart: no image XObject" "$(pdfimages -list chart.pdf | tail -n +3 | wc -l)" 0
qpdf --qdf --object-streams=disable chart.pdf chart-qdf.pdf
content=$(tr -d '\r\000' <chart-qdf.pdf)
expect_contains "chart: drawing as a form" "$content" "/Subtype /Form"
expect_contains "chart: gradient shading" "$content" "/ShadingType 2"
expect_not_contains "chart: no image" "$content" "/Subtype /Image"
expect_contains "chart: rectangles" "$content" " re"

# The labels are text of the PDF, where the chart put them.
text=$(pdftotext -layout chart.pdf - | tr -d "\000")
for label in "Sales 2026" Q1 Q2 Q3 Q4 200; do
    expect_contains "chart: label $label" "$text" "$label"
done
expect_contains "chart: embedded font" "$(pdffonts chart.pdf)" "DejaVuSans"
# Q1 is centred under the first bar (canvas x 95, page x 20 + 95 * 0.75), on the baseline at canvas y 270.
bbox=$(pdftotext -bbox chart.pdf - | grep '>Q1<')
xmin=$(echo "$bbox" | sed 's/.*xMin="\([0-9.]*\)".*/\1/')
xmax=$(echo "$bbox" | sed 's/.*xMax="\([0-9.]*\)".*/\1/')
centre=$(/usr/bin/python3 -c "print(round(($xmin + $xmax) / 2))")
expect_eq "chart: Q1 centred under its bar" "$centre" 91
# The tick label is right-aligned against x 45 (page 53.75).
xmax200=$(pdftotext -bbox chart.pdf - | grep '>200<' | sed 's/.*xMax="\([0-9.]*\)".*/\1/')
expect_eq "chart: tick label right-aligned" "$(/usr/bin/python3 -c "print(round($xmax200))")" 54

# Pixels at 72 dpi (a pixel a point): the canvas is at (20, 20), 0.75 pt a canvas pixel.
pdftoppm -r 72 -png chart.pdf chart
near "chart: plain bar" "$(pixel chart-1.png 271 147)" "220 30 30"
read -r r g b <<<"$(pixel chart-1.png 151 100)"
if [ $((b - r)) -lt 60 ] || [ $((b - g)) -lt 20 ]; then
    fail "chart: gradient bar is not blue: $r $g $b"
fi
# Darker at the top of the gradient bar than at its foot.
read -r rt gt bt <<<"$(pixel chart-1.png 151 65)"
read -r rb gb bb <<<"$(pixel chart-1.png 151 200)"
if [ "$rt" -ge "$rb" ]; then
    fail "chart: gradient does not run from dark to light: top $rt $gt $bt, foot $rb $gb $bb"
fi
near "chart: background between bars" "$(pixel chart-1.png 121 170)" "255 255 204"
near "chart: green corner" "$(pixel chart-1.png 282 35)" "0 170 0"
near "chart: cleared corner shows the background" "$(pixel chart-1.png 305 35)" "255 255 204"
read -r r g b <<<"$(pixel chart-1.png 57 150)"
if [ "$r" -gt 100 ]; then
    fail "chart: value axis missing: $r $g $b"
fi

# A canvas copied into another keeps what it had at the call; image data becomes an image; a canvas
# never drawn on keeps its place; unsupported members warn once each.
cat >misc.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 200pt; margin: 0 }
body { margin: 0 }
canvas { display: block; float: left }
</style></head><body>
<canvas id="a" width="100" height="100"></canvas>
<canvas id="b" width="100" height="100"></canvas>
<canvas id="c" width="100" height="100"></canvas>
<canvas id="blank" width="100" height="100" style="background: #00ff00"></canvas>
<canvas id="p" width="100" height="100"></canvas>
<script>
var a = document.getElementById("a").getContext("2d");
var b = document.getElementById("b").getContext("2d");
var c = document.getElementById("c").getContext("2d");
a.fillStyle = "red";
a.fillRect(0, 0, 100, 100);
b.drawImage(document.getElementById("a"), 0, 0);
a.fillStyle = "blue";
a.fillRect(0, 0, 100, 100);
var p = document.getElementById("p").getContext("2d");
p.fillStyle = p.createPattern(document.getElementById("a"), "repeat");
p.fillRect(0, 0, 100, 100);
var d = c.createImageData(10, 10);
for (var i = 0; i < d.data.length; i += 4) { d.data[i + 1] = 128; d.data[i + 3] = 255; }
c.putImageData(d, 20, 20);
c.font = "bold 20px DejaVu Sans";
c.strokeStyle = "#ff0000";
c.strokeText("Outline", 2, 90);
c.isPointInPath(1, 1);
c.isPointInPath(2, 2);
c.shadowBlue = 4;
</script>
</body></html>
HTML
timeout 60 "$VELLUM" --javascript misc.html -o misc.pdf 2>misc.err
expect_eq "misc: status" "$?" 0
qpdf_clean "misc" misc.pdf
pdftoppm -r 72 -png misc.pdf misc
# 100 canvas pixels are 75 points.
near "misc: source canvas after the change" "$(pixel misc-1.png 37 37)" "0 0 255"
near "misc: copy keeps the drawing of the call" "$(pixel misc-1.png 112 37)" "255 0 0"
near "misc: image data" "$(pixel misc-1.png 168 18)" "0 128 0"
near "misc: beside the image data" "$(pixel misc-1.png 155 40)" "255 255 255"
near "misc: pattern of a canvas" "$(pixel misc-1.png 337 37)" "0 0 255"
near "misc: blank canvas keeps its box" "$(pixel misc-1.png 262 37)" "0 255 0"
expect_eq "misc: one image, the image data" "$(pdfimages -list misc.pdf | tail -n +3 | wc -l)" 1
expect_contains "misc: stroked text is text" "$(pdftotext misc.pdf -)" "Outline"
qpdf --qdf --object-streams=disable misc.pdf misc-qdf.pdf
expect_contains "misc: stroked text in the stroke mode" "$(tr -d '\000' <misc-qdf.pdf)" "1 Tr"
expect_eq "misc: isPointInPath warns once" "$(grep -c 'canvas isPointInPath is not yet supported' misc.err)" 1
expect_eq "misc: shadowBlur warns" "$(grep -c 'canvas shadowBlur is not yet supported' misc.err)" 1

# Text of both directions: the Hebrew word reads right to left after the number that follows it in
# the source, and a right-to-left line shows its brackets mirrored (the text stays as written).
cat >bidi.html <<'HTML'
<!DOCTYPE html><html><body><canvas id="c" width="400" height="100"></canvas><script>
var ctx = document.getElementById('c').getContext('2d');
ctx.font = '20px "DejaVu Sans"';
ctx.fillText('abc \u05D0\u05D1\u05D2 123 def', 10, 40);
ctx.fillText('\u05E9\u05DC\u05D5\u05DD (\u05E2\u05D5\u05DC\u05DD)', 10, 80);
</script></body></html>
HTML
timeout 60 "$VELLUM" --javascript bidi.html -o bidi.pdf 2>bidi.err
abc_x=$(box_of bidi.pdf 1 abc | cut -d' ' -f1)
num_x=$(box_of bidi.pdf 1 123 | cut -d' ' -f1)
heb_x=$(box_of bidi.pdf 1 "$(printf '\u05D2\u05D1\u05D0')" | cut -d' ' -f1)
def_x=$(box_of bidi.pdf 1 def | cut -d' ' -f1)
expect_eq "bidi canvas: abc, number, Hebrew, def from left to right" \
    "$(awk -v a="$abc_x" -v n="$num_x" -v h="$heb_x" -v d="$def_x" 'BEGIN { print (a < n && n < h && h < d) ? "yes" : "no" }')" yes
expect_contains "bidi canvas: brackets keep their text" "$(pdftotext bidi.pdf -)" "$(printf '(\u05E2\u05D5\u05DC\u05DD)')"

# Text in a canvas copied by drawImage keeps the size it had: its relative font size follows the canvas it
# was drawn on (10pt), not the one it is copied into (40pt).
cat >copyfont.html <<'HTML'
<!DOCTYPE html><html><body>
<canvas id="src" width="200" height="60" style="font-size: 10pt"></canvas>
<canvas id="dst" width="200" height="60" style="font-size: 40pt"></canvas>
<script>
var s = document.getElementById('src').getContext('2d');
s.font = "100% 'DejaVu Sans'";
s.fillText('Tiny', 5, 30);
document.getElementById('dst').getContext('2d').drawImage(document.getElementById('src'), 0, 0);
</script></body></html>
HTML
timeout 60 "$VELLUM" --javascript copyfont.html -o copyfont.pdf 2>copyfont.err
heights=$(pdftotext -bbox copyfont.pdf - | sed -n 's/.*yMin="\([0-9.]*\)".*yMax="\([0-9.]*\)".*>Tiny<.*/\1 \2/p' |
    awk '{ printf "%.0f ", $2 - $1 }')
expect_eq "copied canvas text: both copies the same height" "$heights" "12 12 "

finish
