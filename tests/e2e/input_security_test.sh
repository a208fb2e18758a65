#!/usr/bin/env bash
# Documents from the web must not read local files: external entities, external DTD subsets, XInclude,
# style sheets and redirects named by a page served over HTTP are refused ("not loading local file")
# unless --local-files is given expressly, while local documents and command-line files keep working.
# Resources are read only when they are regular files no larger than --max-resource-size, and entity
# expansion is bounded.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

canary="CANARY$RANDOM$RANDOM"
mkdir -p site secret
printf '%s\n' "$canary-ENTITY" > secret/entity.txt
printf '<!ENTITY leak "%s-DTD">\n' "$canary" > secret/subset.dtd
printf '<p xmlns="http://www.w3.org/1999/xhtml">%s-XINCLUDE</p>\n' "$canary" > secret/include.xml
printf 'p::after { content: "%s-CSS" }\n' "$canary" > secret/leak.css
secret=$(cd secret && pwd)

cat > site/entity.xhtml <<XML
<?xml version="1.0"?>
<!DOCTYPE html [<!ENTITY x SYSTEM "file://$secret/entity.txt">]>
<html xmlns="http://www.w3.org/1999/xhtml"><body><p>entity [&x;]</p></body></html>
XML
cat > site/subset.xhtml <<XML
<?xml version="1.0"?>
<!DOCTYPE html SYSTEM "file://$secret/subset.dtd">
<html xmlns="http://www.w3.org/1999/xhtml"><body><p>subset</p></body></html>
XML
cat > site/xinclude.xhtml <<XML
<?xml version="1.0"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:xi="http://www.w3.org/2001/XInclude"><body>
<p>xinclude</p><xi:include href="file://$secret/include.xml"/></body></html>
XML
cat > site/sheet.html <<HTML
<!DOCTYPE html><html><head><link rel="stylesheet" href="file://$secret/leak.css"></head>
<body><p>sheet</p></body></html>
HTML
# A base element that points into the file system does not open it either.
cat > site/base.html <<HTML
<!DOCTYPE html><html><head><base href="file://$secret/"><link rel="stylesheet" href="leak.css"></head>
<body><p>base</p></body></html>
HTML
# A data URL style sheet in a web page cannot import local files.
cat > site/import.html <<HTML
<!DOCTYPE html><html><head><style>@import url("data:text/css,@import%20url(%22file://$secret/leak.css%22)%3B");</style></head>
<body><p>import</p></body></html>
HTML

