// The logical structure of a tagged PDF: structure elements for the document's paragraphs, headings,
// lists, tables and figures, built while the pages are painted, and the marked-content identifiers that
// tie each piece of page content to its element. The tree is written once after the pages.
#pragma once

#include "pdf/object.hpp"
#include "pdf/pdf.hpp"

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::pdf::tagging {

/// A piece of content on a page: the page's index from 0 and its marked-content identifier there.
struct content_ref {
    int ref_page = 0;
    int ref_mcid = 0;
    bool operator==(content_ref const&) const = default;
};

/// A kid of a structure element: another element by its index, or content on a page.
using kid = std::variant<int, content_ref>;

/// A structure element: its standard type ("P", "H1", "Figure"), what replaces a figure in words, its
/// language where it differs from its parent's, its parent and its kids in reading order.
struct element {
    std::string element_role;
    std::optional<std::string> element_alt;
    std::optional<std::string> element_lang;
    int element_parent = -1;
    std::vector<kid> element_kids;
    bool operator==(element const&) const = default;
};

/// What the painter knows of a box that becomes a structure element: the identity of the document
/// element (so that its parts on several pages are one structure element), its type and its texts.
struct element_key {
    void const* key_identity = nullptr;
    std::string key_role;
    std::optional<std::string> key_alt;
    std::optional<std::string> key_lang;
};

/// The structure of a whole document; its root, a "Document" element, has index 0.
class structure {
public:
    structure();

    /// The language of the whole document, which the catalog states; elements state theirs only where
    /// it differs from the one around them.
    void set_language(std::optional<std::string> language) { structure_language = std::move(language); }

    /// The element of a document element, made the first time with the given parent.
    int element_of(element_key const& key, int parent);

    /// A new marked-content identifier on a page for content of the element, noted among its kids.
    int mark(int page, int element);

    /// The elements, the root first.
    std::vector<element> const& elements() const { return structure_elements; }

    /// For each page from 0 that has marked content, the element of each of its identifiers.
    std::map<int, std::vector<int>> const& page_marks() const { return structure_page_marks; }

    /// Writes the structure tree root under `root` with its elements and parent tree; the pages are
    /// found by index.
    void write(writer& w, ref root, std::vector<ref> const& pages) const;

private:
    std::vector<element> structure_elements;
    std::map<void const*, int> structure_known;
    std::map<int, std::vector<int>> structure_page_marks;
    std::optional<std::string> structure_language;
};

/// The standard structure type of an HTML element by its local name; nothing for an element whose
/// content simply belongs to its parent's (inline elements, containers without a meaning of their own).
std::optional<std::string> role_of_html(std::string_view local_name);

} // namespace vellum::pdf::tagging
