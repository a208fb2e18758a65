// The CSS scanner: cuts the text of a style sheet into tokens, with escapes undone and integers clamped.
// Comments, "<!--" and "-->" never reach the parser; each run of white space is one space token.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::css {

/// A CSS number as written: an integer, or a number with a fraction.
using number = std::variant<int, double>;

/// The value of a number as a double.
double number_as_double(number const& n);

} // namespace vellum::css

namespace vellum::css::lexer {

/// Tokens that carry no text: the fixed punctuation, comments and white space.
enum class symbol {
    comment,
    includes,        // ~=
    dash_match,      // |=
    prefix_match,    // ^=
    suffix_match,    // $=
    substring_match, // *=
    greater,
    equals,
    plus,
    minus,
    star,
    slash,
    percent,
    tilde,
    bar,
    colon,
    semicolon,
    comma,
    dot,
    bang,
    open_bracket,
    close_bracket,
    open_brace,
    close_brace,
    open_paren,
    close_paren,
    space,
};

/// A quoted string, escapes undone.
struct string {
    std::string string_text;
    bool operator==(string const&) const = default;
};

/// An identifier, escapes undone.
struct ident {
    std::string ident_name;
    bool operator==(ident const&) const = default;
};

/// An identifier with its opening bracket, as in "rgb(".
struct function {
    std::string function_name;
    bool operator==(function const&) const = default;
};

/// An unsigned number.
struct number {
    css::number number_value;
    bool operator==(number const&) const = default;
};

/// An integer written with a sign.
struct signed_int {
    int signed_value = 0;
    bool operator==(signed_int const&) const = default;
};

/// "#" and a name that is not a valid identifier (it starts with a digit, say).
struct hash {
    std::string hash_name;
    bool operator==(hash const&) const = default;
};

/// "#" and a name that is also a valid identifier.
struct hash_id {
    std::string hash_name;
    bool operator==(hash_id const&) const = default;
};

/// "@" and a name.
struct at {
    std::string at_name;
    bool operator==(at const&) const = default;
};

/// "url(" with an unquoted argument, the argument without its surrounding blanks.
struct url {
    std::string url_text;
    bool operator==(url const&) const = default;
};

/// An inclusive range of code points.
using code_range = std::pair<char32_t, char32_t>;

/// "U+..." with its ranges.
struct unicode_range {
    std::vector<code_range> ranges;
    bool operator==(unicode_range const&) const = default;
};

/// Any other character, and a string broken by a newline (which holds its opening quote).
struct delim {
    char32_t delim_char = 0;
    bool operator==(delim const&) const = default;
};

/// One token of a style sheet.
using token = std::variant<symbol, string, ident, function, number, signed_int, hash, hash_id, at, url,
                           unicode_range, delim>;

/// Whether comments are kept as tokens (for tests and tools) or dropped (for the parser).
enum class comments { drop, keep };

/// Blocks, brackets and functions nested deeper than this are cut out by the scanner: each such group
/// stands as one `delim` holding `nesting_cut`, which no grammar accepts, so that the rule or declaration
/// around it is dropped as invalid and no parser recurses deeper. Real style sheets nest a few levels.
inline constexpr std::size_t max_nesting = 64;

/// The character of the delim that stands for a group nested too deeply (a noncharacter, which the
/// scanner never makes of the text).
inline constexpr char32_t nesting_cut = 0xFFFF;

/// Cuts UTF-8 text into tokens. Never fails: anything unexpected becomes a delim. With `lines`, the
/// line (from 1) on which each token starts is put there, one entry per token.
std::vector<token> scan(std::string_view text, comments mode = comments::drop, std::vector<int>* lines = nullptr);

/// Whether the scanner cut out groups nested too deeply.
bool has_nesting_cut(std::vector<token> const& tokens);

/// The token written back as CSS text, for messages and tests.
std::string to_text(token const& t);

/// A number as CSS text: an integer in decimal, a real in the shortest "%g" form.
std::string number_text(css::number const& n);

/// A string in double quotes, with quotes and backslashes escaped.
std::string quoted(std::string_view s);

/// Whether the token is a particular symbol.
inline bool is(token const& t, symbol s) {
    auto const* p = std::get_if<symbol>(&t);
    return p != nullptr && *p == s;
}

/// Whether text would scan as one identifier if written out plainly.
bool is_identifier(std::string_view text);

/// Lower-cases ASCII letters; CSS keywords and names compare this way.
std::string ascii_lower(std::string_view text);

/// Compares ASCII case-insensitively.
bool equals_ignoring_case(std::string_view a, std::string_view b);

} // namespace vellum::css::lexer
