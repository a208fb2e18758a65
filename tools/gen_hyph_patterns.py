#!/usr/bin/env python3
"""Writes resources/hyph/*.pat, the hyphenation patterns installed under the prefix.

Run from the repository root:  /usr/bin/python3 tools/gen_hyph_patterns.py
The sources are the libhyphen dictionaries of Debian's hyphen-* packages (installed by
scripts/setup-debian.sh), in /usr/share/hyphen/. Most of them are conversions of the TeX pattern files.

A dictionary's first line names its character set; then come header keywords (LEFTHYPHENMIN,
COMPOUNDLEFTHYPHENMIN, NOHYPHEN, ...), comments starting with "%" or "#", and patterns. A two-level
dictionary splits at NEXTLEVEL into compound-boundary patterns (or a list of compound words) and the
ordinary word patterns; only the last level is kept, since a pattern file here has a single level.
Non-standard patterns with a replacement ("c1k/k=k,1,2") have no plain Liang form and are dropped.

The output is UTF-8, one pattern per line. The first lines are comments that say where the file came
from and under which licence; they hold no decimal digit, which is what makes the pattern reader skip
them, so numbers in them are spelled out.
"""
import os
import re
import sys

HYPHEN_DIR = "/usr/share/hyphen"

# (output, source file, Debian package, language and origin, authors and licence of the source)
SOURCES = [
    ("en-us.pat", "hyph_en_US.dic", "hyphen-en-us",
     "English (US): the patterns of Liang and Knuth for TeX (hyphen.tex), as converted for libhyphen",
     "Copyright Raph Levien, ALTLinux, László Németh. Licence: GNU GPL version two or later, "
     "or GNU LGPL version two point one or later, or Mozilla Public License version one point one "
     "or later, at your choice"),
    ("en-gb.pat", "hyph_en_GB.dic", "hyphen-en-gb",
     "English (GB): based on the TeX patterns ukhyphen.tex",
     "Copyright Dominik Wujastyk, Graham Toal. Licence: BSD-style. Unlimited copying, redistribution "
     "and modification of this file is permitted with this copyright and license information"),
    ("de.pat", "hyph_de_DE.dic", "hyphen-de",
     "German (reformed spelling): based on the TeX hyphenation tables dehyphn.tex (LPPL)",
     "Copyright Marco Huggenberger, Daniel Naber, Karl Zeiler. Licence: GNU LGPL version two or later"),
    ("fr.pat", "hyph_fr.dic", "hyphen-fr",
     "French: from the TeX patterns hyph-fr.tex",
     "Copyright Blaise Drayer, Marc Lodewijck, Paul Pichaureau. Licence: GNU LGPL version two point one "
     "or later"),
    ("es.pat", "hyph_es_ES.dic", "hyphen-es",
     "Spanish: the libhyphen patterns of the Spanish dictionary",
     "Copyright Santiago Bosio. Licence: GNU GPL version three or later, or GNU LGPL version three or "
     "later, or Mozilla Public License version one point one or later, at your choice"),
    ("it.pat", "hyph_it_IT.dic", "hyphen-it",
     "Italian: the libhyphen patterns of the Italian dictionary",
     "Copyright Giuseppe Bilotta. Licence: GNU LGPL"),
    ("nl.pat", "hyph_nl_NL.dic", "hyphen-nl",
     "Dutch: from the patterns of the Nederlandstalige TeX Gebruikersgroep, revised by OpenTaal",
     "Copyright Nederlandstalige TeX Gebruikersgroep, Simon Brouwer and others, OpenTaal. Licence: "
     "BSD two-clause, or Creative Commons Attribution version three"),
    ("pt.pat", "hyph_pt_PT.dic", "hyphen-pt-pt",
     "Portuguese: the libhyphen patterns of the Portuguese dictionary",
     "Copyright Paulo Morgado. Licence: GNU GPL version two"),
]

HEADER_KEYWORD = re.compile(r"^[A-Z][A-Z0-9_]*(\s|$)")
CHARSETS = {"UTF-8": "utf-8", "ISO8859-1": "latin-1", "ISO8859-15": "iso8859-15"}


def read_patterns(path):
    with open(path, "rb") as f:
        raw = f.read()
    first, _, rest = raw.partition(b"\n")
    charset = first.decode("ascii").strip()
    if charset not in CHARSETS:
        sys.exit(f"{path}: unknown character set {charset!r}")
    levels = [[]]
    for line in rest.decode(CHARSETS[charset]).splitlines():
        line = line.strip()
        if not line or line[0] in "%#":
            continue
        if line == "NEXTLEVEL":
            levels.append([])
            continue
        if HEADER_KEYWORD.match(line):
            continue
        if "/" in line:
            continue
        if any(c.isspace() for c in line):
            sys.exit(f"{path}: white space inside a pattern: {line!r}")
        if not any(c.isdigit() for c in line):
            continue
        levels[-1].append(line)
    patterns = levels[-1]
    seen = set()
    unique = []
    for p in patterns:
        if p not in seen:
            seen.add(p)
            unique.append(p)
    return unique


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    out_dir = os.path.join(root, "resources", "hyph")
    os.makedirs(out_dir, exist_ok=True)
    for output, source, package, origin, licence in SOURCES:
        path = os.path.join(HYPHEN_DIR, source)
        if not os.path.exists(path):
            sys.exit(f"{path} is missing: install the Debian package {package}")
        patterns = read_patterns(path)
        header = [
            f"% Made by tools/gen_hyph_patterns.py from {path} of the Debian package {package}.",
            f"% {origin}.",
            f"% {licence}.",
        ]
        for line in header:
            if any(c.isdigit() for c in line):
                sys.exit(f"{output}: a comment line holds a digit and would read as a pattern: {line!r}")
        with open(os.path.join(out_dir, output), "w", encoding="utf-8", newline="\n") as f:
            f.write("\n".join(header + patterns) + "\n")
        print(f"{output}: {len(patterns)} patterns from {source}")


if __name__ == "__main__":
    main()
