#include "pack/spans_to_knuth.hpp"

#include "css/compute_style.hpp"
#include "pack/multicol.hpp"
#include "prepack/text.hpp"
#include "text/fonts/query.hpp"
#include "text/hyph/hyphenation.hpp"

#include <algorithm>

namespace vellum::pack::spans_to_knuth {

using namespace knuth;

namespace {

bool wraps(css::style::style const& s) {
    auto const ws = s.rare_props->rare_props_white_space;
    return ws == css::text::white_space::normal || ws == css::text::white_space::pre_wrap ||
           ws == css::text::white_space::pre_line;
}

pack::knuth::knuth wrap_item() {
    return knuth_glue{wrap_opportunity{}};
}

bool is_glue(pack::knuth::knuth const& item) {
    return std::holds_alternative<knuth_glue>(item);
}

bool is_wrap_or_cjk(pack::knuth::knuth const& item) {
    auto const* g = std::get_if<knuth_glue>(&item);
    return g != nullptr && (std::holds_alternative<wrap_opportunity>(*g) || std::holds_alternative<zero_width_cjk>(*g));
}

float margin_of(css::used_style::margins const& m, bool left) {
    auto const* u = std::get_if<css::used_style::used_margins>(&m);
    if (u == nullptr) {
        return 0;
    }
    return (left ? u->margin_left : u->margin_right).value_or(0.0f);
}

// Whether an item may be dropped from the end of a paragraph.
bool discardable(pack::knuth::knuth const& item) {
    return std::holds_alternative<knuth_glue>(item) || std::holds_alternative<knuth_penalty>(item) ||
           std::holds_alternative<prohibited_break>(item);
}

// The text of the first value of a named string that the page shows, for `string()` in the text.
// Only literal pieces are taken; a counter inside a string is rendered by the page's margin boxes.
textbuf::textbuf string_value(prepack::page_values const& v, prepack::gen_string const& g) {
    auto text_of = [](std::vector<prepack::text_thing> const& things) {
        textbuf::textbuf out;
        for (auto const& t : things) {
            if (auto const* s = std::get_if<prepack::text_thing_text>(&t)) {
                out += s->text;
            }
        }
        return out;
    };
    auto const prev = v.prev_tvalues.find(g.string_name);
    auto const curr = v.curr_tvalues.find(g.string_name);
    bool const set_here = curr != v.curr_tvalues.end() && !curr->second.empty();
    switch (g.string_policy) {
    case prepack::page_policy::first:
        if (set_here) {
            return text_of(curr->second.front());
        }
        break;
    case prepack::page_policy::last:
        if (set_here) {
            return text_of(curr->second.back());
        }
        break;
    case prepack::page_policy::first_except:
        if (set_here) {
            return {};
        }
        break;
    case prepack::page_policy::start:
        break;
    }
    return prev != v.prev_tvalues.end() ? text_of(prev->second) : textbuf::textbuf{};
}

struct builder {
    page_info const& info;
    /// The paragraph text that the spans' text ranges point into.
    prepack::para_text const& text;
    /// The slots of `out` that no inline box used (see `open_box`).
    mutable std::vector<std::size_t> dead_slots;

    text_head head(font_req_ref const& req, style_ref const& style, std::optional<first_line_form> const& fl) const {
        return {.head_font_req = req, .head_style = style, .head_first_line = fl};
    }

    pack::knuth::knuth word_of(font_req_ref const& req,
                         style_ref const& style,
                         std::optional<first_line_form> const& fl,
                         fonts::direction dir,
                         pack::knuth::item_text text) const {
        return knuth_box{word{.word_head = head(req, style, fl),
                              .word_direction = dir,
                              .word_writing_mode = style->writing_mode,
                              .word_text = std::move(text)}};
    }

