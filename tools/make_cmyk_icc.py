#!/usr/bin/env python3
"""Writes the program's CMYK output profile, resources/icc/USWebCoatedSWOP.icc.

An ICC version 2.1 output profile ("prtr", CMYK data, CIELAB connection space) built from a small
printing model: four process inks close to those of web offset on coated paper, a multiplicative
model of how inks absorb in linear RGB, and a dot gain of 20% at mid tone. The A2B0 table maps ink
to colour; the B2A0 table inverts the model with grey component replacement. It is a generic profile
for output intents and conversions, not a measured characterisation of any press.

Usage: make_cmyk_icc.py OUTPUT
"""
import math
import struct
import sys

DESCRIPTION = "Vellum generic CMYK, web offset on coated paper"
COPYRIGHT = "No copyright: this profile is placed in the public domain (CC0 1.0)."

D50 = (0.9642, 1.0, 0.8249)
# The solid inks and the paper in linear sRGB, as reflectances.
PAPER = (1.0, 1.0, 1.0)
INKS = {
    "c": (0.006, 0.42, 0.86),
    "m": (0.84, 0.006, 0.26),
    "y": (1.0, 0.89, 0.006),
    "k": (0.017, 0.014, 0.015),
}
GAIN = 0.2


def gain(a):
    """Dot gain: the printed area of a nominal coverage."""
    return a + GAIN * 4 * a * (1 - a) * 0.5


def ungain(p):
    """The nominal coverage that prints as area p."""
    # p = a + 0.4 a (1 - a), solved for a in [0, 1].
    k = GAIN * 2
    if k == 0:
        return p
    a = ((1 + k) - math.sqrt((1 + k) ** 2 - 4 * k * p)) / (2 * k)
    return min(1.0, max(0.0, a))


def srgb_to_xyz_d50(rgb):
    r, g, b = rgb
    x = 0.4124 * r + 0.3576 * g + 0.1805 * b
    y = 0.2126 * r + 0.7152 * g + 0.0722 * b
    z = 0.0193 * r + 0.1192 * g + 0.9505 * b
    # Bradford adaptation from D65 to D50.
    return (1.0478 * x + 0.0229 * y - 0.0501 * z,
            0.0295 * x + 0.9905 * y - 0.0171 * z,
            -0.0092 * x + 0.0151 * y + 0.7522 * z)


def xyz_d50_to_srgb(xyz):
    x, y, z = xyz
    # Bradford from D50 back to D65, then XYZ to linear sRGB.
    x, y, z = (0.9555 * x - 0.0231 * y + 0.0633 * z,
               -0.0284 * x + 1.0100 * y + 0.0210 * z,
               0.0123 * x - 0.0205 * y + 1.3304 * z)
    return (3.2406 * x - 1.5372 * y - 0.4986 * z,
            -0.9689 * x + 1.8758 * y + 0.0415 * z,
            0.0557 * x - 0.2040 * y + 1.0570 * z)


def f(t):
    return t ** (1 / 3) if t > (6 / 29) ** 3 else t / (3 * (6 / 29) ** 2) + 4 / 29


def finv(t):
    return t ** 3 if t > 6 / 29 else 3 * (6 / 29) ** 2 * (t - 4 / 29)


def xyz_to_lab(xyz):
    fx, fy, fz = (f(v / w) for v, w in zip(xyz, D50))
    return 116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)


def lab_to_xyz(lab):
    l, a, b = lab
    fy = (l + 16) / 116
    return tuple(w * finv(t) for w, t in zip(D50, (fy + a / 500, fy, fy - b / 200)))


def cmyk_to_rgb(cmyk):
    out = list(PAPER)
    for ink, amount in zip("cmyk", cmyk):
        area = gain(amount)
        for i in range(3):
            out[i] *= INKS[ink][i] ** area
    return out


