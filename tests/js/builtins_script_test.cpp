// The standard library as scripts use it: callbacks written in script (sort comparators, replace functions,
// forEach), `new Function`, indirect eval, and recursion through the library that must end in an error.
#include "js/parse.hpp"
#include "js/run.hpp"
#include "test_host.hpp"

#include <string>

using namespace vellum::js::eval;
using namespace vellum::js::eval::testing;

namespace {

struct script_case {
    char const* name;
    char const* source;
    char const* expected;
};

struct scripts : engine_test {
    /// The completion value of a script as text, or "throws " and the error's text.
    std::string run(std::string const& source) {
        auto parsed = vellum::js::parse::parse_string(engine, source);
        if (auto const* e = std::get_if<vellum::js::js_error>(&parsed)) {
            return "syntax error: " + e->error_message;
        }
        context ctx{.type_of_code = type_of_code::global_code,
                    .scope_chain = {normal_scope{.scope_object = engine.global_object}},
                    .this_value = engine.global_object};
        auto r = run_code(engine, ctx, std::get<vellum::js::source_elements>(parsed));
        if (auto const* e = std::get_if<exception>(&r)) {
            return "throws " + text_of(engine, e->exception_value);
        }
        return text_of(engine, std::get<js_value>(r));
    }

    /// Runs each case and compares its completion value.
    template <std::size_t N>
    void check(script_case const (&cases)[N]) {
        for (auto const& c : cases) {
            SCOPED_TRACE(c.name);
            EXPECT_EQ(run(c.source), c.expected);
        }
    }
};

} // namespace

