// The walks that come before compiling: the early errors of a program or function body, and the analysis
// of a body (its flags, declarations and variable names).

#include "js/vm.hpp"

#include "util/result.hpp"

#include <algorithm>

namespace vellum::js::eval {

namespace {

bool is_lhs(expr const& e) {
    return std::holds_alternative<id_expr>(e.expr_node) || std::holds_alternative<expr_expr>(e.expr_node) ||
           std::holds_alternative<expr_id>(e.expr_node);
}

/// The direct subexpressions of an expression, and the function it defines if it is a function
/// expression. Shared by both walks so that neither forgets a form.
template <class OnExpr, class OnFunc>
void each_child(expr const& e, OnExpr&& on_expr, OnFunc&& on_func) {
    std::visit(overloaded{
                   [&](binary_expr const& x) {
                       on_expr(*x.binary_left);
                       on_expr(*x.binary_right);
                   },
                   [&](logical_expr const& x) {
                       on_expr(*x.logical_left);
                       on_expr(*x.logical_right);
                   },
                   [&](assign_expr const& x) {
                       on_expr(*x.assign_target);
                       on_expr(*x.assign_value);
                   },
                   [&](prefix_expr const& x) { on_expr(*x.prefix_operand); },
                   [&](postfix_expr const& x) { on_expr(*x.postfix_operand); },
                   [&](conditional_expr const& x) {
                       on_expr(*x.conditional_test);
                       on_expr(*x.conditional_then);
                       on_expr(*x.conditional_else);
                   },
                   [&](new_expr const& x) {
                       on_expr(*x.new_callee);
                       for (auto const& a : x.new_args) {
                           on_expr(*a);
                       }
                   },
                   [&](expr_args const& x) {
                       on_expr(*x.expr_args_callee);
                       for (auto const& a : x.expr_args_args) {
                           on_expr(*a);
                       }
                   },
                   [&](expr_expr const& x) {
                       on_expr(*x.expr_expr_object);
                       on_expr(*x.expr_expr_index);
                   },
                   [&](expr_id const& x) { on_expr(*x.expr_id_object); },
                   [](number_expr const&) {},
                   [](id_expr const&) {},
                   [](string_expr const&) {},
                   [](regexp_ob const&) {},
                   [](bool_expr const&) {},
                   [](null_expr const&) {},
                   [](this_expr const&) {},
                   [&](array_expr const& x) {
                       if (auto const* els = std::get_if<array_elements>(&x.array_value)) {
                           for (auto const& el : els->elements_list) {
                               on_expr(*el.element_value);
                           }
                       }
                   },
                   [&](object_expr const& x) {
                       for (auto const& [name, value] : x.object_props) {
                           on_expr(*value);
                       }
                   },
                   [&](func_expr_expr const& x) { on_func(*x.func_value); },
               },
               e.expr_node);
}

/// The early-error walk of one program or function body.
struct checker {
    struct enclosing {
        statement_type type = statement_type::other;
        label_set labels;
    };

    bool in_function = false;
    std::vector<enclosing> stack;
    std::optional<syntax_failure> failure;

    void fail(std::optional<int> line, syntax_error e) {
        if (!failure) {
            failure = syntax_failure{.failure_line = line, .failure_error = e};
        }
    }

    void check_function(source_elements const& body) {
        if (failure) {
            return;
        }
        if (auto f = check_syntax(true, {}, body)) {
            failure = f;
        }
    }

    void check_lhs(expr const& target, int line) {
        if (!is_lhs(target)) {
            fail(line == 0 ? std::nullopt : std::optional<int>(line), left_hand_side_error{});
        }
    }

    /// Expressions are walked with a list of their own rather than by recursion: a chain of thousands
    /// of operators is as deep as it is long.
    void check_expr(expr const& root) {
        std::vector<expr const*> todo{&root};
        while (!todo.empty() && !failure) {
            expr const& e = *todo.back();
            todo.pop_back();
            if (auto const* a = std::get_if<assign_expr>(&e.expr_node)) {
                check_lhs(*a->assign_target, a->assign_line);
            } else if (auto const* p = std::get_if<prefix_expr>(&e.expr_node)) {
                if (p->prefix_operator == prefix_op::increment || p->prefix_operator == prefix_op::decrement) {
                    check_lhs(*p->prefix_operand, p->prefix_line);
                }
            } else if (auto const* p = std::get_if<postfix_expr>(&e.expr_node)) {
                check_lhs(*p->postfix_operand, p->postfix_line);
            }
            std::size_t const mark = todo.size();
            each_child(e, [&](expr const& sub) { todo.push_back(&sub); },
                       [&](vellum::js::func_expr const& f) { check_function(f.func_body); });
            // Source order: the first error met is the one reported.
            std::reverse(todo.begin() + static_cast<std::ptrdiff_t>(mark), todo.end());
        }
    }

