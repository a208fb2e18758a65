#include "pack/static.hpp"

#include "css/compute_style.hpp"
#include "css/propnames.hpp"
#include "css/used_style.hpp"
#include "pack/margin_boxes.hpp"
#include "pack/para_main.hpp"
#include "prepack/counter_style.hpp"
#include "prepack/generated.hpp"
#include "prepack/text.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <utility>

namespace vellum::pack::static_ {

namespace {

using css::page::region;
using prepack::counter_style::format_counter;
using prepack::generated::ident_of;
using prepack::generated::policy_named;
using css::propnames::prop_name;

// How deep a named string may refer to others through the values it was set to, before the lookup
// gives up: a string set from itself must not send the page into a loop.
constexpr int max_string_depth = 8;

// Room below a box's content when it is packed: margin boxes let their content overflow rather than
// cut it, so the paragraph is packed into an area with no real bottom.
constexpr float unbounded_height = 100000;

// A width wide enough for any line of a margin box, to measure its content unwrapped.
constexpr float unbounded_width = 100000;

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

// ---- Content terms ----------------------------------------------------------------------------------

// The value a page shows of a name set several times: `prev` is the value the earlier pages ended
// with, `curr` the values set on this page in order.
template <class T>
T const* by_policy(std::map<std::string, std::vector<T>> const& curr,
                   std::map<std::string, T> const& prev,
                   std::string const& name,
                   prepack::page_policy policy) {
    auto const c = curr.find(name);
    bool const set_here = c != curr.end() && !c->second.empty();
    auto const p = prev.find(name);
    T const* before = p != prev.end() ? &p->second : nullptr;
    switch (policy) {
    case prepack::page_policy::first:
        return set_here ? &c->second.front() : before;
    case prepack::page_policy::first_except:
        return set_here ? nullptr : before;
    case prepack::page_policy::last:
        return set_here ? &c->second.back() : before;
    case prepack::page_policy::start:
        return before;
    }
    return nullptr;
}

// The page total shown by counter(pages): an explicit count if the document set one, else the total
// the previous pass found. On the first pass nothing is known, and the page number stands in until the
// next pass corrects it.
int pages_total(general const& g) {
    if (g.user_pages_counter) {
        return *g.user_pages_counter;
    }
    return g.user_pages_total.value_or(g.user_page_num);
}

struct evaluator {
    page_info const& info;
    content_text out;

    void skip(std::string const& what) {
        log::log_debug(info.general.run->log, "margin box: " + what + " is not supported yet");
    }

    void add(textbuf::textbuf const& t) { out.text_value += t; }

    void add_page_counter(std::string const& name, std::string const& style) {
        if (name == "page") {
            add(format_counter(info.general.user_page_num, style));
        } else {
            out.text_uses_pages = true;
            add(format_counter(pages_total(info.general), style));
        }
    }

    void add_string(std::string const& name, prepack::page_policy policy, int depth) {
        auto const& v = *info.general.page_values;
        if (auto const* things = by_policy(v.curr_tvalues, v.prev_tvalues, name, policy)) {
            add_things(*things, depth + 1);
        }
    }

    // A named string's value: text, or generated content that waited for the page.
    void add_things(std::vector<prepack::text_thing> const& things, int depth) {
        if (depth > max_string_depth) {
            log::log_debug(info.general.run->log, "margin box: named strings refer to each other too deeply");
            return;
        }
        for (auto const& t : things) {
            std::visit(overloaded{
                           [&](prepack::text_thing_text const& x) { add(x.text); },
                           [&](prepack::text_thing_gen const& g) { add_gen(g.gen, depth); },
                           [&](prepack::text_thing_script const&) { skip("a script function in a named string"); },
                       },
                       t);
        }
    }

    void add_gen(prepack::gen_content const& g, int depth) {
        std::visit(overloaded{
                       [&](prepack::gen_string const& s) { add_string(s.string_name, s.string_policy, depth); },
                       [&](prepack::gen_counter const& c) {
                           std::visit(overloaded{
                                          [&](prepack::page_counter const& p) { add_page_counter("page", p.counter_style); },
                                          [&](prepack::pages_counter const& p) {
                                              add_page_counter("pages", p.counter_style);
                                          },
                                          [&](prepack::target_counter const& t) {
                                              add(target_counter_text(info.general, t));
                                          },
                                          [&](prepack::footnote_counter const& f) {
                                              add(format_counter(info.general.footnote_counter, f.counter_style));
                                          },
                                      },
                                      c.counter);
                       },
                   },
                   g);
    }

