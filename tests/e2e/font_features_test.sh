#!/usr/bin/env bash
# OpenType features chosen by CSS (font-variant-*, font-feature-settings, font-kerning, letter-spacing),
# the language of the text choosing glyphs and CJK faces, the euro sign of MacRoman fonts, and the
# ellipsis of a right-to-left line.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

NOTO=/usr/share/fonts/truetype/noto
for f in $NOTO/NotoSerif-Regular.ttf /usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf \
    /usr/share/fonts/opentype/noto/NotoSerifCJK-Regular.ttc; do
    if [ ! -f "$f" ]; then
        echo "skipped: $f is not installed"
        exit 77
    fi
done

page() {
    printf '<div style="page-break-after: always; %s" %s>%s</div>\n' "$1" "${3:-}" "$2"
}
{
    cat <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 60pt; margin: 10pt }
body { font: 24pt "Noto Serif" }
</style></head><body>
HTML
    page "" "0123456789"                                             # 1
    page "font-variant-numeric: oldstyle-nums" "0123456789"          # 2: old-style figures
    page "font-feature-settings: 'onum'" "0123456789"                # 3: the same by the feature
    page "font-variant: oldstyle-nums; font-variant: normal" "0123456789"  # 4: shorthand resets
    page "" "office"                                                 # 5: the ffi ligature
    page "font-feature-settings: 'liga' 0" "office"                  # 6: three glyphs
    page "font-variant-ligatures: no-common-ligatures" "office"      # 7: three glyphs
    page "" "o&#x200C;f&#x200C;f&#x200C;ice"                         # 8: apart by joiners
    page "font-variant: small-caps" "Small caps"                     # 9: the font's smcp
    page "" "Small caps"                                             # 10
    page "" "&#x431;&#x433;&#x434;" 'lang="ru"'                      # 11: Russian be
    page "" "&#x431;&#x433;&#x434;" 'lang="sr"'                      # 12: Serbian be
    page "font-variant-position: super" "123"                        # 13: superiors
    page "" "123"                                                    # 14
    echo '<div style="font-kerning: none">AVAVAVAVAV</div><div>AVAVAVAVAV</div>'   # 15
    echo '</body></html>'
} >t.html
timeout 60 "$VELLUM" t.html -o t.pdf 2>t.err
expect_eq "status" "$?" 0
qpdf_clean "features" t.pdf
expect_eq "no warnings" "$(cat t.err)" ""
# One page per case; the pixel checks below read pages 1 to 15.
expect_eq "pages" "$(pdfinfo t.pdf | awk '/^Pages:/ { print ($2 >= 15) ? "enough" : $2 }')" enough

pdftoppm -r 72 -gray -png t.pdf p
same() {
    /usr/bin/python3 - "$1" "$2" <<'PY'
import sys
from PIL import Image, ImageChops
a = Image.open(sys.argv[1]).convert("L")
b = Image.open(sys.argv[2]).convert("L")
print("same" if a.size == b.size and ImageChops.difference(a, b).getbbox() is None else "different")
PY
}
expect_eq "oldstyle-nums changes the figures" "$(same p-01.png p-02.png)" different
expect_eq "oldstyle-nums is the onum feature" "$(same p-02.png p-03.png)" same
expect_eq "font-variant: normal resets the numeric variant" "$(same p-01.png p-04.png)" same
expect_eq "the ffi ligature by default" "$(same p-05.png p-08.png)" different
expect_eq "'liga' 0 keeps ffi as three glyphs" "$(same p-06.png p-08.png)" same
expect_eq "no-common-ligatures keeps ffi as three glyphs" "$(same p-07.png p-08.png)" same
expect_eq "small-caps from the font" "$(same p-09.png p-10.png)" different
expect_eq "Serbian forms by lang" "$(same p-11.png p-12.png)" different
expect_eq "superior figures" "$(same p-13.png p-14.png)" different
text=$(pdftotext t.pdf -)
expect_contains "ligatures copy as letters" "$text" "office"
expect_contains "small capitals copy as typed" "$text" "Small caps"
expect_contains "old-style figures copy as digits" "$text" "0123456789"

# Kerning off makes the run of AV pairs wider.
widths=$(pdftotext -f 15 -l 15 -bbox t.pdf - | grep '>AVAVAVAVAV<' |
    sed 's/.*xMin="\([0-9.]*\)".*xMax="\([0-9.]*\)".*/\1 \2/' | awk '{ printf "%.1f\n", $2 - $1 }')
