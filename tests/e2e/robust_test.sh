#!/usr/bin/env bash
# What a run leaves behind when things go wrong or are out of range: the output replaced only whole,
# page sizes that PDF viewers accept, one warning for what is not supported, and deep documents.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

printf '<p>first version</p>\n' > a.html
printf '<p>second version</p>\n' > b.html

# The output is written beside the target and renamed over it: the old file's mode stays, and no
# temporary file is left behind.
timeout 60 "$VELLUM" a.html -o out.pdf 2>err.txt
expect_eq "first output: status" "$?" 0
chmod 640 out.pdf
timeout 60 "$VELLUM" b.html -o out.pdf 2>err.txt
expect_eq "second output: status" "$?" 0
expect_eq "replaced output keeps its mode" "$(stat -c %a out.pdf)" 640
expect_contains "replaced output holds the new text" "$(pdftotext out.pdf - 2>/dev/null)" "second version"
expect_eq "no temporary files left" "$(ls -a | grep -c vellum-)" 0
qpdf_clean "replaced output" out.pdf

# A run that fails before anything is written leaves an earlier output as it was.
cp out.pdf before.pdf
timeout 60 "$VELLUM" missing.html -o out.pdf 2>err.txt
expect_eq "missing input: status" "$?" 1
cmp -s out.pdf before.pdf || fail "missing input: the earlier output was changed"

# An output that is no regular file is written in place, not replaced.
timeout 60 "$VELLUM" a.html -o /dev/null 2>err.txt
expect_eq "output to /dev/null: status" "$?" 0
mkfifo pipe.pdf
cat pipe.pdf > from_pipe.pdf &
timeout 60 "$VELLUM" a.html -o pipe.pdf 2>err.txt
expect_eq "output to a FIFO: status" "$?" 0
wait
[ -p pipe.pdf ] || fail "output to a FIFO: the FIFO was replaced"
qpdf_clean "output through a FIFO" from_pipe.pdf

# A folder that does not exist is an error with status 1.
timeout 60 "$VELLUM" a.html -o no/such/dir/x.pdf 2>err.txt
expect_eq "output in a missing folder: status" "$?" 1
expect_contains "output in a missing folder: message" "$(cat err.txt)" "no/such/dir/x.pdf"

# Documents without scripts convert quietly with scripts on.
timeout 60 "$VELLUM" --javascript a.html b.html -o js.pdf 2>err.txt
expect_eq "--javascript: status" "$?" 0
expect_eq "--javascript: nothing to say" "$(cat err.txt)" ""

# Content that cannot be laid out yet is named once for the whole run, not once per document.
printf '<p>one</p><video></video><p>two</p><video></video>\n' > lost1.html
cp lost1.html lost2.html
timeout 60 "$VELLUM" lost1.html lost2.html -o lost.pdf 2>err.txt
expect_eq "video in two documents: status" "$?" 0
expect_eq "video in two documents: one warning" "$(grep -c 'video: replaced content is not supported yet' err.txt)" 1
expect_contains "video in two documents: text kept" "$(pdftotext lost.pdf - 2>/dev/null)" "two"

# Page sizes beyond what viewers take are brought within 3 to 14,400 points, with one warning.
for size in "0 0" "300in 300in" "0.5pt 4in"; do
    printf '<style>@page { size: %s; margin: 0 }</style><p>x</p><p style="page-break-before: always">y</p>\n' \
        "$size" > size.html
    timeout 60 "$VELLUM" size.html -o size.pdf 2>err.txt
    expect_eq "size $size: status" "$?" 0
    expect_eq "size $size: one warning" "$(grep -c 'page size brought within' err.txt)" 1
    pdfinfo -box size.pdf > info.txt 2>&1
    read -r w h < <(awk '/^Page size:/{print $3, $5}' info.txt)
    awk -v w="$w" -v h="$h" 'BEGIN { exit !(w >= 3 && w <= 14400 && h >= 3 && h <= 14400) }' ||
        fail "size $size: page of $w x $h points"
    qpdf_clean "size $size" size.pdf
done

