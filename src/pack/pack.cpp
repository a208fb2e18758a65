#include "pack/pack.hpp"

#include "css/page.hpp"
#include "pack/block.hpp"
#include "pack/blocks.hpp"
#include "pack/footnotes.hpp"
#include "pack/knuth.hpp"
#include "pack/margin_collapsing.hpp"
#include "pack/page_floats.hpp"
#include "pack/page_info.hpp"
#include "pack/paper.hpp"
#include "pack/positioned.hpp"
#include "pack/static.hpp"
#include "util/result.hpp"

#include <algorithm>

namespace vellum::pack {

namespace {

namespace mc = margin_collapsing;
using css::box::page_break;

// What a pass learns from its pages about targets and bookmarks.
struct found_places {
    /// Shared by the pass's documents (the first place of a target wins, also over later documents),
    /// and read by lookups as the pass goes.
    std::shared_ptr<prepack::targets::pass_targets> targets =
        std::make_shared<prepack::targets::pass_targets>();
    std::vector<packed_bookmark> bookmarks;
    /// The targets in the order they were first placed, so that a part of the pass can tell its own.
    std::vector<prepack::targets::target_key> placed_order;
};

// The counters and strings that the elements on a page set, gathered in tree order, and the places
// of the page's targets and bookmarks.
struct values_walk {
    prepack::page_values& values;
    found_places* found = nullptr;
    /// The page, whose shared values are brought up to date before a bookmark's label is evaluated.
    page_info* page = nullptr;
    bool values_changed = false;

    void place(prepack::element_stuff const& stuff, float x, float y) {
        if (found == nullptr || page == nullptr) {
            return;
        }
        auto const& g = page->general;
        if (stuff.given_ids) {
            prepack::targets::target_place const where{
                .num = {.pdf_page_num = g.pdf_page_num,
                        .document_page_num = g.document_page_num,
                        .user_page_num = g.user_page_num},
                .y = y};
            for (auto const& id : stuff.given_ids->second) {
                auto const key = prepack::targets::key_of(stuff.given_ids->first.locator_url, id.id);
                bool const first_place = found->targets->page_nums.emplace(key, where).second;
                found->targets->counters.emplace(key, stuff.counter_scopes);
                if (first_place) {
                    found->placed_order.push_back(key);
                }
            }
        }
        if (stuff.bookmark_stuff) {
            if (values_changed) {
                page->general.page_values = share(values);
                values_changed = false;
            }
            auto const& [order, b] = *stuff.bookmark_stuff;
            found->bookmarks.push_back({.bookmark_order = order,
                                        .bookmark_level = b.pre_bookmark_level,
                                        .bookmark_state = b.pre_bookmark_state,
                                        .bookmark_label = textbuf::to_utf8(static_::things_text(*page, b.pre_bookmark_content)),
                                        .bookmark_page = g.pdf_page_num,
                                        .bookmark_x = x,
                                        .bookmark_y = y,
                                        .bookmark_url = b.pre_bookmark_url,
                                        .bookmark_target = b.pre_bookmark_target});
        }
    }

    void element(prepack::element_type const& t, float x, float y) {
        auto const* o = std::get_if<prepack::type_original>(&t);
        if (!o) {
            return;
        }
        place(*o->stuff, x, y);
        for (auto const& [name, text] : o->stuff->text_values) {
            values.curr_tvalues[name].push_back(text);
            values_changed = true;
        }
        if (!o->stuff->counter_scopes.empty()) {
            for (auto const& [name, value] : o->stuff->counter_scopes.front()) {
                values.curr_cvalues[name].push_back(value);
                values_changed = true;
            }
        }
        if (o->stuff->running) {
            values.curr_fvalues[o->stuff->running->first].push_back(o->stuff->running->second);
            values_changed = true;
        }
    }

    void spans(std::vector<spanbox> const& content, float base) {
        for (auto const& s : content) {
            if (auto const* n = std::get_if<ref<nested_spanbox>>(&s)) {
                element((*n)->spanbox_type, (*n)->spanbox_x, base + (*n)->spanbox_y);
                spans((*n)->spanbox_content, base);
            } else if (auto const* ib = std::get_if<inline_box>(&s)) {
                box(*ib->inline_box_box, base);
            }
        }
    }

    // An inline block's y is relative to its line's baseline.
    void box(pack::box const& b, float base = 0) {
        element(b.box_type, b.box_x, base + b.box_y);
        content(b.box_content);
    }

