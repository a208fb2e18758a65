#include "css/styledom/computed.hpp"

#include "css/propnames.hpp"
#include "css/style.hpp"
#include "util/cell.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace vellum::styledom::computed {

namespace {

bool is_shorthand(std::string_view name) {
    auto const p = css::propnames::lookup_property(name);
    return p && css::propnames::kind_of(*p) == css::propnames::name_kind::shorthand;
}

// The typed form of the declarations of the rule index, made once per declaration rather than once per
// element that a rule matches: a default sheet's rule for "p" would otherwise be parsed for every
// paragraph. The declarations of style attributes and hints belong to one element and are parsed as they
// come.
// Hashes a cascade key.
struct key_hash {
    std::size_t operator()(std::vector<std::uintptr_t> const& key) const {
        std::size_t h = key.size();
        for (auto const k : key) {
            h = (h ^ k) * 1099511628211ULL;
        }
        return h;
    }
};

struct typed_cache {
    std::unordered_map<css::pdecls::pdeclaration const*, std::optional<css::property::property>> cache_entries;
    /// The typed declarations of the elements that have none of their own, by what the cascade gave
    /// them (see `cascade_key`): elements matched by the same rules share one copy, which in a long
    /// document is most of them.
    std::unordered_map<std::vector<std::uintptr_t>, ref<declared_styles>, key_hash> cache_declared;
    std::vector<std::uintptr_t> key;
};

// The declarations of the index that an element gets, as addresses, and for each list of pseudo-elements
// a 0, the pseudo-elements numbered from 1, another 0, and its declarations. Addresses are never that
// small, so the key reads one way only.
void cascade_key(cascaded const& c, std::vector<std::uintptr_t>& key) {
    key.clear();
    for (auto const* d : c.cascaded_pdecls) {
        key.push_back(reinterpret_cast<std::uintptr_t>(d));
    }
    for (auto const& p : c.cascaded_pseudos) {
        key.push_back(0);
        for (auto const pe : p.pseudo_elements) {
            key.push_back(static_cast<std::uintptr_t>(pe) + 1);
        }
        key.push_back(0);
        for (auto const* d : p.pseudo_pdecls) {
            key.push_back(reinterpret_cast<std::uintptr_t>(d));
        }
    }
}

std::optional<css::property::property> const& typed(typed_cache& cache, css::pdecls::pdeclaration const* d) {
    auto const it = cache.cache_entries.find(d);
    if (it != cache.cache_entries.end()) {
        return it->second;
    }
    return cache.cache_entries.emplace(d, css::property::parse_declaration(d->declaration)).first->second;
}

void add_typed(std::vector<typed_pdecl>& out,
               std::vector<css::pdecls::pdeclaration const*> const& list,
               cascaded const& c,
               typed_cache& cache) {
    auto const own_begin = c.cascaded_own.data();
    auto const own_end = own_begin + c.cascaded_own.size();
    for (auto const* d : list) {
        if (d >= own_begin && d < own_end) {
            if (auto p = css::property::parse_declaration(d->declaration)) {
                out.push_back({std::move(*p), d->priority});
            }
        } else if (auto const& p = typed(cache, d)) {
            out.push_back({*p, d->priority});
        }
    }
}

std::vector<resource::locator::locator> background_urls(dom::style_info const& info) {
    std::vector<resource::locator::locator> out;
    if (!info.style_info_style) {
        return out;
    }
    auto const& s = *info.style_info_style;
    auto const* kind = std::get_if<css::box::display_kind>(&s.bit_props.bit_props_display);
    if ((kind && *kind == css::box::display_kind::none) || !s.background) {
        return out;
    }
    for (auto const& image : s.background->background_image) {
        // Only a hint to the prefetch threads: a base not in any table is read as the document's, which
        // is right for the document's own sheets, and a miss costs nothing but the early start.
        if (auto const* u = std::get_if<css::value::url>(&image)) {
            out.push_back(sheets::resolve_url(sheets::base_table{}, *u));
        }
    }
    return out;
}

} // namespace

css::compute_style::element_context context_of(dom::dom_element const& e,
                                               resource::locator::locator const& base,
                                               std::optional<std::string> const& lang) {
    css::compute_style::element_context out{.context_base = resource::locator::locator_to_string(base),
                                            .context_lang = lang};
    std::lock_guard guard(process_lock());
    for (auto const& a : e.dom_element_attrs.cell_value) {
        std::visit(overloaded{
                       [&](xml::local_name const& n) {
                           out.context_attrs.push_back({.context_attr_local = n.local,
                                                        .context_attr_value = a->dom_attribute_value.cell_value});
                       },
                       [&](xml::qualified_name const& n) {
                           out.context_attrs.push_back({.context_attr_ns = xml::uri_of_xmlns(n.namespace_uri),
                                                        .context_attr_local = n.local,
                                                        .context_attr_value = a->dom_attribute_value.cell_value});
                       },
                   },
                   a->dom_attribute_name);
    }
    return out;
}

style_hooks typed_hooks() {
    auto cache = std::make_shared<typed_cache>();
    auto compute = [cache](log::log const&, style_request const& r) -> ref<dom::style_info> {
        auto const& c = r.request_cascade;
        auto const make_declared = [&] {
            declared_styles declared;
            add_typed(declared.declared_pdecls, c.cascaded_pdecls, c, *cache);
            for (auto const& p : c.cascaded_pseudos) {
                pseudo_decls entry{.pseudo_elements = p.pseudo_elements};
                add_typed(entry.pseudo_pdecls, p.pseudo_pdecls, c, *cache);
                declared.declared_pseudos.push_back(std::move(entry));
            }
            return share(std::move(declared));
        };
        ref<declared_styles> declared;
        if (c.cascaded_own.empty()) {
            cascade_key(c, cache->key);
            auto [it, added] = cache->cache_declared.try_emplace(cache->key);
            if (added) {
                it->second = make_declared();
            }
            declared = it->second;
        } else {
            declared = make_declared();
        }
        ref<css::style::style> parent = r.request_parent ? r.request_parent->style_info_style : nullptr;
        auto const context = context_of(r.request_element, r.request_base, r.request_lang);
        css::scanprops::prop_array declared_values;
        for (auto const& d : declared->declared_pdecls) {
            css::scanprops::scan(declared_values, d.pdecl_property);
        }
        auto style = share(css::compute_style::compute_style_from_slots(parent, context, declared_values));
        return share(dom::style_info{.style_info_base = r.request_base,
                                     .style_info_lang = r.request_lang,
                                     .style_info_style = std::move(style),
                                     .style_info_declared = std::move(declared)});
    };
    return style_hooks{.known_property = &css::propnames::known_property,
                       .is_shorthand = &is_shorthand,
                       .valid_declaration = &css::property::valid_declaration,
                       .compute = std::move(compute),
                       .backgrounds = &background_urls};
}

ref<css::style::style> style_of(dom::dom_element const& e) {
    auto const info = e.dom_element_style_info.get();
    auto const& s = dom::get_style_info(info).style_info_style;
    check(s != nullptr, "style_of");
    return s;
}

declared_styles const& declared_of(dom::style_info const& info) {
    static declared_styles const none;
    return info.style_info_declared ? *info.style_info_declared : none;
}

} // namespace vellum::styledom::computed
