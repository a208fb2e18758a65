#include "js/vm.hpp"

#include "js/convert.hpp"
#include "js/object.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <functional>

namespace vellum::js::eval::vm {

namespace {

// ---- Where an expression's value goes, and what an assignment writes to ------------------------------

enum class dest_kind { any_var, fresh_var, specific_var };

struct expr_dest {
    dest_kind dest = dest_kind::any_var;
    int dest_reg = -1;
};

expr_dest any_var() { return {}; }
expr_dest fresh_var() { return {.dest = dest_kind::fresh_var}; }
expr_dest specific_var(int r) { return {.dest = dest_kind::specific_var, .dest_reg = r}; }

struct obj_value {
    int object = 0;
    js_operand key;
};
struct obj_id {
    int object = 0;
    int key = 0;
};
struct variable_lhs {
    int name = 0;
    int index = 0;
};
struct parent_variable {
    int depth = 0;
    int name = 0;
    int index = 0;
};
struct global {
    int key = 0;
};
using indirect_lhs = std::variant<obj_value, obj_id, variable_lhs, parent_variable, global>;

struct ref_lhs {
    int ref = 0;
};
struct var_lhs {
    int reg = 0;
};
using expr_lhs = std::variant<indirect_lhs, ref_lhs, var_lhs>;

/// How an identifier is reached, in the order tried: a register, the frame's variables, an enclosing
/// function's variables, the global object, or the scope chain at run time.
struct in_register {
    int reg = 0;
};
struct in_variables {
    int index = 0;
};
struct in_parent {
    int depth = 0;
    int index = 0;
};
struct in_global {};
struct in_chain {};
using binding = std::variant<in_register, in_variables, in_parent, in_global, in_chain>;

// ---- Jumps that leave statements ----------------------------------------------------------------------

/// What must run when a jump leaves a statement: pop a scope entry, or run a finally block.
enum class cleanup_kind { pop_try, pop_catch, pop_with, call_finally };

struct cleanup {
    cleanup_kind kind = cleanup_kind::pop_try;
    /// For `call_finally`: the finally block's address entry and its list of calls to patch.
    int address = 0;
    int finally_id = 0;
};

enum class target_kind { loop, switch_statement, labelled };

/// A statement that `break` (and for loops `continue`) may leave or repeat: its labels, the jumps to
/// patch once its ends are known, and how many cleanups were open outside it.
struct target_info {
    target_kind kind = target_kind::labelled;
    label_set labels;
    std::vector<int> break_jumps;
    std::vector<int> continue_jumps;
    std::size_t cleanup_depth = 0;
};

/// Whether evaluating an expression can change no register: literals, names, `this` and function
/// expressions. A value read before such an expression needs no copy.
bool is_pure(expr const& e) {
    auto const& n = e.expr_node;
    return std::holds_alternative<number_expr>(n) || std::holds_alternative<string_expr>(n) ||
           std::holds_alternative<bool_expr>(n) || std::holds_alternative<null_expr>(n) ||
           std::holds_alternative<this_expr>(n) || std::holds_alternative<id_expr>(n) ||
           std::holds_alternative<regexp_ob>(n) || std::holds_alternative<func_expr_expr>(n);
}

js_prop_string key_of_name(prop_name const& n) {
    return std::visit(overloaded{
                          [](std::string const& s) { return key_of_utf8(s); },
                          [](number const& x) { return key_of_string(number_to_js_string(x)); },
                          [](jsstring::js_string const& s) { return key_of_string(s); },
                      },
                      n);
}

binary_kind kind_of(binary_op const& op) {
    return std::visit(overloaded{
                          [](comma_op const&) -> binary_kind { throw internal_error("kind_of: comma operator"); },
                          [](bitwise_op o) {
                              switch (o) {
                              case bitwise_op::bitwise_and:
                                  return binary_kind::bitwise_and;
                              case bitwise_op::bitwise_or:
                                  return binary_kind::bitwise_or;
                              case bitwise_op::bitwise_xor:
                                  return binary_kind::bitwise_xor;
                              }
                              throw internal_error("kind_of: bitwise operator");
                          },
                          [](additive_op o) { return o == additive_op::plus ? binary_kind::plus : binary_kind::minus; },
                          [](multiplicative_op o) {
                              switch (o) {
                              case multiplicative_op::multiply:
                                  return binary_kind::multiply;
                              case multiplicative_op::divide:
                                  return binary_kind::divide;
                              case multiplicative_op::remainder:
                                  return binary_kind::remainder;
                              }
                              throw internal_error("kind_of: multiplicative operator");
                          },
                          [](equality_op o) {
                              switch (o) {
                              case equality_op::equal:
                                  return binary_kind::equal;
                              case equality_op::not_equal:
                                  return binary_kind::not_equal;
                              case equality_op::strict_equal:
                                  return binary_kind::strict_equal;
                              case equality_op::strict_not_equal:
                                  return binary_kind::strict_not_equal;
                              }
                              throw internal_error("kind_of: equality operator");
                          },
                          [](relational_op o) {
                              switch (o) {
                              case relational_op::less_than:
                                  return binary_kind::less_than;
                              case relational_op::greater_than:
                                  return binary_kind::greater_than;
                              case relational_op::less_than_or_equal:
                                  return binary_kind::less_than_or_equal;
                              case relational_op::greater_than_or_equal:
                                  return binary_kind::greater_than_or_equal;
                              case relational_op::instance_of:
                              case relational_op::in:
                                  break;
                              }
                              throw internal_error("kind_of: relational operator");
                          },
                          [](shift_op o) {
                              switch (o) {
                              case shift_op::left_shift:
                                  return binary_kind::left_shift;
                              case shift_op::signed_right_shift:
                                  return binary_kind::signed_right_shift;
                              case shift_op::unsigned_right_shift:
                                  return binary_kind::unsigned_right_shift;
                              }
                              throw internal_error("kind_of: shift operator");
                          },
                      },
                      op);
}

binary_kind kind_of_assign(assign_op const& op) {
    return std::visit(overloaded{
                          [](plain_assign const&) -> binary_kind { throw internal_error("kind_of_assign: plain"); },
                          [](multiplicative_op o) { return kind_of(binary_op{o}); },
                          [](additive_op o) { return kind_of(binary_op{o}); },
                          [](shift_op o) { return kind_of(binary_op{o}); },
                          [](bitwise_op o) { return kind_of(binary_op{o}); },
                      },
                      op);
}

/// The compiler of one body into one `func_ops`.
struct compiler {
    func_ops out;
    info inf;
    /// Whether the body runs with an activation scope of its own (a function whose variables are not in
    /// registers); its variable map then counts as a level for nested functions.
    bool own_activation = false;
    /// The first register that is not a variable: temporaries grow from here as a stack.
    int temp_base = 0;
    int next_reg = 0;
    int next_ref = 0;
    int next_iter = 0;
    int finally_depth = 0;
    /// A register a `return` keeps its value in while finally blocks run; -1 if the body has none.
    int return_reg = -1;
    std::vector<target_info> label_targets;
    std::vector<cleanup> cleanups;
    std::vector<std::vector<int>> finally_calls;
    std::vector<std::pair<int, int>> lines_stack;
    label_set pending_labels;

