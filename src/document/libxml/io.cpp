#include "document/libxml/io.hpp"

#include "util/cell.hpp"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <unistd.h>
#include <vector>

#include <libxml/catalog.h>
#include <libxml/globals.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlIO.h>
#include <libxml/xmlerror.h>

namespace vellum::libxml::io {

namespace {

// The record of the parse in progress, for loader calls that come without a parser context.
context_private* global_record = nullptr;

// Reports through libxml2's structured error channel, so that the message joins the parse's own list in
// order, with the file and line of the input being read.
void raise(xmlParserCtxtPtr ctxt, std::string const& message) {
    xmlError err;
    std::memset(&err, 0, sizeof err);
    err.domain = XML_FROM_IO;
    err.code = XML_IO_LOAD_ERROR;
    // A missing entity only warns unless the document is being validated, as libxml2 itself does.
    err.level = ctxt && ctxt->validate ? XML_ERR_ERROR : XML_ERR_WARNING;
    std::string text = message + "\n";
    err.message = text.data();
    if (ctxt && ctxt->input) {
        err.file = const_cast<char*>(ctxt->input->filename);
        err.line = ctxt->input->line;
    }
    err.ctxt = ctxt;
    if (xmlStructuredError) {
        xmlStructuredError(xmlStructuredErrorContext, &err);
    }
}

// Whether a name is a local file: "file://localhost/" and "file:///" are looked past.
bool is_local_file(char const* name) {
    if (!name) {
        return false;
    }
    char const* path = name;
    if (strncasecmp(name, "file://localhost/", 17) == 0) {
        path = name + 16;
    } else if (strncasecmp(name, "file:///", 8) == 0) {
        path = name + 7;
    }
    return xmlCheckFilename(path) != 0;
}

// Resolves a name through the document's own catalogs and then the global ones, as the catalog policy
// allows; the result is empty when neither knows the name.
std::string catalog_resolve(xmlParserCtxtPtr ctxt, char const* id, char const* url) {
    auto const allow = xmlCatalogGetDefaults();
    bool const local_ok = allow == XML_CATA_ALLOW_ALL || allow == XML_CATA_ALLOW_DOCUMENT;
    bool const global_ok = allow == XML_CATA_ALLOW_ALL || allow == XML_CATA_ALLOW_GLOBAL;
    auto take = [](xmlChar* r) {
        std::string out = r ? reinterpret_cast<char const*>(r) : "";
        xmlFree(r);
        return out;
    };
    std::string resolved;
    auto const* xid = reinterpret_cast<xmlChar const*>(id);
    auto const* xurl = reinterpret_cast<xmlChar const*>(url);
    if (local_ok && ctxt && ctxt->catalogs) {
        resolved = take(xmlCatalogLocalResolve(ctxt->catalogs, xid, xurl));
    }
    if (resolved.empty() && global_ok) {
        resolved = take(xmlCatalogResolve(xid, xurl));
    }
    // A name that the catalogs map to something other than a local file may be a URI they rewrite.
    if (!resolved.empty() && !is_local_file(resolved.c_str())) {
        auto const* xres = reinterpret_cast<xmlChar const*>(resolved.c_str());
        std::string again;
        if (local_ok && ctxt && ctxt->catalogs) {
            again = take(xmlCatalogLocalResolveURI(ctxt->catalogs, xres));
        }
        if (again.empty() && global_ok) {
            again = take(xmlCatalogResolveURI(xres));
        }
        if (!again.empty()) {
            resolved = again;
        }
    }
    return resolved;
}

enum class name_from { document, catalog };

// Opens a name through the fetch function: a catalog's answer is one of the program's own files; any
// other name resolves against the input that named it.
xmlParserInputPtr
open_entity(xmlParserCtxtPtr ctxt, entity_loader_info& info, std::string const& name, name_from from) {
    using namespace resource::locator;
    locator target;
    if (from == name_from::catalog) {
        target = parse_locator(path_or_url::path_or_url, locator_origin::system_origin, std::nullopt, name);
    } else {
        locator base = info.base;
        if (ctxt && ctxt->input && ctxt->input->filename) {
            if (auto const it = info.opened.find(ctxt->input->filename); it != info.opened.end()) {
                base = it->second;
            }
        }
        target = resolve_locator(base, name);
    }
    auto const data = info.loader_fetch(target);
    if (!data) {
        log::log_file_message(info.loader_log, log::level::error, name, data.error());
        return nullptr;
    }
    std::string const true_name = libxml_name(target);
    info.opened[true_name] = target;
    auto const chars = data->fetched_bytes.chars();
    xmlParserInputBufferPtr buffer =
        xmlParserInputBufferCreateMem(chars.data(), static_cast<int>(chars.size()), XML_CHAR_ENCODING_NONE);
    if (!buffer) {
        return nullptr;
    }
    xmlParserInputPtr input = xmlNewIOInputStream(ctxt, buffer, XML_CHAR_ENCODING_NONE);
    if (!input) {
        xmlFreeParserInputBuffer(buffer);
        return nullptr;
    }
    // The true name is what relative references inside the entity resolve against.
    input->filename = reinterpret_cast<char*>(xmlStrdup(reinterpret_cast<xmlChar const*>(true_name.c_str())));
    // An encoding named by the transport overrides what the entity itself declares.
    if (data->fetched_charset) {
        xmlCharEncodingHandlerPtr handler = xmlFindCharEncodingHandler(data->fetched_charset->c_str());
        if (!handler) {
            xmlFreeInputStream(input);
            raise(ctxt, "Unknown encoding " + *data->fetched_charset);
            return nullptr;
        }
        if (xmlSwitchInputEncoding(ctxt, input, handler) != 0) {
            xmlFreeInputStream(input);
            raise(ctxt, "Unknown encoding " + *data->fetched_charset);
            return nullptr;
        }
    }
    return input;
}

xmlParserInputPtr entity_loader(char const* url, char const* id, xmlParserCtxtPtr ctxt) {
    auto* record = ctxt && ctxt->_private ? static_cast<context_private*>(ctxt->_private) : global_record;
    if (!record || record->marker != context_marker || !record->info) {
        raise(ctxt, "invalid parsing context");
        return nullptr;
    }
    auto& info = *record->info;
    if (!url) {
        raise(ctxt, "failed to load external entity \"NULL\"");
        return nullptr;
    }
    std::string resolved;
    if (xmlCatalogGetDefaults() != XML_CATA_ALLOW_NONE && !is_local_file(url)) {
        resolved = catalog_resolve(ctxt, id, url);
    }
    xmlParserInputPtr input = !resolved.empty() && resolved != url
                                  ? open_entity(ctxt, info, resolved, name_from::catalog)
                                  : open_entity(ctxt, info, url, name_from::document);
    if (!input) {
        raise(ctxt, std::string("failed to load external entity \"") + url + "\"");
    }
    return input;
}

} // namespace

void install_entity_loader() {
    static std::once_flag once;
    std::call_once(once, [] {
        std::lock_guard guard(process_lock());
        xmlSetExternalEntityLoader(entity_loader);
    });
}

std::string libxml_name(resource::locator::locator const& l) {
    if (auto const* f = std::get_if<resource::locator::file>(&l.locator_url)) {
        std::string path = f->file_path.path;
        if (!path.empty() && path.front() != '/') {
            std::vector<char> cwd(4096);
            if (getcwd(cwd.data(), cwd.size())) {
                path = std::string(cwd.data()) + "/" + path;
            }
        }
        return path;
    }
    return resource::locator::locator_to_string(l);
}

current_parse::current_parse(context_private* record)
    : current_record(record)
    , previous_record(global_record) {
    global_record = record;
}

current_parse::~current_parse() {
    // The lock is held across a parse, so another parse can only have changed the slot if something
    // released it meanwhile; that is reported and the slot is put back.
    if (global_record != current_record) {
        std::fputs("warning: concurrent change to vellum_context_private_workaround detected.\n", stderr);
    }
    global_record = previous_record;
}

} // namespace vellum::libxml::io
