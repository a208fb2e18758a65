// The script compiler: checks a syntax tree for the errors the grammar leaves open, analyses each function
// body, and turns it into a flat array of register instructions that the run loop (run.hpp) executes.
#pragma once

#include "js/syntax.hpp"
#include "js/value.hpp"
#include "util/ref.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::js::eval {

/// What kind of statement encloses a `break` or `continue`.
enum class statement_type { iteration, switch_statement, other };

/// The labels that name one statement (`a: b: while (...)` gives the loop both).
using label_set = std::vector<std::string>;

// The early errors: jumps and assignments the grammar accepts but the language does not.
struct continue_error {
    bool operator==(continue_error const&) const = default;
};
struct continue_label_error {
    bool operator==(continue_label_error const&) const = default;
};
struct break_error {
    bool operator==(break_error const&) const = default;
};
struct break_label_error {
    bool operator==(break_label_error const&) const = default;
};
struct label_duplication_error {
    bool operator==(label_duplication_error const&) const = default;
};
struct return_error {
    bool operator==(return_error const&) const = default;
};
struct left_hand_side_error {
    bool operator==(left_hand_side_error const&) const = default;
};

using syntax_error = std::variant<continue_error,
                                  continue_label_error,
                                  break_error,
                                  break_label_error,
                                  label_duplication_error,
                                  return_error,
                                  left_hand_side_error>;

/// The name of an early error, which is also the message of the `SyntaxError` thrown for it.
std::string syntax_error_name(syntax_error const& e);

/// An early error and the line where it was found, when the tree knows it.
struct syntax_failure {
    std::optional<int> failure_line;
    syntax_error failure_error;
    bool operator==(syntax_failure const&) const = default;
};

/// Checks statements for the early errors: `in_function` allows `return`; `labels` are the labels
/// already pending on the statements. Function bodies inside are checked too, each on its own.
[[nodiscard]] std::optional<syntax_failure> check_syntax(bool in_function, label_set const& labels,
                                                         source_elements const& statements);

} // namespace vellum::js::eval