    // The text of a word: its range of the paragraph text, but under `hyphens: -vellum-expand-all` a
    // text of its own that shows the word's hyphenation points as middle dots.
    pack::knuth::item_text expanded(css::style::style const& s, prepack::text_range range) const {
        if (s.rare_props->rare_props_hyphens != css::text::hyphens::vellum_expand_all ||
            s.rare_props->rare_props_hyphenate_patterns.empty() || !info.general.run->loader) {
            return pack::knuth::item_text(text, range);
        }
        auto const rules =
            eval_knuth::patterns_of(info.general.run->log, *info.general.run->hyph,
                                    info.general.run->loader)(s.rare_props->rare_props_hyphenate_patterns);
        if (!rules) {
            return pack::knuth::item_text(text, range);
        }
        auto const word = prepack::text_of(text, range);
        auto const parts =
            hyphenation::hyphenate(**rules, s.rare_props->rare_props_hyphenate_before,
                                   s.rare_props->rare_props_hyphenate_after, textbuf::textbuf(word));
        textbuf::textbuf out;
        for (std::size_t i = 0; i < parts.size(); ++i) {
            if (i > 0) {
                out.push_back(U'\u00B7');
            }
            out += parts[i];
        }
        return out;
    }

    std::optional<first_line_form> nested_first_line(std::optional<first_line_form> const& parent,
                                                      prepack::nested_span const& n) const {
        if (!parent) {
            return std::nullopt;
        }
        auto const decls = n.span_decls ? styledom::properties_of(*n.span_decls) : std::vector<css::property::property>{};
        auto s = share(css::compute_style::compute_style(parent->first_line_style, n.span_context, decls));
        return first_line_form{.first_line_font_req = font_req_of(*info.general.run->fonts, *s),
                               .first_line_style = s};
    }

    pack::knuth::open open_of(style_ref const& parent,
                        style_ref const& style,
                        std::optional<first_line_form> const& fl,
                        std::optional<int> dir,
                        prepack::element_type type,
                        float width) const {
        auto used = css::used_style::used_style_of(*style, width, std::nullopt);
        float const left = margin_of(used.used_margins, true) + used.used_borders.borders_left.border_width +
                           used.used_padding_left;
        return pack::knuth::open{
            .box_left_edge = left,
            .box_font_req = font_req_of(*info.general.run->fonts, *style),
            .box_style = style,
            .box_used_style = share(std::move(used)),
            .box_first_line_style = fl ? std::optional<style_ref>(fl->first_line_style) : std::nullopt,
            .box_parent_style = parent,
            .box_dir = dir,
            .box_element_type = std::move(type),
        };
    }

    // Where an inline box's items begin in `out`: three slots for what goes before its content, so
    // that the content is made in place. Copying each box's content into its parent's would cost the
    // depth of the nesting for every item.
    static constexpr std::size_t box_slots = 3;

    std::size_t open_box(std::vector<pack::knuth::knuth>& out) const {
        std::size_t const mark = out.size();
        out.insert(out.end(), box_slots, pack::knuth::knuth{prohibited_break{}});
        return mark;
    }

    // Joins the items of an inline box, made after the slots at `mark`, to the items before it, so
    // that a space at either edge breaks outside the box and the box keeps its edges on the line of
    // its text. Slots left unused are dropped when the paragraph's items are complete.
    void join_box(pack::knuth::open o, std::size_t mark, std::vector<pack::knuth::knuth>& out) const {
        auto const& used = *o.box_used_style;
        float const right = used.used_padding_right + used.used_borders.borders_right.border_width +
                            margin_of(used.used_margins, false);
        bool const nowrap = o.box_style->rare_props->rare_props_white_space == css::text::white_space::nowrap;
        pack::knuth::knuth const close_item = knuth_box{pack::knuth::close{.close_right_edge = right}};
        std::size_t from = mark + box_slots;
        auto const unused = [&](std::size_t slot) { dead_slots.push_back(slot); };
        if (out.size() == from) {
            out[mark] = knuth_box{std::move(o)};
            unused(mark + 1);
            unused(mark + 2);
            out.push_back(close_item);
            return;
        }
        if (is_wrap_or_cjk(out[from])) {
            out[mark] = std::move(out[from]);
            out[mark + 1] = knuth_box{std::move(o)};
            out[mark + 2] = prohibited_break{};
            unused(from);
            ++from;
        } else if (is_glue(out[from])) {
            out[mark] = wrap_item();
            out[mark + 1] = knuth_box{std::move(o)};
            out[mark + 2] = prohibited_break{};
        } else {
            out[mark] = knuth_box{std::move(o)};
            unused(mark + 1);
            unused(mark + 2);
        }
        bool forced_at_end = false;
        if (out.size() > from && is_forced_break(out.back())) {
            forced_at_end = true;
            out.pop_back();
        }
        if (!forced_at_end && out.size() > from && is_glue(out.back()) && !nowrap) {
            pack::knuth::knuth space = std::move(out.back());
            out.back() = prohibited_break{};
            out.push_back(std::move(space));
            out.push_back(close_item);
            out.push_back(wrap_item());
            return;
        }
        out.push_back(close_item);
        if (forced_at_end) {
            out.push_back(forced_break{});
        }
    }

