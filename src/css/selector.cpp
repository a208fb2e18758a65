#include "css/selector.hpp"

#include <charconv>

namespace vellum::css::selector {

namespace {

using lexer::symbol;

bool same(ref<selector0> const& a, ref<selector0> const& b) {
    if (!a || !b) {
        return !a && !b;
    }
    return *a == *b;
}

struct pseudo_element_entry {
    char const* name;
    pseudo_element element;
};

constexpr pseudo_element_entry pseudo_elements[] = {
    {"first-letter", pseudo_element::first_letter},
    {"first-line", pseudo_element::first_line},
    {"first-page", pseudo_element::first_page},
    {"before", pseudo_element::before},
    {"after", pseudo_element::after},
    {"marker", pseudo_element::marker},
    {"footnote-call", pseudo_element::footnote_call},
    {"footnote-marker", pseudo_element::footnote_marker},
    {"selection", pseudo_element::selection},
    {"value", pseudo_element::value},
    {"choices", pseudo_element::choices},
};

std::optional<pseudo_element> find_pseudo_element(std::string_view name) {
    for (auto const& e : pseudo_elements) {
        if (name == e.name) {
            return e.element;
        }
    }
    return std::nullopt;
}

struct pseudo_class_entry {
    char const* name;
    pseudo_class pseudo;
};

// The pseudo-classes written without an argument.
pseudo_class_entry const plain_pseudo_classes[] = {
    {"link", link{link_class::any}},
    {"any-link", link{link_class::any}},
    {"visited", link{link_class::visited}},
    {"local-link", link{link_class::self}},
    {"target", state_class{state::target}},
    {"hover", state_class{state::hover}},
    {"active", state_class{state::active}},
    {"focus", state_class{state::focus}},
    {"enabled", state_class{state::enabled}},
    {"disabled", state_class{state::disabled}},
    {"checked", state_class{state::checked}},
    {"indeterminate", state_class{state::indeterminate}},
    {"valid", state_class{state::valid}},
    {"invalid", state_class{state::invalid}},
    {"required", state_class{state::required}},
    {"optional", state_class{state::optional}},
    {"read-only", state_class{state::read_only}},
    {"read-write", state_class{state::read_write}},
    {"root", structural{structure::root}},
    {"first-child", structural{structure::first_child}},
    {"last-child", structural{structure::last_child}},
    {"first-of-type", structural{structure::first_of_type}},
    {"last-of-type", structural{structure::last_of_type}},
    {"only-child", structural{structure::only_child}},
    {"only-of-type", structural{structure::only_of_type}},
    {"empty", structural{structure::empty}},
};

struct nth_entry {
    char const* name;
    nth_kind kind;
};

constexpr nth_entry nth_functions[] = {
    {"nth-child", nth_kind::nth_child},
    {"nth-last-child", nth_kind::nth_last_child},
    {"nth-of-type", nth_kind::nth_of_type},
    {"nth-last-of-type", nth_kind::nth_last_of_type},
};

std::optional<int> parse_int(std::string_view s) {
    if (s.starts_with('+')) {
        s.remove_prefix(1);
    }
    if (s.empty()) {
        return std::nullopt;
    }
    int v = 0;
    auto const [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc{} || end != s.data() + s.size()) {
        return std::nullopt;
    }
    return v;
}

// "odd", "even", "b", or "an+b" in any of its spellings: "n", "-n+2", "2n-1", "+3n".
result<std::pair<int, int>> parse_an_plus_b(std::string_view text) {
    std::string const s = lexer::ascii_lower(text);
    if (s == "odd") {
        return std::pair{2, 1};
    }
    if (s == "even") {
        return std::pair{2, 0};
    }
    auto const n = s.find('n');
    if (n == std::string::npos) {
        if (auto b = parse_int(s)) {
            return std::pair{0, *b};
        }
        return fail("selector: bad argument '" + s + "' of an nth pseudo-class");
    }
    std::string_view const head = std::string_view(s).substr(0, n);
    std::string_view const tail = std::string_view(s).substr(n + 1);
    std::optional<int> a;
    if (head.empty() || head == "+") {
        a = 1;
    } else if (head == "-") {
        a = -1;
    } else {
        a = parse_int(head);
    }
    std::optional<int> b = 0;
    if (!tail.empty()) {
        // After "n" only a sign and digits may follow.
        bool const digits = tail.size() > 1 && tail.find_first_not_of("0123456789", 1) == std::string::npos;
        b = (tail[0] == '+' || tail[0] == '-') && digits ? parse_int(tail) : std::nullopt;
    }
    if (!a || !b) {
        return fail("selector: bad argument '" + s + "' of an nth pseudo-class");
    }
    return std::pair{*a, *b};
}

struct parser {
    cursor::cursor& c;
    namespaces const& ns_map;

