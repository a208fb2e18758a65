#!/usr/bin/env bash
# Wrapping: pre-wrap text breaks at its preserved spaces and keeps them, pre never breaks, and
# `word-break: break-all` breaks long words between letters, all inside the width of their block.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >wrap.html <<HTML
<!DOCTYPE html><html><head><style>@page { size: 400pt 600pt; margin: 20pt }
body { margin: 0; font: 10pt "DejaVu Sans Mono" }
div { width: 120pt }</style></head><body>
<div id="pw" style="white-space: pre-wrap">call(argument_one, argument_two, argument_three)   // note
    indented</div>
<div style="white-space: pre-wrap">left   right</div>
<div style="white-space: pre">pre_text never wraps at all even when long</div>
<div style="word-break: break-all">Supercalifragilisticexpialidocious_unbroken_run_of_letters</div>
</body></html>
HTML
timeout 60 "$VELLUM" wrap.html -o wrap.pdf 2>wrap.err
expect_eq "status" "$?" 0
qpdf_clean "wrap" wrap.pdf
text=$(pdftotext -layout wrap.pdf -)
# The body starts at 20pt; a 120pt block ends at 140pt. A 10pt monospaced glyph is 6.02pt wide, so at
# most 19 cells fit.
limit=141
bbox=$(pdftotext -bbox wrap.pdf -)
over=$(echo "$bbox" | grep '<word' | grep -v '>\(pre_text\|never\|wraps\|at\|all\|even\|when\|long\)<' |
    sed 's/.*xMax="\([0-9.]*\)".*>\(.*\)<\/word>/\1 \2/' | awk -v l=$limit '$1 > l { print }')
expect_eq "pre-wrap and break-all stay inside the block" "$over" ""
# pre-wrap: the call breaks after preserved spaces, the spaces before the comment and the indent stay.
expect_contains "pre-wrap: first line" "$text" "call(argument_one,"
# x_min WORD / x_max WORD: the edges of a word of the text.
x_min() { echo "$bbox" | grep ">$1<" | head -1 | sed 's/.*xMin="\([0-9.]*\)".*/\1/'; }
x_max() { echo "$bbox" | grep ">$1<" | head -1 | sed 's/.*xMax="\([0-9.]*\)".*/\1/'; }
# Four spaces of indent, and three spaces between the call and the comment, each 6.02pt.
indent=$(awk -v x="$(x_min indented)" 'BEGIN { print (x > 43.5 && x < 44.5) ? "yes" : x }')
expect_eq "pre-wrap: indent kept" "$indent" "yes"
gap=$(awk -v a="$(x_max left)" -v b="$(x_min right)" 'BEGIN { d = b - a; print (d > 17.5 && d < 18.6) ? "yes" : d }')
expect_eq "pre-wrap: spaces kept" "$gap" "yes"
# The line breaks after the run of spaces that follows the call: the comment starts the next line.
expect_eq "pre-wrap: break after the spaces" "$(x_min //)" "20.000000"
# pre: one line, running past the block.
expect_contains "pre: one line" "$text" "pre_text never wraps at all even when long"
# break-all: the word is cut between letters, and nothing of it is lost.
joined=$(echo "$text" | grep -A5 'Supercali' | tr -d ' \n')
expect_contains "break-all: text back" "$joined" "Supercalifragilisticexpialidocious_unbroken_run_of_letters"
lines=$(echo "$text" | grep -c 'Supercal\|_unbroken\|run_of\|letters\|docious')
if [ "$lines" -lt 2 ]; then
    fail "break-all: expected the word over several lines: $text"
fi
finish
