// An @font-face rule as the font database registers it: family, descriptors that matching compares, the
// unicode-range, and the sources in the order written. Also the reading of such rules from the
// declarations that the CSS parser keeps for each @font-face block.
#pragma once

#include "css/declaration.hpp"
#include "resource/locator.hpp"
#include "text/fonts/match.hpp"
#include "text/truetype.hpp"
#include "text/unicode/range.hpp"
#include "util/result.hpp"

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::fonts::font_face {

/// url(...): a font file.
struct src_url {
    resource::locator::locator url_locator;
    bool operator==(src_url const&) const = default;
};

/// local(name): a face of the system fonts, found by family name.
struct src_local {
    std::string local_name;
    bool operator==(src_local const&) const = default;
};

/// vellum-lookup(name): the faces of another family, matched with the same properties.
struct src_lookup {
    std::string lookup_name;
    bool operator==(src_lookup const&) const = default;
};

using font_src = std::variant<src_url, src_local, src_lookup>;

/// One @font-face rule.
struct font_face {
    std::string face_family;
    match::font_style face_style = match::font_style::normal;
    truetype::truetype_weight face_weight = truetype::truetype_weight::normal;
    truetype::truetype_width face_width = truetype::truetype_width::normal;
    match::font_variant face_variant = match::font_variant::normal;
    /// Absent: every character.
    std::optional<unicode::range::unicode_range> face_range;
    std::vector<font_src> face_srcs;
    bool operator==(font_face const&) const = default;
};

/// Turns the URL of a src descriptor (text and the base it was written against) into a locator.
using url_resolver =
    std::function<resource::locator::locator(std::string const& text, std::string const& base)>;

/// Reads the declarations of one @font-face block. A rule without a family or without a usable
/// source fails with a message; unknown descriptors and values the rule cannot use are passed over.
[[nodiscard]] result<font_face> read_font_face(css::declarations const& decls, url_resolver const& resolve);

/// The resolver for the program's own style sheets: names are resolved against the sheet's locator
/// with the system origin.
url_resolver system_resolver(resource::locator::locator const& sheet);

/// The CSS keyword of a weight, as "normal", "bold" or "600".
char const* weight_keyword(truetype::truetype_weight w);

/// The CSS keyword of a width, as "semi-condensed".
char const* width_keyword(truetype::truetype_width w);

} // namespace vellum::fonts::font_face
