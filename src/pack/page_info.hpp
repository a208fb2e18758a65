// The value threaded through all of layout: what a page knows (its number, body area, fonts, the
// values of the previous pass), what may be placed on it, what has been gathered on the way, and the
// page floats and footnotes already placed. It is a value: a trial copies it and an undone trial
// simply drops its copy.
#pragma once

#include "css/box.hpp"
#include "css/page.hpp"
#include "driver/log.hpp"
#include "pack/areas.hpp"
#include "pack/eval_knuth.hpp"
#include "pack/knuth.hpp"
#include "prepack/prepack.hpp"
#include "prepack/targets.hpp"
#include "resource/loader.hpp"
#include "resource/locator.hpp"
#include "text/fonts/fonts.hpp"
#include "text/hyph/hyph.hpp"
#include "util/cell.hpp"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace vellum::pack::table_pack {
struct measured_cells;
} // namespace vellum::pack::table_pack

namespace vellum::pack {

/// What every copy of a page's state shares for a run: the log, the loader, fonts, hyphenation
/// patterns and shaped words, and what the pass looks up. Page state is copied for every block and
/// trial, so these stay one shared record, replaced whole (by `own_run`) on the rare occasions one
/// changes: a new pass, document or section.
struct run_shared {
    log::log log;
    std::shared_ptr<resource::loader::loader const> loader;
    /// The functions scripts registered for generated content; null without a script engine.
    std::shared_ptr<prepack::script_calls const> scripts;
    /// The document being packed, for its running elements.
    std::shared_ptr<prepack::pack_document const> document;
    /// Where the previous pass put each target, and the counters there.
    std::shared_ptr<prepack::targets::pass_targets const> targets =
        std::make_shared<prepack::targets::pass_targets const>();
    /// Where this pass has put targets so far, on pages it finished: they answer for a target the
    /// previous pass did not place (every one, on the first pass), as they cannot move any more. Null
    /// for none.
    std::shared_ptr<prepack::targets::pass_targets const> placed;
    /// The targets whose page the content looked up; trials that are undone still count (which can
    /// only ask for one more comparison).
    std::shared_ptr<prepack::targets::looked_up> looked_up = std::make_shared<prepack::targets::looked_up>();
    std::shared_ptr<fonts::fonts const> fonts = std::make_shared<fonts::fonts const>();
    /// Hyphenation patterns loaded so far, by path.
    std::shared_ptr<hyph::hyph> hyph = std::make_shared<hyph::hyph>();
    /// Words shaped so far.
    std::shared_ptr<fonts::shape_cache::shape_cache> shapes = fonts::shape_cache::make_shape_cache();
    /// The widths of table cells measured in the passes of this conversion so far; null to keep none.
    std::shared_ptr<table_pack::measured_cells> cells;
};

/// The read-mostly context of a page.
struct general {
    ref<run_shared> run = std::make_shared<run_shared const>();
    /// The page's body area.
    areas::area body_area;
    /// Counters and strings visible on this page. Shared, since the page's state is copied for every
    /// block and trial, and only the page loop changes them, between pages.
    ref<prepack::page_values> page_values = share(prepack::page_values{});
    /// The total of the page's group, from the previous pass.
    std::optional<int> user_pages_total;
    /// 1-based place in the PDF.
    int pdf_page_num = 1;
    /// Place in this document.
    int document_page_num = 1;
    /// The `page` counter.
    int user_page_num = 1;
    /// An override of the `pages` counter.
    std::optional<int> user_pages_counter;
    /// The page's style once the page loop has resolved it; shared by every copy for the same reason.
    ref<css::page::page_style> page_style;
    /// The current multi-column container.
    std::optional<int> column_id;
    /// The area of the column being filled, while one is: its footnotes stand on its bottom.
    std::optional<areas::area> column_area;
    /// The running number of footnote calls.
    int footnote_counter = 0;
    css::box::writing_mode writing_mode = css::box::writing_mode::horizontal;
};

/// The run's shared record of `g`, made its own to be changed: the copies of the page's state made
/// before keep the record as it was.
inline run_shared& own_run(general& g) {
    auto copy = std::make_shared<run_shared>(*g.run);
    auto& out = *copy;
    g.run = std::move(copy);
    return out;
}

/// What may happen on this page. They live in one word: bit 0 to 3 in this order.
struct flags {
    /// This space is the largest that will ever be offered, so something must be placed.
    bool max_page_area = false;
    /// Page floats and footnotes may be placed.
    bool pack_page_stuff = false;
    bool pack_column_stuff = false;
    bool last_column = false;
    /// The height of the containing block of the blocks packed now, when it is definite: their
    /// percentage heights resolve against it (against nothing, as "auto", when it is not).
    std::optional<float> percent_height_base;
    bool operator==(flags const&) const = default;
};

/// Whether `b` asks to avoid a break here. Inside a multi-column container every break ends a column,
/// and one in its last column ends the page too; elsewhere a break ends a page only.
inline bool avoids_break(css::box::page_break b, flags const& f) {
    switch (b) {
    case css::box::page_break::avoid:
        return true;
    case css::box::page_break::avoid_page:
        return !f.pack_column_stuff || f.last_column;
    case css::box::page_break::avoid_column:
        return f.pack_column_stuff;
    case css::box::page_break::auto_:
    case css::box::page_break::always:
    case css::box::page_break::left:
    case css::box::page_break::right:
        break;
    }
    return false;
}

/// The flags as the bits of one word.
inline unsigned flags_word(flags const& f) {
    return (f.max_page_area ? 1u : 0u) | (f.pack_page_stuff ? 2u : 0u) | (f.pack_column_stuff ? 4u : 0u) |
           (f.last_column ? 8u : 0u);
}

/// A footnote of the page: called on it, or carried over from the page before (then its body may be
/// the rest of a body split there), with the number its call took.
struct page_footnote {
    ref<prepack::block> footnote_body;
    knuth::style_ref footnote_style;
    int footnote_number = 0;
    bool operator==(page_footnote const&) const = default;
};

/// The footnotes of a page, in order. Shared, so that the many copies of a page's state that layout
/// makes (one per sibling block, per trial) cost a pointer; adding one copies the page's short list.
using page_footnote_list = ref<std::vector<page_footnote>>;

/// A float to the top or bottom of the page, met in the flow, with how it floats and the y of its
/// call (where the flow met it).
struct page_float {
    prepack::block page_float_body;
    css::box::page_column_float page_float_how;
    float page_float_y = 0;
    bool operator==(page_float const&) const = default;
};

/// What layout gathers on the way through a page.
struct accum {
    /// Some content used the `pages` counter.
    bool link_to_pages = false;
    /// The footnotes of this page, in order; none when empty.
    page_footnote_list page_footnotes;
    /// Absolutely positioned blocks met on the page, with their static position.
    std::vector<std::pair<prepack::block, util::pos::pos>> abs_blocks;
    /// The footnotes of the column being filled, in order; none when empty.
    page_footnote_list column_footnotes;
    /// Floats to the top or bottom of a column met in the current multi-column container, in order.
    std::vector<prepack::block> column_floats;
    /// Floats to the top or bottom of the page met in the flow, in order.
    std::vector<page_float> page_floats;
    // static_flows, prev_page_inline_footnote and the regions join with footnotes and margin boxes.
};

/// The page floats and footnotes placed on this page so far.
struct packed_stuff {
    // The boxes (tops_boxes, bottoms_boxes, footnotes_boxes) join with page floats and footnotes.
    float tops_height = 0;
    float bottoms_height = 0;
    /// The height of the footnote area at the foot of the body, its margins included.
    float footnotes_height = 0;
    /// The height of the footnote area at the foot of the column being filled, its margins included.
    float column_footnotes_height = 0;
};

struct page_info {
    pack::general general;
    pack::flags flags;
    pack::accum accum;
    pack::packed_stuff packed_stuff;
};

/// A counter at a target as the previous pass found it, or this one on a page it finished; the lookup
/// is noted in `looked_up`.
textbuf::textbuf target_counter_text(general const& g, prepack::target_counter const& t);

/// Where a target is, for what the run shows of it: as the previous pass placed it, else as this pass
/// did on a page it finished; null when neither did.
prepack::targets::target_place const* target_answer(run_shared const& run,
                                                    prepack::targets::target_key const& key);

/// The counters at a target, from the same places as `target_answer`.
prepack::counter_scopes const* counters_answer(run_shared const& run,
                                               prepack::targets::target_key const& key);

/// What measuring items needs from a page: the page's fonts and hyphenation patterns, and its
/// counters for page-dependent text.
eval_knuth::eval_env env_of(page_info const& info);

/// The page's footnotes, carried over and called, in order.
std::span<page_footnote const> footnotes_of(accum const& a);

/// Adds a footnote to the page's list.
void add_footnote(accum& a, page_footnote f);

/// The column's footnotes, carried over from the column before and called, in order.
std::span<page_footnote const> column_footnotes_of(accum const& a);

/// Adds a footnote to the column's list.
void add_column_footnote(accum& a, page_footnote f);

/// The lowest the body may reach on this page or in this column: the top of the footnote area of
/// the page or of the column being filled, whichever is higher, when footnotes take room there.
std::optional<float> footnote_floor(page_info const& info);

/// The areas with their bottom raised to the top of the page's footnote area.
areas::areas above_footnotes(page_info const& info, areas::areas a);

/// The part of a page that measuring changes (the footnote counter).
eval_knuth::page_state state_of(page_info const& info);

/// The page after measuring changed its part.
page_info with_state(page_info info, eval_knuth::page_state const& state);

} // namespace vellum::pack
