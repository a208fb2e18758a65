#!/usr/bin/env bash
# The spine of a run: results, exit statuses and a well-formed PDF for every way of asking for one.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat > doc.html <<'HTML'
<!DOCTYPE html><html><head><title>Spine</title></head><body><p>Hello</p></body></html>
HTML

# No arguments: the usage, and success.
out=$("$VELLUM" 2>&1); rc=$?
expect_eq "no arguments: status" "$rc" 0
expect_contains "no arguments: usage" "$out" "Usage:"
expect_contains "no arguments: hint" "$out" "Try 'vellum --help' for more information."

# A single input names its output after itself.
"$VELLUM" doc.html 2>err.txt; rc=$?
expect_eq "single input: status" "$rc" 0
[ -f doc.pdf ] || fail "single input: doc.pdf not written"
qpdf_clean "single input" doc.pdf
expect_eq "single input: one page" "$(pdfinfo doc.pdf | sed -n 's/^Pages: *//p')" 1
expect_eq "single input: quiet console" "$(cat err.txt)" ""

# Uncompressed output is readable as it stands; compressed streams inflate (qpdf decodes every stream).
"$VELLUM" --no-compress doc.html -o plain.pdf; rc=$?
expect_eq "no-compress: status" "$rc" 0
qpdf_clean "no-compress" plain.pdf
grep -aq "/Type /Page" plain.pdf || fail "no-compress: page object not in clear"
# Font programs stay compressed whatever the option says; every other stream is in clear.
deflated=$(grep -ac "FlateDecode" plain.pdf)
font_files=$(grep -aEc "/FontFile[23]? " plain.pdf)
[ "$deflated" -le "$font_files" ] || fail "no-compress: $deflated deflated streams for $font_files font files"
grep -aq "FlateDecode" doc.pdf || fail "compressed: no stream uses deflate"

# One unreadable input among readable ones: the rest is converted and the run succeeds.
"$VELLUM" doc.html missing.html -o two.pdf 2>err.txt; rc=$?
expect_eq "one missing: status" "$rc" 0
expect_contains "one missing: error line" "$(cat err.txt)" "missing.html: error: could not load input file"
qpdf_clean "one missing" two.pdf

# Nothing readable: each failure is told, then the run fails.
"$VELLUM" missing.html gone.html -o none.pdf 2>err.txt; rc=$?
expect_eq "all missing: status" "$rc" 1
expect_contains "all missing: first" "$(cat err.txt)" "missing.html: error: could not load input file"
expect_contains "all missing: second" "$(cat err.txt)" "gone.html: error: could not load input file"
expect_contains "all missing: verdict" "$(cat err.txt)" "error: no input documents to process"
[ -f none.pdf ] && fail "all missing: an output file was written"

# Standard input to standard output.
"$VELLUM" - <doc.html >stdout.pdf 2>err.txt; rc=$?
expect_eq "stdin: status" "$rc" 0
expect_eq "stdin: header" "$(head -c 8 stdout.pdf)" "%PDF-1.4"
qpdf_clean "stdin" stdout.pdf

# An output that cannot be opened is an error with the path as source.
"$VELLUM" doc.html -o /nonexistent-dir/out.pdf 2>err.txt; rc=$?
expect_eq "bad output: status" "$rc" 1
expect_contains "bad output: message" "$(cat err.txt)" "/nonexistent-dir/out.pdf: error: "

# The structured protocol reports stages and the verdict.
"$VELLUM" --server doc.html -o server.pdf 2>err.txt; rc=$?
expect_eq "server: status" "$rc" 0
expect_contains "server: stage" "$(cat err.txt)" "sta|Loading document..."
expect_contains "server: verdict" "$(tail -n 1 err.txt)" "fin|success"
"$VELLUM" --server --silent missing.html -o x.pdf 2>err.txt; rc=$?
expect_eq "silent: status" "$rc" 1
expect_eq "silent: only the verdict" "$(cat err.txt)" "fin|failure"

# Verbose runs name the stages and the verdict.
"$VELLUM" -v doc.html -o verbose.pdf 2>err.txt
for stage in "Loading document..." "Preparing document..." "Converting document..." "Finished: success"; do
    expect_contains "verbose: $stage" "$(cat err.txt)" "vellum: $stage"
done

# The metadata of the first document governs the output; a second document's head does not reach it.
printf '<!DOCTYPE html><title>First</title><meta name=author content="Ann"><p>a' > first.html
printf '<!DOCTYPE html><title>Second</title><meta name=subject content="S"><p>b' > second.html
"$VELLUM" first.html second.html -o meta.pdf
info=$(pdfinfo meta.pdf)
expect_contains "metadata: first title" "$info" "First"
expect_contains "metadata: first author" "$info" "Ann"
expect_not_contains "metadata: second title" "$info" "Second"
expect_not_contains "metadata: second subject" "$info" "Subject:"
"$VELLUM" --pdf-title=Given first.html -o given.pdf
expect_contains "metadata: command line wins" "$(pdfinfo given.pdf)" "Given"

# XHTML with a public identifier and named entities parses through the local DTD catalog.
cat > x.xhtml <<'XML'
<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE html PUBLIC "-//W3C//DTD XHTML 1.0 Strict//EN" "http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd">
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>Caf&eacute;&nbsp;&euro;</title></head><body/></html>
XML
"$VELLUM" --no-network x.xhtml 2>err.txt; rc=$?
expect_eq "xhtml: status" "$rc" 0
expect_eq "xhtml: quiet" "$(cat err.txt)" ""
expect_contains "xhtml: entities in title" "$(pdfinfo x.pdf)" "$(printf 'Caf\xc3\xa9\xc2\xa0\xe2\x82\xac')"

# The input format: a .txt file is XML, standard input is HTML5.
printf 'plain words, not markup' > notes.txt
"$VELLUM" -v notes.txt 2>err.txt; rc=$?
expect_eq "txt as XML: status" "$rc" 1
expect_contains "txt as XML: parser" "$(cat err.txt)" "loading XML input: notes.txt"
"$VELLUM" -v - <notes.txt >stdin.pdf 2>err.txt; rc=$?
expect_eq "stdin as HTML5: status" "$rc" 0
expect_contains "stdin as HTML5: parser" "$(cat err.txt)" "loading HTML5 input: -"

# Option errors fail at once.
"$VELLUM" --key-bits=64 doc.html 2>err.txt; rc=$?
expect_eq "bad option: status" "$rc" 1
expect_contains "bad option: message" "$(cat err.txt)" "invalid value for option \`--key-bits'"

finish
