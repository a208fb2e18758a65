#!/usr/bin/env bash
# Scripts that set Vellum.trackBoxes read the boxes of elements when the file is written: page, place
# and size in points from the page's top left corner, the box tree with parents and children, and the
# element back. Without tracking, an element has no boxes.
VELLUM=$1
DATA=$2
source "$DATA/lib.sh"
cd "$work"

cat >boxes.html <<'HTML'
<!DOCTYPE html><html><head><style>
@page { size: 200pt 300pt; margin: 20pt }
body { margin: 0; font: 10pt serif }
#a { margin-left: 10pt; width: 100pt; height: 40pt; border: 1pt solid black }
#tall { height: 450pt }
</style>
<script type="text/javascript">
Vellum.trackBoxes = TRACK;
Vellum.addEventListener('complete', function () {
  var a = document.getElementById('a');
  var bs = a.getVellumBoxes();
  console.log('count ' + bs.length);
  if (!bs.length) return;
  var b = bs[0];
  console.log('a ' + b.type + ' page ' + b.pageNum + ' at ' + b.x + ',' + b.y + ' size ' + b.w + 'x' + b.h);
  var s = document.getElementById('s').getVellumBoxes()[0];
  console.log('span ' + s.type + ' in ' + s.parent.element.id + ' same ' + (s.parent === b) +
              ' above ' + (s.y >= b.y && s.y + s.h <= b.y + b.h));
  console.log('children ' + b.children.length + ' ' + (b.children.item(0) === s) + ' ' + b.children.item(3) +
              ' ' + (b.children[0] === s) + ' ' + (b.element === a) + ' ' + b.parent.element.tagName);
  var t = document.getElementById('tall').getVellumBoxes();
  console.log('tall ' + t.map(function (x) { return x.pageNum; }).join(','));
  var img = document.getElementById('pic').getVellumBoxes();
  console.log('picture ' + img.length + ' ' + (img.length ? img[0].type : ''));
});
</script></head><body>
<div id="a">Some <span id="s">spanned</span> text</div>
<div><svg id="pic" width="20" height="10"><rect width="20" height="10"/></svg></div>
<div id="tall">tall</div>
</body></html>
HTML

sed 's/TRACK/true/' boxes.html >on.html
out=$(timeout 60 "$VELLUM" --javascript on.html -o on.pdf 2>&1)
expect_eq "tracked: status" "$?" 0
qpdf_clean "tracked" on.pdf
expect_contains "tracked: one box" "$out" "count 1"
# 20pt page margin plus 10pt of its own; 100pt wide plus two 1pt borders.
expect_contains "tracked: place and size" "$out" "a BOX page 1 at 30,20 size 102x42"
expect_contains "tracked: the span inside the block" "$out" "span SPAN in a same true above true"
expect_contains "tracked: children, item and element" "$out" "children 1 true null true true BODY"
expect_contains "tracked: a box split over two pages" "$out" "tall 1,2"
expect_contains "tracked: a drawing" "$out" "picture 1 SVG"

sed 's/TRACK/false/' boxes.html >off.html
out=$(timeout 60 "$VELLUM" --javascript off.html -o off.pdf 2>&1)
expect_eq "untracked: status" "$?" 0
expect_contains "untracked: no boxes" "$out" "count 0"
finish
