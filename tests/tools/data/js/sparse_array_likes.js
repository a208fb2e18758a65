// expect: a,b,,z,,4294967294,x,y,a,b,,4294967292,,z,a,b,,3,q,4294967290,7,0/100000/3000000000
// Array methods on array-likes of vast length and few elements visit what is held, in order, and see
// elements added by a callback; a loop over every index would take hours.
var r = [];
var o = {0: 'a', 5: 'b', 4294967294: 'z', length: 4294967295};
r.push(Array.prototype.shift.call(o), o[4], o[5], o[4294967293], o[4294967294], o.length);
var u = {0: 'a', 5: 'b', length: 4294967290};
Array.prototype.unshift.call(u, 'x', 'y');
r.push(u[0], u[1], u[2], u[7], u[5], u.length);
var v = {0: 'a', 1: 'b', 4294967293: 'z', length: 4294967295};
Array.prototype.reverse.call(v);
r.push(v[0], v[1], v[4294967294], v[4294967293], v[4294967292]);
var s = Array.prototype.slice.call({4294967290: 'q', length: 4294967295}, 4294967289, 4294967292);
r.push(s.length, s[1]);
r.push(Array.prototype.indexOf.call({4294967290: 'q', length: 4294967295}, 'q'));
r.push(Array.prototype.lastIndexOf.call({7: 'q', 4294967290: 'q', length: 4294967295}, 'q', -10));
var m = []; Array.prototype.forEach.call({0: 1, 3000000000: 2, length: 4294967295}, function (x, i, obj) { m.push(i); if (i == 0) obj[100000] = 'added'; });
r.push(m.join('/'));
r.join()
