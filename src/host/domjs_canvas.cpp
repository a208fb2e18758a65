// Where the DOM bindings meet canvas drawing: `getContext`, the reset of a canvas whose size a script
// changes, and the canvas interfaces at their place in the interface order.
#include "host/canvas.hpp"
#include "host/domjs_internal.hpp"

namespace vellum::domjs {

e::js_value canvas_get_context(e::js& engine, dom::dom_element& canvas_element, std::string_view kind) {
    return canvas::get_context(engine, canvas_element, kind);
}

void canvas_reset(dom::dom_element& canvas_element) {
    canvas::reset_context(canvas_element);
}

void canvas_install(e::js& engine) {
    canvas::install_canvas_interfaces(engine, engine.object_prototype);
}

} // namespace vellum::domjs
