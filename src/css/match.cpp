#include "css/match.hpp"

#include "css/lexer.hpp"

namespace vellum::css::match {

namespace {

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

} // namespace

bool namespace_fits(selector::ns const& ns, std::optional<std::string_view> uri) {
    return std::visit(overloaded{
                          [&](selector::none const&) { return !uri.has_value(); },
                          [](selector::any const&) { return true; },
                          [&](selector::xmlns const& x) { return uri && *uri == x.xmlns_uri; },
                      },
                      ns);
}

bool has_word(std::string_view list, std::string_view word) {
    std::size_t i = 0;
    while (i < list.size()) {
        while (i < list.size() && is_space(list[i])) {
            ++i;
        }
        std::size_t const start = i;
        while (i < list.size() && !is_space(list[i])) {
            ++i;
        }
        if (i > start && list.substr(start, i - start) == word) {
            return true;
        }
    }
    return false;
}

bool attribute_value_fits(selector::attr_op op, std::string_view actual, std::string_view wanted) {
    switch (op) {
    case selector::attr_op::exists: return true;
    case selector::attr_op::equals: return actual == wanted;
    case selector::attr_op::prefix: return actual.starts_with(wanted);
    case selector::attr_op::suffix: return actual.ends_with(wanted);
    case selector::attr_op::contains: return actual.find(wanted) != std::string_view::npos;
    case selector::attr_op::contains_word: return has_word(actual, wanted);
    case selector::attr_op::contains_lang:
        return actual == wanted || (actual.size() > wanted.size() && actual.starts_with(wanted) &&
                                    actual[wanted.size()] == '-');
    }
    return false;
}

bool language_fits(std::string_view language, std::string_view prefix) {
    return language.size() >= prefix.size() &&
           lexer::equals_ignoring_case(language.substr(0, prefix.size()), prefix);
}

// With a = 0 only position b is picked. Otherwise position n + 1 is picked when it equals a * k + b for
// some k >= 0; the division truncates, so the product is checked to rule out remainders.
bool nth_fits(int a, int b, int n) {
    long long const position = static_cast<long long>(n) + 1 - b;
    if (a == 0) {
        return position == 0;
    }
    long long const k = position / a;
    return k * a == position && k >= 0;
}

} // namespace vellum::css::match
