// What the command line says about style and scripts, shared by every input document: the media, user
// style sheets and scripts, page rules for all pages, and the three switches.
#pragma once

#include "resource/locator.hpp"

#include <string>
#include <vector>

namespace vellum::dom {

/// Which page descriptor a pending page declaration is for.
enum class page_decl_kind { margin, size };

/// A page declaration from the command line, still as the user wrote it.
// The style sheets' collection turns each into a page rule for all pages at user origin, where a value
// that is no size or margin is warned about.
struct pending_page_decl {
    page_decl_kind decl_kind = page_decl_kind::size;
    std::string decl_text;
    bool operator==(pending_page_decl const&) const = default;
};

/// The command line's word on style and scripts, per document.
struct doc_style_info {
    std::string media = "print";
    std::vector<resource::locator::locator> user_style_sheets;
    std::vector<resource::locator::locator> user_scripts;
    /// The margin declaration stands before the size declaration.
    std::vector<pending_page_decl> page_pdecls;
    bool use_default_style = true;
    bool use_author_style = true;
    bool use_author_scripts = false;
    bool operator==(doc_style_info const&) const = default;
};

} // namespace vellum::dom
