#!/usr/bin/env bash
# Images: each format and pixel kind renders with its source's colours, an image shown on every page is
# written once, broken images warn and show their alt text, and a content: url() image and a
# list-style-image show.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
PY=/usr/bin/python3
if ! $PY -c 'import PIL' 2>/dev/null; then
    echo "python3-pil is missing" >&2
    exit 77
fi
$PY "$DATA/../tools/gen_test_images.py" imgs || { echo "cannot make the test images" >&2; exit 77; }

# One image a page, 80pt square at (10pt, 10pt) of a 100pt page: at 72 dpi a pixel is a point.
kinds="rgb.png interlaced.png gray.png bw.png rgba.png palette.png rgb16.png rgba16.png rgb.jpg progressive.jpg gray.jpg cmyk.jpg grid.gif grid.tif rgb16.tif jpeg-named.png"
{
    echo '<!DOCTYPE html><html><head><style>@page { size: 100pt 100pt; margin: 10pt } body { margin: 0 }'
    echo 'img { display: block; width: 80pt; height: 80pt; page-break-after: always }</style></head><body>'
    for k in $kinds; do echo "<img src=\"imgs/$k\" alt=\"ALT $k\">"; done
    echo '</body></html>'
} >pixels.html
timeout 60 "$VELLUM" pixels.html -o pixels.pdf 2>pixels.err
expect_eq "pixels: status" "$?" 0
qpdf_clean "pixels" pixels.pdf
expect_eq "pixels: no warnings" "$(cat pixels.err)" ""
expect_eq "pixels: pages" "$(pdfinfo pixels.pdf | awk '/^Pages:/ {print $2}')" "$(echo $kinds | wc -w)"
expect_eq "pixels: 16-bit images need PDF 1.5" "$(head -c 8 pixels.pdf)" "%PDF-1.5"
# Each page of a PDF of $kinds against its source image: the quadrant centres within a tolerance.
pixels_match() {
    rm -f page-*.png
    pdftoppm -r 72 -png "$1" page
    $PY - $kinds <<'PY'
import sys, glob
from PIL import Image
kinds = sys.argv[1:]
pages = sorted(glob.glob("page-*.png"))
bad = []
for kind, page in zip(kinds, pages):
    src = Image.open("imgs/" + kind)
    if src.mode == "CMYK":
        tolerance = 110   # viewers convert CMYK by their own rules
    else:
        tolerance = 40
    src = src.convert("RGBA")
    white = Image.new("RGBA", src.size, (255, 255, 255, 255))
    src = Image.alpha_composite(white, src).convert("RGB")
    out = Image.open(page).convert("RGB")
    # Quadrant centres of the 16-pixel source and of the 80-point picture at (10, 10).
    for sx, sy in ((4, 4), (12, 4), (4, 12), (12, 12)):
        want = src.getpixel((sx, sy))
        got = out.getpixel((10 + sx * 5, 10 + sy * 5))
        if max(abs(a - b) for a, b in zip(want, got)) > tolerance:
            bad.append(f"{kind} at {sx},{sy}: want {want} got {got}")
    # Outside the picture the page stays white.
    if out.getpixel((5, 5)) != (255, 255, 255):
        bad.append(f"{kind}: paint outside the picture")
print("\n".join(bad) if bad else "ok")
PY
}
result=$(pixels_match pixels.pdf)
expect_eq "pixels match the sources" "$result" "ok"
# Images wait for the file with their samples compressed; written without compression, they are
# expanded again, and still show their sources' colours.
timeout 60 "$VELLUM" --no-compress pixels.html -o plain.pdf 2>plain.err
expect_eq "uncompressed: status" "$?" 0
expect_eq "uncompressed: no warnings" "$(cat plain.err)" ""
qpdf_clean "uncompressed" plain.pdf
expect_eq "uncompressed: pixels match the sources" "$(pixels_match plain.pdf)" "ok"
expect_eq "uncompressed: no Flate data" "$(grep -ac FlateDecode plain.pdf)" "0"
objects=$(qpdf --show-xref pixels.pdf | wc -l)
expect_contains "soft mask for alpha" "$(qpdf --qdf --object-streams=disable pixels.pdf - | tr -d '\r' | grep -a '/SMask')" "/SMask"
expect_contains "JPEG passed through" "$(qpdf --qdf --object-streams=disable pixels.pdf - | grep -a '/DCTDecode' | head -1)" "/DCTDecode"

