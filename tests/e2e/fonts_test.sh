#!/usr/bin/env bash
# Document fonts and fallback for every script: @font-face rules in inline, linked, imported and user
# sheets load TTF and WOFF files relative to their sheet, from files, data: URLs and HTTP, and reach the
# PDF; a font that fails to load is named in a warning; text in nine scripts with no font-family comes
# out in real glyphs; characters no font has get one summary warning.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

tools=$(cd "$DATA/../../tools" && pwd)
source_font=/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf

# make_font FAMILY FILE-STEM: a small ASCII font under a family name of its own, as .ttf and .woff.
make_font() {
    /usr/bin/python3 "$tools/make_test_font.py" "$source_font" "$1" "$2.ttf" --woff "$2.woff" 2>/dev/null ||
        fail "could not make the test font $1"
}

mkdir -p fonts css
make_font "Probe Inline" fonts/inline
make_font "Probe Linked" fonts/linked
make_font "Probe Import" fonts/import
make_font "Probe User" fonts/user
make_font "Probe Data" fonts/data
make_font "Probe Caps" fonts/caps
make_font "Probe Bold" fonts/bold
make_font "Probe Http" fonts/http

# convert NAME [OPTIONS...]: NAME.html to NAME.pdf, status 0 and a clean file; messages in NAME.err.
convert() {
    local name=$1
    shift
    timeout 120 "$VELLUM" "$@" "$name.html" -o "$name.pdf" 2>"$name.err"
    local rc=$?
    expect_eq "$name: status" "$rc" 0
    if [ "$rc" -eq 0 ]; then
        qpdf_clean "$name" "$name.pdf"
    fi
}

fonts_of() { pdffonts "$1" 2>/dev/null | tail -n +3; }

# Inline style element, WOFF by a URL relative to the document.
cat > inline.html <<'HTML'
<!DOCTYPE html><html><head><style>
@font-face { font-family: X; src: url(fonts/inline.woff) }
p { font-family: X }
</style></head><body><p>Inline face</p></body></html>
HTML
convert inline
expect_contains "inline: font" "$(fonts_of inline.pdf)" "ProbeInline"
expect_contains "inline: text" "$(pdftotext inline.pdf - 2>/dev/null)" "Inline face"
expect_not_contains "inline: no warning" "$(cat inline.err)" "warning"

# A linked sheet in another folder: its URL is relative to the sheet, not to the document.
cat > css/linked.css <<'CSS'
@font-face { font-family: "Linked Face"; src: url(../fonts/linked.woff) format("woff") }
p { font-family: "Linked Face", serif }
CSS
cat > linked.html <<'HTML'
<!DOCTYPE html><html><head><link rel="stylesheet" href="css/linked.css"></head>
<body><p>Linked face</p></body></html>
HTML
convert linked
expect_contains "linked: font" "$(fonts_of linked.pdf)" "ProbeLinked"

# An imported sheet, imported by a linked one.
cat > css/outer.css <<'CSS'
@import url(inner/import.css);
CSS
mkdir -p css/inner
cat > css/inner/import.css <<'CSS'
@font-face { font-family: Imported; src: url(../../fonts/import.ttf) }
p { font-family: Imported }
CSS
cat > import.html <<'HTML'
<!DOCTYPE html><html><head><link rel="stylesheet" href="css/outer.css"></head>
<body><p>Imported face</p></body></html>
HTML
convert import
expect_contains "import: font" "$(fonts_of import.pdf)" "ProbeImport"

# A user sheet given with -s.
cat > css/user.css <<'CSS'
@font-face { font-family: Usered; src: url(../fonts/user.woff) }
p { font-family: Usered }
CSS
cat > user.html <<'HTML'
<!DOCTYPE html><html><body><p>User face</p></body></html>
HTML
convert user -s css/user.css
expect_contains "user sheet: font" "$(fonts_of user.pdf)" "ProbeUser"

