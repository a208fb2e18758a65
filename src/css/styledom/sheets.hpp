// Gathering a document's style sheets in cascade order: the job's page declarations, the default sheets
// of its kind, user sheets, xml-stylesheet instructions, and style and link elements, all read into one
// parser environment so that declaration numbers run through every sheet.
#pragma once

#include "css/parser.hpp"
#include "css/value.hpp"
#include "document/doctype.hpp"
#include "document/dom.hpp"
#include "driver/log.hpp"
#include "resource/loader.hpp"
#include "resource/locator.hpp"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::styledom::sheets {

/// The resources that url values of a document's sheets are relative to, by the text the parser keeps as
/// their base. The parser knows bases only as text; this table turns them back into locators with their
/// origin, so that a URL in a default sheet stays one of the program's own files.
struct base_table {
    std::map<std::string, resource::locator::locator, std::less<>> bases;
};

/// The text under which a resource stands in the base table and in messages.
std::string base_key(resource::loader::loader const& loader, resource::locator::locator const& loc);

/// Files a locator in the table and returns its key.
std::string add_base(base_table& table, resource::loader::loader const& loader,
                     resource::locator::locator const& loc);

/// The resource a url value names: its text resolved against its base. A base the table doesn't know
/// is read as a document's URL or file name.
resource::locator::locator resolve_url(base_table const& table, css::value::url const& url);

/// The default sheets for a kind of document, in order, as names under "style/".
std::vector<std::string> default_sheets(doctype::xmltype const& kind);

/// Whether a link's rel attribute names a style sheet: a blank-separated list that holds "stylesheet"
/// and not "alternate".
bool rel_accepted(std::string_view rel);

/// The pseudo-attributes of a processing instruction: name="value" or name='value', blank-separated.
/// Reading stops at the first malformed one.
std::map<std::string, std::string> pi_attributes(std::string_view content);

/// Whether a media attribute holds for the medium; one that doesn't parse holds for none.
bool media_attribute_matches(std::string_view media, std::string_view medium);

/// The sheet an xml-stylesheet instruction links, if it is a CSS sheet for this medium and not an
/// alternate, as a URL relative to the document.
[[nodiscard]] std::optional<std::string> xml_stylesheet_href(std::string_view content, std::string_view medium);

/// The sheet a link element names, resolved against its base, if the element links a CSS sheet for the
/// medium.
[[nodiscard]] std::optional<resource::locator::locator> linked_sheet(dom::dom_element const& link,
                                                                     resource::locator::locator const& base,
                                                                     std::string_view medium);

/// The job's page declarations as rules for all pages, at user origin and numbered 0, one per option;
/// a value that doesn't parse is left out with the warning "invalid --page-size: " or
/// "invalid --page-margin: ".
[[nodiscard]] std::vector<css::page_rule::page_rule>
job_page_rules(log::log const& log, std::vector<dom::pending_page_decl> const& pdecls);

/// Whether the loader runs prefetch threads.
bool has_prefetch_threads(resource::loader::loader const& loader);

/// Asks the loader to prefetch the target of every link element that links a sheet for the medium.
void prefetch_links(log::log const& log, resource::loader::loader const& loader, dom::dom_document const& doc);

/// What collecting the sheets gives.
struct collected {
    css::parser::env sheets_env;
    base_table sheets_bases;
};

/// Reads all sheets of a document in cascade order; the warnings of the sheets are logged. In HTML
/// documents type selectors of any namespace are folded to lower case. `known_property` filters the
/// property names that the parser keeps (null keeps all).
collected collect_sheets(log::log const& log,
                         resource::loader::loader const& loader,
                         dom::dom_document const& doc,
                         css::terms::property_filter known_property = nullptr);

} // namespace vellum::styledom::sheets