# The same logo on a hundred pages is one image object.
{
    echo '<!DOCTYPE html><html><head><style>@page { size: 200pt 200pt; margin: 20pt } body { margin: 0 }'
    echo 'div { page-break-after: always }</style></head><body>'
    for i in $(seq 1 100); do echo "<div><img src=\"imgs/rgb.png\" alt=\"logo\"> page $i</div>"; done
    echo '</body></html>'
} >logo.html
timeout 120 "$VELLUM" logo.html -o logo.pdf 2>logo.err
expect_eq "logo: status" "$?" 0
qpdf_clean "logo" logo.pdf
expect_eq "logo: pages" "$(qpdf --show-npages logo.pdf)" "100"
images=$(qpdf --qdf --object-streams=disable logo.pdf - | grep -a -c '/Subtype /Image')
expect_eq "logo: one image object" "$images" "1"

# Broken images: one warning each with the file, and the alt text in their place.
cat >broken.html <<'HTML'
<!DOCTYPE html><html><body>
<p>A <img src="imgs/truncated.png" alt="TRUNCATED"> B <img src="imgs/corrupt.png" alt="CORRUPT">
C <img src="imgs/empty.jpg" alt="EMPTYJPEG"> D <img src="imgs/huge.png" alt="HUGE">
E <img src="imgs/picture.svg" alt="SVGPIC"> F <img src="imgs/none.png" alt="MISSING">
G <img src="imgs/truncated.png" alt="AGAIN"></p>
<object data="imgs/corrupt.png"><p>FALLBACK CONTENT</p></object>
<object data="imgs/rgb.png"><p>NOT SHOWN</p></object>
</body></html>
HTML
timeout 60 "$VELLUM" broken.html -o broken.pdf 2>broken.err
expect_eq "broken: status" "$?" 0
qpdf_clean "broken" broken.pdf
text=$(pdftotext broken.pdf - | tr -s ' \n' ' ')
for alt in TRUNCATED CORRUPT EMPTYJPEG HUGE MISSING AGAIN "FALLBACK CONTENT"; do
    expect_contains "broken: alt text $alt" "$text" "$alt"
done
expect_not_contains "broken: object with an image hides its content" "$text" "NOT SHOWN"
err=$(cat broken.err)
expect_contains "broken: truncated" "$err" "truncated.png: warning: Could not load PNG file"
expect_contains "broken: corrupt" "$err" "corrupt.png: warning: Could not load PNG file"
expect_contains "broken: empty" "$err" "empty.jpg: warning:"
expect_contains "broken: huge" "$err" "huge.png: warning: image too large"
# An SVG file is a drawing, not a broken image: it shows instead of its alt text, without a warning.
expect_not_contains "broken: svg drawn" "$text" "SVGPIC"
expect_not_contains "broken: svg without warning" "$err" "picture.svg"
expect_eq "broken: a second use warns no more" "$(grep -c 'truncated.png' broken.err)" "1"
expect_eq "broken: one image object" "$(qpdf --qdf --object-streams=disable broken.pdf - | grep -a -c '/Subtype /Image')" "1"

# content: url() and list-style-image; a 24px image is 18pt wide at the CSS resolution.
cat >generated.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 300pt; margin: 20pt } body { margin: 0; font: 10pt "DejaVu Sans" }
.logo::before { content: url(imgs/rgb.png) " LOGO" }
ul { list-style-image: url(imgs/grid.gif) }
</style></head><body><p class="logo">text</p><ul><li>ITEM</li></ul>
<p><img src="imgs/rgb.png" width="40" alt="x"> sized</p></body></html>
HTML
timeout 60 "$VELLUM" generated.html -o generated.pdf 2>generated.err
expect_eq "generated: status" "$?" 0
expect_eq "generated: no warnings" "$(cat generated.err)" ""
qpdf_clean "generated" generated.pdf
expect_eq "generated: two image objects" "$(qpdf --qdf --object-streams=disable generated.pdf - | grep -a -c '/Subtype /Image')" "2"
expect_eq "generated: three images drawn" "$(qpdf --qdf --object-streams=disable generated.pdf - | grep -a -c ' Do$')" "3"

