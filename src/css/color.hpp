// Colours: the computed colour value, the forms a declaration may write (keywords, hex, rgb(), rgba(),
// cmyk(), spot colours, overprint) and the spot colours that @vellum-color rules define.
#pragma once

#include "css/declaration.hpp"
#include "css/value.hpp"
#include "util/ref.hpp"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vellum::css::color {

struct transparent {
    bool operator==(transparent const&) const = default;
};

/// sRGB, each component from 0 to 1.
struct rgb {
    float r = 0;
    float g = 0;
    float b = 0;
    bool operator==(rgb const&) const = default;
};

/// sRGB with an alpha from 0 (clear) to 1 (opaque).
struct rgba {
    float r = 0;
    float g = 0;
    float b = 0;
    float a = 1;
    bool operator==(rgba const&) const = default;
};

/// Process colour for print, each ink from 0 to 1.
struct cmyk {
    float c = 0;
    float m = 0;
    float y = 0;
    float k = 0;
    bool operator==(cmyk const&) const = default;
};

/// A spot colour: an ink known by name, at a tint from 0 to 1.
struct named_color {
    std::string named_color_name;
    float named_color_tint = 1;
    bool operator==(named_color const&) const = default;
};

/// How overprinting treats zero components of a process colour (the PDF overprint mode).
enum class overprint_mode { overprint_mode_zero, overprint_mode_nonzero };

struct color;

/// A colour painted without knocking out the inks below it.
struct vellum_overprint {
    ref<color> overprint_color;
    css::color::overprint_mode overprint_mode = css::color::overprint_mode::overprint_mode_nonzero;
    bool operator==(vellum_overprint const& other) const;
};

using color_alternative = std::variant<transparent, rgb, rgba, cmyk, named_color, vellum_overprint>;

/// A computed colour.
struct color : color_alternative {
    using color_alternative::color_alternative;
};

/// "currentColor": the element's own colour, or the parent's in the color property itself.
struct current_color {
    bool operator==(current_color const&) const = default;
};

/// A colour as a declaration holds it.
using spec_color = std::variant<color, current_color>;

/// A spot colour defined by @vellum-color, with the process colour that stands in for it where the ink
/// is not available.
struct color_rule {
    std::string color_name;
    std::optional<color> alternate_color;
    bool operator==(color_rule const&) const = default;
};

/// Opaque black, the initial colour of text.
inline color black() {
    return rgb{0, 0, 0};
}

/// The colour keyword, lower-cased, of the CSS colour table; "transparent" included.
[[nodiscard]] std::optional<color> named(std::string_view name);

/// A colour from a term: a keyword, "#rgb"/"#rrggbb", or one of the colour functions.
[[nodiscard]] std::optional<color> parse_color(value::value const& v);

/// A colour or "currentColor".
[[nodiscard]] std::optional<spec_color> parse_spec_color(value::value const& v);

/// A colour from text, as attributes and scripts give it.
[[nodiscard]] std::optional<color> parse_color_text(std::string_view text);

/// The spot colour of one @vellum-color rule, from its declarations (alternate-color).
color_rule color_rule_of(std::string const& name, declarations const& decls);

/// All spot colours of a set of @vellum-color rules, by name.
std::map<std::string, color_rule> color_rules_of(std::map<std::string, declarations> const& rules);

/// The colour as text for scripts and the log: "#rrggbb" for sRGB.
std::string to_text(color const& c);

} // namespace vellum::css::color