    // ---- Emitting -----------------------------------------------------------------------------------

    int here() const { return static_cast<int>(out.ops.size()); }

    int emit(op_code code, std::int32_t a = 0, std::int32_t b = 0, std::int32_t c = 0, std::int32_t d = 0,
             std::uint8_t flag = 0) {
        out.ops.push_back(js_op{.code = code, .op_flag = flag, .op_a = a, .op_b = b, .op_c = c, .op_d = d});
        return here() - 1;
    }

    /// Reserves an instruction to be overwritten once its target is known.
    int reserve() { return emit(op_code::js_op_abort); }

    void patch_jump(int at, int target) { out.ops[at] = js_op{.code = op_code::js_op_jump, .op_a = target}; }

    void patch_jumps(std::vector<int> const& at, int target) {
        for (int p : at) {
            patch_jump(p, target);
        }
    }

    int alloc() {
        int r = next_reg++;
        out.num_vars = std::max(out.num_vars, next_reg);
        return r;
    }

    int name_index(std::string const& n) {
        out.op_names.push_back(n);
        return static_cast<int>(out.op_names.size()) - 1;
    }

    int key_index(js_prop_string k) {
        for (std::size_t i = 0; i < out.op_keys.size(); ++i) {
            if (out.op_keys[i] == k) {
                return static_cast<int>(i);
            }
        }
        out.op_keys.push_back(std::move(k));
        return static_cast<int>(out.op_keys.size()) - 1;
    }

    // Kept out of line: inlined into every literal, it trips g++'s uninitialised-variant warning.
    [[gnu::noinline]] js_operand constant(js_value const& v) {
        out.op_consts.push_back(v);
        return js_operand{.operand = -static_cast<std::int32_t>(out.op_consts.size())};
    }

    int global_site() { return out.num_global_sites++; }

    int args_index(std::vector<js_operand> args) {
        out.op_arg_lists.push_back(std::move(args));
        return static_cast<int>(out.op_arg_lists.size()) - 1;
    }

    static js_operand reg(int r) { return js_operand{.operand = r}; }

    bool is_temp(js_operand o) const { return !o.is_const() && o.operand >= temp_base; }

    /// Puts an operand where the destination wants it.
    js_operand place(js_operand v, expr_dest d) {
        switch (d.dest) {
        case dest_kind::any_var:
            return v;
        case dest_kind::fresh_var:
            if (is_temp(v)) {
                return v;
            }
            return reg(store_operand(alloc(), v));
        case dest_kind::specific_var:
            if (v.is_const() || v.operand != d.dest_reg) {
                store_operand(d.dest_reg, v);
            }
            return reg(d.dest_reg);
        }
        throw internal_error("place: unexpected destination");
    }

    int store_operand(int r, js_operand v) {
        if (v.is_const()) {
            emit(op_code::js_op_const, r, -v.operand - 1);
        } else {
            emit(op_code::js_op_copy, r, v.operand);
        }
        return r;
    }

    /// The register of an operand, loading a constant into a new one.
    int to_reg(js_operand v) { return v.is_const() ? store_operand(alloc(), v) : v.operand; }

    int target(expr_dest d) { return d.dest == dest_kind::specific_var ? d.dest_reg : alloc(); }

    // ---- Lines --------------------------------------------------------------------------------------

    template <class F>
    auto with_line(int line, F&& f) {
        if (line <= 0) {
            return f();
        }
        lines_stack.emplace_back(here(), line);
        auto r = f();
        auto [start, l] = lines_stack.back();
        lines_stack.pop_back();
        out.line_ranges.push_back(
            line_range{.line_range_offset_start = start, .line_range_offset_end = here(), .line_range_number = l});
        return r;
    }

    // ---- Identifiers --------------------------------------------------------------------------------

    binding resolve(std::string const& name) const {
        if (auto it = inf.info_var_map.find(name); it != inf.info_var_map.end()) {
            if (inf.info_vars_in_regs) {
                return in_register{.reg = it->second};
            }
            return in_variables{.index = it->second};
        }
        for (std::size_t i = 0; i < inf.info_parent_var_maps.size(); ++i) {
            auto const& m = inf.info_parent_var_maps[i];
            if (auto it = m.find(name); it != m.end()) {
                return in_parent{.depth = static_cast<int>(i) + (own_activation ? 1 : 0), .index = it->second};
            }
        }
        if (inf.info_global_scope == global_scope::global_scope_available) {
            return in_global{};
        }
        return in_chain{};
    }

    js_operand read_id(std::string const& name, expr_dest d) {
        return std::visit(overloaded{
                              [&](in_register const& r) { return place(reg(r.reg), d); },
                              [&](in_variables const& v) {
                                  int t = target(d);
                                  emit(op_code::js_op_get_variable, t, name_index(name), v.index);
                                  return reg(t);
                              },
                              [&](in_parent const& p) {
                                  int t = target(d);
                                  emit(op_code::js_op_get_parent_variable, t, p.depth, name_index(name), p.index);
                                  return reg(t);
                              },
                              [&](in_global const&) {
                                  int t = target(d);
                                  emit(op_code::js_op_get_global, t, key_index(key_of_utf8(name)), global_site());
                                  return reg(t);
                              },
                              [&](in_chain const&) {
                                  int t = target(d);
                                  emit(op_code::js_op_lookup_then_get_value, t, name_index(name));
                                  return reg(t);
                              },
                          },
                          resolve(name));
    }

    int new_ref() {
        int r = next_ref++;
        out.num_refs = std::max(out.num_refs, next_ref);
        return r;
    }

    expr_lhs id_lhs(std::string const& name) {
        return std::visit(overloaded{
                              [&](in_register const& r) -> expr_lhs { return var_lhs{.reg = r.reg}; },
                              [&](in_variables const& v) -> expr_lhs {
                                  return indirect_lhs{variable_lhs{.name = name_index(name), .index = v.index}};
                              },
                              [&](in_parent const& p) -> expr_lhs {
                                  return indirect_lhs{
                                      parent_variable{.depth = p.depth, .name = name_index(name), .index = p.index}};
                              },
                              [&](in_global const&) -> expr_lhs {
                                  return indirect_lhs{global{.key = key_index(key_of_utf8(name))}};
                              },
                              [&](in_chain const&) -> expr_lhs {
                                  int r = new_ref();
                                  emit(op_code::js_op_lookup, r, name_index(name));
                                  return ref_lhs{.ref = r};
                              },
                          },
                          resolve(name));
    }

    /// The object of a property access as an object in a new register.
    int object_reg(expr const& object) {
        js_operand o = expr_(object, any_var());
        int t = alloc();
        emit(op_code::js_op_to_object, t, o.operand);
        return t;
    }

