#!/usr/bin/env bash
# Pages are painted as soon as they are packed, and a pass whose page numbers turn out to be stale is
# thrown away whole. A contents list whose entries wrap once their page numbers have two digits grows
# by a page in the second pass and pushes every chapter on, so a third pass follows; the file must
# hold the last pass only: its page numbers, its links, and no font that only a discarded pass showed.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
command -v qpdf >/dev/null || exit 77
fonts=/usr/share/fonts/truetype/dejavu
for f in DejaVuSansMono.ttf DejaVuSans.ttf DejaVuSerif.ttf; do
    [ -f "$fonts/$f" ] || exit 77
done

# Eight chapters behind eight pages of preface. The first pass knows no page and shows "0" for each
# entry: one line each, one page of contents. The second shows 10 to 17, two digits that do not fit
# beside the word, so each entry takes two lines and the contents two pages; the third shows 11 to 18.
# The digit 0 has a face of its own (DejaVu Serif), which only the discarded passes need.
/usr/bin/python3 - "$fonts" <<'PY'
import sys
fonts = sys.argv[1]
toc = "".join(f'<li><a href="#c{i}">Chapter</a></li>' for i in range(1, 9))
pre = "".join(f'<section class="pre"><p>Preface page {i}.</p></section>' for i in range(1, 9))
chapters = "".join(f'<h1 id="c{i}">Chapter {i}</h1><p>Text of chapter {i}.</p>' for i in range(1, 9))
open("toc.html", "w").write(f'''<!DOCTYPE html><html><head><title>Pushed</title><style>
@font-face {{ font-family: Zero; src: url({fonts}/DejaVuSerif.ttf); unicode-range: U+0030 }}
@font-face {{ font-family: Mono; src: url({fonts}/DejaVuSansMono.ttf) }}
@font-face {{ font-family: Sans; src: url({fonts}/DejaVuSans.ttf) }}
@page {{ size: A6; margin: 1cm }}
body {{ font: 12pt Sans }}
ol {{ font: 20pt/1.2 Zero, Mono; list-style: none; margin: 0; padding: 0 }}
li {{ width: 5.7em }}
li a::after {{ content: " " target-counter(attr(href), page) }}
.pre, h1 {{ break-before: page }}
h1 {{ font-size: 14pt; font-weight: normal }}
</style></head><body><ol>{toc}</ol>{pre}{chapters}</body></html>''')
PY
timeout 60 "$VELLUM" -v toc.html -o toc.pdf 2>err.txt
expect_eq "status" "$?" 0
qpdf_clean "toc" toc.pdf
expect_eq "passes" "$(grep -c 'Resolving cross-references...' err.txt)" 2
expect_eq "pages" "$(pdfinfo toc.pdf | sed -n 's/^Pages: *//p')" 18

# The contents fill two pages with the numbers of the last pass, in order.
numbers=$(pdftotext -f 1 -l 2 -layout toc.pdf - | grep -o '[0-9]\+' | tr '\n' ' ')
expect_eq "contents numbers" "$numbers" "11 12 13 14 15 16 17 18 "
expect_contains "contents entry" "$(pdftotext -f 1 -l 1 -layout toc.pdf - | tr -s ' \n' ' ')" "Chapter 11 Chapter 12"
# Each chapter is on the page its entry names.
for i in 1 4 8; do
    page=$((10 + i))
    expect_contains "chapter $i on page $page" "$(pdftotext -f $page -l $page -layout toc.pdf -)" "Chapter $i"
done
expect_contains "preface after the contents" "$(pdftotext -f 3 -l 3 -layout toc.pdf -)" "Preface page 1."

# Only the faces the last pass shows are in the file, not just left unreferenced: no object of the raw
# file (fonts are plain dictionaries) names the face of the digit 0.
pf=$(pdffonts toc.pdf)
expect_contains "mono font" "$pf" "DejaVuSansMono"
expect_contains "sans font" "$pf" "DejaVuSans "
expect_not_contains "no font of a discarded pass" "$pf" "DejaVuSerif"
expect_eq "no trace of the discarded face" "$(grep -ac 'DejaVuSerif' toc.pdf)" 0

