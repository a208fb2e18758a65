// The standard library, called from C++ as a script would call it: functions looked up on the global
// object and its members, called with `call` and `construct`.
#include "js/standard.hpp"
#include "test_host.hpp"
#include "util/result.hpp"

#include <cmath>
#include <cstdlib>
#include <ctime>

using namespace vellum::js;
using namespace vellum::js::eval;
using namespace vellum::js::eval::testing;

namespace {

using values = std::vector<js_value>;

struct builtins : engine_test {
    /// A value reached by a dotted path from the global object ("Math.max").
    js_value global(std::string const& path) {
        js_value v = engine.global_object;
        std::size_t start = 0;
        while (start <= path.size()) {
            std::size_t const dot = path.find('.', start);
            std::string const name =
                path.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
            v = ok(get(engine, ok(to_object(engine, v)), key_of_utf8(name)));
            if (dot == std::string::npos) {
                break;
            }
            start = dot + 1;
        }
        return v;
    }

    /// Calls a global function by its path, with `this` undefined.
    expr_res<js_value> fn(std::string const& path, values const& args = {}) {
        return call(engine, undefined(), global(path), args);
    }

    /// Calls a method of a value, as `self.name(args)`.
    expr_res<js_value> method(js_value const& self, char const* name, values const& args = {}) {
        js_value const f = ok(get(engine, ok(to_object(engine, self)), key_of_utf8(name)));
        return call(engine, self, f, args);
    }

    expr_res<js_value> make(std::string const& path, values const& args = {}) {
        return construct(engine, global(path), args);
    }

    /// The text of a result that must not have thrown.
    std::string s(expr_res<js_value> r) { return text_of(engine, ok(std::move(r))); }

    /// An array of the values.
    js_value array(values const& items) { return new_array(engine, items); }

    std::string joined(js_value const& a) { return s(method(a, "join", {str("|")})); }

    /// The string of a script-visible value, for comparing with a double.
    double d(expr_res<js_value> r) { return to_double(std::get<number>(ok(std::move(r)))); }
};

/// A host function made of a lambda, as the callback of `sort`, `replace` and `forEach`.
struct callbacks : builtins {};

} // namespace

TEST_F(builtins, only_the_listed_members_exist) {
    EXPECT_EQ(type_of(global("JSON")), "object");
    EXPECT_EQ(type_of(global("JSON.stringify")), "undefined");
    EXPECT_EQ(type_of(global("JSON.parse")), "undefined");
    EXPECT_EQ(s(method(global("JSON"), "toString")), "[object JSON]");
    for (char const* absent :
         {"Array.prototype.reduce", "Function.prototype.bind", "Object.freeze", "Object.getPrototypeOf",
          "Number.prototype.toPrecision", "String.prototype.localeCompare"}) {
        SCOPED_TRACE(absent);
        EXPECT_EQ(type_of(global(absent)), "undefined");
    }
    EXPECT_EQ(type_of(global("Math.seedRandom")), "function");
    EXPECT_EQ(type_of(global("Date.prototype.getUTCDay")), "function");
    EXPECT_EQ(type_of(global("Date.prototype.setDay")), "undefined");
    // Members do not show in for-in.
    EXPECT_TRUE(enumerate(engine, std::get<js_object>(global("Math"))).empty());
    EXPECT_EQ(engine.eval_function, std::get<js_object>(global("eval")));
}

TEST_F(builtins, function_text_and_calls) {
    EXPECT_EQ(s(method(global("parseInt"), "toString")), "<<function>>");
    EXPECT_EQ(s(method(returning(num(1)), "toString")), "<<function>>");
    js_object who = func([](js& e, js_value const& self, values const& args) -> expr_res<js_value> {
        return new_array(e, {self, arg(args, 0), arg(args, 1)});
    });
    auto args_of = [&](expr_res<js_value> r) { return joined(ok(std::move(r))); };
    EXPECT_EQ(args_of(method(who, "call", {str("me"), num(1), num(2)})), "me|1|2");
    EXPECT_EQ(args_of(method(who, "apply", {str("me"), array({num(3), num(4)})})), "me|3|4");
    EXPECT_EQ(args_of(method(who, "apply", {str("me"), js_null{}})), "me||");
    EXPECT_EQ(thrown(method(who, "apply", {str("me"), num(5)})), "TypeError: invalid arguments");
    EXPECT_EQ(thrown(call(engine, str("x"), global("Function.prototype.call"), {})),
              "TypeError: object is not a function");
    EXPECT_EQ(thrown(make("parseInt")), "TypeError: object is not a constructor");
    EXPECT_EQ(ok(fn("Function.prototype")), undefined());
}

