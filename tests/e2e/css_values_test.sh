#!/usr/bin/env bash
# The CSS that today's documents write: rem, var(), calc(), vw, nesting, @layer and @supports place and
# colour boxes as a browser would; content() with no argument feeds a running header; and problems in a
# style sheet are named with file and line under --verbose, and counted without it.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# x_of FILE WORD: the left edge of a word, in points from the page's left edge.
x_of() {
    pdftotext -bbox "$1" - | grep ">$2<" | head -1 | sed 's/.*xMin="\([0-9.-]*\)".*/\1/'
}

# y_of FILE WORD: the top of the first occurrence of a word, in points from the page's top edge.
y_of() {
    pdftotext -bbox "$1" - | grep ">$2<" | head -1 | sed 's/.*yMin="\([0-9.-]*\)".*/\1/'
}

# near NAME ACTUAL EXPECTED: within half a point.
near() {
    local ok
    ok=$(awk -v a="$2" -v e="$3" 'BEGIN { d = a - e; if (d < 0) d = -d; print (a != "" && d <= 0.5) ? "yes" : "no" }')
    expect_eq "$1 (got $2, want $3)" "$ok" yes
}

# pixel FILE X Y: the colour at a point (72 dpi, so pixels are points) as "r g b".
pixel() {
    pdftoppm -r 72 -x "$2" -y "$3" -W 1 -H 1 -f 1 -l 1 "$1" px
    tail -c 3 px-1.ppm | od -An -tu1 | tr -s ' ' | sed 's/^ //;s/ $//'
}

