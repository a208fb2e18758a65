// The box tree: what box generation makes of a styled document and what layout consumes. Blocks hold
// paragraphs, tables, list items and other blocks; paragraphs hold spans of text, separators and inline
// boxes. Nothing here is measured: widths, line breaks and page-dependent values are settled by layout.
// A block split over pages is again a block, so this is also the form unfinished content takes between
// pages.
#pragma once

#include "css/compute_style.hpp"
#include "css/page_rule.hpp"
#include "css/property.hpp"
#include "css/selector.hpp"
#include "css/style.hpp"
#include "css/styledom/declared.hpp"
#include "document/dom.hpp"
#include "resource/locator.hpp"
#include "util/boxed.hpp"
#include "util/rare.hpp"
#include "util/ref.hpp"
#include "util/textbuf.hpp"

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

// Content made by other subsystems, carried by the box tree without looking inside.
namespace vellum::svg {
/// A finished SVG or MathML drawing in user units (filled by the SVG and MathML builders).
struct svg_block;
} // namespace vellum::svg

namespace vellum::images {
/// An entry of the image table (filled by image loading).
struct image_id;
} // namespace vellum::images

namespace vellum::prepack {

struct block;
struct span;

// ---- Separators and text ----------------------------------------------------------------------------

/// The width of a fixed-width space character.
struct space_zero {
    bool operator==(space_zero const&) const = default;
};

/// A width in ems of the current font size.
struct space_ems {
    float ems = 0;
    bool operator==(space_ems const&) const = default;
};

/// As wide as this character in the current font.
struct space_equal_to {
    char32_t equal_to = U' ';
    bool operator==(space_equal_to const&) const = default;
};

/// Half as wide as this character in the current font.
struct space_equal_to_half {
    char32_t equal_to_half = U' ';
    bool operator==(space_equal_to_half const&) const = default;
};

using space_width = std::variant<space_zero, space_ems, space_equal_to, space_equal_to_half>;

/// A preserved line end: a forced break.
struct sep_newline {
    bool operator==(sep_newline const&) const = default;
};

/// A collapsible space, where the line may break.
struct sep_space {
    bool operator==(sep_space const&) const = default;
};

/// A space at which no break is allowed (white-space: nowrap and pre).
struct sep_nowrap_space {
    bool operator==(sep_nowrap_space const&) const = default;
};

/// A preserved space (pre, pre-wrap): it never collapses.
struct sep_pre_space {
    bool operator==(sep_pre_space const&) const = default;
};

/// U+200B: a break opportunity of no width.
struct sep_zwsp {
    bool operator==(sep_zwsp const&) const = default;
};

/// A break opportunity found by the line-break classes, between two characters of a word.
struct sep_wrap_opportunity {
    bool operator==(sep_wrap_opportunity const&) const = default;
};

/// A break opportunity between two CJK characters, which CJK justification may stretch.
struct sep_cjk_zw_space {
    bool operator==(sep_cjk_zw_space const&) const = default;
};

/// A fixed-width space character (no-break space, em space, thin space ...).
struct sep_charlike_space {
    prepack::space_width charlike_width;
    bool operator==(sep_charlike_space const&) const = default;
};

/// What stands between words. The order of the alternatives is fixed.
using separator = std::variant<sep_newline,
                               sep_space,
                               sep_nowrap_space,
                               sep_pre_space,
                               sep_zwsp,
                               sep_wrap_opportunity,
                               sep_cjk_zw_space,
                               sep_charlike_space>;

enum class hyphen_type : std::uint8_t { soft, hard };

/// A run of a paragraph's text: the code points [text_offset, text_offset + text_length) of the text
/// the paragraph holds (`para::para_text`). A word costs this small record, not a string of its own.
struct text_range {
    std::uint32_t text_offset = 0;
    std::uint32_t text_length = 0;
    bool operator==(text_range const&) const = default;
};

/// The paragraph text that text ranges point into: the words of every paragraph of a document, one after
/// another, shared by all of them and by every fragment layout makes of them.
using para_text = ref<textbuf::textbuf>;

/// The code points a range covers; a range reaching past the end of the text is an internal error.
std::u32string_view text_of(std::u32string_view text, text_range r);

/// The same in a paragraph's shared text; an empty range needs none.
std::u32string_view text_of(para_text const& text, text_range r);

/// The `count` code points of a range from `from` on (both within the range).
text_range sub_range(text_range r, std::size_t from, std::size_t count);

/// Appends code points to a paragraph text under construction and gives their range there.
text_range append_text(textbuf::textbuf& text, std::u32string_view more);

// ---- Generated content that waits for the page --------------------------------------------------------

/// Which value of a named string or counter a page shows when several were set on it.
enum class page_policy { first, first_except, last, start };

/// A target: a document, and an id in it (none means the document itself).
struct target_name {
    resource::locator::locator_url target_docname;
    std::optional<std::string> target_id;
    bool operator==(target_name const&) const = default;
};

/// The page counter, formatted by a counter style name.
struct page_counter {
    std::string counter_style;
    bool operator==(page_counter const&) const = default;
};

/// The total of pages.
struct pages_counter {
    std::string counter_style;
    bool operator==(pages_counter const&) const = default;
};

/// A counter's value at a target, known only once the target is packed.
struct target_counter {
    prepack::target_name target;
    std::string counter_name;
    std::string counter_style;
    /// The separator for counters() (all values of nested scopes); nothing for counter().
    std::optional<std::string> counter_join;
    bool operator==(target_counter const&) const = default;
};

/// The number of the current footnote.
struct footnote_counter {
    std::string counter_style;
    bool operator==(footnote_counter const&) const = default;
};

using counter_content = std::variant<page_counter, pages_counter, target_counter, footnote_counter>;

/// A named string as the page shows it.
struct gen_string {
    std::string string_name;
    prepack::page_policy string_policy = page_policy::first;
    bool operator==(gen_string const&) const = default;
};

struct gen_counter {
    prepack::counter_content counter;
    bool operator==(gen_counter const&) const = default;
};

/// A value of generated content settled on the page (filled by generated content).
using gen_content = std::variant<gen_string, gen_counter>;

struct text_thing;

/// A call of a function that a script registered for CSS, with its arguments, each a piece of generated
/// text. The function is found by its name when the call is reached in layout, since scripts may register
/// another one under the same name meanwhile.
struct script_func {
    std::string script_func_name;
    std::vector<std::vector<text_thing>> script_func_args;
    bool operator==(script_func const&) const;
};

/// What box generation and layout need of the script host: whether a function is registered under a
/// name, and calling it with string arguments (its result as a string; nothing if it failed, the reason
/// logged).
struct script_calls {
    std::function<bool(std::string const& name)> script_has;
    std::function<std::optional<std::string>(std::string const& name, std::vector<std::string> const& args)> script_call;
};

struct text_thing_text {
    textbuf::textbuf text;
    bool operator==(text_thing_text const&) const = default;
};

struct text_thing_gen {
    prepack::gen_content gen;
    bool operator==(text_thing_gen const&) const = default;
};

struct text_thing_script {
    prepack::script_func func;
    bool operator==(text_thing_script const&) const = default;
};

/// A piece of generated text: settled, or waiting for the page.
struct text_thing : std::variant<text_thing_text, text_thing_gen, text_thing_script> {
    using variant::variant;
};

// ---- Element identity, counters and strings --------------------------------------------------------------

/// A counter scope: the counters an element opened, with their values.
using counter_scope = std::vector<std::pair<std::string, int>>;

/// The scopes in force at an element, innermost first.
using counter_scopes = std::vector<counter_scope>;

/// The named strings an element sets (string-set), in order.
using text_values = std::vector<std::pair<std::string, std::vector<text_thing>>>;

/// A ::before, ::after or ::marker box: its style and the declarations it was computed from.
struct pseudo_element_info {
    ref<css::style::style> pseudo_element_style;
    std::vector<css::selector::pseudo_element> pseudo_element_pseudos;
    std::vector<css::property::property> pseudo_element_pdecls;
    /// The element it belongs to.
    dom::element_ref pseudo_element_parent;
    bool operator==(pseudo_element_info const&) const = default;
};

struct info_element {
    dom::element_ref element;
    bool operator==(info_element const&) const = default;
};

/// Shared: a box's type is copied into every fragment, line item and painted box it makes.
struct info_pseudo_element {
    ref<prepack::pseudo_element_info> pseudo;
    bool operator==(info_pseudo_element const& other) const {
        return pseudo == other.pseudo || (pseudo && other.pseudo && *pseudo == *other.pseudo);
    }
};

/// What a box stands for.
using element_info = std::variant<info_element, info_pseudo_element>;

/// A bookmark an element asks for (filled by bookmarks).
struct bookmark_stuff {
    int pre_bookmark_level = 1;
    css::box::bookmark_state pre_bookmark_state = css::box::bookmark_state::open;
    std::vector<text_thing> pre_bookmark_content;
    css::property::keyword_list pre_bookmark_link_type{"auto"};
    std::string bookmark_name;
    /// Where the bookmark leads when `bookmark-target` names a place: the URL as written and the
    /// target it names; nothing leads to the element itself.
    std::optional<std::string> pre_bookmark_url;
    std::optional<target_name> pre_bookmark_target;
    bool operator==(bookmark_stuff const&) const = default;
};

/// A target id an element carries: its id attribute or an anchor name.
struct target_id {
    std::string id;
    bool operator==(target_id const&) const = default;
};

/// What an element that makes a box brings with it.
struct element_stuff {
    prepack::element_info element_info;
    /// The element's bookmark and its number in document order. Rare, like the ids: on the heap.
    rare<std::pair<int, prepack::bookmark_stuff>> bookmark_stuff;
    /// The document and the ids that name this box as a target.
    rare<std::pair<resource::locator::locator, std::vector<target_id>>> given_ids;
    prepack::counter_scopes counter_scopes;
    prepack::text_values text_values;
    /// A running element taken out of the flow at this place: the name of its flow and its index in
    /// the document's static flows.
    rare<std::pair<std::string, std::size_t>> running;
    bool operator==(element_stuff const&) const = default;
};

/// A box's first part. What the element brings is shared, never copied: the type travels with every
/// fragment, line item and painted box of the element.
struct type_original {
    ref<prepack::element_stuff> stuff;
    bool operator==(type_original const& other) const {
        return stuff == other.stuff || (stuff && other.stuff && *stuff == *other.stuff);
    }
};

/// The continuation of a box split by a page or column break.
struct type_remaining {
    std::optional<prepack::element_info> info;
    bool operator==(type_remaining const&) const = default;
};

/// The part of a box moved on because its fixed height ended.
struct type_overflowing {
    std::optional<prepack::element_info> info;
    bool operator==(type_overflowing const&) const = default;
};

/// A box that no element asked for: an anonymous paragraph, table part or column container.
struct type_anonymous {
    bool operator==(type_anonymous const&) const = default;
};

using element_type = std::variant<type_original, type_remaining, type_overflowing, type_anonymous>;
static_assert(sizeof(element_type) <= 48, "a box's type is copied into every fragment and line item: keep it small");

/// The counters and strings an element contributes to its page when it is packed.
struct element_values {
    prepack::counter_scopes element_counter_scopes;
    prepack::text_values element_tvalues;
    bool operator==(element_values const&) const = default;
};

/// The counters and strings seen on a page: the last value of each from earlier pages, and the values
/// set on this page in order.
struct page_values {
    std::map<std::string, int> prev_cvalues;
    std::map<std::string, std::vector<text_thing>> prev_tvalues;
    std::map<std::string, std::vector<int>> curr_cvalues;
    std::map<std::string, std::vector<std::vector<text_thing>>> curr_tvalues;
    /// Running elements by flow name, as indexes into the document's static flows.
    std::map<std::string, std::size_t> prev_fvalues;
    std::map<std::string, std::vector<std::size_t>> curr_fvalues;
    bool operator==(page_values const&) const = default;
};

struct values_element {
    /// Whether the element lies in a static flow, whose values don't reach the page.
    bool is_static = false;
    prepack::element_values values;
    bool operator==(values_element const&) const = default;
};

struct values_page {
    prepack::page_values values;
    bool operator==(values_page const&) const = default;
};

/// Where generated content is evaluated: at an element, or on a page.
using values = std::variant<values_element, values_page>;

// ---- Backgrounds ----------------------------------------------------------------------------------------

/// An image layer by its resource (the image table turns it into an image when it is painted).
struct bg_image_url {
    resource::locator::locator bg_image_locator;
    bool operator==(bg_image_url const&) const = default;
};

/// A gradient layer, as written; the painter reads its function.
struct bg_image_gradient {
    css::value::function bg_gradient;
    bool operator==(bg_image_gradient const&) const = default;
};

using bg_image = std::variant<bg_image_url, bg_image_gradient>;

/// One background layer.
struct bg {
    std::optional<prepack::bg_image> bg_image;
    css::box::background_attachment bg_attachment = css::box::background_attachment::scroll;
    css::box::background_repeat bg_repeat;
    css::box::bg_position bg_position;
    css::box::bg_size bg_size = css::box::bg_size_pair<float>{};
    css::box::background_box bg_origin = css::box::background_box::padding_box;
    css::box::background_box bg_clip = css::box::background_box::border_box;
    bool operator==(bg const&) const = default;
};

// ---- Spans ------------------------------------------------------------------------------------------------

/// A compute context with the declarations to compute a style under it, as ::first-line and
/// ::first-letter need again when layout knows which text they cover.
struct styled_context {
    css::compute_style::compute_style_context context;
    std::vector<css::property::property> decls;
    bool operator==(styled_context const&) const = default;
};

/// An inline element or an embedding level: spans with the style they share.
struct nested_span {
    std::vector<span> span_content;
    ref<css::style::style> span_style;
    /// What is needed to compute the style again under ::first-line: the declarations the cascade
    /// gave the element (or pseudo-element), shared with it (null for none).
    css::compute_style::compute_style_context span_context;
    ref<std::vector<styledom::typed_pdecl>> span_decls;
    /// A bidi embedding level, for a span made by the bidi pass.
    std::optional<int> span_direction;
    prepack::element_type span_type = type_anonymous{};
    std::vector<bg> span_bg;
    bool operator==(nested_span const&) const;
};

/// A footnote whose body is a block.
struct block_footnote {
    ref<block> footnote_block;
    bool operator==(block_footnote const&) const = default;
};

/// A footnote whose body is inline text.
struct inline_footnote {
    std::vector<span> footnote_spans;
    bool operator==(inline_footnote const&) const;
};

using footnote_body = std::variant<block_footnote, inline_footnote>;

struct span_nested {
    boxed<prepack::nested_span> nested;
    bool operator==(span_nested const&) const = default;
};

/// A footnote: the call left in the text and the body moved to the foot of the page. The text of both
/// lies in the text of the paragraph that holds the call.
struct footnote {
    ref<span> call;
    prepack::footnote_body footnote_body;
    ref<css::style::style> footnote_style;
    bool operator==(footnote const&) const;
};

/// Footnotes are rare and their record is larger than a word's: boxed.
struct span_footnote {
    boxed<prepack::footnote> note;
    bool operator==(span_footnote const&) const = default;
};

/// An atomic inline box: inline-block, inline-table, replaced content.
struct span_inline_block {
    ref<block> inline_block;
    bool operator==(span_inline_block const&) const = default;
};

/// A run of word characters, in the paragraph's text.
struct span_text {
    text_range text;
    bool operator==(span_text const&) const = default;
};

/// A run of text that ends in a soft (U+00AD) or hard hyphen, where the line may break.
struct span_text_with_hyphen {
    text_range text;
    prepack::hyphen_type hyphen = hyphen_type::soft;
    bool operator==(span_text_with_hyphen const&) const = default;
};

/// A glyph of the font by its index, for list markers and MathML.
struct span_glyph_index {
    int glyph_index = 0;
    bool operator==(span_glyph_index const&) const = default;
};

struct span_sep {
    prepack::separator sep;
    bool operator==(span_sep const&) const = default;
};

/// A leader: its pattern repeated to fill the line, and the room it needs at least. Leaders are rare:
/// the pattern is boxed rather than kept in the paragraph's text, so that generated content can make
/// one without it.
struct span_leader {
    boxed<textbuf::textbuf> leader_pattern;
    float leader_min_width = 0;
    bool operator==(span_leader const&) const = default;
};

struct span_gen_content {
    boxed<prepack::gen_content> gen;
    bool operator==(span_gen_content const&) const = default;
};

/// A call of a script function; boxed, as it is rare and larger than a word.
struct span_script_func {
    ref<prepack::script_func> func;
    bool operator==(span_script_func const& other) const { return *func == *other.func; }
};

/// The first letter of a paragraph with the ::first-letter styles that apply to it, outermost first; its
/// text lies in the paragraph's text.
struct span_first_letter {
    boxed<std::vector<styled_context>> first_letter_styles;
    text_range first_letter_text;
    bool operator==(span_first_letter const&) const = default;
};

using span_alternative = std::variant<span_nested,
                                      span_footnote,
                                      span_inline_block,
                                      span_text,
                                      span_text_with_hyphen,
                                      span_glyph_index,
                                      span_sep,
                                      span_leader,
                                      span_gen_content,
                                      span_script_func,
                                      span_first_letter>;

/// One piece of a paragraph. Paragraphs hold many of them (one per word and per space), so each
/// alternative stays small: text is a range of the paragraph's text, and the large, rare alternatives
/// are boxed.
struct span : span_alternative {
    using span_alternative::span_alternative;
};
static_assert(sizeof(span) <= 24, "a span is one word of a paragraph: keep it small");

/// Spans compare alternative by alternative.
bool operator==(span const& a, span const& b);

// ---- Paragraphs -------------------------------------------------------------------------------------------

/// A paragraph not yet turned into items.
struct para_initial {
    bool operator==(para_initial const&) const = default;
};

/// A paragraph's items, and its lines as broken for an earlier fragment. Layout defines both records in
/// its own headers, with its item lists; the box tree only carries them from page to page.
struct para_knuths;
struct para_knuth_lines;

/// Where a paragraph stands in layout.
using para_content = std::variant<para_initial, ref<para_knuths>, ref<para_knuth_lines>>;

/// The item lists of a paragraph carried into the next pass (defined by layout).
struct para_pass_in;

struct para {
    std::vector<span> para_spans;
    /// The text that the text spans (nested ones and those of inline footnotes included) are ranges
    /// of. Paragraphs compare it by identity: equal spans of one text are equal paragraphs.
    prepack::para_text para_text;
    /// The ::first-line styles of the paragraph's block and of the blocks it starts, outermost first.
    std::optional<std::vector<styled_context>> first_line_style;
    int current_line_number = 0;
    prepack::para_content para_content = para_initial{};
    ref<para_pass_in> pass_in;
    bool operator==(para const&) const = default;
};

// ---- Lists ------------------------------------------------------------------------------------------------

/// A marker inside the first line: its text is already at the front of the content.
struct marker_inside {
    bool operator==(marker_inside const&) const = default;
};

/// A marker outside the box, beside its first line.
struct marker_outside {
    std::optional<ref<block>> marker_block;
    bool operator==(marker_outside const&) const = default;
};

using marker = std::variant<marker_inside, marker_outside>;

/// Sibling blocks, shared: the list that box generation made, seen from some place on, with at most a
/// few blocks of its own in front (the continuation of a split sibling). The parts of a container split
/// over many pages share one list, so a page costs nothing for the siblings still to come.
class block_list {
public:
    block_list() = default;
    /// A list of its own (implicit, as box generation builds plain vectors).
    block_list(std::vector<block> blocks);
    /// `head`, then the blocks of `rest` from `from` on.
    block_list(std::vector<block> head, block_list const& rest, std::size_t from);

