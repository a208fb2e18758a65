// The script compiler and run loop: early errors, the analysis of bodies, and programs run end to end
// through the parser, the compiler and the run loop (no standard library: the tests bring `eval` and a
// `note` function of their own as host functions).

#include "js/parse.hpp"
#include "js/run.hpp"
#include "js/vm.hpp"
#include "test_host.hpp"

#include <gtest/gtest.h>

namespace vellum::js::eval::testing {

namespace {

struct vm_test : engine_test {
    std::vector<std::string> notes;

    vm_test() {
        // `eval` as the engine knows it: calls compiled as eval candidates run in the caller's scope;
        // any other call reaches the indirect path.
        js_object eval = func([](js& e, js_value const&, std::vector<js_value> const& args) {
            return e.js_hooks.indirect_eval(e, arg(args, 0));
        });
        engine.eval_function = eval;
        define_value(engine.global_object, "eval", eval);
        define_value(engine.global_object, "note",
                     func([this](js& e, js_value const&, std::vector<js_value> const& args) -> expr_res<js_value> {
                         notes.push_back(text_of(e, arg(args, 0)));
                         return undefined();
                     }));
    }

    source_elements parsed(std::string const& source) {
        auto r = parse::parse_string(engine, source);
        if (auto const* e = std::get_if<vellum::js::js_error>(&r)) {
            ADD_FAILURE() << "does not parse: " << e->error_message;
            return {};
        }
        return std::get<source_elements>(r);
    }

    expr_res<js_value> run(std::string const& source) {
        resource::locator::locator where{.locator_url = resource::locator::file{.file_path = {.path = "test.js"}}};
        context ctx{.source_locator = where,
                    .type_of_code = type_of_code::global_code,
                    .scope_chain = {normal_scope{.scope_object = engine.global_object}},
                    .variable_object = std::nullopt,
                    .this_value = engine.global_object};
        return run_code(engine, ctx, parsed(source));
    }

    /// The completion value of a program as text.
    std::string value(std::string const& source) {
        auto r = run(source);
        if (auto const* e = std::get_if<exception>(&r)) {
            if (std::holds_alternative<js_object>(e->exception_value)) {
                return "threw " + thrown_text(e->exception_value);
            }
            return "threw " + text_of(engine, e->exception_value);
        }
        return text_of(engine, std::get<js_value>(r));
    }

    std::string early_error(std::string const& source) {
        auto f = check_syntax(false, {}, parsed(source));
        return f ? syntax_error_name(f->failure_error) : "";
    }
};

TEST_F(vm_test, early_errors) {
    struct case_ {
        char const* source;
        char const* error;
    };
    case_ const cases[] = {
        {"continue;", "continue_error"},
        {"switch (1) { case 1: continue; }", "continue_error"},
        {"a: { while (1) { continue a; } }", "continue_label_error"},
        {"while (1) { continue b; }", "continue_label_error"},
        {"break;", "break_error"},
        {"while (1) { break c; }", "break_label_error"},
        {"a: { b: { break a; } }", ""},
        {"a: a: ;", "label_duplication_error"},
        {"a: { b: while (1) { a: ; } }", "label_duplication_error"},
        {"a: ; a: ;", ""},
        {"return 1;", "return_error"},
        {"function f() { return 1; }", ""},
        {"1 = 2;", "left_hand_side_error"},
        {"f() = 1;", "left_hand_side_error"},
        {"x += 1; ++1;", "left_hand_side_error"},
        {"(1)++;", "left_hand_side_error"},
        {"for (1 in {}) ;", "left_hand_side_error"},
        {"o.p = 1; o[1] = 2; x = 3;", ""},
        // A function body starts afresh: the loop around it does not count.
        {"while (1) { (function () { break; }); }", "break_error"},
        {"function f() { x: while (1) { function g() { continue x; } } }", "continue_label_error"},
        {"switch (1) { default: break; }", ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.source);
        EXPECT_EQ(early_error(c.source), c.error);
    }
}

TEST_F(vm_test, early_errors_are_thrown_as_syntax_errors) {
    EXPECT_EQ(value("var x = 1;\nbreak;"), "threw SyntaxError: break_error");
    auto r = run("\n\nreturn 5;");
    auto o = std::get<js_object>(std::get<exception>(r).exception_value);
    EXPECT_EQ(text_of(engine, ok(get(engine, o, key_of_utf8("lineNumber")))), "3");
    EXPECT_EQ(text_of(engine, ok(get(engine, o, key_of_utf8("fileName")))), "test.js");
    EXPECT_EQ(value("eval('return 1');"), "threw SyntaxError: syntax error in eval: return_error");
    EXPECT_EQ(value("eval('1 +');").substr(0, 40), "threw SyntaxError: syntax error in eval:");
}

TEST_F(vm_test, analysis_decides_where_variables_live) {
    struct case_ {
        char const* body;
        bool in_regs;
    };
    case_ const cases[] = {
        {"var a = 1; return a + 1;", true},
        {"return eval('1');", false},
        {"return arguments.length;", false},
        {"return function () {};", false},
        {"with ({}) {}", false},
        {"try {} catch (e) {}", false},
        {"function g() {} return g;", false},
        {"try {} finally {}", true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.body);
        auto ops = vm::compile_function({}, vm::global_scope::global_scope_available, {"p"}, parsed(c.body));
        EXPECT_EQ(ops->vars_in_regs, c.in_regs);
    }
    auto a = vm::analyse(parsed("if (x) { var a; function f() { var inner; } } for (var b in o) ; eval(s);"));
    EXPECT_EQ(a.analysis_var_names, (std::vector<std::string>{"a", "b"}));
    ASSERT_EQ(a.analysis_func_decls.size(), 1u);
    EXPECT_TRUE(a.analysis_flags.has_eval);
    EXPECT_FALSE(a.analysis_flags.has_func_expr);
    EXPECT_LE(sizeof(vm::js_op), 20u);
}

TEST_F(vm_test, var_defs_follow_parameters_functions_then_vars) {
    auto ops = vm::compile_function({}, vm::global_scope::global_scope_available, {"a", "b", "a"},
                                    parsed("var c; function d() {} var a; return arguments;"));
    std::vector<std::string> names;
    for (auto const& [name, def] : ops->var_defs) {
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "arguments", "d", "c"}));
    EXPECT_EQ(std::get<vm::param>(ops->var_defs[0].second).position, 2);
}

