// The page loop: every document's page sections poured into pages one after another. For each page
// the page style is chosen (name, side, first, blank), its paper areas computed, the body filled by
// block flow until it is full, and the margin boxes packed last, when the page's counters and
// strings are final. Each run is a whole pass over all documents; the engine repeats passes while
// page totals or cross-references move.
#pragma once

#include "driver/log.hpp"
#include "pack/boxes.hpp"
#include "prepack/prepack.hpp"
#include "prepack/targets.hpp"
#include "resource/loader.hpp"
#include "text/hyph/hyph.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/shape_cache.hpp"
#include "util/ref.hpp"

#include <functional>
#include <map>
#include <tuple>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vellum::pack::table_pack {
struct measured_cells;
} // namespace vellum::pack::table_pack

namespace vellum::pack {

/// Which side of a spread a page is on: odd pages are on the right.
enum class page_side { left, right };

/// A bookmark as a pass placed it: the element's place in document order, its level, state and
/// label (evaluated on its page), and where its box landed.
struct packed_bookmark {
    int bookmark_order = 0;
    int bookmark_level = 1;
    css::box::bookmark_state bookmark_state = css::box::bookmark_state::open;
    std::string bookmark_label;
    /// The page from 1, in the whole output.
    int bookmark_page = 1;
    float bookmark_x = 0;
    float bookmark_y = 0;
    /// A place named by `bookmark-target` instead of the element's own: the URL as written, and the
    /// target it names. The engine resolves it once the last pass has placed every target.
    std::optional<std::string> bookmark_url;
    std::optional<prepack::target_name> bookmark_target;
    bool operator==(packed_bookmark const&) const = default;
};

/// Where a section of a document starts or ends: what its pages depend on and change of the page loop.
/// A section that starts in the same state as in the previous pass, and finds the same answers to
/// what it looked up there, makes the same pages.
struct section_state {
    int state_pdf_page = 1;
    int state_document_page = 1;
    int state_user_page = 1;
    std::optional<int> state_pages_counter;
    int state_footnote_counter = 0;
    prepack::page_values state_values;
    std::size_t state_group = 0;
    int state_group_page = 1;
    int state_group_total = 0;
    bool operator==(section_state const&) const = default;
};

/// A part of a section a pass packed whole, from the section's start or a page that a forced break
/// began at a block of the section's main level, to the next such page or the section's end: its state
/// at its first page and after its last, the pages it made, what it found, and what it looked up with
/// the answers the pass had.
struct section_record {
    section_state record_entry;
    section_state record_exit;
    /// What is left of the section after the part (nothing at the section's end), and the forced break
    /// that ended its last page.
    prepack::block_list record_exit_blocks;
    std::optional<css::box::page_break> record_exit_break;
    int record_first_page = 1;
    int record_page_count = 0;
    std::vector<std::pair<prepack::targets::target_key, prepack::targets::target_place>> record_found_pages;
    std::vector<std::pair<prepack::targets::target_key, prepack::counter_scopes>> record_found_counters;
    std::vector<packed_bookmark> record_bookmarks;
    std::map<prepack::targets::target_key, std::optional<prepack::targets::page_num>> record_looked_pages;
    std::map<prepack::targets::target_key, std::optional<prepack::counter_scopes>> record_looked_counters;
    /// The page totals of the previous pass, when the section showed one.
    std::optional<std::vector<int>> record_looked_totals;
    bool record_uses_pages = false;
};

/// Where a part of a section starts: the document's and the section's places, and the section's
/// main-level blocks from there on, as the shared list they are a view of and the place in it (none
/// at the section's start).
using section_key = std::tuple<std::size_t, std::size_t, void const*, std::size_t>;

/// The parts of sections a pass packed whole, by where they start.
using section_records = std::map<section_key, section_record>;

/// What a pass is given from the one before it.
struct pass_input {
    log::log pass_log;
    fonts::fonts pass_fonts;
    /// The total of pages in each page group, in document order, from the previous pass; empty on
    /// the first pass.
    std::vector<int> pass_user_pages_totals;
    /// Called with each finished page's number, for progress reports.
    std::function<void(int)> pass_on_page;
    /// Given each finished page in order, instead of keeping it for the result, so that the caller can
    /// turn it into output and let it go.
    std::function<void(ref<packed_page> const&)> pass_take_page;
    /// Where the pass notes the page numbers it looks up, as it goes; a record of its own if not given.
    std::shared_ptr<prepack::targets::looked_up> pass_looked_up;
    /// Where the previous pass put each target, and the counters there; empty on the first pass.
    std::shared_ptr<prepack::targets::pass_targets const> pass_targets =
        std::make_shared<prepack::targets::pass_targets const>();
    /// What resources (hyphenation patterns) are read through; without it words are not hyphenated.
    std::optional<resource::loader::loader> pass_loader;
    /// The hyphenation patterns read so far, kept from pass to pass.
    std::shared_ptr<hyph::hyph> pass_hyph = std::make_shared<hyph::hyph>();
    /// The words shaped so far, kept from pass to pass.
    std::shared_ptr<fonts::shape_cache::shape_cache> pass_shapes = fonts::shape_cache::make_shape_cache();
    /// The widths of table cells measured so far, kept from pass to pass (`table_pack::new_measured_cells`);
    /// null to measure every cell in every pass.
    std::shared_ptr<table_pack::measured_cells> pass_cells;
    /// The functions scripts registered for generated content; null without a script engine.
    std::shared_ptr<prepack::script_calls const> pass_scripts;
    /// The sections of the previous pass whose pages may be taken again; null for none.
    std::shared_ptr<section_records const> pass_sections_before;
    /// Where this pass records its sections; null to record none.
    std::shared_ptr<section_records> pass_sections;
    /// Called instead of `pass_take_page` for a page that is not worth painting: its section looked
    /// up a page number or a counter that this first pass could not answer yet (a target further on),
    /// so another pass follows that packs the section again. Null to hand over every page.
    std::function<void()> pass_skip_page;
    /// Takes the given pages of the previous pass (the first one's number in the whole output, and a
    /// count) as this pass's next pages, instead of packing them again; false when it has not kept them.
    std::function<bool(int, int)> pass_take_pages_before;
};


/// What a pass gives: the pages, and what they depend on.
struct pass_result {
    std::vector<ref<packed_page>> result_pages;
    /// The total of pages in each page group, in document order.
    std::vector<int> result_user_pages_totals;
    /// Some page showed a page total.
    bool result_uses_pages = false;
    /// Where this pass put each target, for the next pass.
    prepack::targets::pass_targets result_targets;
    /// The targets whose page this pass's content looked up.
    prepack::targets::looked_up result_looked_up;
    /// The bookmarks in document order.
    std::vector<packed_bookmark> result_bookmarks;
};

/// The whole pass over all documents.
pass_result pack_documents(pass_input const& in, std::vector<ref<prepack::pack_document const>> const& documents);

/// The break in front of a section: a side asked for by the section wins over one asked for by the
/// end of the section before, then "always" from either, then "avoid".
css::box::page_break section_break(css::box::page_break prev_after, css::box::page_break before);

} // namespace vellum::pack
