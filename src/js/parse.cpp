#include "js/parse.hpp"

#include "js/parse_tables.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <deque>

namespace vellum::js::parse {

namespace {

namespace sc = js_scanner;

int terminal(std::string_view name) { return tables::terminal_of_name(name).value_or(-1); }

int const slash_terminal = terminal("/");
int const semicolon_terminal = terminal(";");

parser_token semicolon(int line) {
    return parser_token{line, sc::punctuator{";"}, ";", string_value{";"}, semicolon_terminal};
}

template <class T>
value expr_token(T node) {
    // Built in place: nodes free their children through their destructor, so they are not moved.
    return expr_value{ref<expr>(new expr{.expr_node = std::move(node)})};
}

/// How a trial parse ended.
enum class trial_end { shifted, accepted, failed };

/// A stack item made during a trial parse: only what the trial needs to know of it.
struct trial_item {
    int trial_state = 0;
    symbol trial_symbol;
    bool trial_holds_expr = false;
};

class parser {
public:
    explicit parser(sc::scanner s) : scanner(std::move(s)) {}

    js_res run();

private:
    sc::scanner scanner;
    std::vector<stack_item> stack; // oldest first
    std::deque<parser_token> pending;
    bool after_newline = false;
    grammar const& productions = script_grammar();
    std::vector<semantic_rule> const& rules = grammar_rules();

    int top_state() const { return stack.empty() ? tables::start_state() : stack.back().state; }

    parser_token next_token();

    /// The reductions the tables make for `name` on (a view of) the stack, without changing it. The
    /// items the trial pushed, and how many real items it popped, are kept for a look at the result.
    struct trial {
        trial_end trial_result = trial_end::failed;
        std::size_t trial_popped = 0;
        std::vector<trial_item> trial_pushed;
    };

    trial trial_parse(int terminal) const;

    /// The symbol `depth` items below the top of the stack a trial left (0 is the top).
    std::optional<symbol> trial_symbol_at(trial const& t, std::size_t depth) const;

    bool may_insert_semicolon() const;

