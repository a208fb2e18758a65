#!/usr/bin/env bash
# OpenType shaping through the real program: Latin ligatures, Arabic joining, Devanagari conjuncts and
# reordering, each compared by pixels with text that spells out or forbids the shaped form.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

NOTO=/usr/share/fonts/truetype/noto
for f in /usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf $NOTO/NotoNaskhArabic-Regular.ttf \
    $NOTO/NotoSansDevanagari-Regular.ttf; do
    if [ ! -f "$f" ]; then
        echo "skipped: $f is not installed"
        exit 77
    fi
done

# Each paragraph is on a page of its own, so that pages can be compared pixel for pixel.
page() {
    printf '<div style="page-break-after: always; %s">%s</div>\n' "$1" "$2"
}
{
    cat <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 300pt 80pt; margin: 10pt }
body { font: 24pt "DejaVu Serif" }
.ar { font-family: "Noto Naskh Arabic"; direction: rtl }
.hi { font-family: "Noto Sans Devanagari" }
</style></head><body>
HTML
    page "" "office waffle"                              # 1: ligatures from the font
    page "" "o&#xFB00;ice wa&#xFB04;e"                    # 2: the ligature characters themselves
    printf '<div class="ar" style="page-break-after: always">%s</div>\n' "عليكم سمك"       # 3: joined
    printf '<div class="ar" style="page-break-after: always">%s</div>\n' \
        "ع&#x200C;ل&#x200C;ي&#x200C;ك&#x200C;م س&#x200C;م&#x200C;ك"            # 4: isolated forms
    printf '<div class="ar" style="page-break-after: always">%s</div>\n' \
        "&#xFECB;&#xFEE0;&#xFEF4;&#xFEDC;&#xFEE2; &#xFEB3;&#xFEE4;&#xFEDA;"             # 5: presentation forms
    printf '<div class="hi" style="page-break-after: always">%s</div>\n' "क्ष र्क कि"           # 6: shaped
    printf '<div class="hi">%s</div>\n' "क्&#x200C;ष र्&#x200C;क क&#x200C;ि"             # 7: kept apart
    echo '</body></html>'
} >t.html

timeout 60 "$VELLUM" t.html -o t.pdf 2>t.err
expect_eq "status" "$?" 0
qpdf_clean "shaping" t.pdf
expect_eq "no warnings" "$(cat t.err)" ""
expect_eq "pages" "$(pdfinfo t.pdf | awk '/^Pages:/ { print $2 }')" 7

# Ligatures keep their characters: copied text has the letters, not the ligature characters.
expect_contains "ligature text" "$(pdftotext -f 1 -l 1 t.pdf -)" "office waffle"
# The ToUnicode map gives the ligature glyph its three letters "ffl".
qpdf --qdf --object-streams=disable t.pdf qdf.pdf
expect_contains "ffl ligature mapped to its letters" "$(tr -d ' \000' <qdf.pdf)" "<00660066006c>"

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
expect_eq "ffi and ffl shown as the font's ligatures" "$(same p-1.png p-2.png)" same
expect_eq "Arabic letters joined, not isolated" "$(same p-3.png p-4.png)" different
expect_eq "Arabic joined as the presentation forms show it" "$(same p-3.png p-5.png)" same
expect_eq "Devanagari conjunct, reph and vowel sign formed" "$(same p-6.png p-7.png)" different

# The fonts are embedded subsets with a ToUnicode map.
fonts=$(pdffonts t.pdf)
expect_contains "Devanagari font" "$fonts" "NotoSansDevanagari"
expect_eq "every font has ToUnicode" "$(echo "$fonts" | tail -n +3 | awk '$(NF-2) != "yes"' | wc -l)" 0

# The Arabic text comes back in its letters.
ar=$(pdftotext -f 3 -l 3 t.pdf - | tr -d '\n\f ')
expect_contains "Arabic text" "$ar" "عليكم"

# A Hindi paragraph: reordered vowel signs, conjuncts, reph and nukta come back as typed.
cat >hi.html <<'HTML'
<!DOCTYPE html><html><head><style>body { font: 14pt "Noto Sans Devanagari" }</style></head><body>
<p lang="hi">हिन्दी भारत की राजभाषा है। किताब पढ़ना अच्छी आदत है। धर्म और कर्म का ज्ञान विद्यालय में मिलता है।
प्रधानमंत्री ने स्वतंत्रता दिवस पर राष्ट्र को संबोधित किया।</p>
</body></html>
HTML
timeout 60 "$VELLUM" hi.html -o hi.pdf 2>hi.err
expect_eq "Hindi status" "$?" 0
qpdf_clean "Hindi" hi.pdf
hi=$(pdftotext hi.pdf - | tr '\n' ' ')
for word in हिन्दी किताब पढ़ना धर्म कर्म ज्ञान विद्यालय में प्रधानमंत्री स्वतंत्रता राष्ट्र संबोधित किया; do
    expect_contains "Hindi text in logical order: $word" "$hi" "$word"
