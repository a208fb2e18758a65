// Conversions, arithmetic, equality and comparison of script values.
#include "js/jsarray.hpp"
#include "test_host.hpp"

#include <bit>
#include <cmath>
#include <limits>

using namespace vellum::js;
using namespace vellum::js::eval;
using namespace vellum::js::eval::testing;
using vellum::jsstring::from_utf8;

namespace {

double as_double(js_value const& v) {
    return to_double(std::get<number>(v));
}

bool is_int(js_value const& v) {
    return std::holds_alternative<std::int64_t>(std::get<number>(v));
}

} // namespace

TEST(jsarray, grows_to_double_or_needed_and_is_shared) {
    vellum::jsarray::js_array<int> a;
    a.push_back(1);
    EXPECT_EQ(a.capacity(), 1u);
    a.push_back(2);
    EXPECT_EQ(a.capacity(), 2u);
    a.push_back(3);
    EXPECT_EQ(a.capacity(), 4u);
    // A jump past double the capacity takes exactly what is needed.
    a.resize(11, 0);
    EXPECT_EQ(a.capacity(), 11u);
    auto alias = a;
    alias[0] = 42;
    EXPECT_EQ(a[0], 42);
    EXPECT_EQ(alias, a);
    auto own = vellum::jsarray::copy(a);
    own[0] = 7;
    EXPECT_EQ(a[0], 42);
    EXPECT_FALSE(own == a);
    a.erase(0);
    EXPECT_EQ(a.length(), 10u);
    EXPECT_EQ(a[0], 2);
}

TEST(js_value, hot_records_stay_small) {
    EXPECT_LE(sizeof(js_value), 48u);
    EXPECT_EQ(sizeof(js_object), sizeof(void*));
}

TEST_F(engine_test, number_text_reads_back_with_fewest_digits) {
    struct row {
        char const* name;
        number n;
        char const* text;
    };
    row const rows[] = {
        {"int", std::int64_t{-42}, "-42"},
        {"sum", 0.1 + 0.2, "0.30000000000000004"},
        {"1e21", 1e21, "1e+21"},
        {"third", 1.0 / 3.0, "0.3333333333333333"},
        {"small", 1.5e-7, "1.5e-07"},
        {"whole double", 2.0, "2"},
        {"negative zero", -0.0, "0"},
        {"NaN", std::numeric_limits<double>::quiet_NaN(), "NaN"},
        {"infinity", -std::numeric_limits<double>::infinity(), "-Infinity"},
        {"tenth", 0.1, "0.1"},
        {"2^53", 9007199254740992.0, "9007199254740992"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(number_to_string(r.n), r.text);
    }
    // One third needs more than 15 digits to read back.
    EXPECT_NE(number_to_string(1.0 / 3.0), "0.333333333333333");
}

TEST(number_text, every_double_reads_back_through_string_to_number) {
    // Bit patterns spread over the whole range of doubles, from subnormals to the largest.
    std::uint64_t bits = 0x9E3779B97F4A7C15u;
    for (int i = 0; i < 20000; ++i) {
        bits = bits * 6364136223846793005u + 1442695040888963407u;
        double d = std::bit_cast<double>(bits);
        if (!std::isfinite(d)) {
            continue;
        }
        std::string text = number_to_string(d);
        number back = string_to_number(from_utf8(text));
        SCOPED_TRACE(text);
        ASSERT_EQ(to_double(back), d == 0 ? 0.0 : d);
        ASSERT_LE(text.size(), 24u);
    }
}

TEST_F(engine_test, strings_become_numbers_by_the_narrow_rule) {
    double const nan = std::numeric_limits<double>::quiet_NaN();
    struct row {
        char const* text;
        number expected;
    };
    row const rows[] = {
        {"12", std::int64_t{12}},
        {"-12", std::int64_t{-12}},
        {"+12", std::int64_t{12}},
        {"012", std::int64_t{12}},
        {" 12", nan},
        {"12 ", nan},
        {"", nan},
        {"1e3", 1000.0},
        {"1.5", 1.5},
        {"0x10", 16.0},
        {"Infinity", std::numeric_limits<double>::infinity()},
        {"-inf", -std::numeric_limits<double>::infinity()},
        {"99999999999999999999", 1e20},
        {"12abc", nan},
        {"abc", nan},
        {"+-1", nan},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.text);
        number n = ok(to_number(engine, str(r.text)));
        EXPECT_EQ(n.index(), r.expected.index());
        if (is_nan(r.expected)) {
            EXPECT_TRUE(is_nan(n));
        } else {
            EXPECT_TRUE(numbers_equal(n, r.expected));
        }
    }
    // A NUL ends the text for the C library, but the string is more than the number.
    EXPECT_TRUE(is_nan(string_to_number(vellum::jsstring::js_string(std::u32string(U"1\0", 2)))));
    EXPECT_TRUE(is_nan(ok(to_number(engine, undefined()))));
    EXPECT_EQ(ok(to_number(engine, js_null{})), number{std::int64_t{0}});
    EXPECT_EQ(ok(to_number(engine, true)), number{std::int64_t{1}});
}

