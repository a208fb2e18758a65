// expect-error: uncaught.js:4: TypeError: null value is not an object
var a = null;
function f(o) {
  return o.missing;
}
f(a);
