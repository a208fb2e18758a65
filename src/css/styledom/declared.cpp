#include "css/styledom/declared.hpp"

namespace vellum::styledom {

std::vector<css::property::property> properties_of(std::vector<typed_pdecl> const& list) {
    std::vector<css::property::property> out;
    out.reserve(list.size());
    for (auto const& d : list) {
        out.push_back(*d.pdecl_property);
    }
    return out;
}

std::vector<typed_pdecl> const& pseudo_declarations(declared_styles const& d, css::selector::pseudo_element p) {
    static std::vector<typed_pdecl> const none;
    for (auto const& entry : d.declared_pseudos) {
        if (entry.pseudo_elements.size() == 1 && entry.pseudo_elements.front() == p) {
            return entry.pseudo_pdecls;
        }
    }
    return none;
}

} // namespace vellum::styledom
