// The script phase of a document: the command line's scripts, then the document's own `script`
// elements in tree order, the `DOMContentLoaded` and `load` events and the timers, all before style is
// applied; and the decision whether the engine is still needed after it.
#pragma once

#include "document/dom.hpp"
#include "driver/log.hpp"
#include "host/hostjs.hpp"
#include "resource/loader.hpp"
#include "resource/locator.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vellum::hostjs {

/// A `script` element of a document: its external source, or its text.
struct document_script {
    std::optional<resource::locator::locator> script_src;
    std::string script_text;
    /// Where the text stands, for messages about inline scripts: the document.
    resource::locator::locator script_where;
    /// The element itself.
    dom::element_ref script_element;
};

/// Whether an element is a `script` element of HTML (in the XHTML namespace or in none).
bool is_html_script(dom::dom_element const& e);

/// Whether a `script` element holds JavaScript: no `type`, an empty one, or a JavaScript media type
/// (parameters and blanks aside, in any case).
bool holds_javascript(dom::dom_element const& e);

/// Text without the white space at either end.
std::string trimmed(std::string const& s);

/// The `script` elements of a document in tree order that hold JavaScript (no `type`, an empty one, or a
/// JavaScript media type), with `src` resolved against the element's base.
std::vector<document_script> document_scripts(dom::document_ref const& doc);

/// Hands the external scripts of a document to the loader's prefetch threads, so that their loads
/// overlap with the work before they run.
void prefetch_document_scripts(log::log const& log, resource::loader::loader const& loader, dom::document_ref const& doc);

/// Loads a script: the bytes as text, or the reason it failed ("Unknown JavaScript MIME type: " for a
/// resource of another type).
[[nodiscard]] result<std::string> load_script(log::log const& log, resource::loader::loader const& loader,
                                              resource::locator::locator const& where);

/// Runs the script phase of a document if the command line names scripts or enables the document's own:
/// "Running scripts...", the scripts, the events and the timers. The result says whether the engine is
/// kept (`host_js_used`) or was dropped (`host_js_unused`); `host_js_disabled` if scripts are off. The
/// document's source text, when given, lets messages about inline scripts give lines of the document.
opt_host_js run_script_phase(log::log const& log,
                             std::shared_ptr<resource::loader::loader const> const& loader,
                             host_settings const& settings,
                             dom::doc_style_info const& style_info,
                             dom::document_ref const& doc,
                             std::string_view doc_source = {});

/// A read-evaluate-print loop on a stream: runs the files first, then each line read is evaluated as
/// global code and its value printed to `out`; uncaught exceptions are reported and the loop goes on.
/// With `prompt`, "js> " is written before each line.
void run_shell(log::log const& log,
               std::shared_ptr<resource::loader::loader const> const& loader,
               host_settings const& settings,
               std::vector<resource::locator::locator> const& files,
               std::FILE* in,
               std::FILE* out,
               bool prompt);

} // namespace vellum::hostjs
