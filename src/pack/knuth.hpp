// The items of a paragraph in the manner of Knuth's line breaker: boxes of fixed width, glues that
// stretch and shrink, penalties where a line may end with a hyphen, and the items TeX never needed
// (leaders, page-dependent counters, script results, footnote calls, the edges of inline boxes).
// Items are built unmeasured; a line breaker measures each one when it reaches it.
#pragma once

#include "css/style.hpp"
#include "css/used_style.hpp"
#include "prepack/prepack.hpp"
#include "text/fonts/graphemes.hpp"
#include "util/boxed.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace vellum::pack {
struct box;
} // namespace vellum::pack

namespace vellum::pack::knuth {

using style_ref = ref<css::style::style>;
using font_req_ref = ref<fonts::font_req>;
using graphemes = fonts::shared_graphemes;

/// Which styling a line is measured under: the paragraph's first line, with its ::first-line style,
/// or any other line.
enum class line_kind { first_line, other_line };

/// How an item looks on a ::first-line: its font request and style there.
struct first_line_form {
    font_req_ref first_line_font_req;
    style_ref first_line_style;
    bool operator==(first_line_form const&) const = default;
};

/// What every text box has: its measured width and graphemes (empty until measured), its font and
/// style, and its form under ::first-line styling if the paragraph has one.
struct text_head {
    float head_width = 0;
    graphemes head_graphemes;
    font_req_ref head_font_req;
    style_ref head_style;
    std::optional<first_line_form> head_first_line;
    bool operator==(text_head const&) const = default;
};

/// The text of a word: a range of the document's shared paragraph text, or a text of its own for the
/// pieces that hyphenation, rejoining and cutting make. The item and every measured copy of it share
/// the text instead of copying it.
class item_text {
public:
    item_text() = default;

    item_text(textbuf::textbuf text)
        : item_base(text.empty() ? nullptr : share(std::move(text)))
        , item_size(std::uint32_t(item_base ? item_base->size() : 0)) {}

    item_text(char32_t const* text)
        : item_text(textbuf::textbuf(text)) {}

    item_text(prepack::para_text base, prepack::text_range range)
        : item_base(range.text_length == 0 ? nullptr : std::move(base))
        , item_at(range.text_offset)
        , item_size(item_base ? range.text_length : 0) {
        check(range.text_length == 0 || (item_base && std::size_t(item_at) + item_size <= item_base->size()),
              "item_text");
    }

    std::u32string_view view() const {
        return item_base ? std::u32string_view(*item_base).substr(item_at, item_size) : std::u32string_view{};
    }

    operator std::u32string_view() const { return view(); }

    std::size_t size() const { return item_size; }

    /// `count` code points from `from` on (cut to the text's end), sharing the same text.
    item_text part(std::size_t from, std::size_t count = std::u32string_view::npos) const {
        from = std::min<std::size_t>(from, item_size);
        count = std::min<std::size_t>(count, item_size - from);
        return item_text(item_base,
                         {.text_offset = std::uint32_t(item_at + from), .text_length = std::uint32_t(count)});
    }

