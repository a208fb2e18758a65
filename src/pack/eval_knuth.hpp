// Measuring paragraph items when a line breaker reaches them, and the operations on a line that need
// measuring: joining the pieces of a hyphenated word again, hyphenating a word that doesn't fit, and
// cutting a word that is wider than the whole line.
#pragma once

#include "driver/log.hpp"
#include "pack/knuth.hpp"
#include "text/fonts/shape_cache.hpp"
#include "text/hyph/hyph.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

namespace vellum::fonts {
struct fonts;
} // namespace vellum::fonts

namespace vellum::pack::eval_knuth {

/// What the items of one page have changed so far: the running number of footnote calls. It is a
/// small value, so that a line breaker that goes back to an earlier point undoes what it measured
/// since by going back to the state it had there; the footnotes themselves are noted on the page when
/// their lines are placed.
struct page_state {
    int footnote_counter = 0;
    bool operator==(page_state const&) const = default;
};

/// Text to graphemes through a font request.
using shaper =
    std::function<knuth::graphemes(fonts::font_req const& req, fonts::direction dir, std::u32string_view text)>;

/// The hyphenation patterns named by a style, loaded once per run; none when they can't be read.
using pattern_source =
    std::function<std::optional<ref<hyphen_parser::hyphen_rules>>(css::text::hyphenate_patterns const&)>;

/// The text of a page-dependent counter on the page being packed.
using counter_renderer = std::function<textbuf::textbuf(knuth::counter const& c, page_state const& state)>;

/// An atomic inline box packed in a trial area: its whole used width, margins included, and its box.
struct packed_inline_block {
    float packed_width = 0;
    ref<pack::box> packed_box;
};

/// Packs an atomic inline box in a container of the given height.
using inline_block_packer =
    std::function<packed_inline_block(knuth::inline_block const& b, std::optional<float> containing_height)>;

/// What a script function gives when the call now yields another text than before: the text and its
/// items.
struct script_result {
    textbuf::textbuf result_text;
    std::vector<knuth::knuth> result_items;
};

/// Calls a script function for the page; nothing when its text is unchanged.
using script_caller =
    std::function<std::optional<script_result>(knuth::knuth_script_func const& f, page_state const& state)>;

/// What measuring needs from the run and the page.
struct eval_env {
    log::log env_log;
    eval_knuth::shaper env_shape;
    eval_knuth::pattern_source env_patterns;
    /// The run's hyphenation cache, whose words are hyphenated once; without it each word is
    /// hyphenated where it is met.
    hyph::hyph* env_hyph = nullptr;
    /// The services of the page; without them (item lists of known widths) such items keep what they
    /// hold.
    std::optional<counter_renderer> env_render_counter;
    std::optional<inline_block_packer> env_pack_inline_block;
    std::optional<script_caller> env_call_script;
};

/// The shaper of a font database, which it shares; with a cache, each word is shaped once.
shaper shaper_of(std::shared_ptr<fonts::fonts const> db,
                 std::shared_ptr<fonts::shape_cache::shape_cache> cache = nullptr);

/// The pattern source of a run: the style's pattern names resolved through the loader and read into
/// the run's cache.
pattern_source patterns_of(log::log const& log,
                           hyph::hyph& cache,
                           std::shared_ptr<resource::loader::loader const> loader);

/// Replaces the `splice_count` items that follow the evaluated one by `splice_items`.
struct splice {
    int splice_count = 0;
    std::vector<knuth::knuth> splice_items;
};

/// An evaluated item.
struct eval_res {
    page_state res_state;
    knuth::knuth res_item;
    /// For a script function whose result changed: its old items, up to its tail, and the new ones.
    std::optional<eval_knuth::splice> res_splice;
    /// A counter or a script result whose text differs from what the item held.
    bool res_changed = false;
};

/// Measures an item for a line of the given kind: text is shaped in the item's font, or its
/// first-line font on a first line; spaces take their width from the font; counters, script results
/// and inline boxes are evaluated for the page; a footnote call is numbered and noted. `rest` is what
/// follows the item in the paragraph.
eval_res eval_knuth(eval_env const& env,
                    knuth::line_kind kind,
                    std::optional<float> containing_height,
                    page_state state,
                    knuth::knuth const& item,
                    std::span<knuth::knuth const> rest);

/// The style an item is measured in on a line of this kind, and its font: borrowed from the item (or
/// its first-line form), which owns them while it is measured; every item of every paragraph is
/// measured through one, and taking shares of them would cost two reference counts each time.
struct measure_form {
    fonts::font_req const* form_font_req = nullptr;
    css::style::style const* form_style = nullptr;
};

measure_form form_of(knuth::text_head const& head, knuth::line_kind kind);

/// A line ready to be composed: the pieces of a hyphenated word that did not break here joined again
/// (so that kerning and ligatures across the hyphenation point come back), and the discardable items
/// at its end dropped; a penalty at the end stays, as its hyphen is drawn.
std::vector<knuth::knuth> trim_line(eval_env const& env, knuth::line_kind kind, std::span<knuth::knuth const> line);

/// The sums of `line` as `trim_line` would make it, with `first` (an indent) in front, without making
/// the line: only the words joined again are made and measured.
knuth::line_sum trimmed_line_sums(eval_env const& env,
                                  knuth::line_kind kind,
                                  std::optional<knuth::knuth> const& first,
                                  std::span<knuth::knuth const> line);

/// Items as a line breaker has measured them for lines of one kind, with what gives the sums of any
/// line of them in constant time: prefix sums of the items, the runs of pieces of a hyphenated word
/// that join again on a line not broken between them, and the widths of such joined words measured
/// so far. A candidate line is weighed without being made; only the chosen lines are made.
struct measured_items {
    knuth::line_kind measured_kind = knuth::line_kind::other_line;
    std::vector<knuth::knuth> measured_list;
    knuth::prefix_sums measured_sums;
    /// Pieces of one word, from the first to the last, each two with a soft hyphen between them and
    /// of the same style and direction: indices into `measured_list`, in order.
    struct run {
        std::size_t run_first = 0;
        std::size_t run_last = 0;
        bool operator==(run const&) const = default;
    };
    std::vector<run> measured_runs;
    /// The width of pieces `first` to `last` joined, by `first << 32 | last`.
    std::unordered_map<std::uint64_t, float> measured_joined;
};

/// Appends a measured item.
void measured_push(measured_items& m, knuth::knuth item);

/// Forgets the items from `count` on.
void measured_truncate(measured_items& m, std::size_t count);

/// The sums of items [from, to) as `trimmed_line_sums` gives them, with `first` (an indent) in front:
/// in constant time but for the hyphenated words on the line, whose joined widths are measured once.
knuth::line_sum measured_line_sums(eval_env const& env,
                                   measured_items& m,
                                   std::size_t from,
                                   std::size_t to,
                                   std::optional<knuth::knuth> const& first);

/// A word split at its hyphenation points: the index of the word in the items and the parts with
/// soft penalties between them.
struct hyphenated {
    std::size_t word_index = 0;
    std::vector<knuth::knuth> word_parts;
};

/// Hyphenates the first word, up to the next legal break, that may be hyphenated: its style has
/// `hyphens: auto`, normal white space and patterns, it isn't a piece of a word already split, and on
/// a first line it doesn't carry first-line styling.
[[nodiscard]] std::optional<hyphenated> try_hyphenate(eval_env const& env,
                                                      knuth::line_kind kind,
                                                      knuth::knuth const* previous,
                                                      std::span<knuth::knuth const> items);

/// The line held no text.
struct not_truncated_and_no_grapheme {};

/// There was text, but it could not be cut.
struct grapheme_but_not_truncated {};

/// The items that end the line, and the rest of the cut word for the front of the next.
struct truncated {
    std::vector<knuth::knuth> truncated_line;
    std::vector<knuth::knuth> truncated_rest;
};

using overflow_wrap0_res = std::variant<not_truncated_and_no_grapheme, grapheme_but_not_truncated, truncated>;

/// Cuts the last word of a line that is too long for its width even alone, if the word's style has
/// `overflow-wrap: break-word`: as many whole graphemes as fit end the line.
overflow_wrap0_res overflow_wrap(eval_env const& env,
                                 knuth::line_kind kind,
                                 std::span<knuth::knuth const> line,
                                 float width);

} // namespace vellum::pack::eval_knuth
