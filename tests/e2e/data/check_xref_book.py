#!/usr/bin/env python3
"""Checks the PDF of gen_xref_book.py: page numbers of the table of contents against where each chapter
really landed, footers, running headers, the outline and the links of the contents.
Usage: check_xref_book.py TEXT_FILE QPDF_JSON_FILE CHAPTERS   (text from pdftotext -layout)
Prints one line per failed check and exits 1 if there was any."""
import json
import re
import sys


def main():
    text_file, json_file, chapters = sys.argv[1], sys.argv[2], int(sys.argv[3])
    pages = open(text_file, encoding="utf-8").read().split("\f")
    if pages and not pages[-1].strip():
        pages.pop()
    total = len(pages)
    failures = []

    def fail(msg):
        failures.append(msg)

    landed = {}
    for i, page in enumerate(pages, start=1):
        for m in re.finditer(r"Opening of chapter (\d+)\.", page):
            landed.setdefault(int(m.group(1)), i)
    if sorted(landed) != list(range(1, chapters + 1)):
        fail("not every chapter was found in the text: %s" % sorted(landed))

    # The contents: "Chapter N . . . . P" on the first pages, before chapter 1 starts.
    toc = {}
    for page in pages[: landed.get(1, 1) - 1]:
        for line in page.splitlines():
            m = re.match(r"^\s*Chapter (\d+)[ .]*?(\d+)\s*$", line)
            if m:
                toc[int(m.group(1))] = int(m.group(2))
    for c in range(1, chapters + 1):
        if toc.get(c) != landed.get(c):
            fail("contents give chapter %d page %s, it landed on page %s" % (c, toc.get(c), landed.get(c)))

    for i, page in enumerate(pages, start=1):
        if "Page %d of %d" % (i, total) not in page:
            fail("page %d has no footer 'Page %d of %d'" % (i, i, total))

    # The running header names the chapter that starts on the page, or the one still going on.
    current = None
    starts = {p: c for c, p in landed.items()}
    for i, page in enumerate(pages, start=1):
        current = starts.get(i, current)
        if current is None:
            continue
        lines = [l.strip() for l in page.splitlines() if l.strip()]
        if not lines or lines[0] != "Chapter %d" % current:
            fail("page %d: header %r, expected 'Chapter %d'" % (i, lines[0] if lines else None, current))

    data = json.load(open(json_file))
    page_pos = {p["object"]: p["pageposfrom1"] for p in data["pages"]}
    outlines = data["outlines"]
    titles = [o["title"] for o in outlines]
    expected = ["Contents"] + ["Chapter %d" % c for c in range(1, chapters + 1)]
    if titles != expected:
        fail("outline titles %s" % titles[:5])
    for o in outlines[1:]:
        c = int(o["title"].split()[1])
        if o["destpageposfrom1"] != landed.get(c):
            fail("outline entry %s goes to page %s, not %s" % (o["title"], o["destpageposfrom1"], landed.get(c)))
        kids = [k["title"] for k in o["kids"]]
        if kids != ["Section %d.1" % c, "Section %d.2" % c]:
            fail("outline entry %s has children %s" % (o["title"], kids))

    # The links of the contents pages, in order, lead to the chapters' pages.
    objects = data["qpdf"][1]
    link_pages = []
    for p in data["pages"][: landed.get(1, 1) - 1]:
        annots = objects["obj:" + p["object"]]["value"].get("/Annots", [])
        for a in annots:
            value = objects["obj:" + a]["value"] if isinstance(a, str) else a
            if value.get("/Subtype") == "/Link" and "/Dest" in value:
                link_pages.append(page_pos.get(value["/Dest"][0]))
    want = [landed.get(c) for c in range(1, chapters + 1)]
    if link_pages != want:
        fail("contents links lead to %s, expected %s" % (link_pages[:10], want[:10]))

    for f in failures[:20]:
        print(f)
    print("%d pages, %d chapters, %d failed checks" % (total, chapters, len(failures)))
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