TEST_F(builtins, parse_int_and_float) {
    struct row {
        char const* text;
        js_value radix;
        char const* expected;
    };

    row const rows[] = {
        {"0x1f", undefined(), "31"},
        {"08", undefined(), "8"},
        {"  -12px", undefined(), "-12"},
        {"z", num(36), "35"},
        {"10", num(2), "2"},
        {"10", num(37), "NaN"},
        {"", undefined(), "NaN"},
        {"0x", undefined(), "NaN"},
        {"ff", num(16), "255"},
        {"1e3", undefined(), "1"},
        {"123456789012345678901", undefined(), "1.2345678901234568e+20"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.text);
        EXPECT_EQ(s(fn("parseInt", {str(r.text), r.radix})), r.expected);
    }
    EXPECT_TRUE(std::signbit(d(fn("parseInt", {str("-0")}))));
    for (auto [in, out] : {std::pair{"3.25e2xyz", "325"},
                           {"  .5", "0.5"},
                           {"-Infinityx", "-Infinity"},
                           {"1e", "1"},
                           {"e1", "NaN"},
                           {"0x10", "0"},
                           {"+.e1", "NaN"},
                           {"\u00a0 7.", "7"}}) {
        SCOPED_TRACE(in);
        EXPECT_EQ(s(fn("parseFloat", {str(in)})), out);
    }
    EXPECT_EQ(ok(fn("isNaN", {str("x")})), js_value{true});
    EXPECT_EQ(ok(fn("isFinite", {str("12")})), js_value{true});
    EXPECT_EQ(ok(fn("isFinite", {dbl(INFINITY)})), js_value{false});
}

TEST_F(builtins, escapes_and_uris) {
    EXPECT_EQ(s(fn("escape", {str("a b+é€/@")})), "a%20b+%E9%u20AC/@");
    EXPECT_EQ(s(fn("escape", {str("😀")})), "%uD83D%uDE00");
    EXPECT_EQ(s(fn("unescape", {str("%E9%u20AC%uD83D%uDE00%zz%u12")})), "é€😀%zz%u12");
    EXPECT_EQ(s(fn("encodeURIComponent", {str("a b&c/é")})), "a%20b%26c%2F%C3%A9");
    EXPECT_EQ(s(fn("encodeURI", {str("http://x/a b?q=1&r=é#f")})), "http://x/a%20b?q=1&r=%C3%A9#f");
    EXPECT_EQ(s(fn("decodeURIComponent", {str("a%20b%26c%2F%C3%A9")})), "a b&c/é");
    // decodeURI keeps escapes of characters that mean something in a URI.
    EXPECT_EQ(s(fn("decodeURI", {str("%2F%20%C3%A9%23")})), "%2F é%23");
    auto lone = vellum::jsstring::js_string(std::u32string(1, char32_t{0xD800}));
    EXPECT_EQ(thrown(fn("encodeURIComponent", {lone})), "URIError: invalid URI");
    for (char const* bad : {"%", "%E9", "%C3%28", "%ED%A0%80", "%C0%AF", "%zz"}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(thrown(fn("decodeURIComponent", {str(bad)})), "URIError: invalid URI");
    }
}

