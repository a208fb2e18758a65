#include "text/unicode/script.hpp"

#include "text/unicode/tables.hpp"
#include "util/result.hpp"

namespace vellum::unicode::script {

namespace {

// The tags as a table of four bytes each, in enumeration order.
char const tags[script_count][4] = {
    {'a', 'r', 'a', 'b'}, {'a', 'r', 'm', 'n'}, {'b', 'a', 'l', 'i'}, {'b', 'e', 'n', 'g'},
    {'b', 'o', 'p', 'o'}, {'b', 'r', 'a', 'i'}, {'b', 'u', 'g', 'i'}, {'b', 'u', 'h', 'd'},
    {'c', 'a', 'n', 's'}, {'c', 'a', 'r', 'i'}, {'c', 'h', 'e', 'r'}, {'c', 'h', 'a', 'm'},
    {'c', 'o', 'p', 't'}, {'c', 'p', 'r', 't'}, {'c', 'y', 'r', 'l'}, {'d', 'e', 'v', 'a'},
    {'d', 's', 'r', 't'}, {'e', 't', 'h', 'i'}, {'g', 'e', 'o', 'r'}, {'g', 'l', 'a', 'g'},
    {'g', 'o', 't', 'h'}, {'g', 'r', 'e', 'k'}, {'g', 'u', 'j', 'r'}, {'g', 'u', 'r', 'u'},
    {'h', 'a', 'n', 'g'}, {'h', 'a', 'n', 'i'}, {'h', 'a', 'n', 'o'}, {'h', 'e', 'b', 'r'},
    {'h', 'i', 'r', 'a'}, {'i', 't', 'a', 'l'}, {'k', 'a', 'l', 'i'}, {'k', 'a', 'n', 'a'},
    {'k', 'h', 'a', 'r'}, {'k', 'h', 'm', 'r'}, {'k', 'n', 'd', 'a'}, {'l', 'a', 'o', 'o'},
    {'l', 'a', 't', 'n'}, {'l', 'e', 'p', 'c'}, {'l', 'i', 'm', 'b'}, {'l', 'i', 'n', 'b'},
    {'l', 'y', 'c', 'i'}, {'l', 'y', 'd', 'i'}, {'m', 'l', 'y', 'm'}, {'m', 'o', 'n', 'g'},
    {'m', 'y', 'm', 'r'}, {'n', 'k', 'o', 'o'}, {'o', 'g', 'a', 'm'}, {'o', 'l', 'c', 'k'},
    {'o', 'r', 'y', 'a'}, {'o', 's', 'm', 'a'}, {'p', 'h', 'a', 'g'}, {'p', 'h', 'n', 'x'},
    {'q', 'a', 'a', 'i'}, {'r', 'j', 'n', 'g'}, {'r', 'u', 'n', 'r'}, {'s', 'a', 'u', 'r'},
    {'s', 'h', 'a', 'w'}, {'s', 'i', 'n', 'h'}, {'s', 'u', 'n', 'd'}, {'s', 'y', 'l', 'o'},
    {'s', 'y', 'r', 'c'}, {'t', 'a', 'g', 'b'}, {'t', 'a', 'l', 'e'}, {'t', 'a', 'l', 'u'},
    {'t', 'a', 'm', 'l'}, {'t', 'e', 'l', 'u'}, {'t', 'f', 'n', 'g'}, {'t', 'g', 'l', 'g'},
    {'t', 'h', 'a', 'a'}, {'t', 'h', 'a', 'i'}, {'t', 'i', 'b', 't'}, {'u', 'g', 'a', 'r'},
    {'v', 'a', 'i', 'i'}, {'x', 'p', 'e', 'o'}, {'x', 's', 'u', 'x'}, {'y', 'i', 'i', 'i'},
    {'z', 'y', 'y', 'y'}, {'z', 'z', 'z', 'z'},
};

char ascii_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

script script_of(char32_t cp) {
    return static_cast<script>(tables::lookup(tables::script, cp, static_cast<std::uint8_t>(script::zzzz)));
}

std::string_view tag(script s) {
    auto const i = static_cast<int>(s);
    check(i < script_count, "script.tag");
    return std::string_view(tags[i], 4);
}

std::uint32_t tag_value(script s) {
    std::uint32_t v = 0;
    for (char c : tag(s)) {
        v = (v << 8) | static_cast<std::uint8_t>(c);
    }
    return v;
}

std::optional<script> from_tag(std::string_view name) {
    if (name.size() != 4) {
        return std::nullopt;
    }
    for (int i = 0; i < script_count; ++i) {
        bool same = true;
        for (int k = 0; k < 4; ++k) {
            same = same && ascii_lower(name[k]) == tags[i][k];
        }
        if (same) {
            return static_cast<script>(i);
        }
    }
    return std::nullopt;
}

} // namespace vellum::unicode::script