# The links of the contents lead to the chapters' pages of the last pass (an entry on two lines has a
# link area on each).
qpdf --json --json-key=qpdf toc.pdf > objs.json 2>/dev/null
links=$(qpdf --json --json-key=pages toc.pdf | /usr/bin/python3 -c '
import json, sys
doc = json.load(sys.stdin)
pages = {p["object"]: n + 1 for n, p in enumerate(doc["pages"])}
objs = json.load(open("objs.json"))["qpdf"][1]
def val(x):
    return objs["obj:" + x]["value"] if isinstance(x, str) and x.endswith(" R") else x
out = []
for p in doc["pages"][:2]:
    for a in val(val(p["object"]).get("/Annots", [])):
        a = val(a)
        dest = a.get("/Dest") or val(a.get("/A", {})).get("/D")
        page = str(pages.get(dest[0], "?"))
        if not out or out[-1] != page:
            out.append(page)
print(" ".join(out))
')
expect_eq "links to the chapters" "$links" "11 12 13 14 15 16 17 18"

# A first pass that looks up a page number stops painting, expecting another pass; when none follows
# (the only target looked up does not exist) the pass is packed again and painted whole.
cat >missing.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: A7; margin: 1cm }
body { font: 10pt Sans }
a::after { content: " page " target-counter(attr(href), page) }
p { break-after: page }
</style><style>@font-face { font-family: Sans; src: url(FONTS/DejaVuSans.ttf) }</style></head>
<body><p>Before.</p><p><a href="#nowhere">Missing</a></p><p>After.</p></body></html>
HTML
sed -i "s|FONTS|$fonts|" missing.html
timeout 60 "$VELLUM" missing.html -o missing.pdf 2>err.txt
expect_eq "missing: status" "$?" 0
qpdf_clean "missing" missing.pdf
expect_eq "missing: pages" "$(pdfinfo missing.pdf | sed -n 's/^Pages: *//p')" 3
expect_eq "missing: passes" "$(grep -c 'Resolving cross-references...' err.txt)" 0
for page in 1 2 3; do
    expect_contains "missing: page $page painted" "$(pdftotext -f $page -l $page missing.pdf - | tr -s ' \n' ' ')" \
        "$(echo 'Before.|Missing page 0|After.' | cut -d'|' -f$page)"
done