    void check_opt(std::optional<ref<expr>> const& e) {
        if (e) {
            check_expr(**e);
        }
    }

    void check_elements(source_elements const& list) {
        for (auto const& el : list) {
            std::visit(overloaded{
                           [&](ref<statement> const& s) { check_stmt(*s, {}); },
                           [&](ref<vellum::js::func_decl> const& f) { check_function(f->func_decl_body); },
                       },
                       el);
        }
    }

    bool label_enclosing(std::string const& l) const {
        return std::any_of(stack.begin(), stack.end(), [&](enclosing const& e) {
            return std::find(e.labels.begin(), e.labels.end(), l) != e.labels.end();
        });
    }

    /// Checks a statement nested in a new enclosing entry of the given type and labels.
    void nested(statement_type type, label_set labels, statement const& body) {
        stack.push_back(enclosing{.type = type, .labels = std::move(labels)});
        check_stmt(body, {});
        stack.pop_back();
    }

    void check_jump(bool is_break, std::optional<std::string> const& label, int line) {
        std::optional<int> at = line == 0 ? std::nullopt : std::optional<int>(line);
        if (label) {
            auto it = std::find_if(stack.rbegin(), stack.rend(), [&](enclosing const& e) {
                return std::find(e.labels.begin(), e.labels.end(), *label) != e.labels.end();
            });
            if (it == stack.rend()) {
                fail(at, is_break ? syntax_error{break_label_error{}} : syntax_error{continue_label_error{}});
            } else if (!is_break && it->type != statement_type::iteration) {
                fail(at, continue_label_error{});
            }
            return;
        }
        bool found = std::any_of(stack.begin(), stack.end(), [&](enclosing const& e) {
            return e.type == statement_type::iteration || (is_break && e.type == statement_type::switch_statement);
        });
        if (!found) {
            fail(at, is_break ? syntax_error{break_error{}} : syntax_error{continue_error{}});
        }
    }

    void check_stmt(statement const& s, label_set pending) {
        if (failure) {
            return;
        }
        auto loop = [&](statement const& body) { nested(statement_type::iteration, pending, body); };
        std::visit(overloaded{
                       [&](block_stmt const& b) {
                           stack.push_back(enclosing{.type = statement_type::other, .labels = pending});
                           check_elements(b.block_body);
                           stack.pop_back();
                       },
                       [&](variable_stmt const& v) {
                           for (auto const& d : v.variable_decls) {
                               check_opt(d.var_init);
                           }
                       },
                       [](empty_stmt const&) {},
                       [&](expr_stmt const& x) { check_expr(*x.expr_value); },
                       [&](if_else_stmt const& x) {
                           check_expr(*x.if_else_test);
                           nested(statement_type::other, pending, *x.if_else_then);
                           nested(statement_type::other, pending, *x.if_else_else);
                       },
                       [&](if_stmt const& x) {
                           check_expr(*x.if_test);
                           nested(statement_type::other, pending, *x.if_then);
                       },
                       [&](do_while_stmt const& x) {
                           loop(*x.do_while_body);
                           check_expr(*x.do_while_test);
                       },
                       [&](while_stmt const& x) {
                           check_expr(*x.while_test);
                           loop(*x.while_body);
                       },
                       [&](for_stmt const& x) {
                           check_opt(x.for_init);
                           check_opt(x.for_test);
                           check_opt(x.for_update);
                           loop(*x.for_body);
                       },
                       [&](for_var_stmt const& x) {
                           for (auto const& d : x.for_var_decls) {
                               check_opt(d.var_init);
                           }
                           check_opt(x.for_var_test);
                           check_opt(x.for_var_update);
                           loop(*x.for_var_body);
                       },
                       [&](for_in_stmt const& x) {
                           check_lhs(*x.for_in_target, x.for_in_line);
                           check_expr(*x.for_in_target);
                           check_expr(*x.for_in_object);
                           loop(*x.for_in_body);
                       },
                       [&](for_in_var_stmt const& x) {
                           check_opt(x.for_in_var_decl.var_init);
                           check_expr(*x.for_in_var_object);
                           loop(*x.for_in_var_body);
                       },
                       [&](continue_stmt const& x) { check_jump(false, x.continue_label, x.continue_line); },
                       [&](break_stmt const& x) { check_jump(true, x.break_label, x.break_line); },
                       [&](return_stmt const& x) {
                           if (!in_function) {
                               fail(x.return_line == 0 ? std::nullopt : std::optional<int>(x.return_line),
                                    return_error{});
                           }
                           check_opt(x.return_value);
                       },
                       [&](with_stmt const& x) {
                           check_expr(*x.with_object);
                           nested(statement_type::other, pending, *x.with_body);
                       },
                       [&](switch_stmt const& x) {
                           check_expr(*x.switch_value);
                           stack.push_back(enclosing{.type = statement_type::switch_statement, .labels = pending});
                           auto clauses = [&](std::vector<case_clause> const& list) {
                               for (auto const& c : list) {
                                   check_expr(*c.case_test);
                                   check_elements(c.case_body);
                               }
                           };
                           clauses(x.switch_cases->first_clauses);
                           if (auto const& d = x.switch_cases->default_and_second_clauses) {
                               check_elements(d->default_body);
                               clauses(d->second_clauses);
                           }
                           stack.pop_back();
                       },
                       [&](labelled_stmt const& x) {
                           std::string const& l = x.labelled_label;
                           if (label_enclosing(l) || std::find(pending.begin(), pending.end(), l) != pending.end()) {
                               fail(x.labelled_line == 0 ? std::nullopt : std::optional<int>(x.labelled_line),
                                    label_duplication_error{});
                               return;
                           }
                           label_set more = pending;
                           more.push_back(l);
                           check_stmt(*x.labelled_body, std::move(more));
                       },
                       [&](throw_stmt const& x) { check_expr(*x.throw_value); },
                       [&](try_catch_stmt const& x) {
                           check_block(x.try_catch_body, pending);
                           check_elements(x.try_catch_catch.catch_body);
                       },
                       [&](try_finally_stmt const& x) {
                           check_block(x.try_finally_body, pending);
                           check_elements(x.try_finally_finally);
                       },
                       [&](try_catch_finally_stmt const& x) {
                           check_block(x.try_all_body, pending);
                           check_elements(x.try_all_catch.catch_body);
                           check_elements(x.try_all_finally);
                       },
                   },
                   s.stmt_node);
    }