TEST_F(builtins, object_functions) {
    js_object o = new_object(engine);
    js_object desc = new_object(engine);
    define_value(desc, "value", num(1));
    ok(fn("Object.defineProperty", {o, str("fixed"), desc}));
    // A property defined without attributes is read-only, hidden and permanent.
    EXPECT_EQ(ok(get(engine, o, key_of_utf8("fixed"))), num(1));
    ok(put(engine, o, key_of_utf8("fixed"), num(2)));
    EXPECT_EQ(ok(get(engine, o, key_of_utf8("fixed"))), num(1));
    EXPECT_FALSE(delete_property(o, key_of_utf8("fixed")));
    EXPECT_EQ(s(fn("Object.keys", {o})), "");
    EXPECT_EQ(thrown(fn("Object.defineProperty", {o, str("fixed"), desc})),
              "TypeError: cannot modify property");
    // Attributes given are kept, and an accessor runs with the object as this.
    js_object open = new_object(engine);
    define_value(open, "value", num(3));
    define_value(open, "writable", true);
    define_value(open, "enumerable", true);
    ok(fn("Object.defineProperty", {o, str("open"), open}));
    ok(put(engine, o, key_of_utf8("open"), num(4)));
    EXPECT_EQ(s(fn("Object.keys", {o})), "open");
    js_object acc = new_object(engine);
    define_value(acc, "get",
                 func([](js&, js_value const& self, values const&) -> expr_res<js_value> { return self; }));
    ok(fn("Object.defineProperty", {o, str("self"), acc}));
    EXPECT_EQ(ok(get(engine, o, key_of_utf8("self"))), js_value{o});
    EXPECT_EQ(thrown(fn("Object.defineProperty", {num(1), str("x"), acc})),
              "TypeError: value is not an object");
    js_object bad = new_object(engine);
    define_value(bad, "get", num(1));
    EXPECT_EQ(thrown(fn("Object.defineProperty", {o, str("y"), bad})),
              "TypeError: property getter or setter is not a function");

    js_value made = ok(fn("Object.create", {js_null{}}));
    EXPECT_TRUE(std::holds_alternative<no_proto>(std::get<js_object>(made)->obj_prototype));
    EXPECT_EQ(thrown(fn("Object.create", {num(1)})), "TypeError: value is not an object or null");
    js_value child = ok(fn("Object.create", {o}));
    EXPECT_EQ(ok(method(o, "isPrototypeOf", {child})), js_value{true});
    EXPECT_EQ(ok(method(child, "hasOwnProperty", {str("open")})), js_value{false});
    EXPECT_EQ(ok(method(o, "propertyIsEnumerable", {str("open")})), js_value{true});
    EXPECT_EQ(ok(method(o, "propertyIsEnumerable", {str("fixed")})), js_value{false});
    EXPECT_EQ(s(method(array({}), "toString")), "");
    EXPECT_EQ(s(call(engine, js_null{}, global("Object.prototype.toString"), {})), "[object Null]");
    EXPECT_EQ(s(call(engine, array({}), global("Object.prototype.toString"), {})), "[object Array]");
    EXPECT_EQ(s(call(engine, num(1), global("Object.prototype.toString"), {})), "[object Number]");
    EXPECT_EQ(type_of(ok(fn("Object", {str("x")}))), "object");
}

TEST_F(builtins, errors) {
    js_value e = ok(fn("RangeError", {str("too far")}));
    EXPECT_EQ(s(method(e, "toString")), "RangeError: too far");
    EXPECT_EQ(ok(instance_of(engine, e, global("Error"))), true);
    js_value plain = ok(make("TypeError"));
    EXPECT_EQ(s(method(plain, "toString")), "TypeError");
    EXPECT_FALSE(has_own_property(engine, std::get<js_object>(plain), key_of_utf8("message")));
    EXPECT_EQ(s(call(engine, std::get<js_object>(global("Error")), global("Error.prototype.toString"), {})),
              "Error");
}

TEST_F(builtins, arrays) {
    EXPECT_EQ(s(method(array({num(10), num(9), num(1)}), "sort")), "1,10,9");
    // Undefined values follow the others, and holes come last.
    js_value holes = array({num(3), undefined(), num(1)});
    ok(put(engine, std::get<js_object>(holes), key_of_int(5), num(2)));
    ok(method(holes, "sort"));
    EXPECT_EQ(joined(holes), "1|2|3|||");
    EXPECT_TRUE(ok(method(holes, "hasOwnProperty", {num(3)})) == js_value{true});
    EXPECT_TRUE(ok(method(holes, "hasOwnProperty", {num(4)})) == js_value{false});
    EXPECT_EQ(ok(get(engine, std::get<js_object>(holes), key_of_utf8("length"))), num(6));

    js_value a = array({num(1), num(2), num(3), num(4), num(5)});
    EXPECT_EQ(joined(ok(method(a, "splice", {num(1), num(2), str("x")}))), "2|3");
    EXPECT_EQ(joined(a), "1|x|4|5");
    EXPECT_EQ(joined(ok(method(a, "splice", {num(-1)}))), "5");
    ok(method(a, "splice", {num(1), num(0), str("y"), str("z")}));
    EXPECT_EQ(joined(a), "1|y|z|x|4");
    EXPECT_EQ(joined(ok(method(a, "slice", {num(-2)}))), "x|4");
    EXPECT_EQ(ok(method(a, "push", {num(6), num(7)})), num(7));
    EXPECT_EQ(ok(method(a, "pop")), num(7));
    EXPECT_EQ(ok(method(a, "shift")), num(1));
    EXPECT_EQ(ok(method(a, "unshift", {num(0)})), num(6));
    EXPECT_EQ(joined(ok(method(a, "reverse"))), "6|4|x|z|y|0");
    EXPECT_EQ(ok(method(a, "indexOf", {str("x")})), num(2));
    EXPECT_EQ(ok(method(a, "indexOf", {str("x"), num(3)})), num(-1));
    EXPECT_EQ(ok(method(a, "lastIndexOf", {num(6), num(-1)})), num(0));
    EXPECT_EQ(joined(ok(method(array({num(1)}), "concat", {array({num(2), num(3)}), num(4)}))), "1|2|3|4");

    // length is an accessor on Array.prototype: setting it cuts the array.
    ok(put(engine, std::get<js_object>(a), key_of_utf8("length"), num(2)));
    EXPECT_EQ(joined(a), "6|4");
    EXPECT_EQ(thrown(put(engine, std::get<js_object>(a), key_of_utf8("length"), dbl(1.5))),
              "RangeError: invalid array length");
    EXPECT_EQ(ok(fn("Array.isArray", {a})), js_value{true});
    EXPECT_EQ(ok(get(engine, std::get<js_object>(ok(make("Array", {num(3)}))), key_of_utf8("length"))),
              num(3));
    EXPECT_EQ(thrown(make("Array", {num(-1)})), "RangeError: invalid array length");
    // An array that holds itself joins without recursing.
    js_value self = array({num(1)});
    ok(method(self, "push", {self}));
    EXPECT_EQ(s(method(self, "join")), "1,");
}

