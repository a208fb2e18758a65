#include "css/styledom/styledom.hpp"

#include "css/lexer.hpp"
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

struct walk {
    log::log const& log;
    resource::loader::loader const& loader;
    document_rules const& rules;
    bool prefetching = false;
    tree::link_table links;
    std::vector<tree::known_language> languages;
    tree::dom_tree dom_tree{.known_languages = &languages, .links = &links};
    cascade_buffers buffers;
    cascaded current;

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
                                    .request_bases = *rules.rules_bases};
        auto const& compute = rules.rules_hooks.compute;
        ref<dom::style_info> const info = compute ? compute(log, request) : base_style_info(log, request);
        check(info != nullptr, "style_subtree");
        e.dom_element_style_info.set(dom::style_info_set{info});

        if (prefetching && rules.rules_hooks.backgrounds) {
            for (auto const& image : rules.rules_hooks.backgrounds(*info)) {
                resource::loader::prefetch(log, loader, image);
            }
        }
        for (auto const& child : tree::element_children(e)) {
            visit(*child, info.get(), base, lang);
        }
        languages.pop_back();
    }
};

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

void bucket(universal_buckets& into, css::prules::prules0 const& rules) {
    for (auto const& r : rules) {
        auto const& simples = r->rule_selector.subject.simples;
        auto const key = [&]() -> std::pair<std::map<std::string, std::vector<pointer_rule>, std::less<>>*, std::string> {
            for (auto const& s : simples) {
                if (auto const* id = std::get_if<css::selector::id>(&s)) {
                    return {&into.by_id, id->id_name};
                }
            }
            for (auto const& s : simples) {
                if (auto const* c = std::get_if<css::selector::classes>(&s); c && !c->class_names.empty()) {
                    return {&into.by_class, c->class_names.front()};
                }
            }
            return {nullptr, {}};
        }();
        if (key.first != nullptr) {
            (*key.first)[key.second].push_back(r.get());
        } else {
            into.unkeyed.push_back(r.get());
        }
    }
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// Each rule of a slot that could match an element of this local name, id and class list.
template <class F>
void visit_slot(css::prules::prules_named const& named, universal_buckets const& buckets, std::string_view local,
                std::optional<std::string_view> id, std::optional<std::string_view> classes, F const& f) {
    if (auto const it = named.rules_named.find(local); it != named.rules_named.end()) {
        for (auto const& r : it->second) {
            f(*r);
        }
    }
    for (auto const* r : buckets.unkeyed) {
        f(*r);
    }
    if (id) {
        if (auto const it = buckets.by_id.find(*id); it != buckets.by_id.end()) {
            for (auto const* r : it->second) {
                f(*r);
            }
        }
    }
    if (!classes || buckets.by_class.empty()) {
        return;
    }
    std::string_view const list = *classes;
    std::size_t i = 0;
    while (i < list.size()) {
        while (i < list.size() && is_blank(list[i])) {
            ++i;
        }
        std::size_t const start = i;
        while (i < list.size() && !is_blank(list[i])) {
            ++i;
        }
        auto const word = list.substr(start, i - start);
        // A class named twice opens its bucket once.
        if (word.empty() || css::match::has_word(list.substr(0, start), word)) {
            continue;
        }
        if (auto const it = buckets.by_class.find(word); it != buckets.by_class.end()) {
            for (auto const* r : it->second) {
                f(*r);
            }
        }
    }
}

} // namespace

rule_buckets bucket_rules(css::prules::prules const& index) {
    rule_buckets out;
    bucket(out.buckets_any, index.rules_ns_any.rules_other);
    bucket(out.buckets_none, index.rules_ns_none.rules_other);
    for (auto const& [ns, named] : index.rules_ns) {
        bucket(out.buckets_ns[ns], named.rules_other);
    }
    return out;
}

