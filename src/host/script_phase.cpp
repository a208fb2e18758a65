#include "host/script_phase.hpp"

#include "host/domjs.hpp"
#include "js/convert.hpp"
#include "js/errors.hpp"
#include "resource/loader.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <cctype>

namespace vellum::hostjs {

namespace e = js::eval;

namespace {

std::string lower(std::string s) {
    std::ranges::transform(s, s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

void collect(dom::element_ref const& e, resource::locator::locator const& doc_url, std::vector<document_script>& out) {
    if (is_html_script(*e)) {
        if (!holds_javascript(*e)) {
            return;
        }
        document_script s{.script_where = doc_url, .script_element = e};
        if (auto const src = dom::attribute_value(*e, xml::make_name("src"))) {
            s.script_src = resource::locator::resolve_locator(dom::element_base(*e), trimmed(*src));
        } else {
            for (auto const& t : dom::text_content(e->dom_element_children.get())) {
                s.script_text += t;
            }
        }
        out.push_back(std::move(s));
        return;
    }
    for (auto const& child : e->dom_element_children.get()) {
        if (auto const* c = std::get_if<dom::element_child>(&child)) {
            collect(c->child_element, doc_url, out);
        }
    }
}

void run_located(host_js& host, log::log const& log, resource::loader::loader const& loader,
                 resource::locator::locator const& where) {
    auto text = load_script(log, loader, where);
    if (!text) {
        log::log_file_message(log, log::level::error, resource::locator::locator_to_string(where), text.error());
        return;
    }
    run_script(host, where, *text);
}

} // namespace

bool is_html_script(dom::dom_element const& e) {
    if (xml::name_local(e.dom_element_name) != "script") {
        return false;
    }
    auto const* q = std::get_if<xml::qualified_name>(&e.dom_element_name);
    return q == nullptr || std::holds_alternative<xml::xmlns_xhtml>(q->namespace_uri);
}

bool holds_javascript(dom::dom_element const& e) {
    auto const type = dom::attribute_value(e, xml::make_name("type"));
    if (!type) {
        return true;
    }
    // Exactly this type runs: a script of another type (a module, a template, data) is not this
    // engine's language.
    return lower(trimmed(*type)) == "text/javascript";
}

std::string trimmed(std::string const& s) {
    auto const first = s.find_first_not_of(" \t\r\n\f");
    if (first == std::string::npos) {
        return {};
    }
    return s.substr(first, s.find_last_not_of(" \t\r\n\f") - first + 1);
}

std::vector<document_script> document_scripts(dom::document_ref const& doc) {
    std::vector<document_script> out;
    for (auto const& child : doc->dom_document_children.get()) {
        if (auto const* c = std::get_if<dom::element_child>(&child)) {
            collect(c->child_element, doc->dom_document_url, out);
        }
    }
    return out;
}

void prefetch_document_scripts(log::log const& log, resource::loader::loader const& loader, dom::document_ref const& doc) {
    for (auto const& s : document_scripts(doc)) {
        if (s.script_src) {
            resource::loader::prefetch(log, loader, *s.script_src);
        }
    }
}

result<std::string> load_script(log::log const& log, resource::loader::loader const& loader,
                                resource::locator::locator const& where) {
    auto loaded = resource::loader::load_resource(log, loader, resource::loader::resource_description::script, where);
    if (!loaded) {
        return fail(loaded.error());
    }
    if (auto const& type = loaded->resource_type;
        type && !type->mimetype.empty() && !std::holds_alternative<resource::javascript>(type->category)) {
        return fail("Unknown JavaScript MIME type: " + type->mimetype);
    }
    auto data = resource::loader::resource_to_bytes(loaded->resource_data);
    if (!data) {
        return fail(data.error());
    }
    return std::string(data->chars());
}

opt_host_js run_script_phase(log::log const& log,
                             std::shared_ptr<resource::loader::loader const> const& loader,
                             host_settings const& settings,
                             dom::doc_style_info const& style_info,
                             dom::document_ref const& doc,
                             std::string_view doc_source) {
    if (!style_info.use_author_scripts && style_info.user_scripts.empty()) {
        return host_js_disabled{};
    }
    log::log_progress_stage(log, "Running scripts...");
    auto const scripts = style_info.use_author_scripts ? document_scripts(doc) : std::vector<document_script>{};
    if (style_info.user_scripts.empty() && scripts.empty()) {
        // No code could listen to an event or set a timer: the engine need not be built at all.
        return host_js_unused{};
    }
    auto host = make_host(log, loader, settings);
    domjs::bind_document(*host->js, doc);
    for (auto const& s : style_info.user_scripts) {
        run_located(*host, log, *loader, s);
    }
    if (style_info.use_author_scripts) {
        domjs::run_document_scripts(*host, doc, doc_source);
    }
    fire_event(*host->js, std::get<js_object>(domjs::wrap_node(*host->js, doc)), "DOMContentLoaded");
    fire_event(*host->js, host->js->global_object, "load", "onload");
    run_timeouts(*host);
    if (!host_needed_later(*host)) {
        // Nothing of the scripts is needed later: the engine and every script object go now, and the
        // tree forgets the wrappers it held.
        domjs::clear_wrappers(doc);
        return host_js_unused{};
    }
    return host_js_used{.host = std::move(host)};
}

void run_shell(log::log const& log,
               std::shared_ptr<resource::loader::loader const> const& loader,
               host_settings const& settings,
               std::vector<resource::locator::locator> const& files,
               std::FILE* in,
               std::FILE* out,
               bool prompt) {
    auto host = make_host(log, loader, settings);
    e::js& engine = *host->js;
    for (auto const& f : files) {
        run_located(*host, log, *loader, f);
    }
    auto const where = resource::locator::resolve_locator({}, "about:blank");
    std::string line;
    for (;;) {
        if (prompt) {
            std::fputs("js> ", out);
            std::fflush(out);
        }
        line.clear();
        int c = 0;
        while ((c = std::fgetc(in)) != EOF && c != '\n') {
            line += char(c);
        }
        if (c == EOF && line.empty()) {
            break;
        }
        if (trimmed(line).empty()) {
            continue;
        }
        auto r = eval_global(*host, where, jsstring::from_utf8(line));
        if (auto const* x = std::get_if<e::exception>(&r)) {
            e::report_exception(engine, x->exception_value);
            continue;
        }
        auto const& v = std::get<js_value>(r);
        if (std::holds_alternative<e::js_undefined>(v)) {
            continue;
        }
        auto text = e::to_string(engine, v);
        if (auto const* x = std::get_if<e::exception>(&text)) {
            e::report_exception(engine, x->exception_value);
            continue;
        }
        std::string const shown = jsstring::to_utf8(std::get<e::js_string>(text)) + "\n";
        std::fwrite(shown.data(), 1, shown.size(), out);
        std::fflush(out);
    }
    if (prompt) {
        std::fputs("\n", out);
    }
}

} // namespace vellum::hostjs
