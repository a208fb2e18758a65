// The script side of canvas: the `CanvasRenderingContext2D`, `CanvasGradient`, `CanvasPattern`, `ImageData`
// and `SVGMatrix` interfaces, and the "2d" context of a canvas element, which records what scripts draw
// (canvas/record.hpp) for box generation to paint as vector content.
#pragma once

// The loader first: the script engine's header declares its name ahead.
#include "resource/loader.hpp"
#include "js/engine.hpp"
#include "js/value.hpp"

#include <string_view>

namespace vellum::dom {
struct dom_element;
} // namespace vellum::dom

namespace vellum::canvas {

/// Builds the canvas interfaces of an engine, in this order: `SVGMatrix` (a global constructor of six
/// numbers), `CanvasRenderingContext2D`, `ImageData`, `CanvasGradient`, `CanvasPattern`. Their prototypes
/// derive from `object_prototype`.
void install_canvas_interfaces(js::eval::js& engine, js::eval::js_object object_prototype);

/// `HTMLCanvasElement.getContext(kind)`: for "2d" the element's context object, made on first use and the
/// same object afterwards; `null` for any other kind. The interfaces must have been installed.
js::eval::js_value get_context(js::eval::js& engine, dom::dom_element& canvas_element, std::string_view kind);

/// Forgets the element's drawing and context, as setting its `width` or `height` does; the size is read
/// again from the attributes.
void reset_context(dom::dom_element& canvas_element);

} // namespace vellum::canvas
