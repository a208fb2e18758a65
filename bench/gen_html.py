#!/usr/bin/python3
"""Writes a large HTML document for the parser benchmark: paragraphs with inline markup and character
references, tables, nested lists, comments and attributes. Usage: gen_html.py OUT [MEGABYTES]"""
import random
import sys

WORDS = ("the quick brown fox jumps over a lazy dog while typesetting pages of glue and penalties "
         "kerning ligature baseline leading hyphen widow orphan column gutter margin").split()
ENTITIES = ["&amp;", "&lt;", "&gt;", "&quot;", "&nbsp;", "&eacute;", "&mdash;", "&#169;", "&#x2014;", "&hellip;"]


def words(rng, n):
    out = []
    for _ in range(n):
        r = rng.random()
        if r < 0.05:
            out.append(rng.choice(ENTITIES))
        elif r < 0.09:
            out.append("<em>%s</em>" % rng.choice(WORDS))
        elif r < 0.12:
            out.append('<a href="#s%d" title="%s">%s</a>' % (rng.randrange(1000), rng.choice(WORDS), rng.choice(WORDS)))
        elif r < 0.14:
            out.append("<b class=strong>%s</b>" % rng.choice(WORDS))
        else:
            out.append(rng.choice(WORDS))
    return " ".join(out)


def block(rng, i):
    kind = rng.random()
    if kind < 0.6:
        return '<p id="p%d" class="body para">%s\n' % (i, words(rng, rng.randrange(20, 80)))
    if kind < 0.75:
        rows = []
        for r in range(rng.randrange(2, 8)):
            cells = "".join("<td align=right data-col='%d'>%s" % (c, words(rng, 3)) for c in range(4))
            rows.append("<tr>%s" % cells)
        return '<table border="1"><caption>%s</caption><tbody>%s</table>\n' % (words(rng, 4), "".join(rows))
    if kind < 0.9:
        items = "".join("<li>%s<ul><li>%s</ul>" % (words(rng, 8), words(rng, 5)) for _ in range(rng.randrange(2, 6)))
        return "<ol start=%d>%s</ol>\n" % (rng.randrange(1, 9), items)
    if kind < 0.95:
        return "<!-- section %d: %s -->\n<h2 id=h%d>%s</h2>\n" % (i, words(rng, 5), i, words(rng, 4))
    return "<pre>%s\n%s</pre>\n<div><img src=\"img%d.png\" alt=\"%s\"><br></div>\n" % (
        words(rng, 6), words(rng, 6), i, rng.choice(WORDS))


def main():
    out = sys.argv[1]
    target = int(float(sys.argv[2]) * 1024 * 1024) if len(sys.argv) > 2 else 20 * 1024 * 1024
    rng = random.Random(42)
    parts = ['<!DOCTYPE html>\n<html lang="en"><head><meta charset="utf-8"><title>Benchmark</title>'
             '<style>p { margin: 0 }</style></head>\n<body>\n']
    size = len(parts[0])
    i = 0
    while size < target:
        b = block(rng, i)
        parts.append(b)
        size += len(b)
        i += 1
    parts.append("</body></html>\n")
    with open(out, "w", encoding="utf-8") as f:
        f.write("".join(parts))


if __name__ == "__main__":
    main()
