#include "css/styledom/hints.hpp"

#include "css/parser.hpp"
#include "css/styledom/tree.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <cmath>
#include <mutex>

namespace vellum::styledom::hints {

namespace {

using css::pdecls::pdeclaration;

pdeclaration hint(std::string name, css::value::value v, css::origin o) {
    css::declaration d{.prop_name = std::move(name), .value = std::move(v), .origin = o};
    return {d, css::priority::of(d, {})};
}

// A plain number as a length in pixels; anything else unchanged.
css::value::value with_px(css::value::value v) {
    if (auto const* n = std::get_if<css::value::number>(&v)) {
        return css::value::dimension{n->number_value, "px"};
    }
    return v;
}

// SVG attributes hold bare numbers where CSS wants lengths, and a few keywords that CSS spells otherwise.
css::value::value svg_value(std::string_view name, css::value::value v) {
    if (name == "letter-spacing" || name == "word-spacing" || name == "font-size") {
        return with_px(std::move(v));
    }
    if (name == "overflow") {
        if (auto const* i = std::get_if<css::value::ident>(&v); i && css::lexer::ascii_lower(i->ident_name) == "auto") {
            return css::value::ident{"visible"};
        }
        return v;
    }
    if (name == "clip") {
        auto* f = std::get_if<css::value::function>(&v);
        if (f && css::lexer::ascii_lower(f->function_name) == "rect" && f->function_args.size() == 4) {
            for (auto& arg : f->function_args) {
                arg = with_px(std::move(arg));
            }
        }
    }
    return v;
}

// The nearest ancestor that is the named HTML element.
dom::element_ref html_ancestor(dom::dom_element const& e, std::string_view local) {
    auto parent = e.dom_element_parent.get();
    for (;;) {
        auto const* p = std::get_if<dom::element_parent>(&parent);
        if (p == nullptr) {
            return nullptr;
        }
        auto const a = p->parent_element.lock();
        if (!a) {
            return nullptr;
        }
        if (tree::is_html_name(a->dom_element_name, local)) {
            return a;
        }
        parent = a->dom_element_parent.get();
    }
}

// The value of an HTML dimension attribute ("20", "20px", "50%") as browsers read it: a number of CSS
// pixels or a percentage; nothing without a leading number.
std::optional<css::value::value> dimension_value(std::string_view text) {
    // Leading white space is skipped; then digits, an optional fraction, and whatever follows the number
    // is ignored unless it starts with "%". "20px", "20" and "20.5em" are all 20 or 20.5 pixels.
    std::size_t at = text.find_first_not_of(" \t\n\f\r");
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    double value = 0;
    std::size_t digits = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, ++digits) {
        value = value * 10 + (text[at] - '0');
    }
    if (digits == 0) {
        return std::nullopt;
    }
    if (at + 1 < text.size() && text[at] == '.' && text[at + 1] >= '0' && text[at + 1] <= '9') {
        double scale = 0.1;
        for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10) {
            value += (text[at] - '0') * scale;
        }
    }
    // Whole numbers stay integers, as the CSS scanner keeps them.
    css::number const v = value == std::floor(value) && value < 1e9 ? css::number{static_cast<int>(value)}
                                                                      : css::number{value};
    if (at < text.size() && text[at] == '%') {
        return css::value::percent{v};
    }
    return css::value::dimension{v, "px"};
}

// "width" and "height" of an img, object, embed, video or image input from its attributes, at author
// origin and numbered 0, so that every author rule overrides them.
std::vector<pdeclaration> replaced_size_hints(dom::dom_element const& e) {
    auto const& n = e.dom_element_name;
    bool const image_input = tree::is_html_name(n, "input") &&
                             css::lexer::ascii_lower(tree::plain_attribute(e, "type").value_or("")) == "image";
    if (!tree::is_html_name(n, "img") && !tree::is_html_name(n, "object") && !tree::is_html_name(n, "embed") &&
        !tree::is_html_name(n, "video") && !image_input) {
        return {};
    }
    std::vector<pdeclaration> out;
    for (std::string_view const attr : {"width", "height"}) {
        if (auto const text = tree::plain_attribute(e, attr)) {
            if (auto v = dimension_value(*text)) {
                out.push_back(hint(std::string(attr), std::move(*v), css::origin::author));
            }
        }
    }
    return out;
}

} // namespace

std::vector<pdeclaration> svg_hints(dom::dom_element const& e, resource::locator::locator const& base,
                                    hint_filters const& filters) {
    std::vector<pdeclaration> out;
    auto const ns = tree::name_namespace_view(e.dom_element_name);
    if (!ns || *ns != "http://www.w3.org/2000/svg" || filters.known_property == nullptr) {
        return out;
    }
    // Relative URLs in the attributes resolve against the element's base, which the parser knows by name.
    std::string const base_text = resource::locator::locator_to_string(base);
    for (auto const& a : e.dom_element_attrs.get()) {
        auto const* name = std::get_if<xml::local_name>(&a->dom_attribute_name);
        if (name == nullptr || !filters.known_property(name->local)) {
            continue;
        }
        // SVG names no shorthand as an attribute, but for two that were single properties when SVG took
        // them over: they are read as their shorthands are in a style sheet.
        if (filters.is_shorthand && filters.is_shorthand(name->local) && name->local != "text-decoration" &&
            name->local != "font-variant") {
            continue;
        }
        if (auto v = css::parser::parse_value(base_text, a->dom_attribute_value.get())) {
            out.push_back(hint(name->local, svg_value(name->local, std::move(*v)), css::origin::author));
        }
    }
    return out;
}

std::vector<pdeclaration> cellpadding_hint(dom::dom_element const& e) {
    if (!tree::is_html_name(e.dom_element_name, "td") && !tree::is_html_name(e.dom_element_name, "th")) {
        return {};
    }
    // The cell's own table decides; an outer table's cellpadding doesn't reach the cells of a nested one.
    auto const table = html_ancestor(e, "table");
    if (!table) {
        return {};
    }
    auto const text = tree::plain_attribute(*table, "cellpadding");
    if (!text) {
        return {};
    }
    auto v = css::parser::parse_value("", *text);
    if (!v || !(std::holds_alternative<css::value::number>(*v) || std::holds_alternative<css::value::percent>(*v) ||
                std::holds_alternative<css::value::dimension>(*v))) {
        return {};
    }
    return {hint("padding", with_px(std::move(*v)), css::origin::program)};
}

std::vector<pdeclaration> link_color_hint(dom::dom_element const& e) {
    if (!tree::is_html_name(e.dom_element_name, "a") || !tree::plain_attribute(e, "href")) {
        return {};
    }
    auto const body = html_ancestor(e, "body");
    if (!body) {
        return {};
    }
    auto const text = tree::plain_attribute(*body, "link");
    if (!text) {
        return {};
    }
    auto v = css::parser::parse_value("", *text);
    if (!v) {
        return {};
    }
    return {hint("color", std::move(*v), css::origin::program)};
}

std::vector<pdeclaration> presentational_hints(dom::dom_element const& e, resource::locator::locator const& base,
                                               hint_filters const& filters) {
    auto out = svg_hints(e, base, filters);
    for (auto& h : replaced_size_hints(e)) {
        out.push_back(std::move(h));
    }
    for (auto& h : cellpadding_hint(e)) {
        out.push_back(std::move(h));
    }
    for (auto& h : link_color_hint(e)) {
        out.push_back(std::move(h));
    }
    return out;
}

} // namespace vellum::styledom::hints
