// The HTML element interfaces: `HTMLElement` and one interface per group of tags, each with accessors for
// the attributes it reflects; `HTMLCanvasElement.getContext`; and `new Image(width, height)`.
#include "host/domjs_internal.hpp"

#include "util/ref.hpp"

#include <cmath>

namespace vellum::domjs {

namespace {

using args_t = std::vector<e::js_value>;

// How a reflected attribute reads and writes.
enum class reflect_kind { text, flag, number };

struct reflected {
    std::string_view reflected_name;
    reflect_kind reflected_kind = reflect_kind::text;
};

struct html_interface {
    std::string_view interface_name;
    std::vector<std::string_view> interface_tags;
    std::vector<reflected> interface_attributes;
};

std::vector<html_interface> const& html_interfaces() {
    using k = reflect_kind;
    static std::vector<html_interface> const table = {
        {"HTMLAnchorElement", {"a"}, {{"href"}, {"name"}, {"target"}}},
        {"HTMLBaseElement", {"base"}, {{"href"}, {"target"}}},
        {"HTMLBodyElement", {"body"}, {}},
        {"HTMLBRElement", {"br"}, {}},
        {"HTMLCanvasElement", {"canvas"}, {}},
        {"HTMLDivElement", {"div"}, {}},
        {"HTMLDListElement", {"dl"}, {}},
        {"HTMLHeadElement", {"head"}, {}},
        {"HTMLHeadingElement", {"h1", "h2", "h3", "h4", "h5", "h6"}, {}},
        {"HTMLHRElement", {"hr"}, {}},
        {"HTMLHtmlElement", {"html"}, {}},
        {"HTMLImageElement", {"img"}, {{"alt"}, {"src"}, {"width", k::number}, {"height", k::number}}},
        {"HTMLInputElement", {"input"}, {{"checked", k::flag}, {"disabled", k::flag}, {"name"}, {"type"}, {"value"}}},
        {"HTMLLIElement", {"li"}, {{"value", k::number}}},
        {"HTMLLinkElement", {"link"}, {{"href"}, {"hreflang"}, {"media"}, {"rel"}, {"type"}}},
        {"HTMLMetaElement", {"meta"}, {{"name"}, {"content"}}},
        {"HTMLModElement", {"del", "ins"}, {{"cite"}}},
        {"HTMLOListElement", {"ol"}, {{"start", k::number}, {"type"}}},
        {"HTMLOptionElement", {"option"}, {{"disabled", k::flag}, {"selected", k::flag}, {"value"}}},
        {"HTMLParagraphElement", {"p"}, {}},
        {"HTMLPreElement", {"pre"}, {}},
        {"HTMLQuoteElement", {"blockquote", "q"}, {{"cite"}}},
        {"HTMLScriptElement", {"script"}, {{"src"}, {"type"}}},
        {"HTMLSpanElement", {"span"}, {}},
        {"HTMLStyleElement", {"style"}, {{"media"}, {"type"}}},
        {"HTMLTableCaptionElement", {"caption"}, {}},
        {"HTMLTableColElement", {"col", "colgroup"}, {{"span", k::number}}},
        {"HTMLTableDataCellElement", {"td"}, {}},
        {"HTMLTableElement", {"table"}, {}},
        {"HTMLTableHeaderCellElement", {"th"}, {}},
        {"HTMLTableRowElement", {"tr"}, {}},
        {"HTMLTableSectionElement", {"tbody", "tfoot", "thead"}, {}},
        {"HTMLTitleElement", {"title"}, {}},
        {"HTMLUListElement", {"ul"}, {}},
    };
    return table;
}

using element_fn = std::function<e::expr_res<e::js_value>(e::js&, dom::element_ref const&, args_t const&)>;

native_fn on_element(element_fn f) {
    return [f = std::move(f)](e::js& engine, e::js_value const& self, args_t const& args) -> e::expr_res<e::js_value> {
        auto const n = node_of(self);
        auto const* el = n ? std::get_if<dom::element_ref>(&*n) : nullptr;
        if (el == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return f(engine, *el, args);
    };
}

// `ele_get_special_attr` and `ele_set_special_attr`: an accessor pair over one attribute.
void add_reflected(e::js& engine, js_object proto, reflected r) {
    std::string const name(r.reflected_name);
    webidl::add_native_accessor(
        engine, proto, name,
        on_element([name, r](e::js&, dom::element_ref const& el, args_t const&) -> e::expr_res<e::js_value> {
            auto const v = get_attribute(*el, name);
            switch (r.reflected_kind) {
            case reflect_kind::text: return str(v.value_or(""));
            case reflect_kind::flag: return v.has_value();
            case reflect_kind::number: {
                if (!v) {
                    return js::number{std::int64_t{0}};
                }
                auto const n = e::string_to_number(jsstring::from_utf8(*v));
                return e::is_nan(n) ? js::number{std::int64_t{0}} : n;
            }
            }
            return e::undefined();
        }),
        on_element([name, r](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<e::js_value> {
            if (r.reflected_kind == reflect_kind::flag) {
                if (e::to_boolean(e::arg(args, 0))) {
                    set_attribute(el, name, "");
                } else {
                    remove_attribute(el, name);
                }
                return e::undefined();
            }
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            set_attribute(el, name, std::get<std::string>(text));
            return e::undefined();
        }));
}

// A canvas' `width` or `height`: the attribute's size, or the default; a write resets the drawing.
void add_canvas_dimension(e::js& engine, js_object proto, std::string const& name) {
    webidl::add_native_accessor(
        engine, proto, name,
        on_element([name](e::js&, dom::element_ref const& el, args_t const&) -> e::expr_res<e::js_value> {
            auto const size = dom::element_canvas_size(*el);
            return js::number{std::int64_t{name == "width" ? size.canvas_width : size.canvas_height}};
        }),
        on_element([name](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<e::js_value> {
            auto n = e::to_number(engine, e::arg(args, 0));
            if (auto const* x = std::get_if<e::exception>(&n)) {
                return *x;
            }
            double const d = e::to_double(std::get<js::number>(n));
            std::int64_t const v = std::isfinite(d) && d >= 0 ? std::int64_t(d) : 0;
            set_attribute(el, name, std::to_string(v));
            canvas_reset(*el);
            return e::undefined();
        }));
}

} // namespace

void install_html(e::js& engine, dom_state& state) {
    auto& p = state.state_prototypes;
    auto const element_ctor = e::get(engine, engine.global_object, e::key_of_utf8("Element"));
    webidl::webidl_interface const element{.constructor = std::get<js_object>(std::get<e::js_value>(element_ctor)),
                                           .prototype = p.prototype_element};
    auto const html_element = webidl::make_interface(engine, "HTMLElement", element);
    p.prototype_html_element = html_element.prototype;
    for (auto const* name : {"dir", "lang", "title"}) {
        add_reflected(engine, html_element.prototype, reflected{name});
    }
    for (auto const& i : html_interfaces()) {
        auto const iface = webidl::make_interface(engine, std::string(i.interface_name), html_element);
        for (auto const& r : i.interface_attributes) {
            add_reflected(engine, iface.prototype, r);
        }
        for (auto const tag : i.interface_tags) {
            p.prototype_by_tag.emplace(std::string(tag), std::pair{iface.prototype, std::string(i.interface_name)});
        }
    }
    auto const canvas = p.prototype_by_tag.find("canvas");
    check(canvas != p.prototype_by_tag.end(), "missing canvas prototype");
    auto const img = p.prototype_by_tag.find("img");
    check(img != p.prototype_by_tag.end(), "missing img prototype");
    js_object const canvas_proto = canvas->second.first;
    add_canvas_dimension(engine, canvas_proto, "width");
    add_canvas_dimension(engine, canvas_proto, "height");
    webidl::add_native_method(
        engine, canvas_proto, "getContext", 1,
        on_element([](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<e::js_value> {
            auto kind = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&kind)) {
                return *x;
            }
            auto context = canvas_get_context(engine, *el, std::get<std::string>(kind));
            // The context names its canvas.
            if (auto const* o = std::get_if<js_object>(&context)) {
                e::define_value(*o, "canvas", wrap_node(engine, dom::dom_node{el}),
                                e::attrs{}.with(e::attr::read_only).with(e::attr::no_delete));
            }
            return context;
        }));

    // `new Image(width, height)`: an img element of the document outside the tree. Its prototype is
    // that of img elements, so that they are all `instanceof Image`.
    auto const image = webidl::make_interface(
        engine, "Image", std::nullopt,
        webidl::native_value([](e::js& engine, e::js_value const&, args_t const& args) -> e::expr_res<e::js_value> {
            auto const doc_value = e::get(engine, engine.global_object, e::key_of_utf8("document"));
            auto const doc_node = node_of(std::get<e::js_value>(doc_value));
            auto const* doc = doc_node ? std::get_if<dom::document_ref>(&*doc_node) : nullptr;
            if (doc == nullptr) {
                return throw_dom(engine, dom_exception::invalid_state_err);
            }
            auto img = create_element(*doc, "img");
            char const* const names[] = {"width", "height"};
            for (std::size_t i = 0; i < 2 && i < args.size(); ++i) {
                if (std::holds_alternative<e::js_undefined>(args[i])) {
                    continue;
                }
                auto v = arg_text(engine, args, i);
                if (auto const* x = std::get_if<e::exception>(&v)) {
                    return *x;
                }
                set_attribute(img, names[i], std::get<std::string>(v));
            }
            return wrap_node(engine, img);
        }));
    e::define_own_property(image.constructor, e::key_of_utf8("prototype"), e::prop_value{.value = img->second.first},
                           e::attrs{}.with(e::attr::read_only).with(e::attr::no_enum).with(e::attr::no_delete));
}

} // namespace vellum::domjs
