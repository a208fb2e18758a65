#include "pack/table_pack.hpp"

#include "pack/block.hpp"
#include "pack/blocks.hpp"
#include "pack/border_collapse.hpp"
#include "pack/margin_collapsing.hpp"
#include "pack/pad_table.hpp"
#include "pack/table_layout.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <mutex>
#include <unordered_map>

namespace vellum::pack::table_pack {

namespace {

namespace mc = margin_collapsing;
namespace bc = border_collapse;
using css::style::style;

constexpr float tolerance = 0.0001f;
// A trial area reaching far below any page, for content that is never split.
constexpr float far = 1000000.0f;

bool collapsing(style const& s) {
    return s.rare_props && s.rare_props->rare_props_border_collapse == css::box::border_collapse::collapse;
}

css::box::borders borders_of(ref<style> const& s) { return s && s->borders ? *s->borders : css::box::borders{}; }

bool right_to_left(style const& s) {
    return s.rare_props && s.rare_props->rare_props_direction == css::box::direction::rtl;
}

// Borders with their left and right sides exchanged. The grid of a right-to-left table is resolved in
// the order of its columns, from the right: what the resolution calls the left side is the start side.
css::box::borders mirrored(css::box::borders b, bool rtl) {
    if (rtl) {
        std::swap(b.borders_left, b.borders_right);
    }
    return b;
}

// ---- the grid ----

// A row of the grid with its group.
struct row_ref {
    prepack::row const* row = nullptr;
    prepack::rowgroup const* group = nullptr;
    bool group_first = false;
    bool group_last = false;
};

std::vector<row_ref> rows_of(prepack::rowgroup const& g, std::size_t from = 0) {
    std::vector<row_ref> out;
    auto const& rows = g.rowgroup_content;
    for (std::size_t i = from; i < rows.size(); ++i) {
        out.push_back({&rows[i], &g, i == 0, i + 1 == rows.size()});
    }
    return out;
}

// The grid of some rows for the border resolution: the rows' and groups' borders and the cells, their
// row spans cut at the last row given.
bc::grid grid_of(std::vector<row_ref> const& rows,
                 style const& table_style,
                 std::vector<prepack::colgroup> const& colgroups,
                 int columns) {
    bool const rtl = right_to_left(table_style);
    bc::grid g{.grid_rows = static_cast<int>(rows.size()),
               .grid_columns = columns,
               .grid_table = mirrored(table_style.borders ? *table_style.borders : css::box::borders{}, rtl)};
    int col = 0;
    for (auto const& cg : colgroups) {
        int const n = static_cast<int>(cg.colgroup_cols.size());
        g.grid_column_groups.push_back({.span_start = col, .span_count = n, .span_borders = mirrored(borders_of(cg.colgroup_style), rtl)});
        for (auto const& c : cg.colgroup_cols) {
            g.grid_column_borders.push_back(mirrored(c.col_borders, rtl));
        }
        col += n;
    }
    int r = 0;
    int group_start = 0;
    for (auto const& rr : rows) {
        g.grid_row_borders.push_back(mirrored(borders_of(rr.row->row_style), rtl));
        bool const next_other = r + 1 == static_cast<int>(rows.size()) || rows[r + 1].group != rr.group;
        if (next_other) {
            g.grid_row_groups.push_back({.span_start = group_start, .span_count = r - group_start + 1,
                                         .span_borders = mirrored(borders_of(rr.group->rowgroup_style), rtl)});
            group_start = r + 1;
        }
        for (int c = 0; c < static_cast<int>(rr.row->row_content.size()) && c < columns; ++c) {
            auto const* cc = std::get_if<prepack::cell_cell>(&rr.row->row_content[c]);
            if (!cc || !cc->cell.cell_style) {
                continue;
            }
            int const rowspan = std::min(cc->cell.cell_rowspan, static_cast<int>(rows.size()) - r);
            g.grid_cells.push_back({.gc_row = r, .gc_col = c, .gc_rowspan = rowspan,
                                    .gc_colspan = std::min(cc->cell.cell_colspan, columns - c),
                                    .gc_borders = mirrored(cc->cell.cell_borders, rtl)});
        }
        ++r;
    }
    return g;
}

// ---- cells ----

// The style a cell is packed with: as wide as its columns, its height a minimum, no margins; under
// collapsing borders the cell's share of its borders is room inside it and the grid draws them.
ref<style> cell_layout_style(style const& s, std::optional<css::box::borders> const& halves) {
    auto c = s;
    css::style::clear_width_limits(c);
    if (auto const* h = std::get_if<float>(&s.height)) {
        auto& r = css::style::own_rare_box(c);
        r.min_height = *h;
        r.max_height = css::box::none_value{};
    } else if (c.rare_box->max_height != css::box::max_width{css::box::none_value{}}) {
        css::style::own_rare_box(c).max_height = css::box::none_value{};
    }
    c.height = css::box::auto_value{};
    c.width = css::box::auto_value{};
    c.margin_top = 0.0f;
    c.margin_right = 0.0f;
    c.margin_bottom = 0.0f;
    c.margin_left = 0.0f;
    c.float_ = css::box::float_kind::none;
    c.bit_props.bit_props_position = css::box::position_kind::static_;
    c.box_sizing = css::box::box_sizing::content_box;
    if (halves) {
        auto add = [](css::box::padding& p, float w) {
            std::visit(overloaded{
                           [&](float& v) { v += w; },
                           [&](css::units::percentage& v) { v.percentage_offset += w; },
                       },
                       p);
        };
        add(c.padding_top, halves->borders_top.border_width);
        add(c.padding_right, halves->borders_right.border_width);
        add(c.padding_bottom, halves->borders_bottom.border_width);
        add(c.padding_left, halves->borders_left.border_width);
        auto b = s.borders ? *s.borders : css::box::borders{};
        for (auto* side : {&b.borders_top, &b.borders_right, &b.borders_bottom, &b.borders_left}) {
            side->border_width = 0;
            side->border_style = css::box::line_style::none;
        }
        c.borders = share(b);
    }
    return share(std::move(c));
}

prepack::block cell_block(prepack::cell0 const& c) {
    return prepack::block{.block_content = prepack::bcontent_blocks{c.cell_content.blocks, c.cell_content.column_id},
                          .block_style = c.cell_style,
                          .block_type = c.cell_type,
                          .block_bg = c.cell_bg};
}

// Packs a cell's content whole in a column of the given width with its top at `y`. What the content
// gathers (footnotes, targets) goes into `info`.
box pack_cell_box(page_info& info, prepack::cell0 const& c, float x, float w, float y = 0) {
    auto const flags = info.flags;
    info.flags.max_page_area = true;
    areas::area const trial{.top = y, .bottom = y - far, .left = x, .right = x + std::max(0.0f, w)};
    auto r = block::pack_block(std::move(info), block::inline_block{}, cell_block(c), mc::fresh(),
                               areas::areas{.container = trial, .available = {trial}});
    info = std::move(r.out_info);
    info.flags = flags;
    auto const* p = std::get_if<block::packed_main>(&r.res);
    check(p != nullptr, "pack_table: unexpected condition.");
    return *p->b_packed_box;
}

// A cell with its content taken out.
prepack::cell0 emptied(prepack::cell0 c) {
    c.cell_content = prepack::blocks_with_column{};
    return c;
}

// The rest of a cell whose content was cut: the cell holding the blocks left over.
prepack::cell0 rest_of(prepack::cell0 const& c, prepack::block const& remain) {
    auto const* rest_blocks = std::get_if<prepack::bcontent_blocks>(&remain.block_content);
    check(rest_blocks != nullptr, "pack_table: unexpected condition.");
    auto rest = c;
    rest.cell_content = prepack::blocks_with_column{rest_blocks->blocks, rest_blocks->column_id};
    // The rest is a continuation: under `box-decoration-break: slice` it has no top edge.
    rest.cell_type = remain.block_type;
    return rest;
}

// A cell's content packed from `y` down into `room`, taking at least something (the row is the first
// of its page): the part that went in, and the rest of the cell when it didn't all go in.
struct bounded_cell {
    box part;
    std::optional<prepack::cell0> rest;
};

std::optional<bounded_cell>
pack_cell_bounded(page_info& info, prepack::cell0 const& c, float x, float w, float y, float room) {
    auto const flags = info.flags;
    info.flags.max_page_area = true;
    areas::area const a{.top = y, .bottom = y - std::max(0.0f, room), .left = x, .right = x + std::max(0.0f, w)};
    auto r = block::pack_block(info, block::inline_block{}, cell_block(c), mc::fresh(),
                               areas::areas{.container = a, .available = {a}});
    auto* p = std::get_if<block::packed_main>(&r.res);
    if (!p) {
        info.flags = flags;
        return std::nullopt;
    }
    info = std::move(r.out_info);
    info.flags = flags;
    bounded_cell out{.part = *p->b_packed_box, .rest = std::nullopt};
    if (p->b_remain_portion) {
        out.rest = rest_of(c, *p->b_remain_portion);
    }
    return out;
}

// The width of a cell's content at its narrowest and unwrapped, with its padding and borders. The
// trials pack in `scratch`, whose gatherings are dropped.
// A cell's measured widths, by the blocks it shows and the style it was declared with.
struct measure_key {
    std::pair<void const*, std::size_t> content;
    style const* declared = nullptr;
    bool operator==(measure_key const&) const = default;
};

struct measure_key_hash {
    std::size_t operator()(measure_key const& k) const {
        return std::hash<void const*>{}(k.content.first) ^ (k.content.second * 0x9e3779b97f4a7c15ull) ^
               (std::hash<void const*>{}(k.declared) << 1);
    }
};

struct measured_widths {
    /// The collapsed border halves the widths were measured with.
    std::optional<css::box::borders> halves;
    std::pair<float, float> widths;
};

struct measure_memo {
    int depth = 0;
    std::unordered_map<measure_key, measured_widths, measure_key_hash> widths;
};

thread_local measure_memo memo;

// While a cell is packed only to learn its widths, the tables inside it need no rows: a table's box is
// as wide as its columns, which come from its own cells' measured widths. Leaving the rows out keeps
// the measuring of nested tables linear in their depth, where packing every row of every inner table
// again for each outer trial width made it cubic.
thread_local int widths_only = 0;

struct widths_only_scope {
    widths_only_scope() { ++widths_only; }
    ~widths_only_scope() { --widths_only; }
    widths_only_scope(widths_only_scope const&) = delete;
    widths_only_scope& operator=(widths_only_scope const&) = delete;
};

// Whether a style changes nothing of the page state that the cells measured after it could read:
// counters and named strings.
bool writes_no_page(style const& s) {
    auto const& r = *s.rare_box;
    auto const& initial = *css::style::initial_rare_box();
    return r.counter_increment == initial.counter_increment && r.counter_reset == initial.counter_reset &&
           r.string_set == initial.string_set;
}

// Whether packing these spans reads nothing of the page or the pass and leaves it as it was: text and
// spaces only, in inline elements of any depth that set no counter or string. Generated content,
// notes, leaders, inline boxes, script calls and first letters may all read or change what the page
// holds.
bool reads_no_page(std::vector<prepack::span> const& spans) {
    return std::ranges::all_of(spans, [](prepack::span const& s) {
        return std::visit(overloaded{
                              [](prepack::span_nested const& n) {
                                  return (!n.nested->span_style || writes_no_page(*n.nested->span_style)) &&
                                         reads_no_page(n.nested->span_content);
                              },
                              [](prepack::span_text const&) { return true; },
                              [](prepack::span_text_with_hyphen const&) { return true; },
                              [](prepack::span_glyph_index const&) { return true; },
                              [](prepack::span_sep const&) { return true; },
                              [](prepack::span_footnote const&) { return false; },
                              [](prepack::span_inline_block const&) { return false; },
                              [](prepack::span_leader const&) { return false; },
                              [](prepack::span_gen_content const&) { return false; },
                              [](prepack::span_script_func const&) { return false; },
                              [](prepack::span_first_letter const&) { return false; },
                          },
                          static_cast<prepack::span_alternative const&>(s));
    });
}

// The same for blocks: paragraphs of such spans and plain containers of them, in the normal flow, that
// set no counter or string either.
bool reads_no_page(prepack::block_list const& blocks) {
    return std::ranges::all_of(blocks, [](prepack::block const& b) {
        if (!b.block_style || !writes_no_page(*b.block_style) ||
            b.block_style->float_ != css::box::floaty{css::box::float_kind::none} ||
            b.block_style->bit_props.bit_props_position !=
                css::box::position{css::box::position_kind::static_} ||
            b.block_style->rare_box->flow != css::box::flowy{css::box::flow_normal{}}) {
            return false;
        }
        if (auto const* p = std::get_if<prepack::bcontent_para>(&b.block_content)) {
            return std::holds_alternative<prepack::para_initial>(p->para.para_content) &&
                   reads_no_page(p->para.para_spans);
        }
        if (auto const* c = std::get_if<prepack::bcontent_blocks>(&b.block_content)) {
            return !c->column_id && reads_no_page(c->blocks);
        }
        return false;
    });
}

std::pair<float, float> measure_uncached(page_info& scratch, prepack::cell0 const& c) {
    widths_only_scope const only_widths;
    float const narrow = block::natural_width(pack_cell_box(scratch, c, 0, 0));
    float const wide = block::natural_width(pack_cell_box(scratch, c, 0, far));
    return {narrow, std::max(narrow, wide)};
}

} // namespace

struct measured_cells {
    struct entry {
        /// The cell's content and style, kept so that their addresses in the key stay theirs.
        prepack::block_list content;
        ref<style> declared;
        /// The collapsed border halves the widths were measured with; null for none.
        ref<css::box::borders> halves;
        std::pair<float, float> widths;

