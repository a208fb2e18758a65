// CSS from scripts: `element.style` over the style attribute (values checked by the property parser and
// written back in canonical form, shorthands expanded into their members), `getComputedStyle` by the
// cascade against the tree as it stands, and `querySelector` through the selector parser and matcher.
#include "host/domjs_internal.hpp"
#include "js/builtins.hpp"

#include "css/color.hpp"
#include "css/parser.hpp"
#include "css/property.hpp"
#include "css/property_parse.hpp"
#include "css/propnames.hpp"
#include "css/selector.hpp"
#include "css/styledom/styledom.hpp"
#include "css/substitute.hpp"
#include "css/value.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace vellum::domjs {

namespace {

using args_t = std::vector<e::js_value>;
using css::propnames::prop_name;

enum class css_style_declaration_type { css_style_attr, css_computed_style };

struct css_host : e::host_data {
    css_style_declaration_type css_type = css_style_declaration_type::css_style_attr;
    dom::element_ref css_element;
};

std::string lower(std::string s) {
    std::ranges::transform(s, s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

bool is_color_property(std::string_view name) {
    return name == "color" || name.ends_with("-color");
}

// The canonical text of a value of a property: colours as "#rrggbb", the text-decoration keywords in
// their fixed order, anything else as the value writes itself back.
std::string canonical_text(std::string_view name, css::value::value const& v) {
    if (is_color_property(name)) {
        if (auto const c = css::color::parse_color(v)) {
            return css::color::to_text(*c);
        }
    }
    if (name == "text-decoration" || name == "text-decoration-line") {
        std::vector<std::string> words;
        for (auto const& t : css::property::parse::terms_of(v)) {
            if (auto const k = css::property::parse::keyword_of(t)) {
                words.push_back(lower(*k));
            }
        }
        bool const has_over = std::ranges::find(words, "overline") != words.end();
        bool const has_through = std::ranges::find(words, "line-through") != words.end();
        bool const has_under = std::ranges::find(words, "underline") != words.end();
        if (has_over || has_through || has_under) {
            std::string out;
            for (auto [on, word] : {std::pair{has_over, "overline"}, std::pair{has_through, "line-through"},
                                    std::pair{has_under, "underline"}}) {
                if (on) {
                    out += out.empty() ? "" : " ";
                    out += word;
                }
            }
            return out;
        }
    }
    return css::value::to_text(v);
}

// One declaration of a style attribute as scripts rewrite it.
struct style_entry {
    std::string entry_name;
    std::string entry_text;
    bool entry_important = false;
};

std::string element_base_text(dom::dom_element const& el) {
    return resource::locator::locator_to_string(dom::element_base(el));
}

std::vector<style_entry> read_style_attribute(dom::dom_element const& el) {
    std::vector<style_entry> out;
    auto const text = get_attribute(el, "style");
    if (!text) {
        return out;
    }
    for (auto const& d : css::parser::parse_declarations(css::origin::style_attribute, element_base_text(el), *text)) {
        out.push_back(style_entry{.entry_name = d.prop_name,
                                  .entry_text = canonical_text(d.prop_name, d.value),
                                  .entry_important = d.important});
    }
    return out;
}

void write_style_attribute(dom::element_ref const& el, std::vector<style_entry> const& entries) {
    std::string out;
    for (auto const& en : entries) {
        out += out.empty() ? "" : " ";
        out += en.entry_name + ": " + en.entry_text + (en.entry_important ? " !important" : "") + ";";
    }
    if (out.empty()) {
        remove_attribute(el, "style");
    } else {
        set_attribute(el, "style", out);
    }
}

// The members of a shorthand for the four sides of a box, in the order top, right, bottom, left, as the
// one-to-four-value rule assigns them; nothing for other shorthands. (Members beyond the four sides,
// such as the inside and outside margins of facing pages, are left alone.)
std::optional<std::vector<std::string>> box_sides(std::vector<std::string> const& members) {
    std::vector<std::string> out;
    for (auto const* side : {"top", "right", "bottom", "left"}) {
        auto const on_side = [&](std::string const& m) { return m.find(std::string("-") + side) != std::string::npos; };
        // Exactly one member per side: "border" has three on each, and is no box shorthand.
        if (std::ranges::count_if(members, on_side) != 1) {
            return std::nullopt;
        }
        out.push_back(*std::ranges::find_if(members, on_side));
    }
    return out;
}

std::vector<std::string> member_names(prop_name p) {
    std::vector<std::string> out;
    for (auto const l : css::property::shorthand_members(p)) {
        out.emplace_back(css::propnames::css_name(css::property::name_of(l)));
    }
    return out;
}

bool valid_for(std::string const& name, css::value::value const& v) {
    return css::property::valid_declaration(css::declaration{.prop_name = name, .value = v});
}

// A shorthand's value split among its members, as text; nothing where the split is not plain (the
// shorthand is then kept as written). Members the value leaves out get "initial", as a shorthand resets
// them.
// Whether a piece of text is a valid value of a property.
bool text_valid_for(std::string const& name, std::string const& text) {
    auto const v = css::parser::parse_value("", text);
    return v && valid_for(name, *v);
}

// `font` split among its members: style, variant, weight and stretch keywords in any order ("normal"
// counts for any of them), then the size with an optional "/" and line height, then the family list,
// which is the rest of the text. Nothing for a text that does not read so (a system font keyword).
std::optional<std::vector<std::pair<std::string, std::string>>> expand_font(std::vector<std::string> const& members,
                                                                             std::string const& text) {
    std::vector<std::string> words;
    for (std::size_t i = 0; i < text.size();) {
        if (std::isspace(static_cast<unsigned char>(text[i]))) {
            ++i;
            continue;
        }
        // A slash stands apart, so that "12pt/1.5" and "12pt / 1.5" read alike.
        std::size_t j = i;
        if (text[j] == '/') {
            ++j;
        } else {
            while (j < text.size() && !std::isspace(static_cast<unsigned char>(text[j])) && text[j] != '/') {
                ++j;
            }
        }
        words.push_back(text.substr(i, j - i));
        i = j;
    }
    std::map<std::string, std::string> given;
    std::size_t w = 0;
    for (; w < words.size(); ++w) {
        if (lower(words[w]) == "normal") {
            continue;
        }
        bool placed = false;
        for (auto const* m : {"font-style", "font-variant", "font-weight", "font-stretch"}) {
            if (!given.contains(m) && std::ranges::find(members, m) != members.end() && text_valid_for(m, words[w])) {
                given[m] = lower(words[w]);
                placed = true;
                break;
            }
        }
        if (!placed) {
            break;
        }
    }
    if (w >= words.size() || !text_valid_for("font-size", words[w])) {
        return std::nullopt;
    }
    given["font-size"] = words[w++];
    if (w + 1 < words.size() && words[w] == "/") {
        if (!text_valid_for("line-height", words[w + 1])) {
            return std::nullopt;
        }
        given["line-height"] = words[w + 1];
        w += 2;
    }
    std::string family;
    for (; w < words.size(); ++w) {
        family += (family.empty() ? "" : " ") + words[w];
    }
    if (family.empty() || !text_valid_for("font-family", family)) {
        return std::nullopt;
    }
    given["font-family"] = family;
    std::vector<std::pair<std::string, std::string>> out;
    for (auto const& m : members) {
        auto const it = given.find(m);
        out.emplace_back(m, it != given.end() ? it->second : "initial");
    }
    return out;
}

// `background` split among its members layer by layer: in each comma-separated layer an image, an
// attachment, one or two boxes (one sets origin and clip, two set origin then clip), a repeat of one or
// two keywords, a position of up to four terms with an optional "/" and size, and in the last layer
// only a colour. A member no layer gives is "initial"; one that some layers give takes its initial text
// in the others, so that the layers stay lined up. Nothing for a value that does not read so.
std::optional<std::vector<std::pair<std::string, std::string>>> expand_background(
    std::vector<std::string> const& members, css::value::value const& v) {
    using css::value::value;
    auto const runs = css::property::parse::comma_runs(v);
    auto const joined = [](std::span<value const> terms) {
        std::string out;
        for (auto const& t : terms) {
            out += (out.empty() ? "" : " ") + css::value::to_text(t);
        }
        return out;
    };
    // The longest run of terms from i, at most `most` long, whose text the member takes.
    auto const longest = [&](std::vector<value> const& terms, std::size_t i, std::size_t most, std::string const& member)
        -> std::optional<std::pair<std::size_t, std::string>> {
        for (std::size_t n = std::min(most, terms.size() - i); n > 0; --n) {
            auto const text = joined(std::span<value const>(terms).subspan(i, n));
            if (text_valid_for(member, text)) {
                return std::pair{n, text};
            }
        }
        return std::nullopt;
    };
    std::vector<std::map<std::string, std::string>> layers;
    for (std::size_t li = 0; li < runs.size(); ++li) {
        auto const& terms = runs[li];
        if (terms.empty()) {
            return std::nullopt;
        }
        std::map<std::string, std::string> given;
        int boxes = 0;
        for (std::size_t i = 0; i < terms.size();) {
            auto const& t = terms[i];
            if (std::holds_alternative<css::value::slash>(t)) {
                return std::nullopt;
            }
            if (!given.contains("background-image") && valid_for("background-image", t)) {
                given["background-image"] = canonical_text("background-image", t);
                ++i;
            } else if (!given.contains("background-attachment") && valid_for("background-attachment", t)) {
                given["background-attachment"] = lower(css::value::to_text(t));
                ++i;
            } else if (boxes < 2 && valid_for("background-origin", t)) {
                auto const word = lower(css::value::to_text(t));
                if (boxes++ == 0) {
                    given["background-origin"] = word;
                }
                given["background-clip"] = word;
                ++i;
            } else if (auto const r = given.contains("background-repeat") ? std::nullopt
                                                                          : longest(terms, i, 2, "background-repeat")) {
                given["background-repeat"] = lower(r->second);
                i += r->first;
            } else if (auto const pos = given.contains("background-position")
                                            ? std::nullopt
                                            : longest(terms, i, 4, "background-position")) {
                given["background-position"] = pos->second;
                i += pos->first;
                if (i < terms.size() && std::holds_alternative<css::value::slash>(terms[i])) {
                    auto const size = i + 1 < terms.size() ? longest(terms, i + 1, 2, "background-size") : std::nullopt;
                    if (!size) {
                        return std::nullopt;
                    }
                    given["background-size"] = size->second;
                    i += 1 + size->first;
                }
            } else if (li + 1 == runs.size() && !given.contains("background-color") && valid_for("background-color", t)) {
                given["background-color"] = canonical_text("background-color", t);
                ++i;
            } else {
                return std::nullopt;
            }
        }
        layers.push_back(std::move(given));
    }
    static std::map<std::string, std::string> const initial_text = {
        {"background-attachment", "scroll"}, {"background-clip", "border-box"},  {"background-image", "none"},
        {"background-origin", "padding-box"}, {"background-position", "0% 0%"}, {"background-repeat", "repeat"},
        {"background-size", "auto"}};
    std::vector<std::pair<std::string, std::string>> out;
    for (auto const& m : members) {
        if (m == "background-color") {
            auto const it = layers.back().find(m);
            out.emplace_back(m, it != layers.back().end() ? it->second : "initial");
            continue;
        }
        if (std::ranges::none_of(layers, [&](auto const& l) { return l.contains(m); })) {
            out.emplace_back(m, "initial");
            continue;
        }
        std::string text;
        for (auto const& l : layers) {
            auto const it = l.find(m);
            auto const fallback = initial_text.find(m);
            text += (text.empty() ? "" : ", ") +
                    (it != l.end() ? it->second : fallback != initial_text.end() ? fallback->second : "initial");
        }
        out.emplace_back(m, text);
    }
    return out;
}

std::optional<std::vector<std::pair<std::string, std::string>>> expand_shorthand(prop_name p, css::value::value const& v) {
    auto const members = member_names(p);
    if (members.empty()) {
        return std::nullopt;
    }
    if (css::propnames::css_name(p) == "font") {
        if (auto const k = css::property::parse::keyword_of(v); !k || (lower(*k) != "inherit" && lower(*k) != "initial")) {
            return expand_font(members, css::value::to_text(v));
        }
    }
    std::vector<std::pair<std::string, std::string>> out;
    auto const terms = css::property::parse::terms_of(v);
    if (auto const k = css::property::parse::keyword_of(v); k && (lower(*k) == "inherit" || lower(*k) == "initial")) {
        for (auto const& m : members) {
            out.emplace_back(m, lower(*k));
        }
        return out;
    }
    if (css::propnames::css_name(p) == "background") {
        return expand_background(members, v);
    }
    if (css::propnames::css_name(p) == "border-radius") {
        // One to four horizontal radii, then after a slash one to four vertical ones, each list spread
        // over the corners top-left, top-right, bottom-right, bottom-left as box sides are.
        std::vector<css::value::value> h;
        std::vector<css::value::value> vert;
        bool slash = false;
        for (auto const& t : terms) {
            if (std::holds_alternative<css::value::slash>(t)) {
                if (slash) {
                    return std::nullopt;
                }
                slash = true;
            } else {
                (slash ? vert : h).push_back(t);
            }
        }
        if (h.empty() || h.size() > 4 || vert.size() > 4 || (slash && vert.empty())) {
            return std::nullopt;
        }
        static constexpr std::size_t pick[4][4] = {{0, 0, 0, 0}, {0, 1, 0, 1}, {0, 1, 2, 1}, {0, 1, 2, 3}};
        std::string const corners[4] = {"border-top-left-radius", "border-top-right-radius",
                                        "border-bottom-right-radius", "border-bottom-left-radius"};
        std::map<std::string, std::string> by_corner;
        for (std::size_t i = 0; i < 4; ++i) {
            auto const& x = h[pick[h.size() - 1][i]];
            if (!valid_for(corners[i], x)) {
                return std::nullopt;
            }
            std::string text = canonical_text(corners[i], x);
            if (slash) {
                auto const& y = vert[pick[vert.size() - 1][i]];
                if (!valid_for(corners[i], y)) {
                    return std::nullopt;
                }
                if (auto const yt = canonical_text(corners[i], y); yt != text) {
                    text += " " + yt;
                }
            }
            by_corner[corners[i]] = text;
        }
        for (auto const& m : members) {
            out.emplace_back(m, by_corner.contains(m) ? by_corner[m] : "initial");
        }
        return out;
    }
    if (auto const sides = box_sides(members)) {
        if (terms.empty() || terms.size() > 4) {
            return std::nullopt;
        }
        static constexpr std::size_t pick[4][4] = {{0, 0, 0, 0}, {0, 1, 0, 1}, {0, 1, 2, 1}, {0, 1, 2, 3}};
        for (std::size_t i = 0; i < 4; ++i) {
            auto const& t = terms[pick[terms.size() - 1][i]];
            out.emplace_back((*sides)[i], canonical_text((*sides)[i], t));
        }
        return out;
    }
    // Each term goes to every member that takes it and has no value yet: "1px solid red" gives the width,
    // style and colour of all four sides of a border.
    std::vector<std::optional<std::string>> given(members.size());
    for (auto const& t : terms) {
        bool used = false;
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (!given[i] && valid_for(members[i], t)) {
                given[i] = canonical_text(members[i], t);
                used = true;
            }
        }
        if (!used) {
            return std::nullopt;
        }
    }
    for (std::size_t i = 0; i < members.size(); ++i) {
        out.emplace_back(members[i], given[i].value_or("initial"));
    }
    return out;
}

// `css_get_prop` on the style attribute: the text of the last declaration of the property, or of the
// member in the last shorthand that sets it.
std::string style_attr_get(dom::dom_element const& el, prop_name p) {
    std::string const name(css::propnames::css_name(p));
    auto const entries = read_style_attribute(el);
    for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
        if (it->entry_name == name) {
            return it->entry_text;
        }
        auto const sp = css::propnames::lookup_property(it->entry_name);
        if (!sp || css::propnames::kind_of(*sp) != css::propnames::name_kind::shorthand) {
            continue;
        }
        auto const v = css::parser::parse_value(element_base_text(el), it->entry_text);
        if (!v) {
            continue;
        }
        if (auto const parts = expand_shorthand(*sp, *v)) {
            for (auto const& [m, t] : *parts) {
                if (m == name) {
                    return t;
                }
            }
        }
    }
    return {};
}

// `css_set_prop`: a value the property takes replaces the declaration or is added; a shorthand is set by
// its members. An empty value removes the declaration; a value the property doesn't take is ignored.
void style_attr_set(dom::element_ref const& el, prop_name p, std::string const& text) {
    std::string const name(css::propnames::css_name(p));
    auto entries = read_style_attribute(*el);
    auto const members = member_names(p);
    auto drop = [&](std::string const& n) { std::erase_if(entries, [&](style_entry const& en) { return en.entry_name == n; }); };
    auto put = [&](std::string const& n, std::string const& t) {
        for (auto& en : entries) {
            if (en.entry_name == n) {
                en.entry_text = t;
                en.entry_important = false;
                return;
            }
        }
        entries.push_back(style_entry{.entry_name = n, .entry_text = t});
    };
    auto trimmed = text;
    trimmed.erase(0, trimmed.find_first_not_of(" \t\r\n\f"));
    trimmed.erase(trimmed.find_last_not_of(" \t\r\n\f") + 1);
    if (trimmed.empty()) {
        drop(name);
        for (auto const& m : members) {
            drop(m);
        }
        write_style_attribute(el, entries);
        return;
    }
    auto const v = css::parser::parse_value(element_base_text(*el), trimmed);
    if (!v || !valid_for(name, *v)) {
        return;
    }
    if (!members.empty()) {
        if (auto const parts = expand_shorthand(p, *v)) {
            drop(name);
            for (auto const& [m, t] : *parts) {
                put(m, t);
            }
            write_style_attribute(el, entries);
            return;
        }
    }
    for (auto const& m : members) {
        drop(m);
    }
    put(name, canonical_text(name, *v));
    write_style_attribute(el, entries);
}

// ---- getComputedStyle --------------------------------------------------------------------------------------

// The initial value of every longhand as text (and of the shorthands scripts most often read as one),
// for properties that nothing sets on the element or, inherited, on an ancestor.
std::optional<std::string> initial_text(std::string const& name) {
    static std::map<std::string, std::string, std::less<>> const table = {
        {"background-attachment", "scroll"}, {"background-clip", "border-box"}, {"background-color", "transparent"},
        {"background-image", "none"}, {"background-image-resolution", "normal"},
        {"background-origin", "padding-box"}, {"background-position", "0% 0%"}, {"background-repeat", "repeat"},
        {"background-size", "auto"}, {"bookmark-label", "content(contents)"}, {"bookmark-level", "none"},
        {"bookmark-state", "open"}, {"bookmark-target", "none"}, {"border-bottom-color", "currentcolor"},
        {"border-bottom-left-radius", "0"}, {"border-bottom-right-radius", "0"}, {"border-bottom-style", "none"},
        {"border-bottom-width", "medium"}, {"border-clip", "normal"}, {"border-collapse", "separate"},
        {"border-left-color", "currentcolor"}, {"border-left-style", "none"}, {"border-left-width", "medium"},
        {"border-right-color", "currentcolor"}, {"border-right-style", "none"}, {"border-right-width", "medium"},
        {"border-spacing", "0"}, {"border-top-color", "currentcolor"}, {"border-top-left-radius", "0"},
        {"border-top-right-radius", "0"}, {"border-top-style", "none"}, {"border-top-width", "medium"},
        {"bottom", "auto"}, {"box-decoration-break", "slice"}, {"box-sizing", "content-box"},
        {"caption-page", "first"}, {"caption-side", "top"}, {"clear", "none"}, {"clip", "auto"},
        {"clip-path", "none"}, {"clip-rule", "nonzero"}, {"color", "#000000"}, {"column-break-after", "auto"},
        {"column-break-before", "auto"}, {"column-count", "auto"}, {"column-fill", "balance"},
        {"column-gap", "normal"}, {"column-rule-color", "currentcolor"}, {"column-rule-style", "none"},
        {"column-rule-width", "medium"}, {"column-span", "none"}, {"column-width", "auto"}, {"content", "normal"},
        {"counter-increment", "none"}, {"counter-reset", "none"}, {"direction", "ltr"}, {"display", "inline"},
        {"empty-cells", "show"}, {"fill", "black"}, {"fill-opacity", "1"}, {"fill-rule", "nonzero"},
        {"float", "none"}, {"flow", "normal"}, {"font-family", "serif"}, {"font-feature-settings", "normal"},
        {"font-kerning", "auto"}, {"font-size", "medium"}, {"font-stretch", "normal"}, {"font-style", "normal"},
        {"font-variant-caps", "normal"}, {"font-variant-east-asian", "normal"},
        {"font-variant-ligatures", "normal"}, {"font-variant-numeric", "normal"},
        {"font-variant-position", "normal"}, {"font-weight", "normal"}, {"footnote-style-position", "outside"},
        {"height", "auto"}, {"hyphenate-after", "2"}, {"hyphenate-before", "2"}, {"hyphenate-lines", "no-limit"},
        {"hyphenate-patterns", "none"}, {"hyphens", "manual"}, {"image-resolution", "normal"}, {"left", "auto"},
        {"letter-spacing", "normal"}, {"line-height", "normal"}, {"line-stacking-strategy", "inline-line-height"},
        {"link", "none"}, {"list-style-image", "none"}, {"list-style-position", "outside"},
        {"list-style-type", "disc"}, {"margin-bottom", "0"}, {"margin-inside", "0"}, {"margin-left", "0"},
        {"margin-outside", "0"}, {"margin-right", "0"}, {"margin-top", "0"}, {"marker-end", "none"},
        {"marker-mid", "none"}, {"marker-start", "none"}, {"max-height", "none"}, {"max-width", "none"},
        {"min-height", "0"}, {"min-width", "0"}, {"object-fit", "fill"}, {"object-position", "50% 50%"},
        {"opacity", "1"}, {"orphans", "2"}, {"overflow", "visible"}, {"overflow-wrap", "normal"},
        {"padding-bottom", "0"}, {"padding-left", "0"}, {"padding-right", "0"}, {"padding-top", "0"},
        {"page", "auto"}, {"page-break-after", "auto"}, {"page-break-before", "auto"},
        {"page-break-inside", "auto"}, {"page-group", "auto"}, {"position", "static"},
        {"-vellum-footnote-policy", "auto"}, {"-vellum-image-magic", "none"}, {"-vellum-lang", "none"},
        {"-vellum-linebreak-magic", "none"}, {"-vellum-pdf-destination", "none"}, {"-vellum-pdf-link-type", "auto"},
        {"-vellum-text-replace", "none"}, {"quotes", "none"}, {"right", "auto"}, {"stop-color", "black"},
        {"stop-opacity", "1"}, {"string-set", "none"}, {"stroke", "none"}, {"stroke-dasharray", "none"},
        {"stroke-dashoffset", "0"}, {"stroke-linecap", "butt"}, {"stroke-linejoin", "miter"},
        {"stroke-miterlimit", "4"}, {"stroke-opacity", "1"}, {"stroke-width", "1"}, {"table-baseline", "1"},
        {"table-column-span", "1"}, {"table-layout", "auto"}, {"table-row-span", "1"}, {"text-align", "start"},
        {"text-align-last", "auto"}, {"text-anchor", "start"}, {"text-indent", "0"}, {"text-justify", "auto"},
        {"text-line-through-color", "currentcolor"}, {"text-line-through-style", "none"}, {"text-overflow", "clip"},
        {"text-overline-color", "currentcolor"}, {"text-overline-style", "none"}, {"text-transform", "none"},
        {"text-underline-color", "currentcolor"}, {"text-underline-style", "none"}, {"top", "auto"},
        {"transform", "none"}, {"transform-origin", "50% 50%"}, {"unicode-bidi", "normal"},
        {"vertical-align", "baseline"}, {"visibility", "visible"}, {"white-space", "normal"}, {"widows", "2"},
        {"width", "auto"}, {"word-break", "normal"}, {"word-spacing", "normal"}, {"writing-mode", "horizontal-tb"},
        {"z-index", "auto"}, {"text-decoration", "none"}, {"font-variant", "normal"},
    };
    auto it = table.find(name);
    return it == table.end() ? std::nullopt : std::optional(it->second);
}

// The winning declarations of one element, in ascending priority.
std::vector<css::declaration> cascaded_declarations(styledom::document_rules const& rules, dom::dom_element const& el) {
    styledom::cascaded out;
    styledom::cascade_buffers buffers;
    styledom::tree::dom_tree const tree{};
    styledom::cascade_element(el, tree, rules, dom::element_base(el), out, buffers);
    std::vector<css::declaration> decls;
    for (auto const* pd : out.cascaded_pdecls) {
        decls.push_back(pd->declaration);
    }
    return decls;
}

// What the cascade declares for one element, as property name to text, shorthands expanded; var() is
// replaced from the custom properties the element has.
std::map<std::string, std::string> cascaded_values(std::vector<css::declaration> const& decls,
                                                   css::substitute::custom_properties const& customs) {
    std::map<std::string, std::string> values;
    css::substitute::context const ctx{.customs = &customs};
    for (auto const& d : decls) {
        if (d.prop_name.starts_with("--")) {
            continue;
        }
        auto value = d.value;
        if (css::substitute::has_var(value)) {
            auto const v = css::substitute::substitute(value, ctx);
            if (!v) {
                continue;
            }
            value = *v;
        }
        auto const p = css::propnames::lookup_property(d.prop_name);
        if (p && css::propnames::kind_of(*p) == css::propnames::name_kind::shorthand) {
            if (auto const parts = expand_shorthand(*p, value)) {
                for (auto const& [m, t] : *parts) {
                    values[m] = t;
                }
            }
            continue;
        }
        values[d.prop_name] = canonical_text(d.prop_name, value);
    }
    return values;
}

// ---- Computed lengths: font sizes down the chain, and lengths in points ----

constexpr double initial_font_size = 12.0;

std::string points_text(double pt) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4f", pt);
    std::string t = buf;
    t.erase(t.find_last_not_of('0') + 1);
    if (!t.empty() && t.back() == '.') {
        t.pop_back();
    }
    return (t == "-0" ? "0" : t) + "pt";
}