TEST_F(scripts, library_calls_back_into_scripts) {
    script_case const cases[] = {
        {"sort by comparator", "[5, 1, 10, 2].sort(function (a, b) { return a - b; }).join()", "1,2,5,10"},
        {"stable sort",
         "var a = [{k:1,v:'a'},{k:0,v:'b'},{k:1,v:'c'},{k:0,v:'d'}];"
         "a.sort(function (x, y) { return x.k - y.k; });"
         "a.map(function (o) { return o.v; }).join('')",
         "bdac"},
        {"comparator throws",
         "try { [2, 1].sort(function () { throw new TypeError('cmp'); }); } catch (e) { String(e) }",
         "TypeError: cmp"},
        {"replace by function",
         "'John Smith'.replace(/(\\w+)\\s(\\w+)/, function (m, a, b, at, s) {"
         " return b + ', ' + a + ' @' + at + ' of ' + s.length; })",
         "Smith, John @0 of 10"},
        {"replace all by function", "'a1b22'.replace(/\\d+/g, function (d) { return '<' + d * 2 + '>'; })",
         "a<2>b<44>"},
        {"forEach with this",
         "var sum = 0; [1, 2, 3].forEach(function (v, i) { sum += v * this.k + i; }, {k: 10}); sum", "63"},
        {"map and filter",
         "[1, 2, 3, 4].map(function (v) { return v * v; }).filter(function (v) { return v > 4; }).join()",
         "9,16"},
        {"new Function", "var f = new Function('a', 'b', 'return a + b;'); f(2, 3) + typeof f", "5function"},
        {"Function without params", "Function('return 7')()", "7"},
        {"indirect eval is global",
         "var x = 'global'; (function () { var x = 'local'; var e = eval; return e('x'); })()", "global"},
        {"eval of a non-string", "var e = eval; e(42)", "42"},
        {"apply with arguments", "Math.max.apply(null, [3, 9, 4])", "9"},
        {"call of a script function", "(function (p) { return this.q + p; }).call({q: 'q'}, '!')", "q!"},
        {"defineProperty getter",
         "var o = {}; Object.defineProperty(o, 'g', {get: function () { return this.x * 2; }});"
         " o.x = 21; o.g",
         "42"},
        {"defineProperty setter only",
         "var o = {}; var seen; Object.defineProperty(o, 's', {set: function (v) { seen = v; }});"
         " o.s = 5; seen + ':' + o.s",
         "5:undefined"},
        {"read-only stays", "var o = {}; Object.defineProperty(o, 'r', {value: 1}); o.r = 2; o.r", "1"},
        {"permanent stays permanent",
         "var o = {}; Object.defineProperty(o, 'p', {value: 1, writable: true});"
         "Object.defineProperty(o, 'p', {value: 2});"
         "try { Object.defineProperty(o, 'p', {configurable: true}); } catch (e) { o.p + ' ' + e.message }",
         "2 cannot modify property"},
        {"permanent element",
         "var a = [1]; Object.defineProperty(a, '0', {configurable: false});"
         "var r = delete a[0]; try { Object.defineProperty(a, 0, {enumerable: false}); } catch (e) { r + ' ' "
         "+ e.name }",
         "false TypeError"},
        {"length keeps permanent elements",
         "var a = [1, 2, 3]; Object.defineProperty(a, 1, {value: 'x', configurable: false});"
         "try { Object.defineProperty(a, 'length', {value: 0}); } catch (e) { a.length + ' ' + e.name }",
         "2 TypeError"},
        {"keys in order of insertion", "var o = {b: 1, a: 2}; o[0] = 3; Object.keys(o).join()", "b,a,0"},
        {"array keys", "var a = ['x', 'y']; a.k = 1; Object.keys(a).join()", "0,1,k"},
        {"instanceof of errors",
         "var e = new RangeError('r'); (e instanceof RangeError) + ' ' + (e instanceof Error) + ' ' + e",
         "true true RangeError: r"},
        {"engine errors are catchable", "try { null.x } catch (e) { e.name + ': ' + e.message }",
         "TypeError: null value is not an object"},
        {"array length setter", "var a = [1, 2, 3, 4]; a.length = 2; a.join() + ' ' + a.length + ' ' + a[3]",
         "1,2 2 undefined"},
        {"array grows by index", "var a = []; a[3] = 'x'; a.length + ' ' + (2 in a)", "4 false"},
        {"string methods on primitives", "'a-b-c'.split('-').reverse().join('+').toUpperCase()", "C+B+A"},
        {"date round trip",
         "var d = new Date(2020, 1, 29, 13, 45, 10); Date.parse(d.toString()) === d.getTime() - 0", "true"},
        {"date getters",
         "var d = new Date(Date.UTC(2021, 11, 31, 23, 0, 0)); d.getUTCFullYear() + '-' + d.getUTCMonth()",
         "2021-11"},
        {"seeded random repeats",
         "Math.seedRandom(7); var a = Math.random(); Math.seedRandom(7); a === Math.random()", "true"},
        {"JSON is empty", "typeof JSON + ' ' + typeof JSON.stringify + ' ' + typeof JSON.parse",
         "object undefined undefined"},
        {"function text", "(function f() {}).toString() + String(Math.max)", "<<function>><<function>>"},
        {"Invalid Date", "String(new Date(NaN)) + ' ' + new Date('garbage')", "Invalid Date Invalid Date"},
        {"toFixed", "[(0.5).toFixed(0), (1.005).toFixed(2), (1e21).toFixed(2), (-1.5).toFixed(0)].join(' ')",
         "1 1.00 1e+21 -2"},
        {"parseInt", "[parseInt('0x1f'), parseInt('08'), parseInt('12px', 10), parseInt('z', 37)].join()",
         "31,8,12,NaN"},
    };
    check(cases);
}

TEST_F(scripts, runaway_recursion_ends_in_an_error) {
    // A comparator that sorts again inside itself, without end: an error a script can catch, and the
    // engine goes on.
    EXPECT_EQ(run("function c(a, b) { [2, 1].sort(c); return a - b; }"
                  "try { [2, 1].sort(c); 'finished' } catch (e) { e.name }"),
              "RangeError");
    EXPECT_EQ(run("var a = [1]; a.forEach(function f() { a.forEach(f); })").rfind("throws RangeError", 0),
              0u);
    EXPECT_EQ(run("[3, 1, 2].sort().join()"), "1,2,3");
    // A pattern that backtracks beyond the budget fails in bounded time, with an error.
    EXPECT_EQ(run("try { /(a+)+b/.test('aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa') } catch (e) { e.name }"),
              "RangeError");
}