    /// Evaluates the parts of a left-hand side (object and key) once. `later_pure` says whether what is
    /// evaluated after can change a register the key is read from.
    expr_lhs lhs(expr const& e, bool later_pure) {
        if (auto const* id = std::get_if<id_expr>(&e.expr_node)) {
            return id_lhs(id->id_name);
        }
        if (auto const* x = std::get_if<expr_id>(&e.expr_node)) {
            return with_line(x->expr_id_line, [&]() -> expr_lhs {
                int o = object_reg(*x->expr_id_object);
                return indirect_lhs{obj_id{.object = o, .key = key_index(key_of_utf8(x->expr_id_name))}};
            });
        }
        if (auto const* x = std::get_if<expr_expr>(&e.expr_node)) {
            return with_line(x->expr_expr_line, [&]() -> expr_lhs {
                int o = object_reg(*x->expr_expr_object);
                js_operand k = expr_(*x->expr_expr_index, later_pure ? any_var() : fresh_var());
                return indirect_lhs{obj_value{.object = o, .key = k}};
            });
        }
        throw internal_error("expression cannot be lhs");
    }

    js_operand read_lhs(expr_lhs const& l, expr_dest d) {
        return std::visit(
            overloaded{
                [&](var_lhs const& v) { return place(reg(v.reg), d); },
                [&](ref_lhs const& r) {
                    int t = target(d);
                    emit(op_code::js_op_get_value, t, r.ref);
                    return reg(t);
                },
                [&](indirect_lhs const& i) {
                    int t = target(d);
                    std::visit(overloaded{
                                   [&](obj_value const& o) { emit(op_code::js_op_get_property, t, o.object, o.key.operand); },
                                   [&](obj_id const& o) { emit(op_code::js_op_get_property_id, t, o.object, o.key); },
                                   [&](variable_lhs const& v) { emit(op_code::js_op_get_variable, t, v.name, v.index); },
                                   [&](parent_variable const& p) {
                                       emit(op_code::js_op_get_parent_variable, t, p.depth, p.name, p.index);
                                   },
                                   [&](global const& g) { emit(op_code::js_op_get_global, t, g.key, global_site()); },
                               },
                               i);
                    return reg(t);
                },
            },
            l);
    }

    void write_lhs(expr_lhs const& l, js_operand v) {
        std::visit(overloaded{
                       [&](var_lhs const& r) {
                           if (v.is_const() || v.operand != r.reg) {
                               store_operand(r.reg, v);
                           }
                       },
                       [&](ref_lhs const& r) { emit(op_code::js_op_put_value, r.ref, v.operand); },
                       [&](indirect_lhs const& i) {
                           std::visit(overloaded{
                                          [&](obj_value const& o) { emit(op_code::js_op_put, o.object, o.key.operand, v.operand); },
                                          [&](obj_id const& o) { emit(op_code::js_op_put_id, o.object, o.key, v.operand); },
                                          [&](variable_lhs const& x) { emit(op_code::js_op_set_variable, x.name, x.index, v.operand); },
                                          [&](parent_variable const& p) {
                                              emit(op_code::js_op_set_parent_variable, p.depth, p.name, p.index, v.operand);
                                          },
                                          [&](global const& g) { emit(op_code::js_op_put_global, g.key, v.operand, global_site()); },
                                      },
                                      i);
                       },
                   },
                   l);
    }

    // ---- Expressions --------------------------------------------------------------------------------

    /// Operands of a list of expressions evaluated left to right; a value read straight from a variable
    /// register is copied when a later expression could assign to it.
    std::vector<js_operand> operands(std::vector<ref<expr>> const& list) {
        std::vector<js_operand> result;
        for (std::size_t i = 0; i < list.size(); ++i) {
            bool later_pure = std::all_of(list.begin() + static_cast<std::ptrdiff_t>(i) + 1, list.end(),
                                          [](ref<expr> const& e) { return is_pure(*e); });
            result.push_back(expr_(*list[i], later_pure ? any_var() : fresh_var()));
        }
        return result;
    }

    static bool all_pure(std::vector<ref<expr>> const& list) {
        return std::all_of(list.begin(), list.end(), [](ref<expr> const& e) { return is_pure(*e); });
    }

    js_operand func_value(ref<vellum::js::func_expr> const& f, expr_dest d) {
        std::vector<var_map> parents = nested_parents();
        if (f->func_ident) {
            // The name of a named function expression lives in a scope of its own between the function's
            // variables and the scope it closes over.
            parents.insert(parents.begin(), var_map{{*f->func_ident, 0}});
        }
        out.op_funcs.push_back(func_expr_def{
            .func_syntax = f,
            .func_compiled = compile_function(parents, inf.info_global_scope, f->func_params, f->func_body)});
        int t = target(d);
        emit(op_code::js_op_func_expr, t, static_cast<int>(out.op_funcs.size()) - 1);
        return reg(t);
    }

    std::vector<var_map> nested_parents() const {
        std::vector<var_map> parents;
        if (own_activation) {
            parents.push_back(inf.info_var_map);
        }
        parents.insert(parents.end(), inf.info_parent_var_maps.begin(), inf.info_parent_var_maps.end());
        return parents;
    }

    js_operand call(expr_args const& c, expr_dest d) {
        expr const& callee = *c.expr_args_callee;
        bool args_pure = all_pure(c.expr_args_args);
        auto finish = [&](op_code code, int a, int b, int fn, bool eval_flag) {
            int args = args_index(operands(c.expr_args_args));
            int t = target(d);
            if (code == op_code::js_op_call_value) {
                emit(code, t, fn, 0, args, eval_flag ? 1 : 0);
            } else {
                emit(code, t, a, b, args, eval_flag ? 1 : 0);
            }
            return reg(t);
        };
        if (auto const* x = std::get_if<expr_id>(&callee.expr_node)) {
            int o = with_line(x->expr_id_line, [&] { return object_reg(*x->expr_id_object); });
            int fn = alloc();
            emit(op_code::js_op_get_property_id, fn, o, key_index(key_of_utf8(x->expr_id_name)));
            return finish(op_code::js_op_call_method, o, fn, fn, false);
        }
        if (auto const* x = std::get_if<expr_expr>(&callee.expr_node)) {
            int o = with_line(x->expr_expr_line, [&] { return object_reg(*x->expr_expr_object); });
            js_operand k = expr_(*x->expr_expr_index, any_var());
            int fn = alloc();
            emit(op_code::js_op_get_property, fn, o, k.operand);
            return finish(op_code::js_op_call_method, o, fn, fn, false);
        }
        if (auto const* id = std::get_if<id_expr>(&callee.expr_node)) {
            bool eval_name = id->id_name == "eval";
            binding b = resolve(id->id_name);
            if (std::holds_alternative<in_chain>(b)) {
                int r = new_ref();
                emit(op_code::js_op_lookup, r, name_index(id->id_name));
                int fn = alloc();
                emit(op_code::js_op_get_value, fn, r);
                return finish(op_code::js_op_call_ref, r, fn, fn, eval_name);
            }
            int fn = read_id(id->id_name, args_pure ? any_var() : fresh_var()).operand;
            return finish(op_code::js_op_call_value, 0, 0, fn, eval_name && std::holds_alternative<in_global>(b));
        }
        int fn = to_reg(expr_(callee, args_pure ? any_var() : fresh_var()));
        return finish(op_code::js_op_call_value, 0, 0, fn, false);
    }

