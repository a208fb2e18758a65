// Lengths as MathML attributes write them: CSS lengths, percentages, bare multipliers and the named
// math spaces (thinmathspace and friends, and their negative forms), resolved to points.
#pragma once

#include <optional>
#include <string_view>
#include <variant>

namespace vellum::mathml::units {

/// The named spaces, in eighteenths of an em.
enum class keyword {
    veryverythinmathspace,
    verythinmathspace,
    thinmathspace,
    mediummathspace,
    thickmathspace,
    verythickmathspace,
    veryverythickmathspace,
};

enum class unit { em, ex, pt, px, in, cm, mm, pc, percent, none };

struct length {
    double length_value = 0;
    units::unit length_unit = unit::none;
    bool operator==(length const&) const = default;
};

struct named {
    units::keyword named_keyword = keyword::thinmathspace;
    /// negativethinmathspace and the like.
    bool named_negative = false;
    bool operator==(named const&) const = default;
};

/// A space or size as written.
using mathspace = std::variant<named, length>;

/// Reads a length, percentage, bare number or named space; nothing for anything else.
[[nodiscard]] std::optional<mathspace> parse_mathspace(std::string_view text);

/// The eighteenths of an em of a named space.
int eighteenths(keyword k);

/// Points: ems and named spaces of `em`, ex of `ex`, percentages and bare numbers of `base`.
double resolve(mathspace const& m, double em, double ex, double base);

} // namespace vellum::mathml::units