TEST_F(scripts, arrays_are_generic_and_keep_holes) {
    script_case const cases[] = {
        {"push on an array-like",
         "var o = {length: 1, 0: 'a'}; Array.prototype.push.call(o, 'b', 'c'); o.length + o[2]", "3c"},
        {"shift on an array-like",
         "var o = {length: 2, 0: 'a', 1: 'b'}; var f = Array.prototype.shift.call(o); f + o[0] + o.length + "
         "(1 in o)",
         "ab1false"},
        {"unshift keeps holes", "var a = [1, , 3]; a.unshift(0); a.length + ':' + (2 in a) + ':' + a[3]",
         "4:false:3"},
        {"reverse moves holes",
         "var a = [1, , , 4, 5]; a.reverse(); (0 in a) + ' ' + (2 in a) + ' ' + (3 in a) + ' ' + a.join()",
         "true false false 5,4,,,1"},
        {"slice keeps holes and length",
         "var a = [1, , 3, , ]; var s = a.slice(1); s.length + ' ' + (0 in s) + ' ' + s[1]", "3 false 3"},
        {"concat spreads arrays only", "[1].concat([2, [3]], 'x', {length: 1, 0: 'y'}).length", "5"},
        {"concat keeps holes", "var c = [, 1].concat([2, , ]); c.length + ' ' + (0 in c) + ' ' + (3 in c)",
         "4 false false"},
        {"splice negative start", "var a = [1, 2, 3, 4]; var r = a.splice(-3, 2); r.join() + '|' + a.join()",
         "2,3|1,4"},
        {"splice negative count", "var a = [1, 2]; a.splice(0, -1, 'x').length + '|' + a.join()", "0|x,1,2"},
        {"splice beyond the end", "var a = [1, 2]; a.splice(5, 1, 3); a.join()", "1,2,3"},
        {"splice with no arguments", "var a = [1, 2]; a.splice().length + '|' + a.join()", "0|1,2"},
        {"indexOf strict",
         "[1, '1', NaN].indexOf('1') + ' ' + [NaN].indexOf(NaN) + ' ' + [1, 2, 1].lastIndexOf(1, -2)",
         "1 -1 0"},
        {"lastIndexOf from minus infinity",
         "[1, 2].lastIndexOf(1, -Infinity) + ' ' + [1, 2].indexOf(2, -Infinity)", "-1 1"},
        {"indexOf from far",
         "[1, 2, 3].indexOf(3, -1) + ' ' + [1, 2, 3].indexOf(1, 5) + ' ' + [1, 2, 3].lastIndexOf(3, -5)",
         "2 -1 -1"},
        {"join of null and undefined", "[null, undefined, 0, false, ''].join('-')", "--0-false-"},
        {"join converts the separator", "[1, 2].join(undefined) + [1, 2].join(null)", "1,21null2"},
        {"toString without join", "var o = {join: 5}; Array.prototype.toString.call(o)", "[object Object]"},
        {"toLocaleString calls each",
         "[{toLocaleString: function () { return 'L'; }}, null, 2].toLocaleString()", "L,,2"},
        {"sort of mixed values", "[true, 'b', 10, null, undefined, 'a', 2].sort().join()", "10,2,a,b,,true,"},
        {"sort of array-like",
         "var o = {length: 3, 0: 'c', 2: 'a'}; Array.prototype.sort.call(o); o[0] + o[1] + (2 in o)",
         "acfalse"},
        {"sort is stable with equal keys",
         "var a = []; for (var i = 0; i < 20; i++) a.push({k: i % 2, i: i});"
         "a.sort(function (x, y) { return x.k - y.k; });"
         "a[0].i + ',' + a[9].i + ',' + a[10].i + ',' + a[19].i",
         "0,18,1,19"},
        {"map keeps holes and length",
         "var m = [1, , 3].map(function (x) { return x * 2; }); m.length + ' ' + (1 in m) + ' ' + m[2]",
         "3 false 6"},
        {"forEach sees the length it started with",
         "var a = [1, 2]; var n = 0; a.forEach(function (v) { a.push(v); n++; }); n + ' ' + a.length", "2 4"},
        {"forEach needs a function", "try { [1].forEach(3) } catch (e) { e.name }", "TypeError"},
        {"Array of one number",
         "var a = new Array(2); a.length + ' ' + (0 in a) + ' ' + new Array('2').length", "2 false 1"},
        {"Array called",
         "Array(1, 2).join() + ' ' + Array.isArray(Array()) + ' ' + Array.isArray({length: 0})",
         "1,2 true false"},
        {"length set larger makes holes",
         "var a = [1]; a.length = 3; a.length + ' ' + (1 in a) + ' ' + a.join()", "3 false 1,,"},
        {"pop of empty", "var a = []; String(a.pop()) + a.length", "undefined0"},
        {"length is an array's own",
         "var a = [1]; a.hasOwnProperty('length') + ' ' + ({}).hasOwnProperty.call({}, 'length') + ' ' +"
         "a.propertyIsEnumerable('length') + ' ' + Object.keys(a).join()",
         "true false false 0"},
    };
    check(cases);
}