# The root font is 10pt, so 1rem is 10pt, and the page margin of 5rem leaves a page area of 300pt by
# 300pt at (50, 50).
cat >values.html <<'EOF'
<!DOCTYPE html><html><head><style>
@layer base, theme;
@layer theme { .swatch { background: var(--theme-colour) } }
@layer base { #swatch.swatch { background: rgb(255, 0, 0) } }
@page { size: 400pt 400pt; margin: 5rem; @top-left { content: "Running:" string(chapter); color: var(--theme-colour) } }
:root { --gap: 2rem; --theme-colour: rgb(0, 0, 255); font-size: 10pt }
body { margin: 0 }
p { margin: 0 }
h1 { string-set: chapter content(); font-size: 1.6rem; margin: 0 0 1rem }
.gap { margin-left: var(--gap) }
.calc { margin-left: calc(10% + 1em) }
.vw { margin-left: 25vw }
.fallback { margin-left: var(--undefined, 12rem) }
.nest {
  & .inner { margin-left: 100pt }
  > .child { margin-left: 200pt }
  @media print { .printed { margin-left: 220pt } }
}
@supports (margin-left: calc(1px + 1pt)) and (not (bogus: 1)) { .sup { margin-left: 60pt } }
@supports selector(a > b) { .sel { margin-left: 80pt } }
@media (orientation: landscape) { .orient { margin-left: 5pt } }
@media (max-width: 600px) { .small { margin-left: 140pt } }
.swatch { height: 20pt; width: 20pt }
</style></head><body>
<h1>Introduction</h1>
<p class="gap">Gapword</p>
<p class="calc">Calcword</p>
<p class="vw">Vwword</p>
<p class="fallback">Fallbackword</p>
<div class="nest"><div><p class="inner">Innerword</p></div><p class="child">Childword</p><p class="printed">Printword</p></div>
<p class="sup">Supword</p>
<p class="sel">Selword</p>
<p class="orient">Orientword</p>
<p class="small">Smallword</p>
<div class="swatch" id="swatch"></div>
<p>Endword</p>
</body></html>
EOF
timeout 60 "$VELLUM" values.html -o values.pdf 2>values.err
rc=$?
expect_eq "values: status" "$rc" 0
if [ "$rc" -eq 0 ]; then
    qpdf_clean values values.pdf
    near "var() with rem" "$(x_of values.pdf Gapword)" 70
    near "calc() with a percentage and em" "$(x_of values.pdf Calcword)" 90
    near "vw of the page area" "$(x_of values.pdf Vwword)" 125
    near "var() fallback" "$(x_of values.pdf Fallbackword)" 170
    near "nested descendant rule" "$(x_of values.pdf Innerword)" 150
    near "nested child rule" "$(x_of values.pdf Childword)" 250
    near "nested @media" "$(x_of values.pdf Printword)" 270
    near "@supports with calc() and not" "$(x_of values.pdf Supword)" 110
    near "@supports selector()" "$(x_of values.pdf Selword)" 130
    near "orientation: landscape fails on a square page" "$(x_of values.pdf Orientword)" 50
    near "max-width: 600px holds for 400pt" "$(x_of values.pdf Smallword)" 190
    # The heading is set in the top-left margin box as well as in the page.
    expect_contains "running header" "$(pdftotext -layout values.pdf -)" "Running:Introduction"
    header_y=$(pdftotext -bbox values.pdf - | grep '>Running:' | head -1 | sed 's/.*yMin="\([0-9.-]*\)".*/\1/')
    below=$(awk -v y="$header_y" 'BEGIN { print (y != "" && y < 50) ? "yes" : "no" }')
    expect_eq "running header in the top margin (y $header_y)" "$below" yes
    # The swatch: the later layer paints it blue through var(), though the earlier one has an id.
    end_y=$(y_of values.pdf Endword)
    swatch_y=$(awk -v y="$end_y" 'BEGIN { printf "%d", y - 10 }')
    expect_eq "layered swatch colour" "$(pixel values.pdf 60 "$swatch_y")" "0 0 255"
    expect_not_contains "values: no problems in the sheet" "$(cat values.err)" "problem"
fi

# A percentage with a length added by calc() keeps its offset wherever percentages resolve: a transform,
# a border radius, a font size and a page margin (the radius is 40pt by 30pt; without the offset it would be 20pt by 10pt).
cat >offsets.html <<'EOF'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 300pt; margin: 0 calc(0% + 20pt) }
body { margin: 0 }
.round { width: 200pt; height: 100pt; background: #00f; border-radius: calc(10% + 20pt) }
.moved { width: 200pt; height: 50pt; background: red; transform: translateX(calc(50% + 20pt)) }
.big { font-size: calc(100% + 12pt); margin: 0 }
.plain { margin: 0 }
</style></head><body><div class="round"></div><div class="moved"></div>
<p class="plain">Smallish</p><p class="big">Smallish</p></body></html>
EOF
timeout 60 "$VELLUM" offsets.html -o offsets.pdf 2>offsets.err
expect_eq "offsets: status" "$?" 0
if [ -s offsets.pdf ]; then
    # The page margin of 20pt puts the boxes at x = 20.
    expect_eq "rounded corner is cut off" "$(pixel offsets.pdf 26 6)" "255 255 255"
    expect_eq "rounded box filled inside" "$(pixel offsets.pdf 120 50)" "0 0 255"
    # 50% of 200pt plus 20pt: the moved box spans 140..340.
    expect_eq "moved box not yet at 130" "$(pixel offsets.pdf 130 120)" "255 255 255"
    expect_eq "moved box at 150" "$(pixel offsets.pdf 150 120)" "255 0 0"
    expect_eq "moved box still at 335" "$(pixel offsets.pdf 335 120)" "255 0 0"
    near "page margin from calc()" "$(x_of offsets.pdf Smallish)" 20
    widths=$(pdftotext -bbox offsets.pdf - | grep '>Smallish<' | sed 's/.*xMin="\([0-9.]*\)".*xMax="\([0-9.]*\)".*/\1 \2/')
    ratio=$(echo "$widths" | awk 'NR == 1 { a = $2 - $1 } NR == 2 { b = $2 - $1 } END { printf "%.2f", b / a }')
    expect_eq "font size 100% + 12pt doubles 12pt text" "$ratio" "2.00"
fi

# min(), max() and clamp() with a percentage: the lengths bound what the percentage resolves to.
cat >bounds.html <<'EOF'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 300pt; margin: 0 }
body { margin: 0 }
div { height: 20pt; background: red }
.capped { width: min(100%, 150pt) }
.floor { width: max(10%, 250pt) }
.clamped { width: clamp(50pt, 50%, 300pt) }
.inner { width: 100pt } .inner div { width: min(100%, 150pt); background: blue }
</style></head><body><div class="capped"></div><div class="floor"></div><div class="clamped"></div>
<div class="inner"><div></div></div></body></html>
EOF
timeout 60 "$VELLUM" bounds.html -o bounds.pdf 2>bounds.err
expect_eq "bounds: status" "$?" 0
if [ -s bounds.pdf ]; then
    expect_eq "min(100%, 150pt) caps at 150" "$(pixel bounds.pdf 148 10) / $(pixel bounds.pdf 152 10)" "255 0 0 / 255 255 255"
    expect_eq "max(10%, 250pt) floors at 250" "$(pixel bounds.pdf 248 30) / $(pixel bounds.pdf 252 30)" "255 0 0 / 255 255 255"
    expect_eq "clamp(50pt, 50%, 300pt) is 200" "$(pixel bounds.pdf 198 50) / $(pixel bounds.pdf 202 50)" "255 0 0 / 255 255 255"
    expect_eq "min(100%, 150pt) in a 100pt box is 100" "$(pixel bounds.pdf 98 70) / $(pixel bounds.pdf 102 70)" "0 0 255 / 255 255 255"
    expect_not_contains "bounds: no problems in the sheet" "$(cat bounds.err)" "problem"
fi

# A sheet with a syntax error on its third line and an unknown property on its fourth.
cat >broken.css <<'EOF'
p { color: black }

h1 { color: red; ] }
p { colr: blue; margin: 0 }
EOF
cat >broken.html <<'EOF'
<!DOCTYPE html><html><head><link rel="stylesheet" href="broken.css"></head><body><h1>Title</h1><p>Text</p></body></html>
EOF
timeout 60 "$VELLUM" --verbose broken.html -o broken.pdf 2>verbose.err
expect_eq "broken, verbose: status" "$?" 0
err=$(cat verbose.err)
expect_contains "syntax error with file and line" "$err" "broken.css:3:"
expect_contains "unknown property with file and line" "$err" "broken.css:4:"
expect_contains "unknown property named" "$err" "unknown property 'colr'"
timeout 60 "$VELLUM" broken.html -o broken.pdf 2>quiet.err
expect_eq "broken, quiet: status" "$?" 0
err=$(cat quiet.err)
expect_contains "problems counted without --verbose" "$err" "2 problems in style sheets ignored"
expect_not_contains "no details without --verbose" "$err" "colr"
expect_contains "the good rules still apply" "$(pdftotext broken.pdf -)" "Text"

finish
