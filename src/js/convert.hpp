// Conversions between script values (to primitive, boolean, number, string, object, property key), the
// arithmetic of the two number representations, and equality, comparison and `typeof`.
#pragma once

#include "js/value.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace vellum::js::eval {

struct js;

/// Which conversion an object tries first when it must become a primitive.
enum class preferred_type { prefer_string, prefer_number };

/// Turns an object into a primitive by `valueOf` and `toString` (in that order, or the reverse for
/// `prefer_string`); without a hint a date prefers a string and any other object a number. Primitives
/// come back unchanged. Both failing throws a `TypeError`.
[[nodiscard]] expr_res<js_value> to_primitive(js& engine, js_value const& v, std::optional<preferred_type> hint = {});

bool to_boolean(js_value const& v);

/// A string as a number: a whole text that reads as a signed decimal 64-bit integer gives an integer;
/// otherwise, if it does not start with white space, the C library's reading of a double that must take
/// the whole text; anything else is NaN. Narrower than the standard's grammar: " 12" and "" are NaN.
number string_to_number(js_string const& s);

[[nodiscard]] expr_res<number> to_number(js& engine, js_value const& v);

/// The value of a number as a double.
double to_double(number n);

/// Whether the number is NaN.
bool is_nan(number n);

/// ToInt32 and ToUint32 of the standard: truncation, then modulo 2^32 (NaN and infinities give 0).
std::int32_t number_to_int32(number n);
std::uint32_t number_to_uint32(number n);

[[nodiscard]] expr_res<std::int32_t> to_int32(js& engine, js_value const& v);
[[nodiscard]] expr_res<std::uint32_t> to_uint32(js& engine, js_value const& v);

/// The text of a number: integers in decimal; doubles by the shortest of "%.15g", "%.16g", "%.17g"
/// that reads back equal, so exponents come in C's form ("1e+21").
std::string number_to_string(number n);

js_string number_to_js_string(number n);

[[nodiscard]] expr_res<js_string> to_string(js& engine, js_value const& v);

/// A wrapper for a primitive, the object itself for an object; `undefined` and `null` throw.
[[nodiscard]] expr_res<js_object> to_object(js& engine, js_value const& v);

/// The property key of a value.
[[nodiscard]] expr_res<js_prop_string> to_prop_string(js& engine, js_value const& v);

/// The number operators other than `+`.
enum class arith_op { subtract, multiply, divide, remainder };

/// Arithmetic on numbers: two integers stay integers and wrap at 64 bits for `-` and `*`; `/` always
/// gives a double; `%` of integers keeps the dividend's sign and is NaN for a zero divisor; otherwise
/// the doubles (C's `fmod` for `%`).
number arithmetic(arith_op op, number a, number b);

/// The sum of two numbers, wrapping at 64 bits for two integers.
number add_numbers(number a, number b);

/// `a + b`: concatenation if either primitive is a string, else the sum.
[[nodiscard]] expr_res<js_value> add(js& engine, js_value const& a, js_value const& b);

/// `a - b`, `a * b`, `a / b`, `a % b` on any values.
[[nodiscard]] expr_res<js_value> numeric_op(js& engine, arith_op op, js_value const& a, js_value const& b);

/// Unary minus: an integer stays one (zero becomes the double -0, and the smallest integer a double);
/// a double changes sign.
number negate(number n);

/// The unary operators on values.
enum class unary_op { prefix_plus, prefix_minus, bitwise_not, logical_not };

/// `+v`, `-v`, `~v`, `!v`.
[[nodiscard]] expr_res<js_value> unary(js& engine, unary_op op, js_value const& v);

/// The bitwise and shift operators.
enum class int32_op { bitwise_and, bitwise_or, bitwise_xor, left_shift, signed_right_shift, unsigned_right_shift };

/// A bitwise or shift operator on any values; the result is an integer.
[[nodiscard]] expr_res<js_value> bitwise(js& engine, int32_op op, js_value const& a, js_value const& b);

/// The outcome of comparing two values: undefined when NaN is involved.
enum class relational_comparison_res { relational_undefined, relational_true, relational_false };

/// Whether a < b for two numbers, integers and doubles compared exactly by value.
relational_comparison_res less_than_numbers(number a, number b);

/// Whether two numbers are equal by value (NaN equals nothing).
bool numbers_equal(number a, number b);

/// The abstract relational comparison x < y; `left_first` says which operand converts first.
[[nodiscard]] expr_res<relational_comparison_res> relational_comparison(js& engine,
                                                          js_value const& x,
                                                          js_value const& y,
                                                          bool left_first = true);

/// The relational operators.
enum class relational_kind { less_than, greater_than, less_than_or_equal, greater_than_or_equal };

[[nodiscard]] expr_res<bool> relational(js& engine, relational_kind op, js_value const& a, js_value const& b);

/// `===`.
bool strict_equality_comparison(js_value const& x, js_value const& y);

/// `==`, converting objects to primitives where the standard says so.
[[nodiscard]] expr_res<bool> equality_comparison(js& engine, js_value const& x, js_value const& y);

/// `typeof` of a value.
std::string type_of(js_value const& v);

} // namespace vellum::js::eval
