// The standard library as scripts use it: callbacks written in script (sort comparators, replace functions,
// forEach), `new Function`, indirect eval, and recursion through the library that must end in an error.
#include "js/parse.hpp"
#include "js/run.hpp"
#include "test_host.hpp"

#include <string>

using namespace vellum::js::eval;
using namespace vellum::js::eval::testing;

namespace {

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
};

struct script_case {
    char const* name;
    char const* source;
    char const* expected;
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
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(run(c.source), c.expected);
    }
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