// A length in points from its number and unit, against a font size (em) and the root's (rem); nothing
// for units that are not lengths.
std::optional<double> length_points(double n, std::string unit, double em, double rem) {
    unit = lower(unit);
    if (unit == "pt") {
        return n;
    }
    if (unit == "px") {
        return n * 0.75;
    }
    if (unit == "in") {
        return n * 72;
    }
    if (unit == "cm") {
        return n * 72 / 2.54;
    }
    if (unit == "mm") {
        return n * 72 / 25.4;
    }
    if (unit == "q") {
        return n * 72 / 101.6;
    }
    if (unit == "pc") {
        return n * 12;
    }
    if (unit == "em") {
        return n * em;
    }
    if (unit == "rem") {
        return n * rem;
    }
    // The x-height and the width of "0" are taken as half an em.
    if (unit == "ex" || unit == "ch") {
        return n * em / 2;
    }
    return std::nullopt;
}

// The text of a computed value: every length in points, relative ones resolved against the font size of
// the element the value was declared on. Texts with strings or URLs are left as they are.
std::string resolve_lengths(std::string const& text, double em, double rem) {
    if (text.find('"') != std::string::npos || text.find('\'') != std::string::npos ||
        text.find("url(") != std::string::npos) {
        return text;
    }
    std::string out;
    std::size_t i = 0;
    while (i < text.size()) {
        bool const starts_number = std::isdigit(static_cast<unsigned char>(text[i])) ||
                                   (text[i] == '.' && i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1])));
        // Digits inside a name or a colour (#0f0, h1, x-2) are not numbers.
        auto const alpha_at = [&](std::size_t at) { return std::isalpha(static_cast<unsigned char>(text[at])) != 0; };
        bool const in_word =
            i > 0 && (std::isalnum(static_cast<unsigned char>(text[i - 1])) || text[i - 1] == '#' ||
                      (text[i - 1] == '-' && i > 1 && alpha_at(i - 2)));
        if (!starts_number || in_word) {
            out += text[i++];
            continue;
        }
        std::size_t j = i;
        while (j < text.size() && (std::isdigit(static_cast<unsigned char>(text[j])) || text[j] == '.')) {
            ++j;
        }
        std::size_t k = j;
        while (k < text.size() && std::isalpha(static_cast<unsigned char>(text[k]))) {
            ++k;
        }
        bool const negative = !out.empty() && out.back() == '-';
        double const n = std::strtod(text.substr(i, j - i).c_str(), nullptr);
        if (auto const pt = k > j ? length_points(n, text.substr(j, k - j), em, rem) : std::nullopt) {
            if (negative) {
                out.pop_back();
            }
            out += points_text(negative ? -*pt : *pt);
        } else {
            out += text.substr(i, k - i);
        }
        i = k;
    }
    return out;
}

