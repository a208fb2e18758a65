#!/usr/bin/env bash
# What an ordinary document gets without asking: the default page margin, the canvas background, the
# title in running heads; and the sizes, margins and page selectors that everyday style sheets write.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# word_box FILE WORD: "xMin yMin xMax yMax" of the first occurrence of WORD (y measured from the top).
word_box() {
    pdftotext -bbox "$1" - | grep ">$2<" | head -1 |
        sed 's/.*xMin="\([-0-9.]*\)" yMin="\([-0-9.]*\)" xMax="\([-0-9.]*\)" yMax="\([-0-9.]*\)".*/\1 \2 \3 \4/'
}
# pixel FILE PAGE X Y: the colour "r g b" at a point of the page rendered at 72 dpi (one pixel a point).
pixel() {
    pdftoppm -r 72 -f "$2" -l "$2" -x "$3" -y "$4" -W 1 -H 1 "$1" | tail -c 3 | od -An -tu1 | tr -s ' ' | sed 's/^ //'
}
# check NAME AWK-CONDITION VALUES...: the condition over $1, $2, ... holds.
check() {
    local name=$1 cond=$2
    shift 2
    local ok
    ok=$(echo "$@" | awk "{ print ($cond) ? \"yes\" : \"no\" }")
    expect_eq "$name ($*)" "$ok" yes
}

# The default page: US letter with a 2cm (56.69pt) margin on every side.
cat > plain.html <<'HTML'
<h1>Hi</h1><p>text</p>
HTML
"$VELLUM" plain.html 2>err.txt; rc=$?
expect_eq "plain: status" "$rc" 0
qpdf_clean "plain" plain.pdf
expect_contains "plain: letter paper" "$(pdfinfo plain.pdf)" "612 x 792 pts (letter)"
check "plain: heading inside the margin" '$1 >= 56.6 && $1 < 57 && $2 >= 56.6' "$(word_box plain.pdf Hi)"
check "plain: text inside the margin" '$1 >= 56.6 && $1 < 57 && $2 > 56.6' "$(word_box plain.pdf text)"
expect_eq "plain: quiet" "$(cat err.txt)" ""

# The command line's page margin and size and the document's own @page still win over the default.
"$VELLUM" --page-margin=1cm --page-size=a5 plain.html -o margin1.pdf
check "page-margin: 1cm" '$1 > 28 && $1 < 29' "$(word_box margin1.pdf text)"
expect_contains "page-size: a5" "$(pdfinfo margin1.pdf | tr -s ' ')" "419.528 x 595.276 pts"
printf '<style>@page { margin: 0.5in }</style><p>own</p>' > own.html
"$VELLUM" own.html
check "own @page margin" '$1 > 35.9 && $1 < 36.1' "$(word_box own.pdf own)"

