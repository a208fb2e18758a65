#include "css/styledom/styledom.hpp"

#include "css/lexer.hpp"
#include "css/compute_style.hpp"
#include "css/page.hpp"
#include "css/substitute.hpp"
#include "util/cell.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <mutex>

namespace vellum::styledom {

namespace {

using css::pdecls::pdeclaration;
using pointer = pdeclaration const*;
using pointer_rule = css::prules::prule const*;

bool by_priority(pointer a, pointer b) {
    return a->priority < b->priority;
}

// The attributes of an element that the walk itself reads: whether it sets its own base, and its style
// attribute.
struct element_facts {
    bool sets_base = false;
    std::optional<std::string> style;
};

element_facts facts_of(dom::dom_element const& e) {
    std::lock_guard guard(process_lock());
    element_facts out;
    for (auto const& a : e.dom_element_attrs.cell_value) {
        auto const& n = a->dom_attribute_name;
        if (auto const* q = std::get_if<xml::qualified_name>(&n)) {
            out.sets_base = out.sets_base || (q->local == "base" && std::holds_alternative<xml::xmlns_xml>(q->namespace_uri));
        } else {
            auto const& local = std::get<xml::local_name>(n).local;
            // The HTML4 parser keeps the prefix in the local name.
            out.sets_base = out.sets_base || local == "xml:base";
            if (local == "style" && !out.style) {
                out.style = a->dom_attribute_value.cell_value;
            }
        }
    }
    return out;
}

// The declarations of one pseudo-element list while they are gathered.
struct pseudo_runs {
    std::vector<css::selector::pseudo_element> pseudo_elements;
    std::vector<pointer> items;
    std::vector<std::size_t> bounds;
};

void add_run(std::vector<pointer>& items, std::vector<std::size_t>& bounds,
             std::vector<pdeclaration> const& decls) {
    if (decls.empty()) {
        return;
    }
    bounds.push_back(items.size());
    for (auto const& d : decls) {
        items.push_back(&d);
    }
}


// The parent's base, language and style_info for an element restyled on its own.
struct parent_context {
    resource::locator::locator parent_base;
    std::optional<std::string> parent_lang;
};

parent_context context_of(dom::dom_element const& e) {
    auto const parent = e.dom_element_parent.get();
    if (auto const* p = std::get_if<dom::element_parent>(&parent)) {
        if (auto const pe = p->parent_element.lock()) {
            std::optional<std::string> lang;
            if (auto const l = tree::dom_tree{}.language(pe.get())) {
                lang = css::lexer::ascii_lower(*l);
            }
            return {dom::element_base(*pe), lang};
        }
    }
    resource::locator::locator base;
    if (auto const doc = e.dom_element_owner_doc.lock()) {
        base = doc->dom_document_base.get();
    }
    return {base, std::nullopt};
}

// The names a compound selector requires of an element, as ancestor filter keys.
void add_required(css::selector::selector0 const& s, rule_entry& entry) {
    auto const add = [&](char kind, std::string_view name) {
        if (entry.entry_ancestor_count < entry.entry_ancestors.size()) {
            entry.entry_ancestors[entry.entry_ancestor_count++] = ancestor_key(kind, name);
        }
    };
    if (auto const* el = std::get_if<css::selector::element>(&s.type)) {
        add('t', el->element_name.name);
    }
    for (auto const& x : s.simples) {
        if (auto const* id = std::get_if<css::selector::id>(&x)) {
            add('i', id->id_name);
        } else if (auto const* c = std::get_if<css::selector::classes>(&x)) {
            for (auto const& name : c->class_names) {
                add('c', name);
            }
        }
    }
}

// The compound selectors left of a descendant or child combinator match ancestors of the subject: the
// element right of such a combinator is the subject, one of its ancestors, or a sibling of one of them,
// and all of these have only ancestors of the subject above them. Those left of a sibling combinator may
// stand anywhere beside.
void add_ancestors(css::selector::selector const& s, rule_entry& entry) {
    css::selector::selector0 const* at = &s.subject;
    while (at != nullptr) {
        css::selector::selector0 const* next = nullptr;
        std::visit(overloaded{
                       [](css::selector::depend_none const&) {},
                       [&](css::selector::depend_ancestor const& d) {
                           next = d.depend.get();
                           add_required(*next, entry);
                       },
                       [&](css::selector::depend_parent const& d) {
                           next = d.depend.get();
                           add_required(*next, entry);
                       },
                       [&](css::selector::depend_prev_direct_sibling const& d) { next = d.depend.get(); },
                       [&](css::selector::depend_prev_indirect_sibling const& d) { next = d.depend.get(); },
                   },
                   at->depend);
        at = next;
    }
}

// The id the subject requires, else its first class.
std::pair<char, std::string_view> subject_key(css::selector::selector0 const& subject) {
    for (auto const& s : subject.simples) {
        if (auto const* id = std::get_if<css::selector::id>(&s)) {
            return {'i', id->id_name};
        }
    }
    for (auto const& s : subject.simples) {
        if (auto const* c = std::get_if<css::selector::classes>(&s); c && !c->class_names.empty()) {
            return {'c', c->class_names.front()};
        }
    }
    return {0, {}};
}

void file_entry(slot_buckets& into, rule_entry const& entry, std::string_view name) {
    auto const [kind, key] = subject_key(entry.entry_rule->rule_selector.subject);
    if (kind == 'i') {
        into.by_id[std::string(key)].push_back(entry);
    } else if (kind == 'c') {
        into.by_class[std::string(key)].push_back(entry);
    } else if (!name.empty()) {
        into.by_name[std::string(name)].push_back(entry);
    } else {
        into.unkeyed.push_back(entry);
    }
}

rule_entry entry_of(css::prules::prule const& r, std::uint8_t group, std::size_t position) {
    rule_entry entry{.entry_rule = &r, .entry_group = group, .entry_position = static_cast<std::uint32_t>(position)};
    add_ancestors(r.rule_selector, entry);
    return entry;
}

void bucket(slot_buckets& into, css::prules::prules_named const& named) {
    for (auto const& [name, rules] : named.rules_named) {
        for (std::size_t i = 0; i < rules.size(); ++i) {
            file_entry(into, entry_of(*rules[i], 0, i), name);
        }
    }
    for (std::size_t i = 0; i < named.rules_other.size(); ++i) {
        auto const& r = *named.rules_other[i];
        auto const [kind, key] = subject_key(r.rule_selector.subject);
        auto entry = entry_of(r, kind == 'i' ? 2 : kind == 'c' ? 3 : 1, i);
        if (kind == 'c') {
            entry.entry_class = key;
        }
        file_entry(into, entry, {});
    }
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// Calls `f` with each word of a blank-separated list (a class attribute) and the offset it starts at.
template <class F>
void for_each_word(std::string_view list, F const& f) {
    std::size_t i = 0;
    while (i < list.size()) {
        while (i < list.size() && is_blank(list[i])) {
            ++i;
        }
        std::size_t const start = i;
        while (i < list.size() && !is_blank(list[i])) {
            ++i;
        }
        if (i > start) {
            f(list.substr(start, i - start), start);
        }
    }
}

// Where a rule of a slot stands in the order in which the cascade meets the rules: the slot, the group,
// the place of its class in the element's class list, and its place in the index's list.
std::uint64_t order_key(unsigned slot, rule_entry const& entry, std::size_t class_offset) {
    std::uint64_t const offset = std::min<std::size_t>(class_offset, (std::size_t{1} << 29) - 1);
    return (std::uint64_t{slot} << 63) | (std::uint64_t{entry.entry_group} << 61) | (offset << 32) |
           entry.entry_position;
}

// Each rule of a slot that could match an element of this local name, id and class list, with its order
// key; those whose required ancestors the filter rules out are left out.
template <class F>
void visit_slot(unsigned slot, slot_buckets const& buckets, std::string_view local,
                std::optional<std::string_view> id, std::optional<std::string_view> classes,
                ancestor_filter const* ancestors, F const& f) {
    auto const offer = [&](rule_entries const& entries, std::size_t class_offset) {
        for (auto const& entry : entries) {
            if (ancestors != nullptr) {
                bool possible = true;
                for (std::uint8_t k = 0; k < entry.entry_ancestor_count && possible; ++k) {
                    possible = ancestors->may_contain(entry.entry_ancestors[k]);
                }
                if (!possible) {
                    continue;
                }
            }
            f(*entry.entry_rule, order_key(slot, entry, entry.entry_group == 3 ? class_offset : 0));
        }
    };
    if (auto const it = buckets.by_name.find(local); it != buckets.by_name.end()) {
        offer(it->second, 0);
    }
    offer(buckets.unkeyed, 0);
    if (id) {
        if (auto const it = buckets.by_id.find(*id); it != buckets.by_id.end()) {
            offer(it->second, 0);
        }
    }
    if (!classes || buckets.by_class.empty()) {
        return;
    }
    std::string_view const list = *classes;
    for_each_word(list, [&](std::string_view word, std::size_t start) {
        // A class named twice opens its bucket once.
        if (css::match::has_word(list.substr(0, start), word)) {
            return;
        }
        if (auto const it = buckets.by_class.find(word); it != buckets.by_class.end()) {
            offer(it->second, start);
        }
    });
}

// The rules whose selectors match the element, in the order of the index (see rule_entry).
void collect_matching_rules(tree::dom_tree const& tree, document_rules const& rules, dom::dom_element const& e,
                            ancestor_filter const* ancestors,
                            std::vector<std::pair<std::uint64_t, pointer_rule>>& matched) {
    matched.clear();
    auto const local = tree.local_name(&e);
    auto const ns = tree.namespace_uri(&e);
    auto const id = tree.attribute(&e, css::selector::any{}, "id");
    auto const classes = tree.attribute(&e, css::selector::none{}, "class");
    auto const test = [&](css::prules::prule const& r, std::uint64_t key) {
        if (css::match::selector_matches(tree, r.rule_selector, &e)) {
            matched.emplace_back(key, &r);
        }
    };
    auto const& index = *rules.rules_index;
    auto const& buckets = *rules.rules_buckets;
    visit_slot(0, buckets.buckets_any, local, id, classes, ancestors, test);
    if (!ns) {
        visit_slot(1, buckets.buckets_none, local, id, classes, ancestors, test);
    } else if (auto const it = index.rules_ns.find(*ns); it != index.rules_ns.end()) {
        visit_slot(1, buckets.buckets_ns.at(it->first), local, id, classes, ancestors, test);
    }
    std::sort(matched.begin(), matched.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
}

// Calls `f` with the filter key of the element's name, id and each of its classes.
template <class F>
void for_each_ancestor_key(tree::dom_tree const& tree, dom::dom_element const& e, F const& f) {
    f(ancestor_key('t', tree.local_name(&e)));
    if (auto const id = tree.attribute(&e, css::selector::any{}, "id")) {
        f(ancestor_key('i', *id));
    }
    if (auto const classes = tree.attribute(&e, css::selector::none{}, "class")) {
        for_each_word(*classes, [&](std::string_view word, std::size_t) { f(ancestor_key('c', word)); });
    }
}

} // namespace

rule_buckets bucket_rules(css::prules::prules const& index) {
    rule_buckets out;
    bucket(out.buckets_any, index.rules_ns_any);
    bucket(out.buckets_none, index.rules_ns_none);
    for (auto const& [ns, named] : index.rules_ns) {
        bucket(out.buckets_ns[ns], named);
    }
    return out;
}

std::uint32_t ancestor_key(char kind, std::string_view name) {
    // FNV-1a, with the kind first so that a class and an element of the same name differ.
    std::uint32_t h = 2166136261U;
    auto const step = [&](char c) {
        h ^= static_cast<unsigned char>(c);
        h *= 16777619U;
    };
    step(kind);
    for (char const c : name) {
        step(c);
    }
    return h;
}

namespace {

// Each key sets two counters, from two separate runs of its bits.
std::pair<std::size_t, std::size_t> filter_slots(std::uint32_t key) {
    return {key & 4095U, (key >> 12) & 4095U};
}

} // namespace

void ancestor_filter::add(std::uint32_t key) {
    auto const [a, b] = filter_slots(key);
    for (auto const i : {a, b}) {
        if (filter_counts[i] != 255) {
            ++filter_counts[i];
        }
    }
}

void ancestor_filter::remove(std::uint32_t key) {
    auto const [a, b] = filter_slots(key);
    for (auto const i : {a, b}) {
        if (filter_counts[i] != 255) {
            --filter_counts[i];
        }
    }
}

bool ancestor_filter::may_contain(std::uint32_t key) const {
    auto const [a, b] = filter_slots(key);
    return filter_counts[a] != 0 && filter_counts[b] != 0;
}

void for_each_matching_rule(tree::dom_tree const& tree,
                            document_rules const& rules,
                            dom::dom_element const& e,
                            std::function<void(css::prules::prule const&)> const& f) {
    std::vector<std::pair<std::uint64_t, pointer_rule>> matched;
    collect_matching_rules(tree, rules, e, nullptr, matched);
    for (auto const& m : matched) {
        f(*m.second);
    }
}

ref<dom::style_info> base_style_info(log::log const&, style_request const& request) {
    return share(dom::style_info{.style_info_base = share(request.request_base),
                                 .style_info_lang = request.request_lang});
}

namespace {

// The area of the document's first page: its size less the page body's margins, as the page rules of
// the sheets give them.
std::pair<float, float> first_page_area(css::parser::env const& e) {
    auto const ps = css::page::page_style_of(css::page::make_pages(e.pages), css::page::page_query{}, nullptr);
    float const w = ps.page_size.paper_width;
    float const h = ps.page_size.paper_height;
    auto const& body = *ps.region_body;
    auto const side = [&](css::box::margin const& m) {
        return std::visit(overloaded{
                              [](css::box::auto_value const&) { return 0.0f; },
                              [](float x) { return x; },
                              [&](css::units::percentage const& p) { return css::units::percent_of(p, w); },
                          },
                          m);
    };
    float const area_w = w - side(body.margin_left) - side(body.margin_right);
    float const area_h = h - side(body.margin_top) - side(body.margin_bottom);
    return {area_w > 0 ? area_w : w, area_h > 0 ? area_h : h};
}

// The root element's font size, for rem in a subtree styled again.
float root_font_size_of(tree::dom_tree const& t, dom::dom_element const& e) {
    dom::dom_element const* top = &e;
    for (auto a = t.parent_element(&e); a; a = t.parent_element(*a)) {
        top = *a;
    }
    auto const info = top->dom_element_style_info.get();
    auto const* known = std::get_if<dom::style_info_set>(&info);
    if (known != nullptr && known->style_info_value && known->style_info_value->style_info_style) {
        return known->style_info_value->style_info_style->font_size;
    }
    return 12;
}

// Page rules hold no element: var() in them takes the root element's custom properties, and rem, em
// and page units in them its font size. A value that doesn't resolve stays as written and is dropped
// when the page properties are typed.
void resolve_page_values(std::vector<css::page_rule::page_rule>& pages, css::style::style const& root,
                         std::pair<float, float> area) {
    css::substitute::context const ctx{.customs = root.custom_properties.get(),
                                       .root_font_size = root.font_size,
                                       .page_width = area.first,
                                       .page_height = area.second,
                                       .font_size = root.font_size,
                                       .dpi = css::compute_style::css_dpi()};
    auto const resolve = [&](css::declarations& decls) {
        for (auto& d : decls) {
            if (css::substitute::needs_element(d.value)) {
                if (auto v = css::substitute::substitute(d.value, ctx)) {
                    d.value = std::move(*v);
                }
            }
        }
    };
    for (auto& page : pages) {
        resolve(page.page_declarations);
        for (auto& [region, decls] : page.page_regions) {
            resolve(decls);
        }
    }
}

} // namespace

document_rules index_document_rules(sheets::collected collected, bool use_author_style, style_hooks hooks) {
    auto index = share(css::prules::index_rules(collected.sheets_env.rules, hooks.valid_declaration));
    auto buckets = share(bucket_rules(*index));
    auto const area = hooks.compute ? first_page_area(collected.sheets_env) : std::pair<float, float>{612, 792};
    return document_rules{.rules_env = std::move(collected.sheets_env),
                          .rules_index = std::move(index),
                          .rules_buckets = std::move(buckets),
                          .rules_bases = share(std::move(collected.sheets_bases)),
                          .rules_use_author_style = use_author_style,
                          .rules_hooks = std::move(hooks),
                          .rules_page_area = area};
}

void merge_runs(std::vector<pointer>& items, std::vector<std::size_t>& run_bounds, std::vector<pointer>& scratch) {
    std::size_t runs = run_bounds.size();
    auto const end_of = [&](std::size_t k) { return k + 1 < runs ? run_bounds[k + 1] : items.size(); };
    // A rule's declarations ascend by number, but an !important one among them weighs more than those
    // after it; such a run is put in order on its own first.
    for (std::size_t k = 0; k < runs; ++k) {
        auto const first = items.begin() + static_cast<std::ptrdiff_t>(run_bounds[k]);
        auto const last = items.begin() + static_cast<std::ptrdiff_t>(end_of(k));
        if (std::is_sorted(first, last, by_priority)) {
            continue;
        }
        if (last - first <= 64) {
            // A rule's declarations, shorthands expanded, with a few !important ones out of place: an
            // insertion sort, stable, and without the buffer that stable_sort allocates.
            for (auto i = first + 1; i != last; ++i) {
                auto const item = *i;
                auto j = i;
                for (; j != first && by_priority(item, *(j - 1)); --j) {
                    *j = *(j - 1);
                }
                *j = item;
            }
        } else {
            std::stable_sort(first, last, by_priority);
        }
    }
    // Neighbouring runs are merged pairwise, the left one first among equals, until one run is left.
    while (runs > 1) {
        scratch.resize(items.size());
        std::size_t merged = 0;
        for (std::size_t k = 0; k < runs; k += 2) {
            std::size_t const start = run_bounds[k];
            std::size_t const mid = end_of(k);
            std::size_t const stop = k + 1 < runs ? end_of(k + 1) : mid;
            std::merge(items.begin() + static_cast<std::ptrdiff_t>(start), items.begin() + static_cast<std::ptrdiff_t>(mid),
                       items.begin() + static_cast<std::ptrdiff_t>(mid), items.begin() + static_cast<std::ptrdiff_t>(stop),
                       scratch.begin() + static_cast<std::ptrdiff_t>(start), by_priority);
            run_bounds[merged++] = start;
        }
        runs = merged;
        run_bounds.resize(runs);
        items.swap(scratch);
    }
}

void cascade_element(dom::dom_element const& e,
                     tree::dom_tree const& tree,
                     document_rules const& rules,
                     resource::locator::locator const& base,
                     cascaded& out,
                     cascade_buffers& buffers) {
    auto const& hooks = rules.rules_hooks;
    out.cascaded_pdecls.clear();
    out.cascaded_pseudos.clear();
    out.cascaded_own = hints::presentational_hints(e, base, {hooks.known_property, hooks.is_shorthand});
    if (rules.rules_use_author_style) {
        if (auto const style = facts_of(e).style) {
            auto const base_text = resource::locator::locator_to_string(base);
            for (auto& d : css::parser::parse_declarations(css::origin::style_attribute, base_text, *style,
                                                           hooks.known_property)) {
                auto const p = css::priority::of(d, {});
                out.cascaded_own.push_back({std::move(d), p});
            }
        }
    }
    if (hooks.valid_declaration) {
        std::erase_if(out.cascaded_own, [&](pdeclaration const& d) { return !hooks.valid_declaration(d.declaration); });
    }

    auto& items = buffers.runs;
    auto& bounds = buffers.run_bounds;
    items.clear();
    bounds.clear();
    add_run(items, bounds, out.cascaded_own);
    std::vector<pseudo_runs> pseudos;
    collect_matching_rules(tree, rules, e, buffers.ancestors_known ? &buffers.ancestors : nullptr, buffers.matched);
    for (auto const& [key, rule] : buffers.matched) {
        auto const& r = *rule;
        if (r.rule_declarations.empty()) {
            continue;
        }
        auto const& pe = r.rule_selector.pseudo_elements;
        if (pe.empty()) {
            add_run(items, bounds, r.rule_declarations);
            continue;
        }
        auto it = std::find_if(pseudos.begin(), pseudos.end(),
                               [&](pseudo_runs const& p) { return p.pseudo_elements == pe; });
        if (it == pseudos.end()) {
            pseudos.push_back({.pseudo_elements = pe});
            it = std::prev(pseudos.end());
        }
        add_run(it->items, it->bounds, r.rule_declarations);
    }
    merge_runs(items, bounds, buffers.scratch);
    out.cascaded_pdecls.assign(items.begin(), items.end());
    for (auto& p : pseudos) {
        merge_runs(p.items, p.bounds, buffers.scratch);
        out.cascaded_pseudos.push_back({std::move(p.pseudo_elements), std::move(p.items)});
    }
}

namespace {

struct walk {
    log::log const& log;
    resource::loader::loader const& loader;
    document_rules const& rules;
    bool prefetching = false;
    tree::link_table links;
    std::vector<tree::known_language> languages;
    tree::sibling_answers previous_matches;
    tree::dom_tree dom_tree{.known_languages = &languages, .links = &links, .previous_matches = &previous_matches};
    cascade_buffers buffers;
    cascaded current;
    /// The root element's font size once it is styled, for rem.
    float root_font_size = 12;
    /// The first page's area, for vw and vh.
    std::pair<float, float> page_area = {612, 792};
    /// The page rules, whose values are resolved against the root element once it is styled; null when
    /// a subtree is styled again.
    css::parser::env* page_env = nullptr;

    void visit(dom::dom_element& e,
               dom::style_info const* parent,
               resource::locator::locator const& parent_base,
               std::optional<std::string> const& parent_lang) {
        auto const facts = facts_of(e);
        auto const base = facts.sets_base ? dom::element_base(e) : parent_base;
        auto const own_lang = dom_tree.own_language(&e);
        std::optional<std::string> lang = parent_lang;
        if (own_lang) {
            lang = css::lexer::ascii_lower(*own_lang);
        }
        languages.push_back({&e, own_lang ? own_lang : (languages.empty() ? std::nullopt : languages.back().second)});

        if (prefetching && tree::name_local_view(e.dom_element_name) == "img") {
            if (auto const src = tree::plain_attribute(e, "src")) {
                resource::loader::prefetch(log, loader, resource::locator::resolve_locator(base, *src));
            }
        }

        cascade_element(e, dom_tree, rules, base, current, buffers);
        style_request const request{.request_element = e,
                                    .request_parent = parent,
                                    .request_base = base,
                                    .request_lang = lang,
                                    .request_cascade = current,
                                    .request_bases = *rules.rules_bases,
                                    .request_root_font_size = parent == nullptr ? 12 : root_font_size,
                                    .request_page_area = page_area};
        auto const& compute = rules.rules_hooks.compute;
        ref<dom::style_info> const info = compute ? compute(log, request) : base_style_info(log, request);
        check(info != nullptr, "style_subtree");
        if (parent == nullptr && info->style_info_style) {
            root_font_size = info->style_info_style->font_size;
            if (page_env != nullptr) {
                resolve_page_values(page_env->pages, *info->style_info_style, page_area);
                page_area = first_page_area(*page_env);
            }
        }
        e.dom_element_style_info.set(dom::style_info_set{info});

        if (prefetching && rules.rules_hooks.backgrounds) {
            for (auto const& image : rules.rules_hooks.backgrounds(*info)) {
                resource::loader::prefetch(log, loader, image);
            }
        }
        auto const children = tree::element_children(e);
        if (!children.empty()) {
            for_each_ancestor_key(dom_tree, e, [&](std::uint32_t k) { buffers.ancestors.add(k); });
            for (auto const& child : children) {
                visit(*child, info.get(), base, lang);
            }
            for_each_ancestor_key(dom_tree, e, [&](std::uint32_t k) { buffers.ancestors.remove(k); });
        }
        languages.pop_back();
    }
};

} // namespace

void style_subtree(log::log const& log,
                   resource::loader::loader const& loader,
                   document_rules const& rules,
                   dom::dom_element& e,
                   dom::style_info const* parent) {
    walk w{.log = log,
           .loader = loader,
           .rules = rules,
           .prefetching = sheets::has_prefetch_threads(loader),
           .links = tree::make_link_table(e)};
    // The filter starts with the ancestors above the subtree.
    for (auto a = w.dom_tree.parent_element(&e); a; a = w.dom_tree.parent_element(*a)) {
        for_each_ancestor_key(w.dom_tree, **a, [&](std::uint32_t k) { w.buffers.ancestors.add(k); });
    }
    w.buffers.ancestors_known = true;
    w.root_font_size = root_font_size_of(w.dom_tree, e);
    w.page_area = rules.rules_page_area;
    auto const context = context_of(e);
    std::optional<std::string> lang = context.parent_lang;
    if (parent != nullptr) {
        lang = parent->style_info_lang;
    }
    w.visit(e, parent, parent != nullptr ? *parent->style_info_base : context.parent_base, lang);
}

styled_document style_document(log::log const& log,
                               resource::loader::loader const& loader,
                               dom::document_ref const& doc,
                               style_hooks hooks) {
    auto const& info = doc->dom_document_style_info;
    auto rules = index_document_rules(sheets::collect_sheets(log, loader, *doc, hooks.known_property),
                                      info.use_author_style, std::move(hooks));
    auto const root = dom::document_element(*doc);
    if (!root) {
        throw internal_error("document is missing root element");
    }
    walk w{.log = log,
           .loader = loader,
           .rules = rules,
           .prefetching = sheets::has_prefetch_threads(loader),
           .links = tree::make_link_table(**root)};
    w.buffers.ancestors_known = true;
    w.page_area = rules.rules_page_area;
    if (rules.rules_hooks.compute) {
        w.page_env = &rules.rules_env;
    }
    w.visit(**root, nullptr, doc->dom_document_base.get(), std::nullopt);
    rules.rules_page_area = w.page_area;
    return styled_document{.styled_dom = doc, .styled_rules = std::move(rules)};
}

bool element_matches(css::selector::selector const& s, dom::dom_element const& e) {
    return tree::element_matches(s, e);
}

} // namespace vellum::styledom
