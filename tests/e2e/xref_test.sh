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

finish
