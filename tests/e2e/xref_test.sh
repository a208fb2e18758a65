#!/usr/bin/env bash
# Cross-references, running headers and footers, bookmarks, links and metadata on a generated book of
# about 300 pages, and named strings by page policy on a small one.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

# A book whose contents print each chapter's page with target-counter() behind a dotted leader.
python3 "$DATA/data/gen_xref_book.py" book.html 70 7
"$VELLUM" -v book.html -o book.pdf 2>err.txt; rc=$?
expect_eq "book: status" "$rc" 0
qpdf_clean "book" book.pdf
# The first pass knows no target's page, so at least one more pass follows.
expect_contains "book: passes" "$(cat err.txt)" "Resolving cross-references..."
pages=$(pdfinfo book.pdf | sed -n 's/^Pages: *//p')
[ "${pages:-0}" -ge 300 ] || fail "book: expected about 300 pages, got $pages"
pdftotext -layout book.pdf book.txt
qpdf --json book.pdf > book.json
python3 "$DATA/data/check_xref_book.py" book.txt book.json 70 || fail "book: cross-references (see above)"
info=$(pdfinfo book.pdf)
expect_contains "book: title" "$info" "Title:           Cross References"
expect_contains "book: author" "$info" "Author:          Pat Printer"
expect_contains "book: subject" "$info" "Subject:         Page numbers"
expect_contains "book: keywords" "$info" "Keywords:        toc, leaders"

# Named strings by page policy: first-except is empty on the page that sets the string.
cat > strings.html <<'HTML'
<!DOCTYPE html><html><head><title>Strings</title><style>
@page { size: A7; margin: 1cm;
        @top-left { content: "[" string(sec, first-except) "]" }
        @top-right { content: "<" string(sec, last) ">" } }
body { font: 8pt sans-serif }
h2 { string-set: sec content(text); break-before: page; font-size: 8pt }
</style></head><body>
<h2>Alpha</h2><p>one</p><p style="break-before: page">two</p>
<h2>Beta</h2><p>three</p><h2 style="break-before: auto">Gamma</h2>
<p>See <a href="#nowhere">nothing</a> and <a href="http://example.com/x">the web</a>.</p>
</body></html>
HTML
"$VELLUM" strings.html -o strings.pdf 2>err.txt; rc=$?
expect_eq "strings: status" "$rc" 0
qpdf_clean "strings" strings.pdf
p1=$(pdftotext -f 1 -l 1 -layout strings.pdf - | tr -s ' ')
p2=$(pdftotext -f 2 -l 2 -layout strings.pdf - | tr -s ' ')
p3=$(pdftotext -f 3 -l 3 -layout strings.pdf - | tr -s ' ')
expect_contains "strings: first-except on the setting page" "$p1" "[]"
expect_contains "strings: last on page 1" "$p1" "<Alpha>"
expect_contains "strings: first-except later" "$p2" "[Alpha]"
expect_contains "strings: last carried on" "$p2" "<Alpha>"
expect_contains "strings: last of two on a page" "$p3" "<Gamma>"
expect_contains "strings: first-except with two set" "$p3" "[]"
# A link to an id that no element carries is dropped; a web link stays a URI action.
qpdf --qdf --object-streams=disable strings.pdf strings.qdf 2>/dev/null
expect_eq "strings: web link" "$(grep -ac '/URI (http://example.com/x)' strings.qdf)" 1
expect_eq "strings: one link only" "$(grep -ac '/Subtype /Link' strings.qdf)" 1

