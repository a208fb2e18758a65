#!/usr/bin/python3
"""Makes a font for tests that has petite capitals and no small ones: the printable ASCII glyphs of a
font with small capitals, whose "smcp" and "c2sc" features are renamed "pcap" and "c2pc", under a new
family name.

Run with Debian's python3 (it has python3-fonttools):
    /usr/bin/python3 tools/make_petite_font.py SOURCE.ttf FAMILY OUT.ttf
"""
import sys

from fontTools import subset
from fontTools.ttLib import TTFont

RENAMED = {"smcp": "pcap", "c2sc": "c2pc"}


def main(argv):
    if len(argv) != 4:
        sys.stderr.write(__doc__)
        return 2
    source, family, out = argv[1:4]
    options = subset.Options()
    options.name_IDs = ["*"]
    options.notdef_outline = True
    options.layout_features = ["kern", "liga", "smcp", "c2sc"]
    font = TTFont(source)
    subsetter = subset.Subsetter(options)
    subsetter.populate(unicodes=range(0x20, 0x7F))
    subsetter.subset(font)
    renamed = 0
    for record in font["GSUB"].table.FeatureList.FeatureRecord:
        if record.FeatureTag in RENAMED:
            record.FeatureTag = RENAMED[record.FeatureTag]
            renamed += 1
    if renamed == 0:
        sys.stderr.write(source + " has no small capitals\n")
        return 1
    for record in font["name"].names:
        if record.nameID in (1, 4, 16, 18):
            record.string = family
        elif record.nameID == 6:
            record.string = family.replace(" ", "")
        elif record.nameID in (2, 17):
            record.string = "Regular"
    font.save(out)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
