#!/usr/bin/env bash
# The command line as a user meets it: output names, help texts, and a table of malformed arguments,
# each of which must give its message and exit status 1 without a crash.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

printf '<html><body><p>x</p></body></html>\n' > a.html
cp a.html noext
mkdir dir.d && cp a.html dir.d/file

# Output names of a single input.
for pair in "a.html:a.pdf" "noext:noext.pdf" "dir.d/file:dir.pdf"; do
    in=${pair%%:*}
    out=${pair#*:}
    rm -f "$out"
    "$VELLUM" "$in" 2>err.txt; rc=$?
    expect_eq "output name of $in: status" "$rc" 0
    [ -f "$out" ] || fail "output name of $in: $out not written"
done
# A name that already ends in .pdf (here a well-formed XML document) gets a second .pdf.
cp a.html doc.pdf
"$VELLUM" doc.pdf 2>/dev/null
[ -f doc.pdf.pdf ] || fail "doc.pdf: doc.pdf.pdf not written"
"$VELLUM" a.html noext c.PDF 2>/dev/null; rc=$?
expect_eq "last name ending in .PDF: status" "$rc" 0
[ -f c.PDF ] || fail "last name ending in .PDF: c.PDF not written"

# Help, version and credits go to standard output and succeed.
out=$("$VELLUM" --help); rc=$?
expect_eq "--help: status" "$rc" 0
expect_contains "--help: usage" "$out" "  vellum [OPTIONS] doc.html -o out.pdf   Convert doc.html to out.pdf"
expect_contains "--help: option" "$out" "  --no-compress             Disable compression of PDF output."
expect_contains "--help: last line" "$(printf '%s\n' "$out" | tail -n 1)" "For more information, visit http://"
out=$("$VELLUM" --version); rc=$?
expect_eq "--version: status" "$rc" 0
expect_contains "--version: name" "$out" "Vellum "
expect_not_contains "--version: no build properties" "$out" "build-date"
expect_contains "--version --debug: build properties" "$("$VELLUM" --version --debug)" "build-compiler: "
out=$("$VELLUM" --credits); rc=$?
expect_eq "--credits: status" "$rc" 0
expect_contains "--credits: heading" "$out" "Vellum uses the following open source libraries:"
expect_contains "--credits: zlib" "$out" "zlib"

# Malformed command lines: message and status 1, never a crash.
while IFS='|' read -r args message; do
    [ -z "$args" ] && continue
    # shellcheck disable=SC2086
    "$VELLUM" $args >out.txt 2>err.txt; rc=$?
    expect_eq "[$args]: status" "$rc" 1
    expect_contains "[$args]: message" "$(cat err.txt)" "$message"
    expect_contains "[$args]: hint" "$(cat err.txt)" "Try 'vellum --help' for more information."
done <<'TABLE'
--bogus a.html|unrecognized option `--bogus'
-x a.html|unrecognized option `-x'
--output|needs an argument
a.html -o|needs an argument
--prefetch-threads=many a.html|requires a numeric argument
--http-timeout=1.5 a.html|requires a numeric argument
--css-dpi=0 a.html|invalid value for option `--css-dpi'
--key-bits=64 a.html|invalid value for option `--key-bits'
--pdf-profile=PDF/Z a.html|invalid value for option `--pdf-profile'
--no-output=x.pdf a.html|cannot negate option
--no-style a.html|cannot negate option
--version=3|does not allow an argument
a.html b.html|no output filename specified
http://127.0.0.1:9/a.html|no output filename specified
-l list.txt|no output filename specified
TABLE

# An input list that cannot be read.
"$VELLUM" -l missing-list.txt -o out.pdf 2>err.txt; rc=$?
expect_eq "missing input list: status" "$rc" 1
expect_contains "missing input list: message" "$(cat err.txt)" "error loading input list"

# An input list with a byte order mark, blanks and empty lines; positional arguments are ignored.
printf '\xEF\xBB\xBF  a.html  \n\n   \nnoext\n' > list.txt
"$VELLUM" -l list.txt ignored.html -o listed.pdf 2>err.txt; rc=$?
expect_eq "input list: status" "$rc" 0
expect_not_contains "input list: positional ignored" "$(cat err.txt)" "ignored.html"
qpdf_clean "input list" listed.pdf

# An unknown --structured-log value warns and keeps the console log.
"$VELLUM" --structured-log=bogus a.html -o s.pdf 2>err.txt; rc=$?
expect_eq "structured-log bogus: status" "$rc" 0
expect_contains "structured-log bogus: warning" "$(cat err.txt)" "warning: unknown value for --structured-log: bogus"

# A log file gets the time-stamped lines between begin and end marks.
"$VELLUM" --log=run.log -v a.html -o logged.pdf 2>/dev/null
expect_eq "log file: begin" "$(head -n 1 run.log)" "---- begin"
expect_eq "log file: end" "$(tail -n 1 run.log)" "---- end"
grep -q ': finished: success$' run.log || fail "log file: no verdict line"

finish