    js_operand unary_expr(prefix_expr const& p, expr_dest d) {
        expr const& operand = *p.prefix_operand;
        auto simple = [&](unary_op op) {
            js_operand v = expr_(operand, any_var());
            int t = target(d);
            emit(op_code::js_op_unary, t, v.operand, 0, 0, static_cast<std::uint8_t>(op));
            return reg(t);
        };
        switch (p.prefix_operator) {
        case prefix_op::plus:
            return simple(unary_op::prefix_plus);
        case prefix_op::minus:
            if (auto const* n = std::get_if<number_expr>(&operand.expr_node)) {
                return place(constant(negate(n->number_value)), d);
            }
            return simple(unary_op::prefix_minus);
        case prefix_op::bitwise_not:
            return simple(unary_op::bitwise_not);
        case prefix_op::logical_not:
            return simple(unary_op::logical_not);
        case prefix_op::void_:
            expr_(operand, any_var());
            return place(constant(undefined()), d);
        case prefix_op::typeof_:
            if (auto const* id = std::get_if<id_expr>(&operand.expr_node)) {
                if (std::holds_alternative<in_chain>(resolve(id->id_name))) {
                    int r = new_ref();
                    emit(op_code::js_op_lookup, r, name_index(id->id_name));
                    int t = target(d);
                    emit(op_code::js_op_typeof_ref, t, r);
                    return reg(t);
                }
            }
            {
                js_operand v = expr_(operand, any_var());
                int t = target(d);
                emit(op_code::js_op_typeof_value, t, v.operand);
                return reg(t);
            }
        case prefix_op::delete_:
            return delete_expr(operand, d);
        case prefix_op::increment:
        case prefix_op::decrement:
            return update(operand, p.prefix_operator == prefix_op::increment, true, d);
        }
        throw internal_error("unary_expr: unexpected operator");
    }

    js_operand delete_expr(expr const& operand, expr_dest d) {
        if (auto const* id = std::get_if<id_expr>(&operand.expr_node)) {
            return std::visit(overloaded{
                                  // Declared variables cannot be deleted.
                                  [&](in_register const&) { return place(constant(false), d); },
                                  [&](in_variables const&) { return place(constant(false), d); },
                                  [&](in_parent const&) { return place(constant(false), d); },
                                  [&](in_global const&) {
                                      int t = target(d);
                                      emit(op_code::js_op_delete_global, t, key_index(key_of_utf8(id->id_name)));
                                      return reg(t);
                                  },
                                  [&](in_chain const&) {
                                      int r = new_ref();
                                      emit(op_code::js_op_lookup, r, name_index(id->id_name));
                                      int t = target(d);
                                      emit(op_code::js_op_delete, t, r);
                                      return reg(t);
                                  },
                              },
                              resolve(id->id_name));
        }
        if (auto const* x = std::get_if<expr_id>(&operand.expr_node)) {
            int o = object_reg(*x->expr_id_object);
            int t = target(d);
            emit(op_code::js_op_delete_obj_prop_id, t, o, key_index(key_of_utf8(x->expr_id_name)));
            return reg(t);
        }
        if (auto const* x = std::get_if<expr_expr>(&operand.expr_node)) {
            int o = object_reg(*x->expr_expr_object);
            js_operand k = expr_(*x->expr_expr_index, any_var());
            int t = target(d);
            emit(op_code::js_op_delete_obj_prop, t, o, k.operand);
            return reg(t);
        }
        expr_(operand, any_var());
        return place(constant(true), d);
    }

    /// `++x`, `--x`, `x++`, `x--`.
    js_operand update(expr const& operand, bool increment, bool prefix, expr_dest d) {
        expr_lhs l = lhs(operand, true);
        js_operand cur = read_lhs(l, any_var());
        int old_value = alloc();
        emit(op_code::js_op_to_number, old_value, to_reg(cur));
        js_operand one = constant(number{std::int64_t{1}});
        auto kind = static_cast<std::uint8_t>(increment ? binary_kind::plus : binary_kind::minus);
        if (auto const* v = std::get_if<var_lhs>(&l)) {
            emit(op_code::js_op_binary, v->reg, old_value, one.operand, 0, kind);
            return place(prefix ? reg(v->reg) : reg(old_value), d);
        }
        int new_value = alloc();
        emit(op_code::js_op_binary, new_value, old_value, one.operand, 0, kind);
        write_lhs(l, reg(new_value));
        return place(reg(prefix ? new_value : old_value), d);
    }

    js_operand assign(assign_expr const& a, expr_dest d) {
        expr const& value = *a.assign_value;
        bool value_pure = is_pure(value);
        expr_lhs l = lhs(*a.assign_target, value_pure);
        if (std::holds_alternative<plain_assign>(a.assign_operator)) {
            js_operand v = expr_(value, any_var());
            write_lhs(l, v);
            return place(v, d);
        }
        auto kind = static_cast<std::uint8_t>(kind_of_assign(a.assign_operator));
        if (auto const* v = std::get_if<var_lhs>(&l); v && value_pure) {
            js_operand right = expr_(value, any_var());
            emit(op_code::js_op_binary, v->reg, v->reg, right.operand, 0, kind);
            return place(reg(v->reg), d);
        }
        js_operand cur = read_lhs(l, fresh_var());
        js_operand right = expr_(value, any_var());
        int t = alloc();
        emit(op_code::js_op_binary, t, cur.operand, right.operand, 0, kind);
        write_lhs(l, reg(t));
        return place(reg(t), d);
    }

    /// One operator of a chain: `left op right` where the left value is already in `left`.
    js_operand binary_step(binary_expr const& b, js_operand left, int t) {
        js_operand right = expr_(*b.binary_right, any_var());
        if (auto const* r = std::get_if<relational_op>(&b.binary_operator)) {
            if (*r == relational_op::instance_of) {
                emit(op_code::js_op_instance_of, t, left.operand, right.operand);
                return reg(t);
            }
            if (*r == relational_op::in) {
                emit(op_code::js_op_in, t, left.operand, right.operand);
                return reg(t);
            }
        }
        emit(op_code::js_op_binary, t, left.operand, right.operand, 0,
             static_cast<std::uint8_t>(kind_of(b.binary_operator)));
        return reg(t);
    }

