#!/usr/bin/env bash
# Documents over HTTP: a local server serves a small site; the program reads documents, their external
# entities and redirected addresses through its loader, and reports what it cannot fetch.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

mkdir -p site/sub
cat > site/doc.html <<'HTML'
<!DOCTYPE html><html><head><title>Over the wire</title><meta name="author" content="Ann"></head>
<body><p>Hello</p></body></html>
HTML
printf 'Entity title' > site/t.ent
cat > site/doc.xhtml <<'XML'
<?xml version="1.0"?>
<!DOCTYPE html [<!ENTITY t SYSTEM "t.ent">]>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>&t;</title></head><body><p>x</p></body></html>
XML
cat > site/sub/index.html <<'HTML'
<!DOCTYPE html><html><head><title>Index page</title></head><body><p>index</p></body></html>
HTML

/usr/bin/python3 -m http.server 0 --bind 127.0.0.1 --directory site > server.log 2>&1 &
server=$!
trap 'kill $server 2>/dev/null; rm -rf "$work"' EXIT
port=
for _ in $(seq 50); do
    port=$(sed -n 's/.* port \([0-9]*\) .*/\1/p' server.log)
    [ -n "$port" ] && break
    sleep 0.1
done
[ -n "$port" ] || { fail "the test server did not start: $(cat server.log)"; finish; }
base="http://127.0.0.1:$port"

title_of() { pdfinfo "$1" 2>/dev/null | sed -n 's/^Title: *//p'; }

# An HTML document over HTTP: its head reaches the document information.
"$VELLUM" "$base/doc.html" -o html.pdf 2>err.txt; rc=$?
expect_eq "html over http: status" "$rc" 0
qpdf_clean "html over http" html.pdf
expect_eq "html over http: title" "$(title_of html.pdf)" "Over the wire"
expect_eq "html over http: author" "$(pdfinfo html.pdf | sed -n 's/^Author: *//p')" "Ann"
expect_eq "html over http: quiet console" "$(cat err.txt)" ""

# An XML document whose external entity is resolved against the document's URL and fetched too.
"$VELLUM" "$base/doc.xhtml" -o xml.pdf; rc=$?
expect_eq "xml entity over http: status" "$rc" 0
expect_eq "xml entity over http: title from the entity" "$(title_of xml.pdf)" "Entity title"

# A directory address is redirected to the address with a slash, which serves the index.
"$VELLUM" "$base/sub" -o redirected.pdf; rc=$?
expect_eq "redirect: status" "$rc" 0
expect_eq "redirect: title of the index" "$(title_of redirected.pdf)" "Index page"

# The document is fetched once, by a prefetch thread, and then served from the cache.
before=$(grep -c 'GET /doc.html' server.log)
"$VELLUM" --debug "$base/doc.html" -o debug.pdf 2>debug.txt
expect_contains "debug: prefetched" "$(cat debug.txt)" "loaded $base/doc.html"
expect_contains "debug: cache" "$(cat debug.txt)" "resource from cache: $base/doc.html"
expect_eq "debug: one request" "$(($(grep -c 'GET /doc.html' server.log) - before))" 1

# What cannot be fetched is reported, and with nothing to convert the run fails.
"$VELLUM" "$base/nothere.html" -o missing.pdf 2>err.txt; rc=$?
expect_eq "404: status" "$rc" 1
expect_contains "404: message" "$(cat err.txt)" "$base/nothere.html: error: The requested URL returned error: 404"
expect_contains "404: input" "$(cat err.txt)" "$base/nothere.html: error: could not load input file"

# --no-network refuses HTTP before any request.
before=$(grep -c 'GET' server.log)
"$VELLUM" --no-network "$base/doc.html" -o refused.pdf 2>err.txt; rc=$?
expect_eq "no-network: status" "$rc" 1
expect_contains "no-network: message" "$(cat err.txt)" "not loading HTTP resource due to --no-network flag"
expect_eq "no-network: no request" "$(grep -c 'GET' server.log)" "$before"

finish
