#include "driver/engine.hpp"

#include "driver/pack_loop.hpp"
#include "pdf/bulkio/file.hpp"
#include "pdf/writepdf.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

#include <libxml/catalog.h>

namespace vellum::engine {

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

// Reads a whole stream into memory: 4096 bytes at first, each enlargement to twice the count read.
std::optional<bytes::bytes> read_all(std::FILE* f) {
    std::vector<std::uint8_t> data(4096);
    std::size_t used = 0;
    for (;;) {
        std::size_t const n = std::fread(data.data() + used, 1, data.size() - used, f);
        used += n;
        if (used < data.size()) {
            if (std::ferror(f)) {
                return std::nullopt;
            }
            break;
        }
        data.resize(used * 2);
    }
    data.resize(used);
    return bytes::from_vector(std::move(data));
}

// FIXME: the resource loader takes over reading, with its origin rules, HTTP and the cache.
std::optional<bytes::bytes> read_source(log::log const& log, job::input_src const& src) {
    if (std::holds_alternative<resource::locator::standard_input>(src.locator_url)) {
        return read_all(stdin);
    }
    if (auto const* f = std::get_if<resource::locator::file>(&src.locator_url)) {
        std::unique_ptr<std::FILE, int (*)(std::FILE*)> fp(std::fopen(f->file_path.path.c_str(), "rb"),
                                                          &std::fclose);
        if (!fp) {
            return std::nullopt;
        }
        return read_all(fp.get());
    }
    log::log_debug(log, "resource loader not built yet: only local files and standard input can be read");
    return std::nullopt;
}

// One packing pass over all documents, with the page numbers of the previous pass.
struct pass_outcome {
    std::vector<pdf::writepdf::page_frame> pass_pages;
    pack_loop::pass_report pass_report_of;
};

pass_outcome pack_pass(log::log const& log, pack_loop::pack_state const& state) {
    // FIXME: page packing lays out the documents here; until it exists the output is one empty page.
    log::log_debug(log, "page packing not built yet: one empty page");
    return {.pass_pages = {pdf::writepdf::page_frame{}},
            .pass_report_of = {.report_targets = state.pack_targets, .report_first_pages = {1}}};
}

} // namespace

void load_dtd_catalog(log::log const& log, std::string const& prefix) {
    std::string const path = prefix + "/dtd/catalog.xml";
    std::lock_guard guard(process_lock());
    xmlInitializeCatalog();
    // libxml2 accepts a catalog file that does not exist (it would be read lazily, and then fail
    // silently), so its presence is checked first.
    if (access(path.c_str(), R_OK) != 0 || xmlLoadCatalog(path.c_str()) != 0) {
        log::log_file_message(log, log::level::warning, path, "unable to load DTD catalog");
    }
}

result<engine> new_engine(log::log const& log, engine_options const& options) {
    // FIXME: the font system opens here and registers the @font-face rules of style/fonts.css.
    log::log_debug(log, "font system not built yet: style/fonts.css is not read");
    return engine{.engine_options = options};
}

doctype::doctype choose_doctype(job::input_document const& doc) {
    if (doc.input_doctype) {
        return *doc.input_doctype;
    }
    return std::visit(overloaded{
                          [](resource::locator::standard_input const&) { return doctype::doctype::html5; },
                          [](resource::locator::file const& f) {
                              auto const ext = lower_extension(f.file_path.path);
                              // FIXME: sniff HTML-named files for XML once the XML sniffer exists.
                              if (ext == "htm" || ext == "html" || ext == "shtml") {
                                  return doctype::doctype::html5;
                              }
                              return doctype::doctype::xml;
                          },
                          // Anything else is fetched and decided by its content type; without the
                          // loader it goes to the HTML5 parser, which reports the failure.
                          [](resource::locator::web const&) { return doctype::doctype::html5; },
                          [](resource::locator::data const&) { return doctype::doctype::html5; },
                          [](resource::locator::other const&) { return doctype::doctype::html5; },
                          [](resource::locator::invalid const&) { return doctype::doctype::html5; },
                          [](resource::locator::unresolvable const&) { return doctype::doctype::html5; },
                      },
                      doc.input_src.locator_url);
}

std::optional<loaded_document> load_input_document(log::log const& log,
                                                   job::job const& job,
                                                   job::input_document const& doc) {
    auto const type = choose_doctype(doc);
    std::string const name = resource::locator::locator_to_string(doc.input_src);
    log::log_info(log, "loading " + std::string(doctype_word(type)) + " input: " + name);
    auto const content = read_source(log, doc.input_src);
    if (!content) {
        log::log_file_message(log, log::level::error, name, "could not load input file");
        return std::nullopt;
    }
    log::log_debug(log, "loaded document: " + name);
    // FIXME: parsing, the document tree, scripts and style sheets come with the document and style stages.
    log::log_debug(log, "document parsing not built yet: the content is read but not parsed");
    return loaded_document{.doc_src = doc.input_src,
                           .doc_doctype = type,
                           .doc_base = doc.input_base ? *doc.input_base : doc.input_src,
                           .doc_metadata = job.metadata,
                           .doc_pdf_options = job.pdf_options,
                           .doc_bytes = *content};
}

bool convert(log::log const& log, engine const&, job::job const& job) {
    log::log_progress_stage(log, "Loading document...");
    // FIXME: the loader's prefetch threads run from here to the end of "Preparing document...".
    std::vector<loaded_document> docs;
    for (auto const& input : job.input_documents) {
        if (auto doc = load_input_document(log, job, input)) {
            docs.push_back(std::move(*doc));
        }
    }
    if (docs.empty()) {
        log::log_error(log, "no input documents to process");
        return false;
    }
    log::log_progress_stage(log, "Preparing document...");
    // The first document that loaded governs the metadata and PDF options of the whole output.
    auto const& first = docs.front();
    log::log_debug(log, "box generation not built yet");

    log::log_progress_stage(log, "Converting document...");
    auto const outcome = pack_loop::run(log, pack_loop::initial_targets({}),
                                        [&](pack_loop::pack_state const& state) { return pack_pass(log, state); });

    return std::visit(
        overloaded{
            [&](job::file const& f) {
                log::log_debug(log, "writing output: " + f.file_path.path);
                std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(f.file_path.path.c_str(), "wb"),
                                                                   &std::fclose);
                if (!out) {
                    log::log_file_message(log, log::level::error, f.file_path.path, std::strerror(errno));
                    return false;
                }
                pdf::writepdf::write_pdf(log, pdf::bulkio::file::file_output(out.get()), first.doc_metadata,
                                         first.doc_pdf_options, outcome.pass_pages);
                if (std::fclose(out.release()) != 0) {
                    log::log_file_message(log, log::level::error, f.file_path.path, std::strerror(errno));
                    return false;
                }
                return true;
            },
            [&](job::standard_output const&) {
                log::log_debug(log, "writing to standard output");
                pdf::writepdf::write_pdf(log, pdf::bulkio::file::file_output(stdout), first.doc_metadata,
                                         first.doc_pdf_options, outcome.pass_pages);
                return true;
            },
        },
        job.output_dest);
}

} // namespace vellum::engine
