#!/usr/bin/env python3
"""Writes src/text/unicode_tables.inc, the per-code-point property tables of the unicode modules.

Run from the repository root:  python3 tools/gen_unicode_tables.py [ucd-dir]
The data comes from the Unicode Character Database as Debian's unicode-data package installs it
(default /usr/share/unicode): UnicodeData.txt, Scripts.txt, PropertyValueAliases.txt,
BidiMirroring.txt, LineBreak.txt, EastAsianWidth.txt, VerticalOrientation.txt, emoji/emoji-data.txt,
and from extracted/ and
auxiliary/ the derived general category, bidi class, joining type and grapheme break properties.

Every property becomes a two-stage table: stage 1, indexed by the code point shifted right by 8, holds a
block number; stage 2 holds the deduplicated blocks of 256 one-byte values one after another, so that a
lookup is stage2[stage1[cp >> 8] * 256 + (cp & 0xFF)]. The value orders below must match the enumerations
in src/text/unicode/*.hpp.
"""
import os
import re
import sys

MAX_CP = 0x110000

# unicode.category.general_category, in enumeration order.
CATEGORIES = ["Cc", "Cf", "Cn", "Co", "Cs", "Ll", "Lm", "Lo", "Lt", "Lu", "Mc", "Me", "Mn", "Nd", "Nl",
              "No", "Pc", "Pd", "Pe", "Pf", "Pi", "Po", "Ps", "Sc", "Sk", "Sm", "So", "Zl", "Zp", "Zs"]

# unicode.bidi.bidi_class, in enumeration order, by the short names of the data files.
BIDI = ["L", "LRE", "LRO", "R", "AL", "RLE", "RLO", "PDF", "EN", "ES", "ET", "AN", "CS", "NSM", "BN", "B",
        "S", "WS", "ON"]
# The isolate controls came after the model our bidi pass implements; they act as other neutrals.
BIDI_FALLBACK = {"LRI": "ON", "RLI": "ON", "FSI": "ON", "PDI": "ON"}

# unicode.joining.joining_class, in enumeration order, by joining type.
JOINING = ["R", "D", "C", "U", "T"]
# Left-joining letters (a few in Phags-pa, Manichaean, ...) have no class of their own here; treating
# them as non-joining never produces a wrong joined form, it only misses the join to the next letter.
JOINING_FALLBACK = {"L": "U"}

# unicode.script.script, in enumeration order, by ISO 15924 code (qaai is the old code of Zinh).
SCRIPTS = ["arab", "armn", "bali", "beng", "bopo", "brai", "bugi", "buhd", "cans", "cari", "cher", "cham",
           "copt", "cprt", "cyrl", "deva", "dsrt", "ethi", "geor", "glag", "goth", "grek", "gujr", "guru",
           "hang", "hani", "hano", "hebr", "hira", "ital", "kali", "kana", "khar", "khmr", "knda", "laoo",
           "latn", "lepc", "limb", "linb", "lyci", "lydi", "mlym", "mong", "mymr", "nkoo", "ogam", "olck",
           "orya", "osma", "phag", "phnx", "qaai", "rjng", "runr", "saur", "shaw", "sinh", "sund", "sylo",
           "syrc", "tagb", "tale", "talu", "taml", "telu", "tfng", "tglg", "thaa", "thai", "tibt", "ugar",
           "vaii", "xpeo", "xsux", "yiii", "zyyy", "zzzz"]
assert len(SCRIPTS) == 78

# grapheme_boundary.grapheme_class, in enumeration order.
GRAPHEME = ["control", "extend", "ri", "other"]

# unicode.linebreak.line_break_class, in enumeration order.
LINE_BREAK = ["BK", "CR", "LF", "CM", "NL", "SG", "WJ", "ZW", "GL", "SP", "ZWJ", "B2", "BA", "BB", "HY",
              "CB", "CL", "CP", "EX", "IN", "NS", "OP", "QU", "IS", "NU", "PO", "PR", "SY", "AI", "AL",
              "CJ", "EB", "EM", "H2", "H3", "HL", "ID", "JL", "JT", "JV", "RI", "SA", "XX"]
# Flags in the line-break table beside the class in the low six bits: an opening or closing
# punctuation that is East Asian wide (rule LB30 leaves those out), and a reserved code point with the
# Extended_Pictographic property (rule LB30b keeps an emoji modifier on it).
LB_EAST_ASIAN = 0x40
LB_PICTOGRAPHIC_RESERVED = 0x80

