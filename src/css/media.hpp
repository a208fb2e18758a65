// Media queries: "print", "not screen", "only print and (color)", as @media, @import and link elements
// write them, and whether they hold for the medium being styled.
#pragma once

#include "css/cursor.hpp"
#include "css/value.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <optional>
#include <utility>
#include <string>
#include <variant>
#include <vector>

namespace vellum::css::media {

/// "(name)" or "(name: value)", the name in lower case.
struct media_feature {
    std::string feature_name;
    std::optional<value::value> feature_value;
    bool operator==(media_feature const&) const = default;
};

using media_expression = media_feature;

/// A media type, in lower case, and the expressions joined to it by "and".
struct media_query {
    std::string media_type;
    std::vector<media_expression> expressions;
    bool operator==(media_query const&) const = default;
};

/// "not" and a query.
struct not_media_query {
    media_query negated_query;
    bool operator==(not_media_query const&) const = default;
};

using query = std::variant<media_query, not_media_query>;

/// A comma-separated list; an empty list holds for every medium.
using query_list = std::vector<query>;

/// Parses a query list at the cursor, up to "{", ";" or the end, which are left in place.
[[nodiscard]] result<query_list> parse_query_list(cursor::cursor& c);

/// Parses the whole text as a query list, as a "media" attribute holds it.
[[nodiscard]] result<query_list> parse_query_text(std::string_view text);

/// Whether a query list holds for the medium; types compare in lower case, "all" fits every medium.
/// With the page's width and height in points, the features width, height (and their min- and max-
/// forms) and orientation are measured against them; without, they hold for nothing.
bool matches(query_list const& list, std::string_view medium,
             std::optional<std::pair<float, float>> const& page = std::nullopt);

} // namespace vellum::css::media
