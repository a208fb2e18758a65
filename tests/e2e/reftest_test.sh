#!/usr/bin/env bash
# Reftests: a test page and a reference page that must look the same, each converted by the program and
# rasterised page by page. The reference gets the same picture by simpler means (a float's effect drawn
# with absolutely placed boxes, a table's grid drawn with plain blocks), so that a pair agrees only when
# the feature under test works.
#
# Every `<name>.html` under tests/reftests/<suite>/ that holds `<link rel="match" href="REF">` is a test
# (`rel="mismatch"` asks for pages that differ). Both are converted (a conversion that crashes or hangs
# fails whatever its pictures), rasterised with pdftoppm at 48 dpi and compared page by page: the page
# counts must agree, and a pixel differs only when no pixel of the other picture within one pixel of it
# is close in every channel, so anti-aliasing and sub-pixel shifts pass; a page passes when under 0.1% of
# its pixels differ.
#
# A suite may list the tests it is known to fail, one name a line, in `known-failures.txt` (a `#` starts
# a comment): they count against the pass rate but do not fail this script; any other failure does. A
# known failure that passes is reported, so that the list can be shortened.
#
# REFTEST_SUITES="a b" runs only those suites; REFTEST_OUT=DIR keeps the pictures of the failures.
VELLUM=$(realpath "$1")
DATA=$2
source "$DATA/lib.sh"
ROOT=$(cd "$DATA/../reftests" && pwd) || exit 1
TOOLS=$(cd "$DATA/../../tools" && pwd) || exit 1
cd "$work"
PY=/usr/bin/python3
if ! $PY -c 'import PIL' 2>/dev/null; then
    echo "python3-pil is missing" >&2
    exit 77
fi
if [ -n "${REFTEST_SUITES:-}" ]; then
    read -r -a suites <<<"$REFTEST_SUITES"
else
    suites=()
    for d in "$ROOT"/*/; do
        [ -d "$d" ] || continue
        suites+=("$(basename "$d")")
    done
fi

# The reference a test names (first match or mismatch link), and which of the two it is.
link_of() {
    tr '\n' ' ' <"$1" | grep -o '<link[^>]*rel="\(match\|mismatch\)"[^>]*>' | head -1
}

# render SUITE FILE: FILE converted into $work/SUITE/FILE.pdf and its pages as FILE-N.png; the exit
# status in FILE.status.
render() {
    local suite=$1 file=$2 out status
    out=$work/$suite/$file
    (cd "$ROOT/$suite" && timeout 60 "$VELLUM" "$file" -o "$out.pdf" 2>"$out.err")
    status=$?
    if [ $status -eq 0 ]; then
        pdftoppm -r 48 -png "$out.pdf" "$out" || status=1000
    fi
    echo "$status" >"$out.status"
}

declare -A pending=()
for suite in "${suites[@]}"; do
    mkdir -p "$work/$suite"
    for test in "$ROOT/$suite"/*.html; do
        link=$(link_of "$test")
        [ -n "$link" ] || continue
        ref=$(echo "$link" | sed -n 's/.*href="\([^"]*\)".*/\1/p')
        for file in "$(basename "$test")" "$ref"; do
            [ -n "${pending[$suite/$file]:-}" ] && continue
            pending[$suite/$file]=1
            render "$suite" "$file" &
            [ "$(jobs -r | wc -l)" -ge 2 ] && wait -n
        done
    done
done
wait

for status in "$work"/*/*.status; do
    [ -e "$status" ] || continue
    case $(cat "$status") in
    124) fail "${status#"$work"/}: the conversion hung" ;;
    129 | 1[3-9][0-9] | 2[0-9][0-9]) fail "${status#"$work"/}: the conversion crashed (status $(cat "$status"))" ;;
    esac
done

summary=$(PYTHONPATH="$TOOLS" $PY - "$ROOT" "$work" "${suites[@]}" <<'PY'
import glob, os, re, sys
from reftest_pictures import compare

root, work = sys.argv[1], sys.argv[2]
unexpected = []
for suite in sys.argv[3:]:
    known = set()
    listed = os.path.join(root, suite, "known-failures.txt")
    if os.path.exists(listed):
        for line in open(listed):
            line = line.split("#", 1)[0].strip()
            if line:
                known.add(line)
    passed = total = 0
    for path in sorted(glob.glob(os.path.join(root, suite, "*.html"))):
        text = open(path, encoding="utf-8").read()
        m = re.search(r'<link[^>]*rel="(match|mismatch)"[^>]*>', text)
        if not m:
            continue
        kind = m.group(1)
        ref = re.search(r'href="([^"]*)"', m.group(0)).group(1)
        name = os.path.basename(path)[:-5]
        total += 1
        test_base = os.path.join(work, suite, os.path.basename(path))
        ref_base = os.path.join(work, suite, ref)
        statuses = [open(b + ".status").read().strip() for b in (test_base, ref_base)]
        if statuses != ["0", "0"]:
            why = "exit status %s, the reference's %s" % tuple(statuses)
            ok = False
        else:
            why = compare(test_base, ref_base)
            ok = why is None if kind == "match" else why is not None
            if kind == "mismatch" and not ok:
                why = "looks the same as its mismatch reference"
        passed += ok
        if ok and name in known:
            print("pass %s/%s (listed as a known failure)" % (suite, name))
        elif not ok:
            message = open(test_base + ".err").readline().strip()
            print("fail %s/%s: %s%s%s" % (suite, name, why, "; " if message else "", message,
                                          ) + ("" if name in known else " (unexpected)"))
            if name not in known:
                unexpected.append("%s/%s" % (suite, name))
    print("suite %s: %d of %d pass (%.0f%%)" % (suite, passed, total, 100 * passed / max(total, 1)))
print("unexpected failures: %s" % (" ".join(unexpected) or "none"))
PY
)
echo "$summary"
if [ -n "${REFTEST_OUT:-}" ]; then
    mkdir -p "$REFTEST_OUT"
    cp -r "$work"/. "$REFTEST_OUT/"
fi
expect_eq "every failure is a known one" "$(echo "$summary" | tail -1)" "unexpected failures: none"
finish
