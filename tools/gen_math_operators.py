#!/usr/bin/env python3
"""Writes resources/math/operators.xml, the operator dictionary of the MathML layout.

No machine-readable operator dictionary is installed here, so the table below is written from the
values that the MathML recommendations publish for their operator dictionary (form, lspace, rspace
and the stretchy, symmetric, largeop, movablelimits, accent and fence properties), grouped the way
MathML Core groups operators into categories of equal spacing. Characters are checked against the
Unicode character database installed by Debian (/usr/share/unicode/UnicodeData.txt): every entry must
be a real, assigned character sequence, and its name is written beside it.

Regenerate with:  python3 tools/gen_math_operators.py > resources/math/operators.xml
"""

import sys
from xml.sax.saxutils import quoteattr

UNICODE_DATA = "/usr/share/unicode/UnicodeData.txt"

# Spaces in the dictionary are the named math spaces, eighteenths of an em.
SPACE = {0: "0em", 1: "veryverythinmathspace", 2: "verythinmathspace", 3: "thinmathspace",
         4: "mediummathspace", 5: "thickmathspace", 6: "verythickmathspace", 7: "veryverythickmathspace"}

FENCES_OPEN = "([{|\u2016\u2308\u230a\u27e8\u27e6\u27ea\u27ec\u27ee\u2983\u2985\u2987\u2989\u298b\u298d\u298f\u2991\u2993\u2995\u2997\u3008\u300a\u2329"
FENCES_CLOSE = ")]}|\u2016\u2309\u230b\u27e9\u27e7\u27eb\u27ed\u27ef\u2984\u2986\u2988\u298a\u298c\u298e\u2990\u2992\u2994\u2996\u2998\u3009\u300b\u232a"

# Large operators whose limits move to script positions outside display style.
LARGE_MOVABLE = "\u2211\u220f\u2210\u22c0\u22c1\u22c2\u22c3\u2a00\u2a01\u2a02\u2a03\u2a04\u2a05\u2a06\u2a09\u2afc\u2aff"
# Integrals keep their limits beside them.
INTEGRALS = "\u222b\u222c\u222d\u222e\u222f\u2230\u2231\u2232\u2233\u2a0b\u2a0c\u2a0d\u2a0e\u2a0f\u2a10\u2a11\u2a12\u2a13\u2a14\u2a15\u2a16\u2a17\u2a18\u2a19\u2a1a\u2a1b\u2a1c"
RELATIONS = ("=<>\u2260\u2264\u2265\u2266\u2267\u2248\u2261\u2262\u223c\u2243\u2245\u2247\u2249\u224d\u2250\u2252\u2253"
             "\u221d\u2282\u2283\u2284\u2285\u2286\u2287\u2288\u2289\u228a\u228b\u228f\u2290\u2291\u2292\u2208\u2209"
             "\u220b\u220c\u226a\u226b\u227a\u227b\u227c\u227d\u2aaf\u2ab0\u22a5\u2225\u2226\u2223\u2224\u22a2\u22a3"
             "\u22a8\u22a9\u22ad\u2234\u2235\u2237\u2254\u2255\u225c\u225f\u2259\u22b2\u22b3\u22b4\u22b5\u226e\u226f"
             "\u2270\u2271\u2a7d\u2a7e\u22d8\u22d9\u2243\u2246\u227e\u227f\u22e6\u22e7")
ARROWS_H = ("\u2190\u2192\u2194\u21d0\u21d2\u21d4\u21a6\u27f5\u27f6\u27f7\u27f8\u27f9\u27fa\u27fc\u21a9\u21aa"
            "\u21bc\u21bd\u21c0\u21c1\u21cb\u21cc\u219e\u21a0\u21a2\u21a3\u2906\u2907")
ARROWS_V = "\u2191\u2193\u2195\u21d1\u21d3\u21d5\u21a5\u21a7"
BINARY = ("+\u2212\u00b1\u2213\u00d7\u00f7\u22c5\u2219\u2218\u2217\u2295\u2296\u2297\u2298\u2299\u222a\u2229"
          "\u2227\u2228\u2216\u22c6\u228e\u2293\u2294\u25b3\u25bd\u2020\u2021\u22c4\u22ba\u22bb\u22bc\u229e\u229f"
          "\u22a0\u22a1\u2240\u22d2\u22d3*\u00b7")