        bool measured_with(std::optional<css::box::borders> const& h) const {
            return halves ? h && *halves == *h : !h;
        }
    };

    std::mutex lock;
    std::unordered_map<measure_key, entry, measure_key_hash> entries;
    /// The border halves met lately: the cells of a table have a few kinds between them (an edge, the
    /// middle), which the entries share.
    std::vector<ref<css::box::borders>> recent_halves;

    ref<css::box::borders> halves_of(std::optional<css::box::borders> const& h) {
        if (!h) {
            return nullptr;
        }
        if (auto const it = std::ranges::find_if(recent_halves, [&](auto const& r) { return *r == *h; });
            it != recent_halves.end()) {
            return *it;
        }
        if (recent_halves.size() == 16) {
            recent_halves.erase(recent_halves.begin());
        }
        recent_halves.push_back(share(*h));
        return recent_halves.back();
    }
};

std::shared_ptr<measured_cells> new_measured_cells() {
    return std::make_shared<measured_cells>();
}

namespace {

// `declared` is the cell's style before the table's borders were given to it, `halves` those borders.
std::pair<float, float> measure_cell(page_info& scratch,
                                     prepack::cell0 const& c,
                                     ref<style> const& declared,
                                     std::optional<css::box::borders> const& halves) {
    auto const content = c.cell_content.blocks.shared_identity();
    if (content.first == nullptr) {
        return measure_uncached(scratch, c);
    }
    measure_key const key{content, declared.get()};
    auto* const kept = scratch.general.run->cells.get();
    bool const keeps = kept != nullptr && !c.cell_content.column_id && reads_no_page(c.cell_content.blocks);
    if (keeps) {
        std::lock_guard guard(kept->lock);
        if (auto const it = kept->entries.find(key);
            it != kept->entries.end() && it->second.measured_with(halves)) {
            return it->second.widths;
        }
    }
    // The memo of this measuring serves the cells the pass-to-pass table does not keep.
    bool const memoized = !keeps && memo.depth > 0;
    if (memoized) {
        if (auto const it = memo.widths.find(key); it != memo.widths.end() && it->second.halves == halves) {
            return it->second.widths;
        }
    }
    auto const widths = measure_uncached(scratch, c);
    if (memoized) {
        memo.widths.insert_or_assign(key, measured_widths{halves, widths});
    }
    if (keeps) {
        std::lock_guard guard(kept->lock);
        kept->entries.insert_or_assign(key, measured_cells::entry{.content = c.cell_content.blocks,
                                                                  .declared = declared,
                                                                  .halves = kept->halves_of(halves),
                                                                  .widths = widths});
    }
    return widths;
}

css::box::width spec_of(css::box::width const& w, float edges) {
    if (auto const* l = std::get_if<float>(&w)) {
        return *l + edges;
    }
    return w;
}

float side_edges(css::used_style::used_style const& u) {
    return u.used_borders.borders_left.border_width + u.used_padding_left + u.used_padding_right +
           u.used_borders.borders_right.border_width;
}

// ---- rows ----

struct measured_cell {
    box cell_box;
    int col = 0;
    int rowspan = 1;
    float height = 0;
    /// The distance from the top of the cell to its first baseline (or its content's bottom).
    float base = 0;
    css::box::vertical_align_kind valign = css::box::vertical_align_kind::baseline;
    /// The y at which the cell's content was packed: placing the cell moves it by the difference.
    float packed_at = 0;
};

struct measured_row {
    row_ref ref;
    std::vector<measured_cell> cells;
    float height = 0;
    float base = 0;
    /// The distance from the top of the first row of the run to this row's top.
    float offset = 0;
};

css::box::vertical_align_kind valign_of(style const& s) {
    if (auto const* k = std::get_if<css::box::vertical_align_kind>(&s.vertical_align)) {
        switch (*k) {
        case css::box::vertical_align_kind::top:
        case css::box::vertical_align_kind::middle:
        case css::box::vertical_align_kind::bottom:
            return *k;
        default:
            break;
        }
    }
    return css::box::vertical_align_kind::baseline;
}

// The geometry of the columns: each column's left edge from the grid's left, and its width.
struct columns {
    std::vector<float> x;
    std::vector<float> w;
    /// The left edge of columns c to c + n - 1, whichever way they run.
    float left(int c, int n) const { return std::min(x[c], x[c + n - 1]); }
    float span_width(int c, int n) const {
        return std::max(x[c] + w[c], x[c + n - 1] + w[c + n - 1]) - left(c, n);
    }
};

// A run of rows packed one below the other, with the cells spanning rows due on their last row.
struct row_run {
    std::vector<measured_row> rows;
    float spacing = 0;
    /// Where the run's first row will stand, when that is known as its rows are measured: cells are
    /// packed in place then, and a table nested in a cell is not moved (and copied) again by every
    /// table around it.
    float top_hint = 0;