TEST_F(scripts, array_elements_with_accessors) {
    script_case const cases[] = {
        {"getter runs with the array as this",
         "var a = [1, 2]; a.k = 5; Object.defineProperty(a, '0', {get: function () { return this.k; }});"
         "a[0] + ' ' + a.length",
         "5 2"},
        {"setter receives the value",
         "var a = [1]; var got; Object.defineProperty(a, '0', {get: function () { return 7; },"
         " set: function (v) { got = v; }}); a[0] = 3; got + ' ' + a[0]",
         "3 7"},
        {"no setter ignores writes",
         "var a = [1]; Object.defineProperty(a, '0', {get: function () { return 7; }});"
         " a[0] = 3; a[0]",
         "7"},
        {"beyond the end grows the array",
         "var a = []; Object.defineProperty(a, '2', {get: function () { return 'x'; }, enumerable: true});"
         " a.length + ' ' + (1 in a) + ' ' + Object.keys(a).join()",
         "3 false 2"},
        {"library methods read through the getter",
         "var a = [1, 2, 3]; var n = 0;"
         "Object.defineProperty(a, '1', {get: function () { n++; return 20; }, configurable: true});"
         "a.join() + ' ' + a.indexOf(20) + ' ' + a.filter(function (v) { return v > 5; }).join() + ' ' +"
         "[0].concat(a).join() + ' ' + n",
         "1,20,3 1 20 0,1,20,3 4"},
        {"a throwing getter passes its exception on",
         "var a = [1]; Object.defineProperty(a, '0', {get: function () { throw new RangeError('g'); }});"
         "var r = []; try { a.join(); } catch (e) { r.push(e.name); }"
         "try { a.concat(); } catch (e) { r.push(e.name); } r.join()",
         "RangeError,RangeError"},
        {"configurable accessor deletes and turns back into a value",
         "var a = [1, 2];"
         "Object.defineProperty(a, '0', {get: function () { return 9; }, configurable: true});"
         "Object.defineProperty(a, '1', {get: function () { return 8; }, configurable: true});"
         "var d = delete a[0]; Object.defineProperty(a, '1', {value: 4});"
         "d + ' ' + (0 in a) + ' ' + a[1] + ' ' + a.length",
         "true false 4 2"},
        {"permanent accessor stays",
         "var a = []; Object.defineProperty(a, '0', {get: function () { return 9; }});"
         "var r = delete a[0]; try { Object.defineProperty(a, '0', {value: 1}); } catch (e) { r += ' ' + "
         "e.name; }"
         "r + ' ' + a[0]",
         "false TypeError 9"},
        {"an element keeps the attributes it had",
         "var a = [1]; Object.defineProperty(a, '0', {get: function () { return 9; }});"
         "Object.keys(a).join() + ' ' + (delete a[0]) + ' ' + a.length",
         "0 true 1"},
        {"setter only reads undefined",
         "var a = [1]; Object.defineProperty(a, '0', {set: function (v) {}}); String(a[0]) + ' ' + (0 in a)",
         "undefined true"},
        {"assigned length stops at a permanent element",
         "var a = [1, 2, 3]; Object.defineProperty(a, '1', {configurable: false}); a.length = 0;"
         "a.length + ' ' + a.join()",
         "2 1,2"},
        {"shortening stops at a permanent accessor",
         "var a = [1, , 3]; Object.defineProperty(a, '1', {get: function () { return 2; }});"
         "try { Object.defineProperty(a, 'length', {value: 0}); } catch (e) { a.length + e.name }",
         "2TypeError"},
    };
    check(cases);
}

