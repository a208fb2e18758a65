#!/usr/bin/python3
"""Runs reftests of a web-platform-tests checkout through the real program and reports the pass rate.

Usage: tools/wpt_reftests.py VELLUM WPT_ROOT OUT_DIR DIR... [--sample N] [--jobs J]

Every test page under the given directories (relative to WPT_ROOT, e.g. css/CSS2/floats) that names
references with <link rel="match"> or <link rel="mismatch"> is converted, and so are its references; the
PDFs are rasterised with pdftoppm at 48 dpi and compared page by page as tests/e2e/reftest_test.sh
compares the project's own pairs (page counts equal; a pixel differs only when no pixel of the other
picture within one pixel of it is close in every channel; a page passes with under 0.1% of its pixels
differing). A test passes when it looks like one of its match references (several are alternatives)
and like none of its mismatch references. A conversion that fails, crashes or hangs fails the test.

Tests written for a browser's continuous viewport are laid out on pages of the viewport's size the
reftests assume (800 by 600 pixels, no page margin), so that what fits on a line or a screen there fits
here too, and a user style sheet gives the body the 8 pixel margin a browser's default sheet gives it
(this program's default leaves the margins to the page); the test and its references go through the same
pages, so they agree when the feature they exercise works. The Ahem font of the checkout's fonts/ folder is given to fontconfig, and root-relative
URLs ("/css/support/...") resolve against WPT_ROOT with --fileroot. A page with a script is converted
with --javascript: the program runs its scripts (and load handlers) before layout, which is where a
browser would take the picture of most such tests. Tests whose reference is missing are left out and
counted apart.

--sample N takes every k-th test so that about N are run per directory (the same ones each time).
OUT_DIR gets the PDFs, the pictures and report.txt: one line per failing test with the reason, then the
pass rate per directory.
"""
import concurrent.futures
import glob
import os
import re
import subprocess
import sys
import threading

from reftest_pictures import compare

EXTENSIONS = (".html", ".htm", ".xht", ".xhtml")
LINK = re.compile(r'<link\b[^>]*\brel\s*=\s*["\']?(match|mismatch)["\']?[^>]*>', re.I | re.S)
HREF = re.compile(r'\bhref\s*=\s*["\']([^"\']*)["\']', re.I)


def parse_args(argv):
    args = {"sample": 0, "jobs": 2, "dirs": []}
    rest = list(argv)
    while rest:
        a = rest.pop(0)
        if a == "--sample":
            args["sample"] = int(rest.pop(0))
        elif a == "--jobs":
            args["jobs"] = int(rest.pop(0))
        else:
            args["dirs"].append(a)
    if len(args["dirs"]) < 4:
        sys.exit(__doc__)
    args["vellum"], args["root"], args["out"] = (os.path.abspath(p) for p in args["dirs"][:3])
    args["dirs"] = args["dirs"][3:]
    return args


def references_of(root, path):
    """[(kind, reference path)] of a test page: empty when it is not a reftest, or a reason to skip it."""
    text = open(path, encoding="utf-8", errors="replace").read()
    out = []
    for m in LINK.finditer(text):
        h = HREF.search(m.group(0))
        if not h:
            continue
        href = h.group(1).split("#", 1)[0].split("?", 1)[0]
        if href.startswith("/"):
            ref = os.path.join(root, href.lstrip("/"))
        else:
            ref = os.path.join(os.path.dirname(path), href)
        ref = os.path.normpath(ref)
        if not os.path.exists(ref):
            return "skip: reference %s missing" % href
        out.append((m.group(1).lower(), ref))
    return out


LOCKS = {}
LOCKS_GUARD = threading.Lock()


def render(args, path):
    """Converts and rasterises PATH once; returns (status, base of the page pictures)."""
    with LOCKS_GUARD:
        lock = LOCKS.setdefault(path, threading.Lock())
    with lock:
        return render_once(args, path)


