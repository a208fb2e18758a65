#!/usr/bin/env bash
# The page loop from the outside: a named page deep in the document gets pages of its own size, wide
# content shrinks to fit the paper, and a controlling program sees the pass progress from 0 to 100.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# A plate with a named landscape page inside a chapter inside a wrapping div.
cat > plates.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt }
@page plate { size: 400pt 300pt }
.plate { page: plate }
body { font: 10pt sans-serif }
</style></head><body><div class="book"><section>
<p>Before the plate.</p><div class="plate"><p>The plate.</p></div><p>After the plate.</p>
</section></div></body></html>
HTML
"$VELLUM" plates.html -o plates.pdf 2>err.txt; rc=$?
expect_eq "plates: status" "$rc" 0
qpdf_clean "plates" plates.pdf
boxes=$(pdfinfo -f 1 -l 3 -box plates.pdf | grep 'MediaBox' | tr -s ' ' | sed 's/.*MediaBox: //' | tr '\n' ';')
expect_eq "plates: page sizes" "$boxes" "0.00 0.00 300.00 400.00;0.00 0.00 400.00 300.00;0.00 0.00 300.00 400.00;"
expect_eq "plates: page 2 text" "$(pdftotext -f 2 -l 2 plates.pdf - | tr -s '\n\f' '  ' | sed 's/ *$//')" "The plate."
expect_eq "plates: page 3 text" "$(pdftotext -f 3 -l 3 plates.pdf - | tr -s '\n\f' '  ' | sed 's/ *$//')" "After the plate."

# A block twice as wide as the body: with shrink-to-fit the page is scaled so that its text stays on the
# paper, inside the right margin.
cat > wide.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 300pt; margin: 20pt; -vellum-shrink-to-fit: auto }
body { font: 10pt sans-serif } .wide { width: 520pt; text-align: right }
</style></head><body><p>Start</p><div class="wide">End</div></body></html>
HTML
"$VELLUM" wide.html -o wide.pdf 2>err.txt; rc=$?
expect_eq "wide: status" "$rc" 0
qpdf_clean "wide" wide.pdf
xmax=$(pdftotext -bbox wide.pdf - | grep '>End<' | sed 's/.*xMax="\([0-9.]*\)".*/\1/')
[ -n "$xmax" ] || fail "wide: text not found"
inside=$(awk -v x="$xmax" 'BEGIN { print (x > 270 && x <= 280.5) ? "yes" : "no" }')
expect_eq "wide: right end of the wide block at the right margin ($xmax)" "$inside" yes

# Progress in the structured log: every pass runs from 0 to 100 in steps that never go back.
"$VELLUM" --structured-log=progress plates.html -o p.pdf 2>log.txt; rc=$?
expect_eq "progress: status" "$rc" 0
percents=$(sed -n 's/^prg|//p' log.txt | tr '\n' ' ')
expect_contains "progress: from 0" " $percents" " 0 "
expect_contains "progress: to 100" "$percents" "100 "
sorted=$(sed -n 's/^prg|//p' log.txt | sort -n -c 2>&1 && echo sorted)
expect_eq "progress: never back ($percents)" "$sorted" sorted
# The console and the other flavours show no percentages.
"$VELLUM" --structured-log=normal plates.html -o p.pdf 2>log.txt
expect_not_contains "progress: not in the normal flavour" "$(cat log.txt)" "prg|"

finish