    /// A binary expression. Chains such as `a + b + c + ...` nest to the left as deep as they are long
    /// (generated scripts have thousands of terms), so the left spine is walked in a loop, and the
    /// running value stays in one register.
    js_operand binary(binary_expr const& b, expr_dest d) {
        std::vector<binary_expr const*> spine{&b};
        while (auto const* l = std::get_if<binary_expr>(&spine.back()->binary_left->expr_node)) {
            spine.push_back(l);
        }
        js_operand acc;
        for (std::size_t k = spine.size(); k-- > 0;) {
            binary_expr const& node = *spine[k];
            bool const outermost = k == 0;
            bool const right_pure = is_pure(*node.binary_right);
            if (k + 1 == spine.size()) {
                acc = expr_(*node.binary_left, right_pure ? any_var() : fresh_var());
            } else if (!right_pure && !is_temp(acc)) {
                // The right side could assign to the variable the running value was read from.
                acc = place(acc, fresh_var());
            }
            if (std::holds_alternative<comma_op>(node.binary_operator)) {
                acc = expr_(*node.binary_right, outermost ? d : any_var());
                continue;
            }
            if (outermost) {
                // A register of its own: a comparison's boolean does not overwrite the number it came
                // from, which the loop would then have to change back.
                acc = binary_step(node, acc, target(d));
                continue;
            }
            int t = is_temp(acc) && acc.operand == next_reg - 1 ? acc.operand : alloc();
            acc = binary_step(node, acc, t);
            // The right side's temporaries are free again; the running value stays in `t`.
            next_reg = t + 1;
        }
        return acc;
    }

    /// A register that several branches write into.
    int branch_reg(expr_dest d) { return d.dest == dest_kind::specific_var ? d.dest_reg : alloc(); }

    /// `a && b`, `a || b`: the value goes into one register, and a test of it skips the right side.
    /// Long chains nest to the left, so they are walked in a loop.
    js_operand logical(logical_expr const& l, expr_dest d) {
        std::vector<logical_expr const*> spine{&l};
        while (auto const* x = std::get_if<logical_expr>(&spine.back()->logical_left->expr_node)) {
            spine.push_back(x);
        }
        int t = branch_reg(d);
        expr_(*spine.back()->logical_left, specific_var(t));
        for (std::size_t k = spine.size(); k-- > 0;) {
            logical_expr const& node = *spine[k];
            int jump = emit(op_code::js_op_jump_if, t, 0, 0, 0, node.logical_operator == logical_op::logical_or ? 1 : 0);
            expr_(*node.logical_right, specific_var(t));
            out.ops[jump].op_b = here();
        }
        return reg(t);
    }

    js_operand conditional(conditional_expr const& c, expr_dest d) {
        int test = to_reg(expr_(*c.conditional_test, any_var()));
        int t = branch_reg(d);
        int to_else = emit(op_code::js_op_jump_if, test, 0, 0, 0, 0);
        expr_(*c.conditional_then, specific_var(t));
        int to_end = reserve();
        out.ops[to_else].op_b = here();
        expr_(*c.conditional_else, specific_var(t));
        patch_jump(to_end, here());
        return reg(t);
    }

    js_operand array(array_expr const& a, expr_dest d) {
        int t = d.dest == dest_kind::specific_var ? d.dest_reg : alloc();
        emit(op_code::js_op_new_array, t);
        std::int64_t length = 0;
        std::int64_t stored = 0;
        std::visit(overloaded{
                       [&](array_elision const& e) { length = e.elision_count; },
                       [&](array_elements const& e) {
                           for (auto const& el : e.elements_list) {
                               length += el.element_holes_before;
                               js_operand v = expr_(*el.element_value, any_var());
                               emit(op_code::js_op_put, t, constant(number{length}).operand, v.operand);
                               stored = ++length;
                           }
                           if (e.elements_trailing_holes) {
                               length += *e.elements_trailing_holes;
                           }
                       },
                   },
                   a.array_value);
        // Holes at the end count in the length though nothing is stored for them.
        if (length > stored) {
            emit(op_code::js_op_put_id, t, key_index(key_of_utf8("length")), constant(number{length}).operand);
        }
        return reg(t);
    }

    js_operand object(object_expr const& o, expr_dest d) {
        int t = d.dest == dest_kind::specific_var ? d.dest_reg : alloc();
        emit(op_code::js_op_new_object, t);
        for (auto const& [name, value] : o.object_props) {
            js_operand v = expr_(*value, any_var());
            // Flag 1: the literal defines its own property, whatever a prototype holds under that name.
            emit(op_code::js_op_put_id, t, key_index(key_of_name(name)), v.operand, 0, 1);
        }
        return reg(t);
    }

    js_operand expr_(expr const& e, expr_dest d) {
        return std::visit(
            overloaded{
                [&](binary_expr const& x) { return binary(x, d); },
                [&](logical_expr const& x) { return logical(x, d); },
                [&](assign_expr const& x) { return with_line(x.assign_line, [&] { return assign(x, d); }); },
                [&](prefix_expr const& x) { return with_line(x.prefix_line, [&] { return unary_expr(x, d); }); },
                [&](postfix_expr const& x) {
                    return with_line(x.postfix_line, [&] {
                        return update(*x.postfix_operand, x.postfix_operator == postfix_op::increment, false, d);
                    });
                },
                [&](conditional_expr const& x) { return conditional(x, d); },
                [&](new_expr const& x) {
                    int fn = to_reg(expr_(*x.new_callee, all_pure(x.new_args) ? any_var() : fresh_var()));
                    int args = args_index(operands(x.new_args));
                    int t = target(d);
                    emit(op_code::js_op_new, t, fn, 0, args);
                    return reg(t);
                },
                [&](expr_args const& x) { return with_line(x.expr_args_line, [&] { return call(x, d); }); },
                [&](expr_expr const& x) {
                    return with_line(x.expr_expr_line, [&] {
                        int o = object_reg(*x.expr_expr_object);
                        js_operand k = expr_(*x.expr_expr_index, any_var());
                        int t = target(d);
                        emit(op_code::js_op_get_property, t, o, k.operand);
                        return reg(t);
                    });
                },
                [&](expr_id const& x) {
                    return with_line(x.expr_id_line, [&] {
                        int o = object_reg(*x.expr_id_object);
                        int t = target(d);
                        emit(op_code::js_op_get_property_id, t, o, key_index(key_of_utf8(x.expr_id_name)));
                        return reg(t);
                    });
                },
                [&](number_expr const& x) { return place(constant(x.number_value), d); },
                [&](id_expr const& x) { return read_id(x.id_name, d); },
                [&](string_expr const& x) { return place(constant(x.string_value), d); },
                [&](regexp_ob const& x) { return place(constant(x.regexp_ob_object), d); },
                [&](bool_expr const& x) { return place(constant(x.bool_value), d); },
                [&](null_expr const&) { return place(constant(js_null{}), d); },
                [&](this_expr const&) {
                    int t = target(d);
                    emit(op_code::js_op_this, t);
                    return reg(t);
                },
                [&](array_expr const& x) { return array(x, d); },
                [&](object_expr const& x) { return object(x, d); },
                [&](func_expr_expr const& x) { return func_value(x.func_value, d); },
            },
            e.expr_node);
    }

    /// A test: jumps to `target` when the value's truth equals `when`. Gives the jump's position.
    int jump_if(expr const& test, bool when) {
        int r = to_reg(expr_(test, any_var()));
        return emit(op_code::js_op_jump_if, r, 0, 0, 0, when ? 1 : 0);
    }

