#!/usr/bin/env bash
# Conformance profiles: PDF/A-1a, PDF/A-1b, PDF/X-3:2003 and PDF/X-4 files carry an XMP packet with the
# profile's identification and an output intent with the program's ICC profile; PDF/X pages have trim
# and bleed boxes and the information dictionary names the version; options and content the profile
# does not allow are changed with a message.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"
command -v qpdf >/dev/null && command -v pdffonts >/dev/null || exit 77
ICC_DIR="$DATA/../../resources/icc"

cat >doc.html <<'HTML'
<!DOCTYPE html><html><head><title>Annual report</title><style>
@page { size: 300pt 300pt; margin: 20pt }
body { font: 12pt "DejaVu Sans" }
</style></head><body>
<p style="opacity: 0.5; background: red">Half seen</p>
<p style="page-break-before: always">Opaque, with <a href="http://example.org/">a link</a></p>
</body></html>
HTML

# object FILE N: object N as qpdf shows it; ref_in TEXT KEY: the object number KEY refers to.
object() { qpdf --show-object="$2" "$1"; }
ref_in() { echo "$1" | sed -n "s/.*\/$2 \[\{0,1\} *\([0-9]*\) 0 R.*/\1/p"; }
# The XMP packet of a file, checked to be well-formed XML, and one property of it.
xmp_property() {
    local cat xmp
    cat=$(object "$1" 1)
    xmp=$(ref_in "$cat" Metadata)
    qpdf --show-object="$xmp" --filtered-stream-data "$1" | /usr/bin/python3 -c '
import sys, xml.dom.minidom
doc = xml.dom.minidom.parseString(sys.stdin.buffer.read())
for node in doc.getElementsByTagName(sys.argv[1]):
    print(node.firstChild.data)
' "$2"
}

for profile in PDF/A-1a PDF/A-1b PDF/X-3:2003 PDF/X-4; do
    name=$(echo "$profile" | tr -d '/:-')
    timeout 60 "$VELLUM" doc.html --pdf-profile="$profile" -o "$name.pdf" 2>"$name.err"
    expect_eq "$profile: status" "$?" 0
    qpdf_clean "$profile" "$name.pdf"
    cat=$(object "$name.pdf" 1)
    expect_contains "$profile: metadata" "$cat" "/Metadata"
    intent=$(object "$name.pdf" "$(ref_in "$cat" OutputIntents)")
    expect_contains "$profile: output intent" "$intent" "/Type /OutputIntent"
    expect_contains "$profile: registry" "$intent" "/RegistryName (http://www.color.org)"
    icc=$(ref_in "$intent" DestOutputProfile)
    qpdf --show-object="$icc" --filtered-stream-data "$name.pdf" >"$name.icc"
    expect_eq "$profile: dc:format" "$(xmp_property "$name.pdf" dc:format)" "application/pdf"
    expect_eq "$profile: dc:title" "$(xmp_property "$name.pdf" rdf:li)" "Annual report"
    expect_contains "$profile: creation date" "$(xmp_property "$name.pdf" xmp:CreateDate)" "T"
    pages=$(qpdf --show-npages "$name.pdf")
    case "$profile" in
    PDF/A-*)
        expect_contains "$profile: intent subtype" "$intent" "/S /GTS_PDFA1"
        expect_eq "$profile: ICC profile" "$(cmp "$name.icc" "$ICC_DIR/sRGB_IEC61966-2-1_black_scaled.icc" && echo same)" same
        expect_contains "$profile: ICC components" "$(object "$name.pdf" "$icc")" "/N 3"
        expect_eq "$profile: pdfaid:part" "$(xmp_property "$name.pdf" pdfaid:part)" 1
        expect_eq "$profile: conformance letter" "$(xmp_property "$name.pdf" pdfaid:conformance)" \
            "$(echo "${profile#PDF/A-1}" | tr a-z A-Z)"
        # Transparency is stripped, with a message for each page that had it.
        expect_eq "$profile: stripped" "$(grep -c 'stripped transparency from page to comply with '"$profile" "$name.err")" 1
        expect_eq "$profile: no opacity" "$(qpdf --qdf "$name.pdf" - | grep -a -c '/ca ')" 0
        expect_eq "$profile: no page group" "$(qpdf --qdf "$name.pdf" - | grep -a -c '/Group')" 0
        # Links stay, printable.
        expect_eq "$profile: link printed" "$(qpdf --qdf "$name.pdf" - | grep -a -c '^ *\/F 4$')" 1
        ;;
    PDF/X-*)
        expect_contains "$profile: intent subtype" "$intent" "/S /GTS_PDFX"
        expect_eq "$profile: ICC profile" "$(cmp "$name.icc" "$ICC_DIR/USWebCoatedSWOP.icc" && echo same)" same
        expect_contains "$profile: ICC components" "$(object "$name.pdf" "$icc")" "/N 4"
        expect_contains "$profile: intent description" "$intent" "/OutputConditionIdentifier (Vellum generic CMYK"
        info=$(pdfinfo -box "$name.pdf")
        expect_contains "$profile: subtype" "$info" "PDF subtype:    $profile"
        expect_eq "$profile: trim boxes" "$(qpdf --qdf "$name.pdf" - | grep -a -c '/TrimBox')" "$pages"
        expect_eq "$profile: bleed boxes" "$(qpdf --qdf "$name.pdf" - | grep -a -c '/BleedBox')" "$pages"
        trailer=$(object "$name.pdf" trailer)
        infodict=$(object "$name.pdf" "$(ref_in "$trailer" Info)")
        expect_contains "$profile: trapped" "$infodict" "/Trapped /False"
        expect_contains "$profile: dates" "$infodict" "/CreationDate (D:"
        expect_contains "$profile: modification date" "$infodict" "/ModDate (D:"
        expect_eq "$profile: xmp version" "$(xmp_property "$name.pdf" pdfx:GTS_PDFXVersion)$(xmp_property "$name.pdf" pdfxid:GTS_PDFXVersion)" "$profile"
        expect_eq "$profile: xmp trapped" "$(xmp_property "$name.pdf" pdf:Trapped)" "False"
        # No link annotations on PDF/X pages.
        expect_eq "$profile: no annotations" "$(qpdf --qdf "$name.pdf" - | grep -a -c '/Annots')" 0
        ;;
    esac