# bookmark-target: an entry that leads to another element's place, one that leads nowhere (left out)
# and one to the web.
cat > targets.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: A7 } body { font: 8pt sans-serif }
h1, h2 { bookmark-level: none }
a.bm { bookmark-level: 1; bookmark-label: attr(title); bookmark-target: attr(href) }
</style></head><body>
<p><a class="bm" title="Jump" href="#far">to far</a> <a class="bm" title="Lost" href="#none">lost</a>
<a class="bm" title="Web" href="http://example.com/">web</a></p>
<p style="break-before: page">page two</p><p id="far" style="break-before: page">far away</p>
</body></html>
HTML
"$VELLUM" targets.html -o targets.pdf 2>err.txt; rc=$?
expect_eq "targets: status" "$rc" 0
outline=$(qpdf --json --json-key=outlines targets.pdf | python3 -c '
import json, sys
for o in json.load(sys.stdin)["outlines"]:
    print(o["title"], o["destpageposfrom1"])')
expect_eq "targets: outline" "$(echo $outline)" "Jump 3 Web None"

# Running elements in margin boxes: the first one placed on a page, or the last of the pages before;
# element(x, last) takes the last one placed.
cat > running.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: A7; margin: 1.5cm 1cm; @top-center { content: element(hdr) } @bottom-right { content: element(ftr, last) } }
.hdr { position: running(hdr); font-style: italic }
.ftr { position: running(ftr) }
h2 { break-before: page; font-size: 9pt }
body { font: 8pt sans-serif }
</style></head><body>
<div class="hdr">Header <b>one</b></div><div class="ftr">F1</div><h2 style="break-before: auto">First</h2>
<h2>Second</h2><div class="hdr">Header two</div><div class="ftr">F2</div><div class="ftr">F3</div>
<h2>Third</h2>
</body></html>
HTML
"$VELLUM" running.html -o running.pdf 2>err.txt; rc=$?
expect_eq "running: status" "$rc" 0
for spec in "1:Header one:F1" "2:Header two:F3" "3:Header two:F3"; do
    IFS=: read -r page header footer <<<"$spec"
    lines=$(pdftotext -f "$page" -l "$page" -layout running.pdf - | tr -d '\f' | sed 's/^ *//; s/ *$//' | grep -v '^$')
    expect_eq "running: header of page $page" "$(echo "$lines" | head -1)" "$header"
    expect_eq "running: footer of page $page" "$(echo "$lines" | tail -1)" "$footer"
done
# The running elements left the flow.
expect_not_contains "running: not in the body" "$(pdftotext -f 1 -l 1 running.pdf - | sed -n 2,3p)" "F1"

# PDF options from @vellum-pdf, and a file embedded by --attach; one that cannot be read is skipped.
cat > options.html <<'HTML'
<html><head><style>
@vellum-pdf { -vellum-pdf-page-mode: show-bookmarks; -vellum-pdf-page-layout: two-column-right;
              -vellum-pdf-open-action: print }
</style></head><body><h1>Options</h1></body></html>
HTML
echo "attached text" > note.txt
"$VELLUM" options.html --attach=note.txt --attach=missing.bin -o options.pdf 2>err.txt; rc=$?
expect_eq "options: status" "$rc" 0
expect_contains "options: unreadable attachment" "$(cat err.txt)" "missing.bin: error:"
qpdf_clean "options" options.pdf
qpdf --qdf --object-streams=disable options.pdf options.qdf 2>/dev/null
expect_eq "options: page mode" "$(grep -ac '/PageMode /UseOutlines' options.qdf)" 1
expect_eq "options: page layout" "$(grep -ac '/PageLayout /TwoColumnRight' options.qdf)" 1
expect_eq "options: print on opening" "$(grep -ac '/N /Print' options.qdf)" 1
expect_eq "options: attachment" "$(qpdf --show-attachment=Attach000 options.pdf)" "attached text"
expect_contains "options: attachment name" "$(pdfdetach -list options.pdf)" "1: note.txt"

# target-counter() of a counter other than the page: a chapter's number is shown right even though no
# page number is looked up anywhere (the first pass knows no counters at targets and shows 0).
cat > chapter_ref.html <<'HTML'
<!DOCTYPE html><html><head><style>
body { counter-reset: chapter }
h1 { counter-increment: chapter }
h1::before { content: counter(chapter) ". " }
a.ref::after { content: " (see chapter " target-counter(attr(href), chapter) ")" }
</style></head><body>
<p><a class="ref" href="#c3">third</a>, <a class="ref" href="#nowhere">missing</a></p>
<h1 id="c1">One</h1><p>text</p><h1 id="c2">Two</h1><p>text</p><h1 id="c3">Three</h1><p>text</p>
</body></html>
HTML
"$VELLUM" chapter_ref.html -o chapter_ref.pdf 2>err.txt; rc=$?
expect_eq "chapter ref: status" "$rc" 0
expect_contains "chapter ref: number of the chapter" "$(pdftotext chapter_ref.pdf - | head -1)" \
    "third (see chapter 3), missing (see chapter 0)"

finish
