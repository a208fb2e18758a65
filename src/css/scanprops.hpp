// The winning declared value of each longhand of one element: a fixed array of slots, one per longhand,
// filled from the declarations in ascending priority so that a later value overwrites an earlier one.
// A slot points at the value in its declaration, which must outlive the array: filling one copies
// nothing, and an empty array is a page of null pointers rather than of empty values.
#pragma once

#include "css/property.hpp"

#include <bitset>
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
    using type = std::tuple<property::spec<property::longhand_value_t<static_cast<property::longhand>(I)>> const*...>;
};

} // namespace detail

/// One slot per longhand, null where nothing was declared.
struct prop_array {
    typename detail::slots_of<std::make_index_sequence<property::longhand_count>>::type prop_slots{};
    /// Which slots are filled, to ask of many longhands at once.
    std::bitset<property::longhand_count> prop_filled;

    template <property::longhand L>
    property::spec<property::longhand_value_t<L>> const* slot() const {
        return std::get<static_cast<std::size_t>(L)>(prop_slots);
    }

    template <property::longhand L>
    property::spec<property::longhand_value_t<L>> const*& slot() {
        return std::get<static_cast<std::size_t>(L)>(prop_slots);
    }
};

/// Points the property's slot at it; a compound points the slots of each of its members.
void scan(prop_array& a, property::property const& p);

/// The slots of a list of properties in ascending priority; they point into `props`.
prop_array scan_all(std::vector<property::property> const& props);

/// A set of longhands, to ask of a slot array at once.
using longhand_set = std::bitset<property::longhand_count>;

/// The set of the given longhands.
longhand_set set_of(std::initializer_list<property::longhand> ls);

/// Whether any longhand of the set has a declared value.
inline bool any_set(prop_array const& a, longhand_set const& ls) {
    return (a.prop_filled & ls).any();
}

} // namespace vellum::css::scanprops
