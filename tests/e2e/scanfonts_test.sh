#!/usr/bin/env bash
# The font scanner: one @font-face rule for each font file, in argument order, on standard output;
# files that do not load are logged and passed over; licence bits that forbid embedding are warned
# about and the rule is still written.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

dejavu=/usr/share/fonts/truetype/dejavu
liberation=/usr/share/fonts/truetype/liberation2

# Two faces and a missing file between them.
"$VELLUM" --scanfonts "$dejavu/DejaVuSerifCondensed-BoldItalic.ttf" missing.ttf \
    "$liberation/LiberationMono-Regular.ttf" >out.css 2>err.txt
rc=$?
expect_eq "scan: status" "$rc" 0
expected="/* DejaVu Serif Condensed Bold Italic */
@font-face {
    font-family: \"DejaVu Serif\";
    font-weight: bold;
    font-style: italic;
    font-stretch: semi-condensed;
    src: url(\"$dejavu/DejaVuSerifCondensed-BoldItalic.ttf\")
}

/* Liberation Mono */
@font-face {
    font-family: \"Liberation Mono\";
    font-weight: normal;
    font-style: normal;
    font-stretch: normal;
    src: url(\"$liberation/LiberationMono-Regular.ttf\")
}"
expect_eq "scan: output" "$(cat out.css)" "$expected"
# Each rule ends with an empty line.
expect_eq "scan: last line empty" "$(tail -c 2 out.css | od -An -c | tr -d ' ')" '\n\n'
expect_contains "scan: missing file" "$(cat err.txt)" "vellum: missing.ttf: error: "

# With --verbose the Unicode ranges of the OS/2 table come first.
out=$("$VELLUM" --verbose --scanfonts "$dejavu/DejaVuSans.ttf" 2>/dev/null)
expect_contains "verbose: ranges" "$out" "/* DejaVu Sans */
/* UnicodeRange:
    Basic Latin
    Latin-1 Supplement
"
expect_contains "verbose: ranges end" "$out" "    Domino Tiles
*/
@font-face {"

# Quotes in the file name are escaped; "*/" in the name would end the comment and is broken up.
cp "$dejavu/DejaVuSansMono.ttf" 'we"ird.ttf'
out=$("$VELLUM" --scanfonts 'we"ird.ttf' 2>/dev/null)
expect_contains "escaped file name" "$out" '    src: url("we\"ird.ttf")'

# Licence bits: fsType is the word at offset 8 of the OS/2 table.
set_fstype() {
    /usr/bin/python3 - "$1" "$2" "$3" <<'EOF'
import struct, sys
src, dst, value = sys.argv[1], sys.argv[2], int(sys.argv[3], 16)
data = bytearray(open(src, 'rb').read())
count = struct.unpack('>H', data[4:6])[0]
for i in range(count):
    tag, _, offset, _ = struct.unpack('>4sIII', data[12 + 16 * i:28 + 16 * i])
    if tag == b'OS/2':
        data[offset + 8:offset + 10] = struct.pack('>H', value)
open(dst, 'wb').write(data)
EOF
}
set_fstype "$dejavu/DejaVuSans.ttf" restricted.ttf 0002
set_fstype "$dejavu/DejaVuSans.ttf" bogus.ttf 0010
set_fstype "$dejavu/DejaVuSans.ttf" editable.ttf 0008
"$VELLUM" --scanfonts restricted.ttf bogus.ttf editable.ttf >out.css 2>err.txt
rc=$?
expect_eq "licence: status" "$rc" 0
expect_eq "licence: three rules" "$(grep -c '^@font-face {' out.css)" 3
expect_eq "licence: messages" "$(cat err.txt)" "vellum: restricted.ttf: warning: font does not allow embedding
vellum: bogus.ttf: warning: font has invalid embedding bits: 0x0010
vellum: bogus.ttf: warning: font does not allow embedding"

# A file that is not a font.
echo "not a font" > text.ttf
out=$("$VELLUM" --scanfonts text.ttf 2>err.txt)
expect_eq "not a font: no output" "$out" ""
expect_contains "not a font: error" "$(cat err.txt)" "vellum: text.ttf: error: "

finish
