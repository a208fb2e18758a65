// Names and references: finding an identifier on the scope chain, and reading, writing, deleting and
// taking `typeof` through the reference found.
#pragma once

#include "js/value.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace vellum::js::eval {

struct js;

/// Walks the scope chain, innermost first: the global object and `with` objects give an object
/// reference if they have the name (own or inherited), a catch scope a catch reference, a function's
/// variables a variable reference; nothing gives a baseless reference.
reference lookup(js& engine, std::vector<scope> const& scope_chain, std::string_view name);

/// The value a reference names; a baseless reference throws "no such property: " and the name.
[[nodiscard]] expr_res<js_value> get_value(js& engine, reference const& r);

/// Stores through a reference; a baseless reference creates the property on the global object.
[[nodiscard]] expr_res<js_value> put_value(js& engine, reference const& r, js_value const& value);

/// `delete` through a reference: true for a baseless one, false for a catch name, otherwise as the
/// object or variable decides (a variable that may be deleted loses its name).
bool delete_reference(reference const& r);

/// The `this` of a call through a reference: the base object of an object reference; the global object
/// for a catch name or a function variable; `undefined` (hence the global object) for a baseless one.
js_value this_of_reference(js const& engine, reference const& r);

/// `typeof` through a reference: "undefined" for a baseless one rather than an error.
[[nodiscard]] expr_res<std::string> typeof_reference(js& engine, reference const& r);

} // namespace vellum::js::eval
