#!/usr/bin/python3
"""Writes the test image set into a directory: a 4x4 colour grid (red, green, blue, white quadrants
of 8x8 pixels, so 16x16 in all) in each format and pixel kind that the image loader reads, and a few
broken files. Run with Debian's python3, which has PIL."""
import io
import struct
import sys
import zlib
from pathlib import Path

from PIL import Image

QUADS = [(255, 0, 0), (0, 160, 0), (0, 0, 255), (255, 255, 255)]


def grid(mode="RGB"):
    im = Image.new("RGB", (16, 16))
    for y in range(16):
        for x in range(16):
            im.putpixel((x, y), QUADS[(y // 8) * 2 + (x // 8)])
    return im.convert(mode) if mode != "RGB" else im


def png16(path, alpha):
    # PIL cannot write 16-bit RGB, so the file is made by hand: each 8-bit sample v becomes v*257.
    im = grid()
    channels = 4 if alpha else 3
    raw = b""
    for y in range(16):
        raw += b"\0"
        for x in range(16):
            r, g, b = im.getpixel((x, y))
            px = [r, g, b] + ([128] if alpha else [])
            raw += b"".join(struct.pack(">H", v * 257) for v in px)
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
    ihdr = struct.pack(">IIBBBBB", 16, 16, 16, 6 if alpha else 2, 0, 0, 0)
    Path(path).write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


def tiff16(path):
    # A baseline TIFF of 16-bit RGB samples, uncompressed and little-endian, written by hand.
    im = grid()
    pixels = b"".join(struct.pack("<HHH", *(v * 257 for v in im.getpixel((x, y)))) for y in range(16) for x in range(16))
    entries = [
        (256, 3, 1, 16), (257, 3, 1, 16), (258, 3, 3, None), (259, 3, 1, 1), (262, 3, 1, 2),
        (273, 4, 1, None), (277, 3, 1, 3), (278, 3, 1, 16), (279, 4, 1, len(pixels)), (284, 3, 1, 1),
    ]
    ifd_at = 8
    ifd_size = 2 + 12 * len(entries) + 4
    bits_at = ifd_at + ifd_size
    data_at = bits_at + 6
    ifd = struct.pack("<H", len(entries))
    for tag, kind, count, value in entries:
        if tag == 258:
            ifd += struct.pack("<HHII", tag, kind, count, bits_at)
        elif tag == 273:
            ifd += struct.pack("<HHII", tag, kind, count, data_at)
        elif kind == 3:
            ifd += struct.pack("<HHIHH", tag, kind, count, value, 0)
        else:
            ifd += struct.pack("<HHII", tag, kind, count, value)
    ifd += struct.pack("<I", 0)
    Path(path).write_bytes(b"II*\0" + struct.pack("<I", ifd_at) + ifd + struct.pack("<HHH", 16, 16, 16) + pixels)


def huge_header(path):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)
    ihdr = struct.pack(">IIBBBBB", 30000, 30000, 8, 2, 0, 0, 0)
    Path(path).write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) + chunk(b"IDAT", zlib.compress(b"\0" * 100)) + chunk(b"IEND", b""))


def main(out):
    out = Path(out)
    out.mkdir(parents=True, exist_ok=True)
    g = grid()
    g.save(out / "rgb.png")
    g.save(out / "interlaced.png", interlace=1)
    g.convert("L").save(out / "gray.png")
    g.convert("1", dither=Image.Dither.NONE).save(out / "bw.png")
    rgba = g.convert("RGBA")
    rgba.putalpha(128)
    rgba.save(out / "rgba.png")
    pal = g.convert("P", palette=Image.Palette.ADAPTIVE, colors=4)
    pal.save(out / "palette.png", transparency=0)
    png16(out / "rgb16.png", False)
    png16(out / "rgba16.png", True)
    g.save(out / "rgb.jpg", quality=95, subsampling=0)
    g.save(out / "progressive.jpg", quality=95, subsampling=0, progressive=True)
    g.convert("L").save(out / "gray.jpg", quality=95)
    g.convert("CMYK").save(out / "cmyk.jpg", quality=95, subsampling=0)
    g.save(out / "grid.gif")
    g.save(out / "grid.tif")
    tiff16(out / "rgb16.tif")
    g.save(out / "jpeg-named.png", format="JPEG", quality=95, subsampling=0)
    # Broken files.
    data = (out / "rgb.png").read_bytes()
    (out / "truncated.png").write_bytes(data[: len(data) - 30])
    (out / "corrupt.png").write_bytes(data[:40] + bytes(len(data) - 40))
    (out / "empty.jpg").write_bytes(b"")
    huge_header(out / "huge.png")
    (out / "picture.svg").write_text('<svg xmlns="http://www.w3.org/2000/svg" width="10" height="10"/>')


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "test-images")
