#include "js/lalr.hpp"

#include "util/result.hpp"

#include <algorithm>
#include <bitset>
#include <cstdio>
#include <map>
#include <set>
#include <stdexcept>
#include <unordered_map>

namespace vellum::js::lalr {

namespace {

// Terminal sets are bit sets; the script grammar has well under this many terminals.
constexpr std::size_t max_terminals = 128;
using terminal_set = std::bitset<max_terminals>;

/// The grammar with its symbols numbered: terminals first, in name order (so that comparing numbers
/// compares symbols), then the nonterminals in their enumeration order.
struct numbered_grammar {
    std::vector<std::string> terminal_names;
    int terminal_count = 0;
    int end_terminal = 0; // "$"
    std::vector<int> lhs;
    std::vector<std::vector<int>> rhs;
    std::vector<std::vector<int>> productions_of; // by nonterminal
    // Items without lookahead: item0 i stands for production item_production[i] with the dot before
    // rhs position item_dot[i].
    std::vector<int> item_production;
    std::vector<int> item_dot;
    std::vector<int> first_item; // by production
};

bool is_terminal(numbered_grammar const& g, int s) { return s < g.terminal_count; }

int nt_index(numbered_grammar const& g, int s) { return s - g.terminal_count; }

numbered_grammar number(grammar const& gr) {
    numbered_grammar g;
    std::set<std::string> names{"$"};
    for (auto const& p : gr) {
        for (auto const& s : p.production_rhs) {
            if (auto const* t = std::get_if<std::string>(&s)) {
                names.insert(*t);
            }
        }
    }
    if (names.size() > max_terminals) {
        throw internal_error("build_tables: too many terminals.");
    }
    g.terminal_names.assign(names.begin(), names.end());
    g.terminal_count = static_cast<int>(g.terminal_names.size());
    auto terminal_id = [&](std::string const& n) {
        return static_cast<int>(std::lower_bound(g.terminal_names.begin(), g.terminal_names.end(), n) -
                                g.terminal_names.begin());
    };
    g.end_terminal = terminal_id("$");
    g.productions_of.resize(nonterminal_count);
    for (std::size_t p = 0; p < gr.size(); ++p) {
        g.lhs.push_back(g.terminal_count + static_cast<int>(gr[p].production_lhs));
        std::vector<int> r;
        for (auto const& s : gr[p].production_rhs) {
            if (auto const* t = std::get_if<std::string>(&s)) {
                r.push_back(terminal_id(*t));
            } else {
                r.push_back(g.terminal_count + static_cast<int>(std::get<nonterminal>(s)));
            }
        }
        g.productions_of[static_cast<std::size_t>(gr[p].production_lhs)].push_back(static_cast<int>(p));
        g.first_item.push_back(static_cast<int>(g.item_production.size()));
        for (std::size_t d = 0; d <= r.size(); ++d) {
            g.item_production.push_back(static_cast<int>(p));
            g.item_dot.push_back(static_cast<int>(d));
        }
        g.rhs.push_back(std::move(r));
    }
    return g;
}

/// Nullable nonterminals and first sets, both by iteration to a fixed point.
struct first_info {
    std::vector<bool> nullable;
    std::vector<terminal_set> first;
};

first_info first_sets(numbered_grammar const& g) {
    first_info f;
    f.nullable.assign(nonterminal_count, false);
    f.first.assign(nonterminal_count, terminal_set{});
    for (bool changed = true; changed;) {
        changed = false;
        for (std::size_t p = 0; p < g.lhs.size(); ++p) {
            int a = nt_index(g, g.lhs[p]);
            bool all_nullable = true;
            for (int s : g.rhs[p]) {
                if (is_terminal(g, s)) {
                    if (!f.first[a].test(s)) {
                        f.first[a].set(s);
                        changed = true;
                    }
                    all_nullable = false;
                    break;
                }
                auto before = f.first[a];
                f.first[a] |= f.first[nt_index(g, s)];
                changed = changed || before != f.first[a];
                if (!f.nullable[nt_index(g, s)]) {
                    all_nullable = false;
                    break;
                }
            }
            if (all_nullable && !f.nullable[a]) {
                f.nullable[a] = true;
                changed = true;
            }
        }
    }
    return f;
}

/// For each item0 whose dot stands before a nonterminal B in `A := alpha . B beta`: the first set of beta,
/// and whether beta can be empty; these give the lookaheads of B's items in a closure.
struct item_follow {
    std::vector<terminal_set> beta_first;
    std::vector<bool> beta_nullable;
};

item_follow follows(numbered_grammar const& g, first_info const& f) {
    item_follow out;
    std::size_t n = g.item_production.size();
    out.beta_first.resize(n);
    out.beta_nullable.assign(n, true);
    for (std::size_t i = 0; i < n; ++i) {
        auto const& r = g.rhs[g.item_production[i]];
        for (std::size_t k = static_cast<std::size_t>(g.item_dot[i]) + 1; k < r.size(); ++k) {
            int s = r[k];
            if (is_terminal(g, s)) {
                out.beta_first[i].set(s);
                out.beta_nullable[i] = false;
                break;
            }
            out.beta_first[i] |= f.first[nt_index(g, s)];
            if (!f.nullable[nt_index(g, s)]) {
                out.beta_nullable[i] = false;
                break;
            }
        }
    }
    return out;
}

/// An LR(1) item set given by its kernel: item0 numbers in increasing order, each with its lookaheads.
using kernel = std::vector<std::pair<int, terminal_set>>;

struct kernel_hash {
    std::size_t operator()(kernel const& k) const {
        std::size_t h = k.size();
        std::hash<terminal_set> bh;
        for (auto const& [i, la] : k) {
            h = h * 1000003u ^ static_cast<std::size_t>(i);
            h = h * 31u ^ bh(la);
        }
        return h;
    }
};

/// The closure of a kernel: every item0 in it with its lookaheads, in increasing item0 order.
class closer {
public:
    closer(numbered_grammar const& g, item_follow const& f)
        : g(g), f(f), lookaheads(g.item_production.size()), present(g.item_production.size(), false) {}

