#!/usr/bin/env bash
# Small text features: -vellum-text-replace on the document's text, and nested quotation marks.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >t.html <<'HTML'
<!DOCTYPE html><html><head><style>
body { font: 12pt "DejaVu Serif" }
.rep { -vellum-text-replace: "foo" "bar" "(c)" "©" }
.none { -vellum-text-replace: none }
</style></head><body>
<p class="rep">foo fighters and foofoo (c) 2026</p>
<p class="rep"><span class="none">foo kept</span></p>
<p><q>outer <q>inner</q> outer</q></p>
</body></html>
HTML
timeout 60 "$VELLUM" t.html -o t.pdf 2>t.err
expect_eq "status" "$?" 0
qpdf_clean "text features" t.pdf
text=$(pdftotext -layout t.pdf -)
expect_contains "replaced, every occurrence, pairs in turn" "$text" "bar fighters and barbar © 2026"
expect_contains "none on a child keeps the text" "$text" "foo kept"
expect_contains "quotes alternate by depth" "$text" "“outer ‘inner’ outer”"
finish