# Backgrounds: a repeated image is one tiling pattern, however many boxes show it; no-repeat places one
# picture; a linear gradient paints a ramp; a spot colour is a separation shown in its alternate.
cat >backgrounds.html <<'HTML'
<!DOCTYPE html><html><head><style>
@vellum-color Gold { alternate-color: cmyk(0, 0.2, 1, 0) }
@page { size: 300pt 300pt; margin: 0 }
body { margin: 0 }
div { width: 200pt; height: 40pt; margin: 0 0 10pt 0 }
.tile { background: url(imgs/rgb.png) }
.one { background: url(imgs/rgb.png) no-repeat 50% 50% }
.ramp { background: linear-gradient(to right, red, blue) }
.spot { background: -vellum-color(Gold, 1) }
</style></head><body>
<div class="tile"></div><div class="one"></div><div class="ramp"></div><div class="spot"></div>
<div class="tile" style="page-break-before: always"></div><div class="tile" style="page-break-before: always"></div>
</body></html>
HTML
timeout 60 "$VELLUM" backgrounds.html -o backgrounds.pdf 2>backgrounds.err
expect_eq "backgrounds: status" "$?" 0
expect_eq "backgrounds: no warnings" "$(cat backgrounds.err)" ""
qpdf_clean "backgrounds" backgrounds.pdf
qdf=$(qpdf --qdf --object-streams=disable backgrounds.pdf - | tr -d '\0' | tr -s ' \n' ' ')
expect_eq "backgrounds: one image" "$(echo "$qdf" | grep -o '/Subtype /Image' | wc -l)" "1"
# The tiled box at the same place on three pages is one pattern; the single picture is another.
expect_eq "backgrounds: tiling patterns" "$(echo "$qdf" | grep -o '/PatternType 1' | wc -l)" "2"
expect_contains "backgrounds: axial shading" "$qdf" "/ShadingType 2"
expect_contains "backgrounds: separation" "$qdf" "/Separation /Gold /DeviceCMYK"
pdftoppm -r 72 -png backgrounds.pdf bg
result=$($PY - <<'PY'
from PIL import Image
im = Image.open("bg-1.png").convert("RGB")
bad = []
def near(name, got, want, tol=40):
    if max(abs(a - b) for a, b in zip(got, want)) > tol:
        bad.append(f"{name}: want {want} got {got}")
# Tiles of 12pt repeat across the first box: red at the top left of each tile, green beside it.
near("tile 1", im.getpixel((3, 3)), (255, 0, 0))
near("tile 2", im.getpixel((15, 3)), (255, 0, 0))
near("tile 2 green", im.getpixel((21, 3)), (0, 160, 0))
# The single picture stands in the middle of the second box (y 50 to 90), the rest stays white.
near("centred picture", im.getpixel((97, 67)), (255, 0, 0))
near("around the picture", im.getpixel((20, 60)), (255, 255, 255))
# The ramp: red at the left, blue at the right, a mix in the middle.
left, mid, right = im.getpixel((2, 120)), im.getpixel((100, 120)), im.getpixel((197, 120))
near("ramp left", left, (255, 0, 0))
near("ramp right", right, (0, 0, 255))
if not (60 < mid[0] < 200 and 60 < mid[2] < 200):
    bad.append(f"ramp middle: {mid}")
# The spot colour in its alternate: a yellow with a little magenta.
spot = im.getpixel((100, 170))
if not (spot[0] > 200 and 120 < spot[1] < 230 and spot[2] < 80):
    bad.append(f"spot: {spot}")
print("\n".join(bad) if bad else "ok")
PY
)
expect_eq "backgrounds: pixels" "$result" "ok"