    bool operator==(item_text const& other) const { return view() == other.view(); }

private:
    prepack::para_text item_base;
    std::uint32_t item_at = 0;
    std::uint32_t item_size = 0;
};

// ---- Boxes ---------------------------------------------------------------------------------------------

/// A run of text inside which no line may break; a candidate for hyphenation.
struct word {
    text_head word_head;
    fonts::direction word_direction = fonts::direction::ltr;
    css::box::writing_mode word_writing_mode = css::box::writing_mode::horizontal;
    item_text word_text;
    bool operator==(word const&) const = default;
};

/// The same as a word, but never hyphenated: a piece of a word that was split already.
struct non_word {
    text_head non_word_head;
    fonts::direction non_word_direction = fonts::direction::ltr;
    css::box::writing_mode non_word_writing_mode = css::box::writing_mode::horizontal;
    item_text non_word_text;
    bool operator==(non_word const&) const = default;
};

/// Shaped graphemes with no text behind them.
struct grapheme_seq {
    text_head seq_head;
    fonts::direction seq_direction = fonts::direction::ltr;
    css::box::writing_mode seq_writing_mode = css::box::writing_mode::horizontal;
    bool operator==(grapheme_seq const&) const = default;
};

/// A glyph named by its index in the font.
struct glyph_index {
    text_head glyph_head;
    fonts::direction glyph_direction = fonts::direction::ltr;
    css::box::writing_mode glyph_writing_mode = css::box::writing_mode::horizontal;
    int glyph_number = 0;
    bool operator==(glyph_index const&) const = default;
};

/// A value that depends on the page (a page number, a footnote number); the text is its rendering so
/// far, redone on each page it lands on.
struct counter {
    text_head counter_head;
    fonts::direction counter_direction = fonts::direction::ltr;
    css::box::writing_mode counter_writing_mode = css::box::writing_mode::horizontal;
    boxed<prepack::counter_content> counter_content;
    textbuf::textbuf counter_text;
    bool operator==(counter const&) const = default;
};

/// A preserved space, at which no line breaks.
struct pre_space {
    text_head pre_space_head;
    bool operator==(pre_space const&) const = default;
};

/// A fixed-width space character (an en space, a thin space, a no-break space of its own width).
struct charlike_space {
    text_head charlike_head;
    prepack::space_width charlike_width = prepack::space_zero{};
    bool operator==(charlike_space const&) const = default;
};

/// A preserved line end; a forced break follows it.
struct newline {
    bool operator==(newline const&) const = default;
};

/// The start edge of an inline box: its left margin, border and padding, and what painting and
/// re-styling it need.
struct open {
    float box_left_edge = 0;
    font_req_ref box_font_req;
    style_ref box_style;
    ref<css::used_style::used_style> box_used_style;
    std::optional<style_ref> box_first_line_style;
    style_ref box_parent_style;
    /// The bidi embedding level the box opens, if it opens one.
    std::optional<int> box_dir;
    /// The element the box stands for (large and rare: boxed, so that every item stays small).
    boxed<prepack::element_type> box_element_type = prepack::element_type{prepack::type_anonymous{}};
    bool operator==(open const&) const = default;
};

/// The end edge of an inline box: its right padding, border and margin.
struct close {
    float close_right_edge = 0;
    bool operator==(close const&) const = default;
};

/// An atomic inline box (inline-block, inline-table, or a float or absolute box met in the text).
/// The block is packed when the item is measured.
struct inline_block {
    float inline_block_width = 0;
    ref<prepack::block> inline_block_block;
    /// Its style, for the questions the line breakers ask (does it float, is it in the flow).
    style_ref inline_block_style;
    /// The packed box, once the item has been measured.
    std::optional<ref<pack::box>> inline_block_box;
    bool operator==(inline_block const&) const = default;
};

/// The first-line or hanging indent.
struct indent {
    float indent_width = 0;
    bool operator==(indent const&) const = default;
};

using knuth_box = std::variant<word,
                               non_word,
                               grapheme_seq,
                               glyph_index,
                               counter,
                               pre_space,
                               charlike_space,
                               newline,
                               open,
                               close,
                               inline_block,
                               indent>;

// ---- Leaders, penalties, glues -------------------------------------------------------------------------

/// A run of a repeated string that takes whatever room the line leaves, as dots before a page number.
struct knuth_leader {
    float leader_width = 0;
    graphemes single_leader_content;
    float single_leader_width = 0;
    textbuf::textbuf leader_textbuf;
    font_req_ref leader_font_req;
    style_ref leader_style;
    std::optional<first_line_form> leader_first_line_style;
    fonts::direction leader_direction = fonts::direction::ltr;
    css::box::writing_mode leader_writing_mode = css::box::writing_mode::horizontal;
    bool operator==(knuth_leader const&) const = default;
};

/// A place where a word may be broken with a hyphen drawn at the end of the line.
struct soft {
    float penalty_width = 0;
    graphemes penalty_content;
    font_req_ref penaly_font_req;
    style_ref penaly_style;
    std::optional<first_line_form> penalty_first_line_style;
    bool operator==(soft const&) const = default;
};

/// A break after a hard hyphen already in the text: nothing is drawn.
struct hard {
    bool operator==(hard const&) const = default;
};

using knuth_penalty = std::variant<soft, hard>;

/// A space: it stretches and shrinks in justified text, and a line may break at it.
struct glue {
    float glue_width = 0;
    graphemes glue_content;
    float stretchability = 0;
    float shrinkability = 0;
    font_req_ref glue_font_req;
    style_ref glue_style;
    std::optional<first_line_form> glue_first_line_style;
    bool operator==(glue const&) const = default;
};

/// A zero width space: a break without width.
struct zwsp {
    bool operator==(zwsp const&) const = default;
};

/// A place where a line may break, as after a dash or between ideographs.
struct wrap_opportunity {
    bool operator==(wrap_opportunity const&) const = default;
};

/// A break between ideographs that stretches in text justified for CJK.
struct zero_width_cjk {
    float zw_stretchability = 0;
    style_ref zw_style;
    std::optional<first_line_form> zw_first_line_style;
    bool operator==(zero_width_cjk const&) const = default;
};

using knuth_glue = std::variant<glue, zwsp, wrap_opportunity, zero_width_cjk>;

// ---- The paragraph's items -----------------------------------------------------------------------------

/// The line must end here.
struct forced_break {
    bool operator==(forced_break const&) const = default;
};

/// The glue that follows is no break.
struct prohibited_break {
    bool operator==(prohibited_break const&) const = default;
};

/// The start of what a script function gave: its text, with what is needed to call it again.
struct knuth_script_func {
    font_req_ref script_font_req;
    style_ref script_style;
    std::optional<first_line_form> script_first_line;
    fonts::direction script_direction = fonts::direction::ltr;
    /// The function's name as registered by the document's scripts.
    std::string script_func_name;
    /// Its arguments, each generated text that may wait for the page.
    std::vector<std::vector<prepack::text_thing>> script_func_args;
    textbuf::textbuf script_result;
    bool operator==(knuth_script_func const&) const = default;
};

/// Boxed: a paragraph holds many items and script calls are rare.
struct script_func_head {
    ref<knuth_script_func> head_func;
    bool operator==(script_func_head const& other) const { return *head_func == *other.head_func; }
};

struct script_func_tail {
    bool operator==(script_func_tail const&) const = default;
};

/// Where a footnote goes: the page's footnote area or a column's, as a block or run in.
enum class footnote_display { block_footnote, inline_footnote };

struct footnote_page {
    pack::knuth::footnote_display page_display = footnote_display::block_footnote;
    bool operator==(footnote_page const&) const = default;
};

struct footnote_column {
    pack::knuth::footnote_display column_display = footnote_display::block_footnote;
    int column_id = 0;
    bool operator==(footnote_column const&) const = default;
};

using footnote_type = std::variant<footnote_page, footnote_column>;

/// The body of a footnote called at this place; it is numbered when a line breaker reaches it.
struct footnote {
    ref<prepack::block> footnote_body;
    style_ref footnote_style;
    pack::knuth::footnote_type footnote_type = footnote_page{};
    bool operator==(footnote const&) const = default;
};

using knuth = std::variant<knuth_box,
                           knuth_leader,
                           knuth_penalty,
                           knuth_glue,
                           forced_break,
                           prohibited_break,
                           script_func_head,
                           script_func_tail,
                           footnote>;

using knuth_para = std::vector<knuth>;
using para_line = std::vector<knuth>;

// ---- Broken lines --------------------------------------------------------------------------------------

struct positive_infinite {
    bool operator==(positive_infinite const&) const = default;
};

struct negative_infinite {
    bool operator==(negative_infinite const&) const = default;
};

/// How much a line's glue must stretch (positive) or shrink (negative), as a share of what it can.
struct ratio {
    float ratio_value = 0;
    bool operator==(ratio const&) const = default;
};

using adjustment_ratio = std::variant<positive_infinite, negative_infinite, ratio>;

/// How a line ended.
enum class break_type { forced_break, hyphen, other };

/// One broken line of a paragraph.
struct knuth_line {
    /// Index into the item list where the line starts.
    int start_index = 0;
    /// Index just behind the item broken at.
    int end_index = 0;
    pack::knuth::break_type break_type = break_type::other;
    /// The trimmed and evaluated items of the line.
    std::vector<knuth> line_content;
    pack::knuth::adjustment_ratio adjustment_ratio = ratio{};
    /// The threshold of adjustment ratio under which the line was accepted; absent for a line taken
    /// as a last resort.
    std::optional<float> art;
    bool operator==(knuth_line const&) const = default;
};

using para_lines = std::vector<knuth_line>;

// ---- Constants -----------------------------------------------------------------------------------------

/// Widths in layout compare with this tolerance.
inline constexpr float tolerance = 0.0001f;

/// Stretch that counts as infinite: a leader or a forced break fills any line.
inline constexpr float infinite_stretch = 10000.0f;

/// Whether `a` fits in `b`, with the tolerance.
inline bool fits(float a, float b) {
    return b + tolerance >= a;
}

// ---- Questions about items -----------------------------------------------------------------------------

/// The text head of a text box, or null for the other boxes.
text_head const* head_of(knuth_box const& b);

/// The same, for changing it.
text_head* head_of(knuth_box& b);

/// Whether an atomic inline box floats (left, right, inside or outside).
bool is_float(inline_block const& b);

/// Whether an atomic inline box takes part in the line: not floated and not absolutely positioned.
bool is_in_flow(inline_block const& b);

/// The stored width of an item: that of a box, a leader, a glue or a soft penalty; 0 for the rest.
float item_width(knuth const& item);

/// Stretch and shrink of an item.
struct stretch_shrink {
    float stretch = 0;
    float shrink = 0;
    bool operator==(stretch_shrink const&) const = default;
};

stretch_shrink item_stretch_shrink(knuth const& item);

/// Sums over a line: its natural width, stretch and shrink. A penalty counts only as the last item;
/// an atomic inline box out of the flow counts 0 unless it floats.
struct line_sum {
    float sum_width = 0;
    float sum_stretch = 0;
    float sum_shrink = 0;
    bool operator==(line_sum const&) const = default;
};

line_sum line_sums(std::span<knuth const> items);

/// The sums of a line whose end is stripped of discardable items as the start of a line would be
/// (unless it ends in a penalty, whose hyphen is drawn), with `first` (an indent) in front: what
/// `line_sums` gives for that line, without making it.
line_sum stripped_line_sums(std::optional<knuth> const& first, std::span<knuth const* const> items);

/// Running sums over a list of items, so that what `stripped_line_sums` gives for any stretch of the
/// list taken as a line comes in constant time, however long the line. Entry `i` holds the sums of
/// the items before `i`: as they count inside a line (a penalty 0), and of those among them that a
/// line's end drops (glues, penalties, prohibited breaks), with where the run of items that a line's
/// end strips or passes over begins. Sums are doubles, so that differences of long sums keep the
/// precision of a line summed on its own.
struct sums_entry {
    double entry_width = 0;
    double entry_stretch = 0;
    double entry_shrink = 0;
    double dropped_width = 0;
    double dropped_stretch = 0;
    double dropped_shrink = 0;
    /// Items dropped at a line's end, counted.
    std::uint32_t dropped_count = 0;
    /// The first of the items that a line ending here strips from its end or passes over.
    std::uint32_t tail_start = 0;
    /// The width of the item before this entry if it is a penalty: counted only when it ends a line.
    float last_penalty_width = 0;
    bool last_is_penalty = false;
    bool operator==(sums_entry const&) const = default;
};

struct prefix_sums {
    std::vector<sums_entry> sums_entries = {sums_entry{}};
    bool operator==(prefix_sums const&) const = default;
};

/// Appends an item's contribution.
void sums_push(prefix_sums& sums, knuth const& item);

/// Forgets the items from `count` on.
void sums_truncate(prefix_sums& sums, std::size_t count);

/// The number of items summed.
std::size_t sums_size(prefix_sums const& sums);

/// The sums of items [from, to) as a line: its end stripped as `trim_line` strips it (unless it ends
/// in a penalty, whose hyphen is drawn), without the hyphenated words joined again.
line_sum sums_of_line(prefix_sums const& sums, std::size_t from, std::size_t to);

/// Whether the line of items [from, to) is empty once its end is stripped.
bool line_strips_to_nothing(prefix_sums const& sums, std::size_t from, std::size_t to);

/// Whether the item is a place where a line may break, given the item before it.
bool legal_break(knuth const* previous, knuth const& item);

/// How far a line of natural width `natural` must stretch or shrink to fill `target`.
adjustment_ratio adjustment_ratio_of(float target, float natural, float stretch, float shrink);

/// The indent box for a line: `indent` puts it on the first line, `hanging` on all others; an amount
/// of 0 gives none.
std::optional<knuth> indent_box(css::used_style::used_indent const& used_indent, line_kind kind);

/// Drops the discardable items at the start of a line (glues, penalties, prohibited breaks), passing
/// over inline box starts, indents, out-of-flow inline boxes and script ends.
std::vector<knuth> strip_leading(std::span<knuth const> items);

/// A copy of the items with the discardable ones at the end dropped, as `strip_leading` drops them at
/// the start (passing over the same items, backwards).
std::vector<knuth> stripped_trailing(std::span<knuth const* const> items);

/// What is left of a paragraph's items, cheap to copy and to take a line from: a shared list read from
/// `stream_from` on, behind a few items of its own that go first (kept reversed, the next one last).
/// A line takes its items off the front and puts back what it didn't use, so that a long paragraph
/// costs what its lines cost and a trial keeps its starting point by copying the stream.
struct item_stream {
    std::shared_ptr<std::vector<knuth> const> stream_base;
    std::size_t stream_from = 0;
    std::vector<knuth> stream_front_reversed;
    /// Equal when they hold the same items.
    bool operator==(item_stream const& other) const;
};

/// A stream over a list of items.
item_stream stream_of(std::vector<knuth> items);

/// Whether nothing is left.
bool stream_empty(item_stream const& s);

/// The number of items left.
std::size_t stream_size(item_stream const& s);

/// The next item; the stream must not be empty.
knuth const& stream_peek(item_stream const& s);

/// Takes the next item off the stream.
knuth stream_take(item_stream& s);

/// Puts an item in front of the stream: it is the next one taken.
void stream_put_back(item_stream& s, knuth item);

/// The items left, in order.
std::vector<knuth> stream_items(item_stream const& s);

/// `strip_leading` on the front of a stream.
void strip_leading(item_stream& s);

/// Whether the item is a forced break.
bool is_forced_break(knuth const& item);

/// Whether the item is a penalty.
bool is_penalty(knuth const& item);

/// How a line that ends at `item` ended.
break_type break_type_of(knuth const& item);

} // namespace vellum::pack::knuth

namespace vellum::prepack {

/// A paragraph continued from an earlier area: the items not placed yet, behind the inline boxes
/// still open where the earlier fragment stopped.
struct para_knuths {
    std::vector<pack::knuth::open> unclosed_open_tags1;
    pack::knuth::item_stream knuth_para1;
    bool operator==(para_knuths const&) const = default;
};

/// A paragraph continued with lines already broken for an area of `area_width`: they are kept when
/// the next area has the same width.
struct para_knuth_lines {
    float area_width = 0;
    std::vector<pack::knuth::open> unclosed_open_tags2;
    pack::knuth::knuth_para knuth_para2;
    pack::knuth::para_lines remain_lines;
    bool operator==(para_knuth_lines const&) const = default;
};

/// Items that go in front of a paragraph: a run-in heading or an outside marker, and the inline boxes
/// open at its end.
struct para_pass_in {
    pack::knuth::knuth_para pass_in_items;
    std::vector<pack::knuth::open> pass_in_open;
    bool operator==(para_pass_in const&) const = default;
};

} // namespace vellum::prepack