TEST_F(vm_test, expressions_and_statements) {
    struct case_ {
        char const* source;
        char const* expected;
    };
    case_ const cases[] = {
        {"1 + 2 * 3 - 4 / 2", "5"},
        {"'a' + 1 + 2", "a12"},
        {"var x = 5; x += 2; x *= 3; x", "21"},
        {"var i = 1; var j = i++ + ++i; i + ':' + j", "3:4"},
        {"var o = {a: 1}; o.a++; o['a'] += 10; o.a", "12"},
        {"var a = [1, , 3]; a[2] + ':' + (1 in a) + ':' + (0 in a)", "3:false:true"},
        {"var b = [1, , ]; b.length = 5; (4 in b) + ':' + b[0]", "false:1"},
        {"var x = 0; (x = 1) && (x = 2); x", "2"},
        {"null || 0 || 'z'", "z"},
        {"1 ? 'y' : 'n'", "y"},
        {"typeof undeclared + typeof 1 + typeof 'a' + typeof {} + typeof null", "undefinednumberstringobjectobject"},
        {"var o = {a: 1}; delete o.a; 'a' in o", "false"},
        {"var x = 1; delete x", "false"},
        {"g = 1; delete g", "true"},
        {"var s = ''; for (var i = 0; i < 5; i++) { if (i == 1) continue; if (i == 4) break; s += i; } s", "023"},
        {"var n = 0; do { n++; } while (n < 3); n", "3"},
        {"var n = 0; while (n < 4) n += 2; n", "4"},
        {"var s = ''; outer: for (var i = 0; i < 3; i++) { for (var j = 0; j < 3; j++) { if (j == 1) continue outer; "
         "if (i == 2) break outer; s += i + '' + j; } } s",
         "0010"},
        {"var s = 'a'; b: { s += 'b'; break b; s += 'c'; } s", "ab"},
        {"var s = ''; var o = {x: 1, y: 2}; for (var k in o) s += k; s", "xy"},
        {"var s = ''; var o = {x: 1}; var t = {}; for (t.k in o) s += t.k; s", "x"},
        {"var x = 0; for (var k in null) x++; for (var k in undefined) x++; x", "0"},
        {"var x = 1; x = x << 3 | 1; x ^ 2", "11"},
        {"-(5)", "-5"},
        {"!0 === true", "true"},
        {"'1' == 1", "true"},
        {"'1' === 1", "false"},
        {"1e7 > 9999999", "true"},
        {"var x = 3; var y = x + (x = 10); y", "13"},
        {"void 1", "undefined"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.source);
        EXPECT_EQ(value(c.source), c.expected);
    }
}