def render_once(args, path):
    rel = os.path.relpath(path, args["root"])
    base = os.path.join(args["out"], rel)
    os.makedirs(os.path.dirname(base), exist_ok=True)
    done = base + ".status"
    if os.path.exists(done):
        return open(done).read().strip(), base
    for old in glob.glob(glob.escape(base) + "-*.png"):
        os.remove(old)
    try:
        # A page with a script (most change the document on load) is converted with scripts on.
        text = open(path, encoding="utf-8", errors="replace").read()
        scripts = ["--javascript"] if re.search(r"<script\b", text, re.I) else []
        with open(base + ".err", "w") as err:
            # Paths are given relative to the checkout: --fileroot would take absolute ones as under it.
            sheet = os.path.relpath(args["browser_sheet"], args["root"])
            r = subprocess.run([args["vellum"], "--no-network", "--page-size=800px 600px", "--page-margin=0",
                                "--style=" + sheet, "--fileroot=" + args["root"]] + scripts +
                               [rel, "-o", base + ".pdf"], stdout=subprocess.DEVNULL, stderr=err, timeout=60,
                               env=args["env"], cwd=args["root"])
        status = str(r.returncode)
        if r.returncode == 0:
            p = subprocess.run(["pdftoppm", "-r", "48", "-png", base + ".pdf", base],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if p.returncode != 0:
                status = "rasterising failed"
    except subprocess.TimeoutExpired:
        status = "hung"
    with open(done, "w") as f:
        f.write(status)
    return status, base


def run_test(args, test, refs):
    """None when the test passes: it looks like one of its match references (they are alternatives)
    and unlike every mismatch reference. Else why not."""
    ts, tb = render(args, test)
    if ts != "0":
        return "conversion status %s" % ts
    whys = []
    matched = None
    for kind, ref in refs:
        rs, rb = render(args, ref)
        if rs != "0":
            why = "the reference's conversion status %s" % rs
        else:
            why = compare(tb, rb)
        if kind == "mismatch":
            if rs == "0" and why is None:
                return "looks the same as its mismatch reference"
        elif why is None:
            matched = True
        else:
            whys.append(why)
            matched = matched or False
    if matched is False:
        return "; ".join(whys)
    return None


def main():
    args = parse_args(sys.argv[1:])
    os.makedirs(args["out"], exist_ok=True)
    conf = os.path.join(args["out"], "fonts.conf")
    with open(conf, "w") as f:
        f.write('<?xml version="1.0"?>\n<!DOCTYPE fontconfig SYSTEM "fonts.dtd">\n<fontconfig>\n'
                '  <include ignore_missing="yes">/etc/fonts/fonts.conf</include>\n'
                '  <dir>%s</dir>\n</fontconfig>\n' % os.path.join(args["root"], "fonts"))
    args["env"] = dict(os.environ, FONTCONFIG_FILE=conf)
    args["browser_sheet"] = os.path.join(args["out"], "browser.css")
    with open(args["browser_sheet"], "w") as f:
        f.write("body { margin: 8px }\n")
    report = []
    totals = []
    for d in args["dirs"]:
        tests, skipped = [], 0
        for path in sorted(glob.glob(os.path.join(args["root"], d, "**", "*"), recursive=True)):
            if not path.endswith(EXTENSIONS) or "/support/" in path or "/reference/" in path:
                continue
            name = os.path.basename(path)
            if "-ref." in name or name.endswith("-ref") or "-notref." in name or re.search(r"-\d+r\.", name):
                continue
            r = references_of(args["root"], path)
            if not r:
                continue
            if isinstance(r, str):
                skipped += 1
                continue
            tests.append((path, r))
        if args["sample"] and len(tests) > args["sample"]:
            step = len(tests) / args["sample"]
            tests = [tests[int(i * step)] for i in range(args["sample"])]
        passed = 0
        with concurrent.futures.ThreadPoolExecutor(args["jobs"]) as pool:
            futures = [(t, pool.submit(run_test, args, *t)) for t in tests]
            for (test, _), fut in futures:
                why = fut.result()
                if why is None:
                    passed += 1
                else:
                    report.append("fail %s: %s" % (os.path.relpath(test, args["root"]), why))
        line = "%s: %d of %d pass (%.0f%%), %d left out (reference missing)" % (
            d, passed, len(tests), 100.0 * passed / max(1, len(tests)), skipped)
        totals.append(line)
        print(line, flush=True)
    with open(os.path.join(args["out"], "report.txt"), "w") as f:
        f.write("\n".join(report + [""] + totals) + "\n")


if __name__ == "__main__":
    main()