    void check_block(source_elements const& body, label_set const& pending) {
        stack.push_back(enclosing{.type = statement_type::other, .labels = pending});
        check_elements(body);
        stack.pop_back();
    }
};

} // namespace

std::string syntax_error_name(syntax_error const& e) {
    return std::visit(overloaded{
                          [](continue_error const&) -> std::string { return "continue_error"; },
                          [](continue_label_error const&) -> std::string { return "continue_label_error"; },
                          [](break_error const&) -> std::string { return "break_error"; },
                          [](break_label_error const&) -> std::string { return "break_label_error"; },
                          [](label_duplication_error const&) -> std::string { return "label_duplication_error"; },
                          [](return_error const&) -> std::string { return "return_error"; },
                          [](left_hand_side_error const&) -> std::string { return "left_hand_side_error"; },
                      },
                      e);
}

std::optional<syntax_failure> check_syntax(bool in_function, label_set const& labels, source_elements const& statements) {
    checker c{.in_function = in_function};
    if (!labels.empty()) {
        c.stack.push_back(checker::enclosing{.type = statement_type::other, .labels = labels});
    }
    c.check_elements(statements);
    return c.failure;
}

} // namespace vellum::js::eval

namespace vellum::js::eval::vm {

namespace {

/// The analysis walk: statements of one body, not entering nested functions.
struct analyser {
    analysis result;

    void on_expr(expr const& root) {
        std::vector<expr const*> todo{&root};
        while (!todo.empty()) {
            expr const& e = *todo.back();
            todo.pop_back();
            if (auto const* call = std::get_if<expr_args>(&e.expr_node)) {
                if (auto const* id = std::get_if<id_expr>(&call->expr_args_callee->expr_node); id && id->id_name == "eval") {
                    result.analysis_flags.has_eval = true;
                }
            } else if (auto const* id = std::get_if<id_expr>(&e.expr_node)) {
                if (id->id_name == "arguments") {
                    result.analysis_flags.has_arguments = true;
                }
            }
            each_child(e, [&](expr const& sub) { todo.push_back(&sub); },
                       [&](vellum::js::func_expr const&) { result.analysis_flags.has_func_expr = true; });
        }
    }

    void on_opt(std::optional<ref<expr>> const& e) {
        if (e) {
            on_expr(**e);
        }
    }

    void on_decls(std::vector<var_decl> const& decls) {
        for (auto const& d : decls) {
            result.analysis_var_names.push_back(d.var_name);
            on_opt(d.var_init);
        }
    }