TEST_F(engine_test, integers_stay_exact_and_wrap) {
    // 2^53 + 1 has no double; both operands are integers, so the sum is exact.
    js_value sum = ok(add(engine, num(9007199254740993), num(0)));
    EXPECT_EQ(sum, num(9007199254740993));
    EXPECT_EQ(text_of(engine, sum), "9007199254740993");
    js_value wrapped = ok(add(engine, num(std::numeric_limits<std::int64_t>::max()), num(1)));
    EXPECT_EQ(wrapped, num(std::numeric_limits<std::int64_t>::min()));
    EXPECT_EQ(arithmetic(arith_op::multiply, std::int64_t{1} << 62, std::int64_t{4}), number{std::int64_t{0}});
    EXPECT_EQ(arithmetic(arith_op::subtract, std::numeric_limits<std::int64_t>::min(), std::int64_t{1}),
              number{std::numeric_limits<std::int64_t>::max()});
    // A double operand makes the other a double.
    EXPECT_EQ(add_numbers(std::int64_t{1}, 0.5), number{1.5});
}

TEST_F(engine_test, division_and_remainder_rules) {
    js_value q = ok(numeric_op(engine, arith_op::divide, num(6), num(3)));
    EXPECT_FALSE(is_int(q));
    EXPECT_EQ(text_of(engine, q), "2");
    EXPECT_EQ(text_of(engine, ok(numeric_op(engine, arith_op::divide, num(1), num(3)))), "0.3333333333333333");
    EXPECT_TRUE(std::isinf(as_double(ok(numeric_op(engine, arith_op::divide, num(1), num(0))))));
    EXPECT_EQ(ok(numeric_op(engine, arith_op::remainder, num(-7), num(3))), num(-1));
    EXPECT_EQ(ok(numeric_op(engine, arith_op::remainder, num(7), num(-3))), num(1));
    EXPECT_TRUE(std::isnan(as_double(ok(numeric_op(engine, arith_op::remainder, num(7), num(0))))));
    // A zero remainder of a negative dividend is -0, also for the quotient that overflows.
    for (auto const dividend : {std::int64_t{-1}, std::int64_t{-6}, std::numeric_limits<std::int64_t>::min()}) {
        auto const r = as_double(ok(numeric_op(engine, arith_op::remainder, num(dividend), num(-1))));
        EXPECT_TRUE(r == 0 && std::signbit(r)) << dividend;
    }
    EXPECT_EQ(ok(numeric_op(engine, arith_op::remainder, num(6), num(-3))), num(0));
    EXPECT_EQ(ok(numeric_op(engine, arith_op::remainder, dbl(5.5), num(2))), dbl(1.5));
    // Strings are converted: "6" * "7".
    EXPECT_EQ(ok(numeric_op(engine, arith_op::multiply, str("6"), str("7"))), num(42));
    // 1 / -0 shows that negating an integer zero gives a negative zero.
    EXPECT_EQ(to_double(arithmetic(arith_op::divide, std::int64_t{1}, negate(std::int64_t{0}))),
              -std::numeric_limits<double>::infinity());
    EXPECT_EQ(negate(std::int64_t{5}), number{std::int64_t{-5}});
    EXPECT_EQ(ok(unary(engine, unary_op::prefix_minus, str("5"))), num(-5));
    EXPECT_EQ(ok(unary(engine, unary_op::prefix_plus, str("1.5"))), dbl(1.5));
    EXPECT_EQ(ok(unary(engine, unary_op::bitwise_not, num(0))), num(-1));
    EXPECT_EQ(ok(unary(engine, unary_op::bitwise_not, dbl(4294967295.0))), num(0));
    EXPECT_EQ(ok(unary(engine, unary_op::logical_not, str(""))), js_value{true});
    EXPECT_TRUE(std::isnan(as_double(ok(unary(engine, unary_op::prefix_plus, str(" 1"))))));
}