    // The namespace a prefix names; an undeclared prefix fails the selector.
    result<ns> prefix_namespace(std::string const& prefix) {
        auto const it = ns_map.find(prefix);
        if (it == ns_map.end()) {
            return fail("selector: undeclared namespace prefix '" + prefix + "'");
        }
        return ns{xmlns{it->second}};
    }

    // Without a prefix, type selectors take the default namespace if there is one.
    ns default_namespace() const {
        auto const it = ns_map.find(std::nullopt);
        if (it == ns_map.end()) {
            return any{};
        }
        return xmlns{it->second};
    }

    // An optional "prefix|" before a name or "*": nothing if no prefix is written.
    result<std::optional<ns>> namespace_prefix() {
        std::size_t const save = c.pos;
        std::optional<ns> found;
        if (auto const* i = c.get<lexer::ident>()) {
            ++c.pos;
            if (c.accept(symbol::bar)) {
                auto r = prefix_namespace(i->ident_name);
                if (!r) {
                    return fail(r.error());
                }
                found = *r;
            }
        } else if (c.accept(symbol::star)) {
            if (c.accept(symbol::bar)) {
                found = any{};
            }
        } else if (c.accept(symbol::bar)) {
            found = none{};
        }
        if (!found) {
            c.pos = save;
            return std::optional<ns>{};
        }
        // A prefix must be followed by a name or "*".
        if (c.get<lexer::ident>() == nullptr && !c.is(symbol::star)) {
            return fail("selector: a name must follow a namespace prefix");
        }
        return found;
    }

    // A type selector, or nothing if the compound starts with something else.
    result<std::optional<type_selector>> type() {
        auto prefix = namespace_prefix();
        if (!prefix) {
            return fail(prefix.error());
        }
        ns const space = prefix->value_or(default_namespace());
        if (auto const* i = c.get<lexer::ident>()) {
            ++c.pos;
            return std::optional<type_selector>{element{name_type{space, i->ident_name}}};
        }
        if (c.accept(symbol::star)) {
            return std::optional<type_selector>{universal{space}};
        }
        return std::optional<type_selector>{};
    }

    result<attribute> attribute_selector() {
        c.skip_spaces();
        auto prefix = namespace_prefix();
        if (!prefix) {
            return fail(prefix.error());
        }
        auto const* name = c.get<lexer::ident>();
        if (name == nullptr) {
            return fail("selector: attribute name expected");
        }
        ++c.pos;
        // Attribute names without a prefix are in no namespace.
        attribute out{.attr_name = {prefix->value_or(none{}), name->ident_name}};
        c.skip_spaces();
        if (c.accept(symbol::close_bracket)) {
            return out;
        }
        if (c.accept(symbol::equals)) {
            out.op = attr_op::equals;
        } else if (c.accept(symbol::includes)) {
            out.op = attr_op::contains_word;
        } else if (c.accept(symbol::dash_match)) {
            out.op = attr_op::contains_lang;
        } else if (c.accept(symbol::prefix_match)) {
            out.op = attr_op::prefix;
        } else if (c.accept(symbol::suffix_match)) {
            out.op = attr_op::suffix;
        } else if (c.accept(symbol::substring_match)) {
            out.op = attr_op::contains;
        } else {
            return fail("selector: bad attribute selector");
        }
        c.skip_spaces();
        if (auto const* i = c.get<lexer::ident>()) {
            out.attr_value = i->ident_name;
        } else if (auto const* s = c.get<lexer::string>()) {
            out.attr_value = s->string_text;
        } else {
            return fail("selector: attribute value expected");
        }
        ++c.pos;
        c.skip_spaces();
        if (!c.accept(symbol::close_bracket)) {
            return fail("selector: ']' expected");
        }
        return out;
    }

