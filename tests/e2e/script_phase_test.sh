#!/usr/bin/env bash
# The script phase of a run: document scripts with --javascript, --script files before them, the host
# objects (console, Log, Vellum, timers, events), script functions called from CSS content, failures
# reported with file and line while the PDF is still made, and the --shell loop fed from a pipe.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

style='<style>@page { size: 400pt 300pt; margin: 30pt } body { margin: 0; font: 12pt "DejaVu Sans" }</style>'

# A document whose scripts use Vellum, console and Log only, with timers and a complete handler.
cat >host.html <<HTML
<!DOCTYPE html><html><head>$style
<script>
console.log("first", " script");
Log.warning("logged ", 42);
var order = [];
setTimeout(function () { console.log("timer f"); }, 10);
setTimeout(function () { console.log("timer g"); }, 10);
setTimeout(function (a, b) { console.log("timer h " + a + b); }, 0, "x", "y");
var gone = setTimeout(function () { console.log("cleared timer ran"); }, 5);
clearTimeout(gone);
addEventListener("load", function (e) { console.log("load listener " + e.type); });
window.onload = function () {
    console.log("onload");
    setTimeout(function () { console.log("timer from onload"); }, 1);
};
Vellum.oncomplete = function () { console.log("pages: " + Vellum.pageCount); };
Vellum.addEventListener("complete", function () { console.log("complete listener " + Vellum.pageCount); });
</script></head><body>
<p>Page one</p><p style="page-break-before: always">Page two</p>
<script>console.log("second script sees " + typeof order);</script>
</body></html>
HTML
timeout 60 "$VELLUM" --javascript host.html -o host.pdf >out.txt 2>err.txt
expect_eq "host objects: status" "$?" 0
qpdf_clean "host objects" host.pdf
expect_eq "host objects: console output in order" "$(cat out.txt)" "first script
second script sees object
load listener load
onload
timer h xy
timer from onload
timer g
timer f
complete listener 2
pages: 2"
expect_contains "host objects: Log.warning" "$(cat err.txt)" "warning: logged 42"
expect_eq "host objects: pages" "$(pdfinfo host.pdf | awk '/^Pages:/ {print $2}')" 2
expect_contains "host objects: text" "$(pdftotext host.pdf -)" "Page two"

# setTimeout inside a timer is too late: a warning, and the callback never runs.
cat >late.html <<HTML
<!DOCTYPE html><html><head>$style</head><body><p>late</p>
<script>setTimeout(function () { setTimeout(function () { console.log("too late ran"); }, 0); }, 0);</script>
</body></html>
HTML
timeout 60 "$VELLUM" --javascript late.html -o late.pdf >out.txt 2>err.txt
expect_eq "late timer: status" "$?" 0
expect_contains "late timer: warning" "$(cat err.txt)" "setTimeout called too late"
expect_eq "late timer: not run" "$(cat out.txt)" ""

# CSS content calls a function that a script registered; its arguments come from the element and
# the page, and it is called again for each page.
cat >funcs.html <<HTML
<!DOCTYPE html><html><head>$style
<style>
h1::before { content: -vellum-script(shout, attr(data-word)) " " }
@page { @bottom-center { content: -vellum-script(folio, counter(page), " of ", counter(pages)) } }
p.missing::after { content: -vellum-script(nosuch) }
</style>
<script>
Vellum.addScriptFunc("shout", function (w) { return w.toUpperCase() + "!"; });
Vellum.addScriptFunc("folio", function (p, sep, n) { return "folio " + p + sep + n; });
</script></head><body>
<h1 data-word="hello">Title</h1><p class="missing">text stays</p>
<p style="page-break-before: always">Second page</p>
</body></html>
HTML
timeout 60 "$VELLUM" --javascript funcs.html -o funcs.pdf >out.txt 2>err.txt
expect_eq "script functions: status" "$?" 0
qpdf_clean "script functions" funcs.pdf
text=$(pdftotext -layout funcs.pdf -)
expect_contains "script functions: content" "$text" "HELLO! Title"
expect_contains "script functions: page 1 margin box" "$(pdftotext -f 1 -l 1 funcs.pdf -)" "folio 1 of 2"
expect_contains "script functions: page 2 margin box" "$(pdftotext -f 2 -l 2 funcs.pdf -)" "folio 2 of 2"
expect_contains "script functions: unknown name" "$(cat err.txt)" \
    "unknown script function nosuch, register with Vellum.addScriptFunc"
expect_contains "script functions: text kept" "$text" "text stays"

