#!/usr/bin/python3
"""Writes a long book as one HTML document for the end-to-end benchmark: chapters with headings, justified
paragraphs with inline markup, bulleted and numbered lists and block quotations, under a page style with a
running header and page numbers. About 1,000 words fill an A5 page at 10pt, so PAGES is approximate.
Usage: gen_book.py OUT [PAGES]"""
import random
import sys

WORDS = ("the quick brown fox jumps over a lazy dog while compositors set pages of type with glue and "
         "penalties kerning ligatures baselines leading hyphenation widows orphans columns gutters margins "
         "typography paragraphs justification interword spacing running headers footnotes signatures "
         "folios recto verso imposition vellum parchment").split()

STYLE = """
@page { size: A5; margin: 18mm 15mm 20mm;
        @top-center { content: string(chapter); font-size: 8pt; }
        @bottom-center { content: counter(page); font-size: 8pt; } }
body { font-family: serif; font-size: 10pt; line-height: 1.35; hyphens: auto; }
h1 { font-size: 18pt; break-before: page; string-set: chapter content(text); margin: 0 0 12pt; }
h2 { font-size: 12pt; break-after: avoid; margin: 12pt 0 4pt; }
p { text-align: justify; margin: 0; text-indent: 1em; orphans: 2; widows: 2; }
blockquote { margin: 6pt 2em; font-style: italic; }
ul, ol { margin: 4pt 0 4pt 2em; }
"""


def sentence(rng):
    n = rng.randint(8, 22)
    out = []
    for _ in range(n):
        w = rng.choice(WORDS)
        r = rng.random()
        if r < 0.03:
            w = "<em>%s</em>" % w
        elif r < 0.05:
            w = "<b>%s</b>" % w
        out.append(w)
    s = " ".join(out)
    return s[0].upper() + s[1:] + rng.choice([".", ".", ".", ",", ";", "?"])


def paragraph(rng):
    return "<p>%s</p>" % " ".join(sentence(rng) for _ in range(rng.randint(3, 8)))


def main():
    out = sys.argv[1]
    pages = int(sys.argv[2]) if len(sys.argv) > 2 else 100
    rng = random.Random(7)
    target_words = pages * 330
    words = 0
    chapter = 0
    parts = ["<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>A Long Book</title>",
             "<style>%s</style></head><body>" % STYLE]
    while words < target_words:
        chapter += 1
        parts.append("<h1>Chapter %d</h1>" % chapter)
        for section in range(1, rng.randint(3, 6)):
            parts.append("<h2>%d.%d %s</h2>" % (chapter, section, sentence(rng).rstrip(".,;?")))
            for _ in range(rng.randint(4, 9)):
                r = rng.random()
                if r < 0.1:
                    tag = rng.choice(["ul", "ol"])
                    items = "".join("<li>%s</li>" % sentence(rng) for _ in range(rng.randint(2, 6)))
                    parts.append("<%s>%s</%s>" % (tag, items, tag))
                elif r < 0.15:
                    parts.append("<blockquote>%s</blockquote>" % sentence(rng))
                else:
                    parts.append(paragraph(rng))
                words += len(parts[-1].split())
    parts.append("</body></html>\n")
    with open(out, "w", encoding="utf-8") as f:
        f.write("\n".join(parts))


if __name__ == "__main__":
    main()
