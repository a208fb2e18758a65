#include "js/grammar.hpp"

#include "util/result.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace vellum::js {

namespace {

constexpr std::array<std::string_view, nonterminal_count> nonterminal_names = {
    "start_symbol",
    "program",
    "block",
    "stmt",
    "var_decls",
    "var_decl",
    "var_decls_noin",
    "var_decl_noin",
    "ident_opt",
    "expr_opt",
    "expr_noin_opt",
    "case_block",
    "case_clauses",
    "case_clause",
    "default_clause",
    "ccatch",
    "finally",
    "expr",
    "assign_expr",
    "assign_op",
    "shift_op",
    "relational_op",
    "relational_op_noin",
    "additive_op",
    "multiplicative_op",
    "equality_op",
    "prefix_op",
    "postfix_op",
    "condition_expr",
    "lefthand_expr",
    "logical_or_expr",
    "logical_and_expr",
    "bitwise_or_expr",
    "bitwise_xor_expr",
    "bitwise_and_expr",
    "equality_expr",
    "relational_expr",
    "expr_noin",
    "assign_expr_noin",
    "condition_expr_noin",
    "logical_or_expr_noin",
    "logical_and_expr_noin",
    "bitwise_or_expr_noin",
    "bitwise_xor_expr_noin",
    "bitwise_and_expr_noin",
    "equality_expr_noin",
    "relational_expr_noin",
    "expr_lh",
    "assign_expr_lh",
    "condition_expr_lh",
    "lefthand_expr_lh",
    "logical_or_expr_lh",
    "logical_and_expr_lh",
    "bitwise_or_expr_lh",
    "bitwise_xor_expr_lh",
    "bitwise_and_expr_lh",
    "equality_expr_lh",
    "relational_expr_lh",
    "shift_expr_lh",
    "addi_expr_lh",
    "multi_expr_lh",
    "unary_expr_lh",
    "postfix_expr_lh",
    "new_expr_lh",
    "call_expr_lh",
    "member_expr_lh",
    "primary_expr_lh",
    "shift_expr",
    "addi_expr",
    "multi_expr",
    "unary_expr",
    "postfix_expr",
    "new_expr",
    "call_expr",
    "member_expr",
    "primary_expr",
    "primary_expr_other",
    "func_expr",
    "param_list_opt",
    "param_list",
    "func_body",
    "source_elements",
    "source_element",
    "func_decl",
    "arguments",
    "argument_list",
    "array_literal",
    "object_literal",
    "elision_opt",
    "elision",
    "element_list",
    "prop_name_value_list",
    "prop_name",
    "identifier_name",
};

using items = std::span<stack_item>;

[[noreturn]] void shape_error(std::string_view label) {
    throw internal_error("parsing error: " + std::string(label));
}

template <class V>
V& take(stack_item& it, std::string_view label) {
    auto* v = std::get_if<V>(&it.item_value);
    if (!v) {
        shape_error(label);
    }
    return *v;
}

ref<expr> ex(stack_item& it, std::string_view label) { return take<expr_value>(it, label).tagged_value; }

std::string str(stack_item& it, std::string_view label) {
    return std::move(take<string_value>(it, label).tagged_value);
}

source_elements body_of_block(stack_item& it, std::string_view label) {
    auto const& s = take<stmt_value>(it, label).tagged_value;
    auto const* b = std::get_if<block_stmt>(&s->stmt_node);
    if (!b) {
        shape_error(label);
    }
    return b->block_body;
}

/// A right-recursive list is held last element first; this puts it in source order.
source_elements in_order(stack_item& it, std::string_view label) {
    auto list = std::move(take<source_elements_value>(it, label).tagged_value);
    std::reverse(list.begin(), list.end());
    return list;
}

template <class T>
ref<expr> mk(T node) {
    // Built in place: nodes free their children through their destructor, so they are not moved.
    return ref<expr>(new expr{.expr_node = std::move(node)});
}

template <class T>
value st(T node) {
    return stmt_value{ref<statement>(new statement{.stmt_node = std::move(node)})};
}

value ev(ref<expr> e) { return expr_value{std::move(e)}; }

// ---- Rules shared by many productions ----------------------------------------------------------------------

value pass_first(items it, std::string_view) { return std::move(it[0].item_value); }

value pass_second(items it, std::string_view) { return std::move(it[1].item_value); }

value expr_pass(items it, std::string_view label) { return ev(ex(it[0], label)); }

/// `left op right` for every binary and logical operator: the operator is either a token (`||`, `&&`,
/// `|`, `^`, `&`, `,`) or an operator value made by an operator nonterminal.
value binary_rule(items it, std::string_view label) {
    auto left = ex(it[0], label);
    auto right = ex(it[2], label);
    auto make = [&](binary_op op) { return ev(mk(binary_expr{op, left, right})); };
    value const& op = it[1].item_value;
    if (auto const* s = std::get_if<string_value>(&op)) {
        std::string const& t = s->tagged_value;
        if (t == "||" || t == "&&") {
            auto lop = t == "||" ? logical_op::logical_or : logical_op::logical_and;
            return ev(mk(logical_expr{lop, left, right}));
        }
        if (t == "|") {
            return make(bitwise_op::bitwise_or);
        }
        if (t == "^") {
            return make(bitwise_op::bitwise_xor);
        }
        if (t == "&") {
            return make(bitwise_op::bitwise_and);
        }
        if (t == ",") {
            return make(comma_op{});
        }
    } else if (auto const* o = std::get_if<tagged<shift_op, 13>>(&op)) {
        return make(o->tagged_value);
    } else if (auto const* o = std::get_if<tagged<relational_op, 14>>(&op)) {
        return make(o->tagged_value);
    } else if (auto const* o = std::get_if<tagged<additive_op, 15>>(&op)) {
        return make(o->tagged_value);
    } else if (auto const* o = std::get_if<tagged<multiplicative_op, 16>>(&op)) {
        return make(o->tagged_value);
    } else if (auto const* o = std::get_if<tagged<equality_op, 17>>(&op)) {
        return make(o->tagged_value);
    }
    shape_error(label);
}

value conditional_rule(items it, std::string_view label) {
    return ev(mk(conditional_expr{ex(it[0], label), ex(it[2], label), ex(it[4], label)}));
}

value assign_rule(items it, std::string_view label) {
    auto const& op = take<assign_op_value>(it[1], label);
    return ev(mk(assign_expr{op.assign_op_line, op.assign_op_kind, ex(it[0], label), ex(it[2], label)}));
}

value prefix_rule(items it, std::string_view label) {
    auto op = take<tagged<prefix_op, 18>>(it[0], label).tagged_value;
    return ev(mk(prefix_expr{it[0].line_number, op, ex(it[1], label)}));
}

value postfix_rule(items it, std::string_view label) {
    auto op = take<tagged<postfix_op, 19>>(it[1], label).tagged_value;
    return ev(mk(postfix_expr{it[1].line_number, op, ex(it[0], label)}));
}

std::vector<ref<expr>> args_of(stack_item& it, std::string_view label) {
    return std::move(take<tagged<std::vector<ref<expr>>, 20>>(it, label).tagged_value);
}

value new_with_args(items it, std::string_view label) {
    return ev(mk(new_expr{ex(it[1], label), args_of(it[2], label)}));
}

value new_without_args(items it, std::string_view label) { return ev(mk(new_expr{ex(it[1], label), {}})); }

value call_rule(items it, std::string_view label) {
    return ev(mk(expr_args{it[1].line_number, ex(it[0], label), args_of(it[1], label)}));
}

value index_rule(items it, std::string_view label) {
    return ev(mk(expr_expr{it[1].line_number, ex(it[0], label), ex(it[2], label)}));
}

value member_rule(items it, std::string_view label) {
    return ev(mk(expr_id{it[1].line_number, ex(it[0], label), str(it[2], label)}));
}

template <class Op, int Tag, Op O>
value op_rule(items, std::string_view) {
    return tagged<Op, Tag>{O};
}

template <auto O>
value assign_op_rule(items it, std::string_view) {
    return assign_op_value{it[0].line_number, assign_op{O}};
}

/// `identifier_name`: any word, including `null`, `true`, `false` and `this`, whose tokens carry
/// expressions rather than their text.
value identifier_name_rule(items it, std::string_view label) {
    if (auto* s = std::get_if<string_value>(&it[0].item_value)) {
        return string_value{s->tagged_value};
    }
    auto e = ex(it[0], label);
    if (std::get_if<null_expr>(&e->expr_node)) {
        return string_value{"null"};
    }
    if (std::get_if<this_expr>(&e->expr_node)) {
        return string_value{"this"};
    }
    if (auto* b = std::get_if<bool_expr>(&e->expr_node)) {
        return string_value{b->bool_value ? "true" : "false"};
    }
    shape_error(label);
}

std::optional<ref<expr>> opt_expr(stack_item& it, std::string_view label) {
    return take<tagged<std::optional<ref<expr>>, 4>>(it, label).tagged_value;
}

ref<statement> stmt_of(stack_item& it, std::string_view label) { return take<stmt_value>(it, label).tagged_value; }

std::vector<var_decl> decls_of(stack_item& it, std::string_view label) {
    return std::move(take<tagged<std::vector<var_decl>, 1>>(it, label).tagged_value);
}

var_decl decl_of(stack_item& it, std::string_view label) {
    return std::move(take<tagged<var_decl, 2>>(it, label).tagged_value);
}

value decls_cons(items it, std::string_view label) {
    auto rest = decls_of(it[2], label);
    rest.insert(rest.begin(), decl_of(it[0], label));
    return tagged<std::vector<var_decl>, 1>{std::move(rest)};
}

value decls_one(items it, std::string_view label) {
    return tagged<std::vector<var_decl>, 1>{{decl_of(it[0], label)}};
}

value decl_init(items it, std::string_view label) {
    return tagged<var_decl, 2>{var_decl{str(it[0], label), ex(it[2], label)}};
}

value decl_plain(items it, std::string_view label) {
    return tagged<var_decl, 2>{var_decl{str(it[0], label), std::nullopt}};
}

value some_expr(items it, std::string_view label) {
    return tagged<std::optional<ref<expr>>, 4>{ex(it[0], label)};
}

value no_expr(items, std::string_view) { return tagged<std::optional<ref<expr>>, 4>{std::nullopt}; }

std::optional<std::string> ident_of(stack_item& it, std::string_view label) {
    return take<tagged<std::optional<std::string>, 3>>(it, label).tagged_value;
}

std::vector<case_clause> clauses_of(stack_item& it, std::string_view label) {
    return std::move(take<tagged<std::vector<case_clause>, 6>>(it, label).tagged_value);
}

std::vector<std::string> params_of(stack_item& it, std::string_view label) {
    return std::move(take<tagged<std::vector<std::string>, 26>>(it, label).tagged_value);
}

catch_clause catch_of(stack_item& it, std::string_view label) {
    return std::move(take<tagged<catch_clause, 9>>(it, label).tagged_value);
}

source_elements finally_of(stack_item& it, std::string_view label) {
    return std::move(take<tagged<source_elements, 10>>(it, label).tagged_value);
}

/// A production as written in the table below: the left-hand side, the right-hand side as words (a word
/// that names a nonterminal is one, unless it starts with `'`, which marks a terminal such as `'finally`),
/// the rule and its label.
struct production_text {
    nonterminal lhs;
    std::string rhs;
    value (*fn)(items, std::string_view);
    std::string_view label;
};

using nt = nonterminal;

constexpr std::string_view s_el = "source_element";
constexpr std::string_view s_els = "source_elements";

// A level of a binary operator chain: `lhs := lhs op right`. Each level is also the next one down.
production_text step(nonterminal lhs, std::string_view op_and_right, std::string_view label) {
    return {lhs, std::string(nonterminal_name(lhs)) + " " + std::string(op_and_right), binary_rule, label};
}

std::vector<production_text> const production_texts = {
    {nt::start_symbol, "program", pass_first, "S -> B"},
    {nt::program, "source_elements", pass_first, "program"},
    {nt::stmt, "var var_decls ;",
     [](items it, std::string_view l) { return st(variable_stmt{decls_of(it[1], l)}); }, s_el},
    {nt::var_decls, "var_decl , var_decls", decls_cons, s_el},
    {nt::var_decls, "var_decl", decls_one, s_el},
    {nt::var_decls_noin, "var_decl_noin , var_decls_noin", decls_cons, s_el},
    {nt::var_decls_noin, "var_decl_noin", decls_one, s_el},
    {nt::var_decl, "id = assign_expr", decl_init, s_el},
    {nt::var_decl, "id", decl_plain, s_el},
    {nt::var_decl_noin, "id = assign_expr_noin", decl_init, s_el},
    {nt::var_decl_noin, "id", decl_plain, s_el},
    {nt::block, "{ source_elements }",
     [](items it, std::string_view l) { return st(block_stmt{in_order(it[1], l)}); }, s_els},
    {nt::stmt, "block", pass_first, s_el},
    {nt::stmt, "expr_lh ;", [](items it, std::string_view l) { return st(expr_stmt{ex(it[0], l)}); }, s_el},
    {nt::stmt, ";", [](items, std::string_view) { return st(empty_stmt{}); }, s_el},
    {nt::stmt, "if ( expr ) stmt else stmt",
     [](items it, std::string_view l) {
         return st(if_else_stmt{ex(it[2], l), stmt_of(it[4], l), stmt_of(it[6], l)});
     },
     s_el},
    {nt::stmt, "if ( expr ) stmt",
     [](items it, std::string_view l) { return st(if_stmt{ex(it[2], l), stmt_of(it[4], l)}); }, s_el},
    {nt::ident_opt, "id",
     [](items it, std::string_view l) -> value {
         return tagged<std::optional<std::string>, 3>{str(it[0], l)};
     },
     "ident opt"},
    {nt::ident_opt, "",
     [](items, std::string_view) -> value { return tagged<std::optional<std::string>, 3>{std::nullopt}; },
     "ident opt"},
    {nt::expr_opt, "expr", some_expr, "expr opt"},
    {nt::expr_opt, "", no_expr, "expr opt"},
    {nt::expr_noin_opt, "expr_noin", some_expr, "expr opt"},
    {nt::expr_noin_opt, "", no_expr, "expr opt"},
    {nt::stmt, "do stmt while ( expr ) ;",
     [](items it, std::string_view l) { return st(do_while_stmt{stmt_of(it[1], l), ex(it[4], l)}); }, s_el},
    {nt::stmt, "while ( expr ) stmt",
     [](items it, std::string_view l) { return st(while_stmt{ex(it[2], l), stmt_of(it[4], l)}); }, s_el},
    {nt::stmt, "for ( expr_noin_opt ; expr_opt ; expr_opt ) stmt",
     [](items it, std::string_view l) {
         return st(for_stmt{opt_expr(it[2], l), opt_expr(it[4], l), opt_expr(it[6], l), stmt_of(it[8], l)});
     },
     s_el},
    {nt::stmt, "for ( var var_decls_noin ; expr_opt ; expr_opt ) stmt",
     [](items it, std::string_view l) {
         return st(
             for_var_stmt{decls_of(it[3], l), opt_expr(it[5], l), opt_expr(it[7], l), stmt_of(it[9], l)});
     },
     s_el},
    {nt::stmt, "for ( lefthand_expr in expr ) stmt",
     [](items it, std::string_view l) {
         return st(for_in_stmt{it[0].line_number, ex(it[2], l), ex(it[4], l), stmt_of(it[6], l)});
     },
     s_el},
    {nt::stmt, "for ( var var_decl_noin in expr ) stmt",
     [](items it, std::string_view l) {
         return st(for_in_var_stmt{decl_of(it[3], l), ex(it[5], l), stmt_of(it[7], l)});
     },
     s_el},
    {nt::stmt, "continue ident_opt ;",
     [](items it, std::string_view l) { return st(continue_stmt{it[0].line_number, ident_of(it[1], l)}); },
     s_el},
    {nt::stmt, "break ident_opt ;",
     [](items it, std::string_view l) { return st(break_stmt{it[0].line_number, ident_of(it[1], l)}); },
     s_el},
    {nt::stmt, "return expr_opt ;",
     [](items it, std::string_view l) { return st(return_stmt{it[0].line_number, opt_expr(it[1], l)}); },
     s_el},
    {nt::stmt, "with ( expr ) stmt",
     [](items it, std::string_view l) { return st(with_stmt{ex(it[2], l), stmt_of(it[4], l)}); }, s_el},
    {nt::stmt, "switch ( expr ) case_block",
     [](items it, std::string_view l) {
         return st(switch_stmt{ex(it[2], l), take<tagged<ref<case_block>, 5>>(it[4], l).tagged_value});
     },
     s_el},
    {nt::case_block, "{ case_clauses }",
     [](items it, std::string_view l) -> value {
         return tagged<ref<case_block>, 5>{share(case_block{clauses_of(it[1], l), std::nullopt})};
     },
     "case clauses opt"},
    {nt::case_block, "{ case_clauses default_clause case_clauses }",
     [](items it, std::string_view l) -> value {
         auto def = std::move(take<tagged<source_elements, 8>>(it[2], l).tagged_value);
         return tagged<ref<case_block>, 5>{share(
             case_block{clauses_of(it[1], l), default_and_second{std::move(def), clauses_of(it[3], l)}})};
     },
     "case clauses opt"},
    {nt::case_clauses, "", [](items, std::string_view) -> value { return tagged<std::vector<case_clause>, 6>{}; },
     "case clauses opt"},
    {nt::case_clauses, "case_clause case_clauses",
     [](items it, std::string_view l) -> value {
         auto rest = clauses_of(it[1], l);
         rest.insert(rest.begin(), std::move(take<tagged<case_clause, 7>>(it[0], l).tagged_value));
         return tagged<std::vector<case_clause>, 6>{std::move(rest)};
     },
     "case clauses opt"},
    {nt::case_clause, "case expr : source_elements",
     [](items it, std::string_view l) -> value {
         return tagged<case_clause, 7>{case_clause{ex(it[1], l), in_order(it[3], l)}};
     },
     "case clauses opt"},
    {nt::default_clause, "default : source_elements",
     [](items it, std::string_view l) -> value { return tagged<source_elements, 8>{in_order(it[2], l)}; },
     "case clauses opt"},
    {nt::stmt, "id : stmt",
     [](items it, std::string_view l) {
         return st(labelled_stmt{it[0].line_number, str(it[0], l), stmt_of(it[2], l)});
     },
     s_el},
    {nt::stmt, "throw expr ;", [](items it, std::string_view l) { return st(throw_stmt{it[0].line_number, ex(it[1], l)}); }, s_el},
    {nt::stmt, "try block ccatch",
     [](items it, std::string_view l) { return st(try_catch_stmt{body_of_block(it[1], l), catch_of(it[2], l)}); },
     s_el},
    {nt::stmt, "try block finally",
     [](items it, std::string_view l) {
         return st(try_finally_stmt{body_of_block(it[1], l), finally_of(it[2], l)});
     },
     s_el},
    {nt::stmt, "try block ccatch finally",
     [](items it, std::string_view l) {
         return st(try_catch_finally_stmt{body_of_block(it[1], l), catch_of(it[2], l), finally_of(it[3], l)});
     },
     s_el},
    {nt::ccatch, "catch ( id ) block",
     [](items it, std::string_view l) -> value {
         return tagged<catch_clause, 9>{catch_clause{str(it[2], l), body_of_block(it[4], l)}};
     },
     s_el},
    {nt::finally, "'finally block",
     [](items it, std::string_view l) -> value { return tagged<source_elements, 10>{body_of_block(it[1], l)}; },
     s_el},
    {nt::assign_op, "=", assign_op_rule<plain_assign{}>, "assign expr"},
    {nt::assign_op, "*=", assign_op_rule<multiplicative_op::multiply>, "assign expr"},
    {nt::assign_op, "/=", assign_op_rule<multiplicative_op::divide>, "assign expr"},
    {nt::assign_op, "%=", assign_op_rule<multiplicative_op::remainder>, "assign expr"},
    {nt::assign_op, "+=", assign_op_rule<additive_op::plus>, "assign expr"},
    {nt::assign_op, "-=", assign_op_rule<additive_op::minus>, "assign expr"},
    {nt::assign_op, "<<=", assign_op_rule<shift_op::left_shift>, "assign expr"},
    {nt::assign_op, ">>=", assign_op_rule<shift_op::signed_right_shift>, "assign expr"},
    {nt::assign_op, ">>>=", assign_op_rule<shift_op::unsigned_right_shift>, "assign expr"},
    {nt::assign_op, "&=", assign_op_rule<bitwise_op::bitwise_and>, "assign expr"},
    {nt::assign_op, "^=", assign_op_rule<bitwise_op::bitwise_xor>, "assign expr"},
    {nt::assign_op, "|=", assign_op_rule<bitwise_op::bitwise_or>, "assign expr"},
    {nt::additive_op, "+", op_rule<additive_op, 15, additive_op::plus>, "additive expr"},
    {nt::additive_op, "-", op_rule<additive_op, 15, additive_op::minus>, "additive expr"},
    {nt::multiplicative_op, "*", op_rule<multiplicative_op, 16, multiplicative_op::multiply>,
     "multiplicative expr"},
    {nt::multiplicative_op, "/", op_rule<multiplicative_op, 16, multiplicative_op::divide>,
     "multiplicative expr"},
    {nt::multiplicative_op, "%", op_rule<multiplicative_op, 16, multiplicative_op::remainder>,
     "multiplicative expr"},
    {nt::equality_op, "==", op_rule<equality_op, 17, equality_op::equal>, "equality expr"},
    {nt::equality_op, "!=", op_rule<equality_op, 17, equality_op::not_equal>, "equality expr"},
    {nt::equality_op, "===", op_rule<equality_op, 17, equality_op::strict_equal>, "equality expr"},
    {nt::equality_op, "!==", op_rule<equality_op, 17, equality_op::strict_not_equal>, "equality expr"},
    {nt::relational_op_noin, "<", op_rule<relational_op, 14, relational_op::less_than>, "relational_op"},
    {nt::relational_op_noin, ">", op_rule<relational_op, 14, relational_op::greater_than>, "relational_op"},
    {nt::relational_op_noin, "<=", op_rule<relational_op, 14, relational_op::less_than_or_equal>,
     "relational_op"},
    {nt::relational_op_noin, ">=", op_rule<relational_op, 14, relational_op::greater_than_or_equal>,
     "relational_op"},
    {nt::relational_op_noin, "instanceof", op_rule<relational_op, 14, relational_op::instance_of>,
     "relational_op"},
    {nt::relational_op, "relational_op_noin", pass_first, "relational_op"},
    {nt::relational_op, "in", op_rule<relational_op, 14, relational_op::in>, "relational_op"},
    {nt::postfix_op, "++", op_rule<postfix_op, 19, postfix_op::increment>, "postfix expr"},
    {nt::postfix_op, "--", op_rule<postfix_op, 19, postfix_op::decrement>, "postfix expr"},
    {nt::prefix_op, "delete", op_rule<prefix_op, 18, prefix_op::delete_>, "unary expr"},
    {nt::prefix_op, "void", op_rule<prefix_op, 18, prefix_op::void_>, "unary expr"},
    {nt::prefix_op, "typeof", op_rule<prefix_op, 18, prefix_op::typeof_>, "unary expr"},
    {nt::prefix_op, "++", op_rule<prefix_op, 18, prefix_op::increment>, "unary expr"},
    {nt::prefix_op, "--", op_rule<prefix_op, 18, prefix_op::decrement>, "unary expr"},
    {nt::prefix_op, "+", op_rule<prefix_op, 18, prefix_op::plus>, "unary expr"},
    {nt::prefix_op, "-", op_rule<prefix_op, 18, prefix_op::minus>, "unary expr"},
    {nt::prefix_op, "~", op_rule<prefix_op, 18, prefix_op::bitwise_not>, "unary expr"},
    {nt::prefix_op, "!", op_rule<prefix_op, 18, prefix_op::logical_not>, "unary expr"},
    {nt::shift_op, "<<", op_rule<shift_op, 13, shift_op::left_shift>, "shift expr"},
    {nt::shift_op, ">>", op_rule<shift_op, 13, shift_op::signed_right_shift>, "shift expr"},
    {nt::shift_op, ">>>", op_rule<shift_op, 13, shift_op::unsigned_right_shift>, "shift expr"},
    {nt::expr, "assign_expr", expr_pass, "expr"},
    step(nt::expr, ", assign_expr", "expr"),
    {nt::assign_expr, "condition_expr", expr_pass, "assign expr"},
    {nt::assign_expr, "lefthand_expr assign_op assign_expr", assign_rule, "assign expr"},
    {nt::condition_expr, "logical_or_expr", expr_pass, "conditional expr"},
    {nt::condition_expr, "logical_or_expr ? assign_expr : assign_expr", conditional_rule, "conditional expr"},
    {nt::logical_or_expr, "logical_and_expr", expr_pass, "logical_or expr"},
    step(nt::logical_or_expr, "|| logical_and_expr", "logical_or expr"),
    {nt::logical_and_expr, "bitwise_or_expr", expr_pass, "logical_and expr"},
    step(nt::logical_and_expr, "&& bitwise_or_expr", "logical_and expr"),
    {nt::bitwise_or_expr, "bitwise_xor_expr", expr_pass, "bitwise_or expr"},
    step(nt::bitwise_or_expr, "| bitwise_xor_expr", "bitwise_or expr"),
    {nt::bitwise_xor_expr, "bitwise_and_expr", expr_pass, "bitwise_xor expr"},
    step(nt::bitwise_xor_expr, "^ bitwise_and_expr", "bitwise_xor expr"),
    {nt::bitwise_and_expr, "equality_expr", expr_pass, "bitwise_and expr"},
    step(nt::bitwise_and_expr, "& equality_expr", "bitwise_and expr"),
    {nt::equality_expr, "relational_expr", expr_pass, "equality expr"},
    step(nt::equality_expr, "equality_op relational_expr", "equality expr"),
    {nt::relational_expr, "shift_expr", expr_pass, "relational expr"},
    step(nt::relational_expr, "relational_op shift_expr", "relational expr"),
    {nt::shift_expr, "addi_expr", expr_pass, "shift expr"},
    step(nt::shift_expr, "shift_op addi_expr", "shift expr"),
    {nt::addi_expr, "multi_expr", expr_pass, "additive expr"},
    step(nt::addi_expr, "additive_op multi_expr", "additive expr"),
    {nt::multi_expr, "unary_expr", expr_pass, "multiplicative expr"},
    step(nt::multi_expr, "multiplicative_op unary_expr", "multiplicative expr"),
    {nt::unary_expr, "postfix_expr", expr_pass, "unary expr"},
    {nt::unary_expr, "prefix_op unary_expr", prefix_rule, "unary expr"},
    {nt::postfix_expr, "lefthand_expr", expr_pass, "postfix expr"},
    {nt::postfix_expr, "lefthand_expr postfix_op", postfix_rule, "postfix expr"},
    {nt::lefthand_expr, "new_expr", expr_pass, "left_hand_side expr"},
    {nt::lefthand_expr, "call_expr", expr_pass, "left_hand_side expr"},
    {nt::new_expr, "member_expr", expr_pass, "new expr"},
    {nt::new_expr, "new new_expr", new_without_args, "new expr"},
    {nt::call_expr, "member_expr arguments", call_rule, "call expr"},
    {nt::call_expr, "call_expr arguments", call_rule, "call expr"},
    {nt::call_expr, "call_expr [ expr ]", index_rule, "call expr"},
    {nt::call_expr, "call_expr . identifier_name", member_rule, "call expr"},
    {nt::arguments, "( )",
     [](items, std::string_view) -> value { return tagged<std::vector<ref<expr>>, 20>{}; }, "arguments"},
    {nt::arguments, "( argument_list )", pass_second, "arguments"},
    {nt::argument_list, "assign_expr",
     [](items it, std::string_view l) -> value { return tagged<std::vector<ref<expr>>, 20>{{ex(it[0], l)}}; },
     "arguments"},
    {nt::argument_list, "assign_expr , argument_list",
     [](items it, std::string_view l) -> value {
         auto rest = args_of(it[2], l);
         rest.insert(rest.begin(), ex(it[0], l));
         return tagged<std::vector<ref<expr>>, 20>{std::move(rest)};
     },
     "arguments"},
    {nt::member_expr, "primary_expr", expr_pass, "member expr"},
    {nt::member_expr, "func_expr", expr_pass, "member expr"},
    {nt::member_expr, "member_expr [ expr ]", index_rule, "member expr"},
    {nt::member_expr, "member_expr . identifier_name", member_rule, "member expr"},
    {nt::member_expr, "new member_expr arguments", new_with_args, "member expr"},
    {nt::primary_expr, "object_literal", expr_pass, "primary expr"},
    {nt::primary_expr, "primary_expr_other", expr_pass, "primary expr"},
    {nt::primary_expr_other, "this", expr_pass, "primary expr"},
    {nt::primary_expr_other, "id",
     [](items it, std::string_view l) { return ev(mk(id_expr{str(it[0], l)})); }, "primary expr"},
    {nt::primary_expr_other, "null", expr_pass, "primary expr"},
    {nt::primary_expr_other, "bool", expr_pass, "primary expr"},
    {nt::primary_expr_other, "number", expr_pass, "primary expr"},
    {nt::primary_expr_other, "string", expr_pass, "primary expr"},
    {nt::primary_expr_other, "regexp", expr_pass, "primary expr"},
    {nt::primary_expr_other, "( expr )", [](items it, std::string_view l) { return ev(ex(it[1], l)); },
     "primary expr"},
    {nt::primary_expr_other, "array_literal", expr_pass, "primary expr"},
    {nt::array_literal, "[ elision ]",
     [](items it, std::string_view l) {
         return ev(mk(array_expr{array_elision{take<tagged<int, 22>>(it[1], l).tagged_value}}));
     },
     "elision"},
    {nt::array_literal, "[ element_list ]",
     [](items it, std::string_view l) {
         auto list = std::move(take<tagged<std::vector<array_element>, 23>>(it[1], l).tagged_value);
         return ev(mk(array_expr{array_elements{std::move(list), std::nullopt}}));
     },
     "elision"},
    {nt::array_literal, "[ element_list , elision ]",
     [](items it, std::string_view l) {
         auto list = std::move(take<tagged<std::vector<array_element>, 23>>(it[1], l).tagged_value);
         int holes = take<tagged<int, 22>>(it[3], l).tagged_value;
         return ev(mk(array_expr{array_elements{std::move(list), holes}}));
     },
     "elision"},
    {nt::element_list, "elision assign_expr",
     [](items it, std::string_view l) -> value {
         int holes = take<tagged<int, 22>>(it[0], l).tagged_value;
         return tagged<std::vector<array_element>, 23>{{array_element{holes, ex(it[1], l)}}};
     },
     "elision"},
    {nt::element_list, "element_list , elision assign_expr",
     [](items it, std::string_view l) -> value {
         auto list = std::move(take<tagged<std::vector<array_element>, 23>>(it[0], l).tagged_value);
         list.push_back(array_element{take<tagged<int, 22>>(it[2], l).tagged_value, ex(it[3], l)});
         return tagged<std::vector<array_element>, 23>{std::move(list)};
     },
     "elision"},
    {nt::elision, "", [](items, std::string_view) -> value { return tagged<int, 22>{0}; }, "elision"},
    {nt::elision, "elision ,",
     [](items it, std::string_view l) -> value {
         return tagged<int, 22>{take<tagged<int, 22>>(it[0], l).tagged_value + 1};
     },
     "elision"},
    {nt::object_literal, "{ }", [](items, std::string_view) { return ev(mk(object_expr{})); }, "object literal"},
    {nt::object_literal, "{ prop_name_value_list }",
     [](items it, std::string_view l) {
         return ev(mk(object_expr{std::move(take<tagged<std::vector<std::pair<prop_name, ref<expr>>>, 25>>(
                                                it[1], l)
                                                .tagged_value)}));
     },
     "object literal"},
    {nt::object_literal, "{ prop_name_value_list , }",
     [](items it, std::string_view l) {
         return ev(mk(object_expr{std::move(take<tagged<std::vector<std::pair<prop_name, ref<expr>>>, 25>>(
                                                it[1], l)
                                                .tagged_value)}));
     },
     "object literal"},
    {nt::prop_name_value_list, "prop_name : assign_expr",
     [](items it, std::string_view l) -> value {
         auto name = take<tagged<prop_name, 24>>(it[0], l).tagged_value;
         return tagged<std::vector<std::pair<prop_name, ref<expr>>>, 25>{{{std::move(name), ex(it[2], l)}}};
     },
     "object literal"},
    {nt::prop_name_value_list, "prop_name_value_list , prop_name : assign_expr",
     [](items it, std::string_view l) -> value {
         auto list = std::move(take<tagged<std::vector<std::pair<prop_name, ref<expr>>>, 25>>(it[0], l).tagged_value);
         list.emplace_back(take<tagged<prop_name, 24>>(it[2], l).tagged_value, ex(it[4], l));
         return tagged<std::vector<std::pair<prop_name, ref<expr>>>, 25>{std::move(list)};
     },
     "object literal"},
    {nt::prop_name, "identifier_name",
     [](items it, std::string_view l) -> value { return tagged<prop_name, 24>{str(it[0], l)}; },
     "object literal"},
    {nt::prop_name, "number",
     [](items it, std::string_view l) -> value {
         auto e = ex(it[0], l);
         auto const* n = std::get_if<number_expr>(&e->expr_node);
         if (!n) {
             shape_error(l);
         }
         return tagged<prop_name, 24>{n->number_value};
     },
     "object literal"},
    {nt::prop_name, "string",
     [](items it, std::string_view l) -> value {
         auto e = ex(it[0], l);
         auto const* s = std::get_if<string_expr>(&e->expr_node);
         if (!s) {
             shape_error(l);
         }
         return tagged<prop_name, 24>{s->string_value};
     },
     "object literal"},
    {nt::func_expr, "function ident_opt ( param_list_opt ) { func_body }",
     [](items it, std::string_view l) {
         auto f = share(func_expr{ident_of(it[1], l), params_of(it[3], l), in_order(it[6], l)});
         return ev(mk(func_expr_expr{std::move(f)}));
     },
     "function body"},
    {nt::func_decl, "function id ( param_list_opt ) { func_body }",
     [](items it, std::string_view l) -> value {
         return tagged<ref<func_decl>, 29>{share(func_decl{str(it[1], l), params_of(it[3], l), in_order(it[6], l)})};
     },
     "function body"},
    {nt::param_list_opt, "param_list", pass_first, "param_list_opt"},
    {nt::param_list_opt, "",
     [](items, std::string_view) -> value { return tagged<std::vector<std::string>, 26>{}; }, "param_list_opt"},
    {nt::param_list, "id",
     [](items it, std::string_view l) -> value { return tagged<std::vector<std::string>, 26>{{str(it[0], l)}}; },
     "param_list_opt"},
    {nt::param_list, "id , param_list",
     [](items it, std::string_view l) -> value {
         auto rest = params_of(it[2], l);
         rest.insert(rest.begin(), str(it[0], l));
         return tagged<std::vector<std::string>, 26>{std::move(rest)};
     },
     "param_list_opt"},
    {nt::func_body, "source_elements", pass_first, "function body"},
    {nt::source_elements, "", [](items, std::string_view) -> value { return source_elements_value{}; }, s_els},
    {nt::source_elements, "source_element",
     [](items it, std::string_view l) -> value {
         return source_elements_value{{std::move(take<tagged<source_element, 28>>(it[0], l).tagged_value)}};
     },
     s_els},
    {nt::source_elements, "source_element source_elements",
     [](items it, std::string_view l) -> value {
         auto rest = std::move(take<source_elements_value>(it[1], l).tagged_value);
         rest.push_back(std::move(take<tagged<source_element, 28>>(it[0], l).tagged_value));
         return source_elements_value{std::move(rest)};
     },
     s_els},
    {nt::source_element, "stmt",
     [](items it, std::string_view l) -> value {
         return tagged<source_element, 28>{source_element{stmt_of(it[0], l)}};
     },
     s_el},
    {nt::source_element, "func_decl",
     [](items it, std::string_view l) -> value {
         return tagged<source_element, 28>{source_element{take<tagged<ref<func_decl>, 29>>(it[0], l).tagged_value}};
     },
     s_el},
    // Expressions in which `in` cannot appear at the top level (the head of a `for` statement).
    {nt::expr_noin, "assign_expr_noin", expr_pass, "expr"},
    step(nt::expr_noin, ", assign_expr_noin", "expr"),
    {nt::assign_expr_noin, "condition_expr_noin", expr_pass, "assign expr"},
    {nt::assign_expr_noin, "lefthand_expr assign_op assign_expr_noin", assign_rule, "assign expr"},
    {nt::condition_expr_noin, "logical_or_expr_noin", expr_pass, "conditional expr"},
    {nt::condition_expr_noin, "logical_or_expr_noin ? assign_expr_noin : assign_expr_noin", conditional_rule,
     "conditional expr"},
    {nt::logical_or_expr_noin, "logical_and_expr_noin", expr_pass, "or expr"},
    step(nt::logical_or_expr_noin, "|| logical_and_expr_noin", "or expr"),
    {nt::logical_and_expr_noin, "bitwise_or_expr_noin", expr_pass, "and expr"},
    step(nt::logical_and_expr_noin, "&& bitwise_or_expr_noin", "and expr"),
    {nt::bitwise_or_expr_noin, "bitwise_xor_expr_noin", expr_pass, "bitwise_or expr"},
    step(nt::bitwise_or_expr_noin, "| bitwise_xor_expr_noin", "bitwise_or expr"),
    {nt::bitwise_xor_expr_noin, "bitwise_and_expr_noin", expr_pass, "bitwise_xor expr"},
    step(nt::bitwise_xor_expr_noin, "^ bitwise_and_expr_noin", "bitwise_xor expr"),
    {nt::bitwise_and_expr_noin, "equality_expr_noin", expr_pass, "bitwise_and expr"},
    step(nt::bitwise_and_expr_noin, "& equality_expr_noin", "bitwise_and expr"),
    {nt::equality_expr_noin, "relational_expr_noin", expr_pass, "equality expr"},
    step(nt::equality_expr_noin, "equality_op relational_expr_noin", "equality expr"),
    {nt::relational_expr_noin, "shift_expr", expr_pass, "relational expr"},
    step(nt::relational_expr_noin, "relational_op_noin shift_expr", "relational expr"),
    // Expressions that may begin a statement: never with `{` or `function`. Only the leftmost operand
    // carries the restriction.
    {nt::expr_lh, "assign_expr_lh", expr_pass, "expr"},
    step(nt::expr_lh, ", assign_expr", "expr"),
    {nt::assign_expr_lh, "condition_expr_lh", expr_pass, "assign expr"},
    {nt::assign_expr_lh, "lefthand_expr_lh assign_op assign_expr", assign_rule, "assign expr"},
    {nt::condition_expr_lh, "logical_or_expr_lh", expr_pass, "conditional expr"},
    {nt::condition_expr_lh, "logical_or_expr_lh ? assign_expr : assign_expr", conditional_rule,
     "conditional expr"},
    {nt::logical_or_expr_lh, "logical_and_expr_lh", expr_pass, "logical_or expr"},
    step(nt::logical_or_expr_lh, "|| logical_and_expr", "logical_or expr"),
    {nt::logical_and_expr_lh, "bitwise_or_expr_lh", expr_pass, "logical_and expr"},
    step(nt::logical_and_expr_lh, "&& bitwise_or_expr", "logical_and expr"),
    {nt::bitwise_or_expr_lh, "bitwise_xor_expr_lh", expr_pass, "bitwise_or expr"},
    step(nt::bitwise_or_expr_lh, "| bitwise_xor_expr", "bitwise_or expr"),
    {nt::bitwise_xor_expr_lh, "bitwise_and_expr_lh", expr_pass, "bitwise_xor expr"},
    step(nt::bitwise_xor_expr_lh, "^ bitwise_and_expr", "bitwise_xor expr"),
    {nt::bitwise_and_expr_lh, "equality_expr_lh", expr_pass, "bitwise_and expr"},
    step(nt::bitwise_and_expr_lh, "& equality_expr", "bitwise_and expr"),
    {nt::equality_expr_lh, "relational_expr_lh", expr_pass, "equality expr"},
    step(nt::equality_expr_lh, "equality_op relational_expr", "equality expr"),
    {nt::relational_expr_lh, "shift_expr_lh", expr_pass, "relational expr"},
    step(nt::relational_expr_lh, "relational_op shift_expr", "relational expr"),
    {nt::shift_expr_lh, "addi_expr_lh", expr_pass, "shift expr"},
    step(nt::shift_expr_lh, "shift_op addi_expr", "shift expr"),
    {nt::addi_expr_lh, "multi_expr_lh", expr_pass, "additive expr"},
    step(nt::addi_expr_lh, "additive_op multi_expr", "additive expr"),
    {nt::multi_expr_lh, "unary_expr_lh", expr_pass, "multiplicative expr"},
    step(nt::multi_expr_lh, "multiplicative_op unary_expr", "multiplicative expr"),
    {nt::unary_expr_lh, "postfix_expr_lh", expr_pass, "unary expr"},
    {nt::unary_expr_lh, "prefix_op unary_expr", prefix_rule, "unary expr"},
    {nt::postfix_expr_lh, "lefthand_expr_lh", expr_pass, "postfix expr"},
    {nt::postfix_expr_lh, "lefthand_expr_lh postfix_op", postfix_rule, "postfix expr"},
    {nt::lefthand_expr_lh, "new_expr_lh", expr_pass, "left_hand_side expr"},
    {nt::lefthand_expr_lh, "call_expr_lh", expr_pass, "left_hand_side expr"},
    {nt::new_expr_lh, "member_expr_lh", expr_pass, "new expr"},
    {nt::new_expr_lh, "new new_expr", new_without_args, "new expr"},
    {nt::call_expr_lh, "member_expr_lh arguments", call_rule, "call expr"},
    {nt::call_expr_lh, "call_expr_lh arguments", call_rule, "call expr"},
    {nt::call_expr_lh, "call_expr_lh [ expr ]", index_rule, "call expr"},
    {nt::call_expr_lh, "call_expr_lh . identifier_name", member_rule, "call expr"},
    {nt::member_expr_lh, "primary_expr_lh", expr_pass, "member expr"},
    {nt::member_expr_lh, "member_expr_lh [ expr ]", index_rule, "member expr"},
    {nt::member_expr_lh, "member_expr_lh . identifier_name", member_rule, "member expr"},
    {nt::member_expr_lh, "new member_expr arguments", new_with_args, "member expr"},
    {nt::primary_expr_lh, "primary_expr_other", expr_pass, "primary expr"},
};

/// Every word may follow `.` and name a property in a literal.
constexpr std::array<std::string_view, 35> identifier_words = {
    "id",     "null",    "bool",     "break",  "case",   "catch",  "continue",   "default", "delete",
    "do",     "else",    "'finally", "for",    "function", "if",   "in",         "instanceof", "new",
    "return", "switch",  "this",     "throw",  "try",    "typeof", "var",        "void",    "while",
    "with",   "class",   "const",    "debugger", "enum", "export", "extends",    "super",
};

symbol symbol_of_word(std::string_view word) {
    if (word.starts_with('\'')) {
        return std::string(word.substr(1));
    }
    if (auto n = nonterminal_of_name(word)) {
        return *n;
    }
    return std::string(word);
}

std::vector<symbol> symbols_of(std::string_view text) {
    std::vector<symbol> out;
    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t j = text.find(' ', i);
        if (j == std::string_view::npos) {
            j = text.size();
        }
        if (j > i) {
            out.push_back(symbol_of_word(text.substr(i, j - i)));
        }
        i = j + 1;
    }
    return out;
}