TEST_F(scripts, array_methods_throw_where_a_write_or_delete_fails) {
    script_case const cases[] = {
        {"pop of a permanent element",
         "var a = [1, 2]; Object.defineProperty(a, '1', {configurable: false});"
         "try { a.pop(); } catch (e) { e.name + ' ' + a.length + ' ' + a[1] }",
         "TypeError 2 2"},
        {"shift moving onto a read-only element",
         "var a = [1, 2]; Object.defineProperty(a, '0', {writable: false});"
         "try { a.shift(); } catch (e) { e.name + ' ' + a.join() }",
         "TypeError 1,2"},
        {"reverse onto a getter without setter",
         "var a = [1, 2]; Object.defineProperty(a, '0', {get: function () { return 'g'; }});"
         "try { a.reverse(); } catch (e) { e.name }",
         "TypeError"},
        {"sort of read-only elements",
         "var a = [2, 1]; Object.defineProperty(a, '0', {writable: false});"
         "try { a.sort(); } catch (e) { e.name + ' ' + a.join() }",
         "TypeError 2,1"},
        {"array-likes with a read-only element",
         "var o = {length: 1}; Object.defineProperty(o, '0', {value: 'x'});"
         "try { Array.prototype.unshift.call(o, 'y'); } catch (e) { e.name + ' ' + o[0] }",
         "TypeError x"},
        {"assignment stays silent",
         "var a = [1]; Object.defineProperty(a, '0', {writable: false}); a[0] = 2; a[0]", "1"},
    };
    check(cases);
}

TEST_F(scripts, read_only_array_length) {
    script_case const cases[] = {
        {"assignments are ignored",
         "var a = [1, 2]; Object.defineProperty(a, 'length', {writable: false});"
         "a.length = 5; a[2] = 3; a.length = 0; a.length + ' ' + (2 in a) + ' ' + a.join()",
         "2 false 1,2"},
        {"an invalid new length is a RangeError before the length is found read-only",
         "var a = [1, 2]; Object.defineProperty(a, 'length', {writable: false}); var r = [];"
         "try { Object.defineProperty(a, 'length', {value: -1}); } catch (e) { r.push(e.name); }"
         "try { Object.defineProperty(a, 'length', {value: 3}); } catch (e) { r.push(e.name); }"
         "r.join()",
         "RangeError,TypeError"},
        {"elements inside the length stay writable",
         "var a = [1, 2]; Object.defineProperty(a, 'length', {writable: false}); a[0] = 'x'; a.join()",
         "x,2"},
        {"push, pop, shift and unshift throw",
         "var a = [1, 2]; Object.defineProperty(a, 'length', {value: 2, writable: false}); var r = [];"
         "try { a.push(3); } catch (e) { r.push(e.name); }"
         "try { a.unshift(0); } catch (e) { r.push(e.name); }"
         "try { a.pop(); } catch (e) { r.push(e.name); }"
         "r.join() + ' ' + a.length",
         "TypeError,TypeError,TypeError 2"},
        {"defining past the end fails",
         "var a = [1]; Object.defineProperty(a, 'length', {writable: false});"
         "try { Object.defineProperty(a, '1', {value: 2}); } catch (e) { e.name + a.length }",
         "TypeError1"},
        {"the length cannot become writable or change",
         "var a = [1]; Object.defineProperty(a, 'length', {writable: false}); var r = [];"
         "try { Object.defineProperty(a, 'length', {writable: true}); } catch (e) { r.push(e.name); }"
         "try { Object.defineProperty(a, 'length', {value: 3}); } catch (e) { r.push(e.name); }"
         "Object.defineProperty(a, 'length', {value: 1}); r.join() + ' ' + a.length",
         "TypeError,TypeError 1"},
        {"still own, hidden and permanent",
         "var a = [1]; Object.defineProperty(a, 'length', {writable: false});"
         "a.hasOwnProperty('length') + ' ' + Object.keys(a).join() + ' ' + (delete a.length) + ' ' +"
         "(delete [].length)",
         "true 0 false false"},
    };
    check(cases);
}

