#!/usr/bin/env bash
# The words of a paragraph are held once, in the text its spans point into. Everything that takes
# words out of their paragraph must bring them along: a first letter cut from its word (inline and
# floated), a run-in heading merged into the next paragraph, an inline footnote body moved to the foot
# of the page, list markers, soft and hard hyphens, right-to-left runs, a named string in a margin box,
# and a paragraph broken over pages. Each must show exactly its own words.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

long=""
for i in $(seq 1 120); do
    long+="word$i "
done

cat >text.html <<HTML
<!DOCTYPE html><html><head><meta charset="utf-8"><style>
@page { size: 400pt 300pt; margin: 30pt; @top-center { content: string(title); font: 8pt "DejaVu Sans" } }
body { margin: 0; font: 10pt/13pt "DejaVu Sans" }
h1 { string-set: title content(text); font-size: 12pt; margin: 0 0 6pt }
p { margin: 0 0 6pt }
p.drop::first-letter { float: left; font-size: 26pt; line-height: 26pt }
p.initial::first-letter { color: red; font-size: 14pt }
h3 { display: run-in; font-size: 10pt; margin: 0 }
.fn { float: inline-footnote; font-size: 8pt }
ul { list-style: square outside }
ol { list-style: decimal outside }
</style></head><body>
<h1>Ranges Heading</h1>
<p class="drop">Dropped capital opens this paragraph.</p>
<p class="initial">Initial letter stays inline.</p>
<h3>Runin.</h3><p>Following paragraph text.</p>
<p>Inline note here<span class="fn">Notebody words.</span> done.</p>
<p>Co&shy;operation is well-known <b>bold <i>italic</i></b> end.</p>
<p>Hebrew שלום closes.</p>
<ol><li>Numbered item</li></ol>
<p>$long</p>
</body></html>
HTML
timeout 60 "$VELLUM" text.html -o text.pdf 2>text.err
expect_eq "status" "$?" 0
qpdf_clean "paragraph text" text.pdf
expect_eq "no warnings" "$(cat text.err)" ""

raw=$(pdftotext -raw text.pdf -)
for phrase in "Ranges Heading" "ropped capital opens this paragraph." "nitial letter stays inline." \
    "Runin. Following paragraph text." "Notebody words." "Cooperation is well-known bold italic end." \
    "closes." "1. Numbered item" "word1 word2 word3" "word119 word120"; do
    expect_contains "phrase" "$raw" "$phrase"
done
# The first letters stand on their own, before the rest of their words.
expect_contains "inline first letter" "$raw" "Initial letter"
first_page=$(pdftotext -f 1 -l 1 -raw text.pdf -)
expect_contains "dropped letter" "$first_page" "D"
# The named string reaches the margin box of every page, and the long paragraph goes on over pages
# with every word once.
pages=$(pdfinfo text.pdf | awk '/^Pages:/ { print $2 }')
[ "$pages" -ge 2 ] || fail "the long paragraph should reach a second page, got $pages page(s)"
expect_eq "heading on each page" "$(grep -c 'Ranges Heading' <<<"$raw")" "$((pages + 1))"
for i in 1 60 120; do
    expect_eq "word$i once" "$(grep -o "\bword$i\b" <<<"$raw" | wc -l)" 1
done
# The Hebrew word is shown, whatever order pdftotext reads it in.
expect_contains "hebrew" "$raw" "ש"
finish