    // The argument tokens of a functional pseudo-class up to its ")", written back without blanks.
    result<std::string> argument_text() {
        std::string out;
        while (!c.at_end() && !c.is(symbol::close_paren)) {
            if (!c.is(symbol::space)) {
                out += lexer::to_text(c.peek());
            }
            ++c.pos;
        }
        if (!c.accept(symbol::close_paren)) {
            return fail("selector: ')' expected");
        }
        return out;
    }

    // A single ident or string argument and the ")".
    result<std::string> word_argument() {
        c.skip_spaces();
        std::string out;
        if (auto const* i = c.get<lexer::ident>()) {
            out = i->ident_name;
        } else if (auto const* s = c.get<lexer::string>()) {
            out = s->string_text;
        } else {
            return fail("selector: argument expected");
        }
        ++c.pos;
        c.skip_spaces();
        if (!c.accept(symbol::close_paren)) {
            return fail("selector: ')' expected");
        }
        return out;
    }

    // ":not(...)": a type selector, a class, or one other simple selector, which may not be a negation.
    result<pseudo_class> negation() {
        c.skip_spaces();
        pseudo_class out;
        if (c.accept(symbol::dot)) {
            auto const* i = c.get<lexer::ident>();
            if (i == nullptr) {
                return fail("selector: class name expected");
            }
            ++c.pos;
            out = negated_class{i->ident_name};
        } else {
            auto t = type();
            if (!t) {
                return fail(t.error());
            }
            if (*t) {
                out = negated_type{**t};
            } else {
                auto s = simple_selector();
                if (!s) {
                    return fail(s.error());
                }
                if (!*s) {
                    return fail("selector: bad argument of :not()");
                }
                auto const* pc = std::get_if<pseudo_class>(&**s);
                if (pc != nullptr && (std::holds_alternative<negated>(*pc) ||
                                      std::holds_alternative<negated_type>(*pc) ||
                                      std::holds_alternative<negated_class>(*pc))) {
                    return fail("selector: :not() cannot be nested");
                }
                out = negated{share(simple(**s))};
            }
        }
        c.skip_spaces();
        if (!c.accept(symbol::close_paren)) {
            return fail("selector: ')' expected");
        }
        return out;
    }

    result<pseudo_class> functional_pseudo_class(std::string const& name) {
        for (auto const& e : nth_functions) {
            if (name == e.name) {
                auto text = argument_text();
                if (!text) {
                    return fail(text.error());
                }
                auto ab = parse_an_plus_b(*text);
                if (!ab) {
                    return fail(ab.error());
                }
                return pseudo_class{nth{e.kind, ab->first, ab->second}};
            }
        }
        if (name == "lang") {
            auto w = word_argument();
            if (!w) {
                return fail(w.error());
            }
            return pseudo_class{lang{*w}};
        }
        if (name == "contains") {
            auto w = word_argument();
            if (!w) {
                return fail(w.error());
            }
            return pseudo_class{contains{*w}};
        }
        if (name == "not") {
            return negation();
        }
        return fail("selector: unknown pseudo-class '" + name + "()'");
    }

