#!/usr/bin/env bash
# Mixed-direction text: paragraphs with Hebrew and Arabic words, right-to-left paragraphs, marks and
# overrides convert, and their letters reach the PDF's text.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
head="<!DOCTYPE html><html><head><style>@font-face { font-family: T; src: url($font) }
body { font: 12pt T }</style></head><body>"

# convert NAME BODY: the document with BODY converts with status 0 to a clean PDF.
convert() {
    printf '%s%s</body></html>' "$head" "$2" >"$1.html"
    timeout 60 "$VELLUM" "$1.html" -o "$1.pdf" 2>"$1.err"
    local rc=$?
    expect_eq "$1: status" "$rc" 0
    if [ "$rc" -eq 0 ]; then
        qpdf_clean "$1" "$1.pdf"
    fi
}

# x_of FILE WORD: the left edge of a word of the text.
x_of() {
    pdftotext -bbox "$1" - | grep ">$2<" | head -1 | sed 's/.*xMin="\([0-9.-]*\)".*/\1/'
}

convert hebrew '<p>a שלום b</p>'
text=$(pdftotext -raw hebrew.pdf - 2>/dev/null)
expect_contains "hebrew: latin before" "$text" "a"
for letter in ש ל ו ם; do
    expect_contains "hebrew: letter $letter" "$text" "$letter"
done
# The Hebrew word stands between the two Latin letters of the left-to-right paragraph, its letters set
# from right to left (so the PDF holds them last letter first).
xa=$(x_of hebrew.pdf a)
xw=$(x_of hebrew.pdf םולש)
xb=$(x_of hebrew.pdf b)
order=$(awk -v a="$xa" -v w="$xw" -v b="$xb" 'BEGIN { print (a != "" && w != "" && b != "" && a < w && w < b) ? "yes" : "no" }')
expect_eq "hebrew: a, word, b from left to right ($xa $xw $xb)" "$order" yes

convert arabic '<p>Arabic: مرحبا</p>'
text=$(pdftotext -raw arabic.pdf - 2>/dev/null)
expect_contains "arabic: latin" "$text" "Arabic:"
expect_contains "arabic: letter" "$text" "م"

convert rtl '<p dir="rtl">abc def</p>'
text=$(pdftotext -raw rtl.pdf - 2>/dev/null)
expect_contains "rtl: abc" "$text" "abc"
expect_contains "rtl: def" "$text" "def"

convert mark $'<p>x\u200fy and more</p>'
expect_contains "mark: text" "$(pdftotext -raw mark.pdf - 2>/dev/null)" "more"

convert override '<p style="unicode-bidi: bidi-override; direction: rtl">abc def</p>
<p>x <span style="unicode-bidi: bidi-override; direction: rtl">ghi jkl</span> y</p>
<p>z <span style="unicode-bidi: embed; direction: rtl">mno <b>שלום</b> pqr</span> w</p>'
text=$(pdftotext -raw override.pdf - 2>/dev/null)
for w in x y z w; do
    expect_contains "override: $w" "$text" "$w"
done

# A page of language links, as an encyclopedia page ends, with words of many scripts in one paragraph,
# some in inline elements with borders, over several lines.
links=""
for i in $(seq 1 30); do
    links="$links <a href='#'>English</a> <span style='border: 1px solid'>العربية $i</span> <a>עברית</a> (فارسی) 12.5%"
done
convert links "<p>$links</p><p dir='rtl'>$links</p>"
text=$(pdftotext -raw links.pdf - 2>/dev/null)
expect_contains "links: latin" "$text" "English"
expect_contains "links: arabic" "$text" "ع"
expect_contains "links: hebrew" "$text" "ע"
expect_eq "links: every Latin word is there" "$(echo "$text" | grep -o English | wc -l)" 60

finish
