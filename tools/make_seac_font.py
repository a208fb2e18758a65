#!/usr/bin/python3
"""Makes a small CFF-based OpenType font for tests whose accented letters are written the old way: as an
endchar with four operands (adx ady bchar achar) that draws a base glyph and an accent glyph of the
standard encoding. The glyphs come from a name-keyed CFF font (the URW fonts of fonts-urw-base35); the
subroutines are kept, so that a subsetter has to follow and renumber them.

Run with Debian's python3 (it has python3-fonttools):
    /usr/bin/python3 tools/make_seac_font.py SOURCE.otf FAMILY OUT.otf
"""
import sys

from fontTools import subset
from fontTools.pens.boundsPen import BoundsPen
from fontTools.ttLib import TTFont

# Accented letter, base letter and accent, by glyph name; the standard encoding codes of base and
# accent are what the charstring names.
ACCENTED = {
    "eacute": ("e", "acute"),
    "Eacute": ("E", "acute"),
    "agrave": ("a", "grave"),
    "udieresis": ("u", "dieresis"),
}
STANDARD_CODES = {"e": 0x65, "E": 0x45, "a": 0x61, "u": 0x75, "acute": 0xC2, "grave": 0xC1, "dieresis": 0xC8}


def bounds(charstrings, name):
    pen = BoundsPen(None)
    charstrings[name].draw(pen)
    return pen.bounds


def main(argv):
    if len(argv) != 4:
        sys.stderr.write(__doc__)
        return 2
    source, family, out = argv[1:4]
    options = subset.Options()
    options.name_IDs = ["*"]
    options.notdef_outline = True
    options.layout_features = ["kern"]
    options.glyph_names = True
    font = TTFont(source)
    subsetter = subset.Subsetter(options)
    subsetter.populate(unicodes=list(range(0x20, 0x7F)) + [0xE9, 0xC9, 0xE0, 0xFC],
                       glyphs=[a for pair in ACCENTED.values() for a in pair])
    subsetter.subset(font)

    cff = font["CFF "].cff
    top = cff.topDictIndex[0]
    charstrings = top.CharStrings
    private = top.Private
    for accented, (base, accent) in ACCENTED.items():
        whole = bounds(charstrings, accented)
        b = bounds(charstrings, base)
        a = bounds(charstrings, accent)
        # The accent is drawn moved by (adx, ady): centred over the base, and as high as in the glyph it
        # replaces.
        adx = round((b[0] + b[2]) / 2 - (a[0] + a[2]) / 2)
        ady = round(whole[3] - a[3])
        width = font["hmtx"][accented][0]
        program = [] if width == private.defaultWidthX else [width - private.nominalWidthX]
        program += [adx, ady, STANDARD_CODES[base], STANDARD_CODES[accent], "endchar"]
        cs = charstrings[accented]
        cs.program = program
        cs.bytecode = None
    for record in font["name"].names:
        if record.nameID in (1, 4, 16, 18):
            record.string = family
        elif record.nameID == 6:
            record.string = family.replace(" ", "")
        elif record.nameID in (2, 17):
            record.string = "Regular"
    cff.fontNames = [family.replace(" ", "")]
    font.save(out)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