// The computed font size of an element from its cascaded text and its parent's size.
double font_size_points(std::optional<std::string> const& text, double parent, double rem) {
    if (!text || *text == "inherit") {
        return parent;
    }
    auto const t = lower(*text);
    static std::map<std::string, double, std::less<>> const keywords = {
        {"xx-small", 3.0 / 5}, {"x-small", 3.0 / 4}, {"small", 8.0 / 9}, {"medium", 1},
        {"large", 6.0 / 5},    {"x-large", 3.0 / 2}, {"xx-large", 2},   {"initial", 1}};
    if (auto const it = keywords.find(t); it != keywords.end()) {
        return initial_font_size * it->second;
    }
    if (t == "larger") {
        return parent * 1.2;
    }
    if (t == "smaller") {
        return parent / 1.2;
    }
    char* end = nullptr;
    double const n = std::strtod(t.c_str(), &end);
    if (end == t.c_str()) {
        return parent;
    }
    std::string const unit(end);
    if (unit == "%") {
        return parent * n / 100;
    }
    return length_points(n, unit, parent, rem).value_or(parent);
}

std::string computed_get(e::js& engine, dom::element_ref const& el, prop_name p) {
    if (css::propnames::kind_of(p) == css::propnames::name_kind::shorthand) {
        // A shorthand reads as its members, if every member has a value, and they are joined.
        std::string out;
        for (auto const& m : member_names(p)) {
            auto const mp = css::propnames::lookup_property(m);
            std::string const t = mp ? computed_get(engine, el, *mp) : std::string();
            if (t.empty()) {
                throw internal_error(":shorthand pred failed.");
            }
            out += out.empty() ? "" : " ";
            out += t;
        }
        return out;
    }
    auto const doc = el->dom_element_owner_doc.lock();
    if (!doc) {
        return {};
    }
    // The sheets as they stand now: a script may have changed a style element or a class a moment ago.
    // Without a loader (an engine made for tests or the shell) only the style attributes count.
    auto collected = engine.js_loader ? styledom::sheets::collect_sheets(engine.js_log, *engine.js_loader, *doc)
                                      : styledom::sheets::collected{.sheets_env = css::parser::new_env("print")};
    auto const rules = styledom::index_document_rules(std::move(collected), doc->dom_document_style_info.use_author_style, {});
    // The element and its ancestors, nearest first, with their declarations.
    std::vector<std::vector<css::declaration>> chain;
    for (dom::element_ref cur = el; cur;) {
        chain.push_back(cascaded_declarations(rules, *cur));
        auto const holder = cur->dom_element_parent.get();
        auto const* parent = std::get_if<dom::element_parent>(&holder);
        cur = parent != nullptr ? parent->parent_element.lock() : nullptr;
    }
    // Custom properties inherit as a whole: each element's own override its ancestors'.
    std::vector<css::substitute::custom_properties> customs(chain.size());
    for (std::size_t i = chain.size(); i-- > 0;) {
        customs[i] = i + 1 < chain.size() ? customs[i + 1] : css::substitute::custom_properties{};
        for (auto const& d : chain[i]) {
            if (d.prop_name.starts_with("--")) {
                customs[i][d.prop_name] = d.value;
            }
        }
        customs[i] = css::substitute::resolve_customs(std::move(customs[i]));
    }
    std::vector<std::map<std::string, std::string>> values;
    for (std::size_t i = 0; i < chain.size(); ++i) {
        values.push_back(cascaded_values(chain[i], customs[i]));
    }
    // Font sizes from the root down: relative lengths resolve against them.
    std::vector<double> sizes(chain.size(), initial_font_size);
    for (std::size_t i = chain.size(); i-- > 0;) {
        double const parent = i + 1 < chain.size() ? sizes[i + 1] : initial_font_size;
        double const rem = i + 1 < chain.size() ? sizes.back() : initial_font_size;
        auto const it = values[i].find("font-size");
        sizes[i] = font_size_points(it != values[i].end() ? std::optional(it->second) : std::nullopt, parent, rem);
    }
    double const root_size = sizes.empty() ? initial_font_size : sizes.back();
    std::string const name(css::propnames::css_name(p));
    if (name == "font-size") {
        return points_text(sizes.empty() ? initial_font_size : sizes.front());
    }
    auto const longhand = css::property::longhand_named(p);
    bool const inherited = longhand && css::property::is_inherited(*longhand);
    // A border drawn with no style has no width.
    if (name.starts_with("border-") && name.ends_with("-width")) {
        auto const style = name.substr(0, name.size() - 5) + "style";
        if (auto const sp = css::propnames::lookup_property(style)) {
            auto const st = computed_get(engine, el, *sp);
            if (st == "none" || st == "hidden") {
                return "0pt";
            }
        }
    }
    std::string found;
    std::size_t at = 0;
    for (std::size_t i = 0; i < chain.size(); ++i) {
        auto const it = values[i].find(name);
        if (it != values[i].end() && it->second != "inherit") {
            if (it->second != "initial") {
                found = it->second;
                at = i;
            }
            break;
        }
        if (it == values[i].end() && !inherited) {
            break;
        }
    }
    if (found.empty()) {
        found = initial_text(name).value_or("");
        at = 0;
    }
    // Colours that follow the text colour compute to it.
    if (name != "color" && lower(found) == "currentcolor") {
        if (auto const cp = css::propnames::lookup_property("color")) {
            return computed_get(engine, el, *cp);
        }
    }
    if (name.starts_with("border-") && name.ends_with("-width")) {
        static std::map<std::string, std::string, std::less<>> const widths = {
            {"thin", "0.75pt"}, {"medium", "2.25pt"}, {"thick", "3.75pt"}};
        if (auto const it = widths.find(lower(found)); it != widths.end()) {
            return it->second;
        }
    }
    return chain.empty() ? found : resolve_lengths(found, sizes[at], root_size);
}

