#!/usr/bin/env bash
# The SVG yardstick: every drawing under tests/svg_ref/<folder>/ is shown by an img on a page of its own
# size, rasterised at 96 dpi (one CSS pixel a pixel) and compared with the reference picture beside it.
# A pixel differs only when no pixel of the other picture within one pixel of it is close in every
# channel, so anti-aliasing and sub-pixel shifts pass; a case passes when under 1% of its pixels differ.
# Each folder must pass at least 60% of its cases, and no conversion may crash or hang.
# The references are made by tools/gen_svg_reference.sh. SVG_REF_OUT=DIR keeps the pages;
# SVG_REF_RASTER=pdftocairo rasterises with the library the reference tool draws with, which tells
# the rasteriser's differences (thin strokes snapped to whole pixels) from the program's.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
REF=$(cd "$DATA/../svg_ref" && pwd) || exit 1
cd "$work"
PY=/usr/bin/python3
if ! $PY -c 'import PIL' 2>/dev/null; then
    echo "python3-pil is missing" >&2
    exit 77
fi
folders=(structure shapes painting paint-servers masking text)

# convert FOLDER CASE: the case's page as $work/FOLDER/CASE.png; its exit status in FOLDER/CASE.status.
convert() {
    local folder=$1 name=$2 svg head w h status
    svg=$REF/$folder/$name.svg
    head=$(tr '\n' ' ' <"$svg" | grep -o '<svg [^>]*>' | head -1)
    w=$(echo "$head" | sed -n 's/.* width="\([0-9.]*\)\(px\)\?".*/\1/p')
    h=$(echo "$head" | sed -n 's/.* height="\([0-9.]*\)\(px\)\?".*/\1/p')
    cp "$svg" "$folder/$name.svg"
    cat >"$folder/$name.html" <<HTML
<!DOCTYPE html><html><head><style>
@page { size: ${w}px ${h}px; margin: 0 } body { margin: 0 }
img { display: block; width: ${w}px; height: ${h}px }
</style></head><body><img src="$name.svg"></body></html>
HTML
    timeout 30 "$VELLUM" "$folder/$name.html" -o "$folder/$name.pdf" 2>"$folder/$name.err"
    status=$?
    if [ $status -eq 0 ]; then
        ${SVG_REF_RASTER:-pdftoppm} -r 96 -png -singlefile "$folder/$name.pdf" "$folder/$name" || status=1000
    fi
    echo "$status" >"$folder/$name.status"
}

for folder in "${folders[@]}"; do
    mkdir -p "$folder"
    for svg in "$REF/$folder"/*.svg; do
        name=$(basename "$svg" .svg)
        # Two conversions at a time.
        convert "$folder" "$name" &
        [ "$(jobs -r | wc -l)" -ge 2 ] && wait -n
    done
done
wait

for folder in "${folders[@]}"; do
    for status in "$folder"/*.status; do
        case $(cat "$status") in
        124) fail "${status%.status}: the conversion hung" ;;
        129 | 1[3-9][0-9] | 2[0-9][0-9]) fail "${status%.status}: the conversion crashed (status $(cat "$status"))" ;;
        esac
    done
done

summary=$($PY - "$REF" "$work" "${folders[@]}" <<'PY'
import os, sys
from PIL import Image, ImageChops, ImageFilter

TOLERANCE = 40      # per channel, out of 255
SHARE = 0.01        # differing pixels a case may have
RATE = 0.60         # cases a folder must pass

def misses(a, b):
    """Pixels of a that are not within the range of b's pixels within one pixel of it, give or take the
    tolerance, in some channel: an edge shifted by a fraction of a pixel lies between its neighbours."""
    low = ImageChops.subtract(b.filter(ImageFilter.MinFilter(3)), a)
    high = ImageChops.subtract(a, b.filter(ImageFilter.MaxFilter(3)))
    r, g, b_ = ImageChops.lighter(low, high).split()
    return ImageChops.lighter(ImageChops.lighter(r, g), b_).point(lambda v: 255 if v > TOLERANCE else 0)

ref_root, work = sys.argv[1], sys.argv[2]
low = []
for folder in sys.argv[3:]:
    names = sorted(f[:-4] for f in os.listdir(os.path.join(ref_root, folder)) if f.endswith(".svg"))
    passed = 0
    for name in names:
        base = os.path.join(work, folder, name)
        status = open(base + ".status").read().strip()
        verdict = None
        if status != "0":
            verdict, note = "fail", "conversion exit status " + status
        else:
            ref = Image.open(os.path.join(ref_root, folder, name + ".png")).convert("RGB")
            got = Image.open(base + ".png").convert("RGB")
            if got.size != ref.size:
                verdict, note = "fail", "page is %dx%d, reference %dx%d" % (got.size + ref.size)
            else:
                # Either way round: what we drew that the reference lacks, and what we left out.
                both = ImageChops.lighter(misses(got, ref), misses(ref, got))
                share = both.histogram()[255] / (ref.size[0] * ref.size[1])
                verdict = "pass" if share < SHARE else "fail"
                note = "%.2f%% of pixels differ" % (100 * share)
        warning = open(base + ".err").readline().strip()
        if verdict == "fail" and warning:
            note += "; " + warning
        passed += verdict == "pass"
        print("%s %s/%s: %s" % (verdict, folder, name, note))
    rate = passed / len(names)
    print("folder %s: %d of %d cases pass (%.0f%%)" % (folder, passed, len(names), 100 * rate))
    if rate < RATE:
        low.append(folder)
print("folders below %.0f%%: %s" % (100 * RATE, " ".join(low) or "none"))
PY
)
echo "$summary"
if [ -n "${SVG_REF_OUT:-}" ]; then
    for folder in "${folders[@]}"; do
        mkdir -p "$SVG_REF_OUT/$folder" && cp "$folder"/*.png "$SVG_REF_OUT/$folder/"
    done
fi
# Decorated text draws its lines, and says nothing about them.
expect_contains "decorated text passes" "$summary" "pass text/text-decoration"
expect_eq "decorated text converts without a message" "$(cat text/text-decoration.err)" ""
expect_eq "every folder passes at least 60% of its cases" "$(echo "$summary" | tail -1)" "folders below 60%: none"
finish