TEST_F(callbacks, sort_and_iteration_call_back) {
    js_object descending = func([](js& e, js_value const&, values const& args) -> expr_res<js_value> {
        return ok(numeric_op(e, arith_op::subtract, arg(args, 1), arg(args, 0)));
    });
    js_value a = array({num(3), num(10), num(1), num(2)});
    ok(method(a, "sort", {descending}));
    EXPECT_EQ(joined(a), "10|3|2|1");
    // A comparator that throws stops the sort with its exception; one that contradicts itself cannot
    // break it.
    js_object thrower = func([](js&, js_value const&, values const&) -> expr_res<js_value> {
        return exception{.exception_value = str("stop")};
    });
    EXPECT_EQ(std::get<exception>(method(a, "sort", {thrower})).exception_value, str("stop"));
    int flips = 0;
    js_object liar = func(
        [&](js&, js_value const&, values const&) -> expr_res<js_value> { return num(++flips % 2 ? 1 : -1); });
    values many;
    for (int i = 0; i < 100; ++i) {
        many.push_back(num(i));
    }
    ok(method(array(many), "sort", {liar}));
    EXPECT_EQ(thrown(method(a, "sort", {num(1)})), "TypeError: object is not a function");

    std::vector<std::string> seen;
    js_object record = func([&](js& e, js_value const& self, values const& args) -> expr_res<js_value> {
        seen.push_back(text_of(e, arg(args, 0)) + "@" + text_of(e, arg(args, 1)) + ":" + text_of(e, self));
        return ok(numeric_op(e, arith_op::multiply, arg(args, 0), num(2)));
    });
    js_value sparse = array({num(1), num(2)});
    ok(put(engine, std::get<js_object>(sparse), key_of_int(3), num(4)));
    EXPECT_EQ(ok(method(sparse, "forEach", {record, str("t")})), undefined());
    EXPECT_EQ(seen, (std::vector<std::string>{"1@0:t", "2@1:t", "4@3:t"}));
    EXPECT_EQ(joined(ok(method(sparse, "map", {record}))), "2|4||8");
    js_object odd = func([](js& e, js_value const&, values const& args) -> expr_res<js_value> {
        return ok(numeric_op(e, arith_op::remainder, arg(args, 0), num(2))) == num(1);
    });
    EXPECT_EQ(joined(ok(method(array({num(1), num(2), num(3)}), "filter", {odd}))), "1|3");
}

