#!/usr/bin/env bash
# Fonts of CFF outlines are embedded as subsets: a page of Japanese in the CID-keyed Noto Sans CJK and
# a paragraph in a name-keyed URW font come out small, marked as subsets, with their text extractable
# and every pixel as the whole fonts draw it.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cjk=/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc
urw=/usr/share/fonts/opentype/urw-base35/URWBookman-Light.otf
if [ ! -f "$cjk" ]; then
    echo "skipped: $cjk is not installed"
    exit 77
fi

# convert NAME INPUT [OPTIONS]: INPUT.html converts with status 0 to a clean NAME.pdf.
convert() {
    local name=$1 input=$2
    shift 2
    timeout 120 "$VELLUM" "$@" "$input.html" -o "$name.pdf" 2>"$name.err"
    local rc=$?
    expect_eq "$name: status" "$rc" 0
    if [ "$rc" -eq 0 ]; then
        qpdf_clean "$name" "$name.pdf"
    fi
}

# same_pixels NAME A.pdf B.pdf: the first pages of two files render alike, and the renderer loads the
# embedded fonts without a complaint (a font it cannot load it replaces by the installed one, which
# would draw the same pixels).
same_pixels() {
    pdftoppm -r 72 -f 1 -l 1 "$2" "$1-a" 2>"$1-a.err"
    pdftoppm -r 72 -f 1 -l 1 "$3" "$1-b" 2>"$1-b.err"
    expect_eq "$1: renderer messages" "$(cat "$1-a.err")" ""
    if ! cmp -s "$1-a-1.ppm" "$1-b-1.ppm"; then
        fail "$1: the subset draws differently from the whole font"
    fi
}

paragraph='東京都内の小さな書店では、毎朝八時に新しい本が届く。店主の山田さんは三十年前からこの店を続けており、近所の子どもたちに絵本を読み聞かせる会を毎週土曜日に開いている。最近は電子書籍の普及によって紙の本を買う人が減ったが、山田さんは「本を手に取って選ぶ楽しさは、画面では味わえない」と話す。店の奥には古い地図や写真集も並び、遠くから訪れる客も少なくない。'
{
    echo '<!DOCTYPE html><html lang="ja"><head><meta charset="utf-8"><style>'
    echo "body { font: 11pt/1.7 'Noto Sans CJK JP' } h1 { font-size: 18pt }</style></head><body>"
    echo '<h1>町の書店、三十年の歩み</h1>'
    for _ in 1 2 3 4 5 6; do
        echo "<p>$paragraph</p>"
    done
    echo '<p>カタカナ：コーヒー、テーブル、インターネット。数字と英字：2024年 Vellum 123。記号：「」『』（）・〜！？</p>'
    echo '</body></html>'
} >ja.html
convert ja ja
size=$(stat -c %s ja.pdf)
if [ "$size" -ge 200000 ]; then
    fail "ja: PDF is $size bytes, not under 200 KB"
fi
pages=$(pdfinfo ja.pdf | sed -n 's/^Pages: *//p')
expect_eq "ja: one page" "$pages" 1
fonts=$(pdffonts ja.pdf)
line=$(echo "$fonts" | grep 'NotoSansCJKjp-Regular')
# A six-letter tag and "+" before the name, the CFF CID font type, embedded, a subset, with ToUnicode.
if ! echo "$line" | grep -Eq '^[A-Z]{6}\+NotoSansCJKjp-Regular +CID Type 0C +Identity-H +yes +yes +yes'; then
    fail "ja: pdffonts does not show an embedded CFF subset: $fonts"
fi
text=$(pdftotext ja.pdf - | tr -d ' \n')
expect_contains "ja: heading" "$text" "町の書店、三十年の歩み"
expect_contains "ja: paragraph" "$text" "本を手に取って選ぶ楽しさは、画面では味わえない"
expect_contains "ja: katakana and latin" "$text" "インターネット。数字と英字：2024年Vellum123"
convert ja-whole ja --no-subset-fonts
whole=$(stat -c %s ja-whole.pdf)
if [ "$whole" -le "$size" ]; then
    fail "ja: the whole font ($whole bytes) is no larger than the subset ($size bytes)"
