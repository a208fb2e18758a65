#!/usr/bin/env bash
# Content the program can't lay out yet is named once per kind, never dropped in silence; counters
# hold at the integer range; the box tree documents of the tools convert.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
head="<!DOCTYPE html><html><head><style>@font-face { font-family: T; src: url($font) }
body { font: 12pt T }"

cat >losses.html <<HTML
$head
.fn { float: footnote } .a { position: absolute; top: 1in } .a2 { position: absolute; top: 2in }
.f { position: fixed; top: 3in } .f2 { position: fixed; top: 4in } .l { float: left }
</style></head><body>
<p>Call one<span class="fn">first note</span> and two<span class="fn">second note</span>.</p>
<div class="a">absolute one</div><div class="a2">absolute two</div>
<div class="f">fixed one</div><div class="f2">fixed two</div>
<div class="l">floating</div><p>after</p>
</body></html>
HTML
timeout 60 "$VELLUM" losses.html -o losses.pdf 2>losses.err
expect_eq "losses: status" "$?" 0
qpdf_clean "losses" losses.pdf
err=$(cat losses.err)
expect_not_contains "losses: footnotes are laid out, not warned about" "$err" "float: footnote"
expect_not_contains "losses: absolute boxes are laid out, not warned about" "$err" "position: absolute"
expect_not_contains "losses: fixed boxes are laid out, not warned about" "$err" "position: fixed"
expect_not_contains "losses: no word on ordinary floats" "$err" "float: left"
text=$(pdftotext -layout losses.pdf -)
# Floats, footnotes and positioned boxes keep their text.
for words in "first note" "second note" "absolute one" "absolute two" "fixed one" "fixed two" "floating" "after"; do
    expect_contains "losses: $words" "$text" "$words"
done

cat >counters.html <<HTML
$head
p { counter-reset: c 2147483647 d -2147483648 }
.up { counter-increment: c 10 } .up::before { content: "[" counter(c) "]" }
.down { counter-increment: d -10 } .down::before { content: "[" counter(d) "]" }
</style></head><body><p><span class="up">a</span> <span class="up">b</span> <span class="down">c</span></p></body></html>
HTML
timeout 60 "$VELLUM" counters.html -o counters.pdf 2>counters.err
expect_eq "counters: status" "$?" 0
text=$(pdftotext -layout counters.pdf -)
expect_eq "counters: held at the top" "$(echo "$text" | grep -o '\[2147483647\]' | wc -l)" 2
expect_contains "counters: held at the bottom" "$text" "[-2147483648]"

# A million counter names reset on one element.
python3 -c "
names = ' '.join('c%d %d' % (i, i % 10) for i in range(1000000))
print('<style>div { counter-reset: ' + names + ' } p::before { content: counter(c123457) }</style><div>x</div><p>y</p>')
" >wide.html
timeout 120 "$VELLUM" wide.html -o wide.pdf 2>wide.err
expect_eq "wide: status" "$?" 0
expect_contains "wide: the counter's value" "$(pdftotext wide.pdf -)" "7y"

# A document of the box dump tool with page sections and a right-to-left paragraph, converted by the
# program.
timeout 60 "$VELLUM" "$DATA/../tools/data/boxes/sections.html" -o sections.pdf 2>sections.err
expect_eq "sections: status" "$?" 0
qpdf_clean "sections" sections.pdf
text=$(pdftotext sections.pdf -)
for words in Contents LOUD "Every Word Here" Across "pre wrap" abc; do
    expect_contains "sections: $words" "$text" "$words"
done

finish
