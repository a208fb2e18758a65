#include "text/fonts/font_face.hpp"

#include "css/lexer.hpp"

#include <cmath>

namespace vellum::fonts::font_face {

namespace {

using css::value::value;

// The terms of a declaration split at its commas: "a b, c" gives [[a, b], [c]].
std::vector<std::vector<value>> comma_groups(value const& v) {
    std::vector<std::vector<value>> groups(1);
    auto const add = [&](value const& term) {
        if (std::holds_alternative<css::value::comma>(term)) {
            groups.emplace_back();
        } else {
            groups.back().push_back(term);
        }
    };
    if (auto const* list = std::get_if<css::value::values>(&v)) {
        for (auto const& term : list->value_list) {
            add(term);
        }
    } else {
        add(v);
    }
    return groups;
}

// A family name: one string, or identifiers that stand for their text joined by single blanks.
std::optional<std::string> name_of(std::vector<value> const& terms) {
    if (terms.size() == 1) {
        if (auto const* s = std::get_if<css::value::string>(&terms.front())) {
            return s->string_text;
        }
    }
    std::string name;
    for (auto const& t : terms) {
        auto const* i = std::get_if<css::value::ident>(&t);
        if (!i) {
            return std::nullopt;
        }
        name += (name.empty() ? "" : " ") + i->ident_name;
    }
    if (name.empty()) {
        return std::nullopt;
    }
    return name;
}

std::optional<std::string> single_ident(value const& v) {
    if (auto const* i = std::get_if<css::value::ident>(&v)) {
        return i->ident_name;
    }
    return std::nullopt;
}

bool is(std::optional<std::string> const& word, char const* keyword) {
    return word && css::lexer::equals_ignoring_case(*word, keyword);
}

std::optional<truetype::truetype_weight> read_weight(value const& v) {
    using enum truetype::truetype_weight;
    auto const word = single_ident(v);
    if (is(word, "normal")) {
        return normal;
    }
    if (is(word, "bold")) {
        return bold;
    }
    if (auto const* n = std::get_if<css::value::number>(&v)) {
        double const x = css::number_as_double(n->number_value);
        if (x == std::floor(x) && x >= 100 && x <= 900 && int(x) % 100 == 0) {
            return truetype::weight_of_class(std::uint16_t(x));
        }
    }
    return std::nullopt;
}

std::optional<match::font_style> read_style(value const& v) {
    auto const word = single_ident(v);
    if (is(word, "normal")) {
        return match::font_style::normal;
    }
    if (is(word, "italic")) {
        return match::font_style::italic;
    }
    if (is(word, "oblique")) {
        return match::font_style::oblique;
    }
    return std::nullopt;
}

std::optional<truetype::truetype_width> read_width(value const& v) {
    auto const word = single_ident(v);
    if (!word) {
        return std::nullopt;
    }
    for (int i = 1; i <= 9; ++i) {
        auto const w = *truetype::width_of_class(std::uint16_t(i));
        if (css::lexer::equals_ignoring_case(*word, width_keyword(w))) {
            return w;
        }
    }
    return std::nullopt;
}

std::optional<match::font_variant> read_variant(value const& v) {
    auto const word = single_ident(v);
    if (is(word, "normal")) {
        return match::font_variant::normal;
    }
    if (is(word, "small-caps")) {
        return match::font_variant::small_caps;
    }
    return std::nullopt;
}

std::optional<unicode::range::unicode_range> read_range(value const& v) {
    unicode::range::unicode_range ranges;
    for (auto const& group : comma_groups(v)) {
        if (group.size() != 1) {
            return std::nullopt;
        }
        auto const* r = std::get_if<css::value::unicode_range>(&group.front());
        if (!r) {
            return std::nullopt;
        }
        ranges.insert(ranges.end(), r->ranges.begin(), r->ranges.end());
    }
    return ranges;
}

// Whether the format(...) hints after a url name a kind of file that can be read: sfnt fonts (TrueType,
// OpenType, collections, variable fonts at their default instance) and WOFF 1.0. A source hinted as
// WOFF 2, EOT or SVG is passed over without fetching it, so the next source of the rule is tried, as a
// browser does. No hint at all leaves it to the file itself.
bool formats_readable(std::vector<value> const& terms) {
    bool hinted = false;
    for (std::size_t i = 1; i < terms.size(); ++i) {
        auto const* f = std::get_if<css::value::function>(&terms[i]);
        if (!f || !css::lexer::equals_ignoring_case(f->function_name, "format")) {
            continue;
        }
        for (auto const& arg : f->function_args) {
            std::vector<value> const words = std::holds_alternative<css::value::values>(arg)
                                                 ? std::get<css::value::values>(arg).value_list
                                                 : std::vector<value>{arg};
            for (auto const& w : words) {
                std::string text;
                if (auto const* s = std::get_if<css::value::string>(&w)) {
                    text = s->string_text;
                } else if (auto const* i = std::get_if<css::value::ident>(&w)) {
                    text = i->ident_name;
                } else {
                    continue;
                }
                hinted = true;
                for (char const* known : {"truetype", "opentype", "woff", "collection", "truetype-variations",
                                          "opentype-variations", "woff-variations"}) {
                    if (css::lexer::equals_ignoring_case(text, known)) {
                        return true;
                    }
                }
            }
        }
    }
    return !hinted;
}

// One entry of src: url(...) with an optional format(...) hint, local(name) or vellum-lookup(name).
std::optional<font_src> read_src(std::vector<value> const& terms, url_resolver const& resolve) {
    if (terms.empty()) {
        return std::nullopt;
    }
    if (auto const* u = std::get_if<css::value::url>(&terms.front())) {
        if (!formats_readable(terms)) {
            return std::nullopt;
        }
        return src_url{resolve(u->url_text, u->url_base)};
    }
    auto const* f = std::get_if<css::value::function>(&terms.front());
    if (!f || terms.size() != 1 || f->function_args.size() != 1) {
        return std::nullopt;
    }
    auto const arg = f->function_args.front();
    std::vector<value> const arg_terms = std::holds_alternative<css::value::values>(arg)
                                             ? std::get<css::value::values>(arg).value_list
                                             : std::vector<value>{arg};
    auto const name = name_of(arg_terms);
    if (!name) {
        return std::nullopt;
    }
    if (css::lexer::equals_ignoring_case(f->function_name, "local")) {
        return src_local{*name};
    }
    if (css::lexer::equals_ignoring_case(f->function_name, "vellum-lookup") ||
        css::lexer::equals_ignoring_case(f->function_name, "-vellum-lookup")) {
        return src_lookup{*name};
    }
    return std::nullopt;
}

} // namespace

result<font_face> read_font_face(css::declarations const& decls, url_resolver const& resolve) {
    font_face face;
    bool has_family = false;
    for (auto const& d : decls) {
        auto const& n = d.prop_name;
        if (n == "font-family") {
            auto const groups = comma_groups(d.value);
            if (groups.size() == 1) {
                if (auto name = name_of(groups.front())) {
                    face.face_family = *name;
                    has_family = true;
                }
            }
        } else if (n == "src") {
            face.face_srcs.clear();
            for (auto const& group : comma_groups(d.value)) {
                if (auto s = read_src(group, resolve)) {
                    face.face_srcs.push_back(*s);
                }
            }
        } else if (n == "font-weight") {
            if (auto w = read_weight(d.value)) {
                face.face_weight = *w;
            }
        } else if (n == "font-style") {
            if (auto s = read_style(d.value)) {
                face.face_style = *s;
            }
        } else if (n == "font-stretch") {
            if (auto w = read_width(d.value)) {
                face.face_width = *w;
            }
        } else if (n == "font-variant") {
            if (auto v = read_variant(d.value)) {
                face.face_variant = *v;
            }
        } else if (n == "unicode-range") {
            face.face_range = read_range(d.value);
        }
    }
    if (!has_family) {
        return fail("@font-face: no font-family");
    }
    if (face.face_srcs.empty()) {
        return fail("@font-face: no usable src for \"" + face.face_family + "\"");
    }
    return face;
}

url_resolver system_resolver(resource::locator::locator const& sheet) {
    return [sheet](std::string const& text, std::string const&) {
        return resource::locator::resolve_locator(sheet, text);
    };
}

char const* weight_keyword(truetype::truetype_weight w) {
    switch (w) {
    case truetype::truetype_weight::weight_100:
        return "100";
    case truetype::truetype_weight::weight_200:
        return "200";
    case truetype::truetype_weight::weight_300:
        return "300";
    case truetype::truetype_weight::normal:
        return "normal";
    case truetype::truetype_weight::weight_500:
        return "500";
    case truetype::truetype_weight::weight_600:
        return "600";
    case truetype::truetype_weight::bold:
        return "bold";
    case truetype::truetype_weight::weight_800:
        return "800";
    case truetype::truetype_weight::weight_900:
        return "900";
    }
    return "normal";
}

char const* width_keyword(truetype::truetype_width w) {
    switch (w) {
    case truetype::truetype_width::ultra_condensed:
        return "ultra-condensed";
    case truetype::truetype_width::extra_condensed:
        return "extra-condensed";
    case truetype::truetype_width::condensed:
        return "condensed";
    case truetype::truetype_width::semi_condensed:
        return "semi-condensed";
    case truetype::truetype_width::normal:
        return "normal";
    case truetype::truetype_width::semi_expanded:
        return "semi-expanded";
    case truetype::truetype_width::expanded:
        return "expanded";
    case truetype::truetype_width::extra_expanded:
        return "extra-expanded";
    case truetype::truetype_width::ultra_expanded:
        return "ultra-expanded";
    }
    return "normal";
}

} // namespace vellum::fonts::font_face