    // ---- Statements ---------------------------------------------------------------------------------

    void emit_cleanups(std::size_t depth) {
        for (std::size_t k = cleanups.size(); k-- > depth;) {
            cleanup const& c = cleanups[k];
            switch (c.kind) {
            case cleanup_kind::pop_try:
                emit(op_code::js_op_pop_try);
                break;
            case cleanup_kind::pop_catch:
                emit(op_code::js_op_pop_catch);
                break;
            case cleanup_kind::pop_with:
                emit(op_code::js_op_pop_with);
                break;
            case cleanup_kind::call_finally: {
                emit(op_code::js_op_pop_try);
                // The finally block returns to the instruction after the jump to it.
                emit(op_code::js_op_set_address_relative, c.address, 2);
                int call = reserve();
                finally_calls[static_cast<std::size_t>(c.finally_id)].push_back(call);
                break;
            }
            }
        }
    }

    void elements(source_elements const& list) {
        for (auto const& el : list) {
            if (auto const* s = std::get_if<ref<statement>>(&el)) {
                stmt(**s);
            }
            // Function declarations were bound when the frame started.
        }
    }

    /// Runs `body` as a statement that `break` (and, for loops, `continue`) may target; gives the jump
    /// target so that its jumps can be patched.
    template <class F>
    target_info targeted(target_kind kind, label_set labels, F&& body) {
        label_targets.push_back(target_info{.kind = kind, .labels = std::move(labels), .cleanup_depth = cleanups.size()});
        body();
        target_info t = std::move(label_targets.back());
        label_targets.pop_back();
        return t;
    }

    void jump_out(bool is_break, std::optional<std::string> const& label) {
        for (std::size_t k = label_targets.size(); k-- > 0;) {
            target_info& t = label_targets[k];
            bool matches = label ? std::find(t.labels.begin(), t.labels.end(), *label) != t.labels.end()
                                 : (t.kind == target_kind::loop || (is_break && t.kind == target_kind::switch_statement));
            if (!matches) {
                continue;
            }
            if (!is_break && t.kind != target_kind::loop) {
                break;
            }
            emit_cleanups(t.cleanup_depth);
            int j = reserve();
            (is_break ? t.break_jumps : t.continue_jumps).push_back(j);
            return;
        }
        throw internal_error(is_break ? "unexpected break" : "unexpected continue");
    }

    /// A loop: `body` compiles the loop and returns the position continues go to.
    template <class F>
    void loop(label_set labels, F&& body) {
        int cont = 0;
        target_info t = targeted(target_kind::loop, std::move(labels), [&] { cont = body(); });
        patch_jumps(t.continue_jumps, cont);
        patch_jumps(t.break_jumps, here());
    }

    void var_decls(std::vector<var_decl> const& decls) {
        for (auto const& d : decls) {
            if (d.var_init) {
                int saved = next_reg;
                expr_lhs l = id_lhs(d.var_name);
                js_operand v = expr_(**d.var_init, any_var());
                write_lhs(l, v);
                next_reg = saved;
            }
        }
    }

    void opt_expr(std::optional<ref<expr>> const& e) {
        if (e) {
            int saved = next_reg;
            expr_(**e, any_var());
            next_reg = saved;
        }
    }

    /// A `for` loop's shape: the body first, then the update and the test, which jumps back to the body.
    void for_loop(label_set labels,
                  std::optional<ref<expr>> const& test,
                  std::optional<ref<expr>> const& update,
                  statement const& body) {
        int to_test = reserve();
        loop(std::move(labels), [&] {
            int start = here();
            stmt(body);
            int cont = here();
            opt_expr(update);
            patch_jump(to_test, here());
            if (test) {
                int saved = next_reg;
                // The test's temporaries lie above every register used so far, so that no register of
                // the loop holds a number on one pass and a boolean on the next: a store of the same
                // type is done in place, a change of type is not.
                next_reg = std::max(next_reg, out.num_vars);
                int j = jump_if(**test, true);
                out.ops[j].op_b = start;
                next_reg = saved;
            } else {
                emit(op_code::js_op_jump, start);
            }
            return cont;
        });
    }

    void for_in(label_set labels, expr const& object, std::function<void(int)> const& store, statement const& body) {
        int it = next_iter++;
        out.num_iters = std::max(out.num_iters, next_iter);
        int saved = next_reg;
        js_operand o = expr_(object, any_var());
        emit(op_code::js_op_enum_prop_names, it, o.operand);
        next_reg = saved;
        int to_test = reserve();
        loop(std::move(labels), [&] {
            int start = here();
            int name = alloc();
            emit(op_code::js_op_iter_get_next, name, it);
            store(name);
            next_reg = saved;
            stmt(body);
            int cont = here();
            patch_jump(to_test, cont);
            next_reg = std::max(next_reg, out.num_vars);
            int has = alloc();
            emit(op_code::js_op_iter_has_next, has, it);
            emit(op_code::js_op_jump_if, has, start, 0, 0, 1);
            next_reg = saved;
            return cont;
        });
        --next_iter;
    }

    void switch_(switch_stmt const& s, label_set labels) {
        int value = to_reg(expr_(*s.switch_value, fresh_var()));
        case_block const& cb = *s.switch_cases;
        std::vector<case_clause const*> cases;
        for (auto const& c : cb.first_clauses) {
            cases.push_back(&c);
        }
        if (cb.default_and_second_clauses) {
            for (auto const& c : cb.default_and_second_clauses->second_clauses) {
                cases.push_back(&c);
            }
        }
        std::vector<int> tests;
        for (auto const* c : cases) {
            int saved = next_reg;
            js_operand t = expr_(*c->case_test, any_var());
            int eq = alloc();
            emit(op_code::js_op_binary, eq, value, t.operand, 0, static_cast<std::uint8_t>(binary_kind::strict_equal));
            tests.push_back(emit(op_code::js_op_jump_if, eq, 0, 0, 0, 1));
            next_reg = saved;
        }
        int to_default = reserve();
        // Bodies in source order: the clauses before the default, the default, the clauses after it.
        std::vector<int> body_starts;
        target_info t = targeted(target_kind::switch_statement, std::move(labels), [&] {
            for (auto const& c : cb.first_clauses) {
                body_starts.push_back(here());
                elements(c.case_body);
            }
            if (cb.default_and_second_clauses) {
                patch_jump(to_default, here());
                elements(cb.default_and_second_clauses->default_body);
                for (auto const& c : cb.default_and_second_clauses->second_clauses) {
                    body_starts.push_back(here());
                    elements(c.case_body);
                }
            }
        });
        if (body_starts.size() != tests.size()) {
            throw internal_error("unbalanced switch test list");
        }
        for (std::size_t i = 0; i < tests.size(); ++i) {
            out.ops[tests[i]].op_b = body_starts[i];
        }
        if (!cb.default_and_second_clauses) {
            patch_jump(to_default, here());
        }
        patch_jumps(t.break_jumps, here());
    }

