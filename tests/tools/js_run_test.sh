#!/bin/bash
# Runs the script files of a folder through js-run and compares each with the line its first comment
# holds: "// expect: TEXT" for the completion value, "// expect-error: TEXT" for the end of the report of
# an uncaught exception (which then must make js-run fail).
# Usage: js_run_test.sh JS_RUN DATA_DIR
set -u
bin=$1
dir=$2
failed=0
count=0
for f in "$dir"/*.js; do
    count=$((count + 1))
    first=$(head -n 1 "$f")
    out=$(cd "$dir" && "$bin" "$(basename "$f")" 2>/dev/null)
    rc=$?
    case "$first" in
    "// expect: "*)
        want=${first#// expect: }
        if [ $rc -ne 0 ] || [ "$out" != "$want" ]; then
            echo "FAIL $(basename "$f"): got '$out' (exit $rc), want '$want'"
            failed=$((failed + 1))
        fi
        ;;
    "// expect-error: "*)
        want=${first#// expect-error: }
        if [ $rc -eq 0 ] || [[ "$out" != *"$want" ]]; then
            echo "FAIL $(basename "$f"): got '$out' (exit $rc), want an error ending in '$want'"
            failed=$((failed + 1))
        fi
        ;;
    *)
        echo "FAIL $(basename "$f"): no expectation on its first line"
        failed=$((failed + 1))
        ;;
    esac
done
echo "$((count - failed)) passed, $failed failed"
[ $failed -eq 0 ]