    // One of "#id", ".class", "[...]" or ":pseudo-class"; nothing if none starts here. A pseudo-element
    // is not a simple selector: the colon is left for the caller.
    result<std::optional<simple>> simple_selector() {
        if (auto const* h = c.get<lexer::hash_id>()) {
            ++c.pos;
            return std::optional<simple>{id{h->hash_name}};
        }
        if (c.is(symbol::dot)) {
            ++c.pos;
            auto const* i = c.get<lexer::ident>();
            if (i == nullptr) {
                return fail("selector: class name expected");
            }
            ++c.pos;
            return std::optional<simple>{classes{{i->ident_name}}};
        }
        if (c.accept(symbol::open_bracket)) {
            auto a = attribute_selector();
            if (!a) {
                return fail(a.error());
            }
            return std::optional<simple>{*a};
        }
        if (c.is(symbol::colon)) {
            std::size_t const save = c.pos;
            ++c.pos;
            if (auto const* i = c.get<lexer::ident>()) {
                std::string const name = lexer::ascii_lower(i->ident_name);
                if (find_pseudo_element(name)) {
                    c.pos = save;
                    return std::optional<simple>{};
                }
                ++c.pos;
                for (auto const& e : plain_pseudo_classes) {
                    if (name == e.name) {
                        return std::optional<simple>{e.pseudo};
                    }
                }
                return fail("selector: unknown pseudo-class '" + name + "'");
            }
            if (auto const* f = c.get<lexer::function>()) {
                ++c.pos;
                auto p = functional_pseudo_class(lexer::ascii_lower(f->function_name));
                if (!p) {
                    return fail(p.error());
                }
                return std::optional<simple>{*p};
            }
            c.pos = save;
        }
        return std::optional<simple>{};
    }

    // "::name" or ":name" for the pseudo-elements; nothing if none starts here.
    result<std::optional<pseudo_element>> pseudo_element_selector() {
        std::size_t const save = c.pos;
        if (!c.accept(symbol::colon)) {
            return std::optional<pseudo_element>{};
        }
        c.accept(symbol::colon);
        auto const* i = c.get<lexer::ident>();
        if (i == nullptr) {
            c.pos = save;
            return std::optional<pseudo_element>{};
        }
        auto const p = find_pseudo_element(lexer::ascii_lower(i->ident_name));
        if (!p) {
            return fail("selector: unknown pseudo-element '" + i->ident_name + "'");
        }
        ++c.pos;
        return std::optional<pseudo_element>{*p};
    }

    // A type selector and simple selectors, then any pseudo-elements.
    result<selector0> compound(std::vector<pseudo_element>& pseudo) {
        selector0 out{.type = universal{default_namespace()}};
        auto t = type();
        if (!t) {
            return fail(t.error());
        }
        bool found = t->has_value();
        if (*t) {
            out.type = **t;
        }
        while (true) {
            auto s = simple_selector();
            if (!s) {
                return fail(s.error());
            }
            if (!*s) {
                break;
            }
            found = true;
            // Consecutive class selectors form one list.
            auto* cl = std::get_if<classes>(&**s);
            auto* last = out.simples.empty() ? nullptr : std::get_if<classes>(&out.simples.back());
            if (cl != nullptr && last != nullptr) {
                last->class_names.push_back(cl->class_names.front());
            } else {
                out.simples.push_back(std::move(**s));
            }
        }
        while (true) {
            auto p = pseudo_element_selector();
            if (!p) {
                return fail(p.error());
            }
            if (!*p) {
                break;
            }
            found = true;
            pseudo.push_back(**p);
        }
        if (!found) {
            return fail("selector: selector expected");
        }
        return out;
    }