PREFIX_ORD = "\u00ac\u2200\u2203\u2204\u2202\u2207\u221a\u221b\u221c\u2220\u2221\u2222"
POSTFIX_ORD = "!\u2032\u2033\u2034\u2057%\u2035\u2036\u2037\u00b0"
ACCENTS = "^~\u00af\u02c6\u02c7\u02d8\u02d9\u02dc\u00a8\u02da\u0302\u0303\u0304\u0305\u0306\u0307\u0308\u030c\u20d7\u2192\u2190\u2194\u203e_\u23de\u23df\u23dc\u23dd\u23b4\u23b5\ufe37\ufe38"
STRETCHY_ACCENTS = "^~\u00af\u02c6\u02c7\u02dc\u203e_\u23de\u23df\u23dc\u23dd\u23b4\u23b5\ufe37\ufe38\u2192\u2190\u2194\u20d7\u0302\u0303\u0304\u0305"
INVISIBLE = "\u2061\u2062\u2063\u2064"
ELLIPSES = "\u2026\u22ef\u22ee\u22f0\u22f1"
FUNCTION_WORDS = ["lim", "max", "min", "sup", "inf", "lim sup", "lim inf", "liminf", "limsup", "det", "gcd",
                  "Pr"]


def entries():
    out = []

    def add(text, form, l, r, **props):
        out.append((text, form, l, r, props))

    for c in FENCES_OPEN:
        add(c, "prefix", 0, 0, fence=True, stretchy=True, symmetric=True)
    for c in FENCES_CLOSE:
        add(c, "postfix", 0, 0, fence=True, stretchy=True, symmetric=True)
    add("|", "infix", 0, 0, stretchy=True, symmetric=True, fence=True)
    add("\u2016", "infix", 0, 0, stretchy=True, symmetric=True, fence=True)
    add("\u2223", "infix", 5, 5, stretchy=True, symmetric=True)
    add("/", "infix", 0, 0, stretchy=True, symmetric=True)
    add("\\", "infix", 0, 0, stretchy=True, symmetric=True)
    for c in LARGE_MOVABLE:
        add(c, "prefix", 1, 2, largeop=True, movablelimits=True, symmetric=True)
    for c in INTEGRALS:
        add(c, "prefix", 1, 2, largeop=True, symmetric=True)
    for c in RELATIONS:
        add(c, "infix", 5, 5)
    for c in ARROWS_H:
        add(c, "infix", 5, 5, stretchy=True)
    for c in ARROWS_V:
        add(c, "infix", 5, 5, stretchy=True)
    for c in BINARY:
        add(c, "infix", 4, 4)
    for c in "+\u2212\u00b1\u2213":
        add(c, "prefix", 0, 0)
    for c in PREFIX_ORD:
        add(c, "prefix", 0, 0)
    for c in POSTFIX_ORD:
        add(c, "postfix", 0, 0)
    for c in ACCENTS:
        add(c, "postfix", 0, 0, accent=True, stretchy=c in STRETCHY_ACCENTS)
    for c in INVISIBLE:
        add(c, "infix", 0, 0)
    for c in ELLIPSES:
        add(c, "infix", 0, 0)
    add(",", "infix", 0, 3, separator=True)
    add(";", "infix", 0, 3, separator=True)
    add(":", "infix", 5, 5)
    add(".", "infix", 0, 3, separator=True)
    add("'", "postfix", 0, 0)
    add("&", "postfix", 0, 0)
    add(":=", "infix", 5, 5)
    add("!=", "infix", 5, 5)
    add("==", "infix", 5, 5)
    add("<=", "infix", 5, 5)
    add(">=", "infix", 5, 5)
    add("->", "infix", 5, 5)
    add("++", "postfix", 0, 0)
    add("--", "postfix", 0, 0)
    for w in FUNCTION_WORDS:
        add(w, "prefix", 0, 3, movablelimits=True)
    add("\u2061", "infix", 0, 0)
    # One entry per (text, form): the first written wins.
    seen = set()
    unique = []
    for e in out:
        key = (e[0], e[1])
        if key not in seen:
            seen.add(key)
            unique.append(e)
    return unique


def names():
    table = {}
    with open(UNICODE_DATA, encoding="utf-8") as f:
        for line in f:
            fields = line.split(";")
            table[int(fields[0], 16)] = fields[1]
    return table


def main():
    unames = names()
    w = sys.stdout.write
    w('<?xml version="1.0" encoding="UTF-8"?>\n')
    w("<!-- The operator dictionary of the MathML layout. Generated by tools/gen_math_operators.py;\n"
      "     do not edit: change the generator and run\n"
      "     python3 tools/gen_math_operators.py > resources/math/operators.xml -->\n")
    w("<operators>\n")
    for text, form, l, r, props in entries():
        for ch in text:
            if ord(ch) not in unames and not ch.isascii():
                sys.exit("not an assigned character: U+%04X" % ord(ch))
        attrs = [("text", text), ("form", form), ("lspace", SPACE[l]), ("rspace", SPACE[r])]
        for p in ("stretchy", "symmetric", "largeop", "movablelimits", "accent", "fence", "separator"):
            if props.get(p):
                attrs.append((p, "true"))
        label = ", ".join(unames.get(ord(c), c) for c in text) if len(text) <= 2 else text
        w("  <op " + " ".join("%s=%s" % (k, quoteattr(v)) for k, v in attrs) + "/>"
          + " <!-- " + label.replace("--", "- -") + " -->\n")
    w("</operators>\n")


if __name__ == "__main__":
    main()
