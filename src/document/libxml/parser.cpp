#include "document/libxml/parser.hpp"

#include "document/libxml/tree.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <memory>
#include <mutex>
#include <set>
#include <tuple>

#include <libxml/HTMLparser.h>
#include <libxml/parser.h>
#include <libxml/xinclude.h>
#include <libxml/xmlerror.h>

namespace vellum::libxml::parser {

namespace {

enum class format { xml, html4 };

std::string trim_message(char const* message) {
    std::string out = message ? message : "";
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r' || out.back() == ' ')) {
        out.pop_back();
    }
    return out;
}

// Collects each message of libxml2; runs inside libxml2 and must not throw.
void collect_error(void* data, xmlError* err) noexcept {
    if (!data || !err) {
        return;
    }
    try {
        auto& errors = *static_cast<std::vector<libxml_error>*>(data);
        auto const level =
            err->level == XML_ERR_WARNING ? libxml_error_level::warning : libxml_error_level::error;
        if (err->file) {
            errors.push_back(parse_error{level, err->file, err->line, trim_message(err->message)});
        } else {
            errors.push_back(other_error{level, trim_message(err->message)});
        }
    } catch (...) {
        // Out of memory while recording a message: the message is lost, the parse goes on.
    }
}

// The encoding given, if any, overrides what the document itself declares: the transport's word wins.
parse_outcome parse(log::log const& log,
                    format fmt,
                    parse_request const& request,
                    bytes::bytes const& data,
                    std::optional<std::string> const& encoding = std::nullopt) {
    io::install_entity_loader();
    auto const base = request.request_base ? *request.request_base : request.request_locator;
    io::entity_loader_info info{.loader_log = log,
                                .loader_fetch = request.request_fetch,
                                .base = base,
                                .initial = request.request_locator,
                                .use_xinclude = request.request_options.use_xinclude};
    io::context_private record{.info = &info};
    parse_outcome out;
    std::string const url = io::libxml_name(base);
    info.opened[url] = base;
    int const options = fmt == format::xml ? xml_option_word(request.request_options.load_dtd) : 0;
    auto const chars = data.chars();

    std::lock_guard guard(process_lock());
    io::current_parse scope(&record);
    xmlSetStructuredErrorFunc(&out.outcome_errors, collect_error);
    xmlDocPtr doc = nullptr;
    if (fmt == format::xml) {
        xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
        if (ctxt) {
            ctxt->_private = &record;
            doc = xmlCtxtReadMemory(ctxt, chars.data(), static_cast<int>(chars.size()), url.c_str(),
                                    encoding ? encoding->c_str() : nullptr, options);
            xmlFreeParserCtxt(ctxt);
        }
    } else {
        htmlParserCtxtPtr ctxt = htmlNewParserCtxt();
        if (ctxt) {
            ctxt->_private = &record;
            doc = htmlCtxtReadMemory(ctxt, chars.data(), static_cast<int>(chars.size()), url.c_str(),
                                     encoding ? encoding->c_str() : nullptr, options);
            htmlFreeParserCtxt(ctxt);
        }
    }
    if (doc && request.request_options.use_xinclude == xml::use_xinclude::yes) {
        xmlXIncludeProcessFlagsData(doc, options, &record);
    }
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    if (doc) {
        // The plain tree is made and the libxml2 document freed before anything can throw past it.
        std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)> owned(doc, xmlFreeDoc);
        out.outcome_document = tree::convert_document(doc, request.request_locator);
    }
    return out;
}

std::optional<xml::document> read(log::log const& log, format fmt, parse_request const& request) {
    auto const data = request.request_fetch(request.request_locator);
    if (!data) {
        log::log_file_message(log, log::level::error,
                              resource::locator::locator_to_string(request.request_locator), data.error());
        return std::nullopt;
    }
    auto outcome = parse(log, fmt, request, data->fetched_bytes, data->fetched_charset);
    log_errors(log, outcome.outcome_errors);
    return std::move(outcome.outcome_document);
}

} // namespace

int xml_option_word(xml::load_dtd load) {
    int const always = XML_PARSE_NOENT | XML_PARSE_NOCDATA;
    switch (load) {
    case xml::load_dtd::no:
        return always;
    case xml::load_dtd::yes:
        return always | XML_PARSE_DTDLOAD | XML_PARSE_DTDATTR;
    }
    return always;
}

parse_outcome parse_xml_bytes(log::log const& log, parse_request const& request, bytes::bytes const& data) {
    return parse(log, format::xml, request, data);
}

parse_outcome parse_html4_bytes(log::log const& log, parse_request const& request, bytes::bytes const& data) {
    return parse(log, format::html4, request, data);
}

void log_errors(log::log const& log, std::vector<libxml_error> const& errors) {
    auto level_of = [](libxml_error_level l) {
        switch (l) {
        case libxml_error_level::warning:
            return log::level::warning;
        case libxml_error_level::error:
            return log::level::error;
        }
        return log::level::error;
    };
    // libxml2 reports some faults once for every level of the expansion that meets them (an entity
    // loop, say, twenty times without a position and once with one): each text is said once, with its
    // position when any report of it has one.
    std::set<std::string> positioned;
    for (auto const& e : errors) {
        if (auto const* p = std::get_if<parse_error>(&e)) {
            positioned.insert(p->message);
        }
    }
    std::set<std::tuple<std::string, int, std::string>> said;
    for (auto const& e : errors) {
        std::visit(overloaded{
                       [&](parse_error const& p) {
                           if (said.insert({p.filename, p.line_no, p.message}).second) {
                               log::log_file_message(log, level_of(p.level), p.filename, p.message, p.line_no);
                           }
                       },
                       [&](other_error const& o) {
                           if (!positioned.contains(o.message) && said.insert({"", 0, o.message}).second) {
                               log::log_message(log, level_of(o.level), log::source_internal{}, o.message);
                           }
                       },
                   },
                   e);
    }
}

std::optional<xml::document> read_xml(log::log const& log, parse_request const& request) {
    return read(log, format::xml, request);
}

std::optional<xml::document>
read_xml_memory(log::log const& log, parse_request const& request, bytes::bytes const& data) {
    auto outcome = parse(log, format::xml, request, data);
    log_errors(log, outcome.outcome_errors);
    return std::move(outcome.outcome_document);
}

std::optional<xml::document> read_html4(log::log const& log, parse_request const& request) {
    return read(log, format::html4, request);
}

std::optional<xml::document>
read_html4_memory(log::log const& log, parse_request const& request, bytes::bytes const& data) {
    auto outcome = parse(log, format::html4, request, data);
    log_errors(log, outcome.outcome_errors);
    return std::move(outcome.outcome_document);
}

} // namespace vellum::libxml::parser