TEST_F(vm_test, object_literals_define_their_own_properties) {
    // A read-only property further up would make an assignment do nothing; a literal defines anyway.
    define_value(engine.object_prototype, "fixed", num(1), attrs{}.with(attr::read_only));
    EXPECT_EQ(value("var o = {fixed: 2}; o.fixed"), "2");
    EXPECT_EQ(value("var p = {}; p.fixed = 3; p.fixed"), "1");
}

TEST_F(vm_test, long_operator_chains_compile_without_deep_recursion) {
    // Each chain nests to the left as deep as it is long.
    auto chain = [](std::string const& term, std::string const& op, int n) {
        std::string s = term;
        for (int i = 1; i < n; ++i) {
            s += op + term;
        }
        return s;
    };
    EXPECT_EQ(value("var a = 1; " + chain("a", " + ", 50000)), "50000");
    EXPECT_EQ(value("var z = 0; " + chain("z", " || ", 50000) + " || 'end'"), "end");
    EXPECT_EQ(value("var c = 0; " + chain("c++", ", ", 50000) + "; c"), "50000");
    EXPECT_EQ(early_error("x = " + chain("(y = 1)", " - ", 50000) + "; ++1;"), "left_hand_side_error");
    // Mixed operators keep their order of evaluation and precedence.
    EXPECT_EQ(value("var s = ''; function t(x) { s += x; return x; } t(1) - t(2) * t(3) + t(4) / t(2) + ':' + s"), "-3:12342");
}

TEST_F(vm_test, undeclared_names_read_as_undefined_only_in_plain_code) {
    EXPECT_EQ(value("var x = undeclared; typeof x"), "undefined");
    EXPECT_EQ(value("var o = {}; var y; with (o) { y = undeclared; }"),
              "threw ReferenceError: no such property: undeclared");
    // A function in plain code reads the global object directly too; a catch body looks names up.
    EXPECT_EQ(value("function f() { try { return undeclared2; } catch (e) { return 'caught'; } } f()"), "undefined");
    EXPECT_EQ(value("function f() { try { throw 1; } catch (e) { return undeclared3; } } f()"),
              "threw ReferenceError: no such property: undeclared3");
}

TEST_F(vm_test, with_puts_the_object_on_the_scope_chain) {
    EXPECT_EQ(value("var o = {a: 1}; var a = 5; var r; with (o) { r = a; a = 2; } r + ':' + o.a + ':' + a"), "1:2:5");
    EXPECT_EQ(value("function f(o) { with (o) { return b; } } f({b: 'in'})"), "in");
    EXPECT_EQ(value("var r = 0; with ({}) { try { throw 1; } catch (e) { r = e; } } r"), "1");
}

TEST_F(vm_test, finally_blocks) {
    EXPECT_EQ(value("function f() { try { return 1; } finally { note('f'); } } f()"), "1");
    EXPECT_EQ(notes, (std::vector<std::string>{"f"}));
    notes.clear();
    // A break runs each finally block, from the inside out.
    EXPECT_EQ(value("while (true) { try { try { break; } finally { note('inner'); } } finally { note('outer'); } } 'done'"),
              "done");
    EXPECT_EQ(notes, (std::vector<std::string>{"inner", "outer"}));
    notes.clear();
    // An exception thrown in a finally block replaces the one in flight.
    EXPECT_EQ(value("try { try { throw 'first'; } finally { throw 'second'; } } catch (e) { e }"), "second");
    // The exception goes on after its finally block.
    EXPECT_EQ(value("var r = ''; try { try { throw 'x'; } finally { r += 'f'; } } catch (e) { r += e; } r"), "fx");
    // A return in finally wins over the one of the body.
    EXPECT_EQ(value("function g() { try { return 1; } finally { return 2; } } g()"), "2");
    // The value a return keeps survives the finally block's temporaries.
    EXPECT_EQ(value("function h(a) { try { return a * 2 + 1; } finally { var t = a + 100; t = t * 3; } } h(5)"), "11");
    EXPECT_EQ(value("var s = ''; for (var i = 0; i < 3; i++) { try { if (i == 1) continue; s += i; } finally { s += 'f'; } } s"),
              "0ff2f");
    EXPECT_EQ(value("var r = ''; try { r += 'a'; } catch (e) { r += 'b'; } finally { r += 'c'; } r"), "ac");
    EXPECT_EQ(value("var r = ''; try { throw 1; } catch (e) { r += 'b' + e; } finally { r += 'c'; } r"), "b1c");
    EXPECT_EQ(value("function k() { for (;;) { try { return 'out'; } finally { note('k'); } } } k()"), "out");
}