# unicode.vertical.orientation, in enumeration order, by the values of the Vertical_Orientation
# property: rotated sideways, upright, and the two that a font's vertical forms transform, falling back
# to upright or to rotated where the font has none.
VERTICAL = ["R", "U", "Tu", "Tr"]


def data_lines(path):
    """Yields (first, last, fields) for each data line of a UCD file."""
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if not line:
                continue
            fields = [x.strip() for x in line.split(";")]
            cps = fields[0].split("..")
            first = int(cps[0], 16)
            last = int(cps[1], 16) if len(cps) > 1 else first
            yield first, last, fields[1:]


def missing_lines(path):
    """Yields (first, last, value) for each '@missing' default, in file order."""
    with open(path, encoding="utf-8") as f:
        for line in f:
            m = re.match(r"#\s*@missing:\s*([0-9A-F]+)\.\.([0-9A-F]+)\s*;\s*([^;#\s]+)", line)
            if m:
                yield int(m.group(1), 16), int(m.group(2), 16), m.group(3)


def property_table(path, default_map=None):
    """A list of the property value of each code point, @missing defaults applied first."""
    values = [None] * MAX_CP
    for first, last, value in missing_lines(path):
        for cp in range(first, last + 1):
            values[cp] = value
    for first, last, fields in data_lines(path):
        for cp in range(first, last + 1):
            values[cp] = fields[0]
    return values


def unicode_data(ucd):
    """Simple upper and lower case mappings from UnicodeData.txt."""
    upper = {}
    lower = {}
    with open(os.path.join(ucd, "UnicodeData.txt"), encoding="utf-8") as f:
        for line in f:
            fields = line.rstrip("\n").split(";")
            cp = int(fields[0], 16)
            if fields[12]:
                upper[cp] = int(fields[12], 16)
            if fields[13]:
                lower[cp] = int(fields[13], 16)
    return upper, lower


def version(ucd):
    with open(os.path.join(ucd, "LineBreak.txt"), encoding="utf-8") as f:
        m = re.match(r"# LineBreak-(\d+\.\d+\.\d+)\.txt", f.readline())
        return m.group(1)


def two_stage(name, values):
    """C++ text for a two-stage table of byte values."""
    assert len(values) == MAX_CP
    blocks = {}
    stage1 = []
    stage2 = []
    for hi in range(MAX_CP >> 8):
        block = tuple(values[hi << 8:(hi + 1) << 8])
        assert all(0 <= v < 256 for v in block)
        if block not in blocks:
            blocks[block] = len(blocks)
            stage2.extend(block)
        stage1.append(blocks[block])
    assert len(blocks) < 65536
    out = []
    out.append("// %s: %d blocks of 256.\n" % (name, len(blocks)))
    out.append("std::uint16_t const %s_stage1[%d] = {\n" % (name, len(stage1)))
    out.append(number_lines(stage1))
    out.append("};\n")
    out.append("std::uint8_t const %s_stage2[%d] = {\n" % (name, len(stage2)))
    out.append(number_lines(stage2))
    out.append("};\n")
    return "".join(out), len(stage1) * 2 + len(stage2)


def number_lines(numbers, per_line=24):
    lines = []
    for i in range(0, len(numbers), per_line):
        lines.append("    " + ",".join(str(n) for n in numbers[i:i + per_line]) + ",\n")
    return "".join(lines)