css_host const* css_of(e::js_value const& self) {
    auto const* o = std::get_if<js_object>(&self);
    if (o == nullptr) {
        return nullptr;
    }
    auto const* h = std::get_if<e::class_host_object>(&(*o)->obj_class);
    return h != nullptr ? dynamic_cast<css_host const*>(h->host_object.get()) : nullptr;
}

js_object new_declaration(e::js& engine, css_style_declaration_type type, dom::element_ref const& el) {
    auto h = std::make_shared<css_host>();
    h->css_type = type;
    h->css_element = el;
    return e::new_object_of(engine, e::class_host_object{.host_object = h},
                            e::yes_proto{.proto = prototypes_of(engine).prototype_css_style_declaration});
}

std::string css_get_prop(e::js& engine, css_host const& c, prop_name p) {
    switch (c.css_type) {
    case css_style_declaration_type::css_style_attr: return style_attr_get(*c.css_element, p);
    case css_style_declaration_type::css_computed_style: return computed_get(engine, c.css_element, p);
    }
    return {};
}

using css_fn = std::function<e::expr_res<e::js_value>(e::js&, css_host const&, args_t const&)>;

native_fn on_css(css_fn f) {
    return [f = std::move(f)](e::js& engine, e::js_value const& self, args_t const& args) -> e::expr_res<e::js_value> {
        auto const* c = css_of(self);
        if (c == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return f(engine, *c, args);
    };
}

// The property a script names by its CSS name, if known.
std::optional<prop_name> property_named(std::string const& name) {
    return css::propnames::lookup_property(lower(name));
}

} // namespace