    // counter(name, style?, policy?) and counters(name, separator, style?, policy?). The page's own
    // counters and those of the page's elements hold one value each here, so counters() shows one.
    void add_counter(css::value::function const& f, bool plural) {
        auto const& args = f.function_args;
        auto const name = args.empty() ? std::nullopt : ident_of(args.front());
        if (!name) {
            skip(f.function_name + "() without a counter name");
            return;
        }
        std::string style = "decimal";
        auto policy = prepack::page_policy::first;
        for (std::size_t i = plural ? 2 : 1; i < args.size(); ++i) {
            auto const word = ident_of(args[i]);
            if (!word) {
                continue;
            }
            if (auto const p = policy_named(*word)) {
                policy = *p;
            } else {
                style = *word;
            }
        }
        if (*name == "page" || *name == "pages") {
            add_page_counter(*name, style);
            return;
        }
        if (*name == "footnote") {
            add(format_counter(info.general.footnote_counter, style));
            return;
        }
        auto const& v = *info.general.page_values;
        auto const* value = by_policy(v.curr_cvalues, v.prev_cvalues, *name, policy);
        add(format_counter(value ? *value : 0, style));
    }

    void add_function(css::value::function const& f) {
        auto const name = lower(f.function_name);
        if (name == "counter" || name == "counters") {
            add_counter(f, name == "counters");
        } else if (name == "string") {
            auto const& args = f.function_args;
            auto const string_name = args.empty() ? std::nullopt : ident_of(args.front());
            if (!string_name) {
                skip("string() without a name");
                return;
            }
            auto policy = prepack::page_policy::first;
            if (args.size() > 1) {
                if (auto const word = ident_of(args[1])) {
                    policy = policy_named(*word).value_or(policy);
                }
            }
            add_string(*string_name, policy, 0);
        } else if (name == "content") {
            // A margin box has no element whose text it could show.
        } else if (name == "element" || name == "flow") {
            add_running(f);
        } else if (name == "-vellum-script" || name == "vellum-script") {
            add_script(f);
        } else {
            skip(name + "()");
        }
    }

    // -vellum-script(name, arguments...): the page's text of each argument, given to the function a
    // script registered under that name; what it returns is shown. It is called for every page.
    void add_script(css::value::function const& f) {
        auto const& args = f.function_args;
        // The name as written: script names are case-sensitive.
        std::optional<std::string> written;
        if (!args.empty()) {
            if (auto const* i = std::get_if<css::value::ident>(&args.front())) {
                written = i->ident_name;
            } else if (auto const* str = std::get_if<css::value::string>(&args.front())) {
                written = str->string_text;
            }
        }
        if (!written) {
            skip(f.function_name + "() without a function name");
            return;
        }
        auto const& scripts = info.general.run->scripts;
        if (!scripts) {
            log::log_warning_once(info.general.run->log, "JavaScript is disabled");
            return;
        }
        if (!scripts->script_has(*written)) {
            log::log_warning_once(info.general.run->log, "unknown script function " + *written +
                                                             ", register with Vellum.addScriptFunc");
            return;
        }
        std::vector<std::string> texts;
        for (std::size_t i = 1; i < args.size(); ++i) {
            evaluator inner{.info = info};
            inner.add_item(args[i]);
            out.text_uses_pages = out.text_uses_pages || inner.out.text_uses_pages;
            texts.push_back(textbuf::to_utf8(inner.out.text_value));
        }
        if (auto const result = scripts->script_call(*written, texts)) {
            add(textbuf::from_utf8(*result));
        }
    }

    // element(name, policy?): the running element of that name that the page shows, by the policy
    // of named strings; the page before's when none was placed on this page.
    void add_running(css::value::function const& f) {
        auto const& args = f.function_args;
        auto const flow = args.empty() ? std::nullopt : ident_of(args.front());
        if (!flow) {
            skip(f.function_name + "() without a name");
            return;
        }
        auto policy = prepack::page_policy::first;
        if (args.size() > 1) {
            if (auto const word = ident_of(args[1])) {
                policy = policy_named(*word).value_or(policy);
            }
        }
        auto const& v = *info.general.page_values;
        auto const* index = by_policy(v.curr_fvalues, v.prev_fvalues, *flow, policy);
        auto const& doc = info.general.run->document;
        if (index == nullptr || !doc || *index >= doc->static_flows.size()) {
            return;
        }
        out.text_block = doc->static_flows[*index].flow_block;
    }