# object-fit and object-position place the picture in its box; the HTML size attributes read "40px"
# and "50%" as browsers do. Each image on a page of its own, its box at (10pt, 10pt).
cat >fit.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 100pt 100pt; margin: 10pt } body { margin: 0 }
img, div { display: block; page-break-after: always }
.box { width: 80pt; height: 40pt }
.contain { object-fit: contain } .cover { object-fit: cover }
.none { object-fit: none; object-position: 0 0 }
</style></head><body>
<img class="box contain" src="imgs/rgb.png" alt="c"><img class="box cover" src="imgs/rgb.png" alt="v">
<img class="box none" src="imgs/rgb.png" alt="n"><img src="imgs/rgb.png" width="40px" alt="w">
<div style="width: 60pt"><img src="imgs/rgb.png" width="50%" alt="p"></div>
</body></html>
HTML
timeout 60 "$VELLUM" fit.html -o fit.pdf 2>fit.err
expect_eq "fit: status" "$?" 0
expect_eq "fit: no warnings" "$(cat fit.err)" ""
qpdf_clean "fit" fit.pdf
pdftoppm -r 72 -png fit.pdf fit
result=$($PY - <<'PY'
from PIL import Image
bad = []
def px(page, x, y):
    return Image.open(f"fit-{page}.png").convert("RGB").getpixel((x, y))
def near(name, got, want, tol=40):
    if max(abs(a - b) for a, b in zip(got, want)) > tol:
        bad.append(f"{name}: want {want} got {got}")
red, green, blue, white = (255, 0, 0), (0, 160, 0), (0, 0, 255), (255, 255, 255)
# contain: a 40pt square in the middle of the 80pt by 40pt box, white bands beside it.
near("contain band", px(1, 15, 30), white)
near("contain red", px(1, 35, 15), red)
near("contain green", px(1, 65, 15), green)
near("contain right band", px(1, 85, 30), white)
# cover: an 80pt square cut to the box's 40pt, its middle showing; nothing below the box.
near("cover top", px(2, 15, 15), red)
near("cover bottom", px(2, 15, 45), blue)
near("cover right", px(2, 85, 45), white)
near("cover clipped", px(2, 15, 56), white)
near("cover clipped right", px(2, 60, 56), white)
# none at 0 0: the natural 12pt square at the top left corner of the box.
near("none picture", px(3, 13, 13), red)
near("none beyond", px(3, 30, 15), white)
# width="40px": 30pt wide, height by the ratio; width="50%" of a 60pt block: 30pt too.
for page in (4, 5):
    near(f"attribute size {page} inside", px(page, 37, 12), green)
    near(f"attribute size {page} beyond", px(page, 43, 12), white)
    near(f"attribute size {page} below", px(page, 12, 43), white)
print("\n".join(bad) if bad else "ok")
PY
)
expect_eq "fit: pixels" "$result" "ok"

# The HTML size attributes read "40px" and "50%" as browsers do. Each image on a page of its own, its
# box at (10pt, 10pt).
cat >sized.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 100pt 100pt; margin: 10pt } body { margin: 0 }
img, div { display: block; page-break-after: always }
</style></head><body>
<img src="imgs/rgb.png" width="40px" alt="w">
<div style="width: 60pt"><img src="imgs/rgb.png" width="50%" alt="p"></div>
<img src="imgs/rgb.png" height=" 30.0pt" alt="h">
</body></html>
HTML
timeout 60 "$VELLUM" sized.html -o sized.pdf 2>sized.err
expect_eq "sized: status" "$?" 0
expect_eq "sized: no warnings" "$(cat sized.err)" ""
qpdf_clean "sized" sized.pdf
pdftoppm -r 72 -png sized.pdf sized
result=$($PY - <<'PY'
from PIL import Image
bad = []
def near(name, got, want, tol=40):
    if max(abs(a - b) for a, b in zip(got, want)) > tol:
        bad.append(f"{name}: want {want} got {got}")
# 40px, 50% of a 60pt block and a height of "30.0pt" (30 pixels) all make a picture 30 by 22.5 or 30 by
# 30 points: green at the top right inside it, white just beyond.
for page, size in ((1, 30), (2, 30), (3, 22.5)):
    im = Image.open(f"sized-{page}.png").convert("RGB")
    inside = int(10 + size - 3)
    near(f"page {page} inside", im.getpixel((inside, 12)), (0, 160, 0))
    near(f"page {page} beyond", im.getpixel((int(10 + size + 3), 12)), (255, 255, 255))
    near(f"page {page} below", im.getpixel((12, int(10 + size + 3))), (255, 255, 255))
print("\n".join(bad) if bad else "ok")
PY
)
expect_eq "sized: pixels" "$result" "ok"

