// Reading an input document: choosing its parser (the input-format table and the XML sniffer for files
// named like HTML), parsing it into the plain tree, and preparing the living tree with the metadata that
// its head gives.
#pragma once

#include "document/doctype.hpp"
#include "document/dom.hpp"
#include "document/libxml/io.hpp"
#include "document/style_info.hpp"
#include "document/xml.hpp"
#include "document/xml_options.hpp"
#include "driver/log.hpp"
#include "pdf/metadata.hpp"
#include "resource/locator.hpp"
#include "util/bytes.hpp"

#include <optional>
#include <string>

namespace vellum::document::input {

using fetch_function = libxml::io::fetch_function;

/// Whether a local file is XML: it declares itself XML, has a processing instruction first, an XHTML
/// doctype, or a first element with namespace attributes.
bool is_xml_file(std::string const& filename);

/// The parser for an input document from `--input` and the locator. Nothing means that the resource must
/// be fetched first and its content type decides (see doctype_of_content_type).
[[nodiscard]] std::optional<doctype::doctype> input_format(std::optional<doctype::doctype> given,
                                                           resource::locator::locator const& src);

/// The parser for a fetched resource by its content type: XML unless the type is HTML; HTML5 without one
/// (and when the fetch failed, so that the HTML5 reader reports the failure).
doctype::doctype doctype_of_content_type(std::optional<std::string> const& content_type);

/// The word for the "loading ... input: " message: "HTML4", "XML" or "HTML5".
std::string_view doctype_word(doctype::doctype d);

/// Parses one document with the chosen parser. The bytes are given for standard input; otherwise they are
/// read through the fetch function. Parser messages are logged; nothing comes back when no document
/// resulted (the caller logs "could not load input file").
[[nodiscard]] std::optional<xml::document>
load_document(log::log const& log,
              resource::locator::locator const& src,
              doctype::doctype doctype,
              std::optional<resource::locator::locator> const& base,
              xml::xml_options const& options,
              fetch_function const& fetch,
              std::optional<bytes::bytes> const& data = std::nullopt);

/// A document ready for scripts and style.
struct prepared_document {
    dom::document_ref prepared_dom;
    doctype::xmltype prepared_xmltype;
    /// The job's metadata completed from the head.
    metadata::metadata prepared_metadata;
    /// The base URL, replaced by the head's base element if there is one.
    resource::locator::locator prepared_base;
};

/// Classifies the document, reads an XHTML head into the metadata (fields the job already has stay) and
/// its base, and builds the living tree.
prepared_document prepare_document(log::log const& log,
                                   doctype::doctype doctype,
                                   xml::document const& doc,
                                   dom::doc_style_info const& style_info,
                                   resource::locator::locator const& base,
                                   metadata::metadata const& job_metadata);

} // namespace vellum::document::input