    // Drops the slots that no box used.
    void drop_unused_slots(std::vector<pack::knuth::knuth>& out) const {
        if (dead_slots.empty()) {
            return;
        }
        std::sort(dead_slots.begin(), dead_slots.end());
        std::size_t kept = dead_slots.front();
        auto dead = dead_slots.begin();
        for (std::size_t i = dead_slots.front(); i < out.size(); ++i) {
            if (dead != dead_slots.end() && *dead == i) {
                ++dead;
                continue;
            }
            if (kept != i) {
                out[kept] = std::move(out[i]);
            }
            ++kept;
        }
        out.resize(kept);
        dead_slots.clear();
    }

    pack::knuth::knuth glue_of(font_req_ref const& req, style_ref const& style, std::optional<first_line_form> const& fl) const {
        return knuth_glue{glue{.glue_font_req = req, .glue_style = style, .glue_first_line_style = fl}};
    }

    void separator(font_req_ref const& req,
                   style_ref const& style,
                   std::optional<first_line_form> const& fl,
                   prepack::separator const& sep,
                   std::vector<pack::knuth::knuth>& out) const {
        std::visit(overloaded{
                       [&](prepack::sep_newline const&) {
                           out.push_back(knuth_box{newline{}});
                           out.push_back(forced_break{});
                       },
                       [&](prepack::sep_space const&) { out.push_back(glue_of(req, style, fl)); },
                       [&](prepack::sep_nowrap_space const&) {
                           out.push_back(prohibited_break{});
                           out.push_back(glue_of(req, style, fl));
                       },
                       [&](prepack::sep_pre_space const&) {
                           out.push_back(knuth_box{pre_space{.pre_space_head = head(req, style, fl)}});
                       },
                       [&](prepack::sep_zwsp const&) { out.push_back(knuth_glue{zwsp{}}); },
                       [&](prepack::sep_wrap_opportunity const&) { out.push_back(wrap_item()); },
                       [&](prepack::sep_cjk_zw_space const&) {
                           if (style->text->text_props_text_justify == css::text::text_justify::cjk) {
                               out.push_back(knuth_glue{zero_width_cjk{.zw_style = style, .zw_first_line_style = fl}});
                           } else {
                               out.push_back(wrap_item());
                           }
                       },
                       [&](prepack::sep_charlike_space const& c) {
                           out.push_back(knuth_box{charlike_space{.charlike_head = head(req, style, fl),
                                                                  .charlike_width = c.charlike_width}});
                       },
                   },
                   sep);
    }

    void spans(font_req_ref const& req,
               style_ref const& style,
               std::optional<first_line_form> const& fl,
               fonts::direction dir,
               float width,
               std::span<prepack::span const> spans,
               std::vector<pack::knuth::knuth>& out) const {
        for (auto const& s : spans) {
            one(req, style, fl, dir, width, s, out);
        }
    }