TEST_F(engine_test, plus_concatenates_after_primitives) {
    EXPECT_EQ(ok(add(engine, str("a"), num(1))), str("a1"));
    EXPECT_EQ(ok(add(engine, num(1), str(""))), str("1"));
    EXPECT_EQ(ok(add(engine, str(""), str("b"))), str("b"));
    EXPECT_EQ(ok(add(engine, true, num(1))), num(2));
    EXPECT_EQ(ok(add(engine, js_null{}, num(1))), num(1));
    EXPECT_TRUE(std::isnan(as_double(ok(add(engine, undefined(), num(1))))));
    EXPECT_EQ(ok(add(engine, dbl(0.1), dbl(0.2))), dbl(0.1 + 0.2));
    // valueOf comes first without a hint; an object result passes on to toString.
    js_object o = new_object(engine);
    define_value(o, "valueOf", returning(num(5)));
    EXPECT_EQ(ok(add(engine, o, num(1))), num(6));
    js_object p = new_object(engine);
    define_value(p, "valueOf", returning(new_object(engine)));
    define_value(p, "toString", returning(str("x")));
    EXPECT_EQ(ok(add(engine, p, str("y"))), str("xy"));
    EXPECT_EQ(ok(add(engine, num(1), p)), str("1x"));
    // Neither gives a primitive (an object without prototype has neither method): TypeError.
    js_object q = new_object_of(engine, class_object{}, no_proto{});
    EXPECT_EQ(thrown(add(engine, q, num(1))), "TypeError: cannot convert object to primitive value");
    // A throwing valueOf passes its value on.
    js_object r = new_object(engine);
    define_value(r, "valueOf", func([](js&, js_value const&, std::vector<js_value> const&) -> expr_res<js_value> {
                     return exception{.exception_value = str("boom")};
                 }));
    auto res = add(engine, r, num(1));
    ASSERT_TRUE(is_exception(res));
    EXPECT_EQ(std::get<exception>(res).exception_value, str("boom"));
}

TEST_F(engine_test, to_string_prefers_to_string_on_objects) {
    js_object o = new_object(engine);
    define_value(o, "valueOf", returning(num(5)));
    define_value(o, "toString", returning(str("text")));
    EXPECT_EQ(text_of(engine, o), "text");
    EXPECT_EQ(ok(to_number(engine, o)), number{std::int64_t{5}});
    // A date without hint prefers its text.
    js_object d = new_object_of(engine, class_date{.time_value = 0}, yes_proto{.proto = engine.date_prototype});
    define_value(d, "valueOf", returning(num(5)));
    define_value(d, "toString", returning(str("day")));
    EXPECT_EQ(ok(to_primitive(engine, d)), str("day"));
    EXPECT_EQ(ok(to_primitive(engine, d, preferred_type::prefer_number)), num(5));
}

