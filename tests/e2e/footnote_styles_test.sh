#!/usr/bin/env bash
# How footnotes are set: the marker outside (the default) hangs left of the body, inside it starts the
# text; inline footnotes run together in one paragraph, each with its own number; the footnote area
# stands at the foot of the page by default, and directly under the text with "position: static".
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

page() {
    cat <<HTML
<!DOCTYPE html><html><head><style>
@page { size: 300pt 400pt; margin: 30pt; $1 }
body { margin: 0; font: 10pt/12pt "DejaVu Sans" }
p { margin: 0 }
.fn { float: footnote; font-size: 8pt; line-height: 10pt }
.in { float: inline-footnote; font-size: 8pt; line-height: 10pt }
$2
</style></head><body>$3</body></html>
HTML
}

# Outside: the marker "1." ends left of the body's edge (x = 30), the note's text starts on it.
page "" "" '<p>Call<span class="fn">Outsidenote text.</span> here.</p>' >outside.html
timeout 60 "$VELLUM" outside.html -o outside.pdf 2>outside.err
expect_eq "outside: status" "$?" 0
qpdf_clean "outside" outside.pdf
expect_eq "outside: no warnings" "$(cat outside.err)" ""
read -r mx my <<<"$(box_of outside.pdf 1 1.)"
read -r tx ty <<<"$(box_of outside.pdf 1 Outsidenote)"
awk -v m="$mx" -v t="$tx" -v my="$my" -v ty="$ty" 'BEGIN { exit !(m < 30 && t >= 29.5 && t < 31 && my > ty - 1 && my < ty + 1) }' ||
    fail "outside: marker at $mx,$my and text at $tx,$ty: the marker does not hang left of the text"
# Inside: the marker starts the line at the body's edge, the text after it.
page "" ".fn { footnote-style-position: inside }" '<p>Call<span class="fn">Insidenote text.</span> here.</p>' >inside.html
timeout 60 "$VELLUM" inside.html -o inside.pdf 2>inside.err
expect_eq "inside: status" "$?" 0
read -r mx my <<<"$(box_of inside.pdf 1 1.)"
read -r tx ty <<<"$(box_of inside.pdf 1 Insidenote)"
awk -v m="$mx" -v t="$tx" 'BEGIN { exit !(m >= 29.5 && m < 31 && t > m + 5) }' ||
    fail "inside: marker at $mx and text at $tx"

# Inline footnotes: three short notes on one line at the foot, numbered 1 to 3 in order.
page "" "" '<p>One<span class="in">Alpha note.</span> two<span class="in">Beta note.</span> three<span class="in">Gamma note.</span> end.</p>' >inline.html
timeout 60 "$VELLUM" inline.html -o inline.pdf 2>inline.err
expect_eq "inline: status" "$?" 0
qpdf_clean "inline" inline.pdf
expect_eq "inline: no warnings" "$(cat inline.err)" ""
text=$(pdftotext -layout inline.pdf -)
expect_contains "inline: calls numbered" "$text" "One1 two2 three3 end."
line=$(grep "Alpha" <<<"$text")
expect_contains "inline: first note" "$line" "1. Alpha note."
expect_contains "inline: second note on the same line" "$line" "2. Beta note."
expect_contains "inline: third note on the same line" "$line" "3. Gamma note."
read -r ax ay <<<"$(box_of inline.pdf 1 Alpha)"
awk -v y="$ay" 'BEGIN { exit !(y > 340) }' || fail "inline: the notes at $ay are not at the foot of the page"
# Many inline notes fill more than one line, and run on across lines.
notes=""
for i in $(seq 1 12); do notes="$notes word<span class=\"in\">Runnote$i text.</span>"; done
page "" "" "<p>$notes</p>" >many.html
timeout 60 "$VELLUM" many.html -o many.pdf 2>many.err
expect_eq "many inline: status" "$?" 0
text=$(pdftotext -layout many.pdf -)
expect_eq "many inline: all notes" "$(grep -o 'Runnote[0-9]*' <<<"$text" | wc -l)" 12
lines=$(grep -c "Runnote" <<<"$text")
awk -v n="$lines" 'BEGIN { exit !(n >= 2 && n <= 5) }' || fail "many inline: the notes take $lines lines, not a run of 2 to 5"
expect_contains "many inline: the seventh note numbered" "$text" "7. Runnote7"

# The footnote area: at the foot of a short page by default; directly under the text when static.
page "" "" '<p>Shortpage<span class="fn">Footnote text.</span> only.</p>' >foot.html
timeout 60 "$VELLUM" foot.html -o foot.pdf 2>foot.err
expect_eq "foot: status" "$?" 0
read -r fx fy <<<"$(box_of foot.pdf 1 Footnote)"
awk -v y="$fy" 'BEGIN { exit !(y > 355) }' || fail "foot: the note at $fy is not at the foot of the page"
page "@footnote { position: static; border-top: 1pt solid; padding-top: 3pt }" "" \
    '<p>Shortpage<span class="fn">Footnote text.</span> only.</p><p>Second line.</p>' >static.html
timeout 60 "$VELLUM" static.html -o static.pdf 2>static.err
expect_eq "static: status" "$?" 0
expect_eq "static: no warnings" "$(cat static.err)" ""
read -r fx fy <<<"$(box_of static.pdf 1 Footnote)"
read -r sx sy <<<"$(box_of static.pdf 1 Second)"
awk -v y="$fy" -v s="$sy" 'BEGIN { exit !(y > s + 10 && y < s + 25) }' ||
    fail "static: the note at $fy does not follow the text ($sy) directly"

finish
