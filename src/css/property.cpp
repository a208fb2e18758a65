#include "css/property.hpp"

#include "css/substitute.hpp"

#include "css/property_parse.hpp"

#include <array>
#include <utility>

namespace vellum::css::property {

namespace {

#include "css/longhand_tables.inc"

static_assert(longhand_names.size() == longhand_count);
static_assert(std::variant_size_v<property_alternative> == longhand_count + 1);

using keyword_maker = property (*)(std::variant<inherit, initial> const&);

template <std::size_t I>
property keyword_for(std::variant<inherit, initial> const& k) {
    constexpr auto l = static_cast<longhand>(I);
    return std::visit([](auto const& x) -> property { return prop<l>{x}; }, k);
}

template <std::size_t... I>
constexpr std::array<keyword_maker, sizeof...(I)> keyword_makers(std::index_sequence<I...>) {
    return {&keyword_for<I>...};
}

constexpr auto makers = keyword_makers(std::make_index_sequence<longhand_count>{});

// From a name to its longhand, -1 for shorthands and page properties.
constexpr auto longhand_by_name = [] {
    std::array<std::int16_t, propnames::prop_name_count> table{};
    table.fill(-1);
    for (std::size_t i = 0; i < longhand_names.size(); ++i) {
        table[static_cast<std::size_t>(longhand_names[i])] = static_cast<std::int16_t>(i);
    }
    return table;
}();

} // namespace

property::property() = default;
property::property(property const&) = default;
property::property(property&&) noexcept = default;
property& property::operator=(property const&) = default;
property& property::operator=(property&&) noexcept = default;
property::~property() = default;

bool compound::operator==(compound const& other) const {
    return compound_members == other.compound_members;
}

std::optional<longhand> longhand_of(property const& p) {
    return std::visit(overloaded{
                          []<longhand L>(prop<L> const&) -> std::optional<longhand> { return L; },
                          [](compound const&) -> std::optional<longhand> { return std::nullopt; },
                      },
                      static_cast<property_alternative const&>(p));
}

prop_name name_of(longhand l) {
    return longhand_names[static_cast<std::size_t>(l)];
}

std::optional<longhand> longhand_named(prop_name p) {
    auto const i = longhand_by_name[static_cast<std::size_t>(p)];
    if (i < 0) {
        return std::nullopt;
    }
    return static_cast<longhand>(i);
}

bool is_inherited(longhand l) {
    return longhand_inherited[static_cast<std::size_t>(l)];
}

std::vector<longhand> shorthand_members(prop_name p) {
    switch (p) {
#include "css/shorthand_members.inc"
    default:
        return {};
    }
}

property keyword_property(longhand l, std::variant<inherit, initial> keyword) {
    return makers[static_cast<std::size_t>(l)](keyword);
}

std::optional<property> parse_declaration(declaration const& d) {
    auto const p = propnames::lookup_property(d.prop_name);
    if (!p) {
        return std::nullopt;
    }
    return parse_declaration(*p, d.value);
}

bool valid_declaration(declaration const& d) {
    // Custom properties take anything; var() is checked when an element substitutes it.
    if (d.prop_name.starts_with("--")) {
        return true;
    }
    if (substitute::has_var(d.value)) {
        return propnames::lookup_property(d.prop_name).has_value();
    }
    // rem, page units and math functions are checked as they resolve on a page of the default size.
    if (substitute::needs_element(d.value)) {
        auto const plain = substitute::substitute(d.value, {});
        auto const p = propnames::lookup_property(d.prop_name);
        return plain && p && parse_declaration(*p, *plain).has_value();
    }
    return parse_declaration(d).has_value();
}

} // namespace vellum::css::property