TEST_F(builtins, strings) {
    EXPECT_EQ(joined(ok(method(str("a,b,,c"), "split", {str(",")}))), "a|b||c");
    EXPECT_EQ(joined(ok(method(str("abc"), "split", {str("")}))), "a|b|c");
    EXPECT_EQ(joined(ok(method(str("a,b,c"), "split", {str(","), num(2)}))), "a|b");
    EXPECT_EQ(s(method(ok(method(str(""), "split", {str(",")})), "join", {str("|")})), "");
    EXPECT_EQ(
        ok(get(engine, std::get<js_object>(ok(method(str(""), "split", {str("")}))), key_of_utf8("length"))),
        num(0));
    js_value re = ok(make("RegExp", {str("x"), str("i")}));
    EXPECT_EQ(joined(ok(method(str("aXbXc"), "split", {re}))), "a|b|c");
    EXPECT_EQ(joined(ok(method(str("a1b2c"), "split", {ok(make("RegExp", {str("(\\d)")}))}))), "a|1|b|2|c");
    EXPECT_EQ(s(fn("String.fromCharCode", {num(104), num(105), num(0xD83D), num(0xDE00)})), "hi😀");
    EXPECT_EQ(s(method(str("  \u00a0 trim me\n\u2028"), "trim")), "trim me");
    EXPECT_EQ(s(method(str("Straße ÉCOLE"), "toLowerCase")), "straße école");
    EXPECT_EQ(s(method(str("ǆemal é"), "toUpperCase")), "ǄEMAL É");
    EXPECT_EQ(s(method(str("😀ab"), "charAt", {num(1)})), "a");
    EXPECT_EQ(ok(method(str("😀"), "charCodeAt", {num(0)})), num(0x1F600));
    EXPECT_EQ(s(method(str("abc"), "charCodeAt", {num(5)})), "NaN");
    EXPECT_EQ(s(method(str("abcdef"), "substring", {num(4), num(1)})), "bcd");
    EXPECT_EQ(s(method(str("abcdef"), "substr", {num(-3), num(2)})), "de");
    EXPECT_EQ(s(method(str("abcdef"), "slice", {num(2), num(-1)})), "cde");
    EXPECT_EQ(ok(method(str("abcabc"), "lastIndexOf", {str("c")})), num(5));
    EXPECT_EQ(ok(method(str("abcabc"), "lastIndexOf", {str("c"), num(4)})), num(2));
    EXPECT_EQ(ok(method(str("abcabc"), "indexOf", {str("c"), num(3)})), num(5));
    EXPECT_EQ(s(method(str("a"), "concat", {num(1), js_null{}})), "a1null");
    EXPECT_EQ(thrown(call(engine, undefined(), global("String.prototype.trim"), {})),
              "TypeError: undefined value is not an object");
    EXPECT_EQ(thrown(call(engine, num(1), global("String.prototype.toString"), {})),
              "TypeError: object is not a string");
    js_value wrapper = ok(make("String", {str("ab")}));
    EXPECT_EQ(type_of(wrapper), "object");
    EXPECT_EQ(s(method(wrapper, "valueOf")), "ab");
}