    // The height the next row needs, and the row itself.
    measured_row measure(page_info& info, row_ref const& rr, columns const& cols, float grid_left) const {
        measured_row m{.ref = rr};
        float const offset = rows.empty() ? 0 : rows.back().offset + rows.back().height + spacing;
        float const packed_at = top_hint - offset;
        auto const& content = rr.row->row_content;
        for (int c = 0; c < static_cast<int>(content.size()) && c < static_cast<int>(cols.w.size()); ++c) {
            auto const* cc = std::get_if<prepack::cell_cell>(&content[c]);
            if (!cc || !cc->cell.cell_style) {
                continue;
            }
            int const span = std::clamp(cc->cell.cell_colspan, 1, static_cast<int>(cols.w.size()) - c);
            auto b = pack_cell_box(info, cc->cell, grid_left + cols.left(c, span), cols.span_width(c, span), packed_at);
            float const h = b.box_h;
            auto const baseline = block::first_baseline(b);
            float const base = baseline ? b.box_y - *baseline : h;
            m.cells.push_back(measured_cell{.cell_box = std::move(b), .col = c, .rowspan = std::max(1, cc->cell.cell_rowspan),
                                            .height = h, .base = base, .valign = valign_of(*cc->cell.cell_style),
                                            .packed_at = packed_at});
        }
        m.offset = offset;
        settle(m);
        return m;
    }

    // A row's height and baseline from its measured cells.
    void settle(measured_row& m) const {
        float height = 0;
        if (auto const* h = std::get_if<float>(&m.ref.row->row_style->height)) {
            height = *h;
        }
        float base = 0;
        for (auto const& c : m.cells) {
            if (c.valign == css::box::vertical_align_kind::baseline) {
                base = std::max(base, c.base);
            }
        }
        for (auto const& c : m.cells) {
            if (c.rowspan == 1) {
                float const shift = c.valign == css::box::vertical_align_kind::baseline ? base - c.base : 0;
                height = std::max(height, shift + c.height);
            }
        }
        m.base = base;
        // Cells spanning rows that end here: the row is as high as what is left of them.
        for (auto const& r : rows) {
            for (auto const& c : r.cells) {
                if (c.rowspan > 1 && r.offset >= 0 && &r - rows.data() + c.rowspan - 1 == static_cast<long>(rows.size())) {
                    height = std::max(height, c.height - (m.offset - r.offset));
                }
            }
        }
        m.height = height;
    }

    float total() const { return rows.empty() ? 0 : rows.back().offset + rows.back().height; }

    // Makes the rows `extra` taller together, each by its share of their heights (equal shares when
    // they have none).
    void grow(float extra) {
        float sum = 0;
        for (auto const& r : rows) {
            sum += r.height;
        }
        float shift = 0;
        for (auto& r : rows) {
            r.offset += shift;
            float const add = sum > 0 ? extra * r.height / sum : extra / static_cast<float>(rows.size());
            r.height += add;
            shift += add;
        }
    }

