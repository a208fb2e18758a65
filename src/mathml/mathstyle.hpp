// The inherited state of MathML layout: each element that changes it (mstyle, scripts, fractions,
// token attributes) makes a changed copy for its children.
#pragma once

#include "css/color.hpp"
#include "css/style.hpp"
#include "text/fonts/fonts.hpp"
#include "util/ref.hpp"

#include <map>
#include <optional>
#include <string>

namespace vellum::mathml::mathstyle {

struct mathstyle {
    /// The CSS style of the math element, which text runs are painted with.
    ref<css::style::style> css_style;
    css::color::color color = css::color::black();
    /// Font family, style and weight as the font database asks for them.
    fonts::font_query fontquery;
    double fontsize = 12;
    std::optional<css::color::color> mathbackground;
    bool displaystyle = false;
    int scriptlevel = 0;
    double scriptsizemultiplier = 0.71;
    double scriptminsize = 8;
    /// A mathvariant set by mstyle, for the tokens inside.
    std::optional<std::string> mathvariant;
    /// Attributes that mstyle sets for the elements inside, by name: those of mo (form, lspace, rspace,
    /// stretchy, symmetric, maxsize, minsize, largeop, movablelimits, accent), of mfrac (linethickness,
    /// numalign, denomalign, bevelled), of mfenced (open, close, separators) and the script shifts.
    std::map<std::string, std::string> inherited;
};

/// The style of a math element whose CSS style is given: its colour, fonts and size.
mathstyle initial(ref<css::style::style> const& css);

/// The style after a change of script level by `change` (may be negative): the size is multiplied by
/// the script size multiplier once per level, but not below the minimum size (nor made larger by it).
mathstyle with_scriptlevel(mathstyle s, int change);

/// The style of the parts of a script or fraction: no display style, and the level `change` deeper.
mathstyle for_script(mathstyle s, int change);

} // namespace vellum::mathml::mathstyle
