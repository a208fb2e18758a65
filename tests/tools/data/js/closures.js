// expect: 3 7 hoisted
function counter() { var c = 0; return function () { return ++c; }; }
var k = counter(); k(); k();
function add(a) { return function (b) { return a + b; }; }
k() + " " + add(3)(4) + " " + later();
function later() { return "hoisted"; }
