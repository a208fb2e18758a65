#!/usr/bin/python3
"""Makes a small font for tests: the printable ASCII glyphs of a free TrueType font under a new family
name, written as a plain TrueType file and, with --woff, as WOFF 1.0 too.

Run with Debian's python3 (it has python3-fonttools):
    /usr/bin/python3 tools/make_test_font.py SOURCE.ttf FAMILY OUT.ttf [--woff OUT.woff]
"""
import sys

from fontTools import subset
from fontTools.ttLib import TTFont


def rename(font, family):
    # Family, full name and PostScript name all change, so a PDF reader lists the new face by its name.
    postscript = family.replace(" ", "")
    for record in font["name"].names:
        if record.nameID in (1, 16):
            record.string = family
        elif record.nameID in (4, 18):
            record.string = family
        elif record.nameID == 6:
            record.string = postscript
        elif record.nameID in (2, 17):
            record.string = "Regular"
        elif record.nameID == 3:
            record.string = postscript + "-test"


def main(argv):
    if len(argv) < 4:
        sys.stderr.write(__doc__)
        return 2
    source, family, out_ttf = argv[1:4]
    out_woff = argv[5] if len(argv) > 5 and argv[4] == "--woff" else None
    options = subset.Options()
    options.name_IDs = ["*"]
    options.notdef_outline = True
    options.layout_features = ["kern", "liga"]
    font = TTFont(source)
    subsetter = subset.Subsetter(options)
    subsetter.populate(unicodes=range(0x20, 0x7F))
    subsetter.subset(font)
    rename(font, family)
    font.flavor = None
    font.save(out_ttf)
    if out_woff:
        font.flavor = "woff"
        font.save(out_woff)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
