#include "document/input.hpp"

#include "document/libhtml.hpp"
#include "document/libxml/parser.hpp"
#include "document/xhtml.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <cctype>
#include <cstring>
#include <mutex>

#include <libxml/xmlreader.h>

namespace vellum::document::input {

namespace {

std::string lower_extension(std::string const& path) {
    auto const slash = path.find_last_of('/');
    auto const dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) {
        c = char(std::tolower(static_cast<unsigned char>(c)));
    }
    return ext;
}

void silent_generic(void*, char const*, ...) {}

void silent_structured(void*, xmlError*) {}

void flag_error(void* flag, char const*, xmlParserSeverities, xmlTextReaderLocatorPtr) {
    *static_cast<bool*>(flag) = true;
}

enum class verdict { xml, not_xml, undecided };

bool equals(xmlChar const* s, char const* text) {
    return s && std::strcmp(reinterpret_cast<char const*>(s), text) == 0;
}

verdict judge_node(xmlTextReaderPtr reader) {
    switch (xmlTextReaderNodeType(reader)) {
    case XML_READER_TYPE_PROCESSING_INSTRUCTION:
    case XML_READER_TYPE_XML_DECLARATION:
        return verdict::xml;
    case XML_READER_TYPE_ELEMENT:
        while (xmlTextReaderMoveToNextAttribute(reader) == 1) {
            if (equals(xmlTextReaderConstName(reader), "xmlns") ||
                equals(xmlTextReaderConstPrefix(reader), "xml") ||
                equals(xmlTextReaderConstPrefix(reader), "xmlns")) {
                return verdict::xml;
            }
        }
        return verdict::not_xml;
    case XML_READER_TYPE_DOCUMENT_TYPE: {
        xmlNodePtr node = xmlTextReaderCurrentNode(reader);
        if (!node || node->type != XML_DTD_NODE) {
            return verdict::undecided;
        }
        auto const* dtd = reinterpret_cast<xmlDtd const*>(node);
        if (!dtd->SystemID) {
            return dtd->children || dtd->ExternalID ? verdict::xml : verdict::not_xml;
        }
        std::string const system = reinterpret_cast<char const*>(dtd->SystemID);
        if (system.find("XHTML") != std::string::npos) {
            return verdict::xml;
        }
        if (system.find("HTML") != std::string::npos ||
            system.find("HyperText Markup Language") != std::string::npos) {
            return verdict::not_xml;
        }
        return verdict::undecided;
    }
    default:
        return verdict::undecided;
    }
}

} // namespace

