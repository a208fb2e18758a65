"""Compares the rasterised pages of a reftest and its reference: shared by tests/e2e/reftest_test.sh
(the project's own pairs) and tools/wpt_reftests.py (web-platform-tests).

Pages are PNG files named BASE-N.png, as pdftoppm writes them. The page counts must agree; a pixel
differs only when no pixel of the other picture within one pixel of it is close in every channel, so
anti-aliasing and sub-pixel shifts pass; a page passes when under 0.1% of its pixels differ."""
import glob
import re

from PIL import Image, ImageChops, ImageFilter

TOLERANCE = 40      # per channel, out of 255
SHARE = 0.001       # differing pixels a page may have


def misses(a, b):
    """Pixels of a that are not within the range of b's pixels within one pixel of it, give or take the
    tolerance, in some channel."""
    low = ImageChops.subtract(b.filter(ImageFilter.MinFilter(3)), a)
    high = ImageChops.subtract(a, b.filter(ImageFilter.MaxFilter(3)))
    r, g, b_ = ImageChops.lighter(low, high).split()
    return ImageChops.lighter(ImageChops.lighter(r, g), b_).point(lambda v: 255 if v > TOLERANCE else 0)


def pages(base):
    """The page pictures of BASE, in page order."""
    return sorted(glob.glob(glob.escape(base) + "-*.png"), key=lambda p: int(re.search(r"-(\d+)\.png$", p).group(1)))


def compare(test, ref):
    """None when the pages of TEST and REF look the same, else what differs."""
    a, b = pages(test), pages(ref)
    if len(a) != len(b):
        return "%d pages, the reference %d" % (len(a), len(b))
    for n, (pa, pb) in enumerate(zip(a, b), 1):
        ia, ib = Image.open(pa).convert("RGB"), Image.open(pb).convert("RGB")
        if ia.size != ib.size:
            return "page %d is %dx%d, the reference's %dx%d" % ((n,) + ia.size + ib.size)
        both = ImageChops.lighter(misses(ia, ib), misses(ib, ia))
        share = both.histogram()[255] / (ia.size[0] * ia.size[1])
        if share >= SHARE:
            return "page %d: %.2f%% of pixels differ" % (n, 100 * share)
    return None
