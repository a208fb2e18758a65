// What the system reads from an HTML document's head: its title, meta names and base URL, and how these
// become the document metadata of the PDF.
#pragma once

#include "document/xml.hpp"
#include "pdf/metadata.hpp"

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::xhtml {

/// A meta element's name without a scheme (lower case).
struct meta_name {
    std::string meta_name_value;
    bool operator==(meta_name const&) const = default;
};

/// A meta element's name with the scheme it was given in.
struct meta_scheme_name {
    std::string meta_scheme;
    std::string meta_name_value;
    bool operator==(meta_scheme_name const&) const = default;
};

/// The key of a meta element.
using meta = std::variant<meta_name, meta_scheme_name>;

/// What the head says.
struct xhtml {
    std::optional<std::string> xhtml_title;
    /// Meta keys with their content, in document order.
    std::vector<std::pair<vellum::xhtml::meta, std::string>> xhtml_meta;
    std::optional<std::string> xhtml_base;
    bool operator==(xhtml const&) const = default;
};

/// Reads the head of a document whose root is "html", in the XHTML namespace or none. Other documents, and
/// documents without a head, give an empty record.
xhtml read_head(xml::document const& doc);

/// The metadata the head gives: title, subject, author, keywords, creator (generator) and creation date.
metadata::metadata head_metadata(xhtml const& head);

/// The job's metadata with each absent or empty field filled from the head's.
metadata::metadata merge_metadata(metadata::metadata const& given, metadata::metadata const& from_head);

/// Collapses runs of white space into single blanks and trims both ends.
std::string collapse_white_space(std::string_view text);

/// Parses an ISO date: "YYYY", "YYYY-MM", "YYYY-MM-DD", optionally "THH:MM" or "THH:MM:SS" with an
/// ignored zone suffix.
[[nodiscard]] std::optional<metadata::date> parse_iso_date(std::string_view text);

} // namespace vellum::xhtml
