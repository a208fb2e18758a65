// Typed properties: each declaration's generic value checked against its property and turned into the
// value type of that property, shorthands expanded into their longhands. A value that fails is dropped
// as if it hadn't been written.
#pragma once

#include "css/box.hpp"
#include "css/color.hpp"
#include "css/declaration.hpp"
#include "css/expr.hpp"
#include "css/fonts.hpp"
#include "css/propnames.hpp"
#include "css/semantics.hpp"
#include "css/svgstyle.hpp"
#include "css/text.hpp"
#include "css/units.hpp"
#include "css/value.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::css::property {

using propnames::prop_name;

/// The properties that apply to elements, one per value a style holds, in alphabetical order.
enum class longhand : std::uint8_t {
#include "css/longhand_enum.inc"
};

inline constexpr std::size_t longhand_count = 170;

/// The value of the parent.
struct inherit {
    bool operator==(inherit const&) const = default;
};

/// The property's initial value.
struct initial {
    bool operator==(initial const&) const = default;
};

/// A declared value: inherit, initial, or a value of the property's own type.
template <class T>
using spec = std::variant<inherit, initial, T>;

// Values whose meaning belongs to generated content, bookmarks and PDF links: they are checked here
// and kept as terms for box generation to read.

/// The items of a content list: strings, url(), attr(), counter(), counters(), quotes and the like.
struct content_list {
    std::vector<value::value> content_items;
    bool operator==(content_list const&) const = default;
};

using content_terms = std::variant<box::normal_value, box::none_value, content_list>;

/// Lower-cased keywords; empty for "none".
using keyword_list = std::vector<std::string>;

/// string-set: named strings and the content each is set to; empty for "none".
using string_set = std::vector<std::pair<std::string, content_list>>;

/// The type of the value a longhand's declaration holds.
template <longhand L>
struct longhand_value;

#include "css/longhand_types.inc"

template <longhand L>
using longhand_value_t = typename longhand_value<L>::type;

/// One longhand with its declared value.
template <longhand L>
struct prop {
    spec<longhand_value_t<L>> prop_spec;
    bool operator==(prop const&) const = default;
};

struct property;

/// The longhands a shorthand sets, each with its own value.
struct compound {
    std::vector<property> compound_members;
    bool operator==(compound const& other) const;
};

using property_alternative = std::variant<
#include "css/longhand_variant.inc"
    compound>;

/// A typed declaration: one longhand, or a shorthand's expansion.
struct property : property_alternative {
    using property_alternative::property_alternative;
    // Copying, moving and destroying a variant of this many alternatives is costly to compile; they are
    // defined once, in property.cpp, rather than in every file that copies a declaration.
    property();
    property(property const&);
    property(property&&) noexcept;
    property& operator=(property const&);
    property& operator=(property&&) noexcept;
    ~property();
};

/// The longhand a property sets; nothing for a compound.
std::optional<longhand> longhand_of(property const& p);

/// The property name of a longhand.
prop_name name_of(longhand l);

/// The longhand a name stands for; nothing for shorthands and page properties.
std::optional<longhand> longhand_named(prop_name p);

/// Whether the longhand takes its parent's value when nothing is declared.
bool is_inherited(longhand l);

/// The longhands a shorthand sets, in order; empty for a longhand.
std::vector<longhand> shorthand_members(prop_name p);

/// A longhand set to inherit or initial, as a shorthand's "inherit" gives for each member.
property keyword_property(longhand l, std::variant<inherit, initial> keyword);

/// The typed property of a value, or nothing when the value doesn't suit the property. Page-only
/// properties never suit an element.
[[nodiscard]] std::optional<property> parse_declaration(prop_name p, value::value const& v);

/// The same for a parsed declaration, looking up its name.
[[nodiscard]] std::optional<property> parse_declaration(declaration const& d);

/// Whether a declaration gives a valid property, for the rule index to drop the others.
bool valid_declaration(declaration const& d);

} // namespace vellum::css::property
