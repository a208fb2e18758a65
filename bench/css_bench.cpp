// Times the style stage on a large sheet and document: parsing the sheet (MB/s), indexing its rules, the
// cascade over every element of the document (elements per second), and the whole styling with the typed
// properties and computed styles that the formatter uses, best of several runs. A digest of what the
// cascade found for every element lets runs of different builds be compared.
// Usage: css_bench SHEET DOCUMENT [RUNS]   (gen_css.py writes both; css_bench.sh runs it all)
#include "css/parser.hpp"
#include "css/styledom/computed.hpp"
#include "css/styledom/styledom.hpp"
#include "document/dom.hpp"
#include "document/libhtml.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

using namespace vellum;
using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

// FNV-1a over the declarations an element gets, in order, and those of its pseudo-elements.
struct digest {
    std::uint64_t value = 14695981039346656037ULL;

    void add(std::string_view text) {
        for (char const c : text) {
            value = (value ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
        }
        add_number(static_cast<long long>(text.size()));
    }

    void add_number(long long n) {
        for (int i = 0; i < 8; ++i) {
            value = (value ^ static_cast<std::uint64_t>((n >> (8 * i)) & 0xff)) * 1099511628211ULL;
        }
    }

    void add_list(std::vector<css::pdecls::pdeclaration const*> const& list) {
        add_number(static_cast<long long>(list.size()));
        for (auto const* d : list) {
            add(d->declaration.prop_name);
            auto const& p = d->priority;
            for (int n : {p.weight, p.a, p.b, p.c, p.index}) {
                add_number(n);
            }
        }
    }

    void add_cascade(styledom::cascaded const& c) {
        add_list(c.cascaded_pdecls);
        add_number(static_cast<long long>(c.cascaded_pseudos.size()));
        for (auto const& p : c.cascaded_pseudos) {
            for (auto const pe : p.pseudo_elements) {
                add(css::selector::pseudo_element_name(pe));
            }
            add_list(p.pseudo_pdecls);
        }
    }
};

std::string read_file(char const* path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: css_bench SHEET DOCUMENT [RUNS]\n");
        return 2;
    }
    std::string const sheet = read_file(argv[1]);
    std::string const html = read_file(argv[2]);
    if (sheet.empty() || html.empty()) {
        std::fprintf(stderr, "css_bench: cannot read the sheet or the document\n");
        return 1;
    }
    int const runs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 3;
    log::log quiet{.log_stderr = log::no_stderr_log{}};
    char cwd[4096];
    std::string const curdir = getcwd(cwd, sizeof cwd) ? cwd : "/";
    auto const loader = resource::loader::new_loader(quiet, {"/nonexistent"}, {curdir}, {.network = false});
    if (!loader) {
        std::fprintf(stderr, "css_bench: %s\n", loader.error().c_str());
        return 1;
    }

    // The sheet.
    css::parser::fetch const no_imports = [](css::value::url const&) -> result<css::parser::fetched_sheet> {
        return fail("no imports in the benchmark");
    };
    double best_parse = 1e30;
    css::parser::env env;
    for (int i = 0; i < runs; ++i) {
        auto const start = clock_type::now();
        env = css::parser::parse_style_sheet(quiet, no_imports, css::origin::author, argv[1], sheet,
                                             css::parser::new_env("print"));
        best_parse = std::min(best_parse, seconds_since(start));
    }
    std::size_t declarations = 0;
    for (auto const& r : env.rules) {
        declarations += r.rule_declarations.size();
    }

    // The document's tree.
    auto const url = resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                                      resource::locator::locator_origin::command_line_origin,
                                                      std::nullopt, argv[2]);
    // The parsed tree goes once the living one is built, as the formatter lets it go before styling.
    dom::document_ref doc;
    {
        auto const xdoc = libhtml::parse_html5_bytes(quiet, url, bytes::from_string(html));
        if (!xdoc) {
            std::fprintf(stderr, "css_bench: the document doesn't parse\n");
            return 1;
        }
        doc = dom::new_dom_document(doctype::doctype::html5, doctype::sniff_xmltype(*xdoc), {}, url, *xdoc);
    }
    auto const root = dom::document_element(*doc);

    // Indexing and the cascade. The style computation is left out: it counts the elements and the
    // declarations that reach it, so that the cascade's own cost is what is timed.
    double best_index = 1e30;
    double best_cascade = 1e30;
    std::size_t elements = 0;
    std::size_t matched = 0;
    for (int i = 0; i < runs; ++i) {
        auto start = clock_type::now();
        styledom::style_hooks hooks;
        hooks.compute = [&](log::log const& l, styledom::style_request const& r) {
            ++elements;
            matched += r.request_cascade.cascaded_pdecls.size();
            return styledom::base_style_info(l, r);
        };
        auto const rules = styledom::index_document_rules({.sheets_env = env}, true, std::move(hooks));
        best_index = std::min(best_index, seconds_since(start));
        elements = 0;
        matched = 0;
        start = clock_type::now();
        styledom::style_subtree(quiet, *loader, rules, **root, nullptr);
        best_cascade = std::min(best_cascade, seconds_since(start));
    }

    // The digest, in a run of its own since it costs about as much as a cheap cascade.
    digest sum;
    {
        styledom::style_hooks hooks;
        hooks.compute = [&](log::log const& l, styledom::style_request const& r) {
            sum.add_cascade(r.request_cascade);
            return styledom::base_style_info(l, r);
        };
        auto const rules = styledom::index_document_rules({.sheets_env = env}, true, std::move(hooks));
        styledom::style_subtree(quiet, *loader, rules, **root, nullptr);
    }

    // The whole styling as the formatter runs it: declarations checked and typed, computed styles.
    double best_style = 1e30;
    for (int i = 0; i < runs; ++i) {
        auto const start = clock_type::now();
        auto const rules = styledom::index_document_rules({.sheets_env = env}, true, styledom::computed::typed_hooks());
        styledom::style_subtree(quiet, *loader, rules, **root, nullptr);
        best_style = std::min(best_style, seconds_since(start));
    }

    double const megabytes = static_cast<double>(sheet.size()) / (1024.0 * 1024.0);
    std::printf("sheet: %.2f MB, %zu rules, %zu declarations\n", megabytes, env.rules.size(), declarations);
    std::printf("parse: %.3f s, %.1f MB/s\n", best_parse, megabytes / best_parse);
    std::printf("index: %.3f s\n", best_index);
    std::printf("cascade: %zu elements, %zu declarations matched, %.3f s, %.0f elements/s\n", elements, matched,
                best_cascade, static_cast<double>(elements) / best_cascade);
    std::printf("cascade digest: %016llx\n", static_cast<unsigned long long>(sum.value));
    std::printf("styling with computed styles: %.3f s, %.0f elements/s\n", best_style,
                static_cast<double>(elements) / best_style);
    return 0;
}