    result<selector> complete() {
        selector out;
        auto first = compound(out.pseudo_elements);
        if (!first) {
            return fail(first.error());
        }
        selector0 subject = std::move(*first);
        while (true) {
            bool const blank = c.is(symbol::space);
            c.skip_spaces();
            if (c.at_end() || c.is(symbol::comma) || c.is(symbol::open_brace) || c.is(symbol::close_paren)) {
                break;
            }
            enum class comb { descendant, child, direct, indirect } k = comb::descendant;
            if (c.accept(symbol::greater)) {
                k = comb::child;
            } else if (c.accept(symbol::plus)) {
                k = comb::direct;
            } else if (c.accept(symbol::tilde)) {
                k = comb::indirect;
            } else if (!blank) {
                return fail("selector: unexpected '" + lexer::to_text(c.peek()) + "'");
            }
            // Pseudo-elements belong to the subject, so nothing may follow them.
            if (!out.pseudo_elements.empty()) {
                return fail("selector: a pseudo-element must come last");
            }
            c.skip_spaces();
            auto next = compound(out.pseudo_elements);
            if (!next) {
                return fail(next.error());
            }
            auto left = share(std::move(subject));
            switch (k) {
            case comb::descendant: next->depend = depend_ancestor{left}; break;
            case comb::child: next->depend = depend_parent{left}; break;
            case comb::direct: next->depend = depend_prev_direct_sibling{left}; break;
            case comb::indirect: next->depend = depend_prev_indirect_sibling{left}; break;
            }
            subject = std::move(*next);
        }
        out.subject = std::move(subject);
        return out;
    }
};

specific add(specific x, specific y) {
    return {x.a + y.a, x.b + y.b, x.c + y.c};
}

specific type_specificity(type_selector const& t) {
    return std::visit(overloaded{
                          [](universal const&) { return specific{}; },
                          [](element const&) { return specific{0, 0, 1}; },
                      },
                      t);
}

specific simple_specificity(simple const& s);

specific pseudo_specificity(pseudo_class const& p) {
    return std::visit(overloaded{
                          [](link const&) { return specific{0, 1, 0}; },
                          [](state_class const&) { return specific{0, 1, 0}; },
                          [](lang const&) { return specific{0, 1, 0}; },
                          [](structural const&) { return specific{0, 1, 0}; },
                          [](nth const&) { return specific{0, 1, 0}; },
                          [](contains const&) { return specific{0, 1, 0}; },
                          [](negated const& n) { return simple_specificity(*n.negated_simple); },
                          [](negated_type const& n) { return type_specificity(n.negated_type_selector); },
                          [](negated_class const&) { return specific{0, 1, 0}; },
                      },
                      p);
}

specific simple_specificity(simple const& s) {
    return std::visit(overloaded{
                          [](attribute const&) { return specific{0, 1, 0}; },
                          [](id const&) { return specific{1, 0, 0}; },
                          [](classes const& c) { return specific{0, static_cast<int>(c.class_names.size()), 0}; },
                          [](pseudo_class const& p) { return pseudo_specificity(p); },
                      },
                      s);
}

ref<selector0> const* depend_of(depend_selector const& d) {
    return std::visit(overloaded{
                          [](depend_none const&) -> ref<selector0> const* { return nullptr; },
                          [](depend_ancestor const& x) { return &x.depend; },
                          [](depend_parent const& x) { return &x.depend; },
                          [](depend_prev_direct_sibling const& x) { return &x.depend; },
                          [](depend_prev_indirect_sibling const& x) { return &x.depend; },
                      },
                      d);
}

specific specificity0(selector0 const& s) {
    specific out = type_specificity(s.type);
    for (auto const& x : s.simples) {
        out = add(out, simple_specificity(x));
    }
    if (auto const* left = depend_of(s.depend); left != nullptr && *left) {
        out = add(out, specificity0(**left));
    }
    return out;
}

std::string quoted(std::string_view s) {
    std::string out = "\"";
    for (char ch : s) {
        if (ch == '"' || ch == '\\') {
            out += '\\';
        }
        out += ch;
    }
    return out + "\"";
}

// Type names: "name" in any namespace, "|name" in none, "[uri]|name" in one.
std::string type_ns_text(ns const& n) {
    return std::visit(overloaded{
                          [](none const&) { return std::string("|"); },
                          [](any const&) { return std::string(); },
                          [](xmlns const& x) { return "[" + x.xmlns_uri + "]|"; },
                      },
                      n);
}

// Attribute names: "name" in none, "*|name" in any, "[uri]|name" in one.
std::string attr_ns_text(ns const& n) {
    return std::visit(overloaded{
                          [](none const&) { return std::string(); },
                          [](any const&) { return std::string("*|"); },
                          [](xmlns const& x) { return "[" + x.xmlns_uri + "]|"; },
                      },
                      n);
}

char const* attr_op_text(attr_op op) {
    switch (op) {
    case attr_op::exists: return "";
    case attr_op::equals: return "=";
    case attr_op::prefix: return "^=";
    case attr_op::suffix: return "$=";
    case attr_op::contains: return "*=";
    case attr_op::contains_word: return "~=";
    case attr_op::contains_lang: return "|=";
    }
    return "";
}

std::string type_text(type_selector const& t, bool omit_plain_universal) {
    return std::visit(overloaded{
                          [&](universal const& u) {
                              if (omit_plain_universal && std::holds_alternative<any>(u.ns)) {
                                  return std::string();
                              }
                              return type_ns_text(u.ns) + "*";
                          },
                          [](element const& e) {
                              return type_ns_text(e.element_name.ns) + e.element_name.name;
                          },
                      },
                      t);
}

std::string simple_text(simple const& s);

std::string pseudo_text(pseudo_class const& p) {
    return std::visit(
        overloaded{
            [](link const& l) {
                switch (l.link_kind) {
                case link_class::any: return std::string(":link");
                case link_class::visited: return std::string(":visited");
                case link_class::self: return std::string(":local-link");
                }
                return std::string();
            },
            [](state_class const& s) {
                for (auto const& e : plain_pseudo_classes) {
                    if (auto const* x = std::get_if<state_class>(&e.pseudo); x != nullptr && *x == s) {
                        return std::string(":") + e.name;
                    }
                }
                return std::string();
            },
            [](lang const& l) { return ":lang(" + l.lang_prefix + ")"; },
            [](structural const& s) {
                for (auto const& e : plain_pseudo_classes) {
                    if (auto const* x = std::get_if<structural>(&e.pseudo); x != nullptr && *x == s) {
                        return std::string(":") + e.name;
                    }
                }
                return std::string();
            },
            [](nth const& n) {
                std::string out = ":";
                for (auto const& e : nth_functions) {
                    if (e.kind == n.kind) {
                        out += e.name;
                    }
                }
                out += "(" + std::to_string(n.a) + "n" + (n.b >= 0 ? "+" : "") + std::to_string(n.b) + ")";
                return out;
            },
            [](contains const& x) { return ":contains(" + quoted(x.contains_text) + ")"; },
            [](negated const& n) { return ":not(" + simple_text(*n.negated_simple) + ")"; },
            [](negated_type const& n) { return ":not(" + type_text(n.negated_type_selector, false) + ")"; },
            [](negated_class const& n) { return ":not(." + n.negated_class_name + ")"; },
        },
        p);
}

std::string simple_text(simple const& s) {
    return std::visit(overloaded{
                          [](attribute const& a) {
                              std::string out = "[" + attr_ns_text(a.attr_name.ns) + a.attr_name.name;
                              if (a.op != attr_op::exists) {
                                  out += attr_op_text(a.op) + quoted(a.attr_value);
                              }
                              return out + "]";
                          },
                          [](id const& i) { return "#" + i.id_name; },
                          [](classes const& c) {
                              std::string out;
                              for (auto const& n : c.class_names) {
                                  out += "." + n;
                              }
                              return out;
                          },
                          [](pseudo_class const& p) { return pseudo_text(p); },
                      },
                      s);
}

std::string text0(selector0 const& s) {
    std::string out = std::visit(
        overloaded{
            [](depend_none const&) { return std::string(); },
            [](depend_ancestor const& d) { return text0(*d.depend) + " "; },
            [](depend_parent const& d) { return text0(*d.depend) + " > "; },
            [](depend_prev_direct_sibling const& d) { return text0(*d.depend) + " + "; },
            [](depend_prev_indirect_sibling const& d) { return text0(*d.depend) + " ~ "; },
        },
        s.depend);
    out += type_text(s.type, !s.simples.empty());
    for (auto const& x : s.simples) {
        out += simple_text(x);
    }
    return out;
}

selector0 fold0(selector0 const& s) {
    selector0 out = s;
    bool fold = false;
    std::visit(overloaded{
                   [&](universal const& u) { fold = std::holds_alternative<any>(u.ns); },
                   [&](element const& e) {
                       fold = std::holds_alternative<any>(e.element_name.ns);
                       if (fold) {
                           out.type = element{{any{}, lexer::ascii_lower(e.element_name.name)}};
                       }
                   },
               },
               s.type);
    if (fold) {
        for (auto& x : out.simples) {
            if (auto* a = std::get_if<attribute>(&x)) {
                a->attr_name.name = lexer::ascii_lower(a->attr_name.name);
            }
        }
    }
    std::visit(overloaded{
                   [](depend_none&) {},
                   [](depend_ancestor& d) { d.depend = share(fold0(*d.depend)); },
                   [](depend_parent& d) { d.depend = share(fold0(*d.depend)); },
                   [](depend_prev_direct_sibling& d) { d.depend = share(fold0(*d.depend)); },
                   [](depend_prev_indirect_sibling& d) { d.depend = share(fold0(*d.depend)); },
               },
               out.depend);
    return out;
}

} // namespace

bool negated::operator==(negated const& other) const {
    if (!negated_simple || !other.negated_simple) {
        return !negated_simple && !other.negated_simple;
    }
    return *negated_simple == *other.negated_simple;
}

bool depend_ancestor::operator==(depend_ancestor const& other) const {
    return same(depend, other.depend);
}

bool depend_parent::operator==(depend_parent const& other) const {
    return same(depend, other.depend);
}

bool depend_prev_direct_sibling::operator==(depend_prev_direct_sibling const& other) const {
    return same(depend, other.depend);
}

bool depend_prev_indirect_sibling::operator==(depend_prev_indirect_sibling const& other) const {
    return same(depend, other.depend);
}

result<selector> parse_selector(cursor::cursor& c, namespaces const& ns) {
    parser p{c, ns};
    return p.complete();
}

result<std::vector<selector>> parse_selector_list(cursor::cursor& c, namespaces const& ns) {
    std::vector<selector> out;
    c.skip_spaces();
    while (true) {
        auto s = parse_selector(c, ns);
        if (!s) {
            return fail(s.error());
        }
        out.push_back(std::move(*s));
        if (!c.accept(lexer::symbol::comma)) {
            break;
        }
        c.skip_spaces();
    }
    if (!c.at_end() && !c.is(lexer::symbol::open_brace)) {
        return fail("selector: unexpected '" + lexer::to_text(c.peek()) + "'");
    }
    return out;
}

result<std::vector<selector>> parse_selector_text(std::string_view text, namespaces const& ns) {
    auto const tokens = lexer::scan(text);
    cursor::cursor c{tokens};
    auto list = parse_selector_list(c, ns);
    if (list && !c.at_end()) {
        return fail("selector: unexpected '" + lexer::to_text(c.peek()) + "'");
    }
    return list;
}

specific specificity(selector const& s) {
    return specificity0(s.subject);
}

std::string to_text(selector const& s) {
    std::string out = text0(s.subject);
    if (out.empty()) {
        out = "*";
    }
    for (auto p : s.pseudo_elements) {
        out += "::";
        out += pseudo_element_name(p);
    }
    return out;
}

selector fold_html_case(selector const& s) {
    return selector{fold0(s.subject), s.pseudo_elements};
}

char const* pseudo_element_name(pseudo_element p) {
    for (auto const& e : pseudo_elements) {
        if (e.element == p) {
            return e.name;
        }
    }
    return "";
}

} // namespace vellum::css::selector