    void content(box_content const& c) {
        std::visit(overloaded{
                       [&](with_abs const& w) {
                           content(*w.with_abs_content);
                           for (auto const& b : w.with_abs_boxes) {
                               box(*b);
                           }
                       },
                       [&](boxes const& bs) {
                           for (auto const& b : bs.boxes_list) {
                               box(*b);
                           }
                       },
                       [&](table_anony_box const& t) {
                           for (auto const& b : t.table_anony_boxes) {
                               box(*b);
                           }
                       },
                       [&](table const& t) {
                           for (auto const& r : t.table_box.rows) {
                               box(*r.row_content);
                           }
                       },
                       [&](para const& p) {
                           for (auto const& item : p.para_lines) {
                               if (auto const* l = std::get_if<linebox>(&item)) {
                                   spans(l->linebox_content, l->linebox_base);
                               } else if (auto const* f = std::get_if<float_box>(&item)) {
                                   box(*f->float_box_box);
                               }
                           }
                       },
                       [&](list const& l) {
                           if (l.list_box.markerbox) {
                               box(**l.list_box.markerbox);
                           }
                           box(*l.list_box.list_content);
                       },
                       [&](column const& c) {
                           for (auto const& b : c.column_box.column_content) {
                               box(*b);
                           }
                       },
                       [&](image const&) {},
                   },
                   c);
    }
};

// What the next page inherits: the last value of each counter and string seen so far.
void carry_values(prepack::page_values& v) {
    for (auto const& [name, list] : v.curr_tvalues) {
        if (!list.empty()) {
            v.prev_tvalues[name] = list.back();
        }
    }
    for (auto const& [name, list] : v.curr_cvalues) {
        if (!list.empty()) {
            v.prev_cvalues[name] = list.back();
        }
    }
    for (auto const& [name, list] : v.curr_fvalues) {
        if (!list.empty()) {
            v.prev_fvalues[name] = list.back();
        }
    }
    v.curr_tvalues.clear();
    v.curr_cvalues.clear();
    v.curr_fvalues.clear();
}

bool shows_content(css::page::page_style const& ps, css::page_rule::region r) {
    if (!css::page::region_declarations_of(ps, r)) {
        return false;
    }
    auto const s = css::page::region_style(ps, r);
    return std::holds_alternative<css::property::content_list>(s.content);
}

// The rules that may apply to the page of this number in its document. A page's place in its group
// restarts with each run of named pages, so that "chapter:first" is the first page of each chapter; an
// unnamed ":first" is the document's first page only, and its rules leave the others.
css::page::pages page_rules_of(css::page::pages const& rules, int document_page, int group_page) {
    if (document_page == group_page) {
        return rules;
    }
    css::page::pages out;
    for (auto const& rule : rules) {
        auto const& p = rule.rule_page;
        bool const unnamed_nth =
            !p.page_name && std::ranges::any_of(p.page_classes, [&](css::page::page_class const& c) {
                auto const* n = std::get_if<css::page::nth_page>(&c);
                return n && n->page_number != document_page;
            });
        if (!unnamed_nth) {
            out.push_back(rule);
        }
    }
    return out;
}

// The margins that open the first page of a section. With nothing drawn above the body, the page's
// own top margin counts as a margin already taken, and the first block's top margin collapses with it.
mc::gap section_start_gap(css::page::page_style const& ps, paper::paper_areas const& pa) {
    using css::page_rule::region;
    auto const& used = pa.used_paper_style;
    bool const edge_above = used.used_borders.borders_top.border_width > 0 || used.used_padding_top > 0;
    if (edge_above || shows_content(ps, region::top_left) || shows_content(ps, region::top_center) ||
        shows_content(ps, region::top_right)) {
        return mc::normal{};
    }
    auto const* m = std::get_if<css::used_style::used_margins>(&used.used_margins);
    float const x = m ? m->margin_top.value_or(0) : 0;
    return mc::normal{.positive = x, .negative = 0, .committed = x};
}

pack::areas::area grown(pack::areas::area a, float top, float right, float bottom, float left) {
    return {.top = a.top + top, .bottom = a.bottom - bottom, .left = a.left - left, .right = a.right + right};
}

// How far a pass has come, counted in blocks, for the progress reports of a controlling program.
struct progress {
    bool progress_on = false;
    std::size_t progress_total = 0;
    /// The blocks of every section begun so far.
    std::size_t progress_started = 0;
};

// Progress counts the blocks of a section's main level: the first level, down through the blocks that
// wrap everything (html, body, a lone wrapping div), that holds more than one block. It is found on the
// section as box generation made it; what is left of the section after a page has one part of each
// wrapper above that level, so its count there is a few steps away, however long the book.
std::size_t main_level(prepack::block_list const& list) {
    std::size_t depth = 0;
    for (auto const* l = &list; l->size() == 1; ++depth) {
        auto const* bs = std::get_if<prepack::bcontent_blocks>(&l->front().block_content);
        if (!bs) {
            break;
        }
        l = &bs->blocks;
    }
    return depth;
}

std::size_t blocks_at(prepack::block_list const& list, std::size_t depth) {
    auto const* l = &list;
    for (std::size_t i = 0; i < depth && l->size() == 1; ++i) {
        auto const* bs = std::get_if<prepack::bcontent_blocks>(&l->front().block_content);
        if (!bs) {
            return 1;
        }
        l = &bs->blocks;
    }
    return l->size();
}

std::size_t count_blocks(prepack::block_list const& list) {
    return blocks_at(list, main_level(list));
}

// The horizontal extent of what was packed: the outer edges of boxes, and of the text, spans and
// inline boxes on lines (a word that can't break runs past its line's end). Outside list markers
// hang in the margin by design and don't count.
struct extent_walk {
    float extent_left = 0;
    float extent_right = 0;

    void cover(float left, float right) {
        extent_left = std::min(extent_left, left);
        extent_right = std::max(extent_right, right);
    }

    void spans(std::vector<spanbox> const& content) {
        for (auto const& s : content) {
            std::visit(overloaded{
                           [&](ref<nested_spanbox> const& n) {
                               cover(n->spanbox_x, n->spanbox_x + n->spanbox_w);
                               spans(n->spanbox_content);
                           },
                           [&](inline_box const& ib) { box(*ib.inline_box_box); },
                           [&](charsbox const& c) {
                               if (!std::holds_alternative<newline>(c.charsbox_type)) {
                                   cover(c.charsbox_x, c.charsbox_x + c.charsbox_w);
                               }
                           },
                       },
                       s);
        }
    }

