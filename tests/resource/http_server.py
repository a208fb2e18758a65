#!/usr/bin/python3
"""A small HTTP server for the loader tests. It listens on 127.0.0.1 on a free port, prints the port on
its first line of output, and serves until it is killed.

Paths:
  /ok                   200, text/css with a charset
  /redirect/N           a chain of N redirects ending at /redirect/0, which answers 200 text/html
  /404                  404
  /auth/...             Basic authentication, user "user" password "secret"; else 401
  /slow                 answers after three seconds
  /item/N               200 image/png after a short pause, the body "item N"
  /gzip                 a body sent with Content-Encoding: gzip
  /referer              the Referer header it received, as the body
  /setcookie            sets the cookie "visited=yes"
  /cookie               the Cookie header it received, as the body
  /reset                the connection is reset without an answer
  /count?path=P         how many times P was requested, as the body
"""
import base64
import gzip
import socket
import struct
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import parse_qs, urlsplit

counts = {}
counts_lock = threading.Lock()


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, format, *args):
        pass

    def send(self, status, body, content_type="text/plain", headers=()):
        self.send_response(status)
        if content_type is not None:
            self.send_header("Content-Type", content_type)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        parts = urlsplit(self.path)
        path = parts.path
        if path != "/count":
            with counts_lock:
                counts[path] = counts.get(path, 0) + 1
        if path == "/ok":
            self.send(200, b"body { color: red }", "text/css; charset=UTF-8")
        elif path.startswith("/redirect/"):
            n = int(path[len("/redirect/"):])
            if n == 0:
                self.send(200, b"<p>end of chain</p>", "text/html")
            else:
                self.send(302, b"", None, [("Location", "/redirect/%d" % (n - 1))])
        elif path.startswith("/auth/"):
            expected = "Basic " + base64.b64encode(b"user:secret").decode()
            if self.headers.get("Authorization") == expected:
                self.send(200, b"welcome", "text/plain")
            else:
                self.send(401, b"who are you?", "text/plain",
                          [("WWW-Authenticate", 'Basic realm="test"')])
        elif path == "/slow":
            time.sleep(3)
            self.send(200, b"late", "text/plain")
        elif path.startswith("/item/"):
            time.sleep(0.05)
            self.send(200, ("item " + path[len("/item/"):]).encode(), "image/png")
        elif path == "/gzip":
            self.send(200, gzip.compress(b"squeezed " * 100), "text/plain",
                      [("Content-Encoding", "gzip")])
        elif path == "/referer":
            self.send(200, (self.headers.get("Referer") or "(none)").encode())
        elif path == "/setcookie":
            self.send(200, b"set", "text/plain", [("Set-Cookie", "visited=yes; Path=/")])
        elif path == "/cookie":
            self.send(200, (self.headers.get("Cookie") or "(none)").encode())
        elif path == "/reset":
            # A reset connection before any answer: a receive failure for the client.
            self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.connection.close()
            self.close_connection = True
        elif path == "/count":
            asked = parse_qs(parts.query).get("path", [""])[0]
            with counts_lock:
                n = counts.get(asked, 0)
            self.send(200, str(n).encode())
        else:
            self.send(404, b"not here", "text/plain")


class Server(ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 64

    def handle_error(self, request, client_address):
        # The reset endpoint leaves the handler writing to a closed socket; that is expected.
        pass


def main():
    server = Server(("127.0.0.1", 0), Handler)
    sys.stdout.write("%d\n" % server.server_address[1])
    sys.stdout.flush()
    server.serve_forever()


if __name__ == "__main__":
    main()
