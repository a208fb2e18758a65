#include "document/html5/misc.hpp"

#include <algorithm>

namespace vellum::html5::misc {

using tree::html_ns;

bool is_html(tree::node const* n, std::string_view name) {
    return n != nullptr && n->node_kind == tree::node_type::element && n->node_ns == html_ns::html &&
           same_name(n->node_name, name);
}

bool is_html_in(tree::node const* n, std::initializer_list<std::string_view> names) {
    return n != nullptr && n->node_kind == tree::node_type::element && n->node_ns == html_ns::html &&
           name_in(n->node_name, names);
}

bool is_in_special_category(tree::node const& n) {
    switch (n.node_ns) {
    case html_ns::html:
        return name_in(n.node_name,
                       {"address", "applet",   "area",     "article", "aside",    "base",     "basefont", "bgsound",
                        "blockquote", "body",  "br",       "button",  "caption",  "center",   "col",      "colgroup",
                        "dd",      "details",  "dir",      "div",     "dl",       "dt",       "embed",    "fieldset",
                        "figcaption", "figure", "footer",  "form",    "frame",    "frameset", "h1",       "h2",
                        "h3",      "h4",       "h5",       "h6",      "head",     "header",   "hgroup",   "hr",
                        "html",    "iframe",   "img",      "input",   "keygen",   "li",       "link",     "listing",
                        "main",    "marquee",  "menu",     "meta",    "nav",      "noembed",  "noframes", "noscript",
                        "object",  "ol",       "p",        "param",   "plaintext", "pre",     "script",   "search",
                        "section", "select",   "source",   "style",   "summary",  "table",    "tbody",    "td",
                        "template", "textarea", "tfoot",   "th",      "thead",    "title",    "tr",       "track",
                        "ul",      "wbr",      "xmp"});
    case html_ns::mathml:
        return name_in(n.node_name, {"mi", "mo", "mn", "ms", "mtext", "annotation-xml"});
    case html_ns::svg:
        return name_in(n.node_name, {"foreignObject", "desc", "title"});
    case html_ns::xlink:
    case html_ns::xml:
    case html_ns::xmlns:
    case html_ns::none:
        return false;
    }
    return false;
}

bool is_formatting_name(std::string_view name) {
    return name_in(name, {"a", "b", "big", "code", "em", "font", "i", "nobr", "s", "small", "strike", "strong", "tt",
                          "u"});
}

void generate_implied_end_tags(stack::open_elements& stack, std::string_view except) {
    while (!stack.empty()) {
        tree::node const* n = stack.back();
        if (!is_html_in(n, {"dd", "dt", "li", "optgroup", "option", "p", "rb", "rp", "rt", "rtc"}) ||
            (!except.empty() && n->node_name == except)) {
            return;
        }
        stack.pop_back();
    }
}

void generate_all_implied_end_tags_thoroughly(stack::open_elements& stack) {
    while (!stack.empty() &&
           is_html_in(stack.back(), {"caption", "colgroup", "dd", "dt", "li", "optgroup", "option", "p", "rb", "rp",
                                     "rt", "rtc", "tbody", "td", "tfoot", "th", "thead", "tr"})) {
        stack.pop_back();
    }
}

void ascii_lowercase(std::string& s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + 32);
        }
    }
}

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

} // namespace

bool equal_ignoring_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

bool starts_with_ignoring_case(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && equal_ignoring_case(s.substr(0, prefix.size()), prefix);
}

} // namespace vellum::html5::misc
