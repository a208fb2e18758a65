#include "css/cursor.hpp"

#include <optional>

namespace vellum::css::cursor {

namespace {

using lexer::symbol;

// The closing partner of an opening token: "(" and functions close with ")".
std::optional<symbol> closer_of(lexer::token const& t) {
    if (std::holds_alternative<lexer::function>(t) || lexer::is(t, symbol::open_paren)) {
        return symbol::close_paren;
    }
    if (lexer::is(t, symbol::open_bracket)) {
        return symbol::close_bracket;
    }
    if (lexer::is(t, symbol::open_brace)) {
        return symbol::close_brace;
    }
    return std::nullopt;
}

} // namespace

void skip_component(cursor& c) {
    if (c.at_end()) {
        return;
    }
    auto const close = closer_of(c.peek());
    ++c.pos;
    if (!close) {
        return;
    }
    // Inside a group, only the matching closer ends it; unmatched closers of other kinds are skipped
    // as ordinary tokens, and the end of the text closes every open group.
    while (!c.at_end()) {
        if (c.is(*close)) {
            ++c.pos;
            return;
        }
        skip_component(c);
    }
}

void skip_declaration(cursor& c) {
    while (!c.at_end()) {
        if (c.is(symbol::close_brace)) {
            return;
        }
        if (c.accept(symbol::semicolon)) {
            return;
        }
        skip_component(c);
    }
}

void skip_statement(cursor& c, semicolon_ends at_semicolon) {
    while (!c.at_end()) {
        if (c.is(symbol::close_brace)) {
            return;
        }
        if (at_semicolon == semicolon_ends::yes && c.accept(symbol::semicolon)) {
            return;
        }
        if (c.is(symbol::open_brace)) {
            skip_component(c);
            return;
        }
        skip_component(c);
    }
}

} // namespace vellum::css::cursor
