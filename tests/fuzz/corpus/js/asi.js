do x; while (y)
{ a
++b }
var o = {a: 1, if: [,,3,], "s\x41\u0042\017": 0x1F, 1.5e3: .5}