    /// Compiles with the environment changed for a body under a scope object (catch or with).
    template <class F>
    void under_scope(info changed, F&& body) {
        info saved = std::exchange(inf, std::move(changed));
        body();
        inf = std::move(saved);
    }

    void try_catch(source_elements const& body, catch_clause const& c) {
        int exc = alloc();
        int push = reserve();
        cleanups.push_back(cleanup{.kind = cleanup_kind::pop_try});
        elements(body);
        cleanups.pop_back();
        emit(op_code::js_op_pop_try);
        int to_end = reserve();
        int handler = here();
        out.ops[push] = js_op{.code = op_code::js_op_push_try, .op_a = exc, .op_b = handler};
        emit(op_code::js_op_push_catch, name_index(c.catch_name), exc);
        info scoped = inf;
        scoped.info_var_map.erase(c.catch_name);
        scoped.info_parent_var_maps.clear();
        scoped.info_global_scope = global_scope::global_scope_hidden;
        under_scope(std::move(scoped), [&] {
            cleanups.push_back(cleanup{.kind = cleanup_kind::pop_catch});
            elements(c.catch_body);
            cleanups.pop_back();
        });
        emit(op_code::js_op_pop_catch);
        patch_jump(to_end, here());
    }

    template <class F>
    void try_finally(F&& body, source_elements const& finally_block) {
        int address = finally_depth++;
        out.num_addrs = std::max(out.num_addrs, finally_depth);
        int exc = alloc();
        int id = static_cast<int>(finally_calls.size());
        finally_calls.emplace_back();
        int push = reserve();
        cleanups.push_back(cleanup{.kind = cleanup_kind::call_finally, .address = address, .finally_id = id});
        body();
        cleanups.pop_back();
        // Normal completion runs the block and goes on after it.
        emit(op_code::js_op_pop_try);
        int set_end = reserve();
        finally_calls[static_cast<std::size_t>(id)].push_back(reserve());
        // A thrown value: run the block, then throw it again.
        int handler = here();
        out.ops[push] = js_op{.code = op_code::js_op_push_try, .op_a = exc, .op_b = handler};
        emit(op_code::js_op_set_address, address, handler + 2);
        finally_calls[static_cast<std::size_t>(id)].push_back(reserve());
        emit(op_code::js_op_throw, exc);
        int block = here();
        elements(finally_block);
        emit(op_code::js_op_jump_indirect, address);
        out.ops[set_end] = js_op{.code = op_code::js_op_set_address, .op_a = address, .op_b = here()};
        patch_jumps(finally_calls[static_cast<std::size_t>(id)], block);
        --finally_depth;
    }

    void stmt(statement const& s) {
        int saved_reg = next_reg;
        int saved_ref = next_ref;
        label_set labels = std::exchange(pending_labels, {});
        // A labelled statement other than a loop or switch is a target for `break` with its label.
        bool takes_labels = std::holds_alternative<do_while_stmt>(s.stmt_node) ||
                            std::holds_alternative<while_stmt>(s.stmt_node) ||
                            std::holds_alternative<for_stmt>(s.stmt_node) ||
                            std::holds_alternative<for_var_stmt>(s.stmt_node) ||
                            std::holds_alternative<for_in_stmt>(s.stmt_node) ||
                            std::holds_alternative<for_in_var_stmt>(s.stmt_node) ||
                            std::holds_alternative<switch_stmt>(s.stmt_node) ||
                            std::holds_alternative<labelled_stmt>(s.stmt_node);
        if (!labels.empty() && !takes_labels) {
            target_info t = targeted(target_kind::labelled, labels, [&] { stmt_body(s, {}); });
            patch_jumps(t.break_jumps, here());
        } else {
            stmt_body(s, std::move(labels));
        }
        next_reg = saved_reg;
        next_ref = saved_ref;
    }

    void stmt_body(statement const& s, label_set labels) {
        std::visit(
            overloaded{
                [&](block_stmt const& b) { elements(b.block_body); },
                [&](variable_stmt const& v) { var_decls(v.variable_decls); },
                [](empty_stmt const&) {},
                [&](expr_stmt const& x) {
                    js_operand v = expr_(*x.expr_value, any_var());
                    if (inf.info_need_completion) {
                        emit(op_code::js_op_set_completion, v.operand);
                    }
                },
                [&](if_else_stmt const& x) {
                    int to_else = jump_if(*x.if_else_test, false);
                    stmt(*x.if_else_then);
                    int to_end = reserve();
                    out.ops[to_else].op_b = here();
                    stmt(*x.if_else_else);
                    patch_jump(to_end, here());
                },
                [&](if_stmt const& x) {
                    int to_end = jump_if(*x.if_test, false);
                    stmt(*x.if_then);
                    out.ops[to_end].op_b = here();
                },
                [&](do_while_stmt const& x) {
                    loop(std::move(labels), [&] {
                        int start = here();
                        stmt(*x.do_while_body);
                        int cont = here();
                        int saved = next_reg;
                        // As in `for` loops: the test's temporaries apart from the body's.
                        next_reg = std::max(next_reg, out.num_vars);
                        int j = jump_if(*x.do_while_test, true);
                        out.ops[j].op_b = start;
                        next_reg = saved;
                        return cont;
                    });
                },
                [&](while_stmt const& x) { for_loop(std::move(labels), x.while_test, std::nullopt, *x.while_body); },
                [&](for_stmt const& x) {
                    opt_expr(x.for_init);
                    for_loop(std::move(labels), x.for_test, x.for_update, *x.for_body);
                },
                [&](for_var_stmt const& x) {
                    var_decls(x.for_var_decls);
                    for_loop(std::move(labels), x.for_var_test, x.for_var_update, *x.for_var_body);
                },
                [&](for_in_stmt const& x) {
                    with_line(x.for_in_line, [&] {
                        for_in(
                            std::move(labels), *x.for_in_object,
                            [&](int name) { write_lhs(lhs(*x.for_in_target, true), reg(name)); }, *x.for_in_body);
                        return 0;
                    });
                },
                [&](for_in_var_stmt const& x) {
                    // An initialiser is assigned once, before the object is even evaluated.
                    var_decls({x.for_in_var_decl});
                    std::string const& name = x.for_in_var_decl.var_name;
                    for_in(
                        std::move(labels), *x.for_in_var_object,
                        [&](int value) { write_lhs(id_lhs(name), reg(value)); }, *x.for_in_var_body);
                },
                [&](continue_stmt const& x) {
                    with_line(x.continue_line, [&] {
                        jump_out(false, x.continue_label);
                        return 0;
                    });
                },
                [&](break_stmt const& x) {
                    with_line(x.break_line, [&] {
                        jump_out(true, x.break_label);
                        return 0;
                    });
                },
                [&](return_stmt const& x) {
                    with_line(x.return_line, [&] {
                        js_operand v = x.return_value ? expr_(**x.return_value, any_var()) : constant(undefined());
                        bool through_finally = std::any_of(cleanups.begin(), cleanups.end(), [](cleanup const& c) {
                            return c.kind == cleanup_kind::call_finally;
                        });
                        if (through_finally) {
                            // Finally blocks may use any temporary: the value waits in a register of its own.
                            store_operand(return_reg, v);
                            v = reg(return_reg);
                        }
                        emit_cleanups(0);
                        emit(op_code::js_op_return, v.operand);
                        return 0;
                    });
                },
                [&](with_stmt const& x) {
                    js_operand o = expr_(*x.with_object, any_var());
                    emit(op_code::js_op_push_with, o.operand);
                    info scoped = inf;
                    scoped.info_var_map.clear();
                    scoped.info_parent_var_maps.clear();
                    scoped.info_global_scope = global_scope::global_scope_hidden;
                    under_scope(std::move(scoped), [&] {
                        cleanups.push_back(cleanup{.kind = cleanup_kind::pop_with});
                        stmt(*x.with_body);
                        cleanups.pop_back();
                    });
                    emit(op_code::js_op_pop_with);
                },
                [&](switch_stmt const& x) { switch_(x, std::move(labels)); },
                [&](labelled_stmt const& x) {
                    with_line(x.labelled_line, [&] {
                        pending_labels = std::move(labels);
                        pending_labels.push_back(x.labelled_label);
                        stmt(*x.labelled_body);
                        return 0;
                    });
                },
                [&](throw_stmt const& x) {
                    // The line of the `throw` itself, so that a thrown value that is no error object
                    // is still reported where it was thrown.
                    with_line(x.throw_line, [&] {
                        js_operand v = expr_(*x.throw_value, any_var());
                        emit(op_code::js_op_throw, v.operand);
                        return 0;
                    });
                },
                [&](try_catch_stmt const& x) { try_catch(x.try_catch_body, x.try_catch_catch); },
                [&](try_finally_stmt const& x) {
                    try_finally([&] { elements(x.try_finally_body); }, x.try_finally_finally);
                },
                [&](try_catch_finally_stmt const& x) {
                    try_finally([&] { try_catch(x.try_all_body, x.try_all_catch); }, x.try_all_finally);
                },
            },
            s.stmt_node);
    }