TEST_F(vm_test, catch_scoping) {
    EXPECT_EQ(value("var e = 'outer'; try { throw 'inner'; } catch (e) { note(e); } e"), "outer");
    EXPECT_EQ(notes, (std::vector<std::string>{"inner"}));
    EXPECT_EQ(value("function f() { var e = 1; try { throw 2; } catch (e) { var e = 3; } return e; } f()"), "1");
    EXPECT_EQ(value("function f() { try { throw 7; } catch (x) { return function () { return x; }; } } f()()"), "7");
    // Errors of the engine arrive as objects with their type.
    EXPECT_EQ(value("try { null.x; } catch (e) { e.name }"), "TypeError");
}

TEST_F(vm_test, eval_scoping_and_completion) {
    EXPECT_EQ(value("eval('1; if (true) { 2; }')"), "2");
    EXPECT_EQ(value("eval('var q = 4;'); q"), "4");
    EXPECT_EQ(value("function f() { eval('var x = 1'); return x; } f()"), "1");
    EXPECT_EQ(value("function f(a) { return eval('a + 1'); } f(41)"), "42");
    EXPECT_EQ(value("eval(5)"), "5");
    EXPECT_EQ(value("typeof eval()"), "undefined");
    // Another way of reaching eval runs at global scope.
    EXPECT_EQ(value("var v = 'global'; function f() { var v = 'local'; var e = eval; return e('v'); } f()"), "global");
    EXPECT_EQ(value("var w = 'global'; function f() { var w = 'local'; return eval('w'); } f()"), "local");
}

TEST_F(vm_test, parameters_and_declarations) {
    EXPECT_EQ(value("function f(a, a) { return a; } f(1, 2)"), "2");
    EXPECT_EQ(value("function f(g) { function g() {} return g; } f(5)"), "5");
    EXPECT_EQ(value("function f(a) { arguments[0] = 2; return a; } f(1)"), "1");
    EXPECT_EQ(value("function f() { return arguments.length + ':' + arguments[1]; } f('x', 'y', 'z')"), "3:y");
    EXPECT_EQ(value("function f(a, b) { return typeof b; } f(1)"), "undefined");
    EXPECT_EQ(value("function f() { return g(); function g() { return 'hoisted'; } } f()"), "hoisted");
    EXPECT_EQ(value("h(); function h() { return 1; }"), "1");
    EXPECT_EQ(value("function f() { return 1; } function f() { return 2; } f()"), "2");
    EXPECT_EQ(value("function f(a, b, c) {} f.length"), "3");
}

TEST_F(vm_test, switch_statements) {
    EXPECT_EQ(value("var s = ''; switch (3) { case note('t1'), 1: s += 'a'; default: s += 'd'; case note('t2'), 2: s += 'b'; } s"),
              "db");
    EXPECT_EQ(notes, (std::vector<std::string>{"t1", "t2"}));
    EXPECT_EQ(value("var s = ''; switch (2) { case 1: s += 'a'; default: s += 'd'; case 2: s += 'b'; case 3: s += 'c'; } s"),
              "bc");
    EXPECT_EQ(value("var s = ''; switch ('x') { case 'x': s += 1; break; case 'y': s += 2; } s"), "1");
    EXPECT_EQ(value("var s = 'none'; switch (9) { case 1: s = 'one'; } s"), "none");
    EXPECT_EQ(value("var s = ''; switch ('1') { case 1: s = 'loose'; break; default: s = 'strict'; } s"), "strict");
    EXPECT_EQ(value("var n = 0; for (var i = 0; i < 3; i++) { switch (i) { case 1: continue; } n++; } n"), "2");
}

TEST_F(vm_test, for_in_with_initialiser) {
    EXPECT_EQ(value("for (var i = 5 in {}) ; i"), "5");
    EXPECT_EQ(value("function f() { for (var k in {a: 1, b: 2}) ; return k; } f()"), "b");
}