# A data: URL holding the whole font.
data=$(base64 -w0 fonts/data.ttf)
cat > data.html <<HTML
<!DOCTYPE html><html><head><style>
@font-face { font-family: Inlined; src: url(data:font/ttf;base64,$data) }
p { font-family: Inlined }
</style></head><body><p>Data face</p></body></html>
HTML
convert data
expect_contains "data url: font" "$(fonts_of data.pdf)" "ProbeData"

# Over HTTP: a document served with its font beside it, and a local document naming a font by its
# address; both go through the program's loader.
mkdir -p site/fonts
cp fonts/http.woff site/fonts/http.woff
cat > site/served.html <<'HTML'
<!DOCTYPE html><html><head><style>
@font-face { font-family: Served; src: url(fonts/http.woff) }
p { font-family: Served }
</style></head><body><p>Served face</p></body></html>
HTML
/usr/bin/python3 -m http.server 0 --bind 127.0.0.1 --directory site > server.log 2>&1 &
server=$!
trap 'kill $server 2>/dev/null; rm -rf "$work"' EXIT
port=
for _ in $(seq 50); do
    port=$(sed -n 's/.* port \([0-9]*\) .*/\1/p' server.log)
    [ -n "$port" ] && break
    sleep 0.1
done
if [ -z "$port" ]; then
    fail "the test server did not start: $(cat server.log)"
else
    timeout 120 "$VELLUM" "http://127.0.0.1:$port/served.html" -o served.pdf 2>served.err
    expect_eq "http document: status" "$?" 0
    expect_contains "http document: font" "$(fonts_of served.pdf)" "ProbeHttp"
    cat > remote.html <<HTML