    void one(font_req_ref const& req,
             style_ref const& style,
             std::optional<first_line_form> const& fl,
             fonts::direction dir,
             float width,
             prepack::span const& s,
             std::vector<pack::knuth::knuth>& out) const {
        std::visit(
            overloaded{
                [&](prepack::span_nested const& n) {
                    auto const& ns = *n.nested;
                    auto nfl = nested_first_line(fl, ns);
                    fonts::direction ndir = dir;
                    if (ns.span_direction) {
                        ndir = *ns.span_direction % 2 == 1 ? fonts::direction::rtl : fonts::direction::ltr;
                    }
                    auto o = open_of(style, ns.span_style, nfl, ns.span_direction, ns.span_type, width);
                    std::size_t const mark = open_box(out);
                    spans(o.box_font_req, ns.span_style, nfl, ndir, width, ns.span_content, out);
                    join_box(std::move(o), mark, out);
                },
                [&](prepack::span_footnote const& f) {
                    multicol::note_column_stuff(info.general.run->log, *f.note->footnote_style,
                                                info.general.column_id.has_value());
                    // The footnote item comes first, so that the call's counter shows the number the
                    // item has just taken.
                    auto const& note = *f.note;
                    auto const type_of = [&](footnote_display d) -> footnote_type {
                        if (multicol::is_column_footnote(*note.footnote_style)) {
                            return footnote_column{.column_display = d,
                                                   .column_id = info.general.column_id.value_or(-1)};
                        }
                        return footnote_page{.page_display = d};
                    };
                    std::visit(overloaded{
                                   [&](prepack::block_footnote const& b) {
                                       out.push_back(footnote{.footnote_body = b.footnote_block,
                                                              .footnote_style = note.footnote_style,
                                                              .footnote_type =
                                                                  type_of(footnote_display::block_footnote)});
                                   },
                                   [&](prepack::inline_footnote const& i) {
                                       // An inline body travels as an anonymous paragraph of its spans,
                                       // whose text lies in this paragraph's.
                                       auto body = share(prepack::block{
                                           .block_content = prepack::bcontent_para{prepack::para{
                                               .para_spans = i.footnote_spans, .para_text = text}},
                                           .block_style = note.footnote_style});
                                       out.push_back(footnote{.footnote_body = body,
                                                              .footnote_style = note.footnote_style,
                                                              .footnote_type =
                                                                  type_of(footnote_display::inline_footnote)});
                                   },
                               },
                               note.footnote_body);
                    one(req, style, fl, dir, width, *note.call, out);
                },
                [&](prepack::span_inline_block const& b) {
                    bool const w = wraps(*style);
                    if (w) {
                        out.push_back(wrap_item());
                    }
                    out.push_back(knuth_box{pack::knuth::inline_block{.inline_block_block = b.inline_block,
                                                                .inline_block_style = b.inline_block->block_style}});
                    if (w) {
                        out.push_back(wrap_item());
                    }
                },
                [&](prepack::span_text const& t) {
                    out.push_back(word_of(req, style, fl, dir, expanded(*style, t.text)));
                },
                [&](prepack::span_text_with_hyphen const& t) {
                    out.push_back(word_of(req, style, fl, dir, pack::knuth::item_text(text, t.text)));
                    if (t.hyphen == prepack::hyphen_type::soft) {
                        out.push_back(knuth_penalty{
                            soft{.penaly_font_req = req, .penaly_style = style, .penalty_first_line_style = fl}});
                    } else {
                        out.push_back(knuth_penalty{hard{}});
                    }
                },
                [&](prepack::span_glyph_index const& g) {
                    out.push_back(knuth_box{glyph_index{.glyph_head = head(req, style, fl),
                                                        .glyph_direction = dir,
                                                        .glyph_writing_mode = style->writing_mode,
                                                        .glyph_number = g.glyph_index}});
                },
                [&](prepack::span_sep const& sp) { separator(req, style, fl, sp.sep, out); },
                [&](prepack::span_leader const& l) {
                    out.push_back(knuth_leader{.leader_width = l.leader_min_width,
                                               .leader_textbuf = *l.leader_pattern,
                                               .leader_font_req = req,
                                               .leader_style = style,
                                               .leader_first_line_style = fl,
                                               .leader_direction = dir,
                                               .leader_writing_mode = style->writing_mode});
                },
                [&](prepack::span_gen_content const& g) {
                    std::visit(overloaded{
                                   [&](prepack::gen_string const& str) {
                                       auto value = string_value(*info.general.page_values, str);
                                       if (!value.empty()) {
                                           out.push_back(word_of(req, style, fl, dir, std::move(value)));
                                       }
                                   },
                                   [&](prepack::gen_counter const& c) {
                                       out.push_back(knuth_box{counter{.counter_head = head(req, style, fl),
                                                                       .counter_direction = dir,
                                                                       .counter_writing_mode = style->writing_mode,
                                                                       .counter_content = c.counter}});
                                   },
                               },
                               *g.gen);
                },
                [&](prepack::span_script_func const& f) {
                    // The call is made when the item is measured on its page; until then its result is
                    // empty, which any text it gives differs from.
                    out.push_back(script_func_head{share(knuth_script_func{.script_font_req = req,
                                                                     .script_style = style,
                                                                     .script_first_line = fl,
                                                                     .script_direction = dir,
                                                                     .script_func_name = f.func->script_func_name,
                                                                     .script_func_args = f.func->script_func_args})});
                    out.push_back(script_func_tail{});
                },
                [&](prepack::span_first_letter const& f) {
                    auto ls = style;
                    auto lfl = fl;
                    for (auto const& ctx : *f.first_letter_styles) {
                        ls = share(css::compute_style::compute_style(ls, ctx.context, ctx.decls));
                        if (lfl) {
                            auto s2 = share(css::compute_style::compute_style(lfl->first_line_style, ctx.context, ctx.decls));
                            lfl = first_line_form{.first_line_font_req =
                                                      font_req_of(*info.general.run->fonts, *s2),
                                                  .first_line_style = s2};
                        }
                    }
                    auto const lreq = font_req_of(*info.general.run->fonts, *ls);
                    auto const* fk = std::get_if<css::box::float_kind>(&ls->float_);
                    if (fk != nullptr && *fk != css::box::float_kind::none) {
                        // A floated first letter leaves the line as a float of its own.
                        auto body = share(prepack::block{
                            .block_content = prepack::bcontent_para{prepack::para{
                                .para_spans = {prepack::span_text{f.first_letter_text}}, .para_text = text}},
                            .block_style = ls});
                        out.push_back(knuth_box{pack::knuth::inline_block{.inline_block_block = body, .inline_block_style = ls}});
                        return;
                    }
                    auto o = open_of(style, ls, lfl, std::nullopt, prepack::type_anonymous{}, width);
                    std::size_t const mark = open_box(out);
                    out.push_back(word_of(lreq, ls, lfl, dir, pack::knuth::item_text(text, f.first_letter_text)));
                    join_box(std::move(o), mark, out);
                },
            },
            s);
    }
};

} // namespace

font_req_ref font_req_of(fonts::fonts const& db, css::style::style const& s) {
    // The language picks language-specific glyphs; spaced letters lose their optional ligatures.
    auto const* spacing = std::get_if<float>(&s.rare_props->rare_props_letter_spacing);
    auto const& lang = s.rare_props->rare_props_vellum_lang ? s.rare_props->rare_props_vellum_lang
                                                            : s.rare_props->rare_props_vellum_lang_value;
    return fonts::get_font_req(
        db, fonts::query::query_of(*s.font_props, lang.value_or(""), spacing && *spacing != 0,
                                   s.writing_mode == css::box::writing_mode::vertical));
}

std::optional<first_line_form> first_line_form_of(fonts::fonts const& db,
                                                  style_ref const& style,
                                                  std::vector<prepack::styled_context> const& contexts) {
    if (contexts.empty()) {
        return std::nullopt;
    }
    auto s = style;
    for (auto const& ctx : contexts) {
        s = share(css::compute_style::compute_style(s, ctx.context, ctx.decls));
    }
    return first_line_form{.first_line_font_req = font_req_of(db, *s), .first_line_style = s};
}

eval_knuth::script_caller script_caller_of(page_info const& info,
                                           std::shared_ptr<prepack::script_calls const> scripts,
                                           eval_knuth::counter_renderer render_counter) {
    // The page's state is kept with the caller: the result's items are built for it.
    auto const page = std::make_shared<page_info const>(info);
    return [page, scripts = std::move(scripts), render_counter = std::move(render_counter)](
               knuth_script_func const& f, eval_knuth::page_state const& state) -> std::optional<eval_knuth::script_result> {
        std::vector<std::string> args;
        for (auto const& arg : f.script_func_args) {
            textbuf::textbuf text;
            for (auto const& t : arg) {
                std::visit(overloaded{
                               [&](prepack::text_thing_text const& x) { text += x.text; },
                               [&](prepack::text_thing_gen const& g) {
                                   std::visit(overloaded{
                                                  [&](prepack::gen_string const& s) {
                                                      text += string_value(*page->general.page_values, s);
                                                  },
                                                  [&](prepack::gen_counter const& c) {
                                                      text += render_counter(pack::knuth::counter{.counter_content = c.counter}, state);
                                                  },
                                              },
                                              g.gen);
                               },
                               [&](prepack::text_thing_script const&) {
                                   log::log_warning_once(
                                       page->general.run->log,
                                       "a script function call as an argument of another is not supported");
                               },
                           },
                           t);
            }
            args.push_back(textbuf::to_utf8(text));
        }
        auto const result = textbuf::from_utf8(scripts->script_call(f.script_func_name, args).value_or(""));
        if (result == f.script_result) {
            return std::nullopt;
        }
        bool at_word_start = true;
        textbuf::textbuf words;
        auto const spans =
            prepack::text::prepare_text(words, result, prepack::text::settings_of(*f.script_style), at_word_start);
        eval_knuth::script_result out{.result_text = result};
        spans_to_knuths(*page, f.script_font_req, f.script_style, f.script_first_line, f.script_direction, 0.0f, spans,
                        share(std::move(words)), out.result_items);
        return out;
    };
}

void spans_to_knuths(page_info const& info,
                     font_req_ref const& font_req,
                     style_ref const& style,
                     std::optional<first_line_form> const& first_line,
                     fonts::direction dir,
                     float width,
                     std::span<prepack::span const> spans,
                     prepack::para_text const& text,
                     std::vector<pack::knuth::knuth>& out) {
    builder b{.info = info, .text = text};
    b.spans(font_req, style, first_line, dir, width, spans, out);
    b.drop_unused_slots(out);
}

items_res para_to_knuths(page_info const& info,
                         style_ref const& style,
                         prepack::para const& para,
                         float width,
                         font_req_ref style_req) {
    auto const req = style_req ? std::move(style_req) : font_req_of(*info.general.run->fonts, *style);
    std::optional<first_line_form> fl;
    if (para.first_line_style) {
        fl = first_line_form_of(*info.general.run->fonts, style, *para.first_line_style);
    }
    auto const dir = style->rare_props->rare_props_direction == css::box::direction::rtl ? fonts::direction::rtl
                                                                                        : fonts::direction::ltr;
    std::vector<pack::knuth::knuth> items;
    spans_to_knuths(info, req, style, fl, dir, width, para.para_spans, para.para_text, items);
    while (!items.empty() && discardable(items.back())) {
        items.pop_back();
    }
    if (items.empty() || !is_forced_break(items.back())) {
        items.push_back(forced_break{});
    }
    items_res res;
    if (para.pass_in) {
        // The prefix (a run-in heading, an outside marker), the boxes it leaves open, and a glue of no
        // width before the paragraph's own text.
        res.res_items = para.pass_in->pass_in_items;
        for (auto const& o : para.pass_in->pass_in_open) {
            res.res_items.push_back(knuth_box{o});
        }
        res.res_items.push_back(knuth_glue{glue{.glue_font_req = req, .glue_style = style, .glue_first_line_style = fl}});
        res.res_unclosed = para.pass_in->pass_in_open;
        res.res_items.insert(res.res_items.end(), items.begin(), items.end());
    } else {
        res.res_items = std::move(items);
    }
    return res;
}

} // namespace vellum::pack::spans_to_knuth