    void box(pack::box const& b) {
        cover(b.box_x, b.box_x + b.box_w);
        content(b.box_content);
    }

    void boxes_of(std::vector<ref<pack::box>> const& list) {
        for (auto const& b : list) {
            box(*b);
        }
    }

    void content(box_content const& c) {
        std::visit(overloaded{
                       [&](with_abs const& w) {
                           content(*w.with_abs_content);
                           boxes_of(w.with_abs_boxes);
                       },
                       [&](boxes const& bs) { boxes_of(bs.boxes_list); },
                       [&](table_anony_box const& t) { boxes_of(t.table_anony_boxes); },
                       [&](table const& t) {
                           for (auto const& r : t.table_box.rows) {
                               box(*r.row_content);
                           }
                       },
                       [&](para const& p) {
                           for (auto const& item : p.para_lines) {
                               if (auto const* l = std::get_if<linebox>(&item)) {
                                   spans(l->linebox_content);
                               } else if (auto const* f = std::get_if<float_box>(&item)) {
                                   box(*f->float_box_box);
                               }
                           }
                       },
                       [&](list const& l) { box(*l.list_box.list_content); },
                       [&](column const& c) { boxes_of(c.column_box.column_content); },
                       [&](image const& i) {
                           cover(i.image_box.imagebox_pos.x,
                                 i.image_box.imagebox_pos.x + i.image_box.imagebox_size.w);
                       },
                   },
                   c);
    }
};

// How wide the packed content is, measured against the body it was packed into: the width from the
// body's left edge, or to its right edge, that holds all of it.
float content_width(std::vector<ref<box>> const& content, areas::area const& body) {
    extent_walk w{.extent_left = body.left, .extent_right = body.right};
    w.boxes_of(content);
    return w.extent_right - w.extent_left;
}

// The section's blocks poured into the body area of the paper.
blocks::blocks_out flow_body(page_info info,
                             css::page::page_style const& ps,
                             paper::paper_areas const& pa,
                             areas::area const& area,
                             prepack::block_list const& blocks,
                             bool section_first) {
    info.general.body_area = area;
    areas::areas const body{.container = area, .available = {area}};
    mc::gap const gap = section_first ? section_start_gap(ps, pa) : mc::gap{mc::margin_eater{}};
    return blocks::pack_blocks(std::move(info), blocks, gap, body);
}

using footnotes::footnote_share;

// With -vellum-shrink-to-fit: auto a page whose content holds something wider than the body (a long
// word, a wide fixed-width block) is packed again in a body as much wider, and painted scaled down so
// that it fits the paper. A wider body also takes more content, which may be wider again: the
// measuring repeats a few times, the factor only growing.
constexpr int shrink_rounds = 4;

struct doc_state {
    pass_input const& in;
    prepack::pack_document const& doc;
    progress& prog;
    css::page::pages rules;
    page_info info;
    std::vector<ref<packed_page>> pages;
    std::vector<int> totals;
    std::size_t group = 0;
    int group_page = 1;
    bool uses_pages = false;
    found_places found;
    /// The footnotes, or rests of them, that go on to the next page.
    std::vector<page_footnote> footnotes_carried;
    /// The page floats that wait for the next page.
    std::vector<page_float> floats_carried;
    /// The document's fixed boxes, in document order: each repeats on every page.
    std::vector<prepack::block> fixed;
    /// The document's place among the pass's documents.
    std::size_t doc_index = 0;
    /// The pass's record of what was looked up; a section being recorded notes its own first.
    std::shared_ptr<prepack::targets::looked_up> pass_looked_up;
};

void merge_looked_up(prepack::targets::looked_up& into, prepack::targets::looked_up const& from) {
    into.pages.insert(from.pages.begin(), from.pages.end());
    into.counters.insert(from.counters.begin(), from.counters.end());
    into.pages_total = into.pages_total || from.pages_total;
    into.unanswered = into.unanswered || from.unanswered;
}

// ---- Sections taken again from the pass before -----------------------------------------------------------
//
// A document whose contents page shows page numbers is packed twice, but only the pages that look up
// what moved can change: a section (a piece of the document that starts on a page of its own) that
// starts in the same state as in the pass before, with nothing carried into it, and finds the same
// answers to what it looked up, makes the same pages. Its pages as the pass before painted them are
// taken again, and what it found is added as if it had been packed.

section_state state_now(doc_state const& st) {
    auto const& g = st.info.general;
    return section_state{.state_pdf_page = g.pdf_page_num,
                         .state_document_page = g.document_page_num,
                         .state_user_page = g.user_page_num,
                         .state_pages_counter = g.user_pages_counter,
                         .state_footnote_counter = g.footnote_counter,
                         .state_values = *g.page_values,
                         .state_group = st.group,
                         .state_group_page = st.group_page,
                         .state_group_total = st.totals[st.group]};
}

// Nothing waits to go on the next page: no footnote, page float or absolutely positioned box.
bool nothing_carried(doc_state const& st) {
    auto const& a = st.info.accum;
    return st.footnotes_carried.empty() && st.floats_carried.empty() && a.abs_blocks.empty() &&
           a.page_floats.empty() && a.column_floats.empty() && !a.page_footnotes && !a.column_footnotes;
}

// What the pass tells of a target, as its lookups answer: its page, and the counters there; nothing
// for one that neither the pass before nor this one so far placed.
std::optional<prepack::targets::page_num> page_answer(run_shared const& run,
                                                      prepack::targets::target_key const& key) {
    auto const* found = target_answer(run, key);
    return found == nullptr ? std::nullopt : std::optional(found->num);
}

std::optional<prepack::counter_scopes> counters_answer_of(run_shared const& run,
                                                          prepack::targets::target_key const& key) {
    auto const* found = counters_answer(run, key);
    return found == nullptr ? std::nullopt : std::optional(*found);
}

// Whether this pass gives the section the answers it had in the pass that recorded it.
bool same_answers(doc_state const& st, section_record const& r) {
    auto const& run = *st.info.general.run;
    for (auto const& [key, was] : r.record_looked_pages) {
        if (page_answer(run, key) != was) {
            return false;
        }
    }
    for (auto const& [key, was] : r.record_looked_counters) {
        auto const* now = counters_answer(run, key);
        if (now == nullptr ? was.has_value() : (!was || *was != *now)) {
            return false;
        }
    }
    return !r.record_looked_totals || *r.record_looked_totals == st.in.pass_user_pages_totals;
}

// The part of a section as the pass before packed it, when its pages can be taken again: the state
// after it is restored and what it found and looked up is noted.
section_record const* take_section_again(doc_state& st, section_key const& key) {
    if (!st.in.pass_sections_before || !st.in.pass_take_pages_before || !nothing_carried(st)) {
        return nullptr;
    }
    auto const found = st.in.pass_sections_before->find(key);
    if (found == st.in.pass_sections_before->end()) {
        return nullptr;
    }
    auto const& r = found->second;
    if (r.record_entry != state_now(st) || !same_answers(st, r) ||
        !st.in.pass_take_pages_before(r.record_first_page, r.record_page_count)) {
        return nullptr;
    }
    auto& g = st.info.general;
    auto const& out = r.record_exit;
    g.pdf_page_num = out.state_pdf_page;
    g.document_page_num = out.state_document_page;
    g.user_page_num = out.state_user_page;
    g.user_pages_counter = out.state_pages_counter;
    g.footnote_counter = out.state_footnote_counter;
    g.page_values = share(out.state_values);
    st.group_page = out.state_group_page;
    st.totals[st.group] = out.state_group_total;
    for (auto const& [key, place] : r.record_found_pages) {
        if (st.found.targets->page_nums.emplace(key, place).second) {
            st.found.placed_order.push_back(key);
        }
    }
    for (auto const& [key, scopes] : r.record_found_counters) {
        st.found.targets->counters.emplace(key, scopes);
    }
    st.found.bookmarks.insert(st.found.bookmarks.end(), r.record_bookmarks.begin(), r.record_bookmarks.end());
    st.uses_pages = st.uses_pages || r.record_uses_pages;
    if (st.pass_looked_up) {
        for (auto const& [key, _] : r.record_looked_pages) {
            st.pass_looked_up->pages.insert(key);
        }
        for (auto const& [key, _] : r.record_looked_counters) {
            st.pass_looked_up->counters.insert(key);
        }
        st.pass_looked_up->pages_total = st.pass_looked_up->pages_total || r.record_looked_totals.has_value();
    }
    if (st.in.pass_sections) {
        st.in.pass_sections->insert_or_assign(key, r);
    }
    log::log_debug(st.in.pass_log, "pages " + std::to_string(r.record_first_page) + " to " +
                                       std::to_string(r.record_first_page + r.record_page_count - 1) +
                                       " taken again from the pass before");
    return &r;
}

// A part of a section being packed, watched so that the next pass may take its pages again.
struct watched_section {
    section_key watched_key;
    section_state watched_entry;
    std::shared_ptr<prepack::targets::looked_up> watched_looked_up;
    std::size_t watched_placed_before = 0;
    std::size_t watched_bookmarks_before = 0;
    bool watched_uses_pages_before = false;
};

std::optional<watched_section> watch_section(doc_state& st, section_key const& key) {
    if (!st.in.pass_sections || !nothing_carried(st)) {
        return std::nullopt;
    }
    watched_section w{.watched_key = key,
                      .watched_entry = state_now(st),
                      .watched_looked_up = std::make_shared<prepack::targets::looked_up>(),
                      .watched_placed_before = st.found.placed_order.size(),
                      .watched_bookmarks_before = st.found.bookmarks.size(),
                      .watched_uses_pages_before = st.uses_pages};
    // The section's lookups are noted apart, and joined to the pass's as each page is handed over.
    own_run(st.info.general).looked_up = w.watched_looked_up;
    st.uses_pages = false;
    return w;
}

// Ends the watch of a part of a section; `whole` when it ended with nothing carried into what follows,
// and it is recorded with what is left of the section and the break that ended its last page.
void end_watch(doc_state& st,
               std::optional<watched_section>& w,
               bool whole,
               prepack::block_list const& left = {},
               std::optional<page_break> ended_by = std::nullopt) {
    if (!w) {
        return;
    }
    auto const& looked = *w->watched_looked_up;
    if (st.pass_looked_up) {
        merge_looked_up(*st.pass_looked_up, looked);
        own_run(st.info.general).looked_up = st.pass_looked_up;
    }
    bool const used_pages = st.uses_pages;
    st.uses_pages = w->watched_uses_pages_before || used_pages;
    if (whole && nothing_carried(st)) {
        section_record r{.record_entry = w->watched_entry,
                         .record_exit = state_now(st),
                         .record_exit_blocks = left,
                         .record_exit_break = ended_by,
                         .record_first_page = w->watched_entry.state_pdf_page,
                         .record_page_count = st.info.general.pdf_page_num - w->watched_entry.state_pdf_page,
                         .record_uses_pages = used_pages};
        auto const& order = st.found.placed_order;
        for (auto i = order.begin() + static_cast<std::ptrdiff_t>(w->watched_placed_before); i != order.end(); ++i) {
            r.record_found_pages.emplace_back(*i, st.found.targets->page_nums.at(*i));
            r.record_found_counters.emplace_back(*i, st.found.targets->counters.at(*i));
        }
        r.record_bookmarks.assign(st.found.bookmarks.begin() + static_cast<std::ptrdiff_t>(w->watched_bookmarks_before),
                                  st.found.bookmarks.end());
        auto const& run = *st.info.general.run;
        for (auto const& key : looked.pages) {
            r.record_looked_pages.emplace(key, page_answer(run, key));
        }
        for (auto const& key : looked.counters) {
            r.record_looked_counters.emplace(key, counters_answer_of(run, key));
        }
        if (looked.pages_total || used_pages) {
            r.record_looked_totals = st.in.pass_user_pages_totals;
        }
        st.in.pass_sections->insert_or_assign(w->watched_key, std::move(r));
    }
    w.reset();
}

// Where a part of a section may start in the middle of it: on a page that a forced break began at a
// block of the section's main level, none of whose blocks is split yet. What is left of the section is
// then the blocks that wrap the main level, each continued, and the main level's blocks from that one
// on, a view of the document's own list.
std::optional<section_key> resume_key(doc_state const& st,
                                      std::size_t section,
                                      prepack::block_list const& blocks,
                                      std::size_t level,
                                      std::optional<page_break> const& carried) {
    if (!carried || !block::is_forced(*carried) || blocks.empty()) {
        return std::nullopt;
    }
    prepack::block_list const* l = &blocks;
    for (std::size_t d = 0; d < level; ++d) {
        auto const* bs = l->size() == 1 ? std::get_if<prepack::bcontent_blocks>(&l->front().block_content) : nullptr;
        if (!bs) {
            return std::nullopt;
        }
        l = &bs->blocks;
    }
    auto const [shared, from] = l->shared_identity();
    if (!shared || l->empty() || !std::holds_alternative<prepack::type_original>(l->front().block_type)) {
        return std::nullopt;
    }
    return section_key{st.doc_index, section, shared, from};
}

struct page_out {
    prepack::block_list remaining;
    std::optional<page_break> forced;
};

page_out pack_page(doc_state& st,
                   prepack::page_desc const& desc,
                   prepack::block_list const& blocks,
                   bool blank,
                   bool section_first) {
    auto& info = st.info;
    bool const odd = info.general.pdf_page_num % 2 == 1;
    css::page::page_query const q{.query_page_name = desc.sec_page_name,
                                  .query_group_page = st.group_page,
                                  .query_side =
                                      odd ? css::page::page_side::right : css::page::page_side::left,
                                  .query_blank = blank};
    auto ps = css::page::page_style_of(page_rules_of(st.rules, info.general.document_page_num, st.group_page), q,
                                       st.doc.doc_background);
    if (ps.page_size_clamped) {
        log::log_warning_once(st.in.pass_log, "page size brought within 3pt to 14400pt (200in), the page sizes "
                                              "PDF viewers accept");
    }
    auto pa = paper::paper_areas_of(ps, std::nullopt);
    info.general.page_style = share(ps);
    info.general.body_area = pa.pa_body_area;
    info.general.user_pages_total.reset();
    if (st.group < st.in.pass_user_pages_totals.size()) {
        info.general.user_pages_total = st.in.pass_user_pages_totals[st.group];
    }
    // The root element's containing block is the page area: its percentage heights are of that.
    info.flags = flags{.max_page_area = true,
                       .pack_page_stuff = true,
                       .percent_height_base = areas::height_of(pa.pa_body_area)};
    // "counter-reset: footnote" in a page rule numbers the footnotes afresh on each such page.
    for (auto const& [name, value] : ps.region_body->rare_box->counter_reset) {
        if (name == "footnote") {
            info.general.footnote_counter = value;
        }
    }

    page_out out;
    std::vector<ref<box>> content;
    // The footnotes left over from the page before come first in this page's footnote area.
    auto const carried = std::move(st.footnotes_carried);
    st.footnotes_carried.clear();
    info.accum.page_footnotes = carried.empty() ? nullptr : share(carried);
    info.packed_stuff = {};
    std::optional<footnotes::area_res> notes;
    float const carried_need = footnotes::height_needed(info, carried, pa.pa_body_area);
    bool const notes_only = !carried.empty() && carried_need > areas::height_of(pa.pa_body_area) * footnote_share;
    if (!notes_only) {
        info.packed_stuff.footnotes_height = carried_need;
    }
    // The page floats left over from the page before go first at the top or bottom of this page.
    auto const floats_in = std::move(st.floats_carried);
    st.floats_carried.clear();
    page_floats::page_set float_set;
    // The body flowed around its page floats, in the page's body area.
    auto flow_floats = [&]() {
        info.general.body_area = pa.pa_body_area;
        auto fr = page_floats::flow_page(info, floats_in, [&](page_info i, areas::area const& a) {
            return flow_body(std::move(i), ps, pa, a, blocks, section_first);
        });
        float_set = std::move(fr.res_set);
        st.floats_carried = std::move(fr.res_waiting);
        return std::move(fr.res_flow);
    };
    if (blank || notes_only) {
        // The footnotes have the page to themselves: the floats wait with the text.
        st.floats_carried = floats_in;
    }
    std::optional<blocks::blocks_out> flowed;
    // The footnotes that go on to the next page when none are placed on this one.
    auto unplaced = carried;
    // Where the body's text ends on the page.
    std::optional<float> flow_foot;
    if (!blank && (!blocks.empty() || !floats_in.empty()) && !notes_only) {
        flowed = flow_floats();
    }
    if (!blank && (!blocks.empty() || !floats_in.empty()) && !notes_only && !flowed) {
        // A page float carried over is taller than the room the page has: it has the page to itself,
        // and the footnotes it calls go on to the next page.
        out.remaining = blocks;
        auto const float_notes = page_floats::notes_of(float_set);
        unplaced.insert(unplaced.end(), float_notes.begin(), float_notes.end());
        info.general.footnote_counter += static_cast<int>(float_notes.size());
    } else if (flowed) {
        auto r = std::move(*flowed);
        if (ps.page_shrink_to_fit == css::page::shrink_to_fit::auto_) {
            float const paper_width = areas::width_of(pa.pa_body_area);
            for (int round = 0; round < shrink_rounds; ++round) {
                auto const* p = std::get_if<blocks::packed_main>(&r.res);
                if (!p) {
                    break;
                }
                auto const factor =
                    paper::shrink_factor(content_width(p->bs_packed_boxes, pa.pa_body_area), paper_width);
                if (!factor || *factor <= pa.shrink_to_fit.value_or(1) + knuth::tolerance) {
                    break;
                }
                // The trial is undone by dropping it: layout has no other effects to take back.
                pa = paper::paper_areas_of(ps, factor);
                auto again = flow_floats();
                if (!again) {
                    break;
                }
                r = std::move(*again);
            }
            info.general.body_area = pa.pa_body_area;
        }
        notes = footnotes::pack_area(r.out_info, footnotes_of(r.out_info.accum), pa.pa_body_area,
                                     r.out_info.packed_stuff.footnotes_height, false);
        flow_foot = r.out_areas.container.top;
        if (auto* p = std::get_if<blocks::packed_main>(&r.res)) {
            content = std::move(p->bs_packed_boxes);
            out.remaining = std::move(p->bs_remain_portion);
            out.forced = r.out_forced_break;
        } else {
            out.remaining = blocks;
        }
        info = std::move(r.out_info);
        info.flags = {};
        info.general.body_area = pa.pa_body_area;
        // Every page must take something: the body is the largest space there is, so the flow forces
        // its first block in. A page left empty would come again for ever. An absolutely positioned
        // block taken out of the flow (the root element itself may be one) is placed on this page, and
        // a flow that has ended (all of it fixed boxes, say) leaves nothing to come again.
        if (content.empty() && !(notes && notes->area_box) && float_set.tops.empty() &&
            float_set.bottoms.empty() && info.accum.abs_blocks.empty() && !out.remaining.empty()) {
            throw internal_error("pack error: packed nothing.");
        }
    } else if (!blank && !carried.empty()) {
        // The rest of a long footnote fills this page, or the text has ended: the footnotes have the
        // page to themselves.
        out.remaining = blocks;
        notes = footnotes::pack_area(info, carried, pa.pa_body_area, areas::height_of(pa.pa_body_area), true);
    }
    // The page floats stand at the top of the body and on top of the footnote area.
    for (auto& b : page_floats::place(float_set, pa.pa_body_area,
                                      pa.pa_body_area.bottom + (notes ? notes->area_height : 0),
                                      info.general.pdf_page_num % 2 == 1)) {
        content.push_back(std::move(b));
    }
    if (notes) {
        // A footnote area of position "static" follows the text directly, on a page whose text ends
        // short of the foot; any other takes the foot of the page. Floats to the bottom keep it there.
        if (notes->area_box && flow_foot && float_set.bottoms.empty() &&
            css::page::region_style(ps, css::page_rule::region::footnotes).bit_props.bit_props_position ==
                css::box::position{css::box::position_kind::static_}) {
            float const rise = *flow_foot - (pa.pa_body_area.bottom + notes->area_height);
            if (rise > knuth::tolerance) {
                auto moved = **notes->area_box;
                block::shift_box(moved, 0, rise);
                notes->area_box = share(std::move(moved));
                for (auto& a : notes->area_absolutes) {
                    a.second.y += rise;
                }
            }
        }
        if (notes->area_box) {
            content.push_back(*notes->area_box);
        }
        std::move(notes->area_absolutes.begin(), notes->area_absolutes.end(),
                  std::back_inserter(info.accum.abs_blocks));
        if (notes->area_unstarted) {
            log::log_warning(st.in.pass_log,
                             "cannot fit footnote(s) on page " + std::to_string(info.general.pdf_page_num));
        }
        st.footnotes_carried = std::move(notes->area_leftover);
    } else {
        st.footnotes_carried = std::move(unplaced);
    }
    info.accum.page_footnotes = nullptr;
    if (!blank) {
        // A fixed box is fixed to the page: it repeats on every page, the first ones included, wherever
        // its element stands in the text.
        positioned::place_on_page(info, pa.pa_body_area, st.fixed, content);
    }

    // The page's counters and strings, then the margin boxes that show them.
    auto values = *info.general.page_values;
    values_walk walk{.values = values, .found = &st.found, .page = &info};
    for (auto const& b : content) {
        walk.box(*b);
    }
    info.general.page_values = share(values);
    auto margins = static_::pack_margin_boxes(info, ps, pa);
    st.uses_pages = st.uses_pages || margins.res_uses_pages;
    carry_values(values);
    info.general.page_values = share(std::move(values));

    float const s = pa.shrink_to_fit.value_or(1);
    auto const& used = pa.used_paper_style;
    auto const& bd = used.used_borders;
    auto const page_box = grown(pa.pa_body_area, (bd.borders_top.border_width + used.used_padding_top) * s,
                                (bd.borders_right.border_width + used.used_padding_right) * s,
                                (bd.borders_bottom.border_width + used.used_padding_bottom) * s,
                                (bd.borders_left.border_width + used.used_padding_left) * s);
    packed_page page{
        .marks = ps.page_marks,
        .mark_length = ps.page_mark_length,
        .mark_offset = ps.page_mark_offset.sides_top,
        .mediabox = pa.real_media_box,
        .bleedbox = pa.real_bleed_box,
        .trimbox = pa.real_trim_box,
        .rotate_body = ps.page_rotate_body,
        .shrink_margin_boxes = ps.page_shrink_margin_boxes,
        .scaled = pa.shrink_to_fit,
        .paper_content_area = pa.margin_area,
        .body_box =
            body_box{
                .body_content = std::move(content),
                .body_box_style = ps.region_body,
                .body_box_used_style = used,
                .body_pos = {page_box.left, page_box.top},
                .body_size = {page_box.right - page_box.left, page_box.top - page_box.bottom},
                .body_bleed_box = pa.pa_body_bleed_box,
                .body_trim_box = pa.pa_body_trim_box,
                .body_style = st.doc.doc_background,
            },
        .margin_boxes = std::move(margins.res_margin_boxes),
        .page_label = page_label_of(info, ps.page_label),
    };
    // A section that showed a value still to come is packed again by the next pass; one whose lookups
    // were all answered (targets placed before it) may be taken again as it is.
    bool section_unanswered = false;
    if (info.general.run->looked_up != st.pass_looked_up && st.pass_looked_up) {
        auto const& mine = *info.general.run->looked_up;
        section_unanswered = mine.unanswered;
        merge_looked_up(*st.pass_looked_up, mine);
    }
    if (section_unanswered && st.in.pass_skip_page) {
        st.in.pass_skip_page();
    } else if (st.in.pass_take_page) {
        st.in.pass_take_page(share(std::move(page)));
    } else {
        st.pages.push_back(share(std::move(page)));
    }
    if (st.in.pass_on_page) {
        st.in.pass_on_page(info.general.pdf_page_num);
    }
    return out;
}

void apply_reset(int& value, std::optional<prepack::page_reset> const& r) {
    if (!r) {
        return;
    }
    std::visit(overloaded{
                   [&](prepack::page_reset_to const& t) { value = t.reset; },
                   [&](prepack::page_increment_by const& i) { value += i.increment; },
               },
               *r);
}

void pack_doc(doc_state& st) {
    auto const& sections = st.doc.pack_doc_content;
    std::size_t k = 0;
    prepack::block_list blocks;
    bool section_first = true;
    std::optional<page_break> carried;
    // The section whose start has been counted: a blank page in front of it doesn't count it again.
    std::size_t set_up = sections.size();
    // The main level of the current section, where its blocks are counted for progress.
    std::size_t level = 0;
    auto begin_section = [&]() {
        level = main_level(blocks);
        st.prog.progress_started += blocks_at(blocks, level);
    };
    if (!sections.empty()) {
        blocks = sections.front().sec_blocks;
        begin_section();
    }
    auto report = [&]() {
        if (!st.prog.progress_on) {
            return;
        }
        if (st.prog.progress_total == 0) {
            throw internal_error("division by zero: pack:pack_doc");
        }
        auto const done = static_cast<long long>(st.prog.progress_started) -
                          static_cast<long long>(blocks_at(blocks, level));
        auto const percent = std::max(0LL, done * 100 / static_cast<long long>(st.prog.progress_total));
        log::log_progress_percent(st.in.pass_log, static_cast<int>(percent));
    };
    std::optional<watched_section> watched;
    auto advance = [&]() {
        ++st.info.general.pdf_page_num;
        ++st.info.general.document_page_num;
        ++st.info.general.user_page_num;
        ++st.group_page;
        ++st.totals[st.group];
    };
    while (k < sections.size()) {
        report();
        auto const& desc = sections[k].sec_desc;
        bool const right = st.info.general.pdf_page_num % 2 == 1;
        if (blocks.empty() && !section_first) {
            if (k + 1 < sections.size() && st.floats_carried.empty()) {
                end_watch(st, watched, true);
                ++k;
                blocks = sections[k].sec_blocks;
                begin_section();
                section_first = true;
                continue;
            }
            if (!st.footnotes_carried.empty() || !st.floats_carried.empty()) {
                // Footnotes and page floats left over when the text has ended get pages of their own.
                pack_page(st, desc, {}, false, false);
                advance();
                continue;
            }
            end_watch(st, watched, true);
            auto const after = desc.sec_page_break_after;
            if ((after == page_break::left && right) || (after == page_break::right && !right)) {
                pack_page(st, desc, {}, true, false);
                advance();
            }
            break;
        }
        if (section_first && set_up != k) {
            set_up = k;
            if (desc.sec_page_group == css::box::page_group::start && st.group_page > 1) {
                st.totals.push_back(0);
                ++st.group;
                st.group_page = 1;
            }
            // :first of a named page means the first page of a run of that name.
            if (k > 0 && desc.sec_page_name != sections[k - 1].sec_desc.sec_page_name) {
                st.group_page = 1;
            }
            // The page counter follows the section's reset as the section starts.
            apply_reset(st.info.general.user_page_num, desc.sec_page_counter_reset);
        }
        // A forced break in front of the section's first element counts as the section's own.
        auto const before = block::is_forced(desc.sec_page_break_before)
                                ? desc.sec_page_break_before
                                : block::leading_break(blocks).value_or(desc.sec_page_break_before);
        auto const brk = section_first ? section_break(desc.prev_page_break_after, before)
                                       : carried.value_or(page_break::auto_);
        if ((brk == page_break::left && right) || (brk == page_break::right && !right)) {
            pack_page(st, desc, {}, true, false);
            advance();
            continue;
        }
        if (blocks.empty()) {
            // A section with nothing in it still makes its page.
            pack_page(st, desc, {}, false, section_first);
            advance();
            section_first = false;
            continue;
        }
        // A part of the section starts at its first page, and at a page that a forced break began at a
        // block of its main level: the pass before may have packed it already.
        std::optional<section_key> key;
        if (section_first) {
            key = section_key{st.doc_index, k, nullptr, 0};
        } else if ((st.in.pass_sections || st.in.pass_sections_before) && nothing_carried(st)) {
            key = resume_key(st, k, blocks, level, carried);
        }
        if (key) {
            end_watch(st, watched, !section_first, blocks, carried);
            if (auto const* again = take_section_again(st, *key)) {
                blocks = again->record_exit_blocks;
                carried = again->record_exit_break;
                section_first = false;
                continue;
            }
            watched = watch_section(st, *key);
        }
        auto r = pack_page(st, desc, blocks, false, section_first);
        advance();
        section_first = false;
        blocks = std::move(r.remaining);
        carried = r.forced;
    }
    end_watch(st, watched, false);
}

} // namespace

page_break section_break(page_break prev_after, page_break before) {
    auto side = [](page_break b) { return b == page_break::left || b == page_break::right; };
    if (side(before)) {
        return before;
    }
    if (side(prev_after)) {
        return prev_after;
    }
    if (before == page_break::always || prev_after == page_break::always) {
        return page_break::always;
    }
    // Between the pieces of the document every break ends a page, and none ends a column.
    auto const avoid = [](page_break b) { return b == page_break::avoid || b == page_break::avoid_page; };
    if (avoid(prev_after) || avoid(before)) {
        return page_break::avoid;
    }
    return page_break::auto_;
}

pass_result pack_documents(pass_input const& in,
                           std::vector<ref<prepack::pack_document const>> const& documents) {
    pass_result out;
    auto const looked_up = in.pass_looked_up ? in.pass_looked_up : std::make_shared<prepack::targets::looked_up>();
    int pdf_page = 1;
    std::vector<int> totals{0};
    std::size_t group = 0;
    bool uses_pages = false;
    auto const placed = std::make_shared<prepack::targets::pass_targets>();
    progress prog{.progress_on = log::reports_progress(in.pass_log)};
    if (prog.progress_on) {
        for (auto const& doc : documents) {
            for (auto const& sec : doc->pack_doc_content) {
                prog.progress_total += count_blocks(sec.sec_blocks);
            }
        }
    }
    for (auto const& doc : documents) {
        doc_state st{
            .in = in, .doc = *doc, .prog = prog, .rules = css::page::make_pages(doc->pack_doc_pages)};
        run_shared run{
            .log = in.pass_log,
            .loader =
                in.pass_loader ? std::make_shared<resource::loader::loader const>(*in.pass_loader) : nullptr,
            .scripts = in.pass_scripts,
            .document = doc,
            .targets = in.pass_targets,
            .placed = placed,
            .looked_up = looked_up,
            .fonts = std::make_shared<fonts::fonts const>(in.pass_fonts),
            .hyph = in.pass_hyph,
            .shapes = in.pass_shapes,
            .cells = in.pass_cells,
        };
        st.info.general.run = share(std::move(run));
        st.pass_looked_up = looked_up;
        st.found.targets = placed;
        st.doc_index = static_cast<std::size_t>(&doc - documents.data());
        st.info.general.pdf_page_num = pdf_page;
        st.fixed = positioned::fixed_blocks(*doc);
        st.totals = totals;
        st.group = group;
        pack_doc(st);
        pdf_page = st.info.general.pdf_page_num;
        totals = std::move(st.totals);
        // Each document starts a page group of its own.
        totals.push_back(0);
        group = totals.size() - 1;
        uses_pages = uses_pages || st.uses_pages;
        for (auto& p : st.pages) {
            out.result_pages.push_back(std::move(p));
        }
        // Pages are packed in order but a bookmark's box may land after a later element's (a float);
        // the outline follows the document.
        std::stable_sort(st.found.bookmarks.begin(), st.found.bookmarks.end(),
                         [](packed_bookmark const& a, packed_bookmark const& b) {
                             return a.bookmark_order < b.bookmark_order;
                         });
        // A split element gives its bookmark once, for its first part.
        std::vector<packed_bookmark> unique;
        for (auto& b : st.found.bookmarks) {
            if (unique.empty() || unique.back().bookmark_order != b.bookmark_order) {
                unique.push_back(std::move(b));
            }
        }
        std::move(unique.begin(), unique.end(), std::back_inserter(out.result_bookmarks));
    }
    out.result_targets = std::move(*placed);
    out.result_looked_up = *looked_up;
    uses_pages = uses_pages || looked_up->pages_total;
    totals.pop_back();
    out.result_user_pages_totals = std::move(totals);
    out.result_uses_pages = uses_pages;
    return out;
}

} // namespace vellum::pack
