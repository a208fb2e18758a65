// expect: 200000 ab|ba|aa 2 100003 RangeError: range_error: string too long|RangeError: range_error: string too long
// Appends build long strings in linear time; strings sharing a prefix keep their own text; joins of vast
// sparse array-likes cost their separators; strings past the limit throw rather than exhaust memory.
var s = '';
for (var i = 0; i < 200000; i++) s += 'x';
var base = 'a';
var p = base + 'b', q = 'b' + base, r = base + 'a';
var big = {0: 'a', 100000: 'b', length: 100002};
var errors = [];
try { var d = 'x'; for (var j = 0; j < 40; j++) d += d; } catch (e) { errors.push(String(e)); }
try { Array.prototype.join.call({length: 4294967295}); } catch (e) { errors.push(String(e)); }
[s.length, [p, q, r].join('|'), Array.prototype.join.call(big, '').length,
 Array.prototype.join.call(big).length, errors.join('|')].join(' ')
