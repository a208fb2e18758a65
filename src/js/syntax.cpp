#include "js/syntax.hpp"

#include <memory>

namespace vellum::js {

namespace {

// Freeing a tree by the default destructors recurses once per level. Instead, a node's destructor hands
// its children to a queue, and the outermost destructor empties the queue; every destructor then runs
// at a constant depth whatever the shape of the tree.
struct release_queue {
    std::vector<std::shared_ptr<void const>> queued;
    bool draining = false;
};

thread_local release_queue releases;

template <class T>
void defer(ref<T>& r) {
    if (r) {
        releases.queued.push_back(std::move(r));
    }
}

template <class T>
void defer(std::optional<ref<T>>& r) {
    if (r) {
        defer(*r);
    }
}

void defer_all(std::vector<ref<expr>>& list) {
    for (auto& e : list) {
        defer(e);
    }
}

void defer_all(source_elements& list) {
    for (auto& el : list) {
        std::visit([](auto& r) { defer(r); }, el);
    }
}

void defer_all(std::vector<var_decl>& list) {
    for (auto& d : list) {
        defer(d.var_init);
    }
}

void drain() {
    if (releases.draining) {
        return;
    }
    releases.draining = true;
    while (!releases.queued.empty()) {
        auto last = std::move(releases.queued.back());
        releases.queued.pop_back();
        last.reset(); // may queue more
    }
    releases.draining = false;
}

} // namespace

expr::~expr() {
    std::visit(overloaded{
                   [](binary_expr& e) {
                       defer(e.binary_left);
                       defer(e.binary_right);
                   },
                   [](logical_expr& e) {
                       defer(e.logical_left);
                       defer(e.logical_right);
                   },
                   [](assign_expr& e) {
                       defer(e.assign_target);
                       defer(e.assign_value);
                   },
                   [](prefix_expr& e) { defer(e.prefix_operand); },
                   [](postfix_expr& e) { defer(e.postfix_operand); },
                   [](conditional_expr& e) {
                       defer(e.conditional_test);
                       defer(e.conditional_then);
                       defer(e.conditional_else);
                   },
                   [](new_expr& e) {
                       defer(e.new_callee);
                       defer_all(e.new_args);
                   },
                   [](expr_args& e) {
                       defer(e.expr_args_callee);
                       defer_all(e.expr_args_args);
                   },
                   [](expr_expr& e) {
                       defer(e.expr_expr_object);
                       defer(e.expr_expr_index);
                   },
                   [](expr_id& e) { defer(e.expr_id_object); },
                   [](number_expr&) {},
                   [](id_expr&) {},
                   [](string_expr&) {},
                   [](regexp_ob&) {},
                   [](bool_expr&) {},
                   [](null_expr&) {},
                   [](this_expr&) {},
                   [](array_expr& e) {
                       if (auto* els = std::get_if<array_elements>(&e.array_value)) {
                           for (auto& el : els->elements_list) {
                               defer(el.element_value);
                           }
                       }
                   },
                   [](object_expr& e) {
                       for (auto& [name, value] : e.object_props) {
                           defer(value);
                       }
                   },
                   [](func_expr_expr& e) { defer(e.func_value); },
               },
               expr_node);
    drain();
}

statement::~statement() {
    std::visit(overloaded{
                   [](block_stmt& s) { defer_all(s.block_body); },
                   [](variable_stmt& s) { defer_all(s.variable_decls); },
                   [](empty_stmt&) {},
                   [](expr_stmt& s) { defer(s.expr_value); },
                   [](if_else_stmt& s) {
                       defer(s.if_else_test);
                       defer(s.if_else_then);
                       defer(s.if_else_else);
                   },
                   [](if_stmt& s) {
                       defer(s.if_test);
                       defer(s.if_then);
                   },
                   [](do_while_stmt& s) {
                       defer(s.do_while_body);
                       defer(s.do_while_test);
                   },
                   [](while_stmt& s) {
                       defer(s.while_test);
                       defer(s.while_body);
                   },
                   [](for_stmt& s) {
                       defer(s.for_init);
                       defer(s.for_test);
                       defer(s.for_update);
                       defer(s.for_body);
                   },
                   [](for_var_stmt& s) {
                       defer_all(s.for_var_decls);
                       defer(s.for_var_test);
                       defer(s.for_var_update);
                       defer(s.for_var_body);
                   },
                   [](for_in_stmt& s) {
                       defer(s.for_in_target);
                       defer(s.for_in_object);
                       defer(s.for_in_body);
                   },
                   [](for_in_var_stmt& s) {
                       defer(s.for_in_var_decl.var_init);
                       defer(s.for_in_var_object);
                       defer(s.for_in_var_body);
                   },
                   [](continue_stmt&) {},
                   [](break_stmt&) {},
                   [](return_stmt& s) { defer(s.return_value); },
                   [](with_stmt& s) {
                       defer(s.with_object);
                       defer(s.with_body);
                   },
                   [](switch_stmt& s) {
                       defer(s.switch_value);
                       defer(s.switch_cases);
                   },
                   [](labelled_stmt& s) { defer(s.labelled_body); },
                   [](throw_stmt& s) { defer(s.throw_value); },
                   [](try_catch_stmt& s) {
                       defer_all(s.try_catch_body);
                       defer_all(s.try_catch_catch.catch_body);
                   },
                   [](try_finally_stmt& s) {
                       defer_all(s.try_finally_body);
                       defer_all(s.try_finally_finally);
                   },
                   [](try_catch_finally_stmt& s) {
                       defer_all(s.try_all_body);
                       defer_all(s.try_all_catch.catch_body);
                       defer_all(s.try_all_finally);
                   },
               },
               stmt_node);
    drain();
}

} // namespace vellum::js