TEST_F(builtins, regexps_in_strings) {
    auto rx = [&](char const* p, char const* flags = "") { return ok(make("RegExp", {str(p), str(flags)})); };
    EXPECT_EQ(s(method(str("x"), "replace", {rx("(x)"), str("$1$1$$")})), "xx$");
    EXPECT_EQ(s(method(str("abc"), "replace", {rx("b"), str("[$`|$&|$']")})), "a[a|b|c]c");
    EXPECT_EQ(s(method(str("aaa"), "replace", {rx("a", "g"), str("b")})), "bbb");
    EXPECT_EQ(s(method(str("abc"), "replace", {rx("x*", "g"), str("-")})), "-a-b-c-");
    EXPECT_EQ(s(method(str("a.b.c"), "replace", {str("."), str("$&$&")})), "a..b.c");
    EXPECT_EQ(s(method(str("ab"), "replace", {rx("(a)|(z)"), str("[$2|$3|$10]")})), "[|$3|a0]b");
    js_object upper = func([](js& e, js_value const&, values const& args) -> expr_res<js_value> {
        // match, capture, offset, whole string
        return str(
            (text_of(e, arg(args, 1)) + "@" + text_of(e, arg(args, 2)) + "/" + text_of(e, arg(args, 3)))
                .c_str());
    });
    EXPECT_EQ(s(method(str("xaya"), "replace", {rx("(a)", "g"), upper})), "xa@1/xayaya@3/xaya");

    js_value g = rx("o", "g");
    EXPECT_EQ(joined(ok(method(str("foo boo"), "match", {g}))), "o|o|o|o");
    EXPECT_EQ(ok(get(engine, std::get<js_object>(g), key_of_utf8("lastIndex"))), num(0));
    EXPECT_EQ(ok(method(str("xyz"), "match", {rx("a", "g")})), js_value{js_null{}});
    js_value m = ok(method(str("key=val"), "match", {str("(\\w+)=(\\w+)")}));
    EXPECT_EQ(joined(m), "key=val|key|val");
    EXPECT_EQ(ok(get(engine, std::get<js_object>(m), key_of_utf8("index"))), num(0));
    EXPECT_EQ(ok(method(str("abc"), "search", {rx("c")})), num(2));
    EXPECT_EQ(ok(method(str("abc"), "search", {str("z")})), num(-1));

    js_value sticky = rx("a", "g");
    EXPECT_EQ(ok(method(sticky, "test", {str("aXa")})), js_value{true});
    EXPECT_EQ(ok(get(engine, std::get<js_object>(sticky), key_of_utf8("lastIndex"))), num(1));
    js_value second = ok(method(sticky, "exec", {str("aXa")}));
    EXPECT_EQ(ok(get(engine, std::get<js_object>(second), key_of_utf8("index"))), num(2));
    EXPECT_EQ(ok(method(sticky, "test", {str("aXa")})), js_value{false});
    EXPECT_EQ(s(method(rx("a/b", "gim"), "toString")), "/a/b/gim");
    EXPECT_EQ(s(method(ok(make("RegExp")), "toString")), "/(?:)/");
    EXPECT_EQ(thrown(make("RegExp", {str("(")})), "SyntaxError: invalid regular expression");
    EXPECT_EQ(thrown(make("RegExp", {str("a"), str("gg")})), "SyntaxError: invalid regular expression");
    EXPECT_EQ(ok(fn("RegExp", {g})), g);
    EXPECT_NE(ok(make("RegExp", {g})), g);
    // Another regexp's pattern with flags of its own.
    EXPECT_EQ(s(method(ok(make("RegExp", {g, str("im")})), "toString")), "/o/im");
    EXPECT_EQ(thrown(fn("RegExp", {g, str("x")})), "SyntaxError: invalid regular expression");
    // A pattern that backtracks without end gives up with an error instead of hanging.
    std::string as(30, 'a');
    auto r = method(str(as.c_str()), "replace", {rx("(a+)+b"), str("")});
    EXPECT_EQ(thrown(r).rfind("RangeError: ", 0), 0u);
}

TEST_F(builtins, numbers) {
    auto fixed = [&](js_value v, js_value digits) { return s(method(v, "toFixed", {digits})); };
    EXPECT_EQ(fixed(dbl(0.5), num(0)), "1");
    EXPECT_EQ(fixed(dbl(1.5), num(0)), "2");
    EXPECT_EQ(fixed(dbl(-0.5), num(0)), "-1");
    EXPECT_EQ(fixed(dbl(1.005), num(2)), "1.00");
    EXPECT_EQ(fixed(dbl(1e21), num(2)), "1e+21");
    EXPECT_EQ(fixed(dbl(0.000001), num(3)), "0.000");
    EXPECT_EQ(fixed(num(42), undefined()), "42");
    // The scaled value is rounded as a double: 1.45 * 10 is exactly 14.5, which goes up.
    EXPECT_EQ(fixed(dbl(1.45), num(1)), "1.5");
    EXPECT_EQ(fixed(dbl(123.456), num(5)), "123.45600");
    EXPECT_EQ(fixed(dbl(NAN), num(1)), "NaN");
    EXPECT_EQ(thrown(method(num(1), "toFixed", {num(21)})).rfind("RangeError: range_error: ", 0), 0u);
    EXPECT_EQ(s(method(num(255), "toString", {num(16)})), "ff");
    EXPECT_EQ(s(method(num(-255), "toString", {num(2)})), "-11111111");
    EXPECT_EQ(s(method(dbl(0.5), "toString", {num(2)})), "0.1");
    EXPECT_EQ(s(method(dbl(1e21), "toString", {num(10)})), "1e+21");
    EXPECT_EQ(thrown(method(num(1), "toString", {num(1)})).rfind("RangeError", 0), 0u);
    EXPECT_EQ(thrown(call(engine, str("1"), global("Number.prototype.valueOf"), {})),
              "TypeError: object is not a number");
    EXPECT_EQ(ok(fn("Number", {str("12")})), num(12));
    EXPECT_EQ(ok(fn("Number")), num(0));
    EXPECT_EQ(text_of(engine, global("Number.NEGATIVE_INFINITY")), "-Infinity");
    EXPECT_EQ(ok(fn("Boolean", {str("")})), js_value{false});
    EXPECT_EQ(s(method(ok(make("Boolean", {num(1)})), "toString")), "true");
}

