// Selectors: the model (a chain of compound selectors read from the subject leftwards), parsing from
// tokens, specificity, and the case folding that HTML documents need.
#pragma once

#include "css/cursor.hpp"
#include "css/namespaces.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <compare>
#include <string>
#include <variant>
#include <vector>

namespace vellum::css::selector {

/// No namespace: matches only names in no namespace.
struct none {
    bool operator==(none const&) const = default;
};

/// Any namespace, or none.
struct any {
    bool operator==(any const&) const = default;
};

/// Exactly this namespace URI.
struct xmlns {
    std::string xmlns_uri;
    bool operator==(xmlns const&) const = default;
};

/// The namespace part of a type or attribute selector.
using ns = std::variant<none, any, xmlns>;

/// A namespace and a local name.
struct name_type {
    selector::ns ns = any{};
    std::string name;
    bool operator==(name_type const&) const = default;
};

/// "*", or "ns|*".
struct universal {
    selector::ns ns = any{};
    bool operator==(universal const&) const = default;
};

/// An element name.
struct element {
    name_type element_name;
    bool operator==(element const&) const = default;
};

using type_selector = std::variant<universal, element>;

/// How an attribute selector tests the value.
enum class attr_op { exists, equals, prefix, suffix, contains, contains_word, contains_lang };

/// "[name]", "[name=value]", "[name^=value]" and the rest.
struct attribute {
    name_type attr_name;
    attr_op op = attr_op::exists;
    std::string attr_value;
    bool operator==(attribute const&) const = default;
};

/// "#name".
struct id {
    std::string id_name;
    bool operator==(id const&) const = default;
};

/// ".a.b": consecutive class selectors form one list.
struct classes {
    std::vector<std::string> class_names;
    bool operator==(classes const&) const = default;
};

/// Which links ":link" and its relatives select.
enum class link_class { any, visited, self };

struct link {
    link_class link_kind = link_class::any;
    bool operator==(link const&) const = default;
};

/// Interactive and form states: they parse, and never match, since paged output has no such state.
enum class state {
    target,
    hover,
    active,
    focus,
    enabled,
    disabled,
    checked,
    indeterminate,
    valid,
    invalid,
    required,
    optional,
    read_only,
    read_write,
};

struct state_class {
    selector::state state = state::target;
    bool operator==(state_class const&) const = default;
};

/// ":lang(x)".
struct lang {
    std::string lang_prefix;
    bool operator==(lang const&) const = default;
};

/// Pseudo-classes about the element's place among its siblings, or its content.
enum class structure {
    root,
    first_child,
    last_child,
    first_of_type,
    last_of_type,
    only_child,
    only_of_type,
    empty,
};

struct structural {
    selector::structure structure = structure::root;
    bool operator==(structural const&) const = default;
};

/// Which siblings an ":nth-..." pseudo-class counts, and from which end.
enum class nth_kind { nth_child, nth_last_child, nth_of_type, nth_last_of_type };

/// ":nth-child(an+b)" and its relatives.
struct nth {
    nth_kind kind = nth_kind::nth_child;
    int a = 0;
    int b = 0;
    bool operator==(nth const&) const = default;
};

/// ":contains(text)".
struct contains {
    std::string contains_text;
    bool operator==(contains const&) const = default;
};

struct simple;

/// ":not(x)" with a simple selector other than a class or a type.
struct negated {
    ref<simple> negated_simple;
    bool operator==(negated const& other) const;
};

/// ":not(t)" with a type selector.
struct negated_type {
    type_selector negated_type_selector;
    bool operator==(negated_type const&) const = default;
};

/// ":not(.c)".
struct negated_class {
    std::string negated_class_name;
    bool operator==(negated_class const&) const = default;
};

using pseudo_class =
    std::variant<link, state_class, lang, structural, nth, contains, negated, negated_type, negated_class>;

using simple_alternative = std::variant<attribute, id, classes, pseudo_class>;

/// One condition of a compound selector besides its type.
struct simple : simple_alternative {
    using simple_alternative::simple_alternative;
};

struct selector0;

/// The left context of a compound selector, by combinator.
struct depend_none {
    bool operator==(depend_none const&) const = default;
};

/// "A B": some ancestor matches.
struct depend_ancestor {
    ref<selector0> depend;
    bool operator==(depend_ancestor const& other) const;
};

/// "A > B": the parent matches.
struct depend_parent {
    ref<selector0> depend;
    bool operator==(depend_parent const& other) const;
};

/// "A + B": the previous element sibling matches.
struct depend_prev_direct_sibling {
    ref<selector0> depend;
    bool operator==(depend_prev_direct_sibling const& other) const;
};

/// "A ~ B": some earlier element sibling matches.
struct depend_prev_indirect_sibling {
    ref<selector0> depend;
    bool operator==(depend_prev_indirect_sibling const& other) const;
};

using depend_selector = std::variant<depend_none, depend_ancestor, depend_parent, depend_prev_direct_sibling,
                                     depend_prev_indirect_sibling>;

/// A compound selector and what stands left of it.
struct selector0 {
    type_selector type = universal{};
    std::vector<simple> simples;
    depend_selector depend = depend_none{};
    bool operator==(selector0 const&) const = default;
};

/// Pseudo-elements, written after the last compound selector.
enum class pseudo_element {
    first_letter,
    first_line,
    first_page,
    before,
    after,
    marker,
    footnote_call,
    footnote_marker,
    selection,
    value,
    choices,
};

/// A complete selector: the subject's compound selector and its pseudo-elements.
struct selector {
    selector0 subject;
    std::vector<pseudo_element> pseudo_elements;
    bool operator==(selector const&) const = default;
};

/// Specificity: ids, then classes, attributes and pseudo-classes, then element names.
struct specific {
    int a = 0;
    int b = 0;
    int c = 0;
    bool operator==(specific const&) const = default;
    auto operator<=>(specific const&) const = default;
};

/// Parses one selector at the cursor, stopping before "," or "{" or the end (blanks before them are
/// consumed). An undeclared namespace prefix or an unknown pseudo-class fails it.
[[nodiscard]] result<selector> parse_selector(cursor::cursor& c, namespaces const& ns);

/// Parses a comma-separated selector list up to "{" or the end; one bad selector fails the list.
[[nodiscard]] result<std::vector<selector>> parse_selector_list(cursor::cursor& c, namespaces const& ns);

/// Parses the whole text as a selector list, as querySelector does.
[[nodiscard]] result<std::vector<selector>> parse_selector_text(std::string_view text, namespaces const& ns);

/// The specificity of a selector; pseudo-elements add nothing.
specific specificity(selector const& s);

/// The selector written back as CSS text; namespaces appear as "[uri]|".
std::string to_text(selector const& s);

/// Lower-cases the element names of type selectors in any namespace, and the names of their attribute
/// selectors, along the whole chain: HTML trees hold lower-case names.
selector fold_html_case(selector const& s);

/// The name of a pseudo-element as CSS writes it.
char const* pseudo_element_name(pseudo_element p);

} // namespace vellum::css::selector