    void reduce_by(int production, int lookahead_line);
};

parser_token parser::next_token() {
    if (!pending.empty()) {
        parser_token t = std::move(pending.front());
        pending.pop_front();
        return t;
    }
    // A `/` here is division if the parser could take the operator, else it starts a regular expression.
    // The scanner asks only when the token does begin with a `/`.
    auto decide = [](void const* self) {
        return static_cast<parser const*>(self)->trial_parse(slash_terminal).trial_result == trial_end::shifted
                   ? sc::scan_mode::scan_div
                   : sc::scan_mode::scan_regexp;
    };
    auto [line, tok] = scanner.scan_token(decide, this);
    return classify(line, std::move(tok));
}

parser::trial parser::trial_parse(int terminal) const {
    trial t;
    auto state_of_top = [&] {
        if (!t.trial_pushed.empty()) {
            return t.trial_pushed.back().trial_state;
        }
        if (t.trial_popped < stack.size()) {
            return stack[stack.size() - 1 - t.trial_popped].state;
        }
        return tables::start_state();
    };
    for (;;) {
        auto act = tables::get_terminal_action(state_of_top(), terminal);
        if (!act) {
            t.trial_result = trial_end::failed;
            return t;
        }
        if (std::get_if<shift>(&*act)) {
            t.trial_result = trial_end::shifted;
            return t;
        }
        if (std::get_if<accept>(&*act)) {
            t.trial_result = trial_end::accepted;
            return t;
        }
        auto const& p = productions[static_cast<std::size_t>(std::get<reduce>(*act).reduce_production)];
        for (std::size_t k = 0; k < p.production_rhs.size(); ++k) {
            if (!t.trial_pushed.empty()) {
                t.trial_pushed.pop_back();
            } else if (t.trial_popped < stack.size()) {
                ++t.trial_popped;
            } else {
                throw internal_error("not enough items in the stack.");
            }
        }
        auto next = tables::get_nonterminal_action(state_of_top(), p.production_lhs);
        if (!next) {
            throw internal_error("no goto action found for non-terminal:" +
                                 std::string(nonterminal_name(p.production_lhs)));
        }
        t.trial_pushed.push_back(trial_item{*next, p.production_lhs, carries_expr(p.production_lhs)});
    }
}

std::optional<symbol> parser::trial_symbol_at(trial const& t, std::size_t depth) const {
    if (depth < t.trial_pushed.size()) {
        return t.trial_pushed[t.trial_pushed.size() - 1 - depth].trial_symbol;
    }
    std::size_t real = depth - t.trial_pushed.size() + t.trial_popped;
    if (real < stack.size()) {
        return stack[stack.size() - 1 - real].item_symbol;
    }
    return std::nullopt;
}

bool parser::may_insert_semicolon() const {
    trial t = trial_parse(semicolon_terminal);
    if (t.trial_result == trial_end::failed) {
        return false;
    }
    // With the `;` shifted in mind, the stack must end in one of the statements that a semicolon closes;
    // never in an empty statement or a `for` header.
    auto is_token = [&](std::size_t depth, std::string_view name) {
        auto s = trial_symbol_at(t, depth);
        auto const* n = s ? std::get_if<std::string>(&*s) : nullptr;
        return n && *n == name;
    };
    auto is_nt = [&](std::size_t depth, nonterminal want) {
        auto s = trial_symbol_at(t, depth);
        auto const* n = s ? std::get_if<nonterminal>(&*s) : nullptr;
        return n && *n == want;
    };
    // Depth 0 is the item under the `;`.
    if (is_nt(0, nonterminal::expr_lh)) {
        return true;
    }
    static constexpr std::pair<std::string_view, nonterminal> closing[] = {
        {"break", nonterminal::ident_opt}, {"continue", nonterminal::ident_opt}, {"return", nonterminal::expr_opt},
        {"throw", nonterminal::expr},      {"var", nonterminal::var_decls},
    };
    for (auto const& [word, n] : closing) {
        if (is_nt(0, n) && is_token(1, word)) {
            return true;
        }
    }
    return is_token(0, ")") && is_nt(1, nonterminal::expr) && is_token(2, "(") && is_token(3, "while") &&
           is_nt(4, nonterminal::stmt) && is_token(5, "do");
}

void parser::reduce_by(int production, int lookahead_line) {
    auto const& p = productions[static_cast<std::size_t>(production)];
    std::size_t n = p.production_rhs.size();
    if (n > stack.size()) {
        throw internal_error("not enough items in the stack.");
    }
    std::size_t first = stack.size() - n;
    int line = n > 0 ? stack[first].line_number : lookahead_line;
    auto const& rule = rules[static_cast<std::size_t>(production)];
    value v = rule.rule_fn(std::span<stack_item>(stack.data() + first, n), rule.rule_label);
    stack.resize(first);
    auto next = tables::get_nonterminal_action(top_state(), p.production_lhs);
    if (!next) {
        throw internal_error("no goto action found for non-terminal:" + std::string(nonterminal_name(p.production_lhs)));
    }
    stack.push_back(stack_item{line, p.production_lhs, std::move(v), *next});
}

js_res parser::run() {
    std::optional<parser_token> held;
    for (;;) {
        parser_token tok = held ? std::move(*held) : next_token();
        held.reset();
        auto act = tables::get_terminal_action(top_state(), tok.token_terminal);
        if (act) {
            if (auto const* s = std::get_if<shift>(&*act)) {
                stack.push_back(stack_item{tok.line, tok.token_name, std::move(tok.token_value), s->shift_state});
                after_newline = false;
                continue;
            }
            if (auto const* r = std::get_if<reduce>(&*act)) {
                reduce_by(r->reduce_production, tok.line);
                after_newline = false;
                held = std::move(tok);
                continue;
            }
            // Accepted: the stack holds the program, its elements last first.
            if (stack.size() != 1 || !std::get_if<source_elements_value>(&stack.back().item_value)) {
                throw internal_error("empty stack / unexpected stack value.");
            }
            auto elements = std::move(std::get<source_elements_value>(stack.back().item_value).tagged_value);
            std::reverse(elements.begin(), elements.end());
            return elements;
        }
        if (std::get_if<sc::line_terminator>(&tok.scan_token)) {
            // After `break`, `continue`, `return` and `throw` a line end closes the statement.
            if (!stack.empty()) {
                auto const* top = std::get_if<std::string>(&stack.back().item_symbol);
                if (top && (*top == "break" || *top == "continue" || *top == "return" || *top == "throw")) {
                    pending.push_front(semicolon(tok.line));
                    after_newline = false;
                    continue;
                }
            }
            after_newline = true;
            parser_token after = next_token();
            bool is_incdec = after.token_name == "++" || after.token_name == "--";
            pending.push_front(std::move(after));
            if (is_incdec) {
                // `++` or `--` may not be a postfix operator across a line end.
                trial t = trial_parse(pending.front().token_terminal);
                bool under_is_expr = false;
                if (!t.trial_pushed.empty()) {
                    under_is_expr = t.trial_pushed.back().trial_holds_expr;
                } else if (t.trial_popped < stack.size()) {
                    under_is_expr =
                        std::get_if<expr_value>(&stack[stack.size() - 1 - t.trial_popped].item_value) != nullptr;
                }
                if (t.trial_result == trial_end::shifted && under_is_expr) {
                    if (!may_insert_semicolon()) {
                        return js_error{tok.line, "unexpected token " + sc::token_to_string(tok.scan_token)};
                    }
                    pending.push_front(semicolon(tok.line));
                    after_newline = false;
                }
            }
            continue;
        }
        bool may_be_offending = std::get_if<sc::eof>(&tok.scan_token) || tok.token_name == "}" || after_newline;
        if (may_be_offending && may_insert_semicolon()) {
            int line = tok.line;
            pending.push_front(std::move(tok));
            pending.push_front(semicolon(line));
            after_newline = false;
            continue;
        }
        return js_error{tok.line, "unexpected token " + sc::token_to_string(tok.scan_token)};
    }
}

} // namespace

parser_token classify(int line, sc::token t) {
    parser_token out{.line = line, .scan_token = t, .token_name = {}, .token_value = string_value{}};
    auto named = [&](std::string name, value v) {
        out.token_terminal = terminal(name);
        out.token_name = std::move(name);
        out.token_value = std::move(v);
    };
    std::visit(overloaded{
                   [&](sc::keyword const& k) {
                       std::string const& w = k.keyword_text;
                       if (w == "null") {
                           named("null", expr_token(null_expr{}));
                       } else if (w == "this") {
                           named("this", expr_token(this_expr{}));
                       } else if (w == "true" || w == "false") {
                           named("bool", expr_token(bool_expr{w == "true"}));
                       } else {
                           named(w, string_value{w});
                       }
                   },
                   [&](sc::reserved const& r) { named(r.reserved_text, string_value{r.reserved_text}); },
                   [&](sc::identifier const& i) { named("id", string_value{i.identifier_text}); },
                   [&](sc::punctuator const& p) { named(p.punctuator_text, string_value{p.punctuator_text}); },
                   [&](sc::string_token const& s) { named("string", expr_token(string_expr{s.string_value})); },
                   [&](sc::int_token const& i) { named("number", expr_token(number_expr{number{i.int_value}})); },
                   [&](sc::float_token const& f) {
                       named("number", expr_token(number_expr{number{f.float_value}}));
                   },
                   [&](sc::regexp const& r) {
                       named("regexp", expr_token(regexp_ob{share(
                                           regexp_literal{jsstring::from_utf8(r.regexp_pattern), r.regexp_flags})}));
                   },
                   [&](sc::unknown const& u) { named(u.unknown_text, string_value{u.unknown_text}); },
                   [&](sc::unknown_byte const&) { named("unknown_byte", string_value{}); },
                   [&](sc::line_terminator const&) { named("line_terminator", string_value{}); },
                   [&](sc::eof const&) { named("$", string_value{}); },
               },
               t);
    return out;
}

js_res parse_string(std::string_view source) { return parser(sc::scanner::from_string(source)).run(); }

js_res parse_bytes(bytes::bytes const& source) { return parse_string(source.chars()); }

js_res parse_stream(std::FILE* stream) {
    auto s = sc::scanner::from_stream(stream);
    if (!s) {
        return js_error{std::nullopt, s.error()};
    }
    return parser(std::move(*s)).run();
}

js_res parse_stdin() { return parse_stream(stdin); }

} // namespace vellum::js::parse