done

# An Arabic paragraph with vowel marks, a shadda under its vowel, hamza marks and ligatures: text tools
# read every word back as typed (before, marks came out ahead of their letters and ligatures reversed).
cat >ar.html <<'HTML'
<!DOCTYPE html><html><head><meta charset="utf-8"><style>body { font: 16pt "Noto Naskh Arabic"; direction: rtl }</style></head><body>
<p lang="ar">بِسْمِ ٱللَّهِ ٱلرَّحْمَٰنِ ٱلرَّحِيمِ لا السلام عليكم تَّ بَٔ سِٕ كُٔن بِّٕ مستشفى عام 2024</p>
</body></html>
HTML
timeout 60 "$VELLUM" ar.html -o ar.pdf 2>ar.err
expect_eq "Arabic status" "$?" 0
qpdf_clean "Arabic" ar.pdf
ar_text=$(pdftotext ar.pdf - | tr '\n' ' ')
for word in بِسْمِ ٱللَّهِ ٱلرَّحْمَٰنِ ٱلرَّحِيمِ لا السلام عليكم تَّ بَٔ سِٕ كُٔن بِّٕ مستشفى عام 2024; do
    expect_contains "Arabic text in logical order: $word" "$ar_text" "$word"
done
# The words whose glyphs read back otherwise carry their text in spans; plain words and digits do not.
spans=$(qpdf --qdf --object-streams=disable ar.pdf - | grep -a -c ActualText)
if [ "$spans" -lt 9 ] || [ "$spans" -gt 13 ]; then
    fail "Arabic: $spans ActualText spans, expected one for each of the 9 to 13 words with marks or ligatures"
fi

# Malayalam: the pre-base form of Ra after a virama is drawn before its consonant, and the dot reph
# U+0D4E typed before a consonant is drawn after it; copied text stays as typed. Glyph numbers are the
# font's own, as the font goes out whole.
ml_font=$NOTO/NotoSansMalayalam-Regular.ttf
if [ -f "$ml_font" ]; then
    glyph_order() {
        printf '<!DOCTYPE html><html><head><meta charset="utf-8"><style>body { font: 20pt "Noto Sans Malayalam" }</style></head><body><p>%s</p></body></html>' "$2" >"$1.html"
        timeout 60 "$VELLUM" --no-subset-fonts "$1.html" -o "$1.pdf" 2>"$1.err"
        expect_eq "$1: status" "$?" 0
        qpdf --qdf --object-streams=disable "$1.pdf" "$1-q.pdf"
        # The glyph numbers of the text, in drawing order.
        grep -a -o '<[0-9a-f]*> Tj' "$1-q.pdf" | tr -d '<> Tj\n'
    }
    ka=0017 pre_ra=00a2 dot_reph=004e
    expect_eq "Malayalam pre-base Ra before its consonant" "$(glyph_order ml-pref 'ക്ര')" "$pre_ra$ka"
    expect_eq "Malayalam dot reph after its consonant" "$(glyph_order ml-reph 'ൎക')" "$ka$dot_reph"
    cat >ml.html <<'HTML'
<!DOCTYPE html><html><head><meta charset="utf-8"><style>body { font: 14pt "Noto Sans Malayalam" }</style></head><body>
<p lang="ml">പ്രധാനമന്ത്രി ക്രമം ഗ്രാമം ധൎമ്മം കാൎയ്യം അവൻ കൽ</p>
</body></html>
HTML
    timeout 60 "$VELLUM" ml.html -o ml.pdf 2>ml.err
    expect_eq "Malayalam status" "$?" 0
    qpdf_clean "Malayalam" ml.pdf
    ml=$(pdftotext ml.pdf - | tr '\n' ' ')
    for word in പ്രധാനമന്ത്രി ക്രമം ഗ്രാമം ധൎമ്മം കാൎയ്യം അവൻ കൽ; do
        expect_contains "Malayalam text in logical order: $word" "$ml" "$word"
    done
else
    echo "Malayalam part skipped: $ml_font is not installed"
fi

finish