TEST_F(builtins, math) {
    EXPECT_EQ(ok(fn("Math.max", {num(1), num(3), num(2)})), num(3));
    EXPECT_EQ(s(fn("Math.max")), "-Infinity");
    EXPECT_EQ(s(fn("Math.min", {num(1), dbl(NAN)})), "NaN");
    EXPECT_FALSE(std::signbit(d(fn("Math.max", {dbl(-0.0), dbl(0.0)}))));
    EXPECT_TRUE(std::signbit(d(fn("Math.min", {dbl(0.0), dbl(-0.0)}))));
    EXPECT_EQ(d(fn("Math.round", {dbl(2.5)})), 3);
    EXPECT_EQ(d(fn("Math.round", {dbl(-2.5)})), -2);
    EXPECT_EQ(d(fn("Math.round", {dbl(0.49999999999999994)})), 0);
    EXPECT_TRUE(std::signbit(d(fn("Math.round", {dbl(-0.2)}))));
    EXPECT_EQ(ok(fn("Math.abs", {num(-4)})), num(4));
    EXPECT_EQ(d(fn("Math.floor", {dbl(-1.5)})), -2);
    EXPECT_EQ(s(fn("Math.pow", {num(1), dbl(INFINITY)})), "NaN");
    EXPECT_EQ(d(fn("Math.pow", {num(2), num(10)})), 1024);
    EXPECT_EQ(text_of(engine, global("Math.PI")), "3.141592653589793");
    // The same seed gives the same sequence, each value below 1.
    auto sequence = [&] {
        ok(fn("Math.seedRandom", {num(1)}));
        std::vector<double> out;
        for (int i = 0; i < 5; ++i) {
            out.push_back(d(fn("Math.random")));
        }
        return out;
    };
    auto first = sequence();
    EXPECT_EQ(first, sequence());
    for (double x : first) {
        EXPECT_GE(x, 0);
        EXPECT_LT(x, 1);
    }
}