bool is_xml_file(std::string const& filename) {
    std::lock_guard guard(process_lock());
    xmlSetGenericErrorFunc(nullptr, silent_generic);
    xmlSetStructuredErrorFunc(nullptr, silent_structured);
    bool answer = false;
    // No network and no DTD: the sniffer looks at the file alone.
    xmlTextReaderPtr reader = xmlReaderForFile(filename.c_str(), nullptr,
                                               XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (reader) {
        bool error_seen = false;
        xmlTextReaderSetErrorHandler(reader, flag_error, &error_seen);
        bool first = true;
        // Asking the reader for its document hands the document over to the caller, who frees it.
        xmlDocPtr taken = nullptr;
        while (xmlTextReaderRead(reader) == 1 && !error_seen) {
            if (first) {
                first = false;
                // The parser leaves the standalone field at -1 unless the file began with an XML
                // declaration (which sets it to -2 when it names no standalone value).
                xmlDocPtr doc = xmlTextReaderCurrentDoc(reader);
                taken = doc;
                if (doc && doc->standalone != -1) {
                    answer = true;
                    break;
                }
            }
            auto const v = judge_node(reader);
            if (v != verdict::undecided) {
                answer = v == verdict::xml;
                break;
            }
        }
        if (error_seen) {
            answer = false;
        }
        xmlFreeTextReader(reader);
        if (taken) {
            xmlFreeDoc(taken);
        }
    }
    xmlSetGenericErrorFunc(nullptr, nullptr);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    return answer;
}

std::optional<doctype::doctype> input_format(std::optional<doctype::doctype> given,
                                             resource::locator::locator const& src) {
    if (given) {
        return given;
    }
    using namespace resource::locator;
    return std::visit(
        overloaded{
            [](standard_input const&) -> std::optional<doctype::doctype> { return doctype::doctype::html5; },
            [](file const& f) -> std::optional<doctype::doctype> {
                auto const ext = lower_extension(f.file_path.path);
                if (ext == "htm" || ext == "html" || ext == "shtml") {
                    return is_xml_file(f.file_path.path) ? doctype::doctype::xml : doctype::doctype::html5;
                }
                return doctype::doctype::xml;
            },
            [](web const&) -> std::optional<doctype::doctype> { return std::nullopt; },
            [](data const&) -> std::optional<doctype::doctype> { return std::nullopt; },
            [](other const&) -> std::optional<doctype::doctype> { return std::nullopt; },
            [](invalid const&) -> std::optional<doctype::doctype> { return std::nullopt; },
            [](unresolvable const&) -> std::optional<doctype::doctype> { return std::nullopt; },
        },
        src.locator_url);
}

doctype::doctype doctype_of_content_type(std::optional<std::string> const& content_type) {
    if (!content_type) {
        return doctype::doctype::html5;
    }
    std::string type = content_type->substr(0, content_type->find(';'));
    std::string lower;
    for (char c : type) {
        if (c != ' ' && c != '\t') {
            lower += char(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return lower == "text/html" ? doctype::doctype::html5 : doctype::doctype::xml;
}

std::string_view doctype_word(doctype::doctype d) {
    switch (d) {
    case doctype::doctype::xml:
        return "XML";
    case doctype::doctype::html4:
        return "HTML4";
    case doctype::doctype::html5:
        return "HTML5";
    }
    return "HTML5";
}

std::optional<xml::document> load_document(log::log const& log,
                                           resource::locator::locator const& src,
                                           doctype::doctype doctype,
                                           std::optional<resource::locator::locator> const& base,
                                           xml::xml_options const& options,
                                           fetch_function const& fetch,
                                           std::optional<bytes::bytes> const& data) {
    libxml::parser::parse_request const request{
        .request_locator = src, .request_base = base, .request_options = options, .request_fetch = fetch};
    switch (doctype) {
    case doctype::doctype::xml:
        return data ? libxml::parser::read_xml_memory(log, request, *data)
                    : libxml::parser::read_xml(log, request);
    case doctype::doctype::html4:
        return data ? libxml::parser::read_html4_memory(log, request, *data)
                    : libxml::parser::read_html4(log, request);
    case doctype::doctype::html5: {
        if (data) {
            return libhtml::parse_html5_bytes(log, src, *data);
        }
        auto const fetched = fetch(src);
        if (!fetched) {
            log::log_file_message(log, log::level::error, resource::locator::locator_to_string(src),
                                  fetched.error());
            return std::nullopt;
        }
        return libhtml::parse_html5_bytes(log, src, fetched->fetched_bytes, fetched->fetched_charset);
    }
    }
    return std::nullopt;
}

prepared_document prepare_document(log::log const& log,
                                   doctype::doctype doctype,
                                   xml::document const& doc,
                                   dom::doc_style_info const& style_info,
                                   resource::locator::locator const& base,
                                   metadata::metadata const& job_metadata) {
    prepared_document out{.prepared_xmltype = doctype::sniff_xmltype(doc),
                          .prepared_metadata = job_metadata,
                          .prepared_base = base};
    log::log_debug(log, "sniffed doctype: " + std::string(doctype::xmltype_name(out.prepared_xmltype)));
    if (std::holds_alternative<doctype::xmltype_xhtml>(out.prepared_xmltype)) {
        auto const head = xhtml::read_head(doc);
        out.prepared_metadata = xhtml::merge_metadata(job_metadata, xhtml::head_metadata(head));
        if (head.xhtml_base) {
            out.prepared_base = resource::locator::resolve_locator(base, *head.xhtml_base);
        }
    }
    out.prepared_dom =
        dom::new_dom_document(doctype, out.prepared_xmltype, style_info, out.prepared_base, doc);
    return out;
}

} // namespace vellum::document::input
