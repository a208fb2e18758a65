// A position in a token list, with the small moves that every CSS grammar rule makes: skip blanks,
// accept a symbol, skip a balanced block.
#pragma once

#include "css/lexer.hpp"

#include <algorithm>
#include <cstddef>
#include <span>

namespace vellum::css::cursor {

/// Reads a token list front to back; rules save and restore `pos` to backtrack.
struct cursor {
    std::span<lexer::token const> tokens;
    std::size_t pos = 0;
    /// The line of each token, when the scanner counted them; empty otherwise.
    std::span<int const> lines = {};

    /// The line of the current token (the last one at the end), or 0 when lines weren't counted.
    int line() const {
        if (lines.empty()) {
            return 0;
        }
        return lines[std::min(pos, lines.size() - 1)];
    }

    bool at_end() const { return pos >= tokens.size(); }

    /// The current token; must not be called at the end.
    lexer::token const& peek() const { return tokens[pos]; }

    /// Whether the current token is the symbol.
    bool is(lexer::symbol s) const { return !at_end() && lexer::is(tokens[pos], s); }

    /// The current token as one alternative, or null.
    template <class T>
    T const* get() const {
        return at_end() ? nullptr : std::get_if<T>(&tokens[pos]);
    }

    /// Moves past the symbol if it is next.
    bool accept(lexer::symbol s) {
        if (!is(s)) {
            return false;
        }
        ++pos;
        return true;
    }

    /// Moves past any blanks.
    void skip_spaces() {
        while (is(lexer::symbol::space)) {
            ++pos;
        }
    }
};

/// Skips one token; an opening bracket of any kind takes its whole balanced group with it.
void skip_component(cursor& c);

/// Skips up to a ";" at nesting level zero (consumed), or a "}" that closes the enclosing block (not
/// consumed), or the end.
void skip_declaration(cursor& c);

/// Skips up to the end of the next balanced "{...}" group at level zero, or up to a ";" at level zero
/// (consumed) when `at_semicolon`. A "}" at level zero is left for the enclosing block.
enum class semicolon_ends { yes, no };
void skip_statement(cursor& c, semicolon_ends at_semicolon);

} // namespace vellum::css::cursor
