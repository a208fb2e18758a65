function f(a, b) { try { for (var i in a) if (a) continue; else break } catch (e) { throw e } finally { switch (b) { case 1: default: } } }
<!-- x
