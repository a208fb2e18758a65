// The syntax tree of a script: what the parser builds and the compiler takes. Every node is immutable;
// recursive alternatives are held through shared pointers to const nodes or in vectors.
#pragma once

#include "js/jsstring.hpp"
#include "js/number.hpp"
#include "js/value.hpp"
#include "util/ref.hpp"

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::js {

struct statement;
struct expr;
struct func_decl;
struct func_expr;
struct case_block;

// ---- Operators ---------------------------------------------------------------------------------------

enum class logical_op { logical_and, logical_or };
enum class bitwise_op { bitwise_and, bitwise_or, bitwise_xor };
enum class additive_op { plus, minus };
enum class multiplicative_op { multiply, divide, remainder };
enum class equality_op { equal, not_equal, strict_equal, strict_not_equal };
enum class relational_op { less_than, greater_than, less_than_or_equal, greater_than_or_equal, instance_of, in };
enum class shift_op { left_shift, signed_right_shift, unsigned_right_shift };
enum class prefix_op { delete_, void_, typeof_, increment, decrement, plus, minus, bitwise_not, logical_not };
enum class postfix_op { increment, decrement };

/// The comma operator, the one binary operator that belongs to no family.
struct comma_op {
    bool operator==(comma_op const&) const = default;
};

/// A binary operator: the comma, or one of the operator families.
using binary_op =
    std::variant<comma_op, bitwise_op, additive_op, multiplicative_op, equality_op, relational_op, shift_op>;

/// Plain `=`.
struct plain_assign {
    bool operator==(plain_assign const&) const = default;
};

/// `=`, or a compound assignment carrying the operator it applies (`*=` carries `multiply`).
using assign_op = std::variant<plain_assign, multiplicative_op, additive_op, shift_op, bitwise_op>;

// ---- Leaves ------------------------------------------------------------------------------------------

/// A property name in an object literal: identifier (or any word), number or string.
using prop_name = std::variant<std::string, number, jsstring::js_string>;

/// A source element: a statement or a function declaration.
using source_element = std::variant<ref<statement>, ref<func_decl>>;
using source_elements = std::vector<source_element>;

struct func_decl {
    std::string func_decl_ident;
    std::vector<std::string> func_decl_params;
    source_elements func_decl_body;
};

struct func_expr {
    std::optional<std::string> func_ident;
    std::vector<std::string> func_params;
    source_elements func_body;
};

/// An array literal: only holes (`[,,]` is `elision{2}`), or elements each with the holes before it, and
/// the holes after the last element when the literal ends in `, ,`.
struct array_elision {
    int elision_count = 0;
};

struct array_element {
    int element_holes_before = 0;
    ref<expr> element_value;
};

struct array_elements {
    std::vector<array_element> elements_list;
    std::optional<int> elements_trailing_holes;
};

using array_literal = std::variant<array_elision, array_elements>;

// ---- Expressions ---------------------------------------------------------------------------------------

struct binary_expr {
    binary_op binary_operator;
    ref<expr> binary_left;
    ref<expr> binary_right;
};

struct logical_expr {
    logical_op logical_operator;
    ref<expr> logical_left;
    ref<expr> logical_right;
};

struct assign_expr {
    int assign_line = 0;
    assign_op assign_operator;
    ref<expr> assign_target;
    ref<expr> assign_value;
};

struct prefix_expr {
    int prefix_line = 0;
    prefix_op prefix_operator;
    ref<expr> prefix_operand;
};

struct postfix_expr {
    int postfix_line = 0;
    postfix_op postfix_operator;
    ref<expr> postfix_operand;
};

struct conditional_expr {
    ref<expr> conditional_test;
    ref<expr> conditional_then;
    ref<expr> conditional_else;
};

struct new_expr {
    ref<expr> new_callee;
    std::vector<ref<expr>> new_args;
};

/// A call, `callee(args)`.
struct expr_args {
    int expr_args_line = 0;
    ref<expr> expr_args_callee;
    std::vector<ref<expr>> expr_args_args;
};

/// `object[index]`.
struct expr_expr {
    int expr_expr_line = 0;
    ref<expr> expr_expr_object;
    ref<expr> expr_expr_index;
};

/// `object.name`.
struct expr_id {
    int expr_id_line = 0;
    ref<expr> expr_id_object;
    std::string expr_id_name;
};

struct number_expr {
    number number_value;
};

struct id_expr {
    std::string id_name;
};

struct string_expr {
    jsstring::js_string string_value;
};

/// A regular expression literal: the one object that stands for it, made when the literal was parsed
/// and owned by the engine's heap.
struct regexp_ob {
    eval::js_object regexp_ob_object;
};

struct bool_expr {
    bool bool_value = false;
};

struct null_expr {};

struct this_expr {};

struct array_expr {
    array_literal array_value;
};

struct object_expr {
    std::vector<std::pair<prop_name, ref<expr>>> object_props;
};

struct func_expr_expr {
    ref<func_expr> func_value;
};

/// An expression. The alternatives follow the order binary, logical, assign, prefix, postfix,
/// conditional, new, call (`expr_args`), index (`expr_expr`, `a[b]`), property (`expr_id`, `a.b`), number,
/// id, string, regexp, bool, null, this, array, object, function.
struct expr {
    std::variant<binary_expr, logical_expr, assign_expr, prefix_expr, postfix_expr, conditional_expr, new_expr,
                 expr_args, expr_expr, expr_id, number_expr, id_expr, string_expr, regexp_ob, bool_expr,
                 null_expr, this_expr, array_expr, object_expr, func_expr_expr>
        expr_node;

    /// Frees the subtrees one by one rather than recursively, so that a very deep tree (a chain of
    /// `a + a + ...` with hundreds of thousands of operands) cannot exhaust the stack.
    ~expr();
};

// ---- Statements ----------------------------------------------------------------------------------------

/// One declaration of a `var` list: the name and its initialiser.
struct var_decl {
    std::string var_name;
    std::optional<ref<expr>> var_init;
};

struct block_stmt {
    source_elements block_body;
};

struct variable_stmt {
    std::vector<var_decl> variable_decls;
};

struct empty_stmt {};

struct expr_stmt {
    ref<expr> expr_value;
};

struct if_else_stmt {
    ref<expr> if_else_test;
    ref<statement> if_else_then;
    ref<statement> if_else_else;
};

struct if_stmt {
    ref<expr> if_test;
    ref<statement> if_then;
};

struct do_while_stmt {
    ref<statement> do_while_body;
    ref<expr> do_while_test;
};

struct while_stmt {
    ref<expr> while_test;
    ref<statement> while_body;
};

struct for_stmt {
    std::optional<ref<expr>> for_init;
    std::optional<ref<expr>> for_test;
    std::optional<ref<expr>> for_update;
    ref<statement> for_body;
};

struct for_var_stmt {
    std::vector<var_decl> for_var_decls;
    std::optional<ref<expr>> for_var_test;
    std::optional<ref<expr>> for_var_update;
    ref<statement> for_var_body;
};

struct for_in_stmt {
    int for_in_line = 0;
    ref<expr> for_in_target;
    ref<expr> for_in_object;
    ref<statement> for_in_body;
};

struct for_in_var_stmt {
    var_decl for_in_var_decl;
    ref<expr> for_in_var_object;
    ref<statement> for_in_var_body;
};

struct continue_stmt {
    int continue_line = 0;
    std::optional<std::string> continue_label;
};

struct break_stmt {
    int break_line = 0;
    std::optional<std::string> break_label;
};

struct return_stmt {
    int return_line = 0;
    std::optional<ref<expr>> return_value;
};

struct with_stmt {
    ref<expr> with_object;
    ref<statement> with_body;
};

struct switch_stmt {
    ref<expr> switch_value;
    ref<case_block> switch_cases;
};

struct labelled_stmt {
    int labelled_line = 0;
    std::string labelled_label;
    ref<statement> labelled_body;
};

struct throw_stmt {
    int throw_line = 0;
    ref<expr> throw_value;
};

/// The `catch (name) { ... }` part of a `try`.
struct catch_clause {
    std::string catch_name;
    source_elements catch_body;
};

struct try_catch_stmt {
    source_elements try_catch_body;
    catch_clause try_catch_catch;
};

struct try_finally_stmt {
    source_elements try_finally_body;
    source_elements try_finally_finally;
};

struct try_catch_finally_stmt {
    source_elements try_all_body;
    catch_clause try_all_catch;
    source_elements try_all_finally;
};

/// A statement, alternatives in the order of the table of statement kinds.
struct statement {
    std::variant<block_stmt, variable_stmt, empty_stmt, expr_stmt, if_else_stmt, if_stmt, do_while_stmt,
                 while_stmt, for_stmt, for_var_stmt, for_in_stmt, for_in_var_stmt, continue_stmt, break_stmt,
                 return_stmt, with_stmt, switch_stmt, labelled_stmt, throw_stmt, try_catch_stmt,
                 try_finally_stmt, try_catch_finally_stmt>
        stmt_node;

    /// Frees nested statements and expressions one by one, as `expr` does.
    ~statement();
};

/// `case expr: body`.
struct case_clause {
    ref<expr> case_test;
    source_elements case_body;
};

/// The clauses after the `default` clause and its body.
struct default_and_second {
    source_elements default_body;
    std::vector<case_clause> second_clauses;
};

/// The body of a `switch`: the clauses before `default`, then the default and the clauses after it.
struct case_block {
    std::vector<case_clause> first_clauses;
    std::optional<default_and_second> default_and_second_clauses;
};

/// A short text of an expression for messages ("x is not a function"): `this`, `null`, `true`, `false`,
/// identifiers, numbers, quoted strings, "[...]" and "{...}" for literals, `a.b`, `a[b]` and `new` forms.
/// Other expressions have none, and the message goes without.
[[nodiscard]] std::optional<std::string> expr_to_source(expr const& e);

} // namespace vellum::js