    // The first row of a page measured in the room the page has, its cells packed into that room at
    // once: the row whole when it fits, or else its part on this page with the rest of the row. Packing
    // the cells whole and then again into the room would, with tables nested in cells, pack each level
    // anew for every level around it on every page. None when a cell spans rows (their room is not
    // the row's) or a cell could not be packed.
    struct first_row {
        measured_row row;
        /// The rest of the row when it was cut at the room.
        std::optional<prepack::row> rest;
    };
    std::optional<first_row>
    measure_first(page_info& info, row_ref const& rr, columns const& cols, float grid_left, float room) const {
        auto const& content = rr.row->row_content;
        for (auto const& c : content) {
            if (auto const* cc = std::get_if<prepack::cell_cell>(&c); cc && cc->cell.cell_rowspan > 1) {
                return std::nullopt;
            }
        }
        auto trial = info;
        measured_row m{.ref = rr};
        float const packed_at = top_hint;
        auto rest = *rr.row;
        rest.row_type = prepack::type_remaining{};
        bool cut = false;
        for (int c = 0; c < static_cast<int>(content.size()) && c < static_cast<int>(cols.w.size()); ++c) {
            auto const* cc = std::get_if<prepack::cell_cell>(&content[c]);
            if (!cc || !cc->cell.cell_style) {
                continue;
            }
            int const span = std::clamp(cc->cell.cell_colspan, 1, static_cast<int>(cols.w.size()) - c);
            float const x = grid_left + cols.left(c, span);
            float const w = cols.span_width(c, span);
            auto b = pack_cell_bounded(trial, cc->cell, x, w, packed_at, room);
            if (!b) {
                return std::nullopt;
            }
            float const h = b->part.box_h;
            auto const baseline = block::first_baseline(b->part);
            float const base = baseline ? b->part.box_y - *baseline : h;
            cut = cut || b->rest.has_value();
            auto next = b->rest ? *b->rest : emptied(cc->cell);
            rest.row_content[static_cast<std::size_t>(c)] = prepack::cell_cell{std::move(next)};
            for (int k = 1; k < span; ++k) {
                rest.row_content[static_cast<std::size_t>(c + k)] = prepack::cell_colspan{
                    .colspan_style = cc->cell.cell_style, .colspan_borders = cc->cell.cell_borders, .colspan1 = k};
            }
            m.cells.push_back(measured_cell{.cell_box = std::move(b->part), .col = c, .rowspan = 1, .height = h,
                                            .base = base, .valign = valign_of(*cc->cell.cell_style),
                                            .packed_at = packed_at});
        }
        info = std::move(trial);
        if (!cut) {
            // The row fits: measured as it would be whole.
            settle(m);
            return first_row{.row = std::move(m), .rest = std::nullopt};
        }
        // Cut: its cells stand at the top of the room, which the row fills.
        for (auto& c : m.cells) {
            c.valign = css::box::vertical_align_kind::top;
            c.base = 0;
        }
        m.height = room;
        m.offset = 0;
        return first_row{.row = std::move(m), .rest = std::move(rest)};
    }
};

// ---- rows cut by a page break ----

// A cell's content packed into the room left on the page: the part that went in, if anything did, and
// the rest of the cell for the next page, if it didn't finish.
struct cell_cut {
    std::optional<box> cut_part;
    std::optional<prepack::cell0> cut_rest;
};

cell_cut cut_cell(page_info& info, prepack::cell0 const& c, float x, float w, float room) {
    auto const flags = info.flags;
    info.flags.max_page_area = false;
    areas::area const a{.top = 0, .bottom = -std::max(0.0f, room), .left = x, .right = x + std::max(0.0f, w)};
    auto r = block::pack_block(info, block::inline_block{}, cell_block(c), mc::fresh(),
                               areas::areas{.container = a, .available = {a}});
    cell_cut out;
    if (auto* p = std::get_if<block::packed_main>(&r.res)) {
        info = std::move(r.out_info);
        out.cut_part = *p->b_packed_box;
        if (p->b_remain_portion) {
            out.cut_rest = rest_of(c, *p->b_remain_portion);
        }
    } else {
        out.cut_rest = c;
    }
    info.flags = flags;
    return out;
}

// A cell of a row cut by a page break: its part on this page, at the top of its room, and what goes
// on in `rest` at its column. Whether the part holds some of the cell's content.
bool cut_into(page_info& info,
              measured_cell& mc,
              prepack::cell0 const& cell,
              columns const& cols,
              float grid_left,
              float room,
              prepack::row& rest,
              int rest_rowspan) {
    int const span = std::clamp(cell.cell_colspan, 1, static_cast<int>(cols.w.size()) - mc.col);
    float const x = grid_left + cols.left(mc.col, span);
    float const w = cols.span_width(mc.col, span);
    auto cut = cut_cell(info, cell, x, w, room);
    bool const progress = cut.cut_part && !cell.cell_content.blocks.empty();
    mc.cell_box = cut.cut_part ? *cut.cut_part : pack_cell_box(info, emptied(cell), x, w);
    mc.height = mc.cell_box.box_h;
    mc.base = 0;
    mc.valign = css::box::vertical_align_kind::top;
    mc.packed_at = 0;
    auto next = cut.cut_rest ? *cut.cut_rest : emptied(cell);
    next.cell_rowspan = rest_rowspan;
    rest.row_content[static_cast<std::size_t>(mc.col)] = prepack::cell_cell{std::move(next)};
    for (int k = 1; k < span; ++k) {
        rest.row_content[static_cast<std::size_t>(mc.col + k)] =
            prepack::cell_colspan{.colspan_style = cell.cell_style, .colspan_borders = cell.cell_borders, .colspan1 = k};
    }
    return progress;
}

// A row too tall for the room left, cut at `room`: its cells' parts, and the rest of the row, whose
// cells hold what is left of them (nothing, for cells that finished). None when no cell could put
// anything on this page.
std::optional<std::pair<measured_row, prepack::row>>
split_row(page_info& info, measured_row const& m, columns const& cols, float grid_left, float room) {
    auto part = m;
    part.height = room;
    part.base = 0;
    auto rest = *m.ref.row;
    rest.row_type = prepack::type_remaining{};
    bool progress = false;
    for (auto& c : part.cells) {
        auto const& cell = std::get<prepack::cell_cell>(m.ref.row->row_content[static_cast<std::size_t>(c.col)]).cell;
        progress = cut_into(info, c, cell, cols, grid_left, room, rest, cell.cell_rowspan) || progress;
        c.rowspan = 1;
    }
    if (!progress) {
        return std::nullopt;
    }
    return std::pair{std::move(part), std::move(rest)};
}

// Cells spanning rows past the last row of the page are cut at the page's last row: what is left of
// them goes on in the first row of the rest of the table, in place of the positions they hold there.
// When that last row was itself split (`last_cut`), the cells spanning down to it go on as well, and
// its own cells are cut already.
void carry_rowspans(page_info& info,
                    row_run& run,
                    bool last_cut,
                    prepack::row& first_rest,
                    columns const& cols,
                    float grid_left) {
    float const bottom = run.total();
    std::size_t const ended = run.rows.size() - (last_cut ? 1 : 0);
    for (std::size_t i = 0; i < ended; ++i) {
        auto& r = run.rows[i];
        for (auto& c : r.cells) {
            if (i + static_cast<std::size_t>(c.rowspan) <= ended) {
                continue;
            }
            auto const* below = std::get_if<prepack::cell_rowspan>(&first_rest.row_content[static_cast<std::size_t>(c.col)]);
            auto const* cc = std::get_if<prepack::cell_cell>(&r.ref.row->row_content[static_cast<std::size_t>(c.col)]);
            if (!below || !cc) {
                continue;
            }
            cut_into(info, c, cc->cell, cols, grid_left, bottom - r.offset, first_rest, below->rowspan2);
        }
    }
}

// Combines the break values between two rows: forced on either side wins, then avoid.
enum class row_break { always, auto_, avoid };

bool forced(css::box::page_break b) { return block::is_forced(b); }

row_break break_between(row_ref const& prev, row_ref const& cur, style const& table_style, flags const& f) {
    auto after = prev.row->row_breaks.row_page_break_after;
    auto before = cur.row->row_breaks.row_page_break_before;
    css::box::page_break group_after = css::box::page_break::auto_;
    css::box::page_break group_before = css::box::page_break::auto_;
    if (prev.group_last && prev.group->rowgroup_style) {
        group_after = prev.group->rowgroup_style->bit_props.bit_props_page_break_after;
    }
    if (cur.group_first && cur.group->rowgroup_style) {
        group_before = cur.group->rowgroup_style->bit_props.bit_props_page_break_before;
    }
    if (forced(after) || forced(before) || forced(group_after) || forced(group_before)) {
        return row_break::always;
    }
    auto const avoid = [&f](css::box::page_break b) { return avoids_break(b, f); };
    bool const same_group = prev.group == cur.group;
    if (avoid(after) || avoid(before) || avoid(group_after) || avoid(group_before) ||
        (same_group && cur.group->rowgroup_style &&
         avoid(cur.group->rowgroup_style->bit_props.bit_props_page_break_inside)) ||
        avoid(table_style.bit_props.bit_props_page_break_inside)) {
        return row_break::avoid;
    }
    return row_break::auto_;
}

// A rectangle of the page: left, top, width, height.
struct area {
    float x = 0;
    float y = 0;
    float w = 0;
    float h = 0;
};

// The styles of the grid's columns and of the column groups around them, by column.
struct column_styles {
    std::vector<ref<style>> cols;
    /// The group's style at the group's first column, empty elsewhere.
    std::vector<ref<style>> groups;
    std::vector<std::size_t> spans;

