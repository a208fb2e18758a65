#include "prepack/walk.hpp"

#include "css/styledom/computed.hpp"
#include "css/styledom/sheets.hpp"
#include "css/styledom/tree.hpp"
#include "host/canvas_paint.hpp"
#include "image/images.hpp"
#include "prepack/counter_style.hpp"
#include "prepack/generated.hpp"
#include "prepack/targets.hpp"
#include "prepack/text.hpp"
#include "mathml/make_math.hpp"
#include "svg/build.hpp"
#include "svg/svg.hpp"
#include "text/unicode.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <limits>
#include <map>
#include <mutex>
#include <unordered_map>

namespace vellum::prepack::walk {

namespace {

using counter_style::format_counter;
using css::box::display_kind;
using css::selector::pseudo_element;
using style_ref = ref<css::style::style>;

// What a child turns into before its parent knows what to do with it. A text node gives all its spans
// in one thing, so that a long text costs one thing, not one per word.
struct th_span {
    std::vector<prepack::span> spans;
};

th_span one_span(prepack::span s) {
    th_span out;
    out.spans.push_back(std::move(s));
    return out;
}

void append(std::vector<span>& to, std::vector<span>& from) {
    if (to.empty()) {
        to = std::move(from);
    } else {
        to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
    }
    from.clear();
}

struct th_block {
    prepack::block block;
};

struct th_inline_block {
    prepack::block block;
};

enum class group_kind { body, header, footer };

struct th_rowgroup {
    prepack::rowgroup group;
    group_kind kind = group_kind::body;
};

struct th_row {
    prepack::row row;
};

// A cell is three times as wide as the other things: on the heap, so that a list of things stays small.
struct th_cell {
    boxed<prepack::cell0> cell;
};

struct th_caption {
    prepack::block block;
    css::box::caption_side side = css::box::caption_side::top;
};

struct th_colgroup {
    prepack::colgroup group;
};

// An element without a box that still sets named strings or carries target ids.
struct th_values {
    element_stuff stuff;
};

using thing = std::variant<th_span, th_block, th_inline_block, th_rowgroup, th_row, th_cell, th_caption, th_colgroup,
                           th_values>;

// A list of one thing, moved in: a braced list would copy it, and with it the whole subtree.
template <class T>
std::vector<thing> one_thing(T&& t) {
    std::vector<thing> out;
    out.emplace_back(std::forward<T>(t));
    return out;
}

bool is_table_part(thing const& t) {
    return std::holds_alternative<th_rowgroup>(t) || std::holds_alternative<th_row>(t) ||
           std::holds_alternative<th_cell>(t) || std::holds_alternative<th_colgroup>(t);
}

// A list of an element's typed declarations, shared with the element's style record that holds it.
ref<std::vector<styledom::typed_pdecl>> declarations_in(dom::style_info const& info,
                                                       std::vector<styledom::typed_pdecl> const& list) {
    if (list.empty() || !info.style_info_declared) {
        return nullptr;
    }
    return {info.style_info_declared, &list};
}

style_ref new_anonymous_style(style_ref const& parent) {
    return share(css::style::inherit_from(*parent));
}

std::optional<display_kind> kind_of(css::style::style const& s) {
    if (auto const* k = std::get_if<display_kind>(&s.bit_props.bit_props_display)) {
        return *k;
    }
    return std::nullopt;
}

/// How deep tables may nest in the cells of other tables before the inner ones are laid out as blocks.
constexpr int max_table_nesting = 32;

bool is_table_kind(std::optional<display_kind> k) {
    switch (k.value_or(display_kind::none)) {
    case display_kind::table:
    case display_kind::inline_table:
    case display_kind::table_caption:
    case display_kind::table_row_group:
    case display_kind::table_header_group:
    case display_kind::table_footer_group:
    case display_kind::table_row:
    case display_kind::table_cell:
    case display_kind::table_column:
    case display_kind::table_column_group:
        return true;
    default:
        return false;
    }
}

/// The style of a table part laid out as a block: tables inline stay inline, columns make no box.
css::style::style as_block(css::style::style s) {
    auto const k = kind_of(s).value_or(display_kind::block);
    s.bit_props.bit_props_display = k == display_kind::inline_table ? display_kind::inline_block
                                    : k == display_kind::table_column || k == display_kind::table_column_group
                                        ? display_kind::none
                                        : display_kind::block;
    return s;
}

float padding_points(css::box::padding const& p) {
    auto const* f = std::get_if<float>(&p);
    return f ? *f : 0.0f;
}

// A counter's value after a change, held at the ends of the integer range rather than wrapping.
int clamped_sum(int value, int by) {
    auto const sum = static_cast<long long>(value) + by;
    return static_cast<int>(std::clamp<long long>(sum, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

struct walker {
    log::log const& log;
    styledom::styled_document const& doc;
    resource::locator::locator doc_url;
    /// Counter scopes, outermost first; the last is the one the current element's siblings share.
    std::vector<counter_scope> scopes{counter_scope{}};
    std::vector<static_flow_block> flows;
    int bookmarks = 0;
    int column_ids = 0;
    bool in_static = false;
    /// Tables and cells open around the current element, and whether the table parts met now are
    /// laid out as plain blocks because the tables around them are nested too deep.
    int table_levels = 0;
    bool tables_as_blocks = false;
    /// Where the text of the paragraph being gathered stands: word starts for capitalize, and the
    /// column for tab stops.
    text::text_position text_at;
    /// The text of every paragraph of the document, which their text spans are ranges of. It only
    /// grows while the walk goes on, and every paragraph shares it.
    std::shared_ptr<textbuf::textbuf> text_store = std::make_shared<textbuf::textbuf>();
    /// The nesting of open-quote and close-quote so far.
    int quote_depth = 0;
    /// Every target the document names, for the registry of cross-references.
    std::vector<targets::target_key> target_keys;
    /// The elements by id, for target-text(); gathered on first use.
    std::optional<std::map<std::string, dom::element_ref>> elements_by_id;
    /// Named strings and target ids of hidden descendants (the head's title), for the next paragraph.
    std::vector<thing> carried;
    /// The HTML body whose background went to the canvas: its own box paints none.
    dom::dom_element const* canvas_body = nullptr;
    /// The image table of the run; without one, images show their alternative content.
    images::images* image_table = nullptr;
    /// The script host's functions for generated content; null without a script engine.
    script_calls const* scripts = nullptr;
    // Names a kind of content that is not laid out as it asks, once per run however many elements
    // have it.
    void warn_once(std::string const& message) { log::log_warning_once(log, message); }

    /// The style of anonymous boxes in a parent of each style, made once: siblings share their
    /// computed style, and so do the anonymous paragraphs and rows of all of them.
    std::unordered_map<css::style::style const*, std::pair<style_ref, style_ref>> anonymous_styles;
    style_ref anonymous_style(style_ref const& parent) {
        auto [it, fresh] = anonymous_styles.try_emplace(parent.get());
        if (fresh) {
            // The parent is held so that its address names it for the whole walk.
            it->second = {parent, new_anonymous_style(parent)};
        }
        return it->second.second;
    }

    // ---- counters and values ----

    // The scopes an element carries to layout. The innermost (where the element's own resets live)
    // gives the values its page shows; the outer ones matter only where a cross-reference may ask for
    // counters() at the element, so only an element with ids carries them, and then only those that
    // hold counters. A deep tree thus costs no copy of every enclosing scope for each element.
    counter_scopes scopes_now(bool with_outer) const {
        counter_scopes out{scopes.back()};
        if (with_outer) {
            for (auto it = std::next(scopes.rbegin()); it != scopes.rend(); ++it) {
                if (!it->empty()) {
                    out.push_back(*it);
                }
            }
        }
        return out;
    }

    // The instances of each counter, outermost first: the scope and the place in it. Resets, increments
    // and lookups go through it, so that their cost doesn't grow with the depth of the tree or the
    // number of counters in a scope.
    struct counter_place {
        std::size_t place_scope = 0;
        std::size_t place_index = 0;
    };
    std::unordered_map<std::string, std::vector<counter_place>> counter_places;

    void open_scope() { scopes.emplace_back(); }

    void close_scope() {
        check(scopes.size() > 1, "simple_to_thing");
        for (auto const& [name, value] : scopes.back()) {
            auto const found = counter_places.find(name);
            check(found != counter_places.end() && !found->second.empty(), "simple_to_thing");
            found->second.pop_back();
            if (found->second.empty()) {
                counter_places.erase(found);
            }
        }
        scopes.pop_back();
    }

    int* innermost(std::string const& name) {
        auto const found = counter_places.find(name);
        if (found == counter_places.end() || found->second.empty()) {
            return nullptr;
        }
        auto const& p = found->second.back();
        return &scopes[p.place_scope][p.place_index].second;
    }

    std::optional<int> counter_value(std::string const& name) {
        if (auto const* v = innermost(name)) {
            return *v;
        }
        return std::nullopt;
    }

    // Page counters belong to page sections, not to elements.
    static bool is_page_counter(std::string const& name) { return name == "page" || name == "pages"; }

    void reset_counter(std::string const& name, int value) {
        check(!scopes.empty(), "simple_to_thing");
        auto& places = counter_places[name];
        std::size_t const here = scopes.size() - 1;
        if (!places.empty() && places.back().place_scope == here) {
            // Reset twice in one scope: the later value wins.
            scopes[here][places.back().place_index].second = value;
            return;
        }
        places.push_back({here, scopes[here].size()});
        scopes[here].emplace_back(name, value);
    }

    void increment_counter(std::string const& name, int by) {
        if (auto* v = innermost(name)) {
            *v = clamped_sum(*v, by);
            return;
        }
        // A counter incremented before any reset is reset on the spot.
        reset_counter(name, by);
    }

    void apply_counters(css::style::style const& s) {
        for (auto const& [name, value] : s.rare_box->counter_reset) {
            if (!is_page_counter(name)) {
                reset_counter(name, value);
            }
        }
        bool list_item_named = false;
        for (auto const& [name, by] : s.rare_box->counter_increment) {
            list_item_named = list_item_named || name == "list-item";
            if (!is_page_counter(name)) {
                increment_counter(name, by);
            }
        }
        if (kind_of(s) == display_kind::list_item && !list_item_named) {
            increment_counter("list-item", 1);
        }
    }

    // An HTML `ol reversed` counts down to 1 from the number of its items, or from its `start`; the
    // default sheet makes its items count by -1.
    void reverse_list(dom::dom_element const& e) {
        if (!styledom::tree::is_html_name(e.dom_element_name, "ol") ||
            !styledom::tree::plain_attribute(e, "reversed") || styledom::tree::plain_attribute(e, "start")) {
            return;
        }
        std::vector<dom::child_node> children;
        {
            std::lock_guard guard(process_lock());
            children = e.dom_element_children.cell_value;
        }
        int items = 0;
        for (auto const& c : children) {
            if (auto const* el = std::get_if<dom::element_child>(&c);
                el && styledom::tree::is_html_name(el->child_element->dom_element_name, "li")) {
                ++items;
            }
        }
        reset_counter("list-item", clamped_sum(items, 1));
    }

    // All values of a counter in the scopes, outermost first.
    std::vector<int> counter_values(std::string const& name) const {
        std::vector<int> out;
        auto const found = counter_places.find(name);
        if (found != counter_places.end()) {
            for (auto const& p : found->second) {
                out.push_back(scopes[p.place_scope][p.place_index].second);
            }
        }
        return out;
    }

    void gather_ids(dom::element_ref const& e) {
        if (auto const id = styledom::tree::plain_attribute(*e, "id")) {
            elements_by_id->emplace(*id, e);
        }
        std::vector<dom::child_node> children;
        {
            std::lock_guard guard(process_lock());
            children = e->dom_element_children.cell_value;
        }
        for (auto const& c : children) {
            if (auto const* el = std::get_if<dom::element_child>(&c)) {
                gather_ids(el->child_element);
            }
        }
    }

    std::optional<std::string> target_text(target_name const& t) {
        if (t.target_docname != doc_url.locator_url || !t.target_id) {
            return std::nullopt;
        }
        if (!elements_by_id) {
            elements_by_id.emplace();
            if (auto const root = dom::document_element(*doc.styled_dom)) {
                gather_ids(*root);
            }
        }
        auto const found = elements_by_id->find(*t.target_id);
        if (found == elements_by_id->end()) {
            return std::nullopt;
        }
        return element_text(*found->second);
    }

    // Content terms evaluated for an element: what can be settled now is text, the rest waits for
    // the page.
    std::vector<generated::piece> content_pieces(css::property::content_list const& list, dom::dom_element const& e,
                                                 css::style::style const& s, std::string_view what) {
        generated::gen_env const env{
            .env_log = log,
            .counter_values = [this](std::string const& name) { return counter_values(name); },
            .attribute = [&e](std::string const& local) { return styledom::tree::plain_attribute(e, local); },
            .own_text = [&e]() { return element_text(e); },
            .target_text = [this](target_name const& t) { return target_text(t); },
            .doc = doc_url,
            .base = doc_url,
            .quote_depth = &quote_depth,
            .quotes = s.rare_props ? &s.rare_props->rare_props_quotes : nullptr,
            .lang = s.rare_props->rare_props_vellum_lang_value,
            .font_size = s.font_size,
            .scripts = scripts,
            .image = [this, &s](css::value::url const& u) -> std::optional<span_inline_block> {
                auto const url = styledom::sheets::resolve_url(*doc.styled_rules.rules_bases, u);
                auto b = image_block(url, anonymous_style(share(s)), type_anonymous{});
                if (!b) {
                    return std::nullopt;
                }
                return span_inline_block{share(std::move(*b))};
            },
        };
        return generated::evaluate(list, env, what);
    }

    std::vector<text_thing> content_text(css::property::content_list const& list, dom::dom_element const& e,
                                         css::style::style const& s, std::string_view what) {
        return generated::text_things(content_pieces(list, e, s, what));
    }

    // The spans of generated content, prepared as text of the style.
    std::vector<span> content_spans(std::vector<generated::piece> pieces, css::style::style const& s) {
        std::vector<span> out;
        for (auto& p : pieces) {
            std::visit(overloaded{
                           [&](text_thing& t) {
                               std::visit(overloaded{
                                              [&](text_thing_text& x) {
                                                  auto more = text::prepare_text(*text_store, x.text,
                                                                                 text::settings_of(s), text_at);
                                                  std::move(more.begin(), more.end(), std::back_inserter(out));
                                              },
                                              [&](text_thing_gen& g) {
                                                  out.push_back(span_gen_content{std::move(g.gen)});
                                                  text_at.at_word_start = false;
                                              },
                                              [&](text_thing_script& f) {
                                                  out.push_back(span_script_func{share(std::move(f.func))});
                                              },
                                          },
                                          t);
                           },
                           [&](span_leader& l) { out.push_back(std::move(l)); },
                           [&](span_inline_block& b) {
                               out.push_back(std::move(b));
                               text_at.at_word_start = false;
                           },
                       },
                       p);
        }
        return out;
    }

    static std::string element_text(dom::dom_element const& e) {
        std::string out;
        std::vector<dom::child_node> children;
        {
            std::lock_guard guard(process_lock());
            children = e.dom_element_children.cell_value;
        }
        for (auto const& c : children) {
            if (auto const* t = std::get_if<dom::text_child>(&c)) {
                out += t->child_text->dom_text_value.get();
            } else if (auto const* el = std::get_if<dom::element_child>(&c)) {
                out += element_text(*el->child_element);
            }
        }
        return out;
    }

    // The URL that bookmark-target gives: url(...) or an attribute that holds one.
    static std::optional<std::string> bookmark_url(css::property::content_list const& list, dom::dom_element const& e) {
        for (auto const& item : list.content_items) {
            if (auto const* u = std::get_if<css::value::url>(&item)) {
                return u->url_text;
            }
            if (auto const* a = std::get_if<css::value::attr>(&item)) {
                return styledom::tree::plain_attribute(e, a->attr_name.attr_local);
            }
        }
        return std::nullopt;
    }

    element_stuff stuff_of(dom::element_ref const& e, css::style::style const& s) {
        element_stuff out{.element_info = info_element{e}};
        for (auto const& [name, list] : s.rare_box->string_set) {
            out.text_values.emplace_back(name, content_text(list, *e, s, "string-set"));
        }
        std::vector<target_id> ids;
        if (auto const id = styledom::tree::plain_attribute(*e, "id")) {
            ids.push_back({*id});
        }
        if (styledom::tree::is_html_name(e->dom_element_name, "a")) {
            if (auto const name = styledom::tree::plain_attribute(*e, "name")) {
                ids.push_back({*name});
            }
        }
        out.counter_scopes = scopes_now(!ids.empty());
        if (!ids.empty()) {
            for (auto const& id : ids) {
                target_keys.push_back(targets::key_of(doc_url.locator_url, id.id));
            }
            out.given_ids = std::pair{doc_url, std::move(ids)};
        }
        if (auto const* level = std::get_if<int>(&s.rare_box->bookmark_level)) {
            bookmark_stuff b{.pre_bookmark_level = *level,
                             .pre_bookmark_state = s.rare_box->bookmark_state,
                             .pre_bookmark_link_type = s.rare_box->vellum_pdf_link_type};
            if (auto const* label = std::get_if<css::property::content_list>(&s.rare_box->bookmark_label)) {
                b.pre_bookmark_content = content_text(*label, *e, s, "bookmark-label");
            } else {
                b.pre_bookmark_content = {text_thing_text{textbuf::from_utf8(element_text(*e))}};
            }
            if (auto const* target = std::get_if<css::property::content_list>(&s.rare_box->bookmark_target)) {
                if (auto const url = bookmark_url(*target, *e)) {
                    b.pre_bookmark_url = url;
                    b.pre_bookmark_target = targets::target_of(*url, doc_url, doc_url);
                }
            }
            out.bookmark_stuff = std::pair{++bookmarks, std::move(b)};
        }
        return out;
    }

    std::vector<bg> backgrounds(css::style::style const& s) const {
        std::vector<bg> out;
        if (!s.background) {
            return out;
        }
        auto const& b = *s.background;
        for (std::size_t i = 0; i < b.background_image.size(); ++i) {
            auto const pick = [&](auto const& list) { return list.empty() ? decltype(list[0]){} : list[std::min(i, list.size() - 1)]; };
            std::optional<bg_image> image;
            if (auto const* u = std::get_if<css::value::url>(&b.background_image[i])) {
                image = bg_image_url{styledom::sheets::resolve_url(*doc.styled_rules.rules_bases, *u)};
            } else if (auto const* f = std::get_if<css::value::function>(&b.background_image[i])) {
                image = bg_image_gradient{*f};
            } else {
                continue;
            }
            out.push_back({.bg_image = std::move(image),
                           .bg_attachment = pick(b.background_attachment),
                           .bg_repeat = pick(b.background_repeat),
                           .bg_position = pick(b.background_position),
                           .bg_size = pick(b.background_size),
                           .bg_origin = pick(b.background_origin),
                           .bg_clip = pick(b.background_clip)});
        }
        return out;
    }

    // ---- generated boxes ----

    std::vector<thing> pseudo_box(dom::element_ref const& e, dom::style_info const& info, pseudo_element which) {
        auto const& decls = styledom::pseudo_declarations(styledom::computed::declared_of(info), which);
        if (decls.empty()) {
            return {};
        }
        auto props = styledom::properties_of(decls);
        auto const style = share(css::compute_style::compute_style(info.style_info_style,
                                                                   css::compute_style::anonymous_context{}, props));
        auto const* list = std::get_if<css::property::content_list>(&style->content);
        if (!list || kind_of(*style) == display_kind::none) {
            return {};
        }
        // The pseudo-element's own counters count at its place, before its content is evaluated.
        apply_counters(*style);
        auto spans = content_spans(content_pieces(*list, *e, *style, "content"), *style);
        pseudo_element_info pinfo{.pseudo_element_style = style,
                                  .pseudo_element_pseudos = {which},
                                  .pseudo_element_pdecls = std::move(props),
                                  .pseudo_element_parent = e};
        element_stuff stuff{.element_info = info_pseudo_element{share(std::move(pinfo))}, .counter_scopes = scopes_now(false)};
        auto const kind = kind_of(*style).value_or(display_kind::inline_);
        if (kind == display_kind::inline_) {
            return {one_span(span_nested{nested_span{.span_content = std::move(spans),
                                                    .span_style = style,
                                                    .span_context = css::compute_style::anonymous_context{},
                                                    .span_decls = declarations_in(info, decls),
                                                    .span_type = type_original{share(std::move(stuff))},
                                                    .span_bg = backgrounds(*style)}})};
        }
        return one_thing(th_block{block{.block_content = bcontent_para{para_of(std::move(spans), *style)},
                               .block_style = style,
                               .block_type = type_original{share(std::move(stuff))},
                               .block_bg = backgrounds(*style)}});
    }

    // A paragraph of spans gathered in this walk: its spaces settled, its embedding levels found, and
    // the document's text shared. A paragraph's spans are kept for the whole run: no spare room.
    para para_of(std::vector<span> spans, css::style::style const& s) const {
        text::collapse_spaces(spans);
        text::apply_bidi(spans, *text_store, s);
        spans.shrink_to_fit();
        return para{.para_spans = std::move(spans), .para_text = text_store};
    }

    // The marker of a list item: its text from ::marker's content, or from the list style and the
    // list-item counter.
    std::vector<span> marker_spans(dom::element_ref const& e, dom::style_info const& info,
                                   css::style::style const& s) {
        auto const& decls = styledom::pseudo_declarations(styledom::computed::declared_of(info), pseudo_element::marker);
        if (decls.empty()) {
            return marker_of_list_style(s);
        }
        auto props = styledom::properties_of(decls);
        auto const ms = share(css::compute_style::compute_style(info.style_info_style,
                                                                css::compute_style::anonymous_context{}, props));
        std::vector<span> out;
        if (auto const* list = std::get_if<css::property::content_list>(&ms->content)) {
            bool start = true;
            for (auto& p : content_pieces(*list, *e, *ms, "::marker")) {
                if (auto* t = std::get_if<text_thing>(&p)) {
                    if (auto* tt = std::get_if<text_thing_text>(t)) {
                        auto more = text::prepare_text(*text_store, tt->text, text::settings_of(*ms), start);
                        std::move(more.begin(), more.end(), std::back_inserter(out));
                    } else if (auto* g = std::get_if<text_thing_gen>(t)) {
                        out.push_back(span_gen_content{std::move(g->gen)});
                    }
                }
            }
        } else {
            out = marker_of_list_style(s);
        }
        if (out.empty()) {
            return out;
        }
        // The marker's own style (colour, font, size ...) applies to what it shows.
        std::vector<span> styled;
        styled.push_back(span_nested{nested_span{.span_content = std::move(out),
                                                 .span_style = ms,
                                                 .span_context = css::compute_style::anonymous_context{},
                                                 .span_decls = declarations_in(info, decls)}});
        return styled;
    }

    // The marker that the list style gives: the list-item counter in a counter style, or a string.
    std::vector<span> marker_of_list_style(css::style::style const& s) {
        if (s.rare_props->rare_props_list_style_image) {
            auto const url = styledom::sheets::resolve_url(*doc.styled_rules.rules_bases,
                                                           *s.rare_props->rare_props_list_style_image);
            if (auto b = image_block(url, anonymous_style(share(s)), type_anonymous{})) {
                return {span_inline_block{share(std::move(*b))}};
            }
        }
        return std::visit(overloaded{
                              [](css::box::none_value const&) { return std::vector<span>{}; },
                              [&](css::box::list_style_named const& n) {
                                  auto text = format_counter(counter_value("list-item").value_or(0), n.list_style_name);
                                  text += counter_style::marker_suffix(n.list_style_name);
                                  return std::vector<span>{span_text{append_text(*text_store, text)}};
                              },
                              [&](css::box::list_style_string const& t) {
                                  return std::vector<span>{
                                      span_text{append_text(*text_store, textbuf::from_utf8(t.list_style_text))}};
                              },
                          },
                          s.rare_props->rare_props_list_style_type);
    }

    // ---- the walk ----

    std::vector<thing> text_node(std::string const& value, css::style::style const& s) {
        std::vector<thing> out;
        auto const* replace = s.text ? &s.text->text_props_vellum_text_replace : nullptr;
        auto const text = replace && !replace->empty() ? replaced(value, *replace) : value;
        out.push_back(th_span{text::prepare_text(*text_store, textbuf::from_utf8(text), text::settings_of(s), text_at)});
        return out;
    }

    // `-vellum-text-replace`: each pair in turn, every occurrence of its first string in the text
    // (left to right, not overlapping) becomes its second.
    static std::string replaced(std::string text, css::text::text_replace const& pairs) {
        for (auto const& [from, to] : pairs) {
            if (from.empty()) {
                continue;
            }
            std::string out;
            std::size_t at = 0;
            for (std::size_t hit = text.find(from); hit != std::string::npos; hit = text.find(from, at)) {
                out.append(text, at, hit - at);
                out += to;
                at = hit + from.size();
            }
            out.append(text, at, std::string::npos);
            text = std::move(out);
        }
        return text;
    }

    std::vector<thing> children(dom::element_ref const& e, css::style::style const& s) {
        std::vector<dom::child_node> list;
        {
            std::lock_guard guard(process_lock());
            list = e->dom_element_children.cell_value;
        }
        std::vector<thing> out;
        // Most children make one thing each.
        out.reserve(list.size());
        for (auto const& c : list) {
            std::vector<thing> part = std::visit(
                overloaded{
                    [&](dom::text_child const& t) { return text_node(t.child_text->dom_text_value.get(), s); },
                    [&](dom::element_child const& el) { return element(el.child_element); },
                },
                c);
            std::move(part.begin(), part.end(), std::back_inserter(out));
        }
        return out;
    }

    // ---- images ----

    // A block holding an image, or nothing when the image cannot be loaded (the table has said why).
    std::optional<block> image_block(resource::locator::locator const& url, style_ref const& style,
                                     element_type type) {
        if (!image_table) {
            warn_once("images are not loaded in this run: their alternative content is shown");
            return std::nullopt;
        }
        auto const magic = images::magic_of_keywords(style->rare_props ? style->rare_props->rare_props_vellum_image_magic
                                                                       : css::property::keyword_list{});
        auto id = image_table->get_image_id(log, url, magic);
        if (!id) {
            return std::nullopt;
        }
        return block{.block_content = bcontent_image{*id}, .block_style = style, .block_type = std::move(type)};
    }

    struct replaced_result {
        /// The image's block, when it loaded.
        std::optional<block> loaded;
        /// What shows instead: the alt text; nothing for object, whose content is its fallback.
        std::optional<std::string> alt;
        /// A drawing with a viewBox and no width or height: proportions but no size of its own.
        bool ratio_only = false;
    };

    // The replaced elements that show an image: img, input type=image, embed, and object with image
    // data. Nothing for other elements.
    std::optional<replaced_result> replaced_image(dom::dom_element const& e, dom::style_info const& info) {
        auto const& n = e.dom_element_name;
        auto const attr = [&](std::string_view a) { return styledom::tree::plain_attribute(e, a); };
        std::optional<std::string> src;
        replaced_result out;
        if (styledom::tree::is_html_name(n, "img")) {
            src = attr("src");
            out.alt = attr("alt").value_or("");
        } else if (styledom::tree::is_html_name(n, "input")) {
            auto const type = attr("type");
            if (!type || lower_ascii(*type) != "image") {
                return std::nullopt;
            }
            src = attr("src");
            out.alt = attr("alt").value_or(attr("value").value_or(""));
        } else if (styledom::tree::is_html_name(n, "embed")) {
            src = attr("src");
            out.alt = "";
        } else if (styledom::tree::is_html_name(n, "object")) {
            src = attr("data");
        } else {
            return std::nullopt;
        }
        if (src && !src->empty()) {
            auto const url = resource::locator::resolve_locator(*info.style_info_base, *src);
            out.loaded = image_block(url, info.style_info_style, type_anonymous{});
            if (auto const* bi = out.loaded ? std::get_if<bcontent_image>(&out.loaded->block_content) : nullptr;
                bi && bi->image) {
                if (auto const* drawing = std::get_if<images::svg_image>(&bi->image->image_source);
                    drawing && drawing->svg_image_block) {
                    out.ratio_only = drawing->svg_image_block->viewport_ratio_only;
                }
            }
        }
        if (!out.loaded && !out.alt) {
            // object: its content is the fallback, walked as usual.
            return out;
        }
        return out;
    }

    // An svg element in the document: its drawing, built now, is a replaced element like an image.
    replaced_result inline_svg(dom::element_ref const& e) {
        replaced_result out{.alt = ""};
        if (!image_table) {
            warn_once("images are not loaded in this run: SVG drawings are left out");
            return out;
        }
        auto drawing = svg::build::make_svg_block(
            log, e,
            svg::build::build_env{.env_source = resource::locator::locator_to_string(doc_url),
                                  .env_images = image_table,
                                  .env_fonts = image_table->svg_fonts});
        out.ratio_only = drawing.viewport_ratio_only;
        images::svg_loaded loaded{.loaded_width = drawing.viewport_width, .loaded_height = drawing.viewport_height};
        loaded.loaded_block = share(std::move(drawing));
        out.loaded = block{.block_content = bcontent_image{image_table->add_svg(loaded)},
                           .block_style = dom::get_style_info(e->dom_element_style_info.get()).style_info_style,
                           .block_type = type_anonymous{}};
        return out;
    }

    // A canvas element: what scripts drew on it, as a drawing of its size in pixels; one never drawn on
    // is an empty box of that size.
    replaced_result inline_canvas(dom::element_ref const& e) {
        replaced_result out{.alt = ""};
        if (!image_table) {
            warn_once("images are not loaded in this run: canvas drawings are left out");
            return out;
        }
        auto const size = dom::element_canvas_size(*e);
        std::shared_ptr<canvas::canvas_context const> recorder;
        if (e->dom_element_canvas_context) {
            recorder = e->dom_element_canvas_context->get().context_2d;
        }
        auto const style = dom::get_style_info(e->dom_element_style_info.get()).style_info_style;
        auto drawing = canvas::canvas_block(
            log, size.canvas_width, size.canvas_height, recorder ? recorder->content : std::vector<canvas::canvas_thing>{},
            canvas::paint_env{.paint_images = image_table, .paint_fonts = image_table->svg_fonts, .paint_element_style = style});
        images::svg_loaded loaded{.loaded_width = double(size.canvas_width), .loaded_height = double(size.canvas_height)};
        loaded.loaded_block = share(std::move(drawing));
        out.loaded = block{.block_content = bcontent_image{image_table->add_svg(loaded)},
                           .block_style = style,
                           .block_type = type_anonymous{}};
        return out;
    }

    // A math element: its formula, laid out now, is a replaced element whose baseline lies above its
    // bottom by the formula's depth.
    replaced_result inline_math(dom::element_ref const& e, style_ref const& style) {
        replaced_result out{.alt = ""};
        if (!image_table || !image_table->svg_fonts) {
            warn_once("images are not loaded in this run: MathML formulas are left out");
            return out;
        }
        auto made = mathml::make_math::make_math(log, *image_table->svg_fonts, e, style, image_table);
        auto s = *style;
        // The box has the formula's exact size in points, not the whole pixels of a drawing's own size.
        if (std::holds_alternative<css::box::auto_value>(s.width)) {
            s.width = float(made.drawing_width);
        }
        if (std::holds_alternative<css::box::auto_value>(s.height)) {
            s.height = float(made.drawing_up + made.drawing_down);
        }
        // A replaced box stands on the baseline with its bottom: lowering it by the depth puts the
        // formula's own baseline on the line's.
        float const depth = float(made.drawing_down);
        if (auto const* len = std::get_if<float>(&s.vertical_align)) {
            s.vertical_align = *len - depth;
        } else if (std::get<css::box::vertical_align_kind>(s.vertical_align) ==
                   css::box::vertical_align_kind::baseline) {
            s.vertical_align = -depth;
        }
        // The table counts a drawing's size in CSS pixels.
        images::svg_loaded loaded{.loaded_width = made.drawing_width / 0.75,
                                  .loaded_height = (made.drawing_up + made.drawing_down) / 0.75};
        loaded.loaded_block = share(std::move(made.drawing));
        out.loaded = block{.block_content = bcontent_image{image_table->add_svg(loaded)},
                           .block_style = share(std::move(s)),
                           .block_type = type_anonymous{}};
        return out;
    }

    // A math element in the MathML namespace, or one written into XHTML without the namespace, whose
    // children are then read by their local names all the same.
    static bool is_math_element(dom::element_ref const& e) {
        auto const* q = std::get_if<xml::qualified_name>(&e->dom_element_name);
        bool const mathml = q && std::holds_alternative<xml::xmlns_mathml>(q->namespace_uri) && q->local == "math";
        return mathml || styledom::tree::is_html_name(e->dom_element_name, "math");
    }

    static std::string lower_ascii(std::string text) {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return text;
    }

    // Content that later stages build; none of it makes a box yet.
    bool unsupported(dom::element_ref const& e) {
        auto const& n = e->dom_element_name;
        auto const local = std::string(styledom::tree::name_local_view(n));
        if (auto const* q = std::get_if<xml::qualified_name>(&n)) {
            if (std::holds_alternative<xml::xmlns_svg>(q->namespace_uri)) {
                warn_once("svg: SVG content is not supported yet");
                return true;
            }
            if (std::holds_alternative<xml::xmlns_mathml>(q->namespace_uri)) {
                warn_once("math: MathML content is not supported yet");
                return true;
            }
        }
        static constexpr std::string_view replaced[] = {"iframe", "video", "math", "svg"};
        for (auto const r : replaced) {
            if (styledom::tree::is_html_name(n, r)) {
                warn_once(local + ": replaced content is not supported yet");
                return true;
            }
        }
        return false;
    }

    // An absolutely positioned, fixed or floating box met among inline content stays in its paragraph
    // as an atomic item, so that the text around it isn't cut in two: layout takes it out of the line,
    // a positioned box with its static position, a float at the top of the line it stands in (a side
    // note beside the line of its call, a page number floated to the end of a contents line).
    static bool out_of_flow(block const& b) {
        auto const& s = *b.block_style;
        if (std::holds_alternative<css::box::float_page>(s.float_)) {
            return true;
        }
        if (auto const* f = std::get_if<css::box::float_kind>(&s.float_); f && *f != css::box::float_kind::none) {
            return true;
        }
        auto const* k = std::get_if<css::box::position_kind>(&s.bit_props.bit_props_position);
        return k && (*k == css::box::position_kind::absolute || *k == css::box::position_kind::fixed);
    }

    // The named strings and target ids of an element that makes no box, in its place, and those of its
    // descendants, which wait in `carried` for the next paragraph: the title in the head then names
    // the page where the text begins, without an empty block of its own in front of it.
    void hidden_values(dom::element_ref const& e, style_ref const& style, std::vector<thing>& out) {
        auto stuff = stuff_of(e, *style);
        if (!stuff.text_values.empty() || stuff.given_ids) {
            stuff.bookmark_stuff.reset();
            out.push_back(th_values{std::move(stuff)});
        }
        std::vector<dom::child_node> children;
        {
            std::lock_guard guard(process_lock());
            children = e->dom_element_children.cell_value;
        }
        for (auto const& c : children) {
            if (auto const* el = std::get_if<dom::element_child>(&c)) {
                auto const& child = el->child_element;
                auto const& child_info = dom::get_style_info(child->dom_element_style_info.get());
                if (child_info.style_info_style) {
                    hidden_values(child, child_info.style_info_style, carried);
                }
            }
        }
    }

    std::vector<thing> element(dom::element_ref const& e) {
        auto const info_ref = e->dom_element_style_info.get();
        auto const& info = dom::get_style_info(info_ref);
        style_ref style = info.style_info_style;
        check(style != nullptr, "prepack_element");
        if (e.get() == canvas_body) {
            auto copy = *style;
            copy.background = share(css::box::background{});
            style = share(std::move(copy));
        }
        // Every table nested in a cell is measured, and cut at page breaks, inside each table around
        // it; past a depth the cost of that is out of proportion to any real layout, so a table that
        // deep, and everything inside it, is laid out as blocks.
        struct table_scope {
            walker& w;
            bool was_blocks;
            bool counted = false;
            ~table_scope() {
                w.tables_as_blocks = was_blocks;
                w.table_levels -= counted ? 1 : 0;
            }
        } scope{*this, tables_as_blocks};
        if (is_table_kind(kind_of(*style))) {
            if (!tables_as_blocks && table_levels >= 2 * max_table_nesting) {
                warn_once("tables nested more than " + std::to_string(max_table_nesting) +
                          " deep are laid out as blocks");
                tables_as_blocks = true;
            }
            if (tables_as_blocks) {
                style = share(as_block(*style));
            }
        }
        auto const& s = *style;
        auto const kind = kind_of(s);
        // A table and its cell count one level each (a cell in a cell stands in an anonymous table).
        if (kind == display_kind::table || kind == display_kind::inline_table || kind == display_kind::table_cell) {
            ++table_levels;
            scope.counted = true;
        }
        if (kind == display_kind::none) {
            // No box and no counters, but named strings and target ids still count, also those of
            // the hidden descendants: the title in the head names the document in running heads.
            std::vector<thing> out;
            hidden_values(e, style, out);
            return out;
        }
        // An image element that shows its image is an atomic box; one that cannot shows its
        // alternative: the alt text of img, the content of object.
        auto const replaced = svg::build::is_svg_name(e->dom_element_name, "svg") ? std::optional(inline_svg(e))
                              : is_math_element(e) ? std::optional(inline_math(e, style))
                              : styledom::tree::is_html_name(e->dom_element_name, "canvas") ? std::optional(inline_canvas(e))
                                                   : replaced_image(*e, info);
        std::optional<std::string> alt_text;
        if (replaced && !replaced->loaded) {
            alt_text = replaced->alt;
        } else if (!replaced && unsupported(e)) {
            return {};
        }
        apply_counters(s);
        reverse_list(*e);
        auto stuff = stuff_of(e, s);
        if (replaced && replaced->loaded) {
            auto b = std::move(*replaced->loaded);
            if (!is_math_element(e)) {
                b.block_style = style;
            }
            // A drawing with proportions only is as wide as its container (its width defaults to
            // 100%), the height following, unless the style sizes it.
            if (replaced->ratio_only && std::holds_alternative<css::box::auto_value>(style->width) &&
                std::holds_alternative<css::box::auto_value>(style->height)) {
                auto sized = *style;
                sized.width = css::units::percentage{.percentage_value = 100};
                b.block_style = share(std::move(sized));
            }
            b.block_type = type_original{share(std::move(stuff))};
            b.block_bg = backgrounds(s);
            auto const k = kind_of(s).value_or(display_kind::inline_);
            if (k == display_kind::inline_ || k == display_kind::inline_block) {
                return one_thing(th_inline_block{std::move(b)});
            }
            return one_thing(th_block{std::move(b)});
        }

        bool const was_static = in_static;
        std::optional<std::string> flow_name;
        if (auto const* f = std::get_if<css::box::flow_static>(&s.rare_box->flow)) {
            flow_name = f->flow_name;
        } else if (auto const* r = std::get_if<css::box::position_running>(&s.bit_props.bit_props_position)) {
            flow_name = r->running_name;
        }
        in_static = in_static || flow_name.has_value();

        open_scope();
        if (kind != display_kind::inline_) {
            // A block's text starts a paragraph of its own.
            text_at = {};
        }
        // The marker shows the item's own number, taken before its children can open a list-item
        // counter of their own (a nested list).
        std::optional<std::vector<span>> marker;
        if (kind == display_kind::list_item) {
            marker = marker_spans(e, info, s);
        }
        auto things = pseudo_box(e, info, pseudo_element::before);
        auto inner = alt_text ? text_node(*alt_text, s) : children(e, s);
        std::move(inner.begin(), inner.end(), std::back_inserter(things));
        auto after = pseudo_box(e, info, pseudo_element::after);
        std::move(after.begin(), after.end(), std::back_inserter(things));
        close_scope();
        in_static = was_static;

        auto out = make_thing(e, info, style, std::move(stuff), std::move(things), std::move(marker));
        if (flow_name) {
            std::optional<std::size_t> first;
            for (auto& t : out) {
                if (auto* b = std::get_if<th_block>(&t)) {
                    first = first.value_or(flows.size());
                    flows.push_back({*flow_name, std::move(b->block)});
                }
            }
            // The element's place in the flow is kept, so that the page it falls on shows it in its
            // margin boxes.
            if (first && !was_static) {
                return one_thing(
                    th_values{element_stuff{.element_info = info_element{e}, .running = std::pair{*flow_name, *first}}});
            }
            return {};
        }
        return out;
    }

    std::vector<thing> make_thing(dom::element_ref const& e, dom::style_info const& info, style_ref const& style,
                                  element_stuff stuff, std::vector<thing> things,
                                  std::optional<std::vector<span>> marker) {
        auto const& s = *style;
        auto const bgs = backgrounds(s);
        auto const context = styledom::computed::context_of(*e, *info.style_info_base, info.style_info_lang);
        auto const decls = declarations_in(info, styledom::computed::declared_of(info).declared_pdecls);

        auto const footnote = [&]() -> std::optional<bool> {
            if (auto const* d = std::get_if<css::box::display_footnote>(&s.bit_props.bit_props_display)) {
                return d->display_is_inline;
            }
            if (auto const* f = std::get_if<css::box::float_footnote>(&s.float_)) {
                return f->float_is_inline;
            }
            return std::nullopt;
        }();
        if (footnote) {
            // The call left in the text shows ::footnote-call's content (by default the footnote's
            // number); the body starts with ::footnote-marker's. Both read the `footnote` counter, which
            // layout sets as it meets the call.
            span call = span_nested{nested_span{.span_style = style, .span_context = context}};
            for (auto& t : pseudo_box(e, info, pseudo_element::footnote_call)) {
                if (auto* sp = std::get_if<th_span>(&t); sp && !sp->spans.empty()) {
                    call = std::move(sp->spans.front());
                }
            }
            auto marker = pseudo_box(e, info, pseudo_element::footnote_marker);
            // A block footnote with its marker outside hangs the marker in the margin left of its
            // body, as a list item does; inside, and in an inline footnote, the marker starts the text.
            bool const hang =
                !*footnote &&
                s.rare_props->rare_props_footnote_style_position == css::box::list_style_position::outside &&
                marker.size() == 1 && std::holds_alternative<th_span>(marker.front());
            if (hang) {
                auto marker_spans = std::move(std::get<th_span>(marker.front()).spans);
                auto content = to_bcontent(std::move(things), style, e, info);
                block_list blocks;
                if (auto* b = std::get_if<bcontent_blocks>(&content); b && !b->column_id) {
                    blocks = std::move(b->blocks);
                } else {
                    std::vector<block> one;
                    one.push_back(
                        block{.block_content = std::move(content), .block_style = anonymous_style(style)});
                    blocks = std::move(one);
                }
                auto const mb =
                    share(block{.block_content = bcontent_para{para{.para_spans = std::move(marker_spans),
                                                                    .para_text = text_store}},
                                .block_style = anonymous_style(style)});
                footnote_body body = block_footnote{share(block{
                    .block_content = bcontent_list_item{list_item{marker_outside{mb}, std::move(blocks)}},
                    .block_style = style,
                    .block_type = type_original{share(std::move(stuff))},
                    .block_bg = bgs})};
                return {one_span(span_footnote{prepack::footnote{
                    .call = share(std::move(call)), .footnote_body = std::move(body), .footnote_style = style}})};
            }
            things.insert(things.begin(), std::make_move_iterator(marker.begin()),
                          std::make_move_iterator(marker.end()));
            footnote_body body = inline_footnote{};
            if (*footnote) {
                std::vector<span> spans;
                for (auto& t : things) {
                    if (auto* sp = std::get_if<th_span>(&t)) {
                        append(spans, sp->spans);
                    }
                }
                body = inline_footnote{std::move(spans)};
            } else {
                body = block_footnote{share(block{.block_content = to_bcontent(std::move(things), style, e, info),
                                                  .block_style = style,
                                                  .block_type = type_original{share(std::move(stuff))},
                                                  .block_bg = bgs})};
            }
            return {one_span(span_footnote{prepack::footnote{
                .call = share(std::move(call)), .footnote_body = std::move(body), .footnote_style = style}})};
        }

        auto const whole_block = [&]() {
            return block{.block_content = to_bcontent(std::move(things), style, e, info),
                         .block_style = style,
                         .block_type = type_original{share(std::move(stuff))},
                         .block_bg = bgs};
        };
        switch (*kind_of(s)) {
        case display_kind::inline_:
            return inline_things(std::move(things), style, context, decls, std::move(stuff), bgs);
        case display_kind::block:
        case display_kind::run_in:
            return one_thing(th_block{whole_block()});
        case display_kind::list_item: {
            bool const inside = s.list_style_position == css::box::list_style_position::inside;
            prepack::marker m = marker_inside{};
            if (inside && marker && !marker->empty()) {
                std::vector<thing> front;
                for (auto& sp : *marker) {
                    front.push_back(one_span(std::move(sp)));
                }
                front.push_back(one_span(span_sep{sep_space{}}));
                things.insert(things.begin(), std::make_move_iterator(front.begin()),
                              std::make_move_iterator(front.end()));
            } else if (!inside) {
                std::optional<ref<block>> mb;
                if (marker && !marker->empty()) {
                    marker->shrink_to_fit();
                    mb = share(block{.block_content = bcontent_para{para{.para_spans = std::move(*marker),
                                                                         .para_text = text_store}},
                                     .block_style = anonymous_style(style)});
                }
                m = marker_outside{mb};
            }
            auto content = to_bcontent(std::move(things), style, e, info);
            block_list blocks;
            if (auto* b = std::get_if<bcontent_blocks>(&content); b && !b->column_id) {
                blocks = std::move(b->blocks);
            } else {
                std::vector<block> one;
                one.push_back(block{.block_content = std::move(content), .block_style = anonymous_style(style)});
                blocks = std::move(one);
            }
            return one_thing(th_block{block{.block_content = bcontent_list_item{list_item{m, std::move(blocks)}},
                                   .block_style = style,
                                   .block_type = type_original{share(std::move(stuff))},
                                   .block_bg = bgs}});
        }
        case display_kind::inline_block:
            return one_thing(th_inline_block{whole_block()});
        case display_kind::table:
        case display_kind::inline_table: {
            block b{.block_content = bcontent_table{build_table(std::move(things), style)},
                    .block_style = style,
                    .block_type = type_original{share(std::move(stuff))},
                    .block_bg = bgs};
            std::get<bcontent_table>(b.block_content).table->table_bg = bgs;
            if (*kind_of(s) == display_kind::inline_table) {
                return one_thing(th_inline_block{std::move(b)});
            }
            return one_thing(th_block{std::move(b)});
        }
        case display_kind::table_caption:
            return one_thing(th_caption{whole_block(), s.rare_props ? s.rare_props->rare_props_caption_side
                                                           : css::box::caption_side::top});
        case display_kind::table_row_group:
        case display_kind::table_header_group:
        case display_kind::table_footer_group: {
            auto g = build_rowgroup(std::move(things), style);
            g.rowgroup_type = type_original{share(std::move(stuff))};
            g.rowgroup_bg = bgs;
            auto const k = *kind_of(s) == display_kind::table_header_group   ? group_kind::header
                           : *kind_of(s) == display_kind::table_footer_group ? group_kind::footer
                                                                            : group_kind::body;
            return one_thing(th_rowgroup{std::move(g), k});
        }
        case display_kind::table_row: {
            auto r = build_row(std::move(things), style);
            r.row_type = type_original{share(std::move(stuff))};
            r.row_bg = bgs;
            return one_thing(th_row{std::move(r)});
        }
        case display_kind::table_cell: {
            auto c = make_cell(to_blocks(std::move(things), style, e, info), style);
            c.cell_type = type_original{share(std::move(stuff))};
            c.cell_bg = bgs;
            return one_thing(th_cell{std::move(c)});
        }
        case display_kind::table_column:
            return one_thing(th_colgroup{colgroup{.colgroup_cols = std::vector<col>(column_span(*style), make_col(style)),
                                                  .colgroup_style = anonymous_style(style)}});
        case display_kind::table_column_group: {
            colgroup g{.colgroup_style = style};
            for (auto& t : things) {
                if (auto* cg = std::get_if<th_colgroup>(&t)) {
                    std::move(cg->group.colgroup_cols.begin(), cg->group.colgroup_cols.end(),
                              std::back_inserter(g.colgroup_cols));
                }
            }
            // A column group without columns stands for as many columns as its span.
            if (g.colgroup_cols.empty()) {
                g.colgroup_cols.assign(column_span(*style), make_col(style));
            }
            return one_thing(th_colgroup{std::move(g)});
        }
        case display_kind::none:
            break;
        }
        return {};
    }

    // An inline element: its spans in one nested span, or, where block children interrupt it, the runs
    // between them each in a nested span that continues the element's style.
    std::vector<thing> inline_things(std::vector<thing> things, style_ref const& style,
                                     css::compute_style::compute_style_context const& context,
                                     ref<std::vector<styledom::typed_pdecl>> const& decls, element_stuff stuff,
                                     std::vector<bg> const& bgs) {
        std::vector<thing> out;
        std::vector<span> run;
        bool first = true;
        auto const info = stuff.element_info;
        auto const flush = [&](bool force) {
            if (run.empty() && !force) {
                return;
            }
            element_type type = first ? element_type{type_original{share(stuff)}} : element_type{type_remaining{info}};
            first = false;
            out.push_back(one_span(span_nested{nested_span{.span_content = std::move(run),
                                                          .span_style = style,
                                                          .span_context = context,
                                                          .span_decls = decls,
                                                          .span_type = std::move(type),
                                                          .span_bg = bgs}}));
            run.clear();
        };
        for (auto& t : things) {
            if (auto* sp = std::get_if<th_span>(&t)) {
                append(run, sp->spans);
            } else if (auto* ib = std::get_if<th_inline_block>(&t)) {
                run.push_back(span_inline_block{share(std::move(ib->block))});
            } else if (auto* v = std::get_if<th_values>(&t)) {
                run.push_back(carrier_span(style, std::move(v->stuff)));
            } else if (auto* b = std::get_if<th_block>(&t); b && out_of_flow(b->block)) {
                run.push_back(span_inline_block{share(std::move(b->block))});
            } else {
                flush(first);
                out.push_back(std::move(t));
            }
        }
        flush(first);
        return out;
    }

    // ---- grouping ----

    // The empty span that carries the named strings and target ids of an element without a box into
    // the text. It takes the style of an anonymous box of the text around it, not the element's: the
    // element makes no box, so its font must not make the line any taller.
    span carrier_span(style_ref const& around, element_stuff stuff) {
        return span_nested{nested_span{.span_style = anonymous_style(around), .span_type = type_original{share(std::move(stuff))}}};
    }

    static bool carries_values(element_stuff const& stuff) {
        return stuff.given_ids || !stuff.text_values.empty() || stuff.bookmark_stuff || stuff.running;
    }

    // The elements of a run without text that name targets, set strings or ask for bookmarks, each as an
    // empty block in their place, since no paragraph will carry them.
    void values_blocks(std::vector<span> const& run, style_ref const& style, std::vector<block>& out) {
        for (auto const& s : run) {
            auto const* n = std::get_if<span_nested>(&s);
            if (!n) {
                continue;
            }
            if (auto const* o = std::get_if<type_original>(&n->nested->span_type);
                o && carries_values(*o->stuff)) {
                out.push_back(block{.block_content = bcontent_blocks{},
                                    .block_style = anonymous_style(style),
                                    .block_type = *o});
            }
            values_blocks(n->nested->span_content, style, out);
        }
    }

    // The blocks a list of things makes: inline runs in anonymous paragraphs, table parts in anonymous
    // tables.
    std::vector<block> group_blocks(std::vector<thing> things, style_ref const& style) {
        std::vector<block> blocks;
        std::vector<span> run;
        std::vector<thing> table_parts;
        auto const flush_run = [&] {
            text::collapse_spaces(run);
            if (text::has_content(run)) {
                std::vector<span> front;
                for (auto& t : carried) {
                    if (auto* v = std::get_if<th_values>(&t)) {
                        front.push_back(carrier_span(style, std::move(v->stuff)));
                    }
                }
                carried.clear();
                run.insert(run.begin(), std::make_move_iterator(front.begin()), std::make_move_iterator(front.end()));
                text::apply_bidi(run, *text_store, *style);
                run.shrink_to_fit();
                blocks.push_back(block{.block_content = bcontent_para{para{.para_spans = std::move(run),
                                                                           .para_text = text_store}},
                                       .block_style = anonymous_style(style)});
            } else {
                // No paragraph, but the empty elements in it may still name targets or set strings.
                values_blocks(run, style, blocks);
            }
            run.clear();
        };
        auto const flush_table = [&] {
            if (!table_parts.empty()) {
                auto const anon = anonymous_style(style);
                blocks.push_back(block{.block_content = bcontent_table{build_table(std::move(table_parts), anon)},
                                       .block_style = anon});
                table_parts.clear();
            }
        };
        for (auto& t : things) {
            if (is_table_part(t)) {
                // White space between table parts makes no cell.
                flush_run();
                table_parts.push_back(std::move(t));
                continue;
            }
            if (auto* sp = std::get_if<th_span>(&t)) {
                if (!table_parts.empty() && !text::has_content(sp->spans)) {
                    continue;
                }
                flush_table();
                append(run, sp->spans);
            } else if (auto* ib = std::get_if<th_inline_block>(&t)) {
                flush_table();
                run.push_back(span_inline_block{share(std::move(ib->block))});
            } else if (auto* v = std::get_if<th_values>(&t)) {
                // Among text it rides in the paragraph; between blocks it becomes an empty block of its
                // own when the run is flushed.
                flush_table();
                run.push_back(carrier_span(style, std::move(v->stuff)));
            } else if (auto* b = std::get_if<th_block>(&t); b && out_of_flow(b->block) && text::has_content(run)) {
                run.push_back(span_inline_block{share(std::move(b->block))});
            } else if (auto* b = std::get_if<th_block>(&t)) {
                flush_run();
                flush_table();
                blocks.push_back(std::move(b->block));
            } else if (auto* c = std::get_if<th_caption>(&t)) {
                flush_run();
                flush_table();
                blocks.push_back(std::move(c->block));
            }
        }
        flush_run();
        flush_table();
        return blocks;
    }

    bool has_columns(css::style::style const& s) const {
        return std::holds_alternative<int>(s.rare_box->column_count) ||
               std::holds_alternative<float>(s.rare_box->column_width);
    }

    bcontent to_bcontent(std::vector<thing> things, style_ref const& style, dom::element_ref const& e,
                         dom::style_info const& info) {
        // What follows a block starts a new paragraph: new words for capitalize, a new line for tabs.
        text_at = {};
        // An element without a box (display: none) that only sets strings rides along in the text.
        bool const only_inline = std::ranges::all_of(things, [](thing const& t) {
            auto const* b = std::get_if<th_block>(&t);
            return std::holds_alternative<th_span>(t) || std::holds_alternative<th_inline_block>(t) ||
                   std::holds_alternative<th_values>(t) || (b && out_of_flow(b->block));
        });
        auto blocks = group_blocks(std::move(things), style);
        bcontent out = bcontent_blocks{};
        if (only_inline && blocks.size() == 1 &&
            std::holds_alternative<type_anonymous>(blocks.front().block_type) && !has_columns(*style)) {
            // A block with nothing but inline content is itself the paragraph.
            out = std::move(blocks.front().block_content);
        } else if (has_columns(*style)) {
            out = column_content(std::move(blocks), style);
        } else {
            out = bcontent_blocks{std::move(blocks), std::nullopt};
        }
        first_line_and_letter(out, e, info);
        return out;
    }

    blocks_with_column to_blocks(std::vector<thing> things, style_ref const& style, dom::element_ref const& e,
                                 dom::style_info const& info) {
        auto content = to_bcontent(std::move(things), style, e, info);
        if (auto* b = std::get_if<bcontent_blocks>(&content)) {
            return {std::move(b->blocks), b->column_id};
        }
        std::vector<block> one;
        one.push_back(block{.block_content = std::move(content), .block_style = anonymous_style(style)});
        return {std::move(one), std::nullopt};
    }

    // A multi-column container: blocks that span all columns cut the content into runs, each run its
    // own set of columns.
    bcontent column_content(std::vector<block> blocks, style_ref const& style) {
        auto const spans_all = [](block const& b) {
            return b.block_style && b.block_style->rare_box->column_span == css::box::column_span::all;
        };
        if (std::ranges::none_of(blocks, spans_all)) {
            return bcontent_blocks{std::move(blocks), ++column_ids};
        }
        std::vector<block> out;
        std::vector<block> run;
        // Each run is a block of its own, set in the container's columns with the container's rules.
        auto run_style = css::style::inherit_from(*style);
        run_style.column_gap = style->column_gap;
        auto& run_columns = css::style::own_rare_box(run_style);
        auto const& columns = *style->rare_box;
        run_columns.column_count = columns.column_count;
        run_columns.column_width = columns.column_width;
        run_columns.column_fill = columns.column_fill;
        run_columns.column_rule_color = columns.column_rule_color;
        run_columns.column_rule_style = columns.column_rule_style;
        run_columns.column_rule_width = columns.column_rule_width;
        auto const shared_run_style = share(std::move(run_style));
        auto const flush = [&] {
            if (!run.empty()) {
                out.push_back(block{.block_content = bcontent_blocks{std::move(run), ++column_ids},
                                    .block_style = shared_run_style});
                run.clear();
            }
        };
        for (auto& b : blocks) {
            if (spans_all(b)) {
                flush();
                out.push_back(std::move(b));
            } else {
                run.push_back(std::move(b));
            }
        }
        flush();
        return bcontent_blocks{std::move(out), std::nullopt};
    }

    // The first paragraph of a block's content, looking through nested blocks.
    static para* first_para(bcontent& c) {
        if (auto* p = std::get_if<bcontent_para>(&c)) {
            return &p->para;
        }
        if (auto* b = std::get_if<bcontent_blocks>(&c); b && !b->blocks.empty()) {
            return first_para(b->blocks.own_front().block_content);
        }
        return nullptr;
    }

    void first_line_and_letter(bcontent& c, dom::element_ref const& e, dom::style_info const& info) {
        auto const& declared = styledom::computed::declared_of(info);
        auto const& line = styledom::pseudo_declarations(declared, pseudo_element::first_line);
        auto const& letter = styledom::pseudo_declarations(declared, pseudo_element::first_letter);
        if (line.empty() && letter.empty()) {
            return;
        }
        auto* p = first_para(c);
        if (!p) {
            return;
        }
        auto const context = styledom::computed::context_of(*e, *info.style_info_base, info.style_info_lang);
        if (!line.empty()) {
            // Outer blocks' first lines come first; this block is reached after its children, so its
            // declarations go in front.
            if (!p->first_line_style) {
                p->first_line_style.emplace();
            }
            p->first_line_style->insert(p->first_line_style->begin(),
                                        styled_context{context, styledom::properties_of(line)});
        }
        if (!letter.empty()) {
            split_first_letter(p->para_spans, *text_store, styled_context{context, styledom::properties_of(letter)});
        }
    }

    // Turns the first letter of the spans, with punctuation before and after it, into a first_letter span.
    static bool split_first_letter(std::vector<span>& spans, std::u32string_view text, styled_context const& ctx) {
        for (std::size_t i = 0; i < spans.size(); ++i) {
            if (auto* fl = std::get_if<span_first_letter>(&spans[i])) {
                fl->first_letter_styles->insert(fl->first_letter_styles->begin(), ctx);
                return true;
            }
            if (auto* n = std::get_if<span_nested>(&spans[i])) {
                if (split_first_letter(n->nested->span_content, text, ctx)) {
                    return true;
                }
                continue;
            }
            auto* t = std::get_if<span_text>(&spans[i]);
            if (!t || t->text.text_length == 0) {
                if (std::holds_alternative<span_sep>(spans[i])) {
                    continue;
                }
                return false;
            }
            auto const word = text_of(text, t->text);
            std::size_t n = 0;
            while (n < word.size() && unicode::is_punctuation(word[n])) {
                ++n;
            }
            if (n < word.size()) {
                ++n;
            }
            while (n < word.size() && unicode::is_punctuation(word[n])) {
                ++n;
            }
            // The letter and the rest are both parts of the word's range: the text stays where it is.
            span first = span_first_letter{std::vector<styled_context>{ctx}, sub_range(t->text, 0, n)};
            auto const rest = sub_range(t->text, n, word.size() - n);
            if (rest.text_length == 0) {
                spans[i] = std::move(first);
            } else {
                t->text = rest;
                spans.insert(spans.begin() + static_cast<std::ptrdiff_t>(i), std::move(first));
            }
            return true;
        }
        return false;
    }

    // ---- tables ----

    cell0 make_cell(blocks_with_column content, style_ref const& style) const {
        auto const& s = *style;
        return cell0{.cell_content = std::move(content),
                     .cell_style = style,
                     .cell_borders = s.borders ? *s.borders : css::box::borders{},
                     .cell_paddings = {padding_points(s.padding_top), padding_points(s.padding_right),
                                       padding_points(s.padding_bottom), padding_points(s.padding_left)},
                     .cell_background_color = s.background ? s.background->background_color
                                                           : css::color::color{css::color::transparent{}},
                     // Spans within the limits HTML gives them (1000 columns, 65534 rows), so that a
                     // hostile span cannot make a grid of billions of slots.
                     .cell_colspan = std::clamp(s.rare_box->table_column_span, 1, 1000),
                     .cell_rowspan = std::clamp(s.rare_box->table_row_span, 1, 65534)};
    }

    // The number of grid columns a column or column group element stands for, within HTML's limit.
    static std::size_t column_span(css::style::style const& s) {
        return static_cast<std::size_t>(std::clamp(s.rare_box->table_column_span, 1, 1000));
    }

    col make_col(style_ref const& style) const {
        return col{.col_style = style,
                   .col_borders = style->borders ? *style->borders : css::box::borders{},
                   .col_bg_color = style->background ? style->background->background_color
                                                     : css::color::color{css::color::transparent{}}};
    }

    static row_breaks breaks_of(css::style::style const& s) {
        return {.row_page_break_before = s.bit_props.bit_props_page_break_before,
                .row_page_break_after = s.bit_props.bit_props_page_break_after,
                .row_page_break_inside = s.bit_props.bit_props_page_break_inside,
                .row_column_break_before = s.bit_props.bit_props_column_break_before,
                .row_column_break_after = s.bit_props.bit_props_column_break_after};
    }

    // An anonymous cell around things that are no table part.
    cell0 anonymous_cell(std::vector<thing> others, style_ref const& parent) {
        auto const anon = anonymous_style(parent);
        std::vector<block> blocks = group_blocks(std::move(others), anon);
        return make_cell({std::move(blocks), std::nullopt}, anon);
    }

    static bool blank(std::vector<thing> const& things) {
        return std::ranges::all_of(things, [](thing const& t) {
            auto const* sp = std::get_if<th_span>(&t);
            return sp && !text::has_content(sp->spans);
        });
    }

    row build_row(std::vector<thing> things, style_ref const& style) {
        row r{.row_style = style, .row_breaks = breaks_of(*style)};
        std::vector<thing> others;
        auto const flush = [&] {
            if (!others.empty() && !blank(others)) {
                r.row_content.push_back(cell_cell{anonymous_cell(std::move(others), style)});
            }
            others.clear();
        };
        for (auto& t : things) {
            if (auto* c = std::get_if<th_cell>(&t)) {
                flush();
                r.row_content.push_back(cell_cell{std::move(*c->cell)});
            } else {
                others.push_back(std::move(t));
            }
        }
        flush();
        return r;
    }

    rowgroup build_rowgroup(std::vector<thing> things, style_ref const& style) {
        rowgroup g{.rowgroup_style = style};
        std::vector<thing> loose;
        auto const flush = [&] {
            if (!loose.empty() && !blank(loose)) {
                auto const anon = anonymous_style(style);
                g.rowgroup_content.push_back(build_row(std::move(loose), anon));
            }
            loose.clear();
        };
        for (auto& t : things) {
            if (auto* r = std::get_if<th_row>(&t)) {
                flush();
                g.rowgroup_content.push_back(std::move(r->row));
            } else {
                loose.push_back(std::move(t));
            }
        }
        flush();
        return g;
    }

    // A table from the things of its element: captions aside, columns apart, loose cells in anonymous
    // rows and loose rows in anonymous groups; the first header and footer group repeat, a second one
    // stays in the body.
    table_anony_box build_table(std::vector<thing> things, style_ref const& style) {
        table_anony_box box{.table_style = style};
        auto& t = box.table;
        std::vector<thing> loose;
        auto const flush = [&] {
            if (!loose.empty() && !blank(loose)) {
                t.body.push_back(build_rowgroup(std::move(loose), anonymous_style(style)));
            }
            loose.clear();
        };
        for (auto& th : things) {
            if (auto* g = std::get_if<th_rowgroup>(&th)) {
                flush();
                if (g->kind == group_kind::header && !t.header) {
                    t.header = std::move(g->group);
                } else if (g->kind == group_kind::footer && !t.footer) {
                    t.footer = std::move(g->group);
                } else {
                    t.body.push_back(std::move(g->group));
                }
            } else if (auto* c = std::get_if<th_caption>(&th)) {
                flush();
                (c->side == css::box::caption_side::bottom ? box.caption_bottoms : box.caption_tops)
                    .push_back(std::move(c->block));
            } else if (auto* cg = std::get_if<th_colgroup>(&th)) {
                t.colgroups.push_back(std::move(cg->group));
            } else {
                loose.push_back(std::move(th));
            }
        }
        flush();
        return box;
    }
};

// ---- page sections ----
//
// A page section is a run of content that shares one page name; it also starts anew where a block
// opens a page group or changes the page or pages counter. The cut may fall deep in the tree: a
// chapter with its own page name inside a wrapping div splits that div, and every ancestor of the cut,
// into a part before it and a part after it. Each part is a copy of the ancestor: the first keeps the
// element's identity (its counters, strings, ids, bookmark), the later ones are continuations, as if
// a page break had split the box. Lists, tables and multi-column containers are not cut into.

using css::box::page_break;

css::box::page name_of(block const& b, css::box::page const& inherited) {
    return b.block_style && b.block_style->rare_props->rare_props_page
               ? b.block_style->rare_props->rare_props_page
               : inherited;
}

std::optional<page_reset> page_counter_change(css::style::style const& s, std::string const& name) {
    for (auto const& [n, v] : s.rare_box->counter_reset) {
        if (n == name) {
            return page_reset_to{v};
        }
    }
    for (auto const& [n, v] : s.rare_box->counter_increment) {
        if (n == name) {
            return page_increment_by{v};
        }
    }
    return std::nullopt;
}

bool starts_section(block const& b) {
    if (!b.block_style) {
        return false;
    }
    auto const& s = *b.block_style;
    return s.rare_box->page_group == css::box::page_group::start || page_counter_change(s, "page") ||
           page_counter_change(s, "pages");
}

// Floats and absolutely positioned boxes don't decide where the flow's pages change.
bool in_flow(block const& b) {
    if (!b.block_style) {
        return true;
    }
    auto const& s = *b.block_style;
    auto const* k = std::get_if<css::box::position_kind>(&s.bit_props.bit_props_position);
    bool const positioned =
        k && (*k == css::box::position_kind::absolute || *k == css::box::position_kind::fixed);
    return s.float_ == css::box::floaty{css::box::float_kind::none} && !positioned;
}

// The children a section cut may go between: plain block containers only.
block_list const* cuttable_children(block const& b) {
    auto const* bs = std::get_if<bcontent_blocks>(&b.block_content);
    return bs && !bs->column_id ? &bs->blocks : nullptr;
}

// Whether a cut falls inside a block whose used page name is `name`.
bool cut_inside(block const& b, css::box::page const& name) {
    auto const* children = cuttable_children(b);
    if (!children) {
        return false;
    }
    for (auto const& c : *children) {
        if (!in_flow(c)) {
            continue;
        }
        auto const inner = name_of(c, name);
        if (inner != name || starts_section(c) || cut_inside(c, inner)) {
            return true;
        }
    }
    return false;
}

// Of two breaks that fall at one place, the stronger: a side, then "always", then "avoid"; the outer
// block's wins a tie.
page_break stronger_break(page_break outer, page_break inner) {
    auto const rank = [](page_break b) {
        switch (b) {
        case page_break::left:
        case page_break::right:
            return 3;
        case page_break::always:
            return 2;
        case page_break::avoid:
        case page_break::avoid_page:
        case page_break::avoid_column:
            return 1;
        case page_break::auto_:
            break;
        }
        return 0;
    };
    return rank(inner) > rank(outer) ? inner : outer;
}

// Two changes of a page counter by blocks that start at one place, the outer first.
std::optional<page_reset> then_reset(std::optional<page_reset> const& outer,
                                     std::optional<page_reset> const& inner) {
    if (!outer || !inner) {
        return outer ? outer : inner;
    }
    if (auto const* by = std::get_if<page_increment_by>(&*inner)) {
        return std::visit(
            overloaded{
                [&](page_reset_to const& t) -> page_reset {
                    return page_reset_to{clamped_sum(t.reset, by->increment)};
                },
                [&](page_increment_by const& i) -> page_reset {
                    return page_increment_by{clamped_sum(i.increment, by->increment)};
                },
            },
            *outer);
    }
    return inner;
}

// What the blocks that begin at a cut ask of the section they begin.
struct cut_start {
    page_break start_break_before = page_break::auto_;
    std::optional<page_reset> start_page_reset;
    std::optional<page_reset> start_pages_reset;
    css::box::page_group start_group = css::box::page_group::auto_;
};

// The children that begin and end a block's content in the flow, if it has children a cut may go between.
block const* first_in_flow(block const& b) {
    auto const* children = cuttable_children(b);
    if (!children) {
        return nullptr;
    }
    auto const it = std::ranges::find_if(*children, in_flow);
    return it == children->end() ? nullptr : &*it;
}

block const* last_in_flow(block const& b) {
    auto const* children = cuttable_children(b);
    block const* last = nullptr;
    if (children) {
        for (auto const& c : *children) {
            if (in_flow(c)) {
                last = &c;
            }
        }
    }
    return last;
}

// A break in front of a first child falls in front of its parent too, and one after a last child after
// its parent.
page_break leading_before(block const& b) {
    auto const own = b.block_style ? b.block_style->bit_props.bit_props_page_break_before : page_break::auto_;
    auto const* first = first_in_flow(b);
    return first ? stronger_break(own, leading_before(*first)) : own;
}

page_break trailing_after(block const& b) {
    auto const own = b.block_style ? b.block_style->bit_props.bit_props_page_break_after : page_break::auto_;
    auto const* last = last_in_flow(b);
    return last ? stronger_break(own, trailing_after(*last)) : own;
}

cut_start start_of(block const& b) {
    if (!b.block_style) {
        return {};
    }
    auto const& s = *b.block_style;
    return {.start_break_before = s.bit_props.bit_props_page_break_before,
            .start_page_reset = page_counter_change(s, "page"),
            .start_pages_reset = page_counter_change(s, "pages"),
            .start_group = s.rare_box->page_group};
}

cut_start then_start(cut_start const& outer, cut_start const& inner) {
    return {.start_break_before = stronger_break(outer.start_break_before, inner.start_break_before),
            .start_page_reset = then_reset(outer.start_page_reset, inner.start_page_reset),
            .start_pages_reset = then_reset(outer.start_pages_reset, inner.start_pages_reset),
            .start_group =
                outer.start_group == css::box::page_group::start ? outer.start_group : inner.start_group};
}

page_break break_after_of(block const& b) {
    return b.block_style ? b.block_style->bit_props.bit_props_page_break_after : page_break::auto_;
}

// A block, or the part of one, that lies in one section.
struct piece {
    block piece_block;
    css::box::page piece_name;
    cut_start piece_start;
    /// The break after the blocks that end with the piece.
    page_break piece_after = page_break::auto_;
    /// Whether the piece opens a section even under the same page name.
    bool piece_starts = false;
};

std::optional<element_info> info_of(element_type const& t) {
    if (auto const* o = std::get_if<type_original>(&t)) {
        return o->stuff->element_info;
    }
    if (auto const* r = std::get_if<type_remaining>(&t)) {
        return r->info;
    }
    if (auto const* o = std::get_if<type_overflowing>(&t)) {
        return o->info;
    }
    return std::nullopt;
}

// The style of a part that goes on in the next section: under `slice` its bottom border and padding
// are drawn only where the box really ends.
style_ref continued_style(style_ref const& s) {
    if (!s || s->rare_box->box_decoration_break != css::box::box_decoration_break::slice) {
        return s;
    }
    auto copy = *s;
    if (copy.borders) {
        auto borders = *copy.borders;
        borders.borders_bottom.border_width = 0;
        borders.borders_bottom.border_style = css::box::line_style::none;
        copy.borders = share(std::move(borders));
    }
    copy.padding_bottom = 0.0f;
    copy.margin_bottom = 0.0f;
    return share(std::move(copy));
}

bool values_only(block const& b) {
    auto const* bs = std::get_if<bcontent_blocks>(&b.block_content);
    return bs && bs->blocks.empty() && std::holds_alternative<type_original>(b.block_type) && b.block_style &&
           *b.block_style == css::style::inherit_from(*b.block_style);
}

std::vector<piece> pieces_of(block const& b, css::box::page const& name) {
    if (!cut_inside(b, name)) {
        // Nothing inside is cut, so the breaks of its first and last descendants are the piece's.
        auto start = start_of(b);
        start.start_break_before = leading_before(b);
        return {piece{.piece_block = b,
                      .piece_name = name,
                      .piece_start = start,
                      .piece_after = trailing_after(b),
                      .piece_starts = starts_section(b)}};
    }

    // The children's pieces, gathered into runs that share a section. A run is led by its first piece in
    // the flow; floats and positioned boxes go with the run they stand in, or the first one.
    struct run {
        std::vector<piece> run_pieces;
        std::size_t run_lead = 0;
    };

    std::vector<run> runs;
    std::vector<piece> floating;
    for (auto const& c : *cuttable_children(b)) {
        // An empty block that only carries named strings or target ids (a hidden title, an empty
        // anchor) takes no room and starts no section: like a float, it goes with the run it stands in.
        if (!in_flow(c) || values_only(c)) {
            auto& to = runs.empty() ? floating : runs.back().run_pieces;
            to.push_back(piece{.piece_block = c, .piece_name = name});
            continue;
        }
        for (auto& p : pieces_of(c, name_of(c, name))) {
            bool const joins = !runs.empty() && !p.piece_starts &&
                               p.piece_name == runs.back().run_pieces[runs.back().run_lead].piece_name;
            if (!joins) {
                std::size_t const lead = floating.size();
                runs.push_back(run{.run_pieces = std::move(floating), .run_lead = lead});
                floating.clear();
            }
            runs.back().run_pieces.push_back(std::move(p));
        }
    }
    std::vector<piece> out;
    for (std::size_t k = 0; k < runs.size(); ++k) {
        auto& r = runs[k];
        bool const first = k == 0;
        bool const last = k + 1 == runs.size();
        piece const& head = r.run_pieces[r.run_lead];
        auto const head_name = head.piece_name;
        auto const head_start = head.piece_start;
        bool const head_starts = head.piece_starts;
        auto const tail = std::find_if(r.run_pieces.rbegin(), r.run_pieces.rend(),
                                       [](piece const& p) { return in_flow(p.piece_block); });
        auto const tail_after = tail->piece_after;
        std::vector<block> blocks;
        blocks.reserve(r.run_pieces.size());
        for (auto& p : r.run_pieces) {
            blocks.push_back(std::move(p.piece_block));
        }
        block part{.block_content = bcontent_blocks{std::move(blocks), std::nullopt},
                   .block_style = last ? b.block_style : continued_style(b.block_style),
                   .block_type = first ? b.block_type : element_type{type_remaining{info_of(b.block_type)}},
                   .block_bg = b.block_bg};
        out.push_back(piece{.piece_block = std::move(part),
                            .piece_name = head_name,
                            .piece_start = first ? then_start(start_of(b), head_start) : head_start,
                            .piece_after = last ? stronger_break(break_after_of(b), tail_after) : tail_after,
                            .piece_starts = (first && starts_section(b)) || head_starts});
    }
    return out;
}

std::vector<page_sec> sections_of(block const& root) {
    auto pieces = pieces_of(root, name_of(root, std::nullopt));
    std::vector<page_sec> out;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        auto& p = pieces[i];
        page_desc const desc{.prev_page_break_after = i > 0 ? pieces[i - 1].piece_after : page_break::auto_,
                             .sec_page_break_before = p.piece_start.start_break_before,
                             .sec_page_break_after = p.piece_after,
                             .sec_page_counter_reset = p.piece_start.start_page_reset,
                             .sec_pages_counter_reset = p.piece_start.start_pages_reset,
                             .sec_page_name = p.piece_name,
                             .sec_page_group = p.piece_start.start_group,
                             .sec_start = i == 0};
        std::vector<block> one;
        one.push_back(std::move(p.piece_block));
        out.push_back(page_sec{desc, std::move(one)});
    }
    return out;
}

} // namespace

namespace {

bool no_background(css::style::style const& s) {
    if (!s.background) {
        return true;
    }
    auto const& b = *s.background;
    if (!std::holds_alternative<css::color::transparent>(b.background_color)) {
        return false;
    }
    return std::ranges::all_of(b.background_image,
                               [](auto const& i) { return std::holds_alternative<css::box::none_value>(i); });
}

// The first `body` child of the HTML root.
std::optional<dom::element_ref> html_body(dom::dom_element const& root) {
    std::vector<dom::child_node> children;
    {
        std::lock_guard guard(process_lock());
        children = root.dom_element_children.cell_value;
    }
    for (auto const& c : children) {
        if (auto const* el = std::get_if<dom::element_child>(&c)) {
            if (styledom::tree::is_html_name(el->child_element->dom_element_name, "body")) {
                return el->child_element;
            }
        }
    }
    return std::nullopt;
}

} // namespace

pack_document prepack_document(log::log const& log,
                               styledom::styled_document const& doc,
                               images::images* image_table,
                               script_calls const* scripts) {
    auto const& dom_doc = *doc.styled_dom;
    walker w{.log = log, .doc = doc, .doc_url = dom_doc.dom_document_url, .image_table = image_table, .scripts = scripts};
    auto const root = dom::document_element(dom_doc);
    check(root.has_value(), "prepack_document");
    auto root_style = styledom::computed::style_of(**root);
    // The canvas takes the root's background; an HTML root with none takes the body's instead, and
    // the body then paints none of its own.
    if (no_background(*root_style) && styledom::tree::is_html_name((*root)->dom_element_name, "html")) {
        if (auto const body = html_body(**root)) {
            auto const body_style = styledom::computed::style_of(**body);
            if (!no_background(*body_style)) {
                auto canvas = *root_style;
                canvas.background = body_style->background;
                root_style = share(std::move(canvas));
                w.canvas_body = body->get();
            }
        }
    }
    auto things = w.element(*root);
    // The root is blockified by the style computation; whatever it made is gathered into one block.
    block root_block;
    if (things.size() == 1 && std::holds_alternative<th_block>(things.front())) {
        root_block = std::move(std::get<th_block>(things.front()).block);
    } else {
        root_block = block{.block_content = bcontent_blocks{w.group_blocks(std::move(things), root_style)},
                           .block_style = root_style};
    }
    // The text grew by doubling as the walk went; what layout keeps is exactly what the paragraphs hold.
    w.text_store->shrink_to_fit();
    return pack_document{.pack_doc_name = dom_doc.dom_document_url,
                         .pack_doc_pages = doc.styled_rules.rules_env.pages,
                         .pack_doc_content = sections_of(root_block),
                         .doc_background = root_style,
                         .static_flows = std::move(w.flows),
                         .pack_doc_target_keys = std::move(w.target_keys)};
}

} // namespace vellum::prepack::walk