namespace vellum::js::eval::vm {

/// What one walk over a function body (not entering nested functions) finds.
struct func_flags {
    bool has_eval = false;
    bool has_arguments = false;
    bool has_func_expr = false;
    bool has_with = false;
    bool has_catch = false;
    bool operator==(func_flags const&) const = default;
};

/// The analysis of a body: its flags, its function declarations (in any nested block) in source order,
/// and its `var` names in source order (repeats kept).
struct analysis {
    func_flags analysis_flags;
    std::vector<ref<vellum::js::func_decl>> analysis_func_decls;
    std::vector<std::string> analysis_var_names;
    /// Whether a `try` with `finally` occurs: a `return` then needs a register the finally block keeps.
    bool analysis_has_finally = false;
};

[[nodiscard]] analysis analyse(source_elements const& statements);

struct func_ops;

// How a name of a frame's variables is bound when the frame starts.

/// A parameter, by position in the argument list.
struct param {
    int position = 0;
    bool operator==(param const&) const = default;
};
/// A `var` name: `undefined` at the start.
struct variable {
    bool operator==(variable const&) const = default;
};
/// The `arguments` object.
struct arguments_object {
    bool operator==(arguments_object const&) const = default;
};
/// A nested function declaration, compiled, and its syntax as a function expression (what a function
/// object keeps).
struct func_decl {
    ref<vellum::js::func_decl> decl;
    ref<vellum::js::func_expr> decl_syntax;
    ref<func_ops> decl_ops;
};

using var_def = std::variant<param, variable, arguments_object, func_decl>;

/// An instruction operand: a register (0 and up) or an entry of the constant pool (-1 and down: entry
/// `-operand - 1`).
struct js_operand {
    std::int32_t operand = 0;
    bool is_const() const { return operand < 0; }
    bool operator==(js_operand const&) const = default;
};

/// The instruction set. Fields of `js_op` per instruction (d: destination register; o: operand; r, a, i:
/// entries of the reference, address and iterator arrays; names, keys, constants, argument lists and
/// functions are indices into the pools of `func_ops`):
///
///   js_op_abort                                  js_op_set_completion        a=o
///   js_op_copy             a=d b=source reg      js_op_const                 a=d b=constant
///   js_op_new_object       a=d                   js_op_new_array             a=d
///   js_op_this             a=d                   js_op_func_expr             a=d b=function
///   js_op_get_variable     a=d b=name c=index    js_op_set_variable          a=name b=index c=o
///   js_op_get_parent_variable a=d b=depth c=name d=index
///   js_op_set_parent_variable a=depth b=name c=index d=o
///   js_op_get_global       a=d b=key c=cache     js_op_put_global            a=key b=o c=cache
///   js_op_lookup           a=r b=name            js_op_lookup_then_get_value a=d b=name
///   js_op_get_value        a=d b=r               js_op_put_value             a=r b=o
///   js_op_to_number        a=d b=source reg      js_op_to_object             a=d b=o
///   js_op_get_property     a=d b=object c=key o  js_op_get_property_id       a=d b=object c=key
///   js_op_put              a=object b=key o c=o  js_op_put_id                a=object b=key c=o flag=define
///   js_op_call_ref         a=d b=r c=function d=arguments flag=eval candidate
///   js_op_call_value       a=d b=function d=arguments flag=eval candidate
///   js_op_call_method      a=d b=this c=function d=arguments flag=eval candidate
///   js_op_new              a=d b=function d=arguments
///   js_op_typeof_ref       a=d b=r               js_op_typeof_value          a=d b=o
///   js_op_delete           a=d b=r               js_op_delete_obj_prop       a=d b=object c=key o
///   js_op_delete_obj_prop_id a=d b=object c=key  js_op_delete_global         a=d b=key
///   js_op_unary            a=d b=o flag=unary_op js_op_binary                a=d b=left o c=right o flag=binary_kind
///   js_op_instance_of      a=d b=o c=o           js_op_in                    a=d b=o c=o
///   js_op_jump_if          a=reg b=offset flag=boolean
///   js_op_jump             a=offset              js_op_jump_indirect         a=a
///   js_op_set_address      a=a b=offset          js_op_set_address_relative  a=a b=delta
///   js_op_enum_prop_names  a=i b=o               js_op_iter_has_next         a=d b=i
///   js_op_iter_get_next    a=d b=i               js_op_return                a=o
///   js_op_throw            a=o                   js_op_push_try              a=exception reg b=handler
///   js_op_push_catch       a=name b=reg          js_op_push_with             a=o
///   js_op_pop_try, js_op_pop_catch, js_op_pop_with
enum class op_code : std::uint8_t {
    js_op_abort,
    js_op_set_completion,
    js_op_copy,
    js_op_const,
    js_op_new_object,
    js_op_new_array,
    js_op_this,
    js_op_func_expr,
    js_op_get_variable,
    js_op_set_variable,
    js_op_get_parent_variable,
    js_op_set_parent_variable,
    js_op_get_global,
    js_op_put_global,
    js_op_lookup,
    js_op_lookup_then_get_value,
    js_op_get_value,
    js_op_put_value,
    js_op_to_number,
    js_op_to_object,
    js_op_get_property,
    js_op_get_property_id,
    js_op_put,
    js_op_put_id,
    js_op_call_ref,
    js_op_call_value,
    js_op_call_method,
    js_op_new,
    js_op_typeof_ref,
    js_op_typeof_value,
    js_op_delete,
    js_op_delete_obj_prop,
    js_op_delete_obj_prop_id,
    js_op_delete_global,
    js_op_unary,
    js_op_binary,
    js_op_instance_of,
    js_op_in,
    js_op_jump_if,
    js_op_jump,
    js_op_jump_indirect,
    js_op_set_address,
    js_op_set_address_relative,
    js_op_enum_prop_names,
    js_op_iter_has_next,
    js_op_iter_get_next,
    js_op_return,
    js_op_throw,
    js_op_push_try,
    js_op_push_catch,
    js_op_push_with,
    js_op_pop_try,
    js_op_pop_catch,
    js_op_pop_with,
};

/// The operators of `js_op_binary`: the bitwise, additive, multiplicative, comparison and shift families.
enum class binary_kind : std::uint8_t {
    bitwise_and,
    bitwise_or,
    bitwise_xor,
    plus,
    minus,
    multiply,
    divide,
    remainder,
    equal,
    not_equal,
    strict_equal,
    strict_not_equal,
    less_than,
    greater_than,
    less_than_or_equal,
    greater_than_or_equal,
    left_shift,
    signed_right_shift,
    unsigned_right_shift,
};

/// One instruction: its code, a small flag (a sub-operator or a boolean), and up to four integer fields
/// whose meaning the code gives (see `op_code`). Twenty bytes, so that a loop's instructions share a few
/// cache lines.
struct js_op {
    op_code code = op_code::js_op_abort;
    std::uint8_t op_flag = 0;
    std::int32_t op_a = 0;
    std::int32_t op_b = 0;
    std::int32_t op_c = 0;
    std::int32_t op_d = 0;
    bool operator==(js_op const&) const = default;
};

/// An instruction range and the source line it comes from.
struct line_range {
    int line_range_offset_start = 0;
    int line_range_offset_end = 0;
    int line_range_number = 0;
    bool operator==(line_range const&) const = default;
};

/// A function expression met in a body: its syntax and its compiled body.
struct func_expr_def {
    ref<vellum::js::func_expr> func_syntax;
    ref<func_ops> func_compiled;
};

/// The compiled instructions of one function body, program or eval text. Immutable once made, and
/// shared by every function object made from the same source.
struct func_ops {
    std::vector<std::pair<std::string, var_def>> var_defs;
    /// The variables are the first registers of the frame; no scope object is made for a call.
    bool vars_in_regs = false;
    std::vector<js_op> ops;
    int num_vars = 0;
    int num_refs = 0;
    int num_addrs = 0;
    int num_iters = 0;
    std::vector<line_range> line_ranges;
    // The pools the instructions index.
    std::vector<js_value> op_consts;
    std::vector<std::string> op_names;
    std::vector<js_prop_string> op_keys;
    std::vector<std::vector<js_operand>> op_arg_lists;
    std::vector<func_expr_def> op_funcs;
    /// Number of global property accesses, each with a cache entry in the frame.
    int num_global_sites = 0;
};

/// The line of an instruction: the innermost range that holds it.
[[nodiscard]] std::optional<int> line_of(func_ops const& f, int offset);

/// Whether the global object can be reached by name without walking a scope chain.
enum class global_scope { global_scope_hidden, global_scope_available };

using var_map = std::map<std::string, int>;

/// The compile-time environment of a body.
struct info {
    var_map info_var_map;
    /// The maps of the enclosing functions, nearest first; each stands for one activation scope.
    std::vector<var_map> info_parent_var_maps;
    bool info_vars_in_regs = false;
    global_scope info_global_scope = global_scope::global_scope_hidden;
    bool info_need_completion = false;
};

/// Compiles a function body. `parent_maps` are the variable maps of the enclosing functions, nearest
/// first. Nested functions are compiled at once.
[[nodiscard]] ref<func_ops> compile_function(std::vector<var_map> const& parent_maps,
                                             global_scope global,
                                             std::vector<std::string> const& params,
                                             source_elements const& body);

/// Compiles a program or an eval text: its `var_defs` are the declarations to make before it runs
/// (function declarations and `var` names), and the instructions keep the completion value.
[[nodiscard]] ref<func_ops> compile_program(source_elements const& statements, global_scope global);

} // namespace vellum::js::eval::vm
