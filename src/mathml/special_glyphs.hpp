// Outlines of stretchy operators for fonts that have no MATH table: "math/glyphs.xml" gives for each
// operator its outline in ems, each point with the share of the extra width and height by which it
// moves, so that a stretched parenthesis keeps its ends and lengthens its stem.
#pragma once

#include "driver/log.hpp"
#include "resource/loader.hpp"
#include "svg/svg.hpp"
#include "util/result.hpp"

#include <map>
#include <string>
#include <variant>
#include <vector>

namespace vellum::mathml::special_glyphs {

/// A point in ems, y upward from the baseline; dw and dh say how much of the extra width and height it
/// moves by.
struct glyph_point {
    double x = 0;
    double y = 0;
    double dw = 0;
    double dh = 0;
    bool operator==(glyph_point const&) const = default;
};

struct point {
    glyph_point at;
    bool operator==(point const&) const = default;
};

struct q_curveto {
    glyph_point control;
    glyph_point end;
    bool operator==(q_curveto const&) const = default;
};

using glyph_command = std::variant<point, q_curveto>;

/// An outline: closed contours, each starting with a point; the width, height and depth unstretched.
struct mglyph {
    double glyph_width = 0;
    double glyph_up = 0;
    double glyph_down = 0;
    std::vector<std::vector<glyph_command>> glyph_contours;
    bool operator==(mglyph const&) const = default;
};

/// The outlines by operator text.
using mglyphs = std::map<std::string, mglyph>;

/// Reads the text of a glyphs file.
[[nodiscard]] result<mglyphs> parse_glyphs(std::string_view text);

/// The outlines of the run, read once from the prefix; a file that fails to load is logged and
/// operators are then stretched by scaling their glyphs.
mglyphs const& load_glyphs(log::log const& log, resource::loader::loader const& l);

/// The path of an outline at a size, stretched by extra width and height (points), in the y-down space
/// of a box whose baseline origin is at (0, 0).
std::vector<svg::command>
stretched_path(mglyph const& g, double size, double extra_width, double extra_height);

} // namespace vellum::mathml::special_glyphs