unkerned=$(echo "$widths" | sed -n 1p)
kerned=$(echo "$widths" | sed -n 2p)
expect_eq "font-kerning: none is wider" "$(awk -v a="$unkerned" -v b="$kerned" 'BEGIN { print (a > b + 5) ? "yes" : a " vs " b }')" yes

# Letter-spacing turns the optional ligatures off: no glyph stands for "ffi".
cat >ls.html <<'HTML'
<!DOCTYPE html><html><body style='font: 24pt "Noto Serif"'>
<p>office</p><p style="letter-spacing: 2pt">affirm</p><p style="letter-spacing: 2pt; font-feature-settings: 'liga'">baffle</p>
</body></html>
HTML
timeout 60 "$VELLUM" ls.html -o ls.pdf 2>ls.err
expect_eq "letter-spacing status" "$?" 0
qpdf --qdf --object-streams=disable ls.pdf qdf.pdf
map=$(tr -d ' \000' <qdf.pdf)
expect_contains "ffi ligature without letter-spacing" "$map" "<006600660069>"
expect_not_contains "no fi or ffi ligature with letter-spacing" "$map" "<00660069>"
expect_contains "ffl asked for again by font-feature-settings" "$map" "<00660066006c>"

# East Asian text takes the face of its language from the pan-CJK collections.
cat >cjk.html <<'HTML'
<!DOCTYPE html><html><body style="font: 24pt serif">
<p lang="ja">直角</p><p lang="zh-Hans">直角</p><p lang="zh-Hant">直角</p><p lang="ko">直角</p>
</body></html>
HTML
timeout 60 "$VELLUM" cjk.html -o cjk.pdf 2>cjk.err
expect_eq "CJK status" "$?" 0
qpdf_clean "CJK" cjk.pdf
cjk_fonts=$(pdffonts cjk.pdf)
for face in NotoSerifCJKjp NotoSerifCJKsc NotoSerifCJKtc NotoSerifCJKkr; do
    expect_contains "CJK face $face by lang" "$cjk_fonts" "$face"
done
expect_eq "CJK text" "$(pdftotext cjk.pdf - | tr -d '\n\f ')" "直角直角直角直角"
# The subset CID fonts list their CIDs.
qpdf --qdf --object-streams=disable cjk.pdf cjk-qdf.pdf
expect_eq "a CIDSet for each CJK face" "$(grep -a -c '/CIDSet' cjk-qdf.pdf)" 4

# The euro sign in a font written with MacRoman codes copies as the euro, not the currency sign.
cat >euro.html <<'HTML'
<!DOCTYPE html><html><body style='font: 12pt "DejaVu Serif"'><p>Price: 25 € ≠ 25 ¤ ≤ π</p></body></html>
HTML
timeout 60 "$VELLUM" euro.html -o euro.pdf 2>euro.err
expect_eq "euro status" "$?" 0
qpdf_clean "euro" euro.pdf
expect_contains "euro and the Mac symbols copy right" "$(pdftotext euro.pdf -)" "Price: 25 € ≠ 25 ¤ ≤ π"

# text-overflow: ellipsis on a right-to-left line: the line keeps its start (at the right) and the
# ellipsis stands at the left edge of the box.
cat >rtl.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 200pt; margin: 20pt }
body { margin: 0; font: 12pt "DejaVu Sans" }
.ell { width: 120pt; white-space: nowrap; overflow: hidden; text-overflow: ellipsis; direction: rtl }
</style></head><body>
<div class="ell">שלום עולם זהו משפט ארוך מאוד שאינו נכנס בתיבה הצרה</div>
<div class="ell">קצר</div>
</body></html>
HTML
timeout 60 "$VELLUM" rtl.html -o rtl.pdf 2>rtl.err
expect_eq "RTL ellipsis status" "$?" 0
qpdf_clean "RTL ellipsis" rtl.pdf
rtl_bbox=$(pdftotext -bbox rtl.pdf -)
ell_left=$(echo "$rtl_bbox" | grep '…' | head -1 | sed 's/.*xMin="\([0-9.]*\)".*/\1/')
first_right=$(echo "$rtl_bbox" | grep -E '>(שלום|םולש)<' | head -1 | sed 's/.*xMax="\([0-9.]*\)".*/\1/')
expect_eq "ellipsis at the left, before the first word" "$(awk -v l="$ell_left" 'BEGIN { print (l != "" && l >= 19.5 && l <= 40) ? "yes" : l }')" yes
expect_eq "first word at the right edge" "$(awk -v r="$first_right" 'BEGIN { print (r != "" && r >= 138 && r <= 140.5) ? "yes" : r }')" yes
expect_eq "one ellipsis only" "$(echo "$rtl_bbox" | grep -c '…')" 1
expect_not_contains "the rest is cut" "$(pdftotext rtl.pdf -)" "הצרה"

