#!/usr/bin/env bash
# Every document the project keeps (the examples, the box-dump tool's documents, the e2e data and the
# fuzzer's reproducers and seeds) converts with the program without a crash: a PDF with status 0, or,
# for input that is truly invalid, a message and status 1. Never a signal, never a hang.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
root=$(cd "$DATA/../.." && pwd)
cd "$work"

n=0
while IFS= read -r -d '' doc; do
    n=$((n + 1))
    rm -f out.pdf
    timeout 60 "$VELLUM" "$doc" -o out.pdf >out.txt 2>&1
    status=$?
    name=${doc#"$root"/}
    if [ "$status" -eq 0 ]; then
        [ -s out.pdf ] || fail "$name: status 0 but no PDF"
    elif [ "$status" -eq 1 ]; then
        [ -s out.txt ] || fail "$name: status 1 without a message"
    else
        fail "$name: status $status"
    fi
done < <(find "$root/examples" "$root/tests/tools/data" "$root/tests/e2e/data" "$root/tests/fuzz/corpus/pipeline" \
    "$root/tests/fuzz/seeds/pipeline" -type f \( -name '*.html' -o -name '*.htm' -o -name '*.xhtml' \
    -o -name '*.xml' -o -name '*.bin' \) -print0 2>/dev/null)
[ "$n" -ge 10 ] || fail "only $n documents found"
finish
