// Fuzz target for SVG attribute languages: path data (with arcs taken to curves and the path's bounds),
// transform lists, number lists, viewBox and preserveAspectRatio. Nothing may crash, and every number
// that comes out of a path must be finite.
#include "svg/path_data.hpp"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

using namespace vellum::svg;

void check(point p) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    auto const parsed = path_data::parse_path(text);
    for (auto const& c : parsed.path_commands) {
        if (auto const* a = std::get_if<arc>(&c)) {
            for (auto const& k : arc_to_curves(*a)) {
                check(k.control1);
                check(k.control2);
                check(k.c_end);
            }
        }
    }
    (void)path_bbox(parsed.path_commands);
    (void)path_data::parse_transform(text);
    (void)path_data::parse_numbers(text);
    if (auto const vb = path_data::parse_viewbox(text)) {
        (void)view_transform(*vb, path_data::parse_par(text), 0, 0, 100, 100);
    }
    return 0;
}
