#include "css/semantics.hpp"

namespace vellum::css::semantics {

std::optional<link_type> link_of(value::value const& v) {
    if (auto const* i = std::get_if<value::ident>(&v)) {
        if (i->ident_name.size() == 4 && (i->ident_name[0] | 0x20) == 'n' &&
            (i->ident_name[1] | 0x20) == 'o' && (i->ident_name[2] | 0x20) == 'n' &&
            (i->ident_name[3] | 0x20) == 'e') {
            return link_none{};
        }
        return std::nullopt;
    }
    if (auto const* u = std::get_if<value::url>(&v)) {
        return link_url{*u};
    }
    if (auto const* s = std::get_if<value::string>(&v)) {
        // A string link resolves against the same base as url() would; the parser leaves no base on
        // strings, so the relative form stays relative to the document.
        return link_url{value::url{s->string_text, ""}};
    }
    return std::nullopt;
}

std::optional<spec_link_type> parse_link(value::value const& v) {
    if (auto const* a = std::get_if<value::attr>(&v)) {
        auto type = a->attr_type ? expr::attr_type_of(a->attr_type) : expr::attr_type{expr::type_url{}};
        if (!type) {
            return std::nullopt;
        }
        expr::expr<link_type> e{.expr_name = a->attr_name, .expr_type = *type, .expr_default = link_none{}};
        if (a->attr_default) {
            auto d = link_of(*a->attr_default);
            if (!d) {
                return std::nullopt;
            }
            e.expr_default = *d;
        }
        return e;
    }
    if (auto l = link_of(v)) {
        return *l;
    }
    return std::nullopt;
}

} // namespace vellum::css::semantics
