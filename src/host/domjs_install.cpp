// The DOM interfaces in their order on a new engine, `document` and `location` for a document, and the
// walk that runs a document's scripts as it reaches them.
#include "host/domjs_internal.hpp"

#include "host/hostjs.hpp"
#include "host/script_phase.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>

namespace vellum::domjs {

namespace {

std::atomic<std::uint64_t> next_serial{1};

e::js_prop_string state_key() {
    return e::key_of_string(jsstring::js_string(std::u32string(U"\0vellum-dom", 11)));
}

} // namespace

dom_state& state_of(e::js const& engine) {
    auto const pos = e::find_own_property(engine.global_object, state_key());
    check(pos.has_value(), "domjs state_of");
    auto const& prop = engine.global_object->obj_properties[*pos];
    auto const* v = std::get_if<e::prop_value>(&prop.property_value);
    check(v != nullptr && std::holds_alternative<js_object>(v->value), "domjs state_of");
    auto const* h = std::get_if<e::class_host_object>(&std::get<js_object>(v->value)->obj_class);
    auto* s = h != nullptr ? dynamic_cast<dom_state*>(h->host_object.get()) : nullptr;
    check(s != nullptr, "domjs state_of");
    return *s;
}

dom_prototypes const& prototypes_of(e::js const& engine) {
    return state_of(engine).state_prototypes;
}

void install_dom_interfaces(e::js& engine) {
    auto state = std::make_shared<dom_state>();
    state->state_serial = next_serial++;
    // The state hangs on the global object, under a key no script writes in the ordinary way, so that it
    // lives and dies with the engine.
    js_object const holder =
        e::new_object_of(engine, e::class_host_object{.host_object = state}, e::yes_proto{.proto = engine.object_prototype});
    e::define_own_property(engine.global_object, state_key(), e::prop_value{.value = holder}, e::all_attrs);

    auto const event_target_ctor = e::get(engine, engine.global_object, e::key_of_utf8("EventTarget"));
    auto const* ctor = std::get_if<js_value>(&event_target_ctor);
    check(ctor != nullptr && std::holds_alternative<js_object>(*ctor), "install_dom_interfaces");
    auto const proto = e::get(engine, std::get<js_object>(*ctor), e::key_of_utf8("prototype"));
    webidl::webidl_interface const event_target{.constructor = std::get<js_object>(*ctor),
                                                .prototype = std::get<js_object>(std::get<js_value>(proto))};

    install_core(engine, *state, event_target);
    install_markup(engine, *state);
    canvas_install(engine);
    install_html(engine, *state);
    install_style(engine, *state);
}

// ---- location ----------------------------------------------------------------------------------------------

namespace {

// The parts of a URL as `location` shows them.
struct url_parts {
    std::string protocol, host, hostname, port, pathname, search, hash;
};

[[nodiscard]] std::optional<url_parts> split_url(std::string const& url) {
    url_parts out;
    auto const colon = url.find(':');
    if (colon == std::string::npos || colon == 0 ||
        !std::all_of(url.begin(), url.begin() + std::ptrdiff_t(colon), [](unsigned char c) {
            return std::isalnum(c) || c == '+' || c == '-' || c == '.';
        })) {
        return std::nullopt;
    }
    out.protocol = url.substr(0, colon + 1);
    std::string rest = url.substr(colon + 1);
    if (auto const h = rest.find('#'); h != std::string::npos) {
        out.hash = rest.substr(h);
        rest.resize(h);
    }
    if (auto const q = rest.find('?'); q != std::string::npos) {
        out.search = rest.substr(q);
        rest.resize(q);
    }
    if (rest.starts_with("//")) {
        auto const slash = rest.find('/', 2);
        out.host = rest.substr(2, slash == std::string::npos ? std::string::npos : slash - 2);
        rest = slash == std::string::npos ? std::string("/") : rest.substr(slash);
        auto const at = out.host.rfind('@');
        std::string host = at == std::string::npos ? out.host : out.host.substr(at + 1);
        out.host = host;
        auto const port = host.rfind(':');
        if (port != std::string::npos && host.find(']', port) == std::string::npos) {
            out.hostname = host.substr(0, port);
            out.port = host.substr(port + 1);
        } else {
            out.hostname = host;
        }
    }
    out.pathname = rest;
    return out;
}

// The document's address as a URL: files become "file:" URLs with an absolute path.
std::string document_url_text(resource::locator::locator const& l) {
    if (auto const* f = std::get_if<resource::locator::file>(&l.locator_url)) {
        std::string path = f->file_path.path;
        if (!path.starts_with("/")) {
            std::error_code ec;
            auto const cwd = std::filesystem::current_path(ec);
            path = (ec ? std::string() : cwd.string()) + "/" + path;
        }
        std::string out = "file://" + path;
        if (f->file_query) {
            out += "?" + *f->file_query;
        }
        return out;
    }
    if (std::holds_alternative<resource::locator::standard_input>(l.locator_url) ||
        std::holds_alternative<resource::locator::invalid>(l.locator_url)) {
        auto const* inv = std::get_if<resource::locator::invalid>(&l.locator_url);
        if (inv == nullptr || inv->invalid_text.empty()) {
            return "about:blank";
        }
    }
    return resource::locator::locator_to_string(l);
}

} // namespace

void bind_document(e::js& engine, dom::document_ref const& doc) {
    e::attrs const fixed = e::attrs{}.with(e::attr::read_only).with(e::attr::no_delete);
    e::define_value(engine.global_object, "document", wrap_node(engine, doc), fixed);
    std::string const href = document_url_text(doc->dom_document_url);
    auto const parts = split_url(href);
    if (!parts) {
        log::log_error(engine.js_log, "cannot parse URL: " + href);
        return;
    }
    js_object const location = e::new_object(engine);
    e::define_value(location, "href", str(href), fixed);
    e::define_value(location, "protocol", str(parts->protocol), fixed);
    e::define_value(location, "hash", str(parts->hash), fixed);
    e::define_value(location, "host", str(parts->host), fixed);
    e::define_value(location, "hostname", str(parts->hostname), fixed);
    e::define_value(location, "port", str(parts->port), fixed);
    e::define_value(location, "pathname", str(parts->pathname), fixed);
    e::define_value(location, "search", str(parts->search), fixed);
    webidl::add_native_method(engine, location, "toString", 0,
                              constant_fn(str(href)));
    e::define_value(engine.global_object, "location", location, fixed);
}

// ---- Document scripts ----------------------------------------------------------------------------------

namespace {

std::optional<dom::element_ref> parent_element(dom::element_ref const& el) {
    auto const holder = el->dom_element_parent.get();
    if (auto const* p = std::get_if<dom::element_parent>(&holder)) {
        if (auto parent = p->parent_element.lock()) {
            return parent;
        }
    }
    return std::nullopt;
}

std::optional<dom::element_ref> next_element_sibling(dom::element_ref const& el) {
    std::optional<dom::child_node> cur = dom::element_child{el};
    while ((cur = dom::next_sibling(*cur))) {
        if (auto const* x = std::get_if<dom::element_child>(&*cur)) {
            return x->child_element;
        }
    }
    return std::nullopt;
}

std::optional<dom::element_ref> first_element_child(dom::element_ref const& el) {
    for (auto const& c : el->dom_element_children.get()) {
        if (auto const* x = std::get_if<dom::element_child>(&c)) {
            return x->child_element;
        }
    }
    return std::nullopt;
}

// The line of the document where each inline script's text begins.
using script_lines = std::unordered_map<dom::dom_element const*, int>;

// Finds the text of each inline script in the document's source, in tree order, each after the one
// before and right after the end of a tag (`>`) or a CDATA opening (`[`), and counts the lines ahead of
// it. A script whose text is not found as written (an encoding other than UTF-8, a character
// reference in XML) keeps lines counted from its own start.
script_lines find_script_lines(dom::document_ref const& doc, std::string_view source) {
    script_lines lines;
    if (source.empty()) {
        return lines;
    }
    // Parsers turn CR LF and a lone CR into LF; the tree's text has only LF.
    std::string src;
    src.reserve(source.size());
    for (std::size_t i = 0; i < source.size(); ++i) {
        if (source[i] == '\r') {
            src += '\n';
            if (i + 1 < source.size() && source[i + 1] == '\n') {
                ++i;
            }
        } else {
            src += source[i];
        }
    }
    std::size_t from = 0;
    std::size_t counted = 0;
    int line = 1;
    for (auto const& script : hostjs::document_scripts(doc)) {
        std::string const& text = script.script_text;
        if (script.script_src || text.empty()) {
            continue;
        }
        std::size_t at = src.find(text, from);
        while (at != std::string::npos && !(at > 0 && (src[at - 1] == '>' || src[at - 1] == '['))) {
            at = src.find(text, at + 1);
        }
        if (at == std::string::npos) {
            continue;
        }
        line += static_cast<int>(std::count(src.begin() + std::ptrdiff_t(counted), src.begin() + std::ptrdiff_t(at), '\n'));
        counted = at;
        lines.emplace(script.script_element.get(), line);
        from = at + text.size();
    }
    return lines;
}

// The next element of a walk that doesn't enter `el`: its next sibling, or that of an ancestor.
std::optional<dom::element_ref> after(dom::element_ref el) {
    for (;;) {
        if (auto const next = next_element_sibling(el)) {
            return next;
        }
        auto const parent = parent_element(el);
        if (!parent) {
            return std::nullopt;
        }
        el = *parent;
    }
}

void run_script_element(hostjs::host_js& host, dom::document_ref const& doc, dom::element_ref const& el,
                        script_lines const& lines) {
    auto const& log = host.js->js_log;
    if (auto const src = dom::attribute_value(*el, xml::make_name("src"))) {
        auto const where = resource::locator::resolve_locator(dom::element_base(*el), hostjs::trimmed(*src));
        if (!host.js->js_loader) {
            log::log_file_message(log, log::level::error, resource::locator::locator_to_string(where),
                                  "no loader for external scripts");
            return;
        }
        auto text = hostjs::load_script(log, *host.js->js_loader, where);
        if (!text) {
            log::log_file_message(log, log::level::error, resource::locator::locator_to_string(where), text.error());
            return;
        }
        hostjs::run_script(host, where, *text);
        return;
    }
    auto const line = lines.find(&*el);
    hostjs::run_script(host, doc->dom_document_url, text_of(el), line == lines.end() ? 1 : line->second);
}

void set_body_onload(hostjs::host_js& host, std::string const& body) {
    e::js& engine = *host.js;
    if (!engine.js_hooks.make_function) {
        return;
    }
    auto f = engine.js_hooks.make_function(engine, {}, jsstring::from_utf8(body));
    if (auto const* x = std::get_if<e::exception>(&f)) {
        e::report_exception(engine, x->exception_value);
        return;
    }
    auto r = e::put(engine, engine.global_object, e::key_of_utf8("onload"), std::get<js_value>(f));
    if (auto const* x = std::get_if<e::exception>(&r)) {
        e::report_exception(engine, x->exception_value);
    }
}

} // namespace

void run_document_scripts(hostjs::host_js& host, dom::document_ref const& doc, std::string_view source) {
    auto const lines = find_script_lines(doc, source);
    // The walk follows the tree's links as they are when it gets there, so that a script placed later in
    // the tree by an earlier script runs, and one placed behind the walk doesn't.
    std::optional<dom::element_ref> cur = dom::document_element(*doc);
    while (cur) {
        dom::element_ref const el = *cur;
        if (hostjs::is_html_script(*el)) {
            // Where to go on from, should the script take itself out of the tree.
            auto const parent = parent_element(el);
            auto const next = next_element_sibling(el);
            if (hostjs::holds_javascript(*el)) {
                run_script_element(host, doc, el, lines);
            } else {
                auto const type = dom::attribute_value(*el, xml::make_name("type")).value_or("");
                log::log_warning_once(host.js->js_log,
                                      "script of type \"" + type + "\" is not run: only \"text/javascript\" is");
            }
            if (parent_element(el) || dom::document_element(*doc) == el) {
                cur = after(el);
            } else if (next && parent_element(*next) == parent) {
                cur = next;
            } else {
                cur = parent ? after(*parent) : std::nullopt;
            }
            continue;
        }
        if (xml::name_local(el->dom_element_name) == "body" && is_html_element(*el)) {
            if (auto const onload = dom::attribute_value(*el, xml::make_name("onload"))) {
                set_body_onload(host, *onload);
            }
        }
        if (auto const child = first_element_child(el)) {
            cur = child;
        } else {
            cur = after(el);
        }
    }
}

void prefetch_document_scripts(log::log const& log, resource::loader::loader const& loader, dom::document_ref const& doc) {
    hostjs::prefetch_document_scripts(log, loader, doc);
}

} // namespace vellum::domjs
