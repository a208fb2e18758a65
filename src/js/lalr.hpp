// The LALR(1) table generator: canonical LR(1) item sets for the script grammar, merged by core, turned
// into shift, reduce, accept and goto actions, and printed as the table text that the parser compiles in.
#pragma once

#include "js/grammar.hpp"
#include "js/parse_tables.hpp"

#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::js::lalr {

/// The move on a nonterminal: go to the state.
struct goto_state {
    int goto_target = 0;
    bool operator==(goto_state const&) const = default;
};

using action = std::variant<goto_state, shift, reduce, accept>;

/// The generated tables: per state, the actions on terminals (by name, in name order) and the moves on
/// nonterminals (in nonterminal order).
struct tables {
    int tables_start_state = 0;
    std::vector<std::vector<std::pair<std::string, token_action>>> tables_token_actions;
    std::vector<std::vector<std::pair<nonterminal, int>>> tables_gotos;
    bool operator==(tables const&) const = default;
};

/// Counts from the generation, for tests and diagnostics.
struct statistics {
    int canonical_states = 0;
    int lalr_states = 0;
    int else_conflicts = 0;
    int ambiguous_reductions = 0;
};

/// Builds the tables. The `else` shift/reduce conflict is settled for the shift, and a choice between
/// two reductions of one nonterminal of which one is empty (the one-element `source_elements`) for the
/// earlier production; any other conflict throws.
tables build_tables(grammar const& g, statistics* stats = nullptr);

/// The table text, as `vellum --write-grammar` prints it.
std::string table_text(tables const& t);

/// Builds the tables of the script grammar and prints their text on standard output.
void write_grammar();

} // namespace vellum::js::lalr
