// The engine of a run and the conversion of a job: loading each input document, preparing it, the
// packing passes that settle page numbers, and writing the PDF.
#pragma once

#include "css/styledom/styledom.hpp"
#include "document/input.hpp"
#include "prepack/prepack.hpp"
#include "driver/engine_options.hpp"
#include "driver/job.hpp"
#include "driver/log.hpp"
#include "host/hostjs.hpp"
#include "resource/loader.hpp"
#include "text/hyph/hyph.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/shape_cache.hpp"
#include "util/bytes.hpp"
#include "util/result.hpp"

#include <cstdio>
#include <optional>
#include <string>

namespace vellum::engine {

/// The living context of a run; it lives from engine creation to the end of the run.
struct engine {
    resource::loader::loader engine_loader;
    vellum::engine::engine_options engine_options;
    /// The font database, with the rules of style/fonts.css.
    fonts::fonts engine_fonts;
    /// Hyphenation patterns, each file read once in a run.
    std::shared_ptr<hyph::hyph> engine_hyph = std::make_shared<hyph::hyph>();
    /// Words shaped so far, kept from pass to pass.
    std::shared_ptr<fonts::shape_cache::shape_cache> engine_shapes = fonts::shape_cache::make_shape_cache();
};

/// A document after loading and preparation, as far as the stages built so far carry it.
struct loaded_document {
    doctype::doctype doc_doctype = doctype::doctype::html5;
    doctype::xmltype doc_xmltype;
    resource::locator::locator doc_base;
    metadata::metadata doc_metadata;
    metadata::pdf_options doc_pdf_options;
    dom::document_ref doc_dom;
    /// The document after the cascade, with the rules and page rules of its sheets.
    std::shared_ptr<styledom::styled_document const> doc_styled;
    /// The scripts' engine, if they left anything that layout or the end of the run needs.
    hostjs::opt_host_js doc_host_js = hostjs::host_js_disabled{};
    /// The box tree, once "Preparing document..." has made it.
    std::shared_ptr<prepack::pack_document const> doc_boxes;
};

/// Initialises the XML catalog from "dtd/catalog.xml" under the prefix; a failure is a warning.
void load_dtd_catalog(log::log const& log, std::string const& prefix);

/// Creates the engine of a run: the font database opens and reads style/fonts.css from the prefix.
[[nodiscard]] result<engine> new_engine(log::log const& log,
                                       resource::loader::loader const& loader,
                                       engine_options const& options);

/// What `navigator` tells scripts: the program, and the loader's user agent and network setting.
hostjs::host_settings script_settings(resource::loader::loader const& loader);

/// Loads and prepares one input document; nothing if it could not be loaded (the reason is logged).
[[nodiscard]] std::optional<loaded_document> load_input_document(log::log const& log,
                                                                 resource::loader::loader const& loader,
                                                                 job::job const& job,
                                                                 job::input_document const& doc);

/// Converts a job to a PDF; false when the run failed (the reason is logged).
[[nodiscard]] bool convert(log::log const& log, engine const& engine, job::job const& job);

/// Converts a job and writes the PDF to an open stream, whatever output the job names.
[[nodiscard]] bool convert_to_stream(log::log const& log, engine const& engine, job::job const& job, std::FILE* stream);

} // namespace vellum::engine
