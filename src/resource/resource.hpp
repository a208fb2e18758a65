// The type vocabulary of fetched resources: a MIME type with its parameters, the character encoding it
// names, and the category that decides which reader takes the bytes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::resource {

/// The raster image formats the image loader reads.
enum class image_format { gif, jpeg, png, tiff };

struct css {
    bool operator==(css const&) const = default;
};

struct html {
    bool operator==(html const&) const = default;
};

struct xhtml {
    bool operator==(xhtml const&) const = default;
};

struct xml {
    bool operator==(xml const&) const = default;
};

struct svg {
    bool operator==(svg const&) const = default;
};

/// A raster image of one of the known formats.
struct image {
    resource::image_format image_format = resource::image_format::png;
    bool operator==(image const&) const = default;
};

struct font {
    bool operator==(font const&) const = default;
};

struct javascript {
    bool operator==(javascript const&) const = default;
};

/// A type no reader claims.
struct unknown {
    bool operator==(unknown const&) const = default;
};

/// What kind of content a MIME type announces.
using resource_category = std::variant<css, html, xhtml, xml, svg, image, font, javascript, unknown>;

struct utf8 {
    bool operator==(utf8 const&) const = default;
};

struct iso_8859_1 {
    bool operator==(iso_8859_1 const&) const = default;
};

struct ascii {
    bool operator==(ascii const&) const = default;
};

/// A charset the system has no name for, as written (lower case).
struct unknown_encoding {
    std::string encoding_name;
    bool operator==(unknown_encoding const&) const = default;
};

/// The character encoding a "charset" parameter names.
using resource_encoding = std::variant<utf8, iso_8859_1, ascii, unknown_encoding>;

/// A parsed Content-Type (or data URL type).
struct resource_type {
    /// "type/subtype" in lower case.
    std::string mimetype;
    /// The parameters in order, names in lower case, values unquoted.
    std::vector<std::pair<std::string, std::string>> mimetype_params;
    resource_category category = unknown{};
    std::optional<resource::resource_encoding> resource_encoding;
    bool operator==(resource_type const&) const = default;
};

/// Parses a header value such as "text/html; charset=UTF-8".
resource_type parse_resource_type(std::string_view text);

/// The category of a lower-case MIME type.
resource_category category_of_mimetype(std::string_view mimetype);

/// The encoding named by a charset value.
resource_encoding encoding_of_charset(std::string_view charset);

/// The type for messages: the MIME type and its parameters, as "text/html; charset=utf-8".
std::string resource_type_to_string(resource_type const& type);

/// The category for messages: "css", "image/png", "unknown", ...
std::string category_to_string(resource_category const& category);

} // namespace vellum::resource
