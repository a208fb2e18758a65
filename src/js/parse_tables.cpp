#include "js/parse_tables.hpp"

#include <algorithm>
#include <cstdint>

namespace vellum::js::parse::tables {

namespace {

#include "js/parse_tables.inc"

constexpr int shift_base = 2;
constexpr int reduce_base = 1000;

static_assert(std::size(table_actions) == table_state_count);
static_assert(std::size(table_gotos) == table_state_count);
static_assert(std::size(table_gotos[0]) == nonterminal_count);

} // namespace

int start_state() { return table_start_state; }

int state_count() { return table_state_count; }

std::optional<int> terminal_of_name(std::string_view token) {
    auto const* first = std::begin(table_terminals);
    auto const* last = std::end(table_terminals);
    auto const* it = std::lower_bound(first, last, token);
    if (it == last || *it != token) {
        return std::nullopt;
    }
    return static_cast<int>(it - first);
}

std::optional<token_action> get_terminal_action(int state, int terminal) {
    if (state < 0 || state >= table_state_count || terminal < 0 || terminal >= table_terminal_count) {
        return std::nullopt;
    }
    int code = table_actions[state][terminal];
    if (code == 0) {
        return std::nullopt;
    }
    if (code == 1) {
        return accept{};
    }
    if (code < reduce_base) {
        return shift{code - shift_base};
    }
    return reduce{code - reduce_base};
}

std::optional<token_action> get_token_action(int state, std::string_view token) {
    auto t = terminal_of_name(token);
    if (!t) {
        return std::nullopt;
    }
    return get_terminal_action(state, *t);
}

std::optional<int> get_nonterminal_action(int state, nonterminal n) {
    if (state < 0 || state >= table_state_count) {
        return std::nullopt;
    }
    int target = table_gotos[state][static_cast<std::size_t>(n)];
    if (target < 0) {
        return std::nullopt;
    }
    return target;
}

} // namespace vellum::js::parse::tables
