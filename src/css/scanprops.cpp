#include "css/scanprops.hpp"

namespace vellum::css::scanprops {

void scan(prop_array& a, property::property const& p) {
    std::visit(overloaded{
                   [&]<property::longhand L>(property::prop<L> const& one) {
                       a.slot<L>() = &one.prop_spec;
                       a.prop_filled.set(static_cast<std::size_t>(L));
                   },
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

longhand_set set_of(std::initializer_list<property::longhand> ls) {
    longhand_set out;
    for (auto const l : ls) {
        out.set(static_cast<std::size_t>(l));
    }
    return out;
}

} // namespace vellum::css::scanprops
