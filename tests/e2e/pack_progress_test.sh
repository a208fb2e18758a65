#!/usr/bin/env bash
# Layout always comes to an end: documents whose forced breaks, edges, margins or floats once left a
# page without content, or a line without room, convert in bounded time, with every word kept.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# convert NAME CSS BODY [OPTIONS...]: writes NAME.html, converts it with a time limit, and checks that
# the run ended well with a clean PDF.
convert() {
    local name=$1 css=$2 body=$3
    shift 3
    printf '<!DOCTYPE html><html><head><style>%s</style></head><body>%s</body></html>\n' "$css" "$body" >"$name.html"
    timeout 30 "$VELLUM" "$name.html" -o "$name.pdf" "$@" 2>"$name.err"
    local rc=$?
    expect_eq "$name: status (124 is a timeout)" "$rc" 0
    if [ "$rc" -eq 0 ]; then
        qpdf_clean "$name" "$name.pdf"
    fi
}

pages() { pdfinfo "$1.pdf" 2>/dev/null | sed -n 's/^Pages: *//p'; }
text() { pdftotext -layout "$1.pdf" - 2>/dev/null | tr -s ' \n\f' '   ' | sed 's/^ *//; s/ *$//'; }
page_text() { pdftotext -f "$2" -l "$2" -layout "$1.pdf" - 2>/dev/null | tr -s ' \n\f' '   ' | sed 's/^ *//; s/ *$//'; }

# A forced break in front of headings inside a body with top padding or a top border: one page per
# heading, each heading at the top of its page.
for edge in "padding: 1em" "border-top: 3px solid"; do
    name=break-$(echo "$edge" | tr -dc a-z)
    convert "$name" "body { $edge } h1 { page-break-before: always }" '<h1>A</h1><p>x</p><h1>B</h1><p>y</p>'
    expect_eq "$name: pages" "$(pages "$name")" 2
    expect_eq "$name: page 1" "$(page_text "$name" 1)" "A x"
    expect_eq "$name: page 2" "$(page_text "$name" 2)" "B y"
done

# Lines in no room: each line takes a word and runs over. Eleven nested blockquotes on a Letter page
# leave the text no width; the words are all there, one per line, on the paper.
quotes=$(printf '<blockquote>%.0s' $(seq 11))"alpha beta gamma"$(printf '</blockquote>%.0s' $(seq 11))
convert quotes "" "$quotes"
expect_eq "quotes: pages" "$(pages quotes)" 1
expect_eq "quotes: words one per line" "$(pdftotext -layout quotes.pdf - | tr -d ' \f' | grep -v '^$' | tr '\n' ' ')" \
    "alpha beta gamma "

# Thirty nested lists and a left margin past the page put the text beyond the paper's right edge, as
# CSS says; the run ends with one page.
lists=$(printf '<ul><li>%.0s' $(seq 30))"deep"$(printf '</li></ul>%.0s' $(seq 30))
convert lists "" "$lists"
expect_eq "lists: pages" "$(pages lists)" 1
convert margin-left "p { margin-left: 9in }" '<p>hello world</p>'
expect_eq "margin-left: pages" "$(pages margin-left)" 1

# Margins larger than the page, on a block, on the page, and from the command line: the run ends, one
# page per line at most.
convert block-margin "div { margin: 99999in }" '<div>x</div>'
expect_eq "block-margin: pages" "$(pages block-margin)" 1
convert page-margin "@page { margin: 99999in }" '<p>x</p>'
expect_eq "page-margin: pages" "$(pages page-margin)" 1
convert option-margin "" '<p>one</p><p>two</p>' --page-margin=1000in
expect_eq "option-margin: pages" "$(pages option-margin)" 2
convert tall-padding "div { padding-top: 20in }" '<div>x</div><p>after</p>'
expect_eq "tall-padding: pages" "$(pages tall-padding)" 2
expect_eq "tall-padding: the next block on the next page" "$(page_text tall-padding 2)" "after"

# A float wider than the page sits on the first page, over its edge, and the text follows below it;
# the float's background is painted.
convert wide-float ".f { float: left; width: 20in; height: 1in; background: black }" \
    '<div class="f"></div><p>after the float</p>'
expect_eq "wide-float: pages" "$(pages wide-float)" 1
expect_eq "wide-float: text" "$(text wide-float)" "after the float"
pdftoppm -r 10 -gray -f 1 -l 1 wide-float.pdf wide >/dev/null 2>&1
dark=$(python3 -c '
import sys
data = open(sys.argv[1], "rb").read()
# A binary PGM: header of four fields, then one byte per pixel.
parts = data.split(maxsplit=4)
w, h = int(parts[1]), int(parts[2])
px = parts[4][-w * h:]
print(sum(1 for b in px if b < 64))' wide-1.pgm 2>/dev/null)
ok=$(awk -v d="${dark:-0}" 'BEGIN { print (d > 50) ? "yes" : "no" }')
expect_eq "wide-float: black float painted ($dark dark pixels)" "$ok" yes

# A word too wide to stand beside a float that reaches (almost) to the page's bottom goes to the next
# page: the 6pt below the float can't take its line.
convert float-bottom "@page { margin: 1in } p { margin: 0; font: 10pt/12pt sans-serif } .f { float: left; width: 6in; height: 630pt }" \
    '<p>first</p><div class="f"></div><p>abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz</p>'
expect_eq "float-bottom: pages" "$(pages float-bottom)" 2
expect_eq "float-bottom: page 2" "$(page_text float-bottom 2)" "abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz"

finish