    std::size_t size() const;
    bool empty() const { return size() == 0; }
    block const& operator[](std::size_t i) const;
    block const& front() const { return (*this)[0]; }
    /// The blocks from `from` on.
    block_list suffix(std::size_t from) const;
    /// The first block as one of this list's own, for box generation to finish it in place; it is
    /// copied out of the shared list if it is there.
    block& own_front();

    struct iterator {
        using iterator_category = std::forward_iterator_tag;
        using value_type = block;
        using difference_type = std::ptrdiff_t;
        using pointer = block const*;
        using reference = block const&;
        block_list const* list = nullptr;
        std::size_t index = 0;
        block const& operator*() const { return (*list)[index]; }
        block const* operator->() const { return &(*list)[index]; }
        iterator& operator++() {
            ++index;
            return *this;
        }
        iterator operator++(int) {
            auto const before = *this;
            ++index;
            return before;
        }
        bool operator==(iterator const& o) const { return index == o.index; }
    };
    iterator begin() const { return {this, 0}; }
    iterator end() const { return {this, size()}; }

    bool operator==(block_list const& other) const;

    /// The shared blocks this list is a view of, with where it starts in them, or a null pointer when
    /// the list has blocks of its own; the same pair means the same blocks for as long as the list lives.
    std::pair<void const*, std::size_t> shared_identity() const {
        return {list_head.empty() ? list_rest.get() : nullptr, list_from};
    }

private:
    std::vector<block> list_head;
    std::shared_ptr<std::vector<block> const> list_rest;
    std::size_t list_from = 0;
};

struct list_item {
    prepack::marker marker;
    block_list content;
    bool operator==(list_item const&) const;
};

// ---- Tables -----------------------------------------------------------------------------------------------

struct paddings {
    float padding_top0 = 0;
    float padding_right0 = 0;
    float padding_bottom0 = 0;
    float padding_left0 = 0;
    bool operator==(paddings const&) const = default;
};

/// Blocks, and the column id if they are the content of a multi-column container.
struct blocks_with_column {
    block_list blocks;
    std::optional<int> column_id;
    bool operator==(blocks_with_column const&) const;
};

struct cell0 {
    blocks_with_column cell_content;
    ref<css::style::style> cell_style;
    css::box::borders cell_borders;
    prepack::paddings cell_paddings;
    css::color::color cell_background_color = css::color::transparent{};
    int cell_colspan = 1;
    int cell_rowspan = 1;
    prepack::element_type cell_type = type_anonymous{};
    std::vector<bg> cell_bg;
    bool operator==(cell0 const&) const = default;
};

struct cell_cell {
    prepack::cell0 cell;
    bool operator==(cell_cell const&) const = default;
};

/// A grid position covered by a cell that spans columns (made by layout when it pads the grid).
struct cell_colspan {
    ref<css::style::style> colspan_style;
    css::box::borders colspan_borders;
    int colspan1 = 0;
    bool operator==(cell_colspan const&) const = default;
};

/// A grid position covered by a cell that spans rows (made by layout when it pads the grid).
struct cell_rowspan {
    ref<css::style::style> rowspan_style;
    css::box::borders rowspan_borders;
    int colspan2 = 0;
    int rowspan2 = 0;
    bool operator==(cell_rowspan const&) const = default;
};

using cell = std::variant<cell_cell, cell_colspan, cell_rowspan>;

struct row_breaks {
    css::box::page_break row_page_break_before = css::box::page_break::auto_;
    css::box::page_break row_page_break_after = css::box::page_break::auto_;
    css::box::page_break row_page_break_inside = css::box::page_break::auto_;
    css::box::column_break row_column_break_before = css::box::column_break::auto_;
    css::box::column_break row_column_break_after = css::box::column_break::auto_;
    bool operator==(row_breaks const&) const = default;
};

struct row {
    std::vector<cell> row_content;
    ref<css::style::style> row_style;
    prepack::row_breaks row_breaks;
    prepack::element_type row_type = type_anonymous{};
    std::vector<bg> row_bg;
    bool operator==(row const&) const = default;
};

struct rowgroup {
    std::vector<row> rowgroup_content;
    ref<css::style::style> rowgroup_style;
    prepack::element_type rowgroup_type = type_anonymous{};
    std::vector<bg> rowgroup_bg;
    bool operator==(rowgroup const&) const = default;
};

struct col {
    ref<css::style::style> col_style;
    css::box::borders col_borders;
    css::color::color col_bg_color = css::color::transparent{};
    bool operator==(col const&) const = default;
};

struct colgroup {
    std::vector<col> colgroup_cols;
    ref<css::style::style> colgroup_style;
    bool operator==(colgroup const&) const = default;
};

struct table {
    std::optional<rowgroup> header;
    std::optional<rowgroup> footer;
    std::vector<rowgroup> body;
    std::vector<colgroup> colgroups;
    bool operator==(table const&) const = default;
};

/// A table before its column widths are known, with its captions.
struct table_anony_box {
    prepack::table table;
    ref<css::style::style> table_style;
    std::vector<block> caption_tops;
    std::vector<block> caption_bottoms;
    std::vector<bg> table_bg;
    bool operator==(table_anony_box const&) const;
};

/// A table once its column widths are known (made by layout).
struct computed_table {
    ref<css::style::style> table_used_style;
    css::box::cellspacing table_used_cellspacing;
    std::optional<rowgroup> computed_header;
    std::optional<rowgroup> computed_footer;
    /// The body's groups, shared by every part of a table split over pages; the part starts at the
    /// row `computed_row_from` of the group `computed_group_from`.
    std::shared_ptr<std::vector<rowgroup> const> computed_body;
    std::size_t computed_group_from = 0;
    std::size_t computed_row_from = 0;
    /// The row that stands in for that first row when a page break cut into it: the rest of a row
    /// split across pages, or a row in which cells spanning rows from the page before carry on.
    std::optional<row> computed_first_row;
    std::vector<colgroup> computed_colgroups;
    /// Where the first column starts within the table's content box (the outer half of collapsed
    /// borders).
    float computed_grid_left = 0;
    std::vector<float> column_widths;
    std::vector<float> column_min_widths;
    std::vector<float> column_max_widths;
    bool operator==(computed_table const&) const = default;
};

/// A table box with its captions once the table's width is known (made by layout).
struct computed_table_anony_box {
    float table_width = 0;
    std::vector<block> caption_tops;
    std::vector<block> caption_bottoms;
    std::vector<block> table_blocks;
    bool table_started = false;
    bool operator==(computed_table_anony_box const&) const;
};

// ---- Blocks -----------------------------------------------------------------------------------------------

struct bcontent_blocks {
    block_list blocks;
    /// Set for a multi-column container; the columns of one container share the id.
    std::optional<int> column_id;
    bool operator==(bcontent_blocks const&) const;
};

struct bcontent_para {
    prepack::para para;
    bool operator==(bcontent_para const&) const = default;
};

// Tables are rare among blocks and their records are large: boxed, so that every block stays small.
struct bcontent_table {
    boxed<prepack::table_anony_box> table;
    bool operator==(bcontent_table const&) const = default;
};

struct bcontent_computed_table_box {
    prepack::computed_table_anony_box box;
    bool operator==(bcontent_computed_table_box const&) const = default;
};

struct bcontent_computed_table {
    boxed<prepack::computed_table> table;
    bool operator==(bcontent_computed_table const&) const = default;
};

struct bcontent_list_item {
    prepack::list_item item;
    bool operator==(bcontent_list_item const&) const = default;
};

/// An SVG or MathML drawing, with its baseline and depth for MathML (filled by those builders).
struct bcontent_svg {
    ref<svg::svg_block> svg;
    std::optional<std::pair<float, float>> svg_baseline;
    bool operator==(bcontent_svg const&) const = default;
};

/// A raster image (filled by image loading).
struct bcontent_image {
    ref<images::image_id> image;
    bool operator==(bcontent_image const&) const = default;
};

using bcontent = std::variant<bcontent_blocks,
                              bcontent_para,
                              bcontent_table,
                              bcontent_computed_table_box,
                              bcontent_computed_table,
                              bcontent_list_item,
                              bcontent_svg,
                              bcontent_image>;

struct block {
    prepack::bcontent block_content;
    ref<css::style::style> block_style;
    prepack::element_type block_type = type_anonymous{};
    std::vector<bg> block_bg;
    bool operator==(block const&) const;
};

// ---- Documents and page sections ------------------------------------------------------------------------

struct page_reset_to {
    int reset = 0;
    bool operator==(page_reset_to const&) const = default;
};

struct page_increment_by {
    int increment = 0;
    bool operator==(page_increment_by const&) const = default;
};

/// What a section does to the page or pages counter as it starts.
using page_reset = std::variant<page_reset_to, page_increment_by>;

/// How a page section starts: its page name and group, and the breaks around the cut before it.
struct page_desc {
    css::box::page_break prev_page_break_after = css::box::page_break::auto_;
    css::box::page_break sec_page_break_before = css::box::page_break::auto_;
    css::box::page_break sec_page_break_after = css::box::page_break::auto_;
    std::optional<page_reset> sec_page_counter_reset;
    std::optional<page_reset> sec_pages_counter_reset;
    css::box::page sec_page_name;
    css::box::page_group sec_page_group = css::box::page_group::auto_;
    /// Whether the section starts the document.
    bool sec_start = false;
    bool operator==(page_desc const&) const = default;
};

/// A run of body blocks that shares one page name.
struct page_sec {
    prepack::page_desc sec_desc;
    block_list sec_blocks;
    bool operator==(page_sec const&) const = default;
};

/// A block moved to a named flow (flow: static(name)), shown where margin boxes ask for the flow.
struct static_flow_block {
    std::string flow_name;
    prepack::block flow_block;
    bool operator==(static_flow_block const&) const = default;
};

/// A document ready for layout.
struct pack_document {
    resource::locator::locator pack_doc_name;
    /// The @page rules of the document's sheets.
    std::vector<css::page_rule::page_rule> pack_doc_pages;
    std::vector<page_sec> pack_doc_content;
    /// The root's style, whose background paints the page.
    ref<css::style::style> doc_background;
    /// The blocks of the named flows, in document order.
    std::vector<static_flow_block> static_flows;
    /// Every target the document names (its ids), as keys of cross-references.
    std::vector<std::string> pack_doc_target_keys;
    bool operator==(pack_document const&) const = default;
};

} // namespace vellum::prepack