fi
same_pixels ja ja.pdf ja-whole.pdf

# Latin text alone in the CID-keyed font: it is cut all the same, and without subsetting it still goes
# out as a CID font (a simple font would need glyph names, which a CID-keyed font lacks).
printf '%s' '<!DOCTYPE html><html><body><p style="font-family: '"'Noto Sans CJK JP'"'">Only Latin text here</p></body></html>' >only-latin.html
convert only-latin only-latin
convert only-latin-whole only-latin --no-subset-fonts
for f in only-latin only-latin-whole; do
    expect_contains "$f: text" "$(pdftotext $f.pdf - 2>&1)" "Only Latin text here"
    expect_contains "$f: CID font" "$(pdffonts $f.pdf)" "CID Type 0C       Identity-H"
done
same_pixels only-latin only-latin.pdf only-latin-whole.pdf
expect_eq "only-latin: renderer messages for the whole font" "$(cat only-latin-b.err)" ""

if [ -f "$urw" ]; then
    printf '%s' "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><style>
body { font: 14pt "URW Bookman" }</style></head><body>
<p>The quick brown fox jumps over the lazy dog: fine “quotes” — and é, Å, ½.</p></body></html>" >latin.html
    convert latin latin
    line=$(pdffonts latin.pdf | grep 'URWBookman-Light')
    if ! echo "$line" | grep -Eq '^[A-Z]{6}\+URWBookman-Light +CID Type 0C +Identity-H +yes +yes +yes'; then
        fail "latin: pdffonts does not show an embedded CFF subset: $(pdffonts latin.pdf)"
    fi
    text=$(pdftotext latin.pdf - | tr -s ' \n' ' ')
    expect_contains "latin: text" "$text" "The quick brown fox jumps over the lazy dog: fine “quotes” — and é, Å, ½."
    convert latin-whole latin --no-subset-fonts
    same_pixels latin latin.pdf latin-whole.pdf
fi

# Accented letters written as base + accent (the four-operand endchar): a font made from a URW font whose
# é, É, à and ü are built so. The subset brings the base and accent glyphs along, under their names, and
# draws the letters as the whole font does.
nimbus=/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf
tools=$(cd "$DATA/../../tools" && pwd)
if [ -f "$nimbus" ] && /usr/bin/python3 "$tools/make_seac_font.py" "$nimbus" "Seac Test" seac.otf 2>seac-tool.err; then
    printf '%s' '<!DOCTYPE html><html><head><meta charset="utf-8"><style>
@font-face { font-family: Accents; src: url(seac.otf) }
body { font: 40pt Accents }</style></head><body><p>Café Élan à ü</p></body></html>' >seac.html
    convert seac seac
    expect_contains "seac: subset" "$(pdffonts seac.pdf)" "+SeacTest"
    expect_eq "seac: text" "$(pdftotext seac.pdf - | tr -d '\f' | tr -s ' \n' ' ' | sed 's/ $//')" "Café Élan à ü"
    convert seac-whole seac --no-subset-fonts
    same_pixels seac seac.pdf seac-whole.pdf
    # The accent is drawn: "é" alone has clearly more ink than "e" alone (the whole font could have lost
    # it too, which the comparison above would not see).
    dark() {
        printf '%s' "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><style>
@font-face { font-family: Accents; src: url(seac.otf) }
body { font: 80pt Accents }</style></head><body><p>$2</p></body></html>" >"$1.html"
        convert "$1" "$1"
        pdftoppm -r 72 -gray -f 1 -l 1 "$1.pdf" "$1"
        /usr/bin/python3 -c "
from PIL import Image
im = Image.open('$1-1.pgm')
print(sum(1 for v in im.getdata() if v < 128))"
    }
    e=$(dark seac-e e)
    eacute=$(dark seac-eacute é)
    if [ "$eacute" -le $((e + e / 10)) ]; then
        fail "seac: é has $eacute dark pixels, e alone $e: no accent drawn"
    fi
else
    echo "seac part skipped: no URW font or fontTools"
fi

finish
