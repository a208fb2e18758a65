// Tokens that the HTML tokenizer hands to the tree builder.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vellum::html5::token {

/// What a token is.
enum class token_type { doctype, start_tag, end_tag, comment, multi_char, end_of_file };

/// One attribute of a tag as written (name lowercased, value with references resolved).
struct token_attribute {
    std::string attr_name;
    std::string attr_value;
    bool operator==(token_attribute const&) const = default;
};

/// A token. The tokenizer reuses one record, so its strings keep their capacity between tokens.
struct token {
    token_type token_kind = token_type::end_of_file;
    /// Tag name or DOCTYPE name.
    std::string token_name;
    /// Comment text, or the characters of a MULTI_CHAR run (UTF-8, may hold U+0000).
    std::string token_data;
    std::vector<token_attribute> token_attributes;
    bool token_self_closing = false;
    /// DOCTYPE only: the name, public and system identifiers may each be missing.
    bool doctype_has_name = false;
    bool doctype_has_public = false;
    bool doctype_has_system = false;
    std::string doctype_public;
    std::string doctype_system;
    bool doctype_force_quirks = false;
    bool operator==(token const&) const = default;
};

/// The value of an attribute of a tag token, or nullptr.
inline std::string const* find_attribute(token const& t, std::string_view name) {
    for (auto const& a : t.token_attributes) {
        if (a.attr_name == name) {
            return &a.attr_value;
        }
    }
    return nullptr;
}

} // namespace vellum::html5::token
