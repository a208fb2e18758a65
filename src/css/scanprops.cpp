#include "css/scanprops.hpp"

#include <array>

namespace vellum::css::scanprops {

namespace {

using setness = bool (*)(prop_array const&);

template <std::size_t I>
bool is_set(prop_array const& a) {
    return std::get<I>(a.prop_slots) != nullptr;
}

template <std::size_t... I>
constexpr std::array<setness, sizeof...(I)> setness_table(std::index_sequence<I...>) {
    return {&is_set<I>...};
}

constexpr auto set_checks = setness_table(std::make_index_sequence<property::longhand_count>{});

} // namespace

void scan(prop_array& a, property::property const& p) {
    std::visit(overloaded{
                   [&]<property::longhand L>(property::prop<L> const& one) { a.slot<L>() = &one.prop_spec; },
                   [&](property::compound const& c) {
                       for (auto const& m : c.compound_members) {
                           scan(a, m);
                       }
                   },
               },
               static_cast<property::property_alternative const&>(p));
}

prop_array scan_all(std::vector<property::property> const& props) {
    prop_array a;
    for (auto const& p : props) {
        scan(a, p);
    }
    return a;
}

bool any_set(prop_array const& a, std::initializer_list<property::longhand> ls) {
    for (auto const l : ls) {
        if (set_checks[static_cast<std::size_t>(l)](a)) {
            return true;
        }
    }
    return false;
}

} // namespace vellum::css::scanprops
