# Helpers shared by the end-to-end test scripts: `source lib.sh` after setting VELLUM and DATA.
set -u
failures=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# expect_eq NAME ACTUAL EXPECTED
expect_eq() {
    if [ "$2" != "$3" ]; then
        fail "$1: expected [$3], got [$2]"
    fi
}

# expect_contains NAME HAYSTACK NEEDLE
expect_contains() {
    case "$2" in
    *"$3"*) ;;
    *) fail "$1: [$3] not found in [$2]" ;;
    esac
}

# expect_not_contains NAME HAYSTACK NEEDLE
expect_not_contains() {
    case "$2" in
    *"$3"*) fail "$1: [$3] unexpectedly found in [$2]" ;;
    *) ;;
    esac
}

# qpdf_clean NAME FILE: qpdf finds neither errors nor warnings.
qpdf_clean() {
    local out rc
    out=$(qpdf --check "$2" 2>&1)
    rc=$?
    if [ $rc -ne 0 ]; then
        fail "$1: qpdf --check exit $rc: $out"
    fi
    case "$out" in
    *"No syntax or stream encoding errors found"*) ;;
    *) fail "$1: qpdf --check did not confirm a clean file: $out" ;;
    esac
    case "$out" in
    *WARNING* | *warning*) fail "$1: qpdf --check warns: $out" ;;
    esac
}

# box_of PDF PAGE WORD: "xmin ymin" of the first such word on the page, from pdftotext -bbox (words
# compared as text, so that "10" and "10.0" differ).
box_of() {
    pdftotext -f "$2" -l "$2" -bbox "$1" - |
        sed -n 's/.*xMin="\([0-9.]*\)" yMin="\([0-9.]*\)".*>\([^<]*\)<\/word>/\3 \1 \2/p' |
        awk -v w="$3" '($1 "") == (w "") { print $2, $3; exit }'
}

finish() {
    if [ "$failures" -ne 0 ]; then
        echo "$failures check(s) failed" >&2
        exit 1
    fi
    echo "all checks passed"
}