    void on_elements(source_elements const& list) {
        for (auto const& el : list) {
            std::visit(overloaded{
                           [&](ref<statement> const& s) { on_stmt(*s); },
                           [&](ref<vellum::js::func_decl> const& f) { result.analysis_func_decls.push_back(f); },
                       },
                       el);
        }
    }

    void on_catch(catch_clause const& c) {
        result.analysis_flags.has_catch = true;
        on_elements(c.catch_body);
    }

    void on_stmt(statement const& s) {
        std::visit(overloaded{
                       [&](block_stmt const& b) { on_elements(b.block_body); },
                       [&](variable_stmt const& v) { on_decls(v.variable_decls); },
                       [](empty_stmt const&) {},
                       [&](expr_stmt const& x) { on_expr(*x.expr_value); },
                       [&](if_else_stmt const& x) {
                           on_expr(*x.if_else_test);
                           on_stmt(*x.if_else_then);
                           on_stmt(*x.if_else_else);
                       },
                       [&](if_stmt const& x) {
                           on_expr(*x.if_test);
                           on_stmt(*x.if_then);
                       },
                       [&](do_while_stmt const& x) {
                           on_stmt(*x.do_while_body);
                           on_expr(*x.do_while_test);
                       },
                       [&](while_stmt const& x) {
                           on_expr(*x.while_test);
                           on_stmt(*x.while_body);
                       },
                       [&](for_stmt const& x) {
                           on_opt(x.for_init);
                           on_opt(x.for_test);
                           on_opt(x.for_update);
                           on_stmt(*x.for_body);
                       },
                       [&](for_var_stmt const& x) {
                           on_decls(x.for_var_decls);
                           on_opt(x.for_var_test);
                           on_opt(x.for_var_update);
                           on_stmt(*x.for_var_body);
                       },
                       [&](for_in_stmt const& x) {
                           on_expr(*x.for_in_target);
                           on_expr(*x.for_in_object);
                           on_stmt(*x.for_in_body);
                       },
                       [&](for_in_var_stmt const& x) {
                           result.analysis_var_names.push_back(x.for_in_var_decl.var_name);
                           on_opt(x.for_in_var_decl.var_init);
                           on_expr(*x.for_in_var_object);
                           on_stmt(*x.for_in_var_body);
                       },
                       [](continue_stmt const&) {},
                       [](break_stmt const&) {},
                       [&](return_stmt const& x) { on_opt(x.return_value); },
                       [&](with_stmt const& x) {
                           result.analysis_flags.has_with = true;
                           on_expr(*x.with_object);
                           on_stmt(*x.with_body);
                       },
                       [&](switch_stmt const& x) {
                           on_expr(*x.switch_value);
                           auto clauses = [&](std::vector<case_clause> const& list) {
                               for (auto const& c : list) {
                                   on_expr(*c.case_test);
                                   on_elements(c.case_body);
                               }
                           };
                           clauses(x.switch_cases->first_clauses);
                           if (auto const& d = x.switch_cases->default_and_second_clauses) {
                               on_elements(d->default_body);
                               clauses(d->second_clauses);
                           }
                       },
                       [&](labelled_stmt const& x) { on_stmt(*x.labelled_body); },
                       [&](throw_stmt const& x) { on_expr(*x.throw_value); },
                       [&](try_catch_stmt const& x) {
                           on_elements(x.try_catch_body);
                           on_catch(x.try_catch_catch);
                       },
                       [&](try_finally_stmt const& x) {
                           result.analysis_has_finally = true;
                           on_elements(x.try_finally_body);
                           on_elements(x.try_finally_finally);
                       },
                       [&](try_catch_finally_stmt const& x) {
                           result.analysis_has_finally = true;
                           on_elements(x.try_all_body);
                           on_catch(x.try_all_catch);
                           on_elements(x.try_all_finally);
                       },
                   },
                   s.stmt_node);
    }
};

} // namespace

analysis analyse(source_elements const& statements) {
    analyser a;
    a.on_elements(statements);
    return std::move(a.result);
}

std::optional<int> line_of(func_ops const& f, int offset) {
    line_range const* best = nullptr;
    for (auto const& r : f.line_ranges) {
        if (offset >= r.line_range_offset_start && offset < r.line_range_offset_end &&
            (!best || r.line_range_offset_end - r.line_range_offset_start <
                          best->line_range_offset_end - best->line_range_offset_start)) {
            best = &r;
        }
    }
    if (!best) {
        return std::nullopt;
    }
    return best->line_range_number;
}

} // namespace vellum::js::eval::vm
