#!/usr/bin/env bash
# Renders the reference pictures of the SVG yardstick: every tests/svg_ref/<folder>/<case>.svg gets a
# <case>.png beside it, drawn on white at the drawing's own width and height in pixels.
#
# The pictures are reference data for tests/e2e/svg_reference_test.sh and are kept in the repository.
# Regenerate them after adding or changing a case, and look at the new pictures before keeping them:
#
#     tools/gen_svg_reference.sh            # every case
#     tools/gen_svg_reference.sh text       # one folder
#
# It needs rsvg-convert (Debian package librsvg2-bin), a test-only reference renderer.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)/tests/svg_ref
command -v rsvg-convert >/dev/null || { echo "rsvg-convert not found: apt-get install librsvg2-bin" >&2; exit 1; }
folders=("$@")
[ ${#folders[@]} -gt 0 ] || folders=(structure shapes painting paint-servers masking text)
for folder in "${folders[@]}"; do
    for svg in "$root/$folder"/*.svg; do
        # The size is the root element's width and height attributes, in px.
        head=$(tr '\n' ' ' <"$svg" | grep -o '<svg [^>]*>' | head -1)
        w=$(echo "$head" | sed -n 's/.* width="\([0-9.]*\)\(px\)\?".*/\1/p')
        h=$(echo "$head" | sed -n 's/.* height="\([0-9.]*\)\(px\)\?".*/\1/p')
        if [ -z "$w" ] || [ -z "$h" ]; then
            echo "$svg: the svg element needs width and height in px" >&2
            exit 1
        fi
        rsvg-convert -b white -w "$w" -h "$h" -o "${svg%.svg}.png" "$svg"
        echo "${svg#"$root"/}: ${w}x${h}"
    done
done