TEST_F(engine_test, int32_conversions) {
    EXPECT_EQ(number_to_int32(std::int64_t{4294967296 + 5}), 5);
    EXPECT_EQ(number_to_int32(2147483648.0), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(number_to_uint32(std::int64_t{-1}), 4294967295u);
    EXPECT_EQ(number_to_uint32(-1.5), 4294967295u);
    EXPECT_EQ(number_to_int32(std::numeric_limits<double>::quiet_NaN()), 0);
    EXPECT_EQ(number_to_int32(std::numeric_limits<double>::infinity()), 0);
    EXPECT_EQ(number_to_int32(1e20), 1661992960);
    EXPECT_EQ(ok(bitwise(engine, int32_op::left_shift, num(1), num(31))), num(-2147483648));
    EXPECT_EQ(ok(bitwise(engine, int32_op::unsigned_right_shift, num(-1), num(0))), num(4294967295));
    EXPECT_EQ(ok(bitwise(engine, int32_op::signed_right_shift, num(-8), num(33))), num(-4));
    EXPECT_EQ(ok(bitwise(engine, int32_op::bitwise_and, str("5"), num(3))), num(1));
    EXPECT_EQ(ok(bitwise(engine, int32_op::bitwise_xor, dbl(1.9), num(3))), num(2));
}

TEST_F(engine_test, relational_comparison_table) {
    using enum relational_kind;
    double const nan = std::numeric_limits<double>::quiet_NaN();
    struct row {
        char const* name;
        relational_kind op;
        js_value a;
        js_value b;
        bool expected;
    };
    row const rows[] = {
        {"1 < 2", less_than, num(1), num(2), true},
        {"2 <= 2", less_than_or_equal, num(2), num(2), true},
        {"NaN < 1", less_than, dbl(nan), num(1), false},
        {"1 < NaN", less_than, num(1), dbl(nan), false},
        {"NaN >= NaN", greater_than_or_equal, dbl(nan), dbl(nan), false},
        {"NaN <= 1", less_than_or_equal, dbl(nan), num(1), false},
        {"strings by code point", less_than, str("a"), str("b"), true},
        {"'10' < '9' as strings", less_than, str("10"), str("9"), true},
        {"'10' < 9 as numbers", less_than, str("10"), num(9), false},
        {"2^53+1 > 2^53 exactly", greater_than, num(9007199254740993), dbl(9007199254740992.0), true},
        {"int against fraction", less_than, num(1), dbl(1.5), true},
        {"fraction against int", greater_than_or_equal, dbl(-0.5), num(-1), true},
        {"undefined < 1", less_than, undefined(), num(1), false},
        {"null < 1", less_than, js_null{}, num(1), true},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(ok(relational(engine, r.op, r.a, r.b)), r.expected);
    }
    EXPECT_EQ(less_than_numbers(nan, std::int64_t{1}), relational_comparison_res::relational_undefined);
    // Code-point order: U+FF61 comes before U+1F600, unlike in UTF-16 unit order.
    EXPECT_TRUE(ok(relational(engine, less_than, str("\xEF\xBD\xA1"), str("\xF0\x9F\x98\x80"))));
    // Objects compare through valueOf.
    js_object o = new_object(engine);
    define_value(o, "valueOf", returning(num(3)));
    EXPECT_TRUE(ok(relational(engine, greater_than, o, num(2))));
}

TEST_F(engine_test, equality_tables) {
    double const nan = std::numeric_limits<double>::quiet_NaN();
    js_object o = new_object(engine);
    js_object other = new_object(engine);
    js_object one = new_object(engine);
    define_value(one, "valueOf", returning(num(1)));
    js_object named = new_object(engine);
    define_value(named, "toString", returning(str("x")));
    struct row {
        char const* name;
        js_value a;
        js_value b;
        bool loose;
        bool strict;
    };
    row const rows[] = {
        {"null undefined", js_null{}, undefined(), true, false},
        {"null 0", js_null{}, num(0), false, false},
        {"undefined 0", undefined(), num(0), false, false},
        {"'1' 1", str("1"), num(1), true, false},
        {"'1.0' 1", str("1.0"), num(1), true, false},
        // The empty string is NaN here, not 0 as elsewhere.
        {"'' 0", str(""), num(0), false, false},
        {"1 1.0", num(1), dbl(1.0), true, true},
        {"true 1", true, num(1), true, false},
        {"'1' true", str("1"), true, true, false},
        {"NaN NaN", dbl(nan), dbl(nan), false, false},
        {"same object", o, o, true, true},
        {"other object", o, other, false, false},
        {"object valueOf 1", one, num(1), true, false},
        {"object toString x", str("x"), named, true, false},
        {"object null", o, js_null{}, false, false},
        {"strings", str("ab"), str("ab"), true, true},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(ok(equality_comparison(engine, r.a, r.b)), r.loose);
        EXPECT_EQ(ok(equality_comparison(engine, r.b, r.a)), r.loose);
        EXPECT_EQ(strict_equality_comparison(r.a, r.b), r.strict);
    }
}

TEST_F(engine_test, typeof_boolean_and_objects) {
    js_object f = returning(undefined());
    struct row {
        js_value v;
        char const* type;
        bool truth;
    };
    row const rows[] = {
        {undefined(), "undefined", false}, {js_null{}, "object", false}, {true, "boolean", true},
        {num(0), "number", false},         {dbl(std::numeric_limits<double>::quiet_NaN()), "number", false},
        {dbl(-0.0), "number", false},      {dbl(0.5), "number", true},  {str(""), "string", false},
        {str("0"), "string", true},        {new_object(engine), "object", true}, {f, "function", true},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.type);
        EXPECT_EQ(type_of(r.v), r.type);
        EXPECT_EQ(to_boolean(r.v), r.truth);
    }
}