    void add_item(css::value::value const& item) {
        std::visit(overloaded{
                       [&](css::value::string const& s) { add(textbuf::from_utf8(s.string_text)); },
                       [&](css::value::function const& f) { add_function(f); },
                       // A margin box has no element, so attributes give nothing.
                       [](css::value::attr const&) {},
                       [&](css::value::ident const& i) { skip("'" + i.ident_name + "'"); },
                       [&](css::value::url const&) { skip("an image"); },
                       [&](css::value::number const&) { skip("a number"); },
                       [&](css::value::dimension const&) { skip("a dimension"); },
                       [&](css::value::percent const&) { skip("a percentage"); },
                       [&](css::value::hexcolor const&) { skip("a colour"); },
                       [&](css::value::unicode_range const&) { skip("a unicode range"); },
                       [&](css::value::values const& vs) {
                           for (auto const& v : vs.value_list) {
                               add_item(v);
                           }
                       },
                       [](css::value::slash const&) {},
                       [](css::value::comma const&) {},
                   },
                   item);
    }
};

// ---- Styles -----------------------------------------------------------------------------------------

bool is_margin_box(region r) {
    return static_cast<std::size_t>(r) < margin_boxes::margin_box_count;
}

enum class place { top_row, bottom_row, left_column, right_column, corner };

place place_of(region r) {
    switch (r) {
    case region::top_left:
    case region::top_center:
    case region::top_right:
        return place::top_row;
    case region::bottom_left:
    case region::bottom_center:
    case region::bottom_right:
        return place::bottom_row;
    case region::left_top:
    case region::left_middle:
    case region::left_bottom:
        return place::left_column;
    case region::right_top:
    case region::right_middle:
    case region::right_bottom:
        return place::right_column;
    case region::top_left_corner:
    case region::top_right_corner:
    case region::bottom_left_corner:
    case region::bottom_right_corner:
    case region::page_float_top:
    case region::page_float_bottom:
    case region::footnotes:
        break;
    }
    return place::corner;
}

// The alignment a margin box has unless its own declarations say otherwise: along the top and bottom
// edges text keeps to its box's side of the page, with the corners leaning toward the page's middle;
// down the sides it is centred across, and a box keeps to its end of the column. Everything is centred
// vertically except the end boxes of the side columns.
std::pair<char const*, char const*> default_alignment(region r) {
    switch (r) {
    case region::top_left_corner:
    case region::bottom_left_corner:
        return {"right", "middle"};
    case region::top_right_corner:
    case region::bottom_right_corner:
        return {"left", "middle"};
    case region::top_left:
    case region::bottom_left:
        return {"left", "middle"};
    case region::top_right:
    case region::bottom_right:
        return {"right", "middle"};
    case region::left_top:
    case region::right_top:
        return {"center", "top"};
    case region::left_bottom:
    case region::right_bottom:
        return {"center", "bottom"};
    case region::top_center:
    case region::bottom_center:
    case region::left_middle:
    case region::right_middle:
    case region::page_float_top:
    case region::page_float_bottom:
    case region::footnotes:
        break;
    }
    return {"center", "middle"};
}

// The computed style of a margin box: its alignment defaults first, so that any declaration of the box
// overrides them, then the declarations of the page's rules, all against the page body's style.
css::style::style margin_box_style(css::page::page_style const& ps, region r) {
    auto const [align, valign] = default_alignment(r);
    std::vector<css::property::property> decls;
    auto keyword = [&](prop_name p, char const* word) {
        if (auto prop = css::property::parse_declaration(p, css::value::value{css::value::ident{word}})) {
            decls.push_back(std::move(*prop));
        }
    };
    keyword(prop_name::prop_text_align, align);
    keyword(prop_name::prop_vertical_align, valign);
    if (auto const* declared = css::page::region_declarations_of(ps, r)) {
        decls.insert(decls.end(), declared->begin(), declared->end());
    }
    return css::compute_style::compute_style(ps.region_body, css::compute_style::anonymous_context{}, decls);
}

// The style line measuring uses: unaligned, so that a line's width is that of its content, and with
// words kept whole, as the narrowest a box can be is its widest word.
knuth::style_ref measuring_style(knuth::style_ref const& s) {
    auto copy = *s;
    auto text = *copy.text;
    text.text_props_text_align = css::text::text_align::left;
    text.text_props_text_align_last = css::text::text_align::auto_;
    text.text_props_overflow_wrap = css::text::overflow_wrap::normal;
    copy.text = share(std::move(text));
    return share(std::move(copy));
}

// ---- Geometry ---------------------------------------------------------------------------------------

struct edges {
    float top = 0;
    float right = 0;
    float bottom = 0;
    float left = 0;
};

edges margins_of(css::used_style::used_style const& u) {
    auto const* m = std::get_if<css::used_style::used_margins>(&u.used_margins);
    if (m == nullptr) {
        return {};
    }
    // An "auto" margin of a margin box takes nothing: the box fills its rectangle.
    return {m->margin_top.value_or(0), m->margin_right.value_or(0), m->margin_bottom.value_or(0),
            m->margin_left.value_or(0)};
}

// Margins, borders and padding together: what lies between a box's rectangle and its content.
edges frame_of(css::used_style::used_style const& u) {
    auto const m = margins_of(u);
    auto const& b = u.used_borders;
    return {m.top + b.borders_top.border_width + u.used_padding_top,
            m.right + b.borders_right.border_width + u.used_padding_right,
            m.bottom + b.borders_bottom.border_width + u.used_padding_bottom,
            m.left + b.borders_left.border_width + u.used_padding_left};
}

areas::area inset(areas::area const& a, edges const& e) {
    return {.top = a.top - e.top, .bottom = a.bottom + e.bottom, .left = a.left + e.left, .right = a.right - e.right};
}

// ---- Boxes ------------------------------------------------------------------------------------------

// One margin box that exists on the page, while it is being measured and placed.
struct pending {
    region pending_region = region::top_center;
    knuth::style_ref pending_style;
    /// The style of the anonymous block that holds the box's text; it inherits the box's text
    /// properties but not its background, borders or alignment in its rectangle.
    knuth::style_ref pending_inner_style;
    /// The box's text as a paragraph; nothing when the content gave no text.
    std::optional<prepack::para> pending_para;
};

// The style a running element is set in inside a margin box: its own. Only its text is set there,
// so its margins, borders and padding from the flow play no part.
knuth::style_ref running_style(prepack::block const& b, css::style::style const& box) {
    return b.block_style ? b.block_style : share(css::style::inherit_from(box));
}

std::optional<prepack::para> para_of(css::style::style const& s, textbuf::textbuf const& text) {
    prepack::text::text_settings const settings{
        .white_space = s.rare_props->rare_props_white_space,
        .transform = s.text->text_props_text_transform,
    };
    bool at_word_start = true;
    textbuf::textbuf words;
    auto spans = prepack::text::prepare_text(words, text, settings, at_word_start);
    prepack::text::collapse_spaces(spans);
    if (!prepack::text::has_content(spans)) {
        return std::nullopt;
    }
    prepack::text::apply_bidi(spans, words, s);
    return prepack::para{.para_spans = std::move(spans), .para_text = share(std::move(words))};
}

struct packed_text {
    std::vector<parabox> packed_lines;
    /// The height the lines take, from the area's top.
    float packed_height = 0;
    /// The widest line, from the area's left edge to its end.
    float packed_width = 0;
};

// A box's paragraph packed from the top left corner of an area `width` wide that never ends below.
packed_text pack_text(page_info info,
                      knuth::style_ref const& style,
                      prepack::para const& para,
                      float left,
                      float top,
                      float width) {
    // The lines of a margin box are placed whatever their height.
    info.flags.max_page_area = true;
    auto const used = css::used_style::used_style_of(*style, width, std::nullopt);
    areas::area const a{.top = top, .bottom = top - unbounded_height, .left = left, .right = left + width};
    auto res = para_main::pack_para(std::move(info), style, used, {.container = a, .available = {a}}, para);
    packed_text out{.packed_lines = std::move(res.res_boxes), .packed_height = top - res.res_areas.container.top};
    for (auto const& b : out.packed_lines) {
        if (auto const* l = std::get_if<linebox>(&b)) {
            out.packed_width = std::max(out.packed_width, l->linebox_x + l->linebox_w - left);
        }
    }
    return out;
}

// The narrowest a box's content can be, its widest word, and the width it takes unwrapped.
margin_boxes::min_max_width content_widths(page_info const& info, pending const& p) {
    if (!p.pending_para) {
        return {};
    }
    auto const s = measuring_style(p.pending_inner_style);
    float const narrowest = pack_text(info, s, *p.pending_para, 0, 0, 0).packed_width;
    float const widest = pack_text(info, s, *p.pending_para, 0, 0, unbounded_width).packed_width;
    return {.min_width = narrowest, .max_width = std::max(narrowest, widest)};
}

// What a box of the top or bottom row asks of its row `row_width` wide: its declared width or the
// widths of its content, with its margins, borders and padding.
margin_boxes::margin_box_width row_demand(page_info const& info, pending const& p, float row_width, float height) {
    auto const used = css::used_style::used_style_of(*p.pending_style, row_width, height);
    auto const f = frame_of(used);
    float const extra = f.left + f.right;
    if (!std::holds_alternative<css::box::auto_value>(p.pending_style->width)) {
        return margin_boxes::fixed_width{used.used_width + extra};
    }
    auto const w = content_widths(info, p);
    return margin_boxes::min_max_width{w.min_width + extra, w.max_width + extra};
}

// What a box of a side column asks of its column: its declared height, or the height of its content
// at the column's width, with its margins, borders and padding.
margin_boxes::margin_box_width column_demand(page_info const& info,
                                             pending const& p,
                                             float column_width,
                                             float column_height) {
    auto const used = css::used_style::used_style_of(*p.pending_style, column_width, column_height);
    auto const f = frame_of(used);
    float const extra = f.top + f.bottom;
    if (used.used_height) {
        return margin_boxes::fixed_width{*used.used_height + extra};
    }
    float content = 0;
    if (p.pending_para) {
        float const width = std::max(0.0f, column_width - f.left - f.right);
        content = pack_text(info, p.pending_inner_style, *p.pending_para, 0, 0, width).packed_height;
    }
    return margin_boxes::min_max_width{content + extra, content + extra};
}

// How far the content moves down from the top of its box's content area, by the box's vertical-align.
float vertical_offset(css::style::style const& s, float room, float height) {
    auto const* kind = std::get_if<css::box::vertical_align_kind>(&s.vertical_align);
    if (kind == nullptr) {
        return 0;
    }
    switch (*kind) {
    case css::box::vertical_align_kind::middle:
        return (room - height) * 0.5f;
    case css::box::vertical_align_kind::bottom:
        return room - height;
    case css::box::vertical_align_kind::top:
    case css::box::vertical_align_kind::baseline:
    case css::box::vertical_align_kind::sub:
    case css::box::vertical_align_kind::super:
    case css::box::vertical_align_kind::text_top:
    case css::box::vertical_align_kind::text_bottom:
        break;
    }
    return 0;
}

void move_down(parabox& b, float dy) {
    std::visit(overloaded{
                   [&](linebox& l) { l.linebox_base -= dy; },
                   [&](float_box& f) {
                       auto moved = *f.float_box_box;
                       moved.box_y -= dy;
                       f.float_box_box = share(std::move(moved));
                   },
               },
               b);
}

// The finished margin box in its rectangle: the border box inside its margins, the content area inside
// borders and padding, the lines packed there and moved to the top, middle or bottom of it.
margin_box place_box(page_info const& info,
                     paper::paper_areas const& pa,
                     pending const& p,
                     areas::area const& rect,
                     float container_width) {
    auto const used = css::used_style::used_style_of(*p.pending_style, container_width, areas::height_of(rect));
    auto const border_box = inset(rect, margins_of(used));
    auto content = inset(rect, frame_of(used));
    content.right = std::max(content.right, content.left);
    content.bottom = std::min(content.bottom, content.top);
    float const content_w = areas::width_of(content);
    float const content_h = areas::height_of(content);

    margin_box out{
        .margin_box_style = p.pending_style,
        .margin_box_used_style = used,
        .margin_pos = {border_box.left, border_box.top},
        .margin_size = {std::max(0.0f, areas::width_of(border_box)), std::max(0.0f, areas::height_of(border_box))},
        .margin_bleed_box = pa.hfs_bleed_box,
        .margin_region = p.pending_region,
    };
    if (!p.pending_para) {
        return out;
    }
    auto text = pack_text(info, p.pending_inner_style, *p.pending_para, content.left, content.top, content_w);
    float const dy = vertical_offset(*p.pending_style, content_h, text.packed_height);
    for (auto& b : text.packed_lines) {
        move_down(b, dy);
    }
    out.margin_content = share(box{
        .box_x = content.left,
        .box_y = content.top,
        .box_w = content_w,
        .box_h = content_h,
        .box_content = para{std::move(text.packed_lines)},
        .box_style = p.pending_inner_style,
        .box_used_style = css::used_style::used_style_of(*p.pending_inner_style, content_w, content_h),
    });
    return out;
}

} // namespace

content_text eval_content(page_info const& info, css::property::content_list const& content) {
    evaluator e{.info = info, .out = {}};
    for (auto const& item : content.content_items) {
        e.add_item(item);
    }
    return e.out;
}

textbuf::textbuf things_text(page_info const& info, std::vector<prepack::text_thing> const& things) {
    evaluator e{.info = info, .out = {}};
    e.add_things(things, 0);
    return e.out.text_value;
}

margin_boxes_res pack_margin_boxes(page_info const& info,
                                   css::page::page_style const& ps,
                                   paper::paper_areas const& pa) {
    margin_boxes_res res;
    std::vector<pending> boxes;
    for (auto const& [r, decls] : ps.page_regions) {
        if (!is_margin_box(r)) {
            continue;
        }
        auto const style = share(margin_box_style(ps, r));
        auto const* list = std::get_if<css::property::content_list>(&style->content);
        if (list == nullptr) {
            continue;
        }
        auto const text = eval_content(info, *list);
        res.res_uses_pages = res.res_uses_pages || text.text_uses_pages;
        auto& p = boxes.emplace_back();
        p.pending_region = r;
        p.pending_style = style;
        p.pending_inner_style = share(css::style::inherit_from(*style));
        p.pending_para = para_of(*p.pending_inner_style, text.text_value);
        if (text.text_block) {
            // A running element keeps its own style and inline content; its text is set as one
            // paragraph in the box.
            if (auto const* para = std::get_if<prepack::bcontent_para>(&text.text_block->block_content)) {
                p.pending_inner_style = running_style(*text.text_block, *style);
                p.pending_para = para->para;
            } else {
                log::log_debug(info.general.run->log, "margin box: only a running element of text is shown");
            }
        }
    }
    if (boxes.empty()) {
        return res;
    }

    auto const& page_box = pa.hfs_margin_area;
    auto const& m = pa.hfs_margins;
    float const row_width = areas::width_of(page_box) - m.sides_left - m.sides_right;
    float const column_height = areas::height_of(page_box) - m.sides_top - m.sides_bottom;

    margin_boxes::margin_rows rows;
    auto slot = [](margin_boxes::row_boxes& row, region r) -> std::optional<margin_boxes::margin_box_width>& {
        switch (r) {
        case region::top_left:
        case region::bottom_left:
        case region::left_top:
        case region::right_top:
            return row.row_start;
        case region::top_right:
        case region::bottom_right:
        case region::left_bottom:
        case region::right_bottom:
            return row.row_end;
        case region::top_center:
        case region::bottom_center:
        case region::left_middle:
        case region::right_middle:
        case region::top_left_corner:
        case region::top_right_corner:
        case region::bottom_left_corner:
        case region::bottom_right_corner:
        case region::page_float_top:
        case region::page_float_bottom:
        case region::footnotes:
            break;
        }
        return row.row_center;
    };
    for (auto const& p : boxes) {
        switch (place_of(p.pending_region)) {
        case place::top_row:
            slot(rows.rows_top, p.pending_region) = row_demand(info, p, row_width, m.sides_top);
            break;
        case place::bottom_row:
            slot(rows.rows_bottom, p.pending_region) = row_demand(info, p, row_width, m.sides_bottom);
            break;
        case place::left_column:
            slot(rows.rows_left, p.pending_region) = column_demand(info, p, m.sides_left, column_height);
            break;
        case place::right_column:
            slot(rows.rows_right, p.pending_region) = column_demand(info, p, m.sides_right, column_height);
            break;
        case place::corner:
            break;
        }
    }

    auto const rects = margin_boxes::margin_box_areas(page_box, m, rows);
    for (auto const& p : boxes) {
        auto const& rect = rects[static_cast<std::size_t>(p.pending_region)];
        auto const where = place_of(p.pending_region);
        // Percentages along a row are of the row; elsewhere of the box's own rectangle.
        float const container =
            where == place::top_row || where == place::bottom_row ? row_width : areas::width_of(rect);
        res.res_margin_boxes.push_back(place_box(info, pa, p, rect, container));
    }
    return res;
}

} // namespace vellum::pack::static_
