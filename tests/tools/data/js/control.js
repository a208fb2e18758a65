// expect: 0f1f2f|bc|x,y
var s = "";
for (var i = 0; i < 3; i++) { try { s += i; } finally { s += "f"; } }
var t = "";
switch (2) { case 1: t += "a"; default: t += "d"; case 2: t += "b"; case 3: t += "c"; }
var names = "";
for (var n in {x: 1, y: 2}) names += (names ? "," : "") + n;
s + "|" + t + "|" + names;
