#!/usr/bin/env bash
# Right-to-left lines: alignment, justification and indent by the paragraph's direction, and the runs
# of a line in reading order (a left-to-right run inside a right-to-left paragraph and the reverse).
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >bidi.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 400pt 600pt; margin: 50pt }
body { margin: 0; font: 12pt "DejaVu Sans" }
p { margin: 0 0 6pt 0 }
</style></head><body>
<p dir="rtl" style="text-align: right">אלף בית</p>
<p dir="rtl" style="text-align: left">גימל דלת</p>
<p dir="rtl">הא וו</p>
<p dir="ltr" style="text-align: end">זין חית</p>
<p dir="rtl" style="text-indent: 30pt">טית יוד</p>
<p dir="rtl">כף abc def למד</p>
<p>one מם נון two</p>
<p dir="rtl" style="text-align: center">סמך</p>
</body></html>
HTML
timeout 60 "$VELLUM" bidi.html -o bidi.pdf 2>bidi.err
expect_eq "status" "$?" 0
qpdf_clean "bidi" bidi.pdf
bbox=$(pdftotext -bbox bidi.pdf -)

# The PDF holds a right-to-left word with its last letter first: these are the words as pdftotext
# gives them back.
x_min() { echo "$bbox" | grep ">$1<" | head -1 | sed 's/.*xMin="\([0-9.-]*\)".*/\1/'; }
x_max() { echo "$bbox" | grep ">$1<" | head -1 | sed 's/.*xMax="\([0-9.-]*\)".*/\1/'; }
near() { awk -v a="$1" -v b="$2" 'BEGIN { d = a - b; if (d < 0) d = -d; print (a != "" && d < 0.6) ? "yes" : a }'; }
less() { awk -v a="$1" -v b="$2" 'BEGIN { print (a != "" && b != "" && a + 0 < b + 0) ? "yes" : "no" }'; }

# The body runs from 50pt to 350pt.
# text-align: right in a right-to-left paragraph: the line's first word ends at the right edge.
expect_eq "rtl right: at the right edge" "$(near "$(x_max ףלא)" 350)" yes
# text-align: left: the line's last word starts at the left edge.
expect_eq "rtl left: at the left edge" "$(near "$(x_min תלד)" 50)" yes
# start (the initial value) is the right in a right-to-left paragraph, and the first word is right-most.
expect_eq "rtl start: at the right edge" "$(near "$(x_max אה)" 350)" yes
expect_eq "rtl start: reading order" "$(less "$(x_min וו)" "$(x_min אה)")" yes
# end in a left-to-right paragraph is the right; the two Hebrew words are one right-to-left run, so
# the first of them is the right-most.
expect_eq "ltr end: at the right edge" "$(near "$(x_max ןיז)" 350)" yes
# The indent is on the start side: the right.
expect_eq "rtl indent: on the right" "$(near "$(x_max תיט)" 320)" yes
# A left-to-right run inside a right-to-left paragraph reads left to right: abc before def; the
# paragraph's words read right to left around it.
expect_eq "ltr run in rtl: abc then def" "$(less "$(x_min abc)" "$(x_min def)")" yes
expect_eq "ltr run in rtl: after the first word" "$(less "$(x_max def)" "$(x_min ףכ)")" yes
expect_eq "ltr run in rtl: before the last word" "$(less "$(x_max דמל)" "$(x_min abc)")" yes
# A right-to-left run inside a left-to-right paragraph reads right to left: mem right of nun.
expect_eq "rtl run in ltr: order" "$(less "$(x_min ןונ)" "$(x_min םמ)")" yes
expect_eq "rtl run in ltr: between the words" "$(less "$(x_max one)" "$(x_min ןונ)")" yes
expect_eq "rtl run in ltr: before two" "$(less "$(x_max םמ)" "$(x_min two)")" yes
# Centred stays centred.
mid=$(awk -v a="$(x_min ךמס)" -v b="$(x_max ךמס)" 'BEGIN { print (a + b) / 2 }')
expect_eq "rtl center" "$(near "$mid" 200)" yes
finish