# Petite capitals: the font's "pcap"/"c2pc" when it has them (a copy of Noto Serif whose small capitals
# are renamed petite ones), else its small capitals, else imitated ones, as small-caps would show.
tools=$(cd "$DATA/../../tools" && pwd)
if /usr/bin/python3 "$tools/make_petite_font.py" $NOTO/NotoSerif-Regular.ttf "Petite Test" petite.ttf 2>petite-tool.err; then
    {
        cat <<'HTML'
<!DOCTYPE html><html><head><style>
@font-face { font-family: Petite; src: url(petite.ttf) }
@page { size: 300pt 60pt; margin: 10pt }
body { font: 24pt "Noto Serif" }
.p { font-family: Petite } .d { font-family: "DejaVu Serif" }
</style></head><body>
HTML
        page "font-variant-caps: petite-caps" "Petite caps" 'class="p"'           # 1: the font's pcap
        page "font-variant-caps: small-caps" "Petite caps"                        # 2: Noto's smcp
        page "font-variant-caps: small-caps" "Petite caps" 'class="p"'            # 3: imitated
        page "font-variant-caps: petite-caps" "Petite caps"                       # 4: falls back to smcp
        page "font-variant-caps: petite-caps" "Petite caps" 'class="d"'           # 5: imitated
        page "font-variant-caps: small-caps" "Petite caps" 'class="d"'            # 6
        page "font-variant-caps: all-petite-caps" "Petite Caps" 'class="p"'       # 7: pcap and c2pc
        page "font-variant-caps: all-small-caps" "Petite Caps"                    # 8: smcp and c2sc
        page "font-variant-caps: all-petite-caps" "Petite Caps"                   # 9: falls back
        page "font-variant: all-petite-caps" "Petite Caps" 'class="d"'            # 10: imitated
        page "font-variant: all-small-caps" "Petite Caps" 'class="d"'             # 11
        page "" "Petite Caps"                                                     # 12
        echo '</body></html>'
    } >petite.html
    timeout 60 "$VELLUM" petite.html -o petite.pdf 2>petite.err
    expect_eq "petite: status" "$?" 0
    qpdf_clean "petite" petite.pdf
    expect_eq "petite: no warnings" "$(cat petite.err)" ""
    expect_contains "petite: text" "$(pdftotext -f 1 -l 1 petite.pdf -)" "Petite caps"
    pdftoppm -r 72 -gray -png petite.pdf q
    expect_eq "petite-caps from the font's pcap" "$(same q-01.png q-02.png)" same
    expect_eq "small-caps of a font with only petite ones is imitated" "$(same q-01.png q-03.png)" different
    expect_eq "petite-caps falls back to the font's smcp" "$(same q-02.png q-04.png)" same
    expect_eq "petite-caps imitated without either" "$(same q-05.png q-06.png)" same
    expect_eq "all-petite-caps from pcap and c2pc" "$(same q-07.png q-08.png)" same
    expect_eq "all-petite-caps falls back to smcp and c2sc" "$(same q-08.png q-09.png)" same
    expect_eq "all-petite-caps imitated" "$(same q-10.png q-11.png)" same
    expect_eq "all-petite-caps shrinks the capitals" "$(same q-09.png q-12.png)" different
else
    echo "petite caps part skipped: $(cat petite-tool.err)"
fi

# An SVG font-variant attribute is read as the font-variant shorthand, as the property would be.
svg_text() {
    printf '<div style="page-break-after: always"><svg width="280" height="40"><text x="0" y="30" font-family="Noto Serif" font-size="24" %s>Small caps</text></svg></div>\n' "$1"
}
{
    echo '<!DOCTYPE html><html><head><style>@page { size: 300pt 60pt; margin: 10pt }</style></head><body>'
    svg_text 'font-variant="small-caps"'
    svg_text 'style="font-variant: small-caps"'
    svg_text ''
    echo '</body></html>'
} >svg.html
timeout 60 "$VELLUM" svg.html -o svg.pdf 2>svg.err
expect_eq "svg: status" "$?" 0
expect_eq "svg: no warnings" "$(cat svg.err)" ""
pdftoppm -r 72 -gray -png svg.pdf s
expect_eq "svg: font-variant attribute as the property" "$(same s-1.png s-2.png)" same
expect_eq "svg: font-variant attribute shows small capitals" "$(same s-1.png s-3.png)" different

finish
