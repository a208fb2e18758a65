#include "css/terms.hpp"

#include <climits>

namespace vellum::css::terms {

namespace {

using lexer::symbol;

int hex_digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// "#rgb" repeats each digit ("#abc" is "#aabbcc"); "#rrggbb" is three pairs; nothing else is a colour.
result<value::value> hex_color(std::string const& name) {
    for (char ch : name) {
        if (hex_digit(ch) < 0) {
            return fail("'#" + name + "' is not a colour");
        }
    }
    if (name.size() == 3) {
        return value::value{value::hexcolor{hex_digit(name[0]) * 17, hex_digit(name[1]) * 17, hex_digit(name[2]) * 17}};
    }
    if (name.size() == 6) {
        auto pair = [&](std::size_t i) { return hex_digit(name[i]) * 16 + hex_digit(name[i + 1]); };
        return value::value{value::hexcolor{pair(0), pair(2), pair(4)}};
    }
    return fail("'#" + name + "' is not a colour");
}

css::number negate(css::number const& n) {
    return std::visit(overloaded{
                          [](int i) { return css::number{i == INT_MIN ? INT_MAX : -i}; },
                          [](double d) { return css::number{-d}; },
                      },
                      n);
}

// A number and what directly follows it: a unit makes a dimension, "%" a percentage.
value::value numeric(cursor::cursor& c, css::number n) {
    if (auto const* unit = c.get<lexer::ident>()) {
        ++c.pos;
        return value::dimension{n, lexer::ascii_lower(unit->ident_name)};
    }
    if (c.accept(symbol::percent)) {
        return value::percent{n};
    }
    return value::number{n};
}

// attr(name), attr(prefix|name), with an optional type and then an optional default term.
result<value::value> attr_function(cursor::cursor& c, context const& ctx) {
    c.skip_spaces();
    value::attr out;
    auto const* first = c.get<lexer::ident>();
    if (first == nullptr) {
        return fail("attr(): attribute name expected");
    }
    ++c.pos;
    out.attr_name.attr_local = first->ident_name;
    if (c.is(symbol::bar)) {
        ++c.pos;
        auto const* local = c.get<lexer::ident>();
        if (local == nullptr) {
            return fail("attr(): attribute name expected after '|'");
        }
        auto const it = ctx.namespaces.find(first->ident_name);
        if (it == ctx.namespaces.end()) {
            return fail("attr(): undeclared namespace prefix '" + first->ident_name + "'");
        }
        ++c.pos;
        out.attr_name = {it->second, local->ident_name};
    }
    c.skip_spaces();
    // The type follows the name after a comma, or after blanks alone as CSS Values writes it:
    // "attr(data-w, length, 5px)" and "attr(data-w length, 5px)" are the same.
    bool const comma = c.accept(symbol::comma);
    if (comma) {
        c.skip_spaces();
    }
    if (auto const* type = c.get<lexer::ident>()) {
        ++c.pos;
        out.attr_type = type->ident_name;
        c.skip_spaces();
        if (c.accept(symbol::comma)) {
            c.skip_spaces();
            auto d = parse_term(c, ctx);
            if (!d) {
                return fail(d.error());
            }
            out.attr_default = share(std::move(*d));
            c.skip_spaces();
        }
    } else if (comma) {
        return fail("attr(): type expected");
    }
    if (!c.accept(symbol::close_paren) && !c.at_end()) {
        return fail("attr(): ')' expected");
    }
    return value::value{out};
}

result<value::value> term_in(cursor::cursor& c, context const& ctx, bool math);

// calc(), min(), max() and clamp() take the operators "+", "-", "*" and "/" and brackets among their
// terms.
bool is_math_function(std::string_view name) {
    return lexer::equals_ignoring_case(name, "calc") || lexer::equals_ignoring_case(name, "min") ||
           lexer::equals_ignoring_case(name, "max") || lexer::equals_ignoring_case(name, "clamp") ||
           lexer::equals_ignoring_case(name, "-webkit-calc");
}

// The arguments of a function: comma-separated runs of terms up to ")". The end of the text closes an
// open function, as it closes every open construct of a sheet.
result<value::value> function(cursor::cursor& c, context const& ctx, std::string const& name) {
    bool const math = is_math_function(name);
    if (lexer::equals_ignoring_case(name, "attr")) {
        return attr_function(c, ctx);
    }
    value::function out{.function_name = name};
    std::vector<value::value> run;
    auto end_argument = [&]() -> bool {
        if (run.empty()) {
            return false;
        }
        if (run.size() == 1) {
            out.function_args.push_back(std::move(run.front()));
        } else {
            out.function_args.push_back(value::values{std::move(run)});
        }
        run.clear();
        return true;
    };
    while (true) {
        c.skip_spaces();
        if (c.at_end() || c.accept(symbol::close_paren)) {
            // "content()" is short for "content(text)", the running-header idiom of string-set and
            // bookmark-label.
            if (run.empty() && out.function_args.empty() && lexer::equals_ignoring_case(name, "content")) {
                out.function_args.push_back(value::ident{"text"});
                break;
            }
            if (!end_argument()) {
                return fail(name + "(): empty argument");
            }
            break;
        }
        if (c.accept(symbol::comma)) {
            if (!end_argument()) {
                return fail(name + "(): empty argument");
            }
            continue;
        }
        auto t = term_in(c, ctx, math);
        if (!t) {
            return fail(t.error());
        }
        run.push_back(std::move(*t));
    }
    // url("...") with a quoted argument is the same as the unquoted form.
    if (lexer::equals_ignoring_case(name, "url") && out.function_args.size() == 1) {
        if (auto const* s = std::get_if<value::string>(&out.function_args.front())) {
            return value::value{value::url{s->string_text, ctx.base}};
        }
    }
    return value::value{out};
}

bool at_term_end(cursor::cursor const& c, term_end end) {
    if (c.at_end()) {
        return true;
    }
    switch (end) {
    case term_end::declaration:
        return c.is(symbol::semicolon) || c.is(symbol::close_brace) || c.is(symbol::bang);
    case term_end::close_paren: return c.is(symbol::close_paren);
    }
    return true;
}

// One declaration at the cursor, which stands on its name. Fails without consuming a defined amount;
// the caller skips to the next declaration.
result<declaration> one_declaration(cursor::cursor& c, list_context const& ctx) {
    if (c.get<lexer::ident>() == nullptr && !c.at_end()) {
        return fail("declaration: property name expected, found '" + lexer::to_text(c.peek()) + "'");
    }
    auto const* name = c.get<lexer::ident>();
    if (name == nullptr) {
        return fail("declaration: property name expected");
    }
    ++c.pos;
    // Custom property names are case-sensitive; all others are not.
    bool const custom = is_custom_property(name->ident_name);
    declaration out{.prop_name = custom ? name->ident_name : lexer::ascii_lower(name->ident_name),
                    .origin = ctx.origin};
    c.skip_spaces();
    if (!c.accept(symbol::colon)) {
        return fail("declaration of '" + out.prop_name + "': ':' expected");
    }
    c.skip_spaces();
    auto v = parse_terms(c, ctx.terms, term_end::declaration);
    if (!v) {
        return fail("declaration of '" + out.prop_name + "': " + v.error());
    }
    out.value = std::move(*v);
    if (c.accept(symbol::bang)) {
        c.skip_spaces();
        auto const* word = c.get<lexer::ident>();
        if (word == nullptr || word->ident_name != "important") {
            return fail("declaration of '" + out.prop_name + "': 'important' expected after '!'");
        }
        ++c.pos;
        out.important = true;
    }
    c.skip_spaces();
    if (!c.at_end() && !c.is(symbol::close_brace) && !c.accept(symbol::semicolon)) {
        return fail("declaration of '" + out.prop_name + "': ';' expected");
    }
    return out;
}

void tell(list_context const& ctx, int line, std::string text) {
    if (ctx.problems != nullptr) {
        ctx.problems->push_back({line, std::move(text)});
    }
}

} // namespace

bool is_custom_property(std::string_view name) {
    return name.size() > 2 && name.starts_with("--");
}

bool at_nested_rule(cursor::cursor const& c) {
    if (auto const* i = c.get<lexer::ident>(); i != nullptr && is_custom_property(i->ident_name)) {
        return false;
    }
    cursor::cursor probe = c;
    while (!probe.at_end()) {
        if (probe.is(symbol::open_brace)) {
            return true;
        }
        if (probe.is(symbol::semicolon) || probe.is(symbol::close_brace)) {
            return false;
        }
        cursor::skip_component(probe);
    }
    return false;
}

result<value::value> parse_term(cursor::cursor& c, context const& ctx) {
    return term_in(c, ctx, false);
}

namespace {

result<value::value> term_in(cursor::cursor& c, context const& ctx, bool math) {
    if (c.at_end()) {
        return fail("term expected");
    }
    lexer::token const& t = c.peek();
    ++c.pos;
    if (math) {
        // Inside a math function an operator stands alone as an identifier of its own sign, and a
        // bracketed group is a nested calc().
        if (auto const* s = std::get_if<symbol>(&t)) {
            bool const signed_number = (*s == symbol::minus || *s == symbol::plus) && c.get<lexer::number>() != nullptr;
            if (*s == symbol::open_paren) {
                return function(c, ctx, "calc");
            }
            if (!signed_number && (*s == symbol::plus || *s == symbol::minus || *s == symbol::star)) {
                return value::value{value::ident{lexer::to_text(t)}};
            }
        }
    }
    return std::visit(
        overloaded{
            [&](symbol s) -> result<value::value> {
                if (s == symbol::comma) {
                    return value::value{value::comma{}};
                }
                if (s == symbol::slash) {
                    return value::value{value::slash{}};
                }
                // A sign written apart from a number with a fraction: "-1.5" scans as "-" and "1.5".
                if (s == symbol::minus || s == symbol::plus) {
                    if (auto const* n = c.get<lexer::number>()) {
                        ++c.pos;
                        return numeric(c, s == symbol::minus ? negate(n->number_value) : n->number_value);
                    }
                }
                return fail("unexpected '" + lexer::to_text(t) + "' in a value");
            },
            [](lexer::string const& s) -> result<value::value> { return value::value{value::string{s.string_text}}; },
            [](lexer::ident const& i) -> result<value::value> { return value::value{value::ident{i.ident_name}}; },
            [&](lexer::function const& f) -> result<value::value> { return function(c, ctx, f.function_name); },
            [&](lexer::number const& n) -> result<value::value> { return numeric(c, n.number_value); },
            [&](lexer::signed_int const& n) -> result<value::value> { return numeric(c, n.signed_value); },
            [](lexer::hash const& h) { return hex_color(h.hash_name); },
            [](lexer::hash_id const& h) { return hex_color(h.hash_name); },
            [&](lexer::at const&) -> result<value::value> {
                return fail("unexpected '" + lexer::to_text(t) + "' in a value");
            },
            [&](lexer::url const& u) -> result<value::value> { return value::value{value::url{u.url_text, ctx.base}}; },
            [](lexer::unicode_range const& r) -> result<value::value> { return value::value{value::unicode_range{r.ranges}}; },
            [&](lexer::delim const&) -> result<value::value> {
                return fail("unexpected '" + lexer::to_text(t) + "' in a value");
            },
        },
        t);
}

} // namespace

result<value::value> parse_terms(cursor::cursor& c, context const& ctx, term_end end) {
    std::vector<value::value> list;
    c.skip_spaces();
    while (!at_term_end(c, end)) {
        auto t = parse_term(c, ctx);
        if (!t) {
            return fail(t.error());
        }
        list.push_back(std::move(*t));
        c.skip_spaces();
    }
    if (list.empty()) {
        return fail("value expected");
    }
    if (list.size() == 1) {
        return std::move(list.front());
    }
    return value::value{value::values{std::move(list)}};
}

declarations parse_declaration_list(cursor::cursor& c, list_context const& ctx, int& index,
                                     at_rule_handler const& at_rule, nested_rule_handler const& nested_rule) {
    declarations out;
    while (true) {
        c.skip_spaces();
        if (c.at_end() || c.is(symbol::close_brace)) {
            return out;
        }
        if (c.accept(symbol::semicolon)) {
            continue;
        }
        if (auto const* a = c.get<lexer::at>()) {
            if (at_rule) {
                std::string const name = a->at_name;
                ++c.pos;
                at_rule(c, name);
            } else {
                cursor::skip_statement(c, cursor::semicolon_ends::yes);
            }
            continue;
        }
        if (nested_rule && at_nested_rule(c)) {
            std::size_t const before = c.pos;
            nested_rule(c);
            if (c.pos == before) {
                cursor::skip_statement(c, cursor::semicolon_ends::no);
            }
            continue;
        }
        int const number = index++;
        std::size_t const start = c.pos;
        int const line = c.line();
        auto d = one_declaration(c, ctx);
        if (!d) {
            tell(ctx, line, d.error());
            // Skip from the start, so that brackets the failure stopped inside are balanced.
            c.pos = start;
            cursor::skip_declaration(c);
            continue;
        }
        bool const custom = is_custom_property(d->prop_name);
        bool const extra = ctx.also_accept != nullptr && ctx.also_accept(d->prop_name);
        if (!custom && !extra && ctx.known_property != nullptr && !ctx.known_property(d->prop_name)) {
            tell(ctx, line, "unknown property '" + d->prop_name + "'");
            continue;
        }
        d->index = number;
        if (!custom && !extra && ctx.valid_value != nullptr && !ctx.valid_value(*d)) {
            tell(ctx, line, "invalid value for '" + d->prop_name + "': " + value::to_text(d->value));
        }
        out.push_back(std::move(*d));
    }
}

} // namespace vellum::css::terms
