#include "js/parse_tables.hpp"

#include <algorithm>
#include <cstdint>

namespace vellum::js::parse::tables {

namespace {

enum class action_kind : std::uint8_t { shift, reduce, accept };

struct token_entry {
    std::string_view entry_token;
    action_kind entry_kind;
    std::uint16_t entry_target;
};

struct goto_entry {
    nonterminal goto_nonterminal;
    std::uint16_t goto_target;
};

#include "js/parse_tables.inc"

static_assert(std::size(token_offsets) == table_state_count + 1);
static_assert(std::size(goto_offsets) == table_state_count + 1);

} // namespace

int start_state() { return table_start_state; }

int state_count() { return table_state_count; }

std::optional<token_action> get_token_action(int state, std::string_view token) {
    if (state < 0 || state >= table_state_count) {
        return std::nullopt;
    }
    auto const* first = token_entries + token_offsets[state];
    auto const* last = token_entries + token_offsets[state + 1];
    auto const* it =
        std::lower_bound(first, last, token, [](token_entry const& e, std::string_view t) { return e.entry_token < t; });
    if (it == last || it->entry_token != token) {
        return std::nullopt;
    }
    switch (it->entry_kind) {
    case action_kind::shift:
        return shift{it->entry_target};
    case action_kind::reduce:
        return reduce{it->entry_target};
    case action_kind::accept:
        return accept{};
    }
    return std::nullopt;
}

std::optional<int> get_nonterminal_action(int state, nonterminal n) {
    if (state < 0 || state >= table_state_count) {
        return std::nullopt;
    }
    auto const* first = goto_entries + goto_offsets[state];
    auto const* last = goto_entries + goto_offsets[state + 1];
    auto const* it = std::lower_bound(first, last, n, [](goto_entry const& e, nonterminal x) {
        return e.goto_nonterminal < x;
    });
    if (it == last || it->goto_nonterminal != n) {
        return std::nullopt;
    }
    return it->goto_target;
}

} // namespace vellum::js::parse::tables