done
# PDF/X-3 strips transparency, PDF/X-4 keeps it.
expect_contains "PDF/X-3: stripped" "$(cat PDFX32003.err)" "stripped transparency from page to comply with PDF/X-3:2003"
expect_eq "PDF/X-4: opacity kept" "$(qpdf --qdf PDFX4.pdf - | grep -a -c '/ca 0.5')" 1
expect_eq "PDF/X-4: no message" "$(cat PDFX4.err)" ""

# Options the profile does not allow are changed, each with its message.
echo "attached" >note.txt
timeout 60 "$VELLUM" doc.html --pdf-profile=pdf/a-1b --attach=note.txt --no-embed-fonts -o options.pdf 2>options.err
expect_eq "options: status" "$?" 0
expect_contains "options: attachments" "$(cat options.err)" "PDF/A-1b does not support attachments"
expect_contains "options: fonts" "$(cat options.err)" "PDF/A-1b requires fonts to be embedded"
expect_not_contains "options: no attachment" "$(object options.pdf 1)" "EmbeddedFiles"
expect_eq "options: fonts embedded" "$(pdffonts options.pdf | tail -n +3 | awk '{print $(NF-4)}' | sort -u)" yes

# --pdf-output-intent names another ICC profile; one that cannot be loaded is an error, and the file is
# still whole.
timeout 60 "$VELLUM" doc.html --pdf-profile=PDF/X-4 --pdf-output-intent="$ICC_DIR/sRGB_IEC61966-2-1_black_scaled.icc" \
    -o intent.pdf 2>intent.err
expect_eq "intent: status" "$?" 0
cat=$(object intent.pdf 1)
intent=$(object intent.pdf "$(ref_in "$cat" OutputIntents)")
expect_contains "intent: description" "$intent" "/Info (sRGB)"
timeout 60 "$VELLUM" doc.html --pdf-profile=PDF/X-4 --pdf-output-intent=missing.icc -o missing.pdf 2>missing.err
expect_eq "missing: status" "$?" 0
expect_contains "missing: message" "$(cat missing.err)" "could not load ICC profile"
qpdf_clean "missing" missing.pdf
head -c 200 doc.html >broken.icc
timeout 60 "$VELLUM" doc.html --pdf-profile=PDF/A-1b --pdf-output-intent=broken.icc -o broken.pdf 2>broken.err
expect_contains "broken ICC: message" "$(cat broken.err)" "ICC profile"
qpdf_clean "broken" broken.pdf