def delta_table(name, mapping):
    """A mapping cp -> cp as a table of indexes into a list of deltas (index 0 is delta 0)."""
    deltas = [0]
    index = {0: 0}
    values = [0] * MAX_CP
    for cp, target in sorted(mapping.items()):
        d = target - cp
        if d not in index:
            index[d] = len(deltas)
            deltas.append(d)
        values[cp] = index[d]
    assert len(deltas) < 256, name
    text, size = two_stage(name, values)
    text += "std::int32_t const %s_deltas[%d] = {\n" % (name, len(deltas))
    text += number_lines(deltas, 12)
    text += "};\n"
    return text, size + 4 * len(deltas)


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    ucd = sys.argv[1] if len(sys.argv) > 1 else "/usr/share/unicode"
    target = os.path.join(root, "src", "text", "unicode_tables.inc")
    ver = version(ucd)

    gc = property_table(os.path.join(ucd, "extracted", "DerivedGeneralCategory.txt"))
    gc = [g or "Cn" for g in gc]
    category = [CATEGORIES.index(g) for g in gc]

    bidi_raw = property_table(os.path.join(ucd, "extracted", "DerivedBidiClass.txt"))
    bidi_names = {}
    with open(os.path.join(ucd, "PropertyValueAliases.txt"), encoding="utf-8") as f:
        script_codes = {}
        for line in f:
            fields = [x.strip() for x in line.split("#", 1)[0].split(";")]
            if fields[0] == "bc":
                bidi_names[fields[2]] = fields[1]
                bidi_names[fields[1]] = fields[1]
            elif fields[0] == "sc":
                script_codes[fields[2]] = fields[1].lower()
                script_codes[fields[1]] = fields[1].lower()
    bidi = []
    for b in bidi_raw:
        short = bidi_names[b or "Left_To_Right"]
        short = BIDI_FALLBACK.get(short, short)
        bidi.append(BIDI.index(short))

    joining_raw = property_table(os.path.join(ucd, "extracted", "DerivedJoiningType.txt"))
    joining_short = {"Non_Joining": "U"}
    joining = []
    for j in joining_raw:
        short = joining_short.get(j, j) or "U"
        short = JOINING_FALLBACK.get(short, short)
        joining.append(JOINING.index(short))

    script_raw = property_table(os.path.join(ucd, "Scripts.txt"))
    script = []
    for s in script_raw:
        code = script_codes[s or "Unknown"]
        if code == "zinh":
            code = "qaai"
        # A script outside the set that fonts are shaped for is a script we know nothing about.
        script.append(SCRIPTS.index(code if code in SCRIPTS else "zzzz"))

    gcb = property_table(os.path.join(ucd, "auxiliary", "GraphemeBreakProperty.txt"))
    grapheme = []
    for cp in range(MAX_CP):
        g = gc[cp]
        if g == "Mn":
            cls = "extend"
        elif g in ("Zs", "Zl", "Zp", "Cc", "Cf", "Cs", "Cn"):
            cls = "control"
        else:
            cls = "other"
        # Where the category alone says too little, the grapheme break property decides. Sk is among
        # those only for the emoji skin-tone modifiers, which extend the emoji before them.
        b = gcb[cp] or "Other"
        if g in ("Lm", "Mc", "Me", "Zs", "Cf", "Cn", "Sk") or b == "Regional_Indicator":
            if b in ("CR", "LF", "Control"):
                cls = "control"
            elif b in ("Extend", "SpacingMark", "ZWJ"):
                cls = "extend"
            elif b == "Regional_Indicator":
                cls = "ri"
            else:
                cls = "other"
        grapheme.append(GRAPHEME.index(cls))

    lb_raw = property_table(os.path.join(ucd, "LineBreak.txt"))
    eaw = property_table(os.path.join(ucd, "EastAsianWidth.txt"))
    pictographic = [False] * MAX_CP
    for first, last, fields in data_lines(os.path.join(ucd, "emoji", "emoji-data.txt")):
        if fields[0] == "Extended_Pictographic":
            for cp in range(first, last + 1):
                pictographic[cp] = True
    line_break = []
    for cp in range(MAX_CP):
        cls = lb_raw[cp] or "XX"
        v = LINE_BREAK.index(cls)
        if cls in ("OP", "CP") and eaw[cp] in ("F", "W", "H"):
            v |= LB_EAST_ASIAN
        if pictographic[cp] and gc[cp] == "Cn":
            v |= LB_PICTOGRAPHIC_RESERVED
        line_break.append(v)

    vertical = [VERTICAL.index(v or "R") for v in
                property_table(os.path.join(ucd, "VerticalOrientation.txt"))]

    upper, lower = unicode_data(ucd)
    mirror = {}
    for first, _, fields in data_lines(os.path.join(ucd, "BidiMirroring.txt")):
        mirror[first] = int(fields[0], 16)

    parts = []
    total = 0
    for name, values in (("category", category), ("bidi", bidi), ("joining", joining),
                         ("script", script), ("grapheme", grapheme), ("line_break", line_break),
                         ("vertical", vertical)):
        text, size = two_stage(name, values)
        parts.append(text)
        total += size
    for name, mapping in (("lower", lower), ("upper", upper), ("mirror", mirror)):
        text, size = delta_table(name, mapping)
        parts.append(text)
        total += size

    with open(target, "w", encoding="ascii", newline="\n") as f:
        f.write("// Generated by tools/gen_unicode_tables.py from the Unicode Character Database %s.\n" % ver)
        f.write("// Do not edit. To regenerate, install Debian's unicode-data and run from the repository\n")
        f.write("// root:  python3 tools/gen_unicode_tables.py\n")
        f.write("// Tables take %d bytes in all.\n\n" % total)
        f.write("char const unicode_version[] = \"%s\";\n\n" % ver)
        f.write("\n".join(parts))
    print("wrote %s (Unicode %s, %d bytes of tables)" % (target, ver, total))


if __name__ == "__main__":
    main()
