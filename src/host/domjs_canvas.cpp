// Where the DOM bindings meet canvas drawing: `getContext`, the reset of a canvas whose size a script
// changes, and the canvas interfaces at their place in the interface order.
// FIXME: the drawing context comes with the canvas module; until then a canvas has no context, and a
// script that asks for one is told so once.
#include "host/domjs_internal.hpp"

namespace vellum::domjs {

e::js_value canvas_get_context(e::js& engine, dom::dom_element&, std::string_view kind) {
    if (kind == "2d") {
        log::log_warning_once(engine.js_log, "canvas drawing is not yet supported: getContext(\"2d\") gives null");
    }
    return e::js_null{};
}

void canvas_reset(dom::dom_element& canvas) {
    if (canvas.dom_element_canvas_context) {
        canvas.dom_element_canvas_context->set(dom::canvas_context{dom::element_canvas_size(canvas)});
    }
}

void canvas_install(e::js&) {}

} // namespace vellum::domjs