struct built_grammar {
    grammar productions;
    std::vector<semantic_rule> rules;
};

built_grammar build() {
    built_grammar g;
    for (auto const& p : production_texts) {
        g.productions.push_back(production{p.lhs, symbols_of(p.rhs)});
        g.rules.push_back(semantic_rule{p.fn, p.label});
    }
    for (auto word : identifier_words) {
        g.productions.push_back(production{nt::identifier_name, {symbol_of_word(word)}});
        g.rules.push_back(semantic_rule{identifier_name_rule, "primary expr"});
    }
    return g;
}

built_grammar const& the_grammar() {
    static built_grammar const g = build();
    return g;
}

} // namespace

std::string_view nonterminal_name(nonterminal n) { return nonterminal_names[static_cast<std::size_t>(n)]; }

std::optional<nonterminal> nonterminal_of_name(std::string_view name) {
    for (std::size_t i = 0; i < nonterminal_names.size(); ++i) {
        if (nonterminal_names[i] == name) {
            return static_cast<nonterminal>(i);
        }
    }
    return std::nullopt;
}

grammar const& script_grammar() { return the_grammar().productions; }

std::vector<semantic_rule> const& grammar_rules() { return the_grammar().rules; }

bool carries_expr(nonterminal n) {
    switch (n) {
    case nt::expr:
    case nt::assign_expr:
    case nt::condition_expr:
    case nt::lefthand_expr:
    case nt::logical_or_expr:
    case nt::logical_and_expr:
    case nt::bitwise_or_expr:
    case nt::bitwise_xor_expr:
    case nt::bitwise_and_expr:
    case nt::equality_expr:
    case nt::relational_expr:
    case nt::expr_noin:
    case nt::assign_expr_noin:
    case nt::condition_expr_noin:
    case nt::logical_or_expr_noin:
    case nt::logical_and_expr_noin:
    case nt::bitwise_or_expr_noin:
    case nt::bitwise_xor_expr_noin:
    case nt::bitwise_and_expr_noin:
    case nt::equality_expr_noin:
    case nt::relational_expr_noin:
    case nt::expr_lh:
    case nt::assign_expr_lh:
    case nt::condition_expr_lh:
    case nt::lefthand_expr_lh:
    case nt::logical_or_expr_lh:
    case nt::logical_and_expr_lh:
    case nt::bitwise_or_expr_lh:
    case nt::bitwise_xor_expr_lh:
    case nt::bitwise_and_expr_lh:
    case nt::equality_expr_lh:
    case nt::relational_expr_lh:
    case nt::shift_expr_lh:
    case nt::addi_expr_lh:
    case nt::multi_expr_lh:
    case nt::unary_expr_lh:
    case nt::postfix_expr_lh:
    case nt::new_expr_lh:
    case nt::call_expr_lh:
    case nt::member_expr_lh:
    case nt::primary_expr_lh:
    case nt::shift_expr:
    case nt::addi_expr:
    case nt::multi_expr:
    case nt::unary_expr:
    case nt::postfix_expr:
    case nt::new_expr:
    case nt::call_expr:
    case nt::member_expr:
    case nt::primary_expr:
    case nt::primary_expr_other:
    case nt::func_expr:
    case nt::array_literal:
    case nt::object_literal:
        return true;
    case nt::start_symbol:
    case nt::program:
    case nt::block:
    case nt::stmt:
    case nt::var_decls:
    case nt::var_decl:
    case nt::var_decls_noin:
    case nt::var_decl_noin:
    case nt::ident_opt:
    case nt::expr_opt:
    case nt::expr_noin_opt:
    case nt::case_block:
    case nt::case_clauses:
    case nt::case_clause:
    case nt::default_clause:
    case nt::ccatch:
    case nt::finally:
    case nt::assign_op:
    case nt::shift_op:
    case nt::relational_op:
    case nt::relational_op_noin:
    case nt::additive_op:
    case nt::multiplicative_op:
    case nt::equality_op:
    case nt::prefix_op:
    case nt::postfix_op:
    case nt::param_list_opt:
    case nt::param_list:
    case nt::func_body:
    case nt::source_elements:
    case nt::source_element:
    case nt::func_decl:
    case nt::arguments:
    case nt::argument_list:
    case nt::elision_opt:
    case nt::elision:
    case nt::element_list:
    case nt::prop_name_value_list:
    case nt::prop_name:
    case nt::identifier_name:
        return false;
    }
    return false;
}

} // namespace vellum::js