# The pages look like what they say: the first contents page has ink, a preface page has ink at
# its top only.
if command -v pdftoppm >/dev/null; then
    pdftoppm -r 20 -gray -f 1 -l 1 toc.pdf p
    ink=$(/usr/bin/python3 -c '
import sys
data = open(sys.argv[1], "rb").read()
# A binary PGM: header of four tokens, then one byte per pixel.
parts = data.split(maxsplit=4)
pixels = parts[4]
print(sum(1 for b in pixels if b < 128))
' p-01.pgm)
    [ "${ink:-0}" -gt 50 ] || fail "contents page: expected ink, got $ink dark pixels"
fi
# A contents list in pages of its own (a named page) and chapters that look nothing up, or only a
# chapter before them, whose page the first pass knows by then: the second pass packs the contents
# again and takes the chapters' pages as the first pass painted them, images and links included.
# Without the page numbers in the contents the same chapters are packed in one pass: their pages must
# come out the same, pixel for pixel.
/usr/bin/python3 - "$fonts" <<'PY'
import sys
from PIL import Image
Image.new("RGB", (40, 20), (200, 30, 30)).save("red.png")
fonts = sys.argv[1]
toc = "".join(f'<a href="#c{i}">Chapter {i}</a>' for i in range(1, 6))
chapters = "".join(f'<h1 id="c{i}">Chapter {i}</h1>' + f'<p>Text of chapter {i}, <a href="#c1">back to one</a>.</p>' * 8
                   + ('<p>See <a class="x" href="#c5">five</a>.</p>' if i == 3 else '')
                   + ('<p>See <a class="x" href="#c2">two</a>.</p>' if i == 4 else '')
                   + '<img src="red.png">' for i in range(1, 6))
for name, numbers in (("front", True), ("plain", False)):
    after = 'nav a::after { content: leader(".") target-counter(attr(href), page) }' if numbers else ''
    open(f"{name}.html", "w").write(f"""<!DOCTYPE html><html><head><style>
@font-face {{ font-family: Sans; src: url({fonts}/DejaVuSans.ttf) }}
@page {{ size: A7; margin: 1cm; @bottom-center {{ content: counter(page); font: 8pt Sans }} }}
@page front {{ @bottom-center {{ content: none }} }}
body {{ font: 9pt Sans }} nav {{ page: front }} nav a {{ display: block }} {after}
a.x::after {{ content: " on page " target-counter(attr(href), page) }}
h1 {{ break-before: page; font-size: 11pt }}
</style></head><body><nav>{toc}</nav><main>{chapters}</main></body></html>""")
PY
timeout 60 "$VELLUM" --debug front.html -o front.pdf 2>err.txt
expect_eq "taken again: status" "$?" 0
qpdf_clean "taken again" front.pdf
expect_eq "taken again: passes" "$(grep -c 'Resolving cross-references...' err.txt)" 1
# Each chapter starts a page of its own: each is taken again but chapter three, whose reference to
# chapter five's page the first pass did not know.
expect_contains "taken again: the chapters' pages" "$(grep 'taken again' err.txt)" "pages 2 to"
expect_eq "taken again: chapters" "$(grep -c 'taken again' err.txt)" 4
timeout 60 "$VELLUM" plain.html -o plain.pdf 2>err.txt
expect_eq "one pass: status" "$?" 0
pages=$(pdfinfo front.pdf | sed -n 's/^Pages: *//p')
expect_eq "taken again: pages" "$pages" "$(pdfinfo plain.pdf | sed -n 's/^Pages: *//p')"
# The contents name the pages where the chapters are.
for i in 1 3 5; do
    page=$(pdftotext -f 1 -l 1 -layout front.pdf - | grep "Chapter $i" | grep -o '[0-9]\+$')
    expect_contains "taken again: chapter $i on page $page" "$(pdftotext -f "$page" -l "$page" front.pdf - | head -1)" \
        "Chapter $i"
done
five=$(pdftotext -f 1 -l 1 -layout front.pdf - | grep "Chapter 5" | grep -o '[0-9]\+$')
expect_contains "taken again: reference in chapter three" "$(pdftotext -layout front.pdf - | tr -s ' \n' ' ')" \
    "See five on page $five."
two=$(pdftotext -f 1 -l 1 -layout front.pdf - | grep "Chapter 2" | grep -o '[0-9]\+$')
expect_contains "taken again: reference in chapter four" "$(pdftotext -layout front.pdf - | tr -s ' \n' ' ')" \
    "See two on page $two."
if command -v pdftoppm >/dev/null; then
    pdftoppm -r 30 -f 2 -png front.pdf f
    pdftoppm -r 30 -f 2 -png plain.pdf g
    same=0
    for f in f-*.png; do
        cmp -s "$f" "g-${f#f-}" && same=$((same + 1))
    done
    expect_eq "taken again: chapter pages as packed afresh" "$same" "$((pages - 1))"
fi
# The links on the pages taken again lead to chapter one's page.
expect_eq "taken again: links" "$(qpdf --qdf --object-streams=disable front.pdf - | grep -ac '/Subtype /Link')" \
    "$(qpdf --qdf --object-streams=disable plain.pdf - | grep -ac '/Subtype /Link')"

finish