    kernel close(kernel const& k) {
        std::vector<int> members;
        std::vector<int> work;
        for (auto const& [i, la] : k) {
            lookaheads[i] = la;
            present[i] = true;
            members.push_back(i);
            work.push_back(i);
        }
        while (!work.empty()) {
            int i = work.back();
            work.pop_back();
            auto const& r = g.rhs[g.item_production[i]];
            auto dot = static_cast<std::size_t>(g.item_dot[i]);
            if (dot >= r.size() || is_terminal(g, r[dot])) {
                continue;
            }
            terminal_set add = f.beta_first[i];
            if (f.beta_nullable[i]) {
                add |= lookaheads[i];
            }
            for (int p : g.productions_of[nt_index(g, r[dot])]) {
                int j = g.first_item[p];
                if (!present[j]) {
                    present[j] = true;
                    lookaheads[j] = add;
                    members.push_back(j);
                    work.push_back(j);
                } else if ((lookaheads[j] | add) != lookaheads[j]) {
                    lookaheads[j] |= add;
                    work.push_back(j);
                }
            }
        }
        std::sort(members.begin(), members.end());
        kernel out;
        out.reserve(members.size());
        for (int i : members) {
            out.emplace_back(i, lookaheads[i]);
            present[i] = false;
            lookaheads[i].reset();
        }
        return out;
    }

private:
    numbered_grammar const& g;
    item_follow const& f;
    std::vector<terminal_set> lookaheads;
    std::vector<bool> present;
};

/// A canonical LR(1) state: its closure and its successors by symbol.
struct canonical_state {
    kernel state_closure;
    std::vector<std::pair<int, int>> state_successors; // (symbol, canonical state)
};

/// Step 3: the canonical LR(1) collection, from the start item `start_symbol := . program` with `$`.
std::vector<canonical_state> canonical_collection(numbered_grammar const& g, item_follow const& f) {
    closer c(g, f);
    std::vector<canonical_state> states;
    std::unordered_map<kernel, int, kernel_hash> index;
    std::vector<kernel> kernels;
    auto intern = [&](kernel k) {
        auto [it, fresh] = index.emplace(k, static_cast<int>(kernels.size()));
        if (fresh) {
            kernels.push_back(std::move(k));
        }
        return it->second;
    };
    terminal_set end;
    end.set(static_cast<std::size_t>(g.end_terminal));
    intern(kernel{{g.first_item[0], end}});
    for (std::size_t s = 0; s < kernels.size(); ++s) {
        canonical_state st{.state_closure = c.close(kernels[s])};
        // Successor kernels, by the symbol after the dot; advancing keeps item0 order increasing.
        std::map<int, kernel> next;
        for (auto const& [i, la] : st.state_closure) {
            auto const& r = g.rhs[g.item_production[i]];
            auto dot = static_cast<std::size_t>(g.item_dot[i]);
            if (dot < r.size()) {
                next[r[dot]].emplace_back(i + 1, la);
            }
        }
        for (auto& [sym, k] : next) {
            st.state_successors.emplace_back(sym, intern(std::move(k)));
        }
        states.push_back(std::move(st));
    }
    return states;
}

/// Orders item0s as records: left-hand side, then the symbols before the dot, then those after it, each
/// list compared element by element with a shorter prefix first.
bool item0_less(numbered_grammar const& g, int a, int b) {
    int pa = g.item_production[a], pb = g.item_production[b];
    if (g.lhs[pa] != g.lhs[pb]) {
        return g.lhs[pa] < g.lhs[pb];
    }
    auto const& ra = g.rhs[pa];
    auto const& rb = g.rhs[pb];
    auto da = static_cast<std::size_t>(g.item_dot[a]), db = static_cast<std::size_t>(g.item_dot[b]);
    if (std::lexicographical_compare(ra.begin(), ra.begin() + da, rb.begin(), rb.begin() + db)) {
        return true;
    }
    if (std::lexicographical_compare(rb.begin(), rb.begin() + db, ra.begin(), ra.begin() + da)) {
        return false;
    }
    return std::lexicographical_compare(ra.begin() + da, ra.end(), rb.begin() + db, rb.end());
}

std::string describe(action const& a) {
    return std::visit(overloaded{
                          [](goto_state const& s) { return "goto(" + std::to_string(s.goto_target) + ")"; },
                          [](shift const& s) { return "shift(" + std::to_string(s.shift_state) + ")"; },
                          [](reduce const& r) { return "reduce(" + std::to_string(r.reduce_production) + ")"; },
                          [](accept const&) { return std::string("accept"); },
                      },
                      a);
}

} // namespace

tables build_tables(grammar const& gr, statistics* stats) {
    numbered_grammar g = number(gr);
    first_info f = first_sets(g);
    item_follow fol = follows(g, f);
    std::vector<canonical_state> canon = canonical_collection(g, fol);

    // Step 4: merge states with equal cores (the item0s of the closure), uniting lookaheads.
    std::map<std::vector<int>, std::vector<int>> by_core;
    for (std::size_t s = 0; s < canon.size(); ++s) {
        std::vector<int> core;
        for (auto const& [i, la] : canon[s].state_closure) {
            core.push_back(i);
        }
        by_core[core].push_back(static_cast<int>(s));
    }
    // Number the merged states by their sorted cores, the greatest core first; so the start state, whose
    // core begins with the least item of all, comes last.
    struct merged {
        std::vector<int> sorted_core;
        std::vector<int> members;
    };
    std::vector<merged> groups;
    for (auto& [core, members] : by_core) {
        std::vector<int> sorted = core;
        std::sort(sorted.begin(), sorted.end(), [&](int a, int b) { return item0_less(g, a, b); });
        groups.push_back(merged{std::move(sorted), members});
    }
    std::sort(groups.begin(), groups.end(), [&](merged const& a, merged const& b) {
        return std::lexicographical_compare(b.sorted_core.begin(), b.sorted_core.end(), a.sorted_core.begin(),
                                            a.sorted_core.end(),
                                            [&](int x, int y) { return item0_less(g, x, y); });
    });
    std::vector<int> merged_of(canon.size());
    for (std::size_t m = 0; m < groups.size(); ++m) {
        for (int s : groups[m].members) {
            merged_of[s] = static_cast<int>(m);
        }
    }

    // Steps 5 and 6: the actions of each merged state, with conflicts settled or reported.
    statistics st{.canonical_states = static_cast<int>(canon.size()), .lalr_states = static_cast<int>(groups.size())};
    tables t;
    t.tables_token_actions.resize(groups.size());
    t.tables_gotos.resize(groups.size());
    int else_terminal = -1;
    for (int i = 0; i < g.terminal_count; ++i) {
        if (g.terminal_names[i] == "else") {
            else_terminal = i;
        }
    }
    for (std::size_t m = 0; m < groups.size(); ++m) {
        std::map<int, action> acts;
        auto const& rep = canon[groups[m].members.front()];
        for (auto const& [sym, target] : rep.state_successors) {
            int to = merged_of[target];
            if (is_terminal(g, sym)) {
                acts[sym] = shift{to};
            } else {
                acts[sym] = goto_state{to};
            }
        }
        // United lookaheads of the finished items.
        std::map<int, terminal_set> finished;
        for (int s : groups[m].members) {
            for (auto const& [i, la] : canon[s].state_closure) {
                if (static_cast<std::size_t>(g.item_dot[i]) == g.rhs[g.item_production[i]].size()) {
                    finished[i] |= la;
                }
            }
        }
        for (auto const& [i, la] : finished) {
            int p = g.item_production[i];
            for (int term = 0; term < g.terminal_count; ++term) {
                if (!la.test(term)) {
                    continue;
                }
                action candidate = p == 0 ? action{accept{}} : action{reduce{p}};
                auto it = acts.find(term);
                if (it == acts.end()) {
                    acts.emplace(term, candidate);
                    continue;
                }
                if (std::get_if<shift>(&it->second) && term == else_terminal) {
                    // The dangling `else` binds to the nearest `if`: keep the shift.
                    ++st.else_conflicts;
                    continue;
                }
                auto const* r0 = std::get_if<reduce>(&it->second);
                auto const* r1 = std::get_if<reduce>(&candidate);
                if (r0 && r1 && g.lhs[r0->reduce_production] == g.lhs[p] &&
                    (g.rhs[r0->reduce_production].empty() || g.rhs[p].empty())) {
                    // `source_elements` derives one element two ways: by its one-element production, and
                    // as the element followed by the empty list. Both build the same list; the earlier
                    // production (the empty one) is taken.
                    ++st.ambiguous_reductions;
                    it->second = reduce{std::min(r0->reduce_production, p)};
                    continue;
                }
                throw internal_error("build_tables: conflict in state " + std::to_string(m) + " on \"" +
                                         g.terminal_names[term] + "\": " + describe(it->second) + " and " +
                                         describe(candidate));
            }
        }
        for (auto const& entry : acts) {
            int sym = entry.first;
            std::visit(overloaded{
                           [&](goto_state const& gs) {
                               t.tables_gotos[m].emplace_back(static_cast<nonterminal>(nt_index(g, sym)),
                                                              gs.goto_target);
                           },
                           [&](shift const& s) { t.tables_token_actions[m].emplace_back(g.terminal_names[sym], s); },
                           [&](reduce const& r) {
                               t.tables_token_actions[m].emplace_back(g.terminal_names[sym], r);
                           },
                           [&](accept const& a) {
                               t.tables_token_actions[m].emplace_back(g.terminal_names[sym], a);
                           },
                       },
                       entry.second);
        }
    }

    // Step 7: the start state holds the start item.
    t.tables_start_state = -1;
    for (std::size_t m = 0; m < groups.size(); ++m) {
        if (std::find(groups[m].sorted_core.begin(), groups[m].sorted_core.end(), g.first_item[0]) !=
                groups[m].sorted_core.end() &&
            std::find(groups[m].members.begin(), groups[m].members.end(), 0) != groups[m].members.end()) {
            t.tables_start_state = static_cast<int>(m);
        }
    }
    if (t.tables_start_state < 0) {
        throw internal_error("no start item in closures.");
    }
    if (stats) {
        *stats = st;
    }
    return t;
}

std::string table_text(tables const& t) {
    std::string out = "% This file is automatically generated.\n"
                      ":- module js.parse.tables.\n"
                      ":- interface.\n"
                      ":- func start_state = int.\n"
                      ":- func get_token_action(int, string) = token_action is semidet.\n"
                      ":- func get_nonterminal_action(int, nonterminal) = int is semidet.\n"
                      ":- implementation.\n"
                      "\n";
    out += "start_state = " + std::to_string(t.tables_start_state) + ".\n";
    for (std::size_t s = 0; s < t.tables_token_actions.size(); ++s) {
        for (auto const& [name, a] : t.tables_token_actions[s]) {
            out += "get_token_action(" + std::to_string(s) + ", \"" + name + "\") = ";
            out += std::visit(overloaded{
                                  [](shift const& x) { return "shift(" + std::to_string(x.shift_state) + ")"; },
                                  [](reduce const& x) {
                                      return "reduce(" + std::to_string(x.reduce_production) + ")";
                                  },
                                  [](accept const&) { return std::string("accept"); },
                              },
                              a);
            out += ".\n";
        }
    }
    for (std::size_t s = 0; s < t.tables_gotos.size(); ++s) {
        for (auto const& [n, target] : t.tables_gotos[s]) {
            out += "get_nonterminal_action(" + std::to_string(s) + ", " + std::string(nonterminal_name(n)) +
                   ") = " + std::to_string(target) + ".\n";
        }
    }
    return out;
}

void write_grammar() {
    std::string text = table_text(build_tables(script_grammar()));
    std::fwrite(text.data(), 1, text.size(), stdout);
}

} // namespace vellum::js::lalr