# The body's background paints the whole sheet, margins included, as the canvas; the title reaches
# a running head through the default sheet's string-set.
cat > canvas.html <<'HTML'
<!DOCTYPE html><html><head><title>Annual Report</title><style>
@page { @top-center { content: string(title) } }
body { background: #0000ff; color: white }
</style></head><body><p>Body</p></body></html>
HTML
"$VELLUM" canvas.html 2>err.txt; rc=$?
expect_eq "canvas: status" "$rc" 0
qpdf_clean "canvas" canvas.pdf
expect_eq "canvas: corner of the margin" "$(pixel canvas.pdf 1 3 3)" "0 0 255"
expect_eq "canvas: middle of the page" "$(pixel canvas.pdf 1 306 500)" "0 0 255"
expect_eq "canvas: foot of the margin" "$(pixel canvas.pdf 1 600 785)" "0 0 255"
check "canvas: title in the top margin" '$2 >= 0 && $4 <= 56.7 && $1 > 250 && $3 < 362' \
    "$(word_box canvas.pdf Annual)"
expect_contains "canvas: title text" "$(pdftotext canvas.pdf -)" "Annual Report"
# The root's own background wins over the body's; the body's then paints its own box only.
cat > rootbg.html <<'HTML'
<html style="background: #00ff00"><body style="background: #ff0000; margin: 0 0 0 0"><p>x</p></body></html>
HTML
"$VELLUM" rootbg.html
expect_eq "root background: margin" "$(pixel rootbg.pdf 1 3 3)" "0 255 0"
expect_eq "root background: body box" "$(pixel rootbg.pdf 1 70 70)" "255 0 0"
expect_eq "root background: below the body" "$(pixel rootbg.pdf 1 306 500)" "0 255 0"
# A page rule with a background of its own keeps the document's inside the page box.
cat > pagebg.html <<'HTML'
<style>@page { background: #ff0000 } body { background: #0000ff }</style><p>x</p>
HTML
"$VELLUM" pagebg.html
expect_eq "page background: margin" "$(pixel pagebg.pdf 1 3 3)" "255 255 255"
expect_eq "page background: page area" "$(pixel pagebg.pdf 1 306 400)" "0 0 255"

# The hidden title's string rides with the content: a first element on a named page does not get a
# blank unnamed page in front of it.
cat > named.html <<'HTML'
<html><head><title>Named</title><style>body { page: cover } @page cover { @top-center { content: string(title) } }
</style></head><body><h1>Cover</h1><p>text</p></body></html>
HTML
"$VELLUM" named.html
expect_eq "named first page: one page" "$(pdfinfo named.pdf | sed -n 's/^Pages: *//p')" 1
expect_contains "named first page: title in the head" "$(pdftotext named.pdf -)" "Named"

# min-width and max-width hold the width; "auto" margins centre what max-width leaves.
cat > widths.html <<'HTML'
<style>@page { margin: 0 } body { margin: 0 }
div { text-align: right } </style>
<div style="max-width: 200pt">narrow</div>
<div style="max-width: 200pt; margin: 0 auto">centred</div>
<div style="width: 100pt; min-width: 300pt">minimum</div>
HTML
"$VELLUM" widths.html
check "max-width: right edge at 200pt" '$3 > 195 && $3 <= 200.5' "$(word_box widths.pdf narrow)"
check "max-width with auto margins: right edge at 406pt" '$3 > 401 && $3 <= 406.5' "$(word_box widths.pdf centred)"
check "min-width: right edge at 300pt" '$3 > 295 && $3 <= 300.5' "$(word_box widths.pdf minimum)"

# Negative margins and a negative text-indent move text left of its container; an empty block with a
# negative top margin pulls what follows up.
cat > negative.html <<'HTML'
<style>@page { margin: 0 } body { margin: 0; font: 12pt serif; line-height: 20pt } p { margin: 0 }
.box { margin-left: 100pt; width: 200pt }</style>
<div class="box"><p>reference</p><p style="margin-left: -40pt">pulled</p>
<p style="text-indent: -30pt">outdented first line that goes on long enough to wrap onto a second line of
its own in this narrow box</p></div>
<p>before</p><div style="margin-top: -10pt"></div><p>after</p>
HTML
"$VELLUM" negative.html
read -r ref_x _ <<<"$(word_box negative.pdf reference)"
check "negative margin" '$1 > 59.5 && $1 < 60.5' "$(word_box negative.pdf pulled)"
check "negative text-indent" '$1 > 69.5 && $1 < 70.5' "$(word_box negative.pdf outdented)"
check "negative text-indent: other lines at the box" '$1 > 99.5 && $1 < 100.5' "$(pdftotext -bbox negative.pdf - |
    grep '<word' | awk -F'"' '$4 > 60 && $4 < 78 { print $2; exit }')"
read -r _ before_y _ <<<"$(word_box negative.pdf before)"
read -r _ after_y _ <<<"$(word_box negative.pdf after)"
check "empty block with a negative margin: moved up" '$2 - $1 > 9.5 && $2 - $1 < 10.5' "$before_y" "$after_y"
expect_eq "reference at the box" "$ref_x" "100.000000"
# ... and so does one with a border (or a height), whose margins do not collapse through it.
cat > negative2.html <<'HTML'
<style>@page { margin: 100pt } body { margin: 0; font: 12pt serif; line-height: 20pt } p { margin: 12pt 0 }</style>
<p>before</p><div style="margin-top: -30pt; border-top: 2pt solid red"></div><p>after</p>
HTML
"$VELLUM" negative2.html
read -r _ before_y _ <<<"$(word_box negative2.pdf before)"
read -r _ after_y _ <<<"$(word_box negative2.pdf after)"
# The line of "before" ends 20pt below its top; -30pt with the 12pt above puts the border 18pt higher,
# and "after" follows the 2pt border after its own 12pt margin: 20 - 18 + 2 + 12 = 16pt below "before".
check "bordered block with a negative margin: moved up" '$2 - $1 > 15.5 && $2 - $1 < 16.5' "$before_y" "$after_y"

# size: landscape alone turns the default paper.
printf '<style>@page { size: landscape }</style><p>wide</p>' > landscape.html
"$VELLUM" landscape.html
expect_contains "landscape" "$(pdfinfo landscape.pdf)" "792 x 612 pts"
# ... and the command line's paper when it names one.
"$VELLUM" --page-size=a4 landscape.html -o landscape-a4.pdf
expect_contains "landscape of --page-size" "$(pdfinfo landscape-a4.pdf)" "841.89 x 595.276 pts"

# An unnamed :first is the document's first page only, not the first of each named run of pages.
cat > first.html <<'HTML'
<style>@page :first { margin-top: 200pt } @page { margin: 50pt }
.c { page: chapter; page-break-before: always }</style>
<p>one</p><div class="c"><p>two</p></div><div style="page-break-before: always"><p>three</p></div>
HTML
"$VELLUM" first.html
expect_eq "first: three pages" "$(pdfinfo first.pdf | sed -n 's/^Pages: *//p')" 3
check "first: the first page" '$2 > 199 && $2 < 205' "$(word_box first.pdf one)"
check "first: a named run's first page" '$2 > 49 && $2 < 55' "$(word_box first.pdf two)"
check "first: back to unnamed" '$2 > 49 && $2 < 55' "$(word_box first.pdf three)"

# Links resolve against <base href>: a relative link becomes the base's address, and "#frag" stays a
# link within the document, as it does when the base is the document itself.
cat > links.html <<'HTML'
<!DOCTYPE html><html><head><base href="https://example.org/docs/"></head><body>
<p><a href="guide.html#intro">relative</a> <a href="#end">internal</a>
<a href="https://example.net/x">absolute</a></p>
<p id="end" style="page-break-before: always">end</p>
<div xml:base="https://other.example/"><a href="p.html">xmlbase</a></div></body></html>
HTML
"$VELLUM" links.html
qpdf_clean "links" links.pdf
annots=$(qpdf --qdf --object-streams=disable links.pdf - | tr -d '\r' | grep -a -A0 '/URI (')
expect_contains "links: relative link against the base" "$annots" "/URI (https://example.org/docs/guide.html#intro)"
expect_contains "links: absolute link" "$annots" "/URI (https://example.net/x)"
expect_not_contains "links: no dead fragment link" "$annots" "(#end)"
dests=$(qpdf --qdf --object-streams=disable links.pdf - | tr -d '\r' | grep -a -c '/Dest')
check "links: the fragment is an internal destination" '$1 >= 1' "$dests"
cat > xlinks.xhtml <<'XML'
<?xml version="1.0"?>
<html xmlns="http://www.w3.org/1999/xhtml"><body>
<div xml:base="https://other.example/dir/"><p><a href="p.html">xmlbase</a></p></div></body></html>
XML
"$VELLUM" xlinks.xhtml
expect_contains "links: xml:base" "$(qpdf --qdf --object-streams=disable xlinks.pdf - | grep -a '/URI (')" \
    "/URI (https://other.example/dir/p.html)"
# Without a base a relative link stays relative to the PDF, as a set of local files has it.
printf '<p><a href="other.pdf">local</a></p>' > rel.html
"$VELLUM" rel.html
expect_contains "links: relative without a base" "$(qpdf --qdf --object-streams=disable rel.pdf - | grep -a '/URI (')" \
    "/URI (other.pdf)"

# --log with a separate argument: a document is never taken as the log.
cp plain.html keep.html
before=$(md5sum keep.html)
"$VELLUM" --log keep.html plain.html -o logged.pdf 2>err.txt; rc=$?
expect_eq "log: refused" "$rc" 1
expect_contains "log: message" "$(cat err.txt)" "names a file that is not a log: keep.html"
expect_eq "log: document untouched" "$(md5sum keep.html)" "$before"
"$VELLUM" --log run.log plain.html -o logged.pdf; rc=$?
expect_eq "log: new file" "$rc" 0
"$VELLUM" --log run.log plain.html -o logged.pdf; rc=$?
expect_eq "log: earlier log" "$rc" 0
expect_eq "log: two runs" "$(grep -c -- '---- begin' run.log)" 2
"$VELLUM" --log plain.html plain.html -o logged.pdf 2>err.txt; rc=$?
expect_eq "log: the input itself" "$rc" 1

finish
