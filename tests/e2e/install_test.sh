#!/usr/bin/env bash
# An installed copy: `cmake --install` into a temporary prefix, the program started through PATH from
# another directory finds its own files and its CA bundle; HTTPS style sheets load from a local TLS
# server whose self-signed certificate is named with --ssl-cacert.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

build=$(cd "$(dirname "$VELLUM")/.." && pwd)
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >install.log 2>&1 || fail "cmake --install: $(cat install.log)"
[ -x "$prefix/bin/vellum" ] || { fail "no installed program"; finish; }
for f in style/common.css style/fonts.css dtd/catalog.xml etc/curl-ca-bundle.crt; do
    [ -s "$prefix/$f" ] || fail "install: $f missing"
done
expect_contains "install: a CA bundle" "$(head -c 200000 "$prefix/etc/curl-ca-bundle.crt")" "BEGIN CERTIFICATE"

# Started by name through PATH, from a directory that has nothing to do with the prefix.
mkdir -p elsewhere
printf '<!DOCTYPE html><title>Installed</title><h1>Installed</h1><p>Runs from anywhere.</p>' > elsewhere/doc.html
(cd elsewhere && PATH="$prefix/bin:$PATH" vellum doc.html) 2>err.txt; rc=$?
expect_eq "through PATH: status" "$rc" 0
expect_eq "through PATH: quiet" "$(cat err.txt)" ""
qpdf_clean "through PATH" elsewhere/doc.pdf
expect_contains "through PATH: text" "$(pdftotext elsewhere/doc.pdf -)" "Runs from anywhere."
[ -n "$(pdffonts elsewhere/doc.pdf | tail -n +3)" ] || fail "through PATH: no fonts"
# Through a symbolic link in another directory, and with a relative program path.
mkdir -p links
ln -s "$prefix/bin/vellum" links/vellum
(cd elsewhere && ../links/vellum doc.html -o linked.pdf) 2>err.txt; rc=$?
expect_eq "through a link: status" "$rc" 0
expect_eq "through a link: quiet" "$(cat err.txt)" ""
# --prefix still names the resources: an empty prefix has no fonts.css.
mkdir -p empty
(cd elsewhere && PATH="$prefix/bin:$PATH" vellum --prefix "$work/empty" doc.html -o none.pdf) 2>err.txt; rc=$?
expect_eq "--prefix: respected" "$rc" 1
expect_contains "--prefix: names the missing sheet" "$(cat err.txt)" "$work/empty"

# A local TLS server with a certificate for 127.0.0.1, made now.
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=127.0.0.1" -addext "subjectAltName=IP:127.0.0.1" \
    -keyout key.pem -out cert.pem >openssl.log 2>&1 || { fail "openssl: $(cat openssl.log)"; finish; }
mkdir -p site
printf 'p { margin-left: 200pt }\n' > site/style.css
cat > serve.py <<'PY'
import http.server, ssl, sys
handler = lambda *a: http.server.SimpleHTTPRequestHandler(*a, directory=sys.argv[1])
server = http.server.HTTPServer(("127.0.0.1", 0), handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain("cert.pem", "key.pem")
server.socket = context.wrap_socket(server.socket, server_side=True)
print("port", server.server_address[1], flush=True)
server.serve_forever()
PY
/usr/bin/python3 serve.py site > server.log 2>&1 &
server=$!
trap 'kill $server 2>/dev/null; rm -rf "$work"' EXIT
port=
for _ in $(seq 100); do
    port=$(sed -n 's/^port \([0-9]*\)$/\1/p' server.log)
    [ -n "$port" ] && break
    sleep 0.1
done
[ -n "$port" ] || { fail "the TLS server did not start: $(cat server.log)"; finish; }
printf '<link rel="stylesheet" href="https://127.0.0.1:%s/style.css"><p>styled</p>' "$port" > https.html
x_of() { pdftotext -bbox "$1" - | grep '>styled<' | sed 's/.*xMin="\([0-9.]*\)".*/\1/'; }

# Named with --ssl-cacert, the server's certificate is trusted and the sheet applies: 200pt past the
# page margin of 2cm.
PATH="$prefix/bin:$PATH" vellum --ssl-cacert cert.pem https.html -o https.pdf 2>err.txt; rc=$?
expect_eq "https: status" "$rc" 0
expect_eq "https: quiet" "$(cat err.txt)" ""
ok=$(x_of https.pdf | awk '{ print ($1 > 256 && $1 < 257.5) ? "yes" : "no" }')
expect_eq "https: the sheet applied ($(x_of https.pdf))" "$ok" yes
expect_contains "https: fetched" "$(cat server.log)" "GET /style.css"

# Without options the installed copy reads its own CA bundle: the bundle is found, and a self-signed
# certificate is not in it, so the sheet is refused for the certificate and not for a missing bundle.
PATH="$prefix/bin:$PATH" vellum https.html -o untrusted.pdf 2>err.txt; rc=$?
expect_eq "untrusted: the document still converts" "$rc" 0
expect_not_contains "untrusted: the bundle is there" "$(cat err.txt)" "Problem with the SSL CA cert"
expect_contains "untrusted: the sheet is reported" "$(cat err.txt)" "https://127.0.0.1:$port/style.css"
ok=$(x_of untrusted.pdf | awk '{ print ($1 < 100) ? "yes" : "no" }')
expect_eq "untrusted: the sheet did not apply" "$ok" yes

finish