std::optional<std::string> class_name_of(e::host_value const& h) {
    if (dynamic_cast<css_host const*>(h.get()) != nullptr) {
        return "CSSStyleDeclaration";
    }
    return collection_class(h);
}

e::js_value style_object(e::js& engine, dom::element_ref const& el) {
    return new_declaration(engine, css_style_declaration_type::css_style_attr, el);
}

e::expr_res<std::vector<dom::element_ref>> query_selector(e::js& engine, dom::dom_node const& root, std::string const& text,
                                                          bool first_only) {
    auto parsed = css::selector::parse_selector_text(text, css::namespaces{});
    if (!parsed || parsed->empty()) {
        return throw_dom(engine, dom_exception::syntax_err);
    }
    auto selectors = *parsed;
    auto const doc = owner_document(root);
    if (doc && is_html_document(*doc)) {
        for (auto& s : selectors) {
            s = css::selector::fold_html_case(s);
        }
    }
    std::vector<dom::element_ref> found;
    for_each_element(root, [&](dom::element_ref const& el) {
        if (std::ranges::any_of(selectors, [&](auto const& s) { return styledom::element_matches(s, *el); })) {
            found.push_back(el);
            return !first_only;
        }
        return true;
    });
    return found;
}

void install_style(e::js& engine, dom_state& state) {
    js_object const proto = state.state_prototypes.prototype_css_style_declaration;
    for (int i = 0; i < css::propnames::prop_name_count; ++i) {
        auto const p = prop_name(i);
        if (css::propnames::kind_of(p) == css::propnames::name_kind::page_only) {
            continue;
        }
        webidl::add_native_accessor(
            engine, proto, css::propnames::script_name(p),
            on_css([p](e::js& engine, css_host const& c, args_t const&) -> e::expr_res<e::js_value> {
                return str(css_get_prop(engine, c, p));
            }),
            on_css([p](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                if (c.css_type == css_style_declaration_type::css_computed_style) {
                    return throw_dom(engine, dom_exception::invalid_state_err);
                }
                auto text = arg_text(engine, args, 0);
                if (auto const* x = std::get_if<e::exception>(&text)) {
                    return *x;
                }
                style_attr_set(c.css_element, p, std::get<std::string>(text));
                return e::undefined();
            }));
    }
    webidl::add_native_method(engine, proto, "getPropertyValue", 1,
                              on_css([](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                                  auto name = arg_text(engine, args, 0);
                                  if (auto const* x = std::get_if<e::exception>(&name)) {
                                      return *x;
                                  }
                                  auto const p = property_named(std::get<std::string>(name));
                                  return str(p ? css_get_prop(engine, c, *p) : std::string());
                              }));
    webidl::add_native_method(engine, proto, "setProperty", 2,
                              on_css([](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                                  if (c.css_type == css_style_declaration_type::css_computed_style) {
                                      return throw_dom(engine, dom_exception::invalid_state_err);
                                  }
                                  auto texts = arg_texts(engine, args, 2);
                                  if (auto const* x = std::get_if<e::exception>(&texts)) {
                                      return *x;
                                  }
                                  auto const& t = std::get<std::vector<std::string>>(texts);
                                  if (auto const p = property_named(t[0])) {
                                      style_attr_set(c.css_element, *p, t[1]);
                                  }
                                  return e::undefined();
                              }));
    webidl::add_native_accessor(engine, proto, "cssText",
                                on_css([](e::js&, css_host const& c, args_t const&) -> e::expr_res<e::js_value> {
                                    if (c.css_type == css_style_declaration_type::css_computed_style) {
                                        return str("");
                                    }
                                    return str(get_attribute(*c.css_element, "style").value_or(""));
                                }),
                                on_css([](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                                    if (c.css_type == css_style_declaration_type::css_computed_style) {
                                        return throw_dom(engine, dom_exception::invalid_state_err);
                                    }
                                    auto text = arg_text(engine, args, 0);
                                    if (auto const* x = std::get_if<e::exception>(&text)) {
                                        return *x;
                                    }
                                    set_attribute(c.css_element, "style", std::get<std::string>(text));
                                    return e::undefined();
                                }));

    // `getComputedStyle(element)`: a declaration that computes at each read.
    js_object const f = webidl::add_native_method(
        engine, engine.global_object, "getComputedStyle", 1,
        [](e::js& engine, e::js_value const&, args_t const& args) -> e::expr_res<e::js_value> {
            auto const n = args.empty() ? std::nullopt : node_of(args[0]);
            auto const* el = n ? std::get_if<dom::element_ref>(&*n) : nullptr;
            if (el == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_arguments);
            }
            return new_declaration(engine, css_style_declaration_type::css_computed_style, *el);
        });
    (void)f;

    // The boxes of the finished layout, as `getVellumBoxes` gives them.
    auto const box_info = webidl::make_interface(engine, "BoxInfo", std::nullopt);
    state.state_prototypes.prototype_box_info = box_info.prototype;
    auto const box_children = webidl::make_interface(engine, "BoxInfoChildren", std::nullopt);
    state.state_prototypes.prototype_box_info_children = box_children.prototype;
    // `item(i)`: the child at that index, or null past the end.
    webidl::add_native_method(
        engine, box_children.prototype, "item", 1,
        [](e::js& engine, e::js_value const& self, args_t const& args) -> e::expr_res<e::js_value> {
            auto const* o = std::get_if<e::js_object>(&self);
            if (o == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_this);
            }
            js::number n;
            if (auto ex = e::builtins::take(e::to_number(engine, args.empty() ? e::js_value{e::js_undefined{}} : args[0]), n)) {
                return *ex;
            }
            double const d = e::to_double(n);
            if (!(d >= 0) || d >= 4294967296.0) {
                return e::js_value{e::js_null{}};
            }
            e::js_value v;
            if (auto ex = e::builtins::take(e::builtins::get_named(engine, *o, std::to_string(static_cast<std::uint64_t>(d))), v)) {
                return *ex;
            }
            return std::holds_alternative<e::js_undefined>(v) ? e::js_value{e::js_null{}} : v;
        });
}

} // namespace vellum::domjs