# Deeply nested documents convert, and their innermost text is there.
python3 -c "print('<div>' * 1000 + 'innermost' + '</div>' * 1000)" > deep.html
timeout 120 "$VELLUM" deep.html -o deep.pdf 2>err.txt
expect_eq "1,000 nested divs: status" "$?" 0
expect_contains "1,000 nested divs: text" "$(pdftotext deep.pdf - 2>/dev/null)" "innermost"

# Inline spans nested deeper than the box tree keeps are set beside each other at that depth; each
# box's items are made in place, so this takes about what 20,000 spans in a row take.
python3 -c "print('<p>before ' + '<span>' * 20000 + 'inner' + '</span>' * 20000 + ' after</p>')" > spans.html
timeout 120 "$VELLUM" spans.html -o spans.pdf 2>err.txt
expect_eq "20,000 nested spans: status" "$?" 0
expect_contains "20,000 nested spans: text" "$(pdftotext spans.pdf - 2>/dev/null | tr -s ' \n' ' ')" "before inner after"

# XML nests as deep as HTML.
python3 -c "print('<?xml version=\"1.0\"?><html xmlns=\"http://www.w3.org/1999/xhtml\"><body>' + '<div>' * 10000 + 'innermost' + '</div>' * 10000 + '</body></html>')" > deep.xhtml
timeout 120 "$VELLUM" deep.xhtml -o deep-xml.pdf 2>err.txt
expect_eq "10,000 nested XML elements: status" "$?" 0
expect_contains "10,000 nested XML elements: text" "$(pdftotext deep-xml.pdf - 2>/dev/null)" "innermost"

# Tables nested in table cells are measured once each, not again for every trial width of every table
# around them (which took time growing with the power of the depth: twelve levels never finished).
# Measuring a cell packs the tables inside it without their rows, so a hundred levels take a fraction
# of a second rather than the minutes that packing every inner row for each outer trial width took.
python3 -c "print('<table><tr><td>' * 100 + 'innermost' + '</td></tr></table>' * 100)" > tables.html
timeout 120 "$VELLUM" tables.html -o tables.pdf 2>err.txt
expect_eq "100 nested tables: status" "$?" 0
expect_contains "100 nested tables: text" "$(pdftotext tables.pdf - 2>/dev/null)" "innermost"

# Past 32 levels, tables are laid out as blocks, with one warning: every level of nesting measures and
# cuts the levels inside it again, and 10,000 levels of that never finished.
python3 -c "print('<table><tr><td>' * 10000 + 'innermost' + '</td></tr></table>' * 10000)" > tables.html
timeout 120 "$VELLUM" tables.html -o tables.pdf 2>err.txt
expect_eq "10,000 nested tables: status" "$?" 0
expect_contains "10,000 nested tables: text" "$(pdftotext tables.pdf - 2>/dev/null)" "innermost"
expect_eq "10,000 nested tables: one warning" "$(grep -c 'tables nested more than 32 deep are laid out as blocks' err.txt)" 1

# Multi-column containers nested in each other: only the outer two search for balanced heights.
python3 -c "print('<div style=\"columns: 2\">' * 30 + 'one two three' + '</div>' * 30)" > cols.html
timeout 120 "$VELLUM" cols.html -o cols.pdf 2>err.txt
expect_eq "30 nested column containers: status" "$?" 0
text=$(pdftotext cols.pdf - 2>/dev/null)
for w in one two three; do
    expect_contains "30 nested column containers: $w" "$text" "$w"
done

# A cell that spans a million columns and rows spans what HTML allows, and the run ends.
printf '<table><tr><td colspan="1000000" rowspan="1000000">wide</td><td>next</td></tr></table>' > span.html
timeout 60 "$VELLUM" span.html -o span.pdf 2>err.txt
expect_eq "huge spans: status" "$?" 0
expect_contains "huge spans: text" "$(pdftotext span.pdf - 2>/dev/null)" "wide"

# Bidi control characters opened 300 deep and closed too often: the text is all there.
python3 -c "print('<p>start ' + '\u202b\u202a' * 150 + 'middle' + '\u202c' * 400 + ' \u2067end\u2069</p>')" > controls.html
timeout 60 "$VELLUM" controls.html -o controls.pdf 2>err.txt
expect_eq "bidi controls: status" "$?" 0
text=$(pdftotext controls.pdf - 2>/dev/null)
for w in start middle end; do
    expect_contains "bidi controls: $w" "$text" "$w"
done

finish
