#include "css/media.hpp"

#include "css/units.hpp"

#include <cmath>

#include "css/terms.hpp"

namespace vellum::css::media {

namespace {

using lexer::symbol;

bool is_word(cursor::cursor const& c, std::string_view word) {
    auto const* i = c.get<lexer::ident>();
    return i != nullptr && lexer::equals_ignoring_case(i->ident_name, word);
}

// "(name)" or "(name: value)"; the opening bracket is already consumed.
result<media_expression> expression(cursor::cursor& c) {
    c.skip_spaces();
    auto const* name = c.get<lexer::ident>();
    if (name == nullptr) {
        return fail("media query: feature name expected");
    }
    ++c.pos;
    media_feature out{.feature_name = lexer::ascii_lower(name->ident_name)};
    c.skip_spaces();
    if (c.accept(symbol::colon)) {
        auto v = terms::parse_terms(c, terms::context{}, terms::term_end::close_paren);
        if (!v) {
            return fail(v.error());
        }
        out.feature_value = std::move(*v);
    }
    c.skip_spaces();
    if (!c.accept(symbol::close_paren)) {
        return fail("media query: ')' expected");
    }
    return out;
}

result<query> one_query(cursor::cursor& c) {
    bool negate = false;
    if (is_word(c, "not")) {
        negate = true;
        ++c.pos;
        c.skip_spaces();
    } else if (is_word(c, "only")) {
        ++c.pos;
        c.skip_spaces();
    }
    media_query q{.media_type = "all"};
    bool need_expression = false;
    if (auto const* type = c.get<lexer::ident>()) {
        q.media_type = lexer::ascii_lower(type->ident_name);
        ++c.pos;
        c.skip_spaces();
        if (!is_word(c, "and")) {
            return negate ? query{not_media_query{q}} : query{q};
        }
        ++c.pos;
        c.skip_spaces();
        need_expression = true;
    } else if (negate) {
        return fail("media query: media type expected after 'not'");
    }
    // A query may also start with an expression, as "(color) and (monochrome)" for all media.
    while (true) {
        if (!c.accept(symbol::open_paren)) {
            if (need_expression || q.expressions.empty()) {
                return fail("media query: '(' expected");
            }
            break;
        }
        auto e = expression(c);
        if (!e) {
            return fail(e.error());
        }
        q.expressions.push_back(std::move(*e));
        c.skip_spaces();
        need_expression = false;
        if (!is_word(c, "and")) {
            break;
        }
        ++c.pos;
        c.skip_spaces();
        need_expression = true;
    }
    return negate ? query{not_media_query{q}} : query{q};
}

std::optional<double> numeric(value::value const& v) {
    if (auto const* n = std::get_if<value::number>(&v)) {
        return number_as_double(n->number_value);
    }
    return std::nullopt;
}

// Paged output is in colour, has no grid and no pointer. Features that depend on the page size aren't
// known while style sheets are read, so they don't hold, and neither do unknown features.
// A length of a media feature in points; em counts against the initial font size.
std::optional<float> feature_length(value::value const& v) {
    auto const l = units::length_from_value(v);
    if (!l) {
        return std::nullopt;
    }
    return units::to_points(*l, {.resolution_font_size = 12, .resolution_dpi = 96});
}

// width, height, their min- and max- forms, and orientation, against the page.
std::optional<bool> page_feature_holds(media_expression const& e, std::pair<float, float> const& page) {
    std::string_view name = e.feature_name;
    if (name == "orientation") {
        auto const* i = e.feature_value ? std::get_if<value::ident>(&*e.feature_value) : nullptr;
        if (i == nullptr) {
            return e.feature_value ? std::optional<bool>(false) : std::optional<bool>(true);
        }
        std::string const want = lexer::ascii_lower(i->ident_name);
        bool const portrait = page.second >= page.first;
        return want == (portrait ? "portrait" : "landscape");
    }
    int bound = 0;
    if (name.starts_with("min-")) {
        bound = -1;
        name.remove_prefix(4);
    } else if (name.starts_with("max-")) {
        bound = 1;
        name.remove_prefix(4);
    }
    if (name != "width" && name != "height") {
        return std::nullopt;
    }
    float const actual = name == "width" ? page.first : page.second;
    if (!e.feature_value) {
        return bound == 0 ? std::optional<bool>(actual > 0) : std::nullopt;
    }
    auto const wanted = feature_length(*e.feature_value);
    if (!wanted) {
        return false;
    }
    // Lengths in points from CSS pixels don't come out exact; a hair's breadth is equality.
    constexpr float hair = 0.01f;
    switch (bound) {
    case -1: return actual >= *wanted - hair;
    case 1: return actual <= *wanted + hair;
    default: return std::abs(actual - *wanted) <= hair;
    }
}

bool expression_holds(media_expression const& e, std::optional<std::pair<float, float>> const& page) {
    std::string_view const name = e.feature_name;
    if (page) {
        if (auto const holds = page_feature_holds(e, *page)) {
            return *holds;
        }
    }
    if (name == "color") {
        return !e.feature_value || numeric(*e.feature_value).value_or(0) == 8;
    }
    if (name == "min-color") {
        return e.feature_value && numeric(*e.feature_value).value_or(9) <= 8;
    }
    if (name == "monochrome" || name == "grid") {
        return e.feature_value && numeric(*e.feature_value) == 0.0;
    }
    return false;
}

bool query_holds(media_query const& q, std::string_view medium, std::optional<std::pair<float, float>> const& page) {
    if (q.media_type != "all" && q.media_type != lexer::ascii_lower(medium)) {
        return false;
    }
    for (auto const& e : q.expressions) {
        if (!expression_holds(e, page)) {
            return false;
        }
    }
    return true;
}

} // namespace

result<query_list> parse_query_list(cursor::cursor& c) {
    query_list out;
    c.skip_spaces();
    if (c.at_end() || c.is(symbol::open_brace) || c.is(symbol::semicolon)) {
        return out;
    }
    while (true) {
        auto q = one_query(c);
        if (!q) {
            return fail(q.error());
        }
        out.push_back(std::move(*q));
        c.skip_spaces();
        if (!c.accept(symbol::comma)) {
            break;
        }
        c.skip_spaces();
    }
    if (!c.at_end() && !c.is(symbol::open_brace) && !c.is(symbol::semicolon)) {
        return fail("media query: unexpected '" + lexer::to_text(c.peek()) + "'");
    }
    return out;
}

result<query_list> parse_query_text(std::string_view text) {
    auto const tokens = lexer::scan(text);
    cursor::cursor c{tokens};
    auto list = parse_query_list(c);
    if (list && !c.at_end()) {
        return fail("media query: unexpected '" + lexer::to_text(c.peek()) + "'");
    }
    return list;
}

bool matches(query_list const& list, std::string_view medium, std::optional<std::pair<float, float>> const& page) {
    if (list.empty()) {
        return true;
    }
    for (auto const& q : list) {
        bool const holds = std::visit(overloaded{
                                          [&](media_query const& m) { return query_holds(m, medium, page); },
                                          [&](not_media_query const& n) {
                                              return !query_holds(n.negated_query, medium, page);
                                          },
                                      },
                                      q);
        if (holds) {
            return true;
        }
    }
    return false;
}

} // namespace vellum::css::media
