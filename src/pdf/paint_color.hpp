// CSS colours as the painter sets them: a device colour, the opacity that comes with it, and overprint.
// The three shades of a 3D border style are made here too.
#pragma once

#include "css/color.hpp"
#include "pdf/color.hpp"
#include "pdf/content.hpp"

#include <optional>

namespace vellum::pdf::paint_color {

/// A colour ready to paint with.
struct paint {
    color::color paint_color = color::gray{};
    /// From the colour's own alpha; the opacity of the stacking context multiplies it.
    double paint_alpha = 1;
    /// Overprint with this mode (0 or 1), or knock out.
    std::optional<int> paint_overprint_mode;
    bool operator==(paint const&) const = default;
};

/// The paint of a CSS colour; nothing for a transparent one, which paints nothing.
[[nodiscard]] std::optional<paint> paint_of(css::color::color const& c);

/// The lighter or darker shade of a colour for inset, outset, groove and ridge: half way to white or to
/// black for RGB; other spaces keep their value.
color::color lighter(color::color const& c);
color::color darker(color::color const& c);

/// Sets a paint for filling (or stroking) with the context's opacity multiplied in.
void set_fill(content::out const& o, content::gs& g, paint const& p, double context_alpha);
void set_stroke(content::out const& o, content::gs& g, paint const& p, double context_alpha);

} // namespace vellum::pdf::paint_color