# A gradient to transparent shows what lies under it, through a soft mask made of the stops' opacities.
cat >fade.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 100pt; margin: 0 } body { margin: 0 }
div { width: 200pt; height: 100pt; background: linear-gradient(to right, red, transparent) blue }
</style></head><body><div></div></body></html>
HTML
timeout 60 "$VELLUM" fade.html -o fade.pdf 2>fade.err
expect_eq "fade: status" "$?" 0
qpdf_clean "fade" fade.pdf
fadeq=$(qpdf --qdf --object-streams=disable fade.pdf - | tr -d '\0' | tr -s ' \n' ' ')
expect_contains "fade: luminosity mask" "$fadeq" "/S /Luminosity"
pdftoppm -r 72 -png fade.pdf fade
result=$($PY - <<'PY'
from PIL import Image
im = Image.open("fade-1.png").convert("RGB")
left, mid, right = im.getpixel((2, 50)), im.getpixel((100, 50)), im.getpixel((197, 50))
bad = []
if not (left[0] > 220 and left[2] < 40):
    bad.append(f"left {left}")
if not (right[2] > 220 and right[0] < 40):
    bad.append(f"right {right}")
# Half way: red over blue at half strength, and no grey or white mixed in.
if not (90 < mid[0] < 170 and 90 < mid[2] < 170 and mid[1] < 40):
    bad.append(f"middle {mid}")
print("\n".join(bad) if bad else "ok")
PY
)
expect_eq "fade: pixels" "$result" "ok"

# background-attachment: fixed places the image against the page area, not the box; and
# background-image-resolution sizes a background image (48 dpi: a 16-pixel image is 24pt wide).
cat >fixed.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 100pt 200pt; margin: 10pt } body { margin: 0 }
.res { height: 50pt; background: url(imgs/rgb.png) no-repeat; background-image-resolution: 48dpi }
.fixed { margin-top: 50pt; height: 80pt; background: url(imgs/rgb.png) no-repeat fixed 0 60% }
</style></head><body><div class="res"></div><div class="fixed"></div></body></html>
HTML
timeout 60 "$VELLUM" fixed.html -o fixed.pdf 2>fixed.err
expect_eq "fixed: status" "$?" 0
expect_eq "fixed: no warnings" "$(cat fixed.err)" ""
pdftoppm -r 72 -png fixed.pdf fixedpx
result=$($PY - <<'PY'
from PIL import Image
im = Image.open("fixedpx-1.png").convert("RGB")
bad = []
def near(name, got, want, tol=40):
    if max(abs(a - b) for a, b in zip(got, want)) > tol:
        bad.append(f"{name}: want {want} got {got}")
near("resolution: green quadrant 24pt wide", im.getpixel((30, 13)), (0, 160, 0))
near("resolution: beyond the image", im.getpixel((40, 13)), (255, 255, 255))
# 60% of the page area's free height: the image's top at 10 + 0.6 * 168 = 110.8pt.
near("fixed: at the page position", im.getpixel((13, 113)), (255, 0, 0))
near("fixed: not at the box position", im.getpixel((13, 153)), (255, 255, 255))
print("\n".join(bad) if bad else "ok")
PY
)
expect_eq "fixed: pixels" "$result" "ok"


# A gradient smaller than its box repeats like an image: a 1pt-wide single-colour tile repeated along
# a line is an underline across the whole box, and a 20pt ramp repeated across a box shows every tile.
cat >tiles.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 100pt; margin: 0 } body { margin: 0 }
.line { height: 20pt; background: linear-gradient(blue, blue) 0 100% / 1pt 2pt repeat-x }
.ramps { height: 40pt; background: linear-gradient(to right, red, yellow) 0 0 / 20pt 100% repeat-x }
</style></head><body><div class="line"></div><div class="ramps"></div></body></html>
HTML
timeout 60 "$VELLUM" tiles.html -o tiles.pdf 2>tiles.err
expect_eq "gradient tiles: status" "$?" 0
qpdf_clean "gradient tiles" tiles.pdf
pdftoppm -r 72 -png tiles.pdf tiles
result=$($PY - <<'PY'
from PIL import Image
im = Image.open("tiles-1.png").convert("RGB")
bad = []
# The underline runs from edge to edge along the foot of the first box.
for x in (1, 100, 198):
    p = im.getpixel((x, 19))
    if not (p[2] > 200 and p[0] < 60):
        bad.append(f"underline at {x}: {p}")
# Every 20pt the ramp starts red again, and ends yellow just before.
for k in range(10):
    start, end = im.getpixel((20 * k + 1, 40)), im.getpixel((20 * k + 18, 40))
    if not (start[0] > 200 and start[1] < 90):
        bad.append(f"tile {k} start {start}")
    if not (end[0] > 200 and end[1] > 170):
        bad.append(f"tile {k} end {end}")
print("\n".join(bad) if bad else "ok")
PY
)
expect_eq "gradient tiles: pixels" "$result" "ok"

finish
