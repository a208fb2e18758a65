// The parser's tables, generated from the grammar and compiled in: the action for a state and a terminal
// name, the successor state for a state and a nonterminal, and the start state.
#pragma once

#include "js/grammar.hpp"

#include <optional>
#include <string_view>
#include <variant>

namespace vellum::js {

/// Push the token and go to the state.
struct shift {
    int shift_state = 0;
    bool operator==(shift const&) const = default;
};

/// Apply the production of this index.
struct reduce {
    int reduce_production = 0;
    bool operator==(reduce const&) const = default;
};

/// The whole input is a program.
struct accept {
    bool operator==(accept const&) const = default;
};

using token_action = std::variant<shift, reduce, accept>;

} // namespace vellum::js

namespace vellum::js::parse::tables {

/// The state the parser starts in (an empty stack stands for it).
int start_state();

/// The number of states; they are numbered from 0.
int state_count();

/// The action for a terminal, by its name, in a state; none if the terminal cannot come there.
[[nodiscard]] std::optional<token_action> get_token_action(int state, std::string_view token);

/// The number of a terminal of the grammar, by its name; none for a name the grammar does not use.
[[nodiscard]] std::optional<int> terminal_of_name(std::string_view token);

/// The action for a terminal by its number (as `terminal_of_name` gives it), in a state.
[[nodiscard]] std::optional<token_action> get_terminal_action(int state, int terminal);

/// The state reached from `state` once a `n` has been recognised; none if there is no such move.
[[nodiscard]] std::optional<int> get_nonterminal_action(int state, nonterminal n);

} // namespace vellum::js::parse::tables