def rgb_to_cmyk(rgb):
    """Inverts the model: densities of C, M and Y for the colour, grey replaced by black."""
    dens = [-math.log(max(1e-4, min(1.0, v))) for v in rgb]
    logs = [[-math.log(INKS[ink][i]) for ink in "cmy"] for i in range(3)]
    kd = [-math.log(INKS["k"][i]) for i in range(3)]

    def solve(d):
        # Three equations, three ink areas: Cramer's rule.
        m = logs
        det = (m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0])
               + m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]))
        out = []
        for col in range(3):
            mm = [row[:] for row in m]
            for r in range(3):
                mm[r][col] = d[r]
            out.append((mm[0][0] * (mm[1][1] * mm[2][2] - mm[1][2] * mm[2][1])
                        - mm[0][1] * (mm[1][0] * mm[2][2] - mm[1][2] * mm[2][0])
                        + mm[0][2] * (mm[1][0] * mm[2][1] - mm[1][1] * mm[2][0])) / det)
        return out

    cmy = solve(dens)
    grey = max(0.0, min(cmy))
    # Grey component replacement: black takes over the common part beyond a third of the range.
    k_area = min(1.0, max(0.0, (grey - 0.33) / 0.67) * grey * 1.2)
    cmy = solve([d - k_area * kd[i] for i, d in enumerate(dens)])
    return [ungain(min(1.0, max(0.0, v))) for v in cmy] + [ungain(k_area)]


def u16(v):
    return max(0, min(65535, int(round(v))))


def lut16(inputs, outputs, grid, func):
    """An mft2 table with identity curves around a grid of `grid` points on each input."""
    data = bytearray(b"mft2\0\0\0\0")
    data += struct.pack(">BBBB", inputs, outputs, grid, 0)
    for i in range(9):
        data += struct.pack(">i", 65536 if i in (0, 4, 8) else 0)
    data += struct.pack(">HH", 2, 2)
    data += struct.pack(">HH", 0, 65535) * inputs
    for index in range(grid ** inputs):
        coords = []
        for _ in range(inputs):
            coords.append(index % grid / (grid - 1))
            index //= grid
        coords.reverse()
        data += b"".join(struct.pack(">H", u16(v * 65535)) for v in func(coords))
    data += struct.pack(">HH", 0, 65535) * outputs
    return bytes(data)


def lab_encode(lab):
    """Lab in the 16-bit encoding of version 2 tables, as fractions of 65535."""
    l, a, b = lab
    return [l * 652.8 / 65535, (a + 128) * 256 / 65535, (b + 128) * 256 / 65535]


def lab_decode(v):
    return v[0] * 65535 / 652.8, v[1] * 65535 / 256 - 128, v[2] * 65535 / 256 - 128


def a2b(cmyk):
    return lab_encode(xyz_to_lab(srgb_to_xyz_d50(cmyk_to_rgb(cmyk))))


def b2a(lab_fraction):
    lab = lab_decode(lab_fraction)
    rgb = xyz_d50_to_srgb(lab_to_xyz(lab))
    return rgb_to_cmyk(rgb)


def s15(v):
    return struct.pack(">i", int(round(v * 65536)))


def text_description(text):
    ascii_text = text.encode("ascii") + b"\0"
    return (b"desc\0\0\0\0" + struct.pack(">I", len(ascii_text)) + ascii_text + struct.pack(">II", 0, 0)
            + struct.pack(">HB", 0, 0) + b"\0" * 67)


def profile():
    tags = [
        (b"desc", text_description(DESCRIPTION)),
        (b"cprt", b"text\0\0\0\0" + COPYRIGHT.encode("ascii") + b"\0"),
        (b"wtpt", b"XYZ \0\0\0\0" + b"".join(s15(v) for v in D50)),
        (b"A2B0", lut16(4, 3, 9, a2b)),
        (b"B2A0", lut16(3, 4, 17, b2a)),
        # Everything the tables reach counts as in gamut.
        (b"gamt", lut16(3, 1, 2, lambda c: [0.0])),
    ]
    offset = 128 + 4 + 12 * len(tags)
    table = struct.pack(">I", len(tags))
    body = b""
    for sig, data in tags:
        table += sig + struct.pack(">II", offset + len(body), len(data))
        body += data + b"\0" * (-len(data) % 4)
    size = offset + len(body)
    header = struct.pack(">I", size) + b"\0\0\0\0" + struct.pack(">I", 0x02100000) + b"prtrCMYKLab "
    header += struct.pack(">6H", 2024, 1, 1, 0, 0, 0) + b"acsp" + b"\0" * 4 + struct.pack(">I", 0)
    header += b"\0" * 8 + b"\0" * 8 + struct.pack(">I", 0) + b"".join(s15(v) for v in D50) + b"\0" * 4
    header += b"\0" * (128 - len(header))
    return header + table + body


if __name__ == "__main__":
    with open(sys.argv[1], "wb") as out:
        out.write(profile())
