#!/usr/bin/env bash
# Threads. The work runs on a large stack switched to on the main thread, and the download threads start
# only for a web resource, so a run over local files starts no thread until the file is written (the C++
# library then counts shared references without atomic instructions). Writing makes the streams of a
# batch of pages on two threads; the file holds every page in its place. Deep documents and deep script
# calls still find the large stack and its end.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
command -v qpdf >/dev/null || exit 77

cat >one.html <<'EOF'
<!DOCTYPE html><html><head><style>@page { size: A6 }</style></head>
<body><p>One page of local text.</p></body></html>
EOF
if command -v strace >/dev/null && strace -f -qq -e trace=none true 2>/dev/null; then
    timeout 60 strace -f -qq -e trace=clone,clone3 -o trace.txt "$VELLUM" one.html -o one.pdf 2>err.txt
    expect_eq "one page: status" "$?" 0
    expect_eq "one page: no thread started" "$(grep -c 'clone' trace.txt)" 0
    expect_contains "one page: text" "$(pdftotext one.pdf - 2>/dev/null)" "One page of local text."
fi

# 150 pages, each with its own number: three batches of streams, each page's in its place.
/usr/bin/python3 - <<'PY'
pages = "".join(f'<section><p>Page number {i}.</p><p>{"word " * (i % 40)}</p></section>' for i in range(1, 151))
open("many.html", "w").write(f'''<!DOCTYPE html><html><head><style>
@page {{ size: A7; margin: 5mm }} section {{ break-after: page }} p {{ font-size: 8pt }}
</style></head><body>{pages}</body></html>''')
PY
timeout 120 "$VELLUM" many.html -o many.pdf 2>err.txt
expect_eq "150 pages: status" "$?" 0
qpdf --check many.pdf >check.txt 2>&1
expect_eq "150 pages: qpdf" "$?" 0
expect_eq "150 pages: count" "$(pdfinfo many.pdf | awk '/^Pages:/ {print $2}')" 150
for n in 1 64 65 128 129 150; do
    expect_contains "150 pages: page $n" "$(pdftotext -f $n -l $n many.pdf - 2>/dev/null)" "Page number $n."
done

# A script call 100,000 deep needs some 300 MB of stack: the script engine must know where the large
# stack ends (the thread's attributes describe the main thread's 8 MB, far from it).
cat >recurse.html <<'EOF'
<!DOCTYPE html><html><body><p id="p">not run</p><script>
function down(n) { return n == 0 ? 0 : down(n - 1) + 1; }
try { document.getElementById("p").textContent = "depth " + down(100000); }
catch (e) { document.getElementById("p").textContent = "caught " + e.name; }
</script></body></html>
EOF
timeout 120 "$VELLUM" --javascript recurse.html -o recurse.pdf 2>err.txt
expect_eq "deep script: status" "$?" 0
expect_contains "deep script: text" "$(pdftotext recurse.pdf - 2>/dev/null)" "depth 100000"

# A recursion without end is a RangeError the script can catch, some 200,000 calls deep: neither a
# crash nor the whole large stack filled first.
cat >runaway.html <<'EOF'
<!DOCTYPE html><html><body><p id="p">not run</p><script>
var depth = 0;
function down(n) { depth = n; return down(n + 1) + 1; }
try { down(0); } catch (e) { document.getElementById("p").textContent = "caught " + e.name + " " + depth; }
</script></body></html>
EOF
timeout 120 "$VELLUM" --javascript runaway.html -o runaway.pdf 2>err.txt
expect_eq "runaway script: status" "$?" 0
caught=$(pdftotext runaway.pdf - 2>/dev/null | grep -o 'caught RangeError [0-9]*')
expect_contains "runaway script: text" "$caught" "caught RangeError"
depth=${caught##* }
[ "${depth:-0}" -gt 100000 ] && [ "${depth:-0}" -lt 1000000 ] ||
    fail "runaway script: expected the error between 100,000 and 1,000,000 calls deep, got ${depth:-none}"

# 20,000 nested elements need far more than the main thread's 8 MB of stack.
/usr/bin/python3 -c "print('<?xml version=\"1.0\"?><html xmlns=\"http://www.w3.org/1999/xhtml\"><body>' + '<div>' * 20000 + 'innermost' + '</div>' * 20000 + '</body></html>')" >deep.xhtml
timeout 120 "$VELLUM" deep.xhtml -o deep.pdf 2>err.txt
expect_eq "20,000 nested elements: status" "$?" 0
expect_contains "20,000 nested elements: text" "$(pdftotext deep.pdf - 2>/dev/null)" "innermost"

finish