# Without --javascript the same document's scripts do not run and CSS calls say so once.
timeout 60 "$VELLUM" funcs.html -o nojs.pdf >out.txt 2>err.txt
expect_eq "no --javascript: status" "$?" 0
expect_eq "no --javascript: one warning" "$(grep -c 'JavaScript is disabled' err.txt)" 1
expect_not_contains "no --javascript: no script result" "$(pdftotext nojs.pdf -)" "HELLO"
expect_contains "no --javascript: text" "$(pdftotext nojs.pdf -)" "Title"

# --script files run before the document's scripts, in their order.
echo 'console.log("file one"); var fromFile = "shared";' >one.js
echo 'console.log("file two sees " + fromFile);' >two.js
cat >order.html <<HTML
<!DOCTYPE html><html><head>$style<script>console.log("document script");</script></head>
<body><p>order</p></body></html>
HTML
timeout 60 "$VELLUM" --javascript --script one.js --script two.js order.html -o order.pdf >out.txt 2>err.txt
expect_eq "--script order: status" "$?" 0
expect_eq "--script order: output" "$(cat out.txt)" "file one
file two sees shared
document script"
# --script alone runs the file but not the document's scripts.
timeout 60 "$VELLUM" --script one.js order.html -o order2.pdf >out.txt 2>err.txt
expect_eq "--script alone: output" "$(cat out.txt)" "file one"

# A syntax error is logged with its file and line; an uncaught exception is reported with its
# position; the other scripts run and the PDF is made.
printf 'var ok = 1;\nvar broken = ;\n' >broken.js
printf '\n\nfunction f() {\n  return null.thing;\n}\nf();\n' >throws.js
timeout 60 "$VELLUM" --javascript --script broken.js --script throws.js order.html -o errors.pdf >out.txt 2>err.txt
expect_eq "script errors: status" "$?" 0
qpdf_clean "script errors" errors.pdf
expect_contains "script errors: syntax error position" "$(cat err.txt)" "broken.js:2: error:"
expect_contains "script errors: exception position" "$(cat err.txt)" "throws.js:4: error: TypeError: null value is not an object"
expect_eq "script errors: later script ran" "$(cat out.txt)" "document script"

# An external script of the document, loaded through the loader.
echo 'console.log("external " + document_word);' >ext.js
cat >ext.html <<HTML
<!DOCTYPE html><html><head>$style<script>var document_word = "loaded";</script>
<script src="ext.js"></script><script type="text/x-template">console.log("not a script")</script></head>
<body><p>ext</p></body></html>
HTML
timeout 60 "$VELLUM" --javascript ext.html -o ext.pdf >out.txt 2>err.txt
expect_eq "external script: output" "$(cat out.txt)" "external loaded"

# Messages about inline scripts give lines of the document (CR LF line ends included, standard input
# too, and a CDATA section in XHTML), not of the script.
printf '<!DOCTYPE html>\r\n<html><head>\r\n<script>var a = 1;</script>\r\n</head><body><p>x</p>\r\n<script>\r\nvar ok = 2;\r\nnull.boom;\r\n</script>\r\n<script>\r\n\r\nvar = ;\r\n</script></body></html>\r\n' >lines.html
timeout 60 "$VELLUM" --javascript lines.html -o lines.pdf 2>err.txt
expect_contains "inline script lines: exception" "$(cat err.txt)" "lines.html:7: error: TypeError: null value is not an object"
expect_contains "inline script lines: syntax error" "$(cat err.txt)" "lines.html:11: error:"
timeout 60 "$VELLUM" --javascript - -o lines2.pdf <lines.html 2>err.txt
expect_contains "inline script lines: standard input" "$(cat err.txt)" ":7: error: TypeError"
printf '<?xml version="1.0"?>\n<html xmlns="http://www.w3.org/1999/xhtml"><head>\n<script><![CDATA[\nvar a = 1;\nnull.x;\n]]></script>\n</head><body><p>x</p></body></html>\n' >lines.xhtml
timeout 60 "$VELLUM" --javascript lines.xhtml -o lines3.pdf 2>err.txt
expect_contains "inline script lines: XHTML" "$(cat err.txt)" "lines.xhtml:5: error: TypeError"

# The shell reads lines from a pipe, prints values and reports exceptions.
printf '1 + 2\nvar s = "a" + "b"\ns + "c"\nnull.x\nLog.warning("w")\n"after"\n' |
    timeout 60 "$VELLUM" --shell >out.txt 2>err.txt
expect_eq "shell: status" "$?" 0
expect_eq "shell: values" "$(cat out.txt)" "3
abc
after"
expect_contains "shell: exception" "$(cat err.txt)" "TypeError"
expect_contains "shell: Log" "$(cat err.txt)" "warning: w"
# The shell runs its files first.
printf 'fromFile\n' | timeout 60 "$VELLUM" --shell one.js >out.txt 2>err.txt
expect_eq "shell with a file" "$(cat out.txt)" "file one
shared"

finish