TEST_F(builtins, dates_in_utc) {
    js_value t = ok(fn("Date.UTC", {num(2024), num(0), num(31), num(23), num(59), num(59), num(999)}));
    EXPECT_EQ(t, num(1706745599999));
    js_value date = ok(make("Date", {t}));
    EXPECT_EQ(s(method(date, "toISOString")), "2024-01-31T23:59:59.999Z");
    EXPECT_EQ(s(method(date, "toUTCString")), "Wed, 31 Jan 2024 23:59:59 GMT");
    EXPECT_EQ(ok(method(date, "getUTCDay")), num(3));
    // Setting the month past a month end rolls over: 31 February is 2 March in a leap year.
    EXPECT_EQ(ok(method(date, "setUTCMonth", {num(1)})), num(1709423999999));
    EXPECT_EQ(s(method(date, "toISOString")), "2024-03-02T23:59:59.999Z");
    ok(method(date, "setUTCMilliseconds", {num(1000)}));
    EXPECT_EQ(s(method(date, "toISOString")), "2024-03-03T00:00:00.000Z");
    ok(method(date, "setUTCDate", {num(0)}));
    EXPECT_EQ(s(method(date, "toISOString")), "2024-02-29T00:00:00.000Z");
    ok(method(date, "setUTCFullYear", {num(2023)}));
    EXPECT_EQ(s(method(date, "toISOString")), "2023-03-01T00:00:00.000Z");
    ok(method(date, "setUTCHours", {num(-1), num(30)}));
    EXPECT_EQ(s(method(date, "toISOString")), "2023-02-28T23:30:00.000Z");
    EXPECT_EQ(ok(method(date, "getUTCMonth")), num(1));
    EXPECT_EQ(ok(method(date, "getUTCFullYear")), num(2023));
    EXPECT_EQ(ok(fn("Date.UTC", {num(99), num(11)})), num(944006400000));
    EXPECT_EQ(s(method(ok(make("Date", {dbl(-62198755200000.0)})), "toISOString")),
              "-000001-01-01T00:00:00.000Z");

    for (auto [text, expected] : {std::pair{"2024-01-31", 1706659200000.0},
                                  {"2024-01-31T12:30:15.5Z", 1706704215500.0},
                                  {"2024-01-31T12:30+02:00", 1706697000000.0},
                                  {"2024-02", 1706745600000.0},
                                  {"Wed, 31 Jan 2024 23:59:59 GMT", 1706745599000.0},
                                  {"Wed Jan 31 2024 23:59:59 GMT+0100", 1706741999000.0},
                                  {"Jan 31, 2024 11:59 PM UTC", 1706745540000.0},
                                  {"01/31/2024 GMT", 1706659200000.0},
                                  {"2024/01/31 UTC", 1706659200000.0},
                                  {"2024-01-31 12:00 UTC", 1706702400000.0}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(d(fn("Date.parse", {str(text)})), expected);
    }
    for (char const* bad : {"2024-13-01", "2023-02-29", "junk", "2024-01-31T25:00Z", ""}) {
        SCOPED_TRACE(bad);
        EXPECT_TRUE(std::isnan(d(fn("Date.parse", {str(bad)}))));
    }
}

TEST_F(builtins, invalid_dates) {
    js_value bad = ok(make("Date", {dbl(NAN)}));
    EXPECT_EQ(s(method(bad, "toString")), "Invalid Date");
    EXPECT_EQ(s(method(bad, "toUTCString")), "Invalid Date");
    EXPECT_EQ(s(method(bad, "getFullYear")), "NaN");
    EXPECT_EQ(s(method(bad, "setHours", {num(1)})), "NaN");
    EXPECT_EQ(thrown(method(bad, "toISOString")).rfind("RangeError", 0), 0u);
    EXPECT_EQ(s(method(ok(make("Date", {dbl(8.64e15 + 1)})), "getTime")), "NaN");
    EXPECT_EQ(s(method(ok(make("Date", {str("nonsense")})), "toString")), "Invalid Date");
    // setFullYear starts an invalid date from the epoch.
    ok(method(bad, "setUTCFullYear", {num(2000)}));
    EXPECT_EQ(s(method(bad, "toISOString")), "2000-01-01T00:00:00.000Z");
    EXPECT_EQ(thrown(call(engine, new_object(engine), global("Date.prototype.getTime"), {})),
              "TypeError: object is not a date");
    EXPECT_EQ(type_of(ok(fn("Date"))), "string");
}

TEST_F(builtins, dates_in_local_time) {
    // A zone an hour east of UTC in winter and two in summer, changing on the last Sundays of March and
    // October.
    char const* old_tz = std::getenv("TZ");
    std::string saved = old_tz ? old_tz : "";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    js_value winter = ok(make("Date", {num(2024), num(0), num(31), num(23), num(30)}));
    EXPECT_EQ(s(method(winter, "toISOString")), "2024-01-31T22:30:00.000Z");
    EXPECT_EQ(s(method(winter, "toString")), "Wed Jan 31 2024 23:30:00 GMT+0100");
    EXPECT_EQ(ok(method(winter, "getDate")), num(31));
    EXPECT_EQ(ok(method(winter, "getUTCHours")), num(22));
    // The program reads its own text forms back.
    for (char const* form : {"toString", "toUTCString", "toLocaleString", "toISOString"}) {
        SCOPED_TRACE(form);
        EXPECT_EQ(ok(fn("Date.parse", {ok(method(winter, form))})), ok(method(winter, "getTime")));
    }
    EXPECT_EQ(s(method(winter, "toDateString")), "Wed Jan 31 2024");
    EXPECT_EQ(s(method(winter, "toTimeString")), "23:30:00 GMT+0100");
    // Across a month end and into summer time the wall-clock time stays.
    ok(method(winter, "setMonth", {num(5), num(30)}));
    EXPECT_EQ(s(method(winter, "toString")), "Sun Jun 30 2024 23:30:00 GMT+0200");
    ok(method(winter, "setDate", {num(31)}));
    EXPECT_EQ(s(method(winter, "toString")), "Mon Jul 01 2024 23:30:00 GMT+0200");
    ok(method(winter, "setMinutes", {num(90)}));
    EXPECT_EQ(ok(method(winter, "getHours")), num(0));
    EXPECT_EQ(ok(method(winter, "getDay")), num(2));
    if (old_tz) {
        setenv("TZ", saved.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

TEST_F(builtins, recursion_through_builtins_is_bounded) {
    // A callback that goes back into the library from inside it, without end, as `[1].forEach(f)` inside
    // f does: the run stops with a RangeError rather than running out of stack.
    js_object deep;
    int levels = 0;
    deep = func([&](js&, js_value const&, values const&) -> expr_res<js_value> {
        ++levels;
        return method(array({num(1)}), "forEach", {deep});
    });
    auto r = method(array({num(1)}), "forEach", {deep});
    EXPECT_EQ(thrown(r), "RangeError: range_error: too much recursion");
    EXPECT_GT(levels, 100);
    // The count unwinds: the library works again afterwards.
    EXPECT_EQ(s(method(array({num(1), num(2)}), "join")), "1,2");
}
