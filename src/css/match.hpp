// Selector matching against any element tree that offers the small read-only interface below. Matching
// allocates nothing: names and attribute values are compared as views, and the class attribute is split
// from offsets on each test.
#pragma once

#include "css/selector.hpp"

#include <concepts>
#include <optional>
#include <string_view>
#include <variant>

namespace vellum::css::match {

/// What a tree offers to matching. `element` is a cheap handle (a pointer, an index). Namespaces are
/// URIs; no value means no namespace. `attribute` finds an attribute whose namespace the selector's
/// namespace admits (see `namespace_fits`). `language` is the element's language as inherited.
/// `is_empty` holds for no child nodes, or only empty text nodes; `text_contains` looks in the element's
/// whole text content.
template <class T>
concept element_tree = requires(T const& t, typename T::element e, selector::ns const& ns, std::string_view s) {
    { t.parent_element(e) } -> std::same_as<std::optional<typename T::element>>;
    { t.previous_element(e) } -> std::same_as<std::optional<typename T::element>>;
    { t.next_element(e) } -> std::same_as<std::optional<typename T::element>>;
    { t.local_name(e) } -> std::convertible_to<std::string_view>;
    { t.namespace_uri(e) } -> std::same_as<std::optional<std::string_view>>;
    { t.attribute(e, ns, s) } -> std::same_as<std::optional<std::string_view>>;
    { t.language(e) } -> std::same_as<std::optional<std::string_view>>;
    { t.is_empty(e) } -> std::same_as<bool>;
    { t.text_contains(e, s) } -> std::same_as<bool>;
};

/// Matching outside any page, or in a page context with the page's language.
struct no_context {};

struct context {
    std::optional<std::string_view> context_lang;
};

using match_context = std::variant<no_context, context>;

/// Whether a selector namespace admits a name in namespace `uri` (none when absent).
bool namespace_fits(selector::ns const& ns, std::optional<std::string_view> uri);

/// Whether an attribute value passes an attribute selector's test.
bool attribute_value_fits(selector::attr_op op, std::string_view actual, std::string_view wanted);

/// Whether white-space-separated `list` holds `word`.
bool has_word(std::string_view list, std::string_view word);

/// Whether a language begins with the prefix of ":lang()", compared without regard to case.
bool language_fits(std::string_view language, std::string_view prefix);

/// Whether an element numbered n (from 0) is picked by an+b.
bool nth_fits(int a, int b, int n);

namespace detail {

template <element_tree T>
bool same_type(T const& t, typename T::element x, typename T::element y) {
    return std::string_view(t.local_name(x)) == std::string_view(t.local_name(y)) &&
           t.namespace_uri(x) == t.namespace_uri(y);
}

// The element's number among its element siblings from 0, counting from the start or the end, and
// among all siblings or those of its own type. A tree that keeps these numbers may offer them; counting
// runs through every sibling, which adds up under a parent with thousands of children.
template <element_tree T>
int sibling_number(T const& t, typename T::element e, bool from_end, bool of_type) {
    if constexpr (requires { { t.sibling_number(e, from_end, of_type) } -> std::same_as<std::optional<int>>; }) {
        if (auto const known = t.sibling_number(e, from_end, of_type)) {
            return *known;
        }
    }
    int n = 0;
    auto s = from_end ? t.next_element(e) : t.previous_element(e);
    while (s) {
        if (!of_type || same_type(t, *s, e)) {
            ++n;
        }
        s = from_end ? t.next_element(*s) : t.previous_element(*s);
    }
    return n;
}

template <element_tree T>
bool type_matches(T const& t, selector::type_selector const& type, typename T::element e) {
    if (auto const* u = std::get_if<selector::universal>(&type)) {
        return namespace_fits(u->ns, t.namespace_uri(e));
    }
    auto const& name = std::get<selector::element>(type).element_name;
    return std::string_view(t.local_name(e)) == name.name && namespace_fits(name.ns, t.namespace_uri(e));
}

template <element_tree T>
bool has_class(T const& t, typename T::element e, std::string_view name) {
    auto const cls = t.attribute(e, selector::none{}, "class");
    return cls && has_word(*cls, name);
}

template <element_tree T>
bool simple_matches(T const& t, selector::simple const& s, typename T::element e, match_context const& ctx);

template <element_tree T>
bool pseudo_matches(T const& t, selector::pseudo_class const& p, typename T::element e, match_context const& ctx) {
    using namespace selector;
    return std::visit(
        overloaded{
            [&](link const& l) {
                switch (l.link_kind) {
                case link_class::any:
                    return std::string_view(t.local_name(e)) == "a" && t.attribute(e, none{}, "href").has_value();
                case link_class::visited:
                case link_class::self: return false;
                }
                return false;
            },
            [](state_class const&) { return false; },
            [&](lang const& l) {
                std::optional<std::string_view> language = t.language(e);
                if (auto const* page = std::get_if<context>(&ctx)) {
                    language = page->context_lang;
                }
                return language && language_fits(*language, l.lang_prefix);
            },
            [&](structural const& s) {
                switch (s.structure) {
                case structure::root: return !t.parent_element(e).has_value();
                case structure::first_child: return !t.previous_element(e).has_value();
                case structure::last_child: return !t.next_element(e).has_value();
                case structure::first_of_type: return sibling_number(t, e, false, true) == 0;
                case structure::last_of_type: return sibling_number(t, e, true, true) == 0;
                case structure::only_child: return !t.previous_element(e) && !t.next_element(e);
                case structure::only_of_type:
                    return sibling_number(t, e, false, true) == 0 && sibling_number(t, e, true, true) == 0;
                case structure::empty: return t.is_empty(e);
                }
                return false;
            },
            [&](nth const& n) {
                bool const from_end = n.kind == nth_kind::nth_last_child || n.kind == nth_kind::nth_last_of_type;
                bool const of_type = n.kind == nth_kind::nth_of_type || n.kind == nth_kind::nth_last_of_type;
                return nth_fits(n.a, n.b, sibling_number(t, e, from_end, of_type));
            },
            [&](contains const& c) { return t.text_contains(e, c.contains_text); },
            [&](negated const& n) { return !simple_matches(t, *n.negated_simple, e, ctx); },
            [&](negated_type const& n) { return !type_matches(t, n.negated_type_selector, e); },
            // An element without a class attribute has no class, so it passes.
            [&](negated_class const& n) { return !has_class(t, e, n.negated_class_name); },
        },
        p);
}

template <element_tree T>
bool simple_matches(T const& t, selector::simple const& s, typename T::element e, match_context const& ctx) {
    using namespace selector;
    return std::visit(overloaded{
                          [&](attribute const& a) {
                              auto const v = t.attribute(e, a.attr_name.ns, a.attr_name.name);
                              return v && attribute_value_fits(a.op, *v, a.attr_value);
                          },
                          [&](id const& i) {
                              auto const v = t.attribute(e, any{}, "id");
                              return v && *v == i.id_name;
                          },
                          [&](classes const& c) {
                              auto const cls = t.attribute(e, none{}, "class");
                              if (!cls) {
                                  return false;
                              }
                              for (auto const& name : c.class_names) {
                                  if (!has_word(*cls, name)) {
                                      return false;
                                  }
                              }
                              return true;
                          },
                          [&](pseudo_class const& p) { return pseudo_matches(t, p, e, ctx); },
                      },
                      s);
}

template <element_tree T>
bool compound_matches(T const& t, selector::selector0 const& s, typename T::element e, match_context const& ctx);

// A tree may remember, for a compound selector and an element, whether some earlier sibling of the
// element matches it. Under a parent with thousands of children, "a ~ b" would otherwise look through
// all the earlier ones for each b and for each descendant of b that a rule "a ~ b c" is tried on.
template <class T>
concept remembers_siblings = requires(T const& t, selector::selector0 const& s, typename T::element e, bool b) {
    { t.recall_previous_match(s, e) } -> std::same_as<std::optional<bool>>;
    t.remember_previous_match(s, e, b);
};

// Whether some earlier sibling of e matches s. The answer for e is the answer for its previous sibling
// unless that sibling matches itself, so a tree that remembers answers steps back only to the nearest
// sibling it has answered for. The page context changes what ":lang()" sees, so answers are kept only
// outside pages.
template <element_tree T>
bool some_previous_matches(T const& t, selector::selector0 const& s, typename T::element e,
                           match_context const& ctx) {
    bool const memo = std::holds_alternative<no_context>(ctx);
    bool found = false;
    for (auto p = t.previous_element(e); p; p = t.previous_element(*p)) {
        if (compound_matches(t, s, *p, ctx)) {
            found = true;
            break;
        }
        if constexpr (remembers_siblings<T>) {
            if (memo) {
                if (auto const known = t.recall_previous_match(s, *p)) {
                    found = *known;
                    break;
                }
            }
        }
    }
    if constexpr (remembers_siblings<T>) {
        if (memo) {
            t.remember_previous_match(s, e, found);
        }
    }
    return found;
}

template <element_tree T>
bool compound_matches(T const& t, selector::selector0 const& s, typename T::element e, match_context const& ctx) {
    using namespace selector;
    if (!type_matches(t, s.type, e)) {
        return false;
    }
    for (auto const& x : s.simples) {
        if (!simple_matches(t, x, e, ctx)) {
            return false;
        }
    }
    // The left context: each candidate element that fits is tried in turn, nearest first, so that a
    // failure further left falls back to the next candidate.
    return std::visit(overloaded{
                          [](depend_none const&) { return true; },
                          [&](depend_ancestor const& d) {
                              for (auto a = t.parent_element(e); a; a = t.parent_element(*a)) {
                                  if (compound_matches(t, *d.depend, *a, ctx)) {
                                      return true;
                                  }
                              }
                              return false;
                          },
                          [&](depend_parent const& d) {
                              auto const p = t.parent_element(e);
                              return p && compound_matches(t, *d.depend, *p, ctx);
                          },
                          [&](depend_prev_direct_sibling const& d) {
                              auto const p = t.previous_element(e);
                              return p && compound_matches(t, *d.depend, *p, ctx);
                          },
                          [&](depend_prev_indirect_sibling const& d) {
                              return some_previous_matches(t, *d.depend, e, ctx);
                          },
                      },
                      s.depend);
}

} // namespace detail

/// Whether the selector's compound chain matches the element; pseudo-elements are not looked at, since
/// the cascade files their declarations apart.
template <element_tree T>
bool selector_matches(T const& t, selector::selector const& s, typename T::element e,
                      match_context const& ctx = no_context{}) {
    return detail::compound_matches(t, s.subject, e, ctx);
}

/// Whether the element itself is selected, as querySelector asks: a selector with a pseudo-element
/// selects no element.
template <element_tree T>
bool element_matches(T const& t, selector::selector const& s, typename T::element e) {
    return s.pseudo_elements.empty() && detail::compound_matches(t, s.subject, e, no_context{});
}

} // namespace vellum::css::match