TEST_F(engine_test, to_object_wraps_primitives) {
    EXPECT_EQ(thrown(to_object(engine, undefined())), "TypeError: undefined value is not an object");
    EXPECT_EQ(thrown(to_object(engine, js_null{})), "TypeError: null value is not an object");
    js_object s = ok(to_object(engine, str("abc")));
    EXPECT_EQ(std::get<yes_proto>(s->obj_prototype).proto, engine.string_prototype);
    EXPECT_EQ(ok(get(engine, s, key_of_utf8("length"))), num(3));
    EXPECT_EQ(ok(get(engine, s, key_of_int(1))), str("b"));
    js_object emoji = ok(to_object(engine, str("\xF0\x9F\x98\x80")));
    EXPECT_EQ(ok(get(engine, emoji, key_of_utf8("length"))), num(1));
    js_object n = ok(to_object(engine, num(7)));
    EXPECT_EQ(class_name(engine, n), "Number");
    js_object b = ok(to_object(engine, false));
    EXPECT_EQ(std::get<class_boolean>(b->obj_class).boolean_value, false);
    EXPECT_EQ(std::get<yes_proto>(b->obj_prototype).proto, engine.boolean_prototype);
}

TEST_F(engine_test, property_keys_of_values) {
    EXPECT_EQ(ok(to_prop_string(engine, num(1))), key_of_int(1));
    EXPECT_EQ(ok(to_prop_string(engine, dbl(1.0))), key_of_int(1));
    EXPECT_EQ(ok(to_prop_string(engine, str("1"))), key_of_int(1));
    EXPECT_EQ(ok(to_prop_string(engine, dbl(1e21))), key_of_utf8("1e+21"));
    EXPECT_EQ(ok(to_prop_string(engine, dbl(1.5))), js_prop_string{js_prop_utf8{.prop_text = "1.5"}});
    EXPECT_EQ(ok(to_prop_string(engine, true)), key_of_utf8("true"));
    EXPECT_EQ(ok(to_prop_string(engine, dbl(-0.0))), key_of_int(0));
}
