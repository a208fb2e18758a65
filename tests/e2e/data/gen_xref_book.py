#!/usr/bin/env python3
"""Writes a book for the cross-reference test: a table of contents whose entries link to the chapters
and print their page numbers with target-counter() after a leader, chapters that start on new pages
and name themselves in the running header through string-set, and "Page N of M" footers. Each
chapter's first paragraph says "Opening of chapter N." so that a test can find where it landed.
Usage: gen_xref_book.py OUT CHAPTERS PARAGRAPHS_PER_CHAPTER"""
import random
import sys

WORDS = ("page number reference contents chapter section leader dotted target counter header footer "
         "outline bookmark link destination margin paper press proof galley folio").split()

STYLE = """
@page { size: A6; margin: 15mm 12mm;
        @top-center { content: string(chapter); font-size: 8pt }
        @bottom-center { content: "Page " counter(page) " of " counter(pages); font-size: 8pt } }
body { font: 10pt serif; line-height: 1.3 }
h1 { font-size: 14pt; break-before: page; string-set: chapter content(text) }
nav h1 { break-before: auto; string-set: none }
nav a { display: block; text-decoration: none; color: black }
nav a::after { content: leader(dotted) target-counter(attr(href), page) }
h2 { font-size: 11pt }
p { margin: 0 0 4pt }
"""


def main():
    out, chapters, paras = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    rng = random.Random(11)
    parts = ['<!DOCTYPE html><html lang="en"><head><meta charset="utf-8"><title>Cross References</title>',
             '<meta name="author" content="Pat Printer"><meta name="subject" content="Page numbers">',
             '<meta name="keywords" content="toc, leaders">', "<style>%s</style></head><body>" % STYLE,
             "<nav><h1>Contents</h1>"]
    for c in range(1, chapters + 1):
        parts.append('<a href="#ch%d">Chapter %d</a>' % (c, c))
    parts.append("</nav>")
    for c in range(1, chapters + 1):
        parts.append('<h1 id="ch%d">Chapter %d</h1>' % (c, c))
        parts.append("<p>Opening of chapter %d.</p>" % c)
        # Chapters of different lengths, so that page numbers are not a simple sequence.
        for s in range(1, 3):
            parts.append('<h2 id="s%d_%d">Section %d.%d</h2>' % (c, s, c, s))
            for _ in range(paras + rng.randint(-3, 3)):
                n = rng.randint(25, 60)
                parts.append("<p>%s.</p>" % " ".join(rng.choice(WORDS) for _ in range(n)))
    parts.append("</body></html>")
    with open(out, "w", encoding="utf-8") as f:
        f.write("\n".join(parts))


if __name__ == "__main__":
    main()