TEST_F(scripts, strings_numbers_and_uris) {
    script_case const cases[] = {
        {"split limit and captures", "'a1b2c3'.split(/(\\d)/, 4).join('|')", "a|1|b|2"},
        {"split with an empty match", "'abc'.split(/(?:)/).join('|') + ' ' + 'ab'.split(/a*?/).join('|')",
         "a|b|c a|b"},
        {"split of empty by regexp", "''.split(/x/).length + ' ' + ''.split(/(?:)/).length", "1 0"},
        {"split without separator", "'a,b'.split().length + ' ' + 'a,b'.split(undefined, 0).length", "1 0"},
        {"split keeps undefined captures", "'ab'.split(/(x)?b/).length", "3"},
        {"replace with captures beyond", "'abc'.replace(/(b)/, '$2$1$01$001')", "a$2bb$001c"},
        {"replace keeps lastIndex 0", "var r = /a/g; r.lastIndex = 3; 'aa'.replace(r, 'b') + r.lastIndex",
         "bb0"},
        {"replace with string pattern is literal", "'a.c'.replace('.', '$&-') + 'a+c'.replace('+', 'x')",
         "a.-caxc"},
        {"match without g returns groups",
         "var m = 'x12y'.match(/(\\d)(\\d)/); m.length + ' ' + m.index + ' ' + m.input", "3 1 x12y"},
        {"the regexp prototype is a regexp with its flags",
         "var p = RegExp.prototype; p.hasOwnProperty('global') + ' ' + p.ignoreCase + p.multiline + ' ' +"
         "p.propertyIsEnumerable('source') + ' ' + (delete p.global) + ' ' + p.exec('x')[0].length + ' ' +"
         "Object.prototype.toString.call(p)",
         "true falsefalse false false 0 [object RegExp]"},
        {"search ignores g and lastIndex",
         "var r = /b/g; r.lastIndex = 5; 'abc'.search(r) + ' ' + r.lastIndex", "1 5"},
        {"substring swaps and clamps", "'abcdef'.substring(4, -1) + '|' + 'abcdef'.substring(NaN, 2)",
         "abcd|ab"},
        {"substr with negative length", "'abc'.substr(1, -1) + '|' + 'abc'.substr(-5, 2)", "|ab"},
        {"slice with NaN and large", "'abc'.slice(NaN, 10) + '|' + 'abc'.slice(2, 1)", "abc|"},
        {"charAt out of range", "'abc'.charAt(-1) + '|' + 'abc'.charAt(3) + '|' + 'abc'.charAt(1.7)", "||b"},
        {"lastIndexOf with NaN position",
         "'abab'.lastIndexOf('ab', NaN) + ' ' + 'abab'.lastIndexOf('ab', 1) + ' ' + 'abab'.lastIndexOf('')",
         "2 0 4"},
        {"indexOf of empty", "'abc'.indexOf('', 10) + ' ' + 'abc'.indexOf('c', -5)", "3 2"},
        {"methods on non-strings",
         "String.prototype.indexOf.call(12345, 3) + ' ' + String.prototype.toUpperCase.call(true)", "2 TRUE"},
        {"fromCharCode wraps at 16 bits",
         "String.fromCharCode(65 + 65536, 66.9).length + String.fromCharCode(65 + 65536, 66.9)", "2AB"},
        {"String of symbols of values", "String(null) + String(undefined) + String(1/0) + String(-0)",
         "nullundefinedInfinity0"},
        {"toString radix", "(255).toString(2) + ' ' + (-8.5).toString(16) + ' ' + (0).toString(36)",
         "11111111 -8.8 0"},
        {"toFixed of negatives and large",
         "(-1.005).toFixed(2) + ' ' + (1e20).toFixed(1) + ' ' + (-0).toFixed(1)",
         "-1.00 100000000000000000000.0 0.0"},
        {"toFixed of integers", "(12).toFixed(3) + ' ' + (5e-7).toFixed(6)", "12.000 0.000001"},
        {"parseFloat forms",
         "[parseFloat('1e1000'), parseFloat('-.5e-1'), parseFloat('0x1A'), parseFloat('1.2.3')].join()",
         "Infinity,-0.05,0,1.2"},
        {"parseInt radix and sign",
         "[parseInt('-0x10'), parseInt('  +7z', 36), parseInt('11', 0), parseInt('9', 8)].join()",
         "-16,287,11,NaN"},
        {"isNaN converts", "isNaN('abc') + ' ' + isNaN('') + ' ' + isFinite(null)", "true true true"},
        {"escape round trip",
         "var s = ''; for (var i = 0; i < 600; i += 7) s += String.fromCharCode(i); unescape(escape(s)) === "
         "s",
         "true"},
        {"URI round trip",
         "var s = 'a b/ä€😀?&=#'; decodeURIComponent(encodeURIComponent(s)) === s && decodeURI(encodeURI(s)) "
         "=== s",
         "true"},
        {"encodeURI keeps the reserved", "encodeURI(';/?:@&=+$,#') + ' ' + encodeURIComponent(';/?')",
         ";/?:@&=+$,# %3B%2F%3F"},
        {"four-byte escapes", "decodeURIComponent('%F0%9F%98%80').length + ' ' + encodeURIComponent('😀')",
         "1 %F0%9F%98%80"},
        {"overlong escapes are refused", "try { decodeURI('%C0%80') } catch (e) { e.name }", "URIError"},
        {"Math.min of none and strings", "Math.min() + ' ' + Math.min('3', 2) + ' ' + Math.max('a', 1)",
         "Infinity 2 NaN"},
        {"Math.round halves",
         "[Math.round(-0.5), Math.round(0.5), Math.round(-1.5), Math.round(1.4999999999999998)].join()",
         "0,1,-1,1"},
        {"Math.atan2 and pow edges",
         "[Math.atan2(0, -0) === Math.PI, Math.pow(NaN, 0), Math.pow(-8, 1/3)].join()", "true,1,NaN"},
        {"Boolean wrappers", "new Boolean(false) ? 'truthy' : 'falsy'", "truthy"},
        {"Number wrappers", "var n = new Number(5); (n + 1) + ' ' + typeof n + ' ' + n.toFixed(1)",
         "6 object 5.0"},
    };
    check(cases);
}