    explicit column_styles(std::vector<prepack::colgroup> const& colgroups, int ncols) {
        for (auto const& cg : colgroups) {
            for (std::size_t k = 0; k < cg.colgroup_cols.size(); ++k) {
                cols.push_back(cg.colgroup_cols[k].col_style);
                groups.push_back(k == 0 ? cg.colgroup_style : ref<style>{});
                spans.push_back(k == 0 ? cg.colgroup_cols.size() : 0);
            }
        }
        // Columns of the grid that no column element stands for have no background; elements past
        // the grid's last column have no cells to show theirs in.
        std::size_t const n = static_cast<std::size_t>(std::max(0, ncols));
        cols.resize(n);
        groups.resize(n);
        spans.resize(n);
        for (std::size_t k = 0; k < n; ++k) {
            spans[k] = std::min(spans[k], n - k);
        }
    }
    std::size_t size() const { return cols.size(); }
    bool group_starts(std::size_t k) const { return groups[k] && spans[k] > 0; }
    std::size_t group_span(std::size_t k) const { return spans[k]; }
};

// The background of a column, a row or a group of them: it shows only where its cells are, so that
// the border spacing between them shows the table's background. Its colour is painted in each cell's
// area; its images, placed on the whole box, are painted over the whole box.
void track_background(ref<style> const& s, area const& whole, std::vector<area> const& cells,
                      std::vector<rowbox>& out) {
    if (!s || !s->background) {
        return;
    }
    auto const& bg = *s->background;
    if (!std::holds_alternative<css::color::transparent>(static_cast<css::color::color_alternative const&>(bg.background_color))) {
        auto colour = share(css::box::background{.background_color = bg.background_color});
        for (auto const& a : cells) {
            css::used_style::used_style u{.used_background_color = bg.background_color, .used_background = colour};
            out.push_back({share(box{.box_x = a.x, .box_y = a.y, .box_w = a.w, .box_h = a.h, .box_style = s,
                                     .box_used_style = u}),
                           a.y});
        }
    }
    bool const images = std::ranges::any_of(bg.background_image, [](auto const& i) {
        return !std::holds_alternative<css::box::none_value>(i);
    });
    if (images) {
        auto used = css::used_style::used_style_of(*s, whole.w, std::nullopt);
        css::used_style::used_style u{.used_background = used.used_background};
        out.push_back({share(box{.box_x = whole.x, .box_y = whole.y, .box_w = whole.w, .box_h = whole.h, .box_style = s,
                                 .box_used_style = u}),
                       whole.y});
    }
}

// The boxes of a run of rows whose first row's top is at `top`, the cells spanning rows cut at the
// run's last row.
void place_run(row_run const& run,
               float top,
               columns const& cols,
               float grid_left,
               bool collapse,
               column_styles const& col_styles,
               std::vector<rowbox>& backgrounds,
               std::vector<rowbox>& cells) {
    if (run.rows.empty()) {
        return;
    }
    // A grid without columns (rows with no cell) still has its rows, of no width.
    int const ncols = static_cast<int>(cols.x.size());
    float const left = grid_left + (ncols == 0 ? 0 : cols.left(0, ncols));
    float const width = ncols == 0 ? 0 : cols.span_width(0, ncols);
    float const run_top = top - run.rows.front().offset;
    float const run_bottom = top - run.rows.back().offset - run.rows.back().height;
    // The rectangles the cells of the run cover, by the row and the column they start in: the areas
    // in which the columns', groups' and rows' backgrounds show.
    std::vector<std::vector<area>> by_row(run.rows.size());
    std::vector<std::vector<area>> by_col(col_styles.size());
    for (std::size_t i = 0; i < run.rows.size(); ++i) {
        float const y = top - run.rows[i].offset;
        for (auto const& c : run.rows[i].cells) {
            std::size_t const last = std::min(run.rows.size() - 1, i + static_cast<std::size_t>(c.rowspan) - 1);
            area const a{c.cell_box.box_x, y, c.cell_box.box_w, y - (top - run.rows[last].offset - run.rows[last].height)};
            by_row[i].push_back(a);
            if (c.col >= 0 && static_cast<std::size_t>(c.col) < by_col.size()) {
                by_col[static_cast<std::size_t>(c.col)].push_back(a);
            }
        }
    }
    // Painted from the bottom layer up: column groups, columns, row groups, rows; the cells last.
    for (std::size_t k = 0; k < col_styles.size(); ++k) {
        if (col_styles.group_starts(k)) {
            std::vector<area> areas;
            std::size_t const n = col_styles.group_span(k);
            for (std::size_t j = k; j < k + n; ++j) {
                areas.insert(areas.end(), by_col[j].begin(), by_col[j].end());
            }
            int const c = static_cast<int>(k);
            int const span = static_cast<int>(n);
            track_background(col_styles.groups[k],
                             {grid_left + cols.left(c, span), run_top, cols.span_width(c, span), run_top - run_bottom},
                             areas, backgrounds);
        }
    }
    for (std::size_t k = 0; k < col_styles.size(); ++k) {
        track_background(col_styles.cols[k], {grid_left + cols.x[k], run_top, cols.w[k], run_top - run_bottom}, by_col[k],
                         backgrounds);
    }
    std::size_t start = 0;
    for (std::size_t i = 0; i < run.rows.size(); ++i) {
        if (i + 1 == run.rows.size() || run.rows[i + 1].ref.group != run.rows[i].ref.group) {
            auto const* g = run.rows[i].ref.group;
            float const y0 = top - run.rows[start].offset;
            float const y1 = top - run.rows[i].offset - run.rows[i].height;
            std::vector<area> areas;
            for (std::size_t j = start; j <= i; ++j) {
                areas.insert(areas.end(), by_row[j].begin(), by_row[j].end());
            }
            track_background(g->rowgroup_style, {left, y0, width, y0 - y1}, areas, backgrounds);
            start = i + 1;
        }
    }
    for (std::size_t i = 0; i < run.rows.size(); ++i) {
        auto const& r = run.rows[i];
        float const y = top - r.offset;
        track_background(r.ref.row->row_style, {left, y, width, r.height}, by_row[i], backgrounds);
    }
    for (std::size_t i = 0; i < run.rows.size(); ++i) {
        auto const& r = run.rows[i];
        float const y = top - r.offset;
        std::vector<ref<box>> placed;
        for (auto const& c : r.cells) {
            std::size_t const last = std::min(run.rows.size() - 1, i + static_cast<std::size_t>(c.rowspan) - 1);
            float const bottom = top - run.rows[last].offset - run.rows[last].height;
            float const h = y - bottom;
            float shift = 0;
            switch (c.valign) {
            case css::box::vertical_align_kind::top:
                break;
            case css::box::vertical_align_kind::middle:
                shift = std::max(0.0f, (h - c.height) / 2);
                break;
            case css::box::vertical_align_kind::bottom:
                shift = std::max(0.0f, h - c.height);
                break;
            default:
                shift = r.base - c.base;
                break;
            }
            auto b = c.cell_box;
            if (float const dy = y - shift - c.packed_at; dy != 0) {
                block::shift_box(b, 0, dy);
            }
            b.box_y = y;
            b.box_h = h;
            bool const hide_empty = !collapse && b.box_style && b.box_style->rare_props &&
                                    b.box_style->rare_props->rare_props_empty_cells == css::box::empty_cells::hide;
            if (hide_empty && c.cell_box.box_h >= 0 && std::holds_alternative<pack::boxes>(b.box_content) &&
                std::get<pack::boxes>(b.box_content).boxes_list.empty()) {
                // empty-cells: hide draws neither background nor borders around a cell with no content.
                b.box_used_style = css::used_style::used_style{};
            }
            placed.push_back(share(std::move(b)));
        }
        cells.push_back({share(box{.box_x = left, .box_y = y, .box_w = width, .box_h = r.height,
                                   .box_content = pack::boxes{std::move(placed)}, .box_style = r.ref.row->row_style}),
                         y - r.base});
    }
}

// The collapsed borders of the rows of a page, one border box per grid position: each draws the edge
// above it and the one on its start side (its left, or its right when the columns run from the right),
// and the last row and column the edges below and at the end.
std::vector<std::vector<border_box>> border_boxes(bc::resolved const& res,
                                                  std::vector<float> const& row_tops,
                                                  std::vector<float> const& row_heights,
                                                  columns const& cols,
                                                  float grid_left,
                                                  bool rtl) {
    std::vector<std::vector<border_box>> out;
    int const n = static_cast<int>(cols.w.size());
    for (int r = 0; r < res.resolved_rows; ++r) {
        std::vector<border_box> row;
        row.reserve(static_cast<std::size_t>(n));
        for (int c = 0; c < n; ++c) {
            css::box::borders sides;
            sides.borders_top = res.above(r, c);
            // The resolution's left is the start side: the right one when the columns run from the right.
            auto& start = rtl ? sides.borders_right : sides.borders_left;
            auto& end = rtl ? sides.borders_left : sides.borders_right;
            start = res.left_of(r, c);
            if (r + 1 == res.resolved_rows) {
                sides.borders_bottom = res.above(r + 1, c);
            }
            if (c + 1 == n) {
                end = res.left_of(r, c + 1);
            }
            float const x0 = grid_left + cols.x[c] - bc::drawn_width(sides.borders_left) / 2;
            float const x1 = grid_left + cols.x[c] + cols.w[c] + bc::drawn_width(sides.borders_right) / 2;
            float const y0 = row_tops[r] + bc::drawn_width(sides.borders_top) / 2;
            float const y1 = row_tops[r] - row_heights[r] - bc::drawn_width(sides.borders_bottom) / 2;
            for (auto* s : {&sides.borders_top, &sides.borders_right, &sides.borders_bottom, &sides.borders_left}) {
                if (bc::drawn_width(*s) <= 0) {
                    *s = css::box::border{};
                }
            }
            row.push_back(border_box{.border_box_x = x0, .border_box_y = y0, .border_box_w = x1 - x0,
                                     .border_box_h = y0 - y1, .collapsed_borders = sides});
        }
        out.push_back(std::move(row));
    }
    return out;
}

// Packs captions as blocks of the table's width from `top` down; returns the y below them.
float pack_captions(page_info& info, std::vector<prepack::block> const& captions, areas::areas const& inner, float top,
                    std::vector<ref<box>>& out) {
    if (captions.empty()) {
        return top;
    }
    areas::area trial = inner.container;
    trial.top = top;
    trial.bottom = top - far;
    auto const flags = info.flags;
    info.flags.max_page_area = true;
    auto r = blocks::pack_blocks(std::move(info), prepack::block_list(captions), mc::fresh(),
                                 areas::areas{.container = trial, .available = {trial}});
    if (auto* p = std::get_if<blocks::packed_main>(&r.res)) {
        out.insert(out.end(), p->bs_packed_boxes.begin(), p->bs_packed_boxes.end());
    }
    auto const c = mc::commit(r.out_gap, r.out_areas);
    info = std::move(r.out_info);
    info.flags = flags;
    return c.commit_areas.container.top;
}

// The captions that show on a part of a split table, by their caption-page: on the first part, on the
// parts that follow it, or on all.
std::vector<prepack::block> captions_on(std::vector<prepack::block> const& captions, bool first_part) {
    std::vector<prepack::block> out;
    for (auto const& c : captions) {
        auto const page = c.block_style && c.block_style->rare_props ? c.block_style->rare_props->rare_props_caption_page
                                                                     : css::box::caption_page::first;
        bool const shows = page == css::box::caption_page::all_pages ||
                           (page == css::box::caption_page::first) == first_part;
        if (shows) {
            out.push_back(c);
        }
    }
    return out;
}

} // namespace

measure_scope::measure_scope() {
    ++memo.depth;
}

measure_scope::~measure_scope() {
    if (--memo.depth == 0) {
        memo.widths.clear();
    }
}

prepack::computed_table_anony_box compute_table(page_info const& info,
                                                prepack::table_anony_box const& t,
                                                ref<css::style::style> const& table_style,
                                                float available) {
    auto const& ts = *table_style;
    bool const collapse = collapsing(ts);
    auto const& src = t.table;

    int ncols = 0;
    for (auto const& cg : src.colgroups) {
        ncols += static_cast<int>(cg.colgroup_cols.size());
    }
    if (src.header) {
        ncols = std::max(ncols, pad_table::column_count(src.header->rowgroup_content));
    }
    if (src.footer) {
        ncols = std::max(ncols, pad_table::column_count(src.footer->rowgroup_content));
    }
    for (auto const& g : src.body) {
        ncols = std::max(ncols, pad_table::column_count(g.rowgroup_content));
    }
    auto pad = [&](prepack::rowgroup const& g) {
        auto out = g;
        out.rowgroup_content = pad_table::pad_rows(g.rowgroup_content, ncols);
        return out;
    };
    std::optional<prepack::rowgroup> header;
    std::optional<prepack::rowgroup> footer;
    if (src.header) {
        header = pad(*src.header);
    }
    if (src.footer) {
        footer = pad(*src.footer);
    }
    std::vector<prepack::rowgroup> body;
    body.reserve(src.body.size());
    for (auto const& g : src.body) {
        body.push_back(pad(g));
    }

    // Every row in reading order: header, body, footer.
    std::vector<prepack::rowgroup*> groups;
    if (header) {
        groups.push_back(&*header);
    }
    for (auto& g : body) {
        groups.push_back(&g);
    }
    if (footer) {
        groups.push_back(&*footer);
    }
    std::optional<bc::resolved> resolved;
    if (collapse) {
        std::vector<row_ref> all;
        for (auto* g : groups) {
            auto r = rows_of(*g);
            all.insert(all.end(), r.begin(), r.end());
        }
        resolved = bc::resolve(grid_of(all, ts, src.colgroups, ncols));
    }

    // The cells get the style they are packed with, and tell what they ask of their columns.
    float const hs = collapse ? 0 : ts.rare_props->rare_props_border_spacing.cellspacing_h;
    bool const fixed = ts.rare_box->table_layout == css::box::table_layout::fixed &&
                       !std::holds_alternative<css::box::auto_value>(ts.width);
    std::vector<table_layout::cell_width> cells;
    std::vector<table_layout::cell_width> first_row;
    page_info scratch = info;
    bool first_row_done = false;
    int row_index = 0;
    for (auto* g : groups) {
        for (auto& r : g->rowgroup_content) {
            for (int c = 0; c < static_cast<int>(r.row_content.size()); ++c) {
                auto* cc = std::get_if<prepack::cell_cell>(&r.row_content[c]);
                if (!cc || !cc->cell.cell_style) {
                    continue;
                }
                auto& cell = cc->cell;
                auto const declared = cell.cell_style;
                auto const& original = *declared;
                std::optional<css::box::borders> halves;
                if (resolved) {
                    halves = mirrored(bc::cell_halves(*resolved, row_index, c, cell.cell_rowspan, cell.cell_colspan),
                                      right_to_left(ts));
                }
                cell.cell_style = cell_layout_style(original, halves);
                auto const used = css::used_style::used_style_of(*cell.cell_style, 0, std::nullopt);
                table_layout::cell_width w{.cell_start = c,
                                           .cell_span = cell.cell_colspan,
                                           .cell_specw = spec_of(original.width, side_edges(used))};
                if (!fixed) {
                    std::tie(w.cell_minw, w.cell_maxw) = measure_cell(scratch, cell, declared, halves);
                } else if (!first_row_done) {
                    first_row.push_back(w);
                }
                cells.push_back(w);
            }
            first_row_done = first_row_done || !r.row_content.empty();
            ++row_index;
        }
    }

    std::vector<css::box::width> col_specs(static_cast<std::size_t>(ncols), css::box::auto_value{});
    {
        std::size_t i = 0;
        for (auto const& cg : src.colgroups) {
            for (auto const& c : cg.colgroup_cols) {
                auto w = c.col_style->width;
                if (std::holds_alternative<css::box::auto_value>(w) && cg.colgroup_style) {
                    w = cg.colgroup_style->width;
                }
                if (i < col_specs.size()) {
                    col_specs[i++] = w;
                }
            }
        }
    }

    // The spacing around the columns: border spacing, or the outer halves of collapsed borders.
    float outer = static_cast<float>(ncols + 1) * hs;
    float grid_left = 0;
    if (resolved && ncols > 0) {
        float left = 0;
        float right = 0;
        for (int r = 0; r < resolved->resolved_rows; ++r) {
            left = std::max(left, bc::drawn_width(resolved->left_of(r, 0)) / 2);
            right = std::max(right, bc::drawn_width(resolved->left_of(r, ncols)) / 2);
        }
        outer = left + right;
        // The grid starts after the outer half of the border on the table's left: that of its last
        // column when the columns run from the right.
        grid_left = right_to_left(ts) ? right : left;
    }
    if (ncols == 0) {
        outer = 0;
    }
    std::optional<float> spec;
    if (!std::holds_alternative<css::box::auto_value>(ts.width)) {
        spec = available;
    }
    std::vector<float> widths;
    float table_width = 0;
    std::vector<float> minw(static_cast<std::size_t>(ncols), 0);
    std::vector<float> maxw(static_cast<std::size_t>(ncols), 0);
    if (fixed) {
        table_width = std::max(*spec, outer);
        widths =
            table_layout::fixed_layout(info.general.run->log, col_specs, first_row, table_width - outer, hs);
        float sum = outer;
        for (float w : widths) {
            sum += w;
        }
        table_width = std::max(table_width, sum);
    } else {
        auto cols = table_layout::auto_columns(info.general.run->log, col_specs, cells, hs);
        for (std::size_t i = 0; i < cols.size(); ++i) {
            minw[i] = cols[i].column_minw;
            maxw[i] = cols[i].column_maxw;
        }
        table_width = table_layout::auto_table_width(cols, spec, available, outer);
        widths = table_layout::auto_layout(std::move(cols), table_width - outer);
        float sum = outer;
        for (float w : widths) {
            sum += w;
        }
        table_width = std::max(table_width, sum);
    }

    prepack::computed_table ct{.table_used_style = table_style,
                               .table_used_cellspacing = collapse ? css::box::cellspacing{}
                                                                  : ts.rare_props->rare_props_border_spacing,
                               .computed_header = std::move(header),
                               .computed_footer = std::move(footer),
                               .computed_body =
                                   std::make_shared<std::vector<prepack::rowgroup> const>(std::move(body)),
                               .computed_colgroups = src.colgroups,
                               .computed_grid_left = grid_left,
                               .column_widths = std::move(widths),
                               .column_min_widths = std::move(minw),
                               .column_max_widths = std::move(maxw)};
    return prepack::computed_table_anony_box{
        .table_width = table_width,
        .caption_tops = t.caption_tops,
        .caption_bottoms = t.caption_bottoms,
        .table_blocks = {prepack::block{.block_content = prepack::bcontent_computed_table{std::move(ct)},
                                        .block_style = table_style}},
    };
}

void use_table_width(prepack::computed_table_anony_box const& t, css::used_style::used_style& used) {
    used.used_width = t.table_width;
    // A table's height is a minimum, which its rows make up for: the box is as tall as its content.
    used.used_height.reset();
    auto const& s = *t.table_blocks.at(0).block_style;
    if (collapsing(s)) {
        used.used_borders.borders_top.border_width = 0;
        used.used_borders.borders_right.border_width = 0;
        used.used_borders.borders_bottom.border_width = 0;
        used.used_borders.borders_left.border_width = 0;
        for (auto* side : {&used.used_borders.borders_top, &used.used_borders.borders_right,
                           &used.used_borders.borders_bottom, &used.used_borders.borders_left}) {
            side->border_style = css::box::line_style::none;
        }
        used.used_padding_top = 0;
        used.used_padding_right = 0;
        used.used_padding_bottom = 0;
        used.used_padding_left = 0;
    }
}

packed_table pack_table(page_info info,
                        prepack::computed_table_anony_box const& t,
                        areas::areas const& inner,
                        float caption_left,
                        float caption_right) {
    auto const& ct = *std::get<prepack::bcontent_computed_table>(t.table_blocks.at(0).block_content).table;
    auto const& ts = *ct.table_used_style;
    bool const collapse = collapsing(ts);
    float const hs = ct.table_used_cellspacing.cellspacing_h;
    float const vs = ct.table_used_cellspacing.cellspacing_v;
    column_styles const col_styles(ct.computed_colgroups, static_cast<int>(ct.column_widths.size()));
    int const ncols = static_cast<int>(ct.column_widths.size());
    auto const original_info = info;

    columns cols;
    {
        float x = hs;
        for (float w : ct.column_widths) {
            cols.x.push_back(x);
            cols.w.push_back(w);
            x += w + hs;
        }
        // A right-to-left table runs its columns from the right.
        if (right_to_left(ts)) {
            for (std::size_t k = 0; k < cols.x.size(); ++k) {
                cols.x[k] = x - cols.x[k] - cols.w[k];
            }
        }
    }
    // The captions span the table's border box.
    auto caption_areas = inner;
    caption_areas.container.left -= caption_left;
    caption_areas.container.right += caption_right;
    for (auto& band : caption_areas.available) {
        band.left -= caption_left;
        band.right += caption_right;
    }
    std::vector<ref<box>> outside;
    float y = inner.container.top;
    bool const first_part = !t.table_started;
    y = pack_captions(info, captions_on(t.caption_tops, first_part), caption_areas, y, outside);
    float const grid_start = y;
    // The captions below this part take their room from the rows.
    auto const bottom_captions = captions_on(t.caption_bottoms, first_part);
    float bottom_captions_h = 0;
    if (!bottom_captions.empty()) {
        auto trial = info;
        std::vector<ref<box>> ignored;
        bottom_captions_h =
            inner.container.top - pack_captions(trial, bottom_captions, caption_areas, inner.container.top, ignored);
    }

    // The rows of this part.
    std::vector<row_ref> header_rows;
    std::vector<row_ref> footer_rows;
    if (ct.computed_header) {
        header_rows = rows_of(*ct.computed_header);
    }
    if (ct.computed_footer) {
        footer_rows = rows_of(*ct.computed_footer);
    }
    // Under collapsing borders the grid sits inside the outer half of the table's left border.
    float const grid_left = inner.container.left + ct.computed_grid_left;
    // Under collapsing borders the outer half of the top border lies above the first row.
    if (collapse && ncols > 0) {
        std::vector<row_ref> first;
        if (!header_rows.empty()) {
            first.push_back(header_rows.front());
        } else {
            for (std::size_t k = ct.computed_group_from; k < ct.computed_body->size() && first.empty(); ++k) {
                auto const from = k == ct.computed_group_from ? ct.computed_row_from : 0;
                auto rows = rows_of((*ct.computed_body)[k], from);
                if (!rows.empty()) {
                    first.push_back(rows.front());
                }
            }
        }
        if (!first.empty()) {
            auto const res = bc::resolve(grid_of(first, ts, ct.computed_colgroups, ncols));
            float half = 0;
            for (int c = 0; c < ncols; ++c) {
                half = std::max(half, bc::drawn_width(res.above(0, c)) / 2);
            }
            y -= half;
        }
    }
    auto measure_all = [&](std::vector<row_ref> const& rows, float top) {
        row_run run{.spacing = vs, .top_hint = top};
        for (auto const& r : rows) {
            auto m = run.measure(info, r, cols, grid_left);
            run.rows.push_back(std::move(m));
        }
        return run;
    };
    if (widths_only > 0) {
        header_rows.clear();
        footer_rows.clear();
    }
    float const top_edge = collapse ? 0 : vs;
    row_run header = measure_all(header_rows, y - top_edge);
    // The footer's place is known only once the body rows are in.
    row_run footer = measure_all(footer_rows, 0);
    float const bottom_edge = collapse ? 0 : vs;

    // The body rows, one after the other while they fit.
    auto const& body = *ct.computed_body;
    row_run run{.spacing = vs};
    // What each row found the page holding, to undo the rows that go to the next page.
    struct snapshot {
        pack::accum accum;
        pack::packed_stuff stuff;
        eval_knuth::page_state state;
    };
    std::vector<snapshot> info_before;
    auto apply = [](page_info& to, snapshot const& from) {
        to.accum = from.accum;
        to.packed_stuff = from.stuff;
        to = with_state(std::move(to), from.state);
    };
    // The first row of the rest of the table, when it is not the body's own.
    std::optional<prepack::row> first_rest;
    // Whether the last row of the page is the first part of a split row.
    bool split_last = false;
    std::size_t g = ct.computed_group_from;
    std::size_t r = ct.computed_row_from;
    float const header_h = header.rows.empty() ? 0 : header.total() + vs;
    float const footer_h = footer.rows.empty() ? 0 : footer.total() + vs;
    float const body_top = y - top_edge - header_h;
    run.top_hint = body_top;
    float const limit = inner.container.bottom + footer_h + bottom_edge + bottom_captions_h;
    bool const must_place = info.flags.max_page_area;
    // The most a row can have on any page: the body of a page less the header and footer.
    float const page_room = areas::height_of(info.general.body_area) - header_h - footer_h - top_edge - bottom_edge;
    std::size_t stop_g = g;
    std::size_t stop_r = r;
    bool more = false;
    if (widths_only > 0) {
        g = body.size();
    }
    while (g < body.size()) {
        auto const& group = body[g];
        if (r >= group.rowgroup_content.size()) {
            ++g;
            r = 0;
            continue;
        }
        bool const carried = ct.computed_first_row && g == ct.computed_group_from && r == ct.computed_row_from;
        row_ref const rr{carried ? &*ct.computed_first_row : &group.rowgroup_content[r], &group, r == 0,
                         r + 1 == group.rowgroup_content.size()};
        if (!run.rows.empty() && break_between(run.rows.back().ref, rr, ts, info.flags) == row_break::always) {
            more = true;
            break;
        }
        info_before.push_back({info.accum, info.packed_stuff, state_of(info)});
        // The first row of a page that must take something is packed into the page's room straight
        // away, and cut there when it is taller.
        std::optional<row_run::first_row> first;
        if (run.rows.empty() && must_place && body_top - limit > tolerance) {
            first = run.measure_first(info, rr, cols, grid_left, body_top - limit);
        }
        if (first && first->rest) {
            run.rows.push_back(std::move(first->row));
            first_rest = std::move(first->rest);
            split_last = true;
            more = true;
            break;
        }
        auto m = first ? std::move(first->row) : run.measure(info, rr, cols, grid_left);
        float const bottom = body_top - m.offset - m.height;
        if (bottom < limit - tolerance) {
            // A row taller than a whole page is split where the page ends, each cell going on in the
            // rest of the row on the next page; so is the first row of a page, which has nowhere else
            // to go. Other rows go on whole.
            float const room = body_top - m.offset - limit;
            bool const taller_than_page = m.height > page_room + tolerance;
            bool const may_split = !avoids_break(rr.row->row_breaks.row_page_break_inside, info.flags) &&
                                   !avoids_break(ts.bit_props.bit_props_page_break_inside, info.flags);
            if (room > tolerance && ((run.rows.empty() && must_place) || (taller_than_page && may_split))) {
                auto trial = info;
                apply(trial, info_before.back());
                if (auto split = split_row(trial, m, cols, grid_left, room)) {
                    info = std::move(trial);
                    run.rows.push_back(std::move(split->first));
                    first_rest = std::move(split->second);
                    split_last = true;
                    more = true;
                    break;
                }
            }
            if (run.rows.empty()) {
                if (!must_place) {
                    return packed_table{.refused = true, .info = original_info, .areas = inner};
                }
                log::log_warning_once(info.general.run->log,
                                      "a table row taller than the page could not be split: it runs past the "
                                      "bottom of the page");
                run.rows.push_back(std::move(m));
                ++r;
                more = true;
                continue;
            }
            // Back over the rows that mustn't be parted from the one that didn't fit.
            std::size_t keep = run.rows.size();
            auto cur = rr;
            while (keep > 0 && break_between(run.rows[keep - 1].ref, cur, ts, info.flags) == row_break::avoid) {
                cur = run.rows[keep - 1].ref;
                --keep;
            }
            if (keep == 0) {
                if (!must_place) {
                    return packed_table{.refused = true, .info = original_info, .areas = inner};
                }
                keep = run.rows.size();
            }
            apply(info, info_before[keep]);
            // Where the rest starts: the first row dropped.
            auto const* first_dropped = keep < run.rows.size() ? run.rows[keep].ref.row : rr.row;
            run.rows.resize(keep);
            // The group and row of the first row dropped, at or before the current one.
            if (ct.computed_first_row && first_dropped == &*ct.computed_first_row) {
                // The row carried over from the page before goes on again.
                g = ct.computed_group_from;
                r = ct.computed_row_from;
                first_rest = *ct.computed_first_row;
            }
            while (!first_rest) {
                auto const& rows = body[g].rowgroup_content;
                if (!rows.empty() && first_dropped >= rows.data() && first_dropped < rows.data() + rows.size()) {
                    r = static_cast<std::size_t>(first_dropped - rows.data());
                    break;
                }
                check(g > ct.computed_group_from, "pack_table: unexpected condition.");
                --g;
            }
            more = true;
            break;
        }
        run.rows.push_back(std::move(m));
        ++r;
    }
    stop_g = g;
    stop_r = r;
    // Skip past empty groups at the end.
    while (stop_g < body.size() && stop_r >= body[stop_g].rowgroup_content.size()) {
        ++stop_g;
        stop_r = 0;
    }
    more = more && (first_rest || stop_g < body.size());
    if (more) {
        // The cells spanning rows past this page carry on in the first row of the rest.
        bool const last_cut = first_rest.has_value() && split_last;
        if (!first_rest) {
            first_rest = ct.computed_first_row && stop_g == ct.computed_group_from && stop_r == ct.computed_row_from
                             ? *ct.computed_first_row
                             : body[stop_g].rowgroup_content[stop_r];
        }
        carry_rowspans(info, run, last_cut, *first_rest, cols, grid_left);
    }

    // The page's grid: header, body rows, footer, one below the other.
    std::vector<rowbox> backgrounds;
    std::vector<rowbox> cell_rows;
    std::vector<float> row_tops;
    std::vector<float> row_heights;
    float cursor = y - top_edge;
    std::vector<row_ref> page_rows;
    auto place = [&](row_run const& part) {
        if (part.rows.empty()) {
            return;
        }
        place_run(part, cursor, cols, grid_left, collapse, col_styles, backgrounds, cell_rows);
        for (auto const& m : part.rows) {
            row_tops.push_back(cursor - m.offset);
            row_heights.push_back(m.height);
            page_rows.push_back(m.ref);
        }
        cursor -= part.total() + vs;
    };
    auto place_all = [&] {
        backgrounds.clear();
        cell_rows.clear();
        row_tops.clear();
        row_heights.clear();
        page_rows.clear();
        cursor = y - top_edge;
        place(header);
        place(run);
        place(footer);
    };
    place_all();
    std::optional<bc::resolved> res;
    float bottom_half = 0;
    if (collapse && !page_rows.empty() && ncols > 0) {
        res = bc::resolve(grid_of(page_rows, ts, ct.computed_colgroups, ncols));
        for (int c = 0; c < ncols; ++c) {
            bottom_half = std::max(bottom_half, bc::drawn_width(res->above(res->resolved_rows, c)) / 2);
        }
    }
    auto bottom_of_grid = [&] { return row_tops.empty() ? y : cursor + vs - bottom_edge - bottom_half; };
    // A table's height is a minimum: a table in one part that its rows leave shorter gets taller
    // body rows, each by its share of its height.
    auto const spec = css::used_style::used_style_of(ts, t.table_width, std::nullopt).used_height;
    if (spec && !more && first_part && !run.rows.empty()) {
        float const extra = *spec - (grid_start - bottom_of_grid());
        if (extra > tolerance) {
            run.grow(extra);
            place_all();
        }
    }
    float grid_bottom = bottom_of_grid();
    // A table without rows is as tall as its height says.
    if (spec && !more && first_part && run.rows.empty()) {
        grid_bottom = std::min(grid_bottom, grid_start - *spec);
    }

    tablebox tb;
    tb.tablebox_cells_from = backgrounds.size();
    tb.rows = std::move(backgrounds);
    tb.rows.insert(tb.rows.end(), std::make_move_iterator(cell_rows.begin()), std::make_move_iterator(cell_rows.end()));
    if (res) {
        tb.borders = border_boxes(*res, row_tops, row_heights, cols, grid_left, right_to_left(ts));
    }
    float grid_top = y;
    pack::box_content grid_content = pack::table{std::move(tb)};

    float end = grid_bottom;
    std::optional<prepack::bcontent> remain;
    if (more) {
        auto rest_table = ct;
        rest_table.computed_group_from = stop_g;
        rest_table.computed_row_from = stop_r;
        rest_table.computed_first_row = std::move(first_rest);
        auto rest = t;
        rest.table_started = true;
        rest.table_blocks.at(0).block_content = prepack::bcontent_computed_table{std::move(rest_table)};
        remain = prepack::bcontent_computed_table_box{std::move(rest)};
    }
    end = pack_captions(info, bottom_captions, caption_areas, grid_bottom, outside);

    packed_table out{.info = std::move(info), .areas = mc::moved_down(inner, inner.container.top - end)};
    out.remain = std::move(remain);
    if (outside.empty()) {
        out.content = std::move(grid_content);
    } else {
        // Captions around the grid: the grid gets a box of its own, which paints nothing itself.
        auto grid = share(box{.box_x = inner.container.left,
                              .box_y = grid_top,
                              .box_w = areas::width_of(inner.container),
                              .box_h = grid_top - grid_bottom,
                              .box_content = std::move(grid_content),
                              .box_style = ct.table_used_style});
        std::vector<ref<box>> parts;
        for (auto const& b : outside) {
            if (b->box_y > grid_top - tolerance) {
                parts.push_back(b);
            }
        }
        parts.push_back(grid);
        for (auto const& b : outside) {
            if (b->box_y <= grid_top - tolerance) {
                parts.push_back(b);
            }
        }
        out.content = table_anony_box{std::move(parts)};
    }
    return out;
}

} // namespace vellum::pack::table_pack
