#!/usr/bin/env bash
# The DOM bindings through the real program: a document whose script builds its table of contents,
# numbers its figures and moves its footnotes gives the same text, in the same places, as the same
# document written by hand; scripts placed in the tree by other scripts run when the walk reaches them;
# DOM failures reach the log as exceptions with their code.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# The scripted document against its static twin.
timeout 60 "$VELLUM" --javascript "$DATA/data/dom_scripted.html" -o scripted.pdf >out.txt 2>err.txt
expect_eq "scripted: status" "$?" 0
timeout 60 "$VELLUM" "$DATA/data/dom_static.html" -o static.pdf >/dev/null 2>&1
expect_eq "static: status" "$?" 0
qpdf_clean "scripted" scripted.pdf
qpdf_clean "static" static.pdf
expect_eq "scripted: no messages" "$(cat err.txt)" ""
expect_eq "scripted: same text as the static document" "$(pdftotext -layout scripted.pdf -)" \
    "$(pdftotext -layout static.pdf -)"
# The word boxes only: the header's dates differ when the two runs straddle a second.
expect_eq "scripted: same word boxes as the static document" "$(pdftotext -bbox scripted.pdf - | grep -v '<meta')" \
    "$(pdftotext -bbox static.pdf - | grep -v '<meta')"
expect_contains "scripted: contents" "$(pdftotext -layout scripted.pdf -)" "Forests"
expect_contains "scripted: figure numbers" "$(pdftotext scripted.pdf -)" "Figure 2: Trees by species"
expect_contains "scripted: notes at the end" "$(pdftotext -layout scripted.pdf -)" "2. Counted along one transect."
links() { qpdf --qdf --object-streams=disable "$1" - | grep -c '/Subtype /Link'; }
expect_eq "scripted: contents entries are links" "$(links scripted.pdf)" "$(links static.pdf)"
expect_eq "scripted: three links" "$(links scripted.pdf)" 3
expect_eq "scripted: same pages" "$(pdfinfo scripted.pdf | awk '/^Pages:/ {print $2}')" \
    "$(pdfinfo static.pdf | awk '/^Pages:/ {print $2}')"

# The walk, events, lists, style and the not-supported warning, seen through console output.
cat >walk.html <<'HTML'
<!DOCTYPE html><html><head>
<style>@page { size: 300pt 200pt; margin: 20pt } body { font: 11pt "DejaVu Sans" } .hot { color: red }</style>
<script>
var later = document.createElement("script");
later.textContent = 'console.log("appended script ran")';
var behind = document.createElement("script");
behind.textContent = 'console.log("script behind the walk ran")';
document.head.insertBefore(behind, document.head.firstChild);
document.body.appendChild(later);
document.addEventListener("DOMContentLoaded", function (e) { console.log("ready " + e.type); });
</script></head>
<body onload="console.log('body onload')"><p id="p">One</p>
<script>
var live = document.getElementsByTagName("p"), fixed = document.querySelectorAll("p");
var p2 = document.createElement("p");
p2.innerHTML = "Two&nbsp;<b>bold</b>";
document.body.appendChild(p2);
console.log("live " + live.length + ", static " + fixed.length + ", " + p2.innerHTML);
var p = document.getElementById("p");
console.log("colour " + getComputedStyle(p).color);
p.className = "hot";
p.style.marginLeft = "24pt";
console.log("colour " + getComputedStyle(p).color + ", margin " + p.style.marginLeft);
document.write("never written");
p.appendChild(document.body);
</script></body></html>
HTML
timeout 60 "$VELLUM" --javascript walk.html -o walk.pdf >out.txt 2>err.txt
expect_eq "walk: status" "$?" 0
qpdf_clean "walk" walk.pdf
expect_eq "walk: console output in order" "$(cat out.txt)" "live 2, static 1, Two&nbsp;<b>bold</b>
colour #000000
colour #ff0000, margin 24pt
appended script ran
ready DOMContentLoaded
body onload"
expect_contains "walk: document.write warns" "$(cat err.txt)" "document.write is not yet supported"
expect_contains "walk: the uncaught DOM error is reported" "$(cat err.txt)" "HIERARCHY_REQUEST_ERR"
expect_not_contains "walk: nothing else written" "$(pdftotext walk.pdf -)" "never written"
expect_contains "walk: the new paragraph is laid out" "$(pdftotext walk.pdf -)" "Two bold"
# The scripted style reaches the page: red text, indented by the style attribute.
x_of_one=$(pdftotext -bbox walk.pdf - | awk -F'"' '/>One</ {print int($2)}')
expect_eq "walk: margin from element.style" "$x_of_one" 44
red=$(pdftoppm -r 72 -f 1 -l 1 -x 40 -y 15 -W 60 -H 40 walk.pdf | /usr/bin/python3 -c '
import sys
data = sys.stdin.buffer.read()
parts = data.split(b"\n", 3)
px = parts[3]
print(sum(1 for i in range(0, len(px), 3) if px[i] > 180 and px[i + 1] < 80 and px[i + 2] < 80) > 5)')
expect_eq "walk: the class change makes the text red" "$red" True

# A background and rounded corners set through element.style go in by their members (layer by layer,
# corner by corner) and paint as the same declarations written in the sheet do.
bg='linear-gradient(#ff0000, #ff0000) no-repeat 20px 10px / 30px 20px, #0000ff'
cat >bg_static.html <<HTML
<!DOCTYPE html><html><head><style>@page { size: 200px 100px; margin: 0 } body { margin: 0 }
div { height: 60px; background: $bg; border-radius: 30px 5px / 20px }</style></head><body><div></div></body></html>
HTML
sed -e "s|background: [^}]*}|}|" -e "s|</body>|<script>var s = document.querySelector('div').style; s.background = '$bg'; s.borderRadius = '30px 5px / 20px';</script></body>|" \
    bg_static.html >bg_script.html
timeout 60 "$VELLUM" --javascript bg_script.html -o bg_script.pdf 2>bg_err.txt
expect_eq "background by script: status" "$?" 0
timeout 60 "$VELLUM" bg_static.html -o bg_static.pdf
pdftoppm -r 72 -png -singlefile bg_script.pdf bg_script
pdftoppm -r 72 -png -singlefile bg_static.pdf bg_static
expect_eq "background by script: pixels as the static page's" "$(cmp -s bg_script.png bg_static.png && echo same)" same
expect_eq "background by script: red layer over blue" "$(/usr/bin/python3 -c '
from PIL import Image
im = Image.open("bg_script.png").convert("RGB")
print(im.getpixel((25, 15)), im.getpixel((8, 12)), im.getpixel((5, 60)), im.getpixel((1, 1)))')" \
    "(255, 0, 0) (0, 0, 255) (255, 255, 255) (255, 255, 255)"

finish
