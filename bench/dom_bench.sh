#!/bin/bash
# Times the DOM bindings on a generated document of N sections (default 2,000): a script numbers every
# section title, builds a table of contents of links, looks each section up by id, moves a note of each
# section to a list at the end and reads the computed colour of a few titles. The same document without
# --javascript gives the cost of the run without scripts; the difference is what the scripts cost.
# Usage: bench/dom_bench.sh [BUILD_DIR] [SECTIONS]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source "$here/lib.sh"
sections=${2:-2000}
/usr/bin/python3 - "$sections" >"$work/doc.html" <<'PY'
import sys
n = int(sys.argv[1])
print('<!DOCTYPE html><html><head><style>@page { size: A4; margin: 2cm } body { font: 10pt "DejaVu Sans" }'
      ' h2 { font-size: 12pt } .hot { color: red }</style></head><body><ul id="toc"></ul>')
for i in range(n):
    print(f'<h2 id="s{i}">Section {i}</h2><p>Text of section {i}<span class="fn">note {i}</span>.</p>')
print('''<script>
var titles = document.getElementsByTagName("h2"), toc = document.getElementById("toc");
for (var i = 0; i < titles.length; i++) {
    titles[i].insertBefore(document.createTextNode((i + 1) + ". "), titles[i].firstChild);
    var li = document.createElement("li"), a = document.createElement("a");
    a.href = "#s" + i; a.textContent = titles[i].textContent; li.appendChild(a); toc.appendChild(li);
}
for (var i = 0; i < titles.length; i++) { if (document.getElementById("s" + i) !== titles[i]) throw "lost " + i; }
var notes = document.createElement("ol"), spans = document.querySelectorAll("span.fn");
for (var i = 0; i < spans.length; i++) { var li = document.createElement("li"); li.appendChild(spans[i]); notes.appendChild(li); }
document.body.appendChild(notes);
for (var i = 0; i < 5; i++) { titles[i].className = "hot"; if (getComputedStyle(titles[i]).color != "#ff0000") throw "colour"; }
</script></body></html>''')
PY
for mode in plain scripts; do
    flag=""
    [ "$mode" = scripts ] && flag=--javascript
    /usr/bin/time -f "$sections sections, $mode: %e s elapsed, %U s user, peak memory %M KB" \
        "$bin" $flag "$work/doc.html" -o "$work/$mode.pdf" 2>&1 | grep -v '^vellum: '
done
echo "pages: $(pdfinfo "$work/scripts.pdf" | awk '/^Pages:/ {print $2}')"