<!DOCTYPE html><html><head><style>
@font-face { font-family: Remote; src: url(http://127.0.0.1:$port/fonts/http.woff) }
p { font-family: Remote }
</style></head><body><p>Remote face</p></body></html>
HTML
    convert remote
    expect_contains "http font: font" "$(fonts_of remote.pdf)" "ProbeHttp"
fi

# Sources the program cannot read are passed over by their format hint, without a fetch; the next
# source of the rule is used.
cat > format.html <<'HTML'
<!DOCTYPE html><html><head><style>
@font-face { font-family: F; src: url(fonts/none.woff2) format("woff2"), url(fonts/inline.woff) format("woff") }
p { font-family: F }
</style></head><body><p>Hinted face</p></body></html>
HTML
convert format
expect_contains "format hint: font" "$(fonts_of format.pdf)" "ProbeInline"
expect_not_contains "format hint: woff2 not fetched" "$(cat format.err)" "none.woff2"

# A document's face comes before the program's own face of the same family name.
cat > precedence.html <<'HTML'
<!DOCTYPE html><html><head><style>
@font-face { font-family: "DejaVu Sans"; src: url(fonts/inline.ttf) }
p { font-family: "DejaVu Sans" }
</style></head><body><p>Document first</p></body></html>
HTML
convert precedence
fonts=$(fonts_of precedence.pdf)
expect_contains "precedence: document face" "$fonts" "ProbeInline"
expect_not_contains "precedence: program face unused" "$fonts" "DejaVuSans"

# unicode-range splits a family between faces; font-weight picks the bold face for bold text.
cat > ranges.html <<'HTML'
<!DOCTYPE html><html><head><style>
@font-face { font-family: R; src: url(fonts/inline.ttf) }
@font-face { font-family: R; src: url(fonts/caps.woff); unicode-range: U+41-5A }
@font-face { font-family: R; src: url(fonts/bold.ttf); font-weight: bold }
p { font-family: R }
</style></head><body><p>ABC def</p><p><b>heavy</b></p></body></html>
HTML
convert ranges
fonts=$(fonts_of ranges.pdf)
expect_contains "unicode-range: capitals face" "$fonts" "ProbeCaps"
expect_contains "unicode-range: face for the rest" "$fonts" "ProbeInline"
expect_contains "font-weight: bold face" "$fonts" "ProbeBold"

# A font that does not load is named, with its URL, in a warning; the text still shows.
cat > bad.html <<'HTML'
<!DOCTYPE html><html><head><style>
@font-face { font-family: B; src: url(fonts/missing-face.woff) }
@font-face { font-family: C; src: url(fonts/not-a-font.ttf) }
p { font-family: B, C, serif }
</style></head><body><p>Still here</p></body></html>
HTML
printf 'this is not a font' > fonts/not-a-font.ttf
convert bad
expect_contains "bad font: warning names the missing file" "$(grep -i warning bad.err)" "missing-face.woff"
expect_contains "bad font: warning names the broken file" "$(grep -i warning bad.err)" "not-a-font.ttf"
expect_contains "bad font: text" "$(pdftotext bad.pdf - 2>/dev/null)" "Still here"

# Nine scripts, no font-family: every paragraph comes back from the PDF as written.
paragraphs=(
    "Αυτή είναι μια παράγραφος στα ελληνικά."
    "Это абзац на русском языке."
    "זוהי פסקה בעברית."
    "هذه فقرة باللغة العربية."
    "यह हिंदी का एक अनुच्छेद है।"
    "นี่คือย่อหน้าภาษาไทย"
)
cjk=/usr/share/fonts/opentype/noto/NotoSerifCJK-Regular.ttc
if [ -f "$cjk" ]; then
    paragraphs+=("我们今天去公园散步。" "日本語の段落です。" "한국어 문단입니다.")
else
    echo "note: $cjk is absent, the Chinese, Japanese and Korean paragraphs are not checked"
fi
{
    printf '<!DOCTYPE html><html><head><meta charset="utf-8"></head><body>\n'
    for p in "${paragraphs[@]}"; do
        printf '<p>%s</p>\n' "$p"
    done
    printf '</body></html>\n'
} > scripts.html
convert scripts
text=$(pdftotext -raw scripts.pdf - 2>/dev/null)
expect_not_contains "scripts: no question marks" "$text" "?"
expect_not_contains "scripts: no missing glyphs" "$(cat scripts.err)" "no glyphs"
# Right-to-left words come out of pdftotext in visual order, so words are looked for one by one.
for p in "${paragraphs[@]}"; do
    for word in $p; do
        word=${word%[.。।]}
        case "$p" in
        *[א-ת]* | *[ء-ي]*) rev=$(printf '%s' "$word" | python3 -c 'import sys; print(sys.stdin.read()[::-1])') ;;
        *) rev=$word ;;
        esac
        case "$text" in
        *"$word"* | *"$rev"*) ;;
        *) fail "scripts: [$word] not found in the text" ;;
        esac
    done
done
# Each paragraph is in a face that has its script, not in a stand-in.
fonts=$(fonts_of scripts.pdf)
for face in NotoSerifDevanagari NotoSerifThai; do
    expect_contains "scripts: $face used" "$fonts" "$face"
done
if [ -f "$cjk" ]; then
    expect_contains "scripts: CJK face used" "$fonts" "NotoSerifCJK"
fi

# Characters that no font has: one warning for all of them, with their number.
cat > missing.html <<'HTML'
<!DOCTYPE html><html><head><meta charset="utf-8"></head><body>
<p>a &#x10FFF0; b &#x10FFF1; c &#x10FFF2; d &#x10FFF0;</p>
<p style="font-weight: bold">&#x10FFF1; again</p>
</body></html>
HTML
convert missing
expect_eq "missing glyphs: one warning" "$(grep -c 'no glyphs' missing.err)" 1
expect_contains "missing glyphs: summary" "$(cat missing.err)" "no glyphs for 3 characters"
expect_contains "missing glyphs: example" "$(cat missing.err)" "U+10FFF0"

finish