# A style sheet can ask for a profile; without one no XMP packet is written.
cat >styled.html <<'HTML'
<!DOCTYPE html><html><head><style>@vellum-pdf { -vellum-pdf-profile: "PDF/X-4" }</style></head>
<body><p>Styled</p></body></html>
HTML
timeout 60 "$VELLUM" styled.html -o styled.pdf 2>styled.err
expect_contains "styled: profile" "$(pdfinfo styled.pdf)" "PDF/X-4"
timeout 60 "$VELLUM" doc.html -o none.pdf 2>none.err
expect_not_contains "none: no metadata" "$(object none.pdf 1)" "/Metadata"
expect_not_contains "none: no intent" "$(object none.pdf 1)" "/OutputIntents"

# An image with an alpha channel loses its mask under a profile without transparency, with one warning;
# PDF/X-4 keeps it.
cp "$DATA/../image/data/rgba.png" rgba.png
cat >alpha.html <<'HTML'
<!DOCTYPE html><html><body><p><img src="rgba.png" alt="a"> <img src="rgba.png" alt="b"></p></body></html>
HTML
timeout 60 "$VELLUM" alpha.html --pdf-profile=PDF/A-1b -o alpha-a.pdf 2>alpha-a.err
expect_eq "alpha under PDF/A-1b: warned once" "$(grep -c 'PDF/A-1b does not support transparent images' alpha-a.err)" 1
expect_eq "alpha under PDF/A-1b: no soft mask" "$(qpdf --qdf --object-streams=disable alpha-a.pdf - | grep -ac /SMask)" 0
timeout 60 "$VELLUM" alpha.html --pdf-profile=PDF/X-4 -o alpha-x.pdf 2>alpha-x.err
expect_not_contains "alpha under PDF/X-4: no warning" "$(cat alpha-x.err)" "transparent images"
expect_eq "alpha under PDF/X-4: one soft mask, shared" "$(qpdf --qdf --object-streams=disable alpha-x.pdf - | grep -ac /SMask)" 1

# PDF/X-4 is a PDF 1.6 profile; the others keep the version the content asks for.
expect_eq "PDF/X-4: version" "$(head -c 8 PDFX4.pdf)" "%PDF-1.6"
expect_eq "PDF/A-1b: version" "$(head -c 8 PDFA1b.pdf)" "%PDF-1.4"

# Markup characters in the metadata are escaped in the XMP packet, which stays well-formed.
sed 's|<title>Annual report</title>|<title>R\&amp;D \&lt;2024\&gt; "draft"</title><meta name="author" content="O'"'"'Neil \&amp; Sons">|' \
    doc.html >escaped.html
timeout 60 "$VELLUM" escaped.html --pdf-profile=PDF/A-1b -o escaped.pdf 2>escaped.err
expect_eq "escaped: status" "$?" 0
expect_eq "escaped: title" "$(xmp_property escaped.pdf rdf:li | sed -n 1p)" 'R&D <2024> "draft"'
expect_eq "escaped: author" "$(xmp_property escaped.pdf rdf:li | tail -1)" "O'Neil & Sons"

