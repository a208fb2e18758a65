#include "css/styledom/computed.hpp"

#include "css/propnames.hpp"
#include "css/substitute.hpp"
#include "css/style.hpp"
#include "util/cell.hpp"
#include "util/result.hpp"

#include <algorithm>
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

// What an element's computed style follows from when its declarations are shared ones: the parent's
// style, the shared declarations and custom properties (all three by address, each kept alive by the
// cache entry), and the element's own context (base URL, language and attributes, which attr() reads).
struct computed_key {
    css::style::style const* parent = nullptr;
    declared_styles const* declared = nullptr;
    css::substitute::custom_properties const* customs = nullptr;
    css::compute_style::element_context context;
    bool operator==(computed_key const&) const = default;
};

struct computed_key_hash {
    std::size_t operator()(computed_key const& k) const {
        std::hash<std::string> const text;
        std::size_t h = std::hash<void const*>{}(k.parent);
        auto const mix = [&h](std::size_t v) { h = (h ^ v) * 1099511628211ULL; };
        mix(std::hash<void const*>{}(k.declared));
        mix(std::hash<void const*>{}(k.customs));
        mix(text(k.context.context_base));
        mix(k.context.context_lang ? text(*k.context.context_lang) : 0);
        for (auto const& a : k.context.context_attrs) {
            mix(text(a.context_attr_local));
            mix(text(a.context_attr_value));
        }
        return h;
    }
};

struct computed_entry {
    ref<css::style::style> style;
    /// Keep the addresses of the key from being reused while the entry lives.
    ref<css::style::style> parent;
    ref<css::substitute::custom_properties> customs;
    /// The record of the last element that took this style: the next with the same base URL and
    /// language shares it.
    ref<dom::style_info> info;
};

struct typed_entry {
    ref<css::property::property> property;
    /// Whether the value waits for the element (var(), rem, page units, math).
    bool needs_element = false;
};

struct declared_entry {
    ref<declared_styles> declared;
    /// Whether any of the declarations waits for the element, whose own list is made then.
    bool needs_element = false;
};

/// A cascade met lately, as `cascade_key` writes it, and its typed declarations.
struct declared_slot {
    std::vector<std::uintptr_t> key;
    declared_entry entry;
};

/// How many cascades the table of typed declarations keeps, one per slot of its hash: the cascades a
/// document repeats (its paragraphs, list items, cells) stay, and a document whose elements each have a
/// cascade of their own doesn't keep a key and a list for every element.
constexpr std::size_t declared_slots_log2 = 12;

std::size_t declared_slot_of(std::vector<std::uintptr_t> const& key) {
    std::size_t const h = key_hash{}(key);
    return (h * 0x9E3779B97F4A7C15ULL) >> (64 - declared_slots_log2);
}

