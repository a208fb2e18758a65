// The winning declared value of each longhand of one element: a fixed array of slots, one per longhand,
// filled from the declarations in ascending priority so that a later value overwrites an earlier one.
#pragma once

#include "css/property.hpp"

#include <optional>
#include <tuple>
#include <utility>
#include <vector>

namespace vellum::css::scanprops {

namespace detail {

template <class Seq>
struct slots_of;

template <std::size_t... I>
struct slots_of<std::index_sequence<I...>> {
    using type = std::tuple<
        std::optional<property::spec<property::longhand_value_t<static_cast<property::longhand>(I)>>>...>;
};

} // namespace detail

/// One slot per longhand, empty where nothing was declared.
struct prop_array {
    typename detail::slots_of<std::make_index_sequence<property::longhand_count>>::type prop_slots;

    template <property::longhand L>
    std::optional<property::spec<property::longhand_value_t<L>>> const& slot() const {
        return std::get<static_cast<std::size_t>(L)>(prop_slots);
    }

    template <property::longhand L>
    std::optional<property::spec<property::longhand_value_t<L>>>& slot() {
        return std::get<static_cast<std::size_t>(L)>(prop_slots);
    }
};

/// Writes a property into its slot; a compound writes each of its members.
void scan(prop_array& a, property::property const& p);

/// The slots of a list of properties in ascending priority.
prop_array scan_all(std::vector<property::property> const& props);

/// Whether any of the given longhands has a declared value.
bool any_set(prop_array const& a, std::initializer_list<property::longhand> ls);

} // namespace vellum::css::scanprops