    void finish() {
        out.num_vars = std::max(out.num_vars, next_reg);
    }
};

/// Adds a function declaration to `var_defs`: a later declaration of the same name replaces an earlier
/// one, but a parameter of that name stays the parameter.
void add_func_decl(std::vector<std::pair<std::string, var_def>>& defs,
                   ref<vellum::js::func_decl> const& f,
                   std::vector<var_map> const& parents,
                   global_scope global) {
    auto syntax = share(vellum::js::func_expr{.func_ident = std::nullopt,
                                      .func_params = f->func_decl_params,
                                      .func_body = f->func_decl_body});
    func_decl def{.decl = f,
                  .decl_syntax = syntax,
                  .decl_ops = compile_function(parents, global, f->func_decl_params, f->func_decl_body)};
    auto it = std::find_if(defs.begin(), defs.end(), [&](auto const& d) { return d.first == f->func_decl_ident; });
    if (it == defs.end()) {
        defs.emplace_back(f->func_decl_ident, std::move(def));
    } else if (std::holds_alternative<func_decl>(it->second)) {
        it->second = std::move(def);
    }
}

void add_name(std::vector<std::pair<std::string, var_def>>& defs, std::string const& name, var_def def) {
    auto it = std::find_if(defs.begin(), defs.end(), [&](auto const& d) { return d.first == name; });
    if (it == defs.end()) {
        defs.emplace_back(name, std::move(def));
    }
}

} // namespace

ref<func_ops> compile_function(std::vector<var_map> const& parent_maps,
                               global_scope global,
                               std::vector<std::string> const& params,
                               source_elements const& body) {
    analysis an = analyse(body);
    func_flags const& f = an.analysis_flags;
    compiler c;
    bool in_regs = !f.has_eval && !f.has_arguments && !f.has_func_expr && !f.has_with && !f.has_catch &&
                   an.analysis_func_decls.empty();
    c.inf.info_vars_in_regs = in_regs;
    c.own_activation = !in_regs;
    c.out.vars_in_regs = in_regs;
    if (f.has_eval) {
        // Eval may add variables anywhere on the chain: names outside the frame are found at run time.
        c.inf.info_global_scope = global_scope::global_scope_hidden;
    } else {
        c.inf.info_parent_var_maps = parent_maps;
        c.inf.info_global_scope = global;
    }
    auto& defs = c.out.var_defs;
    for (std::size_t i = 0; i < params.size(); ++i) {
        auto it = std::find_if(defs.begin(), defs.end(), [&](auto const& d) { return d.first == params[i]; });
        if (it != defs.end()) {
            // A repeated parameter name binds the last argument of that name.
            it->second = param{.position = static_cast<int>(i)};
        } else {
            defs.emplace_back(params[i], param{.position = static_cast<int>(i)});
        }
    }
    if (!in_regs) {
        add_name(defs, "arguments", arguments_object{});
    }
    // The nested functions see this function's variables (names only; the indices are fixed below and
    // do not depend on the functions themselves).
    std::vector<std::pair<std::string, var_def>> names_only = defs;
    for (auto const& d : an.analysis_func_decls) {
        add_name(names_only, d->func_decl_ident, variable{});
    }
    for (auto const& n : an.analysis_var_names) {
        add_name(names_only, n, variable{});
    }
    for (std::size_t i = 0; i < names_only.size(); ++i) {
        c.inf.info_var_map[names_only[i].first] = static_cast<int>(i);
    }
    std::vector<var_map> nested = c.nested_parents();
    for (auto const& d : an.analysis_func_decls) {
        add_func_decl(defs, d, nested, c.inf.info_global_scope);
    }
    for (auto const& n : an.analysis_var_names) {
        add_name(defs, n, variable{});
    }
    if (defs.size() != names_only.size()) {
        throw internal_error("compile_function: variable list mismatch");
    }
    c.temp_base = in_regs ? static_cast<int>(defs.size()) : 0;
    c.next_reg = c.temp_base;
    if (an.analysis_has_finally) {
        c.return_reg = c.alloc();
        c.temp_base = c.next_reg;
    }
    c.out.num_vars = c.next_reg;
    c.elements(body);
    c.finish();
    return share(std::move(c.out));
}

ref<func_ops> compile_program(source_elements const& statements, global_scope global) {
    analysis an = analyse(statements);
    compiler c;
    c.inf.info_global_scope = global;
    c.inf.info_need_completion = true;
    for (auto const& d : an.analysis_func_decls) {
        add_func_decl(c.out.var_defs, d, {}, global);
    }
    for (auto const& n : an.analysis_var_names) {
        add_name(c.out.var_defs, n, variable{});
    }
    if (an.analysis_has_finally) {
        c.return_reg = c.alloc();
    }
    c.temp_base = c.next_reg;
    c.elements(statements);
    c.finish();
    return share(std::move(c.out));
}

} // namespace vellum::js::eval::vm
