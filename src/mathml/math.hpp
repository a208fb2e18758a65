// The box model of a formula: each element becomes a box with a width, a height above its baseline and
// a depth below it, holding either drawing items of its own or other boxes at offsets. Flattened, the
// boxes give the display list that the page painter draws.
#pragma once

#include "svg/svg.hpp"
#include "util/ref.hpp"

#include <optional>
#include <variant>
#include <vector>

namespace vellum::mathml {

struct math;

/// A box inside another, its baseline origin at (x, y) from the parent's, y growing downward.
struct placed {
    double placed_x = 0;
    double placed_y = 0;
    ref<math> placed_math;
};

/// Drawing items in the box's own space: the origin on the baseline at the left edge, y downward.
struct simple {
    std::vector<svg::svg> simple_items;
};

/// Boxes at offsets, under an optional transform (a glyph scaled to a size).
struct groups {
    std::vector<placed> groups_members;
    std::optional<svg::transform> groups_matrix;
};

using mcontent = std::variant<simple, groups>;

/// How a box sits against its neighbours in a row: on the baseline, or centred on the maths axis.
enum class malign { baseline, axis };

/// What an operator adds to the box that holds it: its text and spacing, for scripts and rows that need
/// to know (limits, italic correction of the base).
struct op_info {
    bool op_largeop = false;
    bool op_movablelimits = false;
    bool op_accent = false;
    bool op_stretched = false;
};

struct math {
    mathml::mcontent mcontent;
    double mwidth = 0;
    /// Height above and depth below the baseline.
    double mup = 0;
    double mdown = 0;
    /// The italic correction of the last glyph: room that a superscript keeps after a slanted letter.
    double mitalic = 0;
    mathml::malign malign = malign::baseline;
    /// Set for an embellished operator.
    std::optional<op_info> mop;
    /// A single token character (its shape decides script placement by the ink, not by the box).
    bool mtoken = false;
};

/// An empty box.
math empty_math();

/// A box of items drawn in its own space.
math simple_math(std::vector<svg::svg> items, double width, double up, double down);

/// A box placed with its baseline origin at (x, y) of its parent's.
placed at(double x, double y, math m);

/// A box of members placed at offsets, with its height and depth from theirs.
math stack(std::vector<placed> members, double width);

/// The items of a box with its baseline origin moved to (x, y), ready for the display list.
std::vector<svg::svg> flatten(math const& m, double x, double y);

/// A filled rectangle in a colour, in the y-down space of a box: left, top, width, height.
svg::svg filled_rect(double x, double y, double w, double h, css::color::color const& c);

/// A filled path.
svg::svg filled_path(std::vector<svg::command> commands, css::color::color const& c);

/// A stroked path of the given width.
svg::svg stroked_path(std::vector<svg::command> commands, double width, css::color::color const& c);

} // namespace vellum::mathml