struct typed_cache {
    /// Computed styles by what they follow from: siblings with the same rules and attributes share one.
    std::unordered_map<computed_key, computed_entry, computed_key_hash> cache_computed;
    /// The typed property of each declaration of the sheets, null where the value is invalid. The lists
    /// of the elements point into it and hold it.
    std::shared_ptr<std::unordered_map<css::pdecls::pdeclaration const*, typed_entry>> cache_entries =
        std::make_shared<std::unordered_map<css::pdecls::pdeclaration const*, typed_entry>>();
    /// The typed declarations of the elements that have none of their own, by what the cascade gave
    /// them: elements matched by the same rules share one copy, which in a long document is most of them.
    std::vector<declared_slot> cache_declared =
        std::vector<declared_slot>(std::size_t{1} << declared_slots_log2);
    std::vector<std::uintptr_t> key;
    /// The base URL of the last element styled.
    ref<resource::locator::locator> base;
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

typed_entry const& typed(typed_cache& cache, css::pdecls::pdeclaration const* d) {
    auto [it, fresh] = cache.cache_entries->try_emplace(d);
    if (fresh) {
        it->second.needs_element = css::substitute::needs_element(d->declaration.value);
        if (auto p = css::property::parse_declaration(d->declaration)) {
            it->second.property = share(std::move(*p));
        }
    }
    return it->second;
}

// What a declaration whose value holds var(), rem, page units or math needs: the substitution context,
// with the font size that em counts against for the font's own properties and for the others.
struct element_values {
    css::substitute::context values_context;
    float parent_font_size = 12;
    float element_font_size = 12;
};

bool is_custom(css::declaration const& d) {
    return d.prop_name.starts_with("--");
}

// A property that is invalid at computed-value time: an inherited property inherits, any other takes
// its initial value, as "unset" does.
std::optional<css::property::property> unset(css::propnames::prop_name p) {
    if (auto const l = css::property::longhand_named(p)) {
        if (css::property::is_inherited(*l)) {
            return css::property::keyword_property(*l, css::property::inherit{});
        }
        return css::property::keyword_property(*l, css::property::initial{});
    }
    return css::property::parse_declaration(p, css::value::value{css::value::ident{"initial"}});
}

// The typed property of a declaration whose value waits for the element.
std::optional<css::property::property> typed_for_element(css::declaration const& d, element_values const& ev) {
    auto const p = css::propnames::lookup_property(d.prop_name);
    if (!p) {
        return std::nullopt;
    }
    bool const font_relative = d.prop_name == "font-size" || d.prop_name == "font";
    auto context = ev.values_context;
    context.font_size = font_relative ? ev.parent_font_size : ev.element_font_size;
    context.percent_of_font = font_relative || d.prop_name == "line-height";
    auto const v = css::substitute::substitute(d.value, context);
    if (v) {
        if (auto out = css::property::parse_declaration(*p, *v)) {
            return out;
        }
    }
    return unset(*p);
}

// The typed declarations of a list. With `ev`, those whose value waits for the element are typed for
// it; without, they are typed as they stand (and found invalid), and `needs_element` tells that some
// did, so that the caller makes the list again with the element's values. The properties typed for
// this element alone go to `own_properties`.
void add_typed(std::vector<typed_pdecl>& out,
               std::vector<ref<css::property::property>>& own_properties,
               std::vector<css::pdecls::pdeclaration const*> const& list,
               cascaded const& c,
               typed_cache& cache,
               element_values const* ev,
               bool& needs_element) {
    auto const keep = [&](css::property::property p) {
        own_properties.push_back(share(std::move(p)));
        out.push_back({own_properties.back().get()});
    };
    auto const own_begin = c.cascaded_own.data();
    auto const own_end = own_begin + c.cascaded_own.size();
    out.reserve(out.size() + list.size());
    for (auto const* d : list) {
        if (is_custom(d->declaration)) {
            continue;
        }
        bool const own = d >= own_begin && d < own_end;
        typed_entry const* entry = own ? nullptr : &typed(cache, d);
        bool const needs =
            entry ? entry->needs_element : css::substitute::needs_element(d->declaration.value);
        needs_element = needs_element || needs;
        if (ev != nullptr && needs) {
            if (auto p = typed_for_element(d->declaration, *ev)) {
                keep(std::move(*p));
            }
        } else if (entry) {
            if (entry->property) {
                out.push_back({entry->property.get()});
            }
        } else if (auto p = css::property::parse_declaration(d->declaration)) {
            keep(std::move(*p));
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
    out.context_attrs.reserve(e.dom_element_attrs.cell_value.size());
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

namespace {

// The element's custom properties: its parent's, with its own declarations applied in ascending
// priority and var() among them replaced. The parent's set is shared when the element declares none.
ref<css::substitute::custom_properties> custom_properties_of(ref<css::style::style> const& parent,
                                                             std::vector<css::pdecls::pdeclaration const*> const& list) {
    ref<css::substitute::custom_properties> inherited = parent ? parent->custom_properties : nullptr;
    if (std::ranges::none_of(list, [](css::pdecls::pdeclaration const* d) { return is_custom(d->declaration); })) {
        return inherited;
    }
    css::substitute::custom_properties own = inherited ? *inherited : css::substitute::custom_properties{};
    for (auto const* d : list) {
        auto const& decl = d->declaration;
        if (!is_custom(decl)) {
            continue;
        }
        auto const* keyword = std::get_if<css::value::ident>(&decl.value);
        std::string const word = keyword ? css::lexer::ascii_lower(keyword->ident_name) : std::string();
        if (word == "initial" || word == "unset") {
            own.erase(decl.prop_name);
        } else if (word == "inherit") {
            auto const it = inherited ? inherited->find(decl.prop_name) : css::substitute::custom_properties::const_iterator{};
            if (inherited && it != inherited->end()) {
                own.insert_or_assign(decl.prop_name, it->second);
            } else {
                own.erase(decl.prop_name);
            }
        } else {
            own.insert_or_assign(decl.prop_name, decl.value);
        }
    }
    return share(css::substitute::resolve_customs(std::move(own)));
}

} // namespace

style_hooks typed_hooks() {
    auto cache = std::make_shared<typed_cache>();
    auto compute = [cache](log::log const&, style_request const& r) -> ref<dom::style_info> {
        auto const& c = r.request_cascade;
        ref<css::style::style> parent = r.request_parent ? r.request_parent->style_info_style : nullptr;
        auto customs = custom_properties_of(parent, c.cascaded_pdecls);
        float const parent_font_size = parent ? parent->font_size : 12;
        element_values ev{.values_context = {.customs = customs.get(),
                                             .root_font_size = r.request_root_font_size,
                                             .page_width = r.request_page_area.first,
                                             .page_height = r.request_page_area.second,
                                             .dpi = css::compute_style::css_dpi()},
                          .parent_font_size = parent_font_size,
                          .element_font_size = parent_font_size};
        // The typed declarations; with `values`, those that wait for the element typed for it.
        auto const make_declared = [&](element_values const* values, bool& needs_element) {
            declared_styles declared{.declared_store = cache->cache_entries};
            add_typed(declared.declared_pdecls, declared.declared_own, c.cascaded_pdecls, c, *cache, values,
                      needs_element);
            for (auto const& p : c.cascaded_pseudos) {
                pseudo_decls entry{.pseudo_elements = p.pseudo_elements};
                add_typed(entry.pseudo_pdecls, declared.declared_own, p.pseudo_pdecls, c, *cache, values,
                          needs_element);
                declared.declared_pseudos.push_back(std::move(entry));
            }
            return share(std::move(declared));
        };
        // Made as the variant the style computation takes, which would otherwise copy it for every call.
        css::compute_style::compute_style_context const context =
            context_of(r.request_element, r.request_base, r.request_lang);
        auto const compute_from = [&](declared_styles const& d) {
            css::scanprops::prop_array declared_values;
            for (auto const& t : d.declared_pdecls) {
                css::scanprops::scan(declared_values, *t.pdecl_property);
            }
            return css::compute_style::compute_style_from_slots(parent, context, declared_values);
        };
        auto const fresh_info = [&](ref<css::style::style> style, ref<declared_styles> declared) {
            // Elements share their base while it stays the same, as it does for a whole document
            // without xml:base.
            if (!cache->base || *cache->base != r.request_base) {
                cache->base = share(r.request_base);
            }
            return share(dom::style_info{.style_info_base = cache->base,
                                         .style_info_lang = r.request_lang,
                                         .style_info_style = std::move(style),
                                         .style_info_declared = std::move(declared)});
        };

        // Elements with no declarations of their own share the typed list of their cascade.
        bool const shared = c.cascaded_own.empty();
        ref<declared_styles> declared;
        bool dynamic = false;
        bool first = true;
        if (shared) {
            cascade_key(c, cache->key);
            auto& slot = cache->cache_declared[declared_slot_of(cache->key)];
            bool const added = !slot.entry.declared || slot.key != cache->key;
            if (added) {
                slot.key.assign(cache->key.begin(), cache->key.end());
                slot.entry = declared_entry{};
                slot.entry.declared = make_declared(nullptr, slot.entry.needs_element);
            }
            declared = slot.entry.declared;
            dynamic = slot.entry.needs_element;
            first = added;
        } else {
            declared = make_declared(nullptr, dynamic);
        }

        if (dynamic) {
            // em in a math function counts against the element's own font size, known only once the
            // font size is computed; a second round settles them with it.
            bool unused = false;
            declared = make_declared(&ev, unused);
            auto style = compute_from(*declared);
            if (style.font_size != ev.element_font_size) {
                ev.element_font_size = style.font_size;
                declared = make_declared(&ev, unused);
                style = compute_from(*declared);
            }
            style.custom_properties = customs;
            return fresh_info(share(std::move(style)), std::move(declared));
        }
        if (first) {
            // An element with declarations of its own, or the first with these declarations: no
            // other has a style to share with it, and most declarations of a sheet with many
            // selectors meet one element only, so the style isn't kept for the next one (the second
            // computes its own and keeps it).
            auto computed = compute_from(*declared);
            computed.custom_properties = customs;
            return fresh_info(share(std::move(computed)), std::move(declared));
        }
        computed_key key{.parent = parent.get(),
                         .declared = declared.get(),
                         .customs = customs.get(),
                         .context = std::get<css::compute_style::element_context>(context)};
        auto [entry, fresh] = cache->cache_computed.try_emplace(std::move(key));
        if (fresh) {
            auto computed = compute_from(*declared);
            computed.custom_properties = customs;
            entry->second =
                computed_entry{.style = share(std::move(computed)), .parent = parent, .customs = customs};
        }
        auto& info = entry->second.info;
        if (!info || *info->style_info_base != r.request_base || info->style_info_lang != r.request_lang) {
            info = fresh_info(entry->second.style, std::move(declared));
        }
        return info;
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