# A small server: static files, and redirects to schemes that are never loaded.
cat > server.py <<'PY'
import sys
from http.server import SimpleHTTPRequestHandler, ThreadingHTTPServer
secret = sys.argv[1]
class Handler(SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass
    def do_GET(self):
        targets = {"/to-file.css": "file://" + secret + "/leak.css", "/to-ftp.css": "ftp://127.0.0.1/leak.css"}
        if self.path in targets:
            self.send_response(302)
            self.send_header("Location", targets[self.path])
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        if self.path == "/big.html":
            body = b"<p>" + b"x" * 300000 + b"</p>"
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.end_headers()  # no length: the body ends with the connection
            self.wfile.write(body)
            return
        super().do_GET()
server = ThreadingHTTPServer(("127.0.0.1", 0), lambda *a: Handler(*a, directory="site"))
print(server.server_address[1], flush=True)
server.serve_forever()
PY
/usr/bin/python3 server.py "$secret" > port.txt 2>server.err &
server=$!
trap 'kill $server 2>/dev/null; rm -rf "$work"' EXIT
port=
for _ in $(seq 50); do
    port=$(head -n 1 port.txt)
    [ -n "$port" ] && break
    sleep 0.1
done
[ -n "$port" ] || { fail "the test server did not start: $(cat server.err)"; finish; }
base="http://127.0.0.1:$port"

cat > site/redirects.html <<HTML
<!DOCTYPE html><html><head><link rel="stylesheet" href="/to-file.css"><link rel="stylesheet" href="/to-ftp.css">
</head><body><p>redirects</p></body></html>
HTML

# convert NAME URL [OPTIONS...]: converts with a time limit; the text and messages land in NAME.txt and
# NAME.err.
convert() {
    local name=$1 url=$2
    shift 2
    timeout 60 "$VELLUM" "$@" "$url" -o "$name.pdf" 2>"$name.err"
    echo $? >"$name.rc"
    pdftotext -layout "$name.pdf" "$name.txt" 2>/dev/null || : >"$name.txt"
}

for doc in entity subset xinclude sheet base import redirects; do
    convert "web-$doc" "$base/$doc.$( [ -f site/$doc.xhtml ] && echo xhtml || echo html)"
    expect_not_contains "$doc over http: no canary" "$(cat "web-$doc.txt")" "$canary"
    expect_contains "$doc over http: converted" "$(cat "web-$doc.txt")" "$doc"
done
expect_eq "entity over http: status" "$(cat web-entity.rc)" 0
qpdf_clean "entity over http" web-entity.pdf
expect_contains "entity over http: refused" "$(cat web-entity.err)" "not loading local file"
expect_contains "sheet over http: refused" "$(cat web-sheet.err)" "not loading local file"
expect_contains "base over http: refused" "$(cat web-base.err)" "not loading local file"
expect_contains "redirect to file: refused" "$(cat web-redirects.err)" "not loading local file"
expect_contains "redirect to ftp: refused" "$(cat web-redirects.err)" "cannot load unknown URL scheme"

# The same documents read from the disk may use local files, and so may a web page when the command line
# allows it expressly: the canaries prove that the checks above would see a leak.
cp site/entity.xhtml site/sheet.html .
convert local-entity entity.xhtml
expect_contains "local entity: read" "$(cat local-entity.txt)" "$canary-ENTITY"
convert local-sheet sheet.html
expect_contains "local sheet: read" "$(cat local-sheet.txt)" "$canary-CSS"
convert allowed-entity "$base/entity.xhtml" --local-files
expect_contains "--local-files: entity read" "$(cat allowed-entity.txt)" "$canary-ENTITY"
convert allowed-sheet "$base/sheet.html" --local-files
expect_contains "--local-files: sheet read" "$(cat allowed-sheet.txt)" "$canary-CSS"

# An HTTP body over the limit is refused with a message.
convert big "$base/big.html" --max-resource-size=100K
expect_eq "big body: status" "$(cat big.rc)" 1
expect_contains "big body: message" "$(cat big.err)" "resource too large"
expect_eq "bad --max-resource-size" "$("$VELLUM" --max-resource-size=lots x.html 2>&1 >/dev/null | head -n 1)" \
    "vellum: error: invalid value for option \`--max-resource-size'"

# Files that are not regular files are not read, whatever names them; nothing hangs on a FIFO.
printf '<p>plain</p>\n' > plain.html
mkfifo pipe.css
mkdir dir.css
for special in /dev/zero /dev/urandom "$PWD/pipe.css" "$PWD/dir.css"; do
    convert special plain.html --style="$special" --attach="$special"
    expect_eq "$special: status" "$(cat special.rc)" 0  # refused and left out, the run goes on
    expect_contains "$special: refused" "$(cat special.err)" "not loading a"
done
convert special-style plain.html --style=/dev/zero
expect_eq "/dev/zero as style sheet: status" "$(cat special-style.rc)" 0
expect_contains "/dev/zero as style sheet: text" "$(cat special-style.txt)" "plain"
cat > zero.xhtml <<XML
<?xml version="1.0"?>
<!DOCTYPE html [<!ENTITY z SYSTEM "/dev/zero">]>
<html xmlns="http://www.w3.org/1999/xhtml"><body><p>zero [&z;]</p></body></html>
XML
convert zero-entity zero.xhtml
expect_eq "/dev/zero as entity: status" "$(cat zero-entity.rc)" 0
expect_contains "/dev/zero as entity: refused" "$(cat zero-entity.err)" "not loading a file that is not a regular file"
head -c 200000 /dev/zero | tr '\0' 'a' > big.css
convert big-file plain.html --style=big.css --max-resource-size=100K
expect_contains "big file: refused" "$(cat big-file.err)" "resource too large: more than 102400 bytes"

# An entity that expands a billion times ends in an error, not in exhausted memory.
cat > laughs.xml <<'XML'
<?xml version="1.0"?>
<!DOCTYPE lolz [
<!ENTITY lol "lollollollollollollollollollol">
<!ENTITY lol1 "&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;">
<!ENTITY lol2 "&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;">
<!ENTITY lol3 "&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;">
<!ENTITY lol4 "&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;">
<!ENTITY lol5 "&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;&lol4;">
<!ENTITY lol6 "&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;&lol5;">
<!ENTITY lol7 "&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;&lol6;">
<!ENTITY lol8 "&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;&lol7;">
<!ENTITY lol9 "&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;&lol8;">
]>
<lolz>&lol9;</lolz>
XML
# The address-space limit catches a run-away expansion; a binary built with AddressSanitizer reserves
# terabytes of shadow memory at start and cannot run under it.
if [ -n "${ASAN_OPTIONS:-}" ]; then
    convert laughs laughs.xml
else
    ( ulimit -v 2000000; convert laughs laughs.xml )
fi
expect_eq "billion laughs: status" "$(cat laughs.rc)" 1
expect_contains "billion laughs: message" "$(cat laughs.err)" "could not load input file"

# An entity that refers to itself is reported once, where it is used, however deep libxml2 went.
cat > loop.xhtml <<'XML'
<?xml version="1.0"?>
<!DOCTYPE html [<!ENTITY a "&b;"> <!ENTITY b "&a;">]>
<html xmlns="http://www.w3.org/1999/xhtml"><body><p>&a;</p></body></html>
XML
convert loop loop.xhtml
expect_eq "entity loop: status" "$(cat loop.rc)" 1
expect_eq "entity loop: said once" "$(grep -c 'entity reference loop' loop.err)" 1
expect_contains "entity loop: with its line" "$(cat loop.err)" "loop.xhtml:3: error: Detected an entity reference loop"

finish