TEST_F(scripts, objects_functions_errors_and_dates) {
    script_case const cases[] = {
        {"create with descriptors",
         "var o = Object.create({p: 1}, {q: {value: 2, enumerable: true}}); o.p + o.q + "
         "Object.keys(o).join()",
         "3q"},
        {"defineProperties reads all first",
         "var o = {}; try { Object.defineProperties(o, {a: {value: 1}, b: {get: 1}}); } catch (e) {}"
         "'a' in o",
         "false"},
        {"defineProperty keeps what is not said",
         "var o = {x: 1}; Object.defineProperty(o, 'x', {enumerable: false}); o.x = 5;"
         "o.x + ' ' + Object.keys(o).length + ' ' + delete o.x",
         "5 0 true"},
        {"a permanent accessor accepts only what it has",
         "var o = {}; var g = function () { return 1; }; var r = [];"
         "Object.defineProperty(o, 'x', {get: g}); Object.defineProperty(o, 'x', {get: g, set: undefined});"
         "Object.defineProperty(o, 'x', {enumerable: false}); r.push(o.x);"
         "var tries = [{get: function () {}}, {set: function () {}}, {value: 1}, {enumerable: true}];"
         "for (var i = 0; i < tries.length; i++) {"
         " try { Object.defineProperty(o, 'x', tries[i]); r.push('ok'); } catch (e) { r.push(e.name); } }"
         "r.join()",
         "1,TypeError,TypeError,TypeError,TypeError"},
        {"a permanent writable value may change and become read-only",
         "var o = {}; Object.defineProperty(o, 'x', {value: 1, writable: true});"
         "Object.defineProperty(o, 'x', {value: 2}); Object.defineProperty(o, 'x', {writable: false});"
         "var r = o.x; try { Object.defineProperty(o, 'x', {value: 2}); } catch (e) { r += e.name; } r",
         "2TypeError"},
        {"an array element that is a permanent accessor accepts its own getter",
         "var a = []; var g = function () { return 'g'; }; Object.defineProperty(a, '0', {get: g});"
         "Object.defineProperty(a, '0', {get: g}); var r = a[0];"
         "try { Object.defineProperty(a, '0', {get: function () {}}); } catch (e) { r += e.name; } r",
         "gTypeError"},
        {"value and get together",
         "try { Object.defineProperty({}, 'x', {value: 1, get: function () {}}) } catch (e) { e.name }",
         "TypeError"},
        {"propertyIsEnumerable of inherited", "var o = Object.create({a: 1}); o.propertyIsEnumerable('a')",
         "false"},
        {"hasOwnProperty of strings",
         "'abc'.hasOwnProperty(1) + ' ' + 'abc'.hasOwnProperty('length') + ' ' + 'abc'.hasOwnProperty(3)",
         "true true false"},
        {"isPrototypeOf", "Object.prototype.isPrototypeOf([]) + ' ' + Array.prototype.isPrototypeOf({})",
         "true false"},
        {"toString tags",
         "var t = Object.prototype.toString; [t.call([]), t.call(new Date(0)), t.call(/x/), t.call(Math), "
         "t.call(function () {}), t.call(new Error('e')), t.call(undefined)].join()",
         "[object Array],[object Date],[object RegExp],[object Math],[object Function],[object "
         "Error],[object Undefined]"},
        {"valueOf gives the object", "var o = {}; o.valueOf() === o", "true"},
        {"Object of primitives",
         "typeof Object(1) + ' ' + (Object(null) instanceof Object) + ' ' + (Object('s') instanceof String)",
         "object true true"},
        {"apply with an array-like",
         "(function () { return arguments.length + ':' + arguments[1]; }).apply(null, {length: 2, 1: 'b'})",
         "2:b"},
        {"function lengths",
         "parseInt.length + ' ' + [].splice.length + ' ' + Date.UTC.length + ' ' + Function.prototype.length",
         "2 2 7 0"},
        {"Function.prototype takes anything", "Function.prototype(1, 2) + ''", "undefined"},
        {"new of a method", "try { new Math.max() } catch (e) { e.message }", "object is not a constructor"},
        {"error kinds", "[new Error('a'), TypeError('b'), new URIError(), SyntaxError(undefined)].join('|')",
         "Error: a|TypeError: b|URIError|SyntaxError"},
        {"error name changes the text",
         "var e = new Error('m'); e.name = ''; e + '|' + (e.message = '', e.name = 'N', e)", "m|N"},
        {"error constructors and prototypes",
         "RangeError.prototype.name + ' ' + (RangeError.prototype instanceof Error) + ' ' +"
         "(new RangeError().constructor === RangeError)",
         "RangeError true true"},
        {"date from parts, local",
         "var d = new Date(2024, 1, 29, 12); d.getFullYear() + '-' + d.getMonth() + '-' + d.getDate() + ' ' "
         "+ d.getHours()",
         "2024-1-29 12"},
        {"date two-digit years",
         "new Date(99, 0).getFullYear() + ' ' + new Date(Date.UTC(5, 0)).getUTCFullYear()", "1999 1905"},
        {"date month overflow", "new Date(2023, 13, 1).getMonth() + ' ' + new Date(2024, 0, 0).getDate()",
         "1 31"},
        {"date setters with several fields",
         "var d = new Date(0); d.setUTCHours(25, 61, 61, 1001); d.toISOString()", "1970-01-02T02:02:02.001Z"},
        {"date setter return values",
         "var d = new Date(0); d.setUTCFullYear(2000, 1, 30) === d.getTime() && d.getUTCDate()", "1"},
        {"date setters need a value", "var d = new Date(0); d.setUTCMinutes() + ' ' + d.getTime()",
         "NaN NaN"},
        {"date copy keeps ms", "var d = new Date(1234567); new Date(d).getTime()", "1234567"},
        {"date clip",
         "new Date(8.64e15).getTime() + ' ' + new Date(8.64e15 + 1).getTime() + ' ' + new "
         "Date(-1.5).getTime()",
         "8640000000000000 NaN -1"},
        {"date of a string value",
         "new Date('2000-01-01T00:00:00Z').getTime() + ' ' + new Date(new String('1970-01-01')).getTime()",
         "946684800000 0"},
        {"date ISO forms",
         "[new Date(Date.UTC(10000, 0)).toISOString(), new Date(Date.UTC(-1, 0)).toISOString()].join(' ')",
         "+010000-01-01T00:00:00.000Z -000001-01-01T00:00:00.000Z"},
        {"date valueOf and arithmetic", "var d = new Date(5); (d - 2) + ' ' + ((d + '').length > 10)",
         "3 true"},
        {"Date.now is a number", "typeof Date.now() + ' ' + (Date.now() > 1.6e12)", "number true"},
        {"date text with huge numbers",
         "[Date.parse('99999999999999999999/1/2000'), Date.parse('1/99999999999999999999/2000')].join()",
         "NaN,NaN"},
        {"date UTC string of a weekday", "new Date(Date.UTC(2024, 1, 29)).toUTCString()",
         "Thu, 29 Feb 2024 00:00:00 GMT"},
        {"date getters of invalid",
         "var d = new Date(NaN); [d.getDay(), d.getUTCMilliseconds(), d.valueOf()].join()", "NaN,NaN,NaN"},
    };
    check(cases);
}
