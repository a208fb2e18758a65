// Targets of cross-references: the places of a document that others refer to by a URL with a
// fragment, and what a packing pass learnt about them (their pages, their counters). A reference reads
// the values of the previous pass, since printing a page number may itself move the target.
#pragma once

#include "prepack/prepack.hpp"
#include "resource/locator.hpp"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace vellum::prepack::targets {

/// The three numbers of a page: its place in the PDF, in its document, and its `page` counter.
struct page_num {
    int pdf_page_num = 1;
    int document_page_num = 1;
    int user_page_num = 1;
    bool operator==(page_num const&) const = default;
};

/// Where a target landed: its page and the y of the top of its box on the page.
struct target_place {
    targets::page_num num;
    std::optional<float> y;
    bool operator==(target_place const&) const = default;
};

/// The key of a target in the maps: the document's URL and "#" and the id ("" for the document).
using target_key = std::string;

target_key key_of(target_name const& t);
target_key key_of(resource::locator::locator_url const& doc, std::optional<std::string> const& id);

/// The target a URL written in a document names. A fragment-only URL names the current document;
/// anything else is resolved against the base.
target_name target_of(std::string_view url_text, resource::locator::locator const& doc,
                      resource::locator::locator const& base);

/// The page and position of every target a pass packed; the first box of an id wins.
using target_page_nums = std::map<target_key, target_place>;

/// The counter scopes in force at every target, innermost first.
using target_counters = std::map<target_key, counter_scopes>;

/// What one pass found out about targets, for the next.
struct pass_targets {
    targets::target_page_nums page_nums;
    targets::target_counters counters;
    bool operator==(pass_targets const&) const = default;
};

/// The targets whose page a pass looked up; written during measuring, also by trials that are undone,
/// which only makes the comparison of passes look at one more target.
struct looked_up {
    std::set<target_key> pages;
    /// The targets whose other counters (a chapter's number, say) were looked up.
    std::set<target_key> counters;
    bool pages_total = false;
    /// Some lookup found no answer: a target that neither the previous pass nor this one so far had
    /// placed, or the page total on the first pass. What showed it stands in for a value to come.
    bool unanswered = false;
};

} // namespace vellum::prepack::targets
