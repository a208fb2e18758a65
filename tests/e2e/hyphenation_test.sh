#!/usr/bin/env bash
# Hyphenation in documents: `hyphens: auto` with a language reads the program's pattern files through
# the default sheet, and long words break at their hyphenation points in English, German and French.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

font=/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf
head="<!DOCTYPE html><html><head><style>@font-face { font-family: T; src: url($font) }
body { font: 12pt T } div { width: 9em; text-align: justify }</style></head><body>"

# convert NAME BODY: the document converts to a clean PDF; its text is NAME.txt.
convert() {
    printf '%s%s</body></html>' "$head" "$2" >"$1.html"
    timeout 60 "$VELLUM" "$1.html" -o "$1.pdf" 2>"$1.err"
    local rc=$?
    expect_eq "$1: status" "$rc" 0
    if [ "$rc" -eq 0 ]; then
        qpdf_clean "$1" "$1.pdf"
        pdftotext -layout "$1.pdf" "$1.txt"
    else
        : >"$1.txt"
    fi
}

# hyphenated_lines FILE: how many lines end in a hyphen after a letter.
hyphenated_lines() {
    grep -c '[[:alpha:]]-$' "$1"
}

en='Characteristically, internationalization of representational responsibilities necessitates extraordinary administrative considerations.'
de='Donaudampfschifffahrtsgesellschaftskapitän Rechtsschutzversicherungsgesellschaften Geschwindigkeitsbegrenzung.'
fr="Anticonstitutionnellement, l'internationalisation des responsabilités gouvernementales nécessite extraordinairement."

convert en "<div lang=\"en\" style=\"hyphens: auto\">$en</div>"
convert de "<div lang=\"de\" style=\"hyphens: auto\">$de</div>"
convert fr "<div lang=\"fr\" style=\"hyphens: auto\">$fr</div>"
for l in en de fr; do
    n=$(hyphenated_lines $l.txt)
    if [ "$n" -lt 2 ]; then
        fail "$l: expected at least two hyphenated line ends, got $n: $(cat $l.txt)"
    fi
    expect_eq "$l: no warnings" "$(cat $l.err)" ""
done
# Words break at their own points, never leaving fewer than two letters before a hyphen.
short=$(grep -o '[[:alpha:]]*-$' en.txt | awk 'length($0) < 3')
expect_eq "en: at least two letters before a hyphen" "$short" ""
# Rejoined, the hyphenated text reads as written.
joined=$(tr -d '\n' <en.txt | sed 's/-  *//g; s/- *$//; s/   */ /g; s/\([[:alpha:]]\)-\([[:alpha:]]\)/\1\2/g')
expect_contains "en: text back" "$joined" "internationalization"

# Without `hyphens: auto`, and without a language, no word is broken.
convert manual "<div lang=\"en\">$en</div>"
expect_eq "manual: no hyphens" "$(hyphenated_lines manual.txt)" 0
convert nolang "<div style=\"hyphens: auto\">$en</div>"
expect_eq "no language: no hyphens" "$(hyphenated_lines nolang.txt)" 0

# The whole document's language comes from the root element.
printf '<!DOCTYPE html><html lang="de"><head><style>@font-face { font-family: T; src: url(%s) }
body { font: 12pt T } div { width: 9em; text-align: justify; hyphens: auto }</style></head><body><div>%s</div></body></html>' "$font" "$de" >root.html
timeout 60 "$VELLUM" root.html -o root.pdf 2>root.err
expect_eq "root lang: status" "$?" 0
pdftotext -layout root.pdf root.txt
if [ "$(hyphenated_lines root.txt)" -lt 2 ]; then
    fail "root lang: expected hyphenated lines: $(cat root.txt)"
fi

finish