void for_each_matching_rule(tree::dom_tree const& tree,
                            document_rules const& rules,
                            dom::dom_element const& e,
                            std::function<void(css::prules::prule const&)> const& f) {
    auto const local = tree.local_name(&e);
    auto const ns = tree.namespace_uri(&e);
    auto const id = tree.attribute(&e, css::selector::any{}, "id");
    auto const classes = tree.attribute(&e, css::selector::none{}, "class");
    auto const test = [&](css::prules::prule const& r) {
        if (css::match::selector_matches(tree, r.rule_selector, &e)) {
            f(r);
        }
    };
    auto const& index = *rules.rules_index;
    auto const& buckets = *rules.rules_buckets;
    visit_slot(index.rules_ns_any, buckets.buckets_any, local, id, classes, test);
    if (!ns) {
        visit_slot(index.rules_ns_none, buckets.buckets_none, local, id, classes, test);
    } else if (auto const it = index.rules_ns.find(*ns); it != index.rules_ns.end()) {
        visit_slot(it->second, buckets.buckets_ns.at(it->first), local, id, classes, test);
    }
}

ref<dom::style_info> base_style_info(log::log const&, style_request const& request) {
    return share(dom::style_info{.style_info_base = request.request_base, .style_info_lang = request.request_lang});
}

document_rules index_document_rules(sheets::collected collected, bool use_author_style, style_hooks hooks) {
    auto index = share(css::prules::index_rules(collected.sheets_env.rules, hooks.valid_declaration));
    auto buckets = share(bucket_rules(*index));
    return document_rules{.rules_env = std::move(collected.sheets_env),
                          .rules_index = std::move(index),
                          .rules_buckets = std::move(buckets),
                          .rules_bases = share(std::move(collected.sheets_bases)),
                          .rules_use_author_style = use_author_style,
                          .rules_hooks = std::move(hooks)};
}

void merge_runs(std::vector<pointer>& items, std::vector<std::size_t>& run_bounds, std::vector<pointer>& scratch) {
    std::size_t runs = run_bounds.size();
    auto const end_of = [&](std::size_t k) { return k + 1 < runs ? run_bounds[k + 1] : items.size(); };
    // A rule's declarations ascend by number, but an !important one among them weighs more than those
    // after it; such a run is put in order on its own first.
    for (std::size_t k = 0; k < runs; ++k) {
        auto const first = items.begin() + static_cast<std::ptrdiff_t>(run_bounds[k]);
        auto const last = items.begin() + static_cast<std::ptrdiff_t>(end_of(k));
        if (!std::is_sorted(first, last, by_priority)) {
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
    for_each_matching_rule(tree, rules, e, [&](css::prules::prule const& r) {
        if (r.rule_declarations.empty()) {
            return;
        }
        auto const& pe = r.rule_selector.pseudo_elements;
        if (pe.empty()) {
            add_run(items, bounds, r.rule_declarations);
            return;
        }
        auto it = std::find_if(pseudos.begin(), pseudos.end(),
                               [&](pseudo_runs const& p) { return p.pseudo_elements == pe; });
        if (it == pseudos.end()) {
            pseudos.push_back({.pseudo_elements = pe});
            it = std::prev(pseudos.end());
        }
        add_run(it->items, it->bounds, r.rule_declarations);
    });
    merge_runs(items, bounds, buffers.scratch);
    out.cascaded_pdecls.assign(items.begin(), items.end());
    for (auto& p : pseudos) {
        merge_runs(p.items, p.bounds, buffers.scratch);
        out.cascaded_pseudos.push_back({std::move(p.pseudo_elements), std::move(p.items)});
    }
}

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
    auto const context = context_of(e);
    std::optional<std::string> lang = context.parent_lang;
    if (parent != nullptr) {
        lang = parent->style_info_lang;
    }
    w.visit(e, parent, parent != nullptr ? parent->style_info_base : context.parent_base, lang);
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
    w.visit(**root, nullptr, doc->dom_document_base.get(), std::nullopt);
    return styled_document{.styled_dom = doc, .styled_rules = std::move(rules)};
}

bool element_matches(css::selector::selector const& s, dom::dom_element const& e) {
    return tree::element_matches(s, e);
}

} // namespace vellum::styledom