TEST_F(vm_test, functions_closures_and_recursion) {
    EXPECT_EQ(value("function fib(n) { return n < 2 ? n : fib(n - 1) + fib(n - 2); } fib(20)"), "6765");
    EXPECT_EQ(value("function counter() { var c = 0; return function () { return ++c; }; } var k = counter(); k(); k(); k()"),
              "3");
    EXPECT_EQ(value("function mk() { var fs = []; for (var i = 0; i < 3; i++) fs[i] = function () { return i; }; return fs; } mk()[0]()"),
              "3");
    EXPECT_EQ(value("var f = function fact(n) { return n <= 1 ? 1 : n * fact(n - 1); }; f(10) + ':' + typeof fact"),
              "3628800:undefined");
    EXPECT_EQ(value("function outer() { var a = 1; function mid() { var b = 2; function inner() { return a + b; } return inner(); } return mid(); } outer()"),
              "3");
    EXPECT_EQ(value("function P(x) { this.x = x; } P.prototype.get = function () { return this.x; }; new P(9).get()"), "9");
    EXPECT_EQ(value("function Q() { return {r: 1}; } new Q().r"), "1");
    EXPECT_EQ(value("var o = {v: 4, m: function () { return this.v; }}; o.m()"), "4");
    EXPECT_EQ(value("function t() { return this; } t() === this"), "true");
    EXPECT_EQ(value("function deep(n) { return n == 0 ? 0 : 1 + deep(n - 1); } deep(2000)"), "2000");
}

TEST_F(vm_test, runaway_recursion_throws_rather_than_crashes) {
    EXPECT_EQ(value("function r() { return r(); } try { r(); } catch (e) { e.name + ': ' + e.message }"),
              "RangeError: range_error: too much recursion");
    EXPECT_EQ(value("function c(n) { return n == 0 ? 0 : 1 + c(n - 1); } c(1000)"), "1000");
}

TEST_F(vm_test, thrown_values_carry_file_and_line) {
    auto r = run("var a = 1;\nvar b = 2;\nnull.x;\n");
    auto o = std::get<js_object>(std::get<exception>(r).exception_value);
    EXPECT_EQ(text_of(engine, ok(get(engine, o, key_of_utf8("lineNumber")))), "3");
    EXPECT_EQ(text_of(engine, ok(get(engine, o, key_of_utf8("fileName")))), "test.js");
    EXPECT_EQ(value("try { undefinedFunction(); } catch (e) { e.name }"), "TypeError");
    // A value thrown inside a function carries the line of its throw statement, not of the call.
    auto thrown_at = run("function f() {\n  throw {};\n}\n\nf();\n");
    auto t = std::get<js_object>(std::get<exception>(thrown_at).exception_value);
    EXPECT_EQ(text_of(engine, ok(get(engine, t, key_of_utf8("lineNumber")))), "2");
    auto top = run("\nthrow {};");
    auto u = std::get<js_object>(std::get<exception>(top).exception_value);
    EXPECT_EQ(text_of(engine, ok(get(engine, u, key_of_utf8("fileName")))), "test.js");
    EXPECT_EQ(value("throw 'plain'"), "threw plain");
}

TEST_F(vm_test, new_function_and_indirect_eval_hooks) {
    auto f = ok(engine.js_hooks.make_function(engine, jsstring::from_utf8("a, b"), jsstring::from_utf8("return a * b;")));
    EXPECT_EQ(text_of(engine, ok(call(engine, undefined(), f, {num(6), num(7)}))), "42");
    EXPECT_EQ(thrown(engine.js_hooks.make_function(engine, jsstring::from_utf8("a"), jsstring::from_utf8("}), (function () {"))),
              "SyntaxError: syntax error in function arguments");
    EXPECT_EQ(thrown(engine.js_hooks.make_function(engine, {}, jsstring::from_utf8("break;"))),
              "SyntaxError: function syntax error: break_error");
    EXPECT_EQ(text_of(engine, ok(engine.js_hooks.indirect_eval(engine, str("var iv = 3; iv * 2")))), "6");
}

TEST_F(vm_test, eval_program_reports_uncaught_exceptions) {
    resource::locator::locator where{.locator_url = resource::locator::file{.file_path = {.path = "p.js"}}};
    EXPECT_TRUE(std::holds_alternative<program_ok>(eval_program(engine, where, parsed("var z = 1;"))));
    auto r = eval_program(engine, where, parsed("throw 4;"));
    ASSERT_TRUE(std::holds_alternative<exception>(r));
    EXPECT_EQ(text_of(engine, std::get<exception>(r).exception_value), "4");
    // Declared names of global code cannot be deleted; those of eval code can.
    EXPECT_EQ(value("var kept; delete kept"), "false");
    EXPECT_EQ(value("eval('var gone'); delete gone"), "true");
}

} // namespace

} // namespace vellum::js::eval::testing
