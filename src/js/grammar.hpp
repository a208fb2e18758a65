// The script grammar: its nonterminals, its 272 productions in their fixed order, and the semantic rule
// of each production, which builds a piece of the syntax tree from the popped parse-stack items.
#pragma once

#include "js/syntax.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vellum::js {

/// The nonterminals, in the fixed order that the generated tables and state numbering depend on.
enum class nonterminal : std::uint8_t {
    start_symbol,
    program,
    block,
    stmt,
    var_decls,
    var_decl,
    var_decls_noin,
    var_decl_noin,
    ident_opt,
    expr_opt,
    expr_noin_opt,
    case_block,
    case_clauses,
    case_clause,
    default_clause,
    ccatch,
    finally,
    expr,
    assign_expr,
    assign_op,
    shift_op,
    relational_op,
    relational_op_noin,
    additive_op,
    multiplicative_op,
    equality_op,
    prefix_op,
    postfix_op,
    condition_expr,
    lefthand_expr,
    logical_or_expr,
    logical_and_expr,
    bitwise_or_expr,
    bitwise_xor_expr,
    bitwise_and_expr,
    equality_expr,
    relational_expr,
    expr_noin,
    assign_expr_noin,
    condition_expr_noin,
    logical_or_expr_noin,
    logical_and_expr_noin,
    bitwise_or_expr_noin,
    bitwise_xor_expr_noin,
    bitwise_and_expr_noin,
    equality_expr_noin,
    relational_expr_noin,
    expr_lh,
    assign_expr_lh,
    condition_expr_lh,
    lefthand_expr_lh,
    logical_or_expr_lh,
    logical_and_expr_lh,
    bitwise_or_expr_lh,
    bitwise_xor_expr_lh,
    bitwise_and_expr_lh,
    equality_expr_lh,
    relational_expr_lh,
    shift_expr_lh,
    addi_expr_lh,
    multi_expr_lh,
    unary_expr_lh,
    postfix_expr_lh,
    new_expr_lh,
    call_expr_lh,
    member_expr_lh,
    primary_expr_lh,
    shift_expr,
    addi_expr,
    multi_expr,
    unary_expr,
    postfix_expr,
    new_expr,
    call_expr,
    member_expr,
    primary_expr,
    primary_expr_other,
    func_expr,
    param_list_opt,
    param_list,
    func_body,
    source_elements,
    source_element,
    func_decl,
    arguments,
    argument_list,
    array_literal,
    object_literal,
    elision_opt,
    elision,
    element_list,
    prop_name_value_list,
    prop_name,
    identifier_name,
};

inline constexpr int nonterminal_count = 94;

/// The nonterminal's name as the grammar and the table text write it.
std::string_view nonterminal_name(nonterminal n);

/// The nonterminal of that name, if there is one.
std::optional<nonterminal> nonterminal_of_name(std::string_view name);

/// A grammar symbol: a terminal by its name, or a nonterminal. Terminals order before nonterminals,
/// terminals among themselves by name, nonterminals by their enumeration order.
using symbol = std::variant<std::string, nonterminal>;

/// One production, `production_lhs := production_rhs`.
struct production {
    nonterminal production_lhs = nonterminal::start_symbol;
    std::vector<symbol> production_rhs;
    bool operator==(production const&) const = default;
};

using grammar = std::vector<production>;

// ---- Semantic values -----------------------------------------------------------------------------------

/// A semantic value of one kind, told apart from the other kinds of the same C++ type by its tag.
template <class T, int Tag>
struct tagged {
    T tagged_value;
};

/// A compound assignment operator with the line it stands on.
struct assign_op_value {
    int assign_op_line = 0;
    assign_op assign_op_kind;
};

/// The value a parse-stack item carries: one alternative per kind of syntax fragment. Lists that the
/// grammar builds by right recursion (`source_elements`) are held last element first while parsing, so that
/// each step appends in constant time; the rule that closes the list puts it in order.
using value = std::variant<tagged<ref<statement>, 0>,                                 // stmt
                           tagged<std::vector<var_decl>, 1>,                          // var_decls
                           tagged<var_decl, 2>,                                       // var_decl
                           tagged<std::optional<std::string>, 3>,                     // ident_opt
                           tagged<std::optional<ref<expr>>, 4>,                       // expr_opt
                           tagged<ref<case_block>, 5>,                                // case_block
                           tagged<std::vector<case_clause>, 6>,                       // case_clauses
                           tagged<case_clause, 7>,                                    // case_clause
                           tagged<source_elements, 8>,                                // default_clause
                           tagged<catch_clause, 9>,                                   // catch
                           tagged<source_elements, 10>,                               // finally
                           tagged<ref<expr>, 11>,                                     // expr
                           assign_op_value,                                           // assign_op
                           tagged<shift_op, 13>,                                      // shift_op
                           tagged<relational_op, 14>,                                 // relational_op
                           tagged<additive_op, 15>,                                   // additive_op
                           tagged<multiplicative_op, 16>,                             // multiplicative_op
                           tagged<equality_op, 17>,                                   // equality_op
                           tagged<prefix_op, 18>,                                     // prefix_op
                           tagged<postfix_op, 19>,                                    // postfix_op
                           tagged<std::vector<ref<expr>>, 20>,                        // args
                           tagged<std::string, 21>,                                   // string
                           tagged<int, 22>,                                           // elision
                           tagged<std::vector<array_element>, 23>,                    // elements
                           tagged<prop_name, 24>,                                     // prop_name
                           tagged<std::vector<std::pair<prop_name, ref<expr>>>, 25>,  // prop_name_value_list
                           tagged<std::vector<std::string>, 26>,                      // params
                           tagged<source_elements, 27>,                               // source_elements (reversed)
                           tagged<source_element, 28>,                                // source_element
                           tagged<ref<func_decl>, 29>>;                               // func_decl

using stmt_value = tagged<ref<statement>, 0>;
using expr_value = tagged<ref<expr>, 11>;
using string_value = tagged<std::string, 21>;
using source_elements_value = tagged<source_elements, 27>;

/// An item of the parse stack.
struct stack_item {
    int line_number = 0;
    symbol item_symbol;
    value item_value;
    int state = 0;
};

/// A production's semantic rule: from the popped items, oldest first (which it may move from), to the
/// value of the new item. A shape it does not expect stops the run with "parsing error: " and the label.
struct semantic_rule {
    value (*rule_fn)(std::span<stack_item> items, std::string_view label) = nullptr;
    std::string_view rule_label;
};

/// The productions in their fixed order (272 of them).
grammar const& script_grammar();

/// The semantic rule of each production, in the same order.
std::vector<semantic_rule> const& grammar_rules();

/// Whether the values of this nonterminal are expressions.
bool carries_expr(nonterminal n);

} // namespace vellum::js