# PDF/A-1a is tagged: headings, paragraphs, lists, tables and figures (with their alternate text) are
# structure elements whose content is marked on the pages; running heads and backgrounds are artifacts.
cp "$DATA/../image/data/rgb.png" logo.png
cat >tagged.html <<'HTML'
<!DOCTYPE html><html lang="en-GB"><head><title>Tagged</title><style>
@page { size: 300pt 400pt; margin: 40pt; @top-center { content: "RUNNING HEAD" } }
body { font: 10pt "DejaVu Sans" } .box { background: #eee; border: 1pt solid black }
</style></head><body>
<h1>Report title</h1>
<p class="box">First paragraph with <em>emphasis</em>.</p>
<ul><li>Item one</li><li>Item two</li></ul>
<table><tr><th>Head</th><td>Cell</td></tr></table>
<p><img src="logo.png" alt="Company logo"></p>
<p lang="de">Deutscher Absatz.</p>
</body></html>
HTML
timeout 60 "$VELLUM" tagged.html --pdf-profile=PDF/A-1a -o tagged.pdf 2>tagged.err
expect_eq "tagged: status" "$?" 0
expect_eq "tagged: no messages" "$(cat tagged.err)" ""
qpdf_clean "tagged" tagged.pdf
cat=$(object tagged.pdf 1)
expect_contains "tagged: marked" "$cat" "/MarkInfo << /Marked true >>"
expect_contains "tagged: structure root" "$cat" "/StructTreeRoot"
# Language tags are kept in lower case; they are compared without regard to case.
expect_contains "tagged: language" "$cat" "/Lang (en-gb)"
tree=$(pdfinfo -struct-text tagged.pdf 2>&1)
for element in "Document" "H1" "P" "L" "LI" "Table" "TR" "TH" "TD" "Figure"; do
    expect_contains "tagged: $element element" "$tree" "$element"
done
expect_contains "tagged: heading text" "$(echo "$tree" | grep -A1 'H1')" "Report title"
expect_contains "tagged: figure alt" "$(qpdf --qdf --object-streams=disable tagged.pdf - | tr -d '\0')" "/Alt (Company logo)"
expect_contains "tagged: paragraph language" "$(qpdf --qdf --object-streams=disable tagged.pdf - | tr -d '\0')" "/Lang (de)"
# The running head is an artifact, so it is not part of the structure's text.
expect_not_contains "tagged: running head is an artifact" "$tree" "RUNNING HEAD"
expect_contains "tagged: running head still shown" "$(pdftotext tagged.pdf -)" "RUNNING HEAD"
page=$(qpdf --qdf --object-streams=disable tagged.pdf - | tr -d '\0')
expect_contains "tagged: artifacts" "$page" "/Artifact BMC"
expect_contains "tagged: struct parents" "$page" "/StructParents 0"
# Without PDF/A-1a nothing is marked.
expect_not_contains "untagged: no marks" "$(qpdf --qdf --object-streams=disable PDFA1b.pdf - | tr -d '\0')" "MCID"

# PDF/X paints in process colours: no device RGB in the pages, the images or the shadings.
cat >press.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 200pt; margin: 10pt }
body { font: 10pt "DejaVu Sans"; color: #0000ff }
div { height: 40pt; background: linear-gradient(to right, red, yellow) }
</style></head><body><p style="background: red">Red box, blue text</p><div></div>
<p><img src="logo.png" alt="logo" style="width: 40pt"></p></body></html>
HTML
for profile in PDF/X-3:2003 PDF/X-4; do
    timeout 60 "$VELLUM" press.html --pdf-profile="$profile" -o press.pdf 2>press.err
    expect_eq "$profile press: status" "$?" 0
    qpdf_clean "$profile press" press.pdf
    pressq=$(qpdf --qdf --object-streams=disable press.pdf - | tr -d '\0')
    expect_not_contains "$profile press: no device RGB" "$pressq" "DeviceRGB"
    expect_eq "$profile press: no rg operators" "$(echo "$pressq" | grep -ac ' rg$')" 0
    expect_contains "$profile press: CMYK fills" "$pressq" " k"
    expect_contains "$profile press: CMYK image" "$pressq" "/ColorSpace /DeviceCMYK"
    pdftoppm -r 72 -png press.pdf press
    result=$(/usr/bin/python3 - <<'PY'
from PIL import Image
im = Image.open("press-1.png").convert("RGB")
# The red background still prints red: a band of red pixels across the page.
reds = sum(1 for p in im.getdata() if p[0] > 200 and p[1] < 60 and p[2] < 60)
print("ok" if reds > 1000 else f"red pixels: {reds}")
PY
)
    expect_eq "$profile press: red stays red" "$result" "ok"
done

timeout 60 "$VELLUM" doc.html --pdf-profile=PDF/Z -o bad.pdf 2>bad.err
expect_eq "unknown profile: status" "$?" 1
expect_contains "unknown profile: message" "$(cat bad.err)" "invalid value for option \`--pdf-profile'"
finish
