#include "js/scope.hpp"

#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"
#include "util/ref.hpp"

namespace vellum::js::eval {

reference lookup(js& engine, std::vector<scope> const& scope_chain, std::string_view name) {
    js_prop_string const key = key_of_utf8(name);
    for (scope const& s : scope_chain) {
        std::optional<reference> found = std::visit(
            overloaded{
                [&](normal_scope const& n) -> std::optional<reference> {
                    if (has_property(engine, n.scope_object, key)) {
                        return object_reference{.ref_base = n.scope_object, .ref_key = key};
                    }
                    return std::nullopt;
                },
                [&](catch_scope const& c) -> std::optional<reference> {
                    if (has_property(engine, c.scope_object, key)) {
                        return catch_reference{.ref_base = c.scope_object, .ref_key = key};
                    }
                    return std::nullopt;
                },
                [&](activation_scope const& a) -> std::optional<reference> {
                    for (std::size_t i = 0; i < a.scope_variables.length(); ++i) {
                        if (a.scope_variables[i].variable_name == name) {
                            return var_reference{.ref_variables = a.scope_variables, .ref_name = std::string(name), .ref_index = i};
                        }
                    }
                    return std::nullopt;
                },
            },
            s);
        if (found) {
            return *found;
        }
    }
    return baseless_reference{.ref_key = key};
}

expr_res<js_value> get_value(js& engine, reference const& r) {
    return std::visit(overloaded{
                          [&](baseless_reference const& b) -> expr_res<js_value> {
                              return throw_error(engine, js_error_res{.error_kind = js_error::get_reference_error,
                                                                      .error_detail = key_to_string(b.ref_key)});
                          },
                          [&](object_reference const& o) { return get(engine, o.ref_base, o.ref_key); },
                          [&](catch_reference const& c) { return get(engine, c.ref_base, c.ref_key); },
                          [](var_reference const& v) -> expr_res<js_value> {
                              return v.ref_variables[v.ref_index].variable_value;
                          },
                      },
                      r);
}

expr_res<js_value> put_value(js& engine, reference const& r, js_value const& value) {
    return std::visit(overloaded{
                          [&](baseless_reference const& b) { return put(engine, engine.global_object, b.ref_key, value); },
                          [&](object_reference const& o) { return put(engine, o.ref_base, o.ref_key, value); },
                          [&](catch_reference const& c) { return put(engine, c.ref_base, c.ref_key, value); },
                          [&](var_reference const& v) -> expr_res<js_value> {
                              variable& var = v.ref_variables[v.ref_index];
                              // A deleted variable that is assigned again is there once more.
                              var.variable_name = v.ref_name;
                              var.variable_value = value;
                              return value;
                          },
                      },
                      r);
}

bool delete_reference(reference const& r) {
    return std::visit(overloaded{
                          [](baseless_reference const&) { return true; },
                          [](object_reference const& o) { return delete_property(o.ref_base, o.ref_key); },
                          [](catch_reference const&) { return false; },
                          [](var_reference const& v) {
                              variable& var = v.ref_variables[v.ref_index];
                              if (var.variable_no_delete) {
                                  return false;
                              }
                              var.variable_name.clear();
                              var.variable_value = undefined();
                              return true;
                          },
                      },
                      r);
}

js_value this_of_reference(js const& engine, reference const& r) {
    return std::visit(overloaded{
                          [](baseless_reference const&) { return undefined(); },
                          [](object_reference const& o) -> js_value { return o.ref_base; },
                          [&](catch_reference const&) -> js_value { return engine.global_object; },
                          [&](var_reference const&) -> js_value { return engine.global_object; },
                      },
                      r);
}

expr_res<std::string> typeof_reference(js& engine, reference const& r) {
    if (std::holds_alternative<baseless_reference>(r)) {
        return std::string("undefined");
    }
    auto v = get_value(engine, r);
    if (auto const* e = std::get_if<exception>(&v)) {
        return *e;
    }
    return type_of(std::get<js_value>(v));
}

} // namespace vellum::js::eval
