#include "pack/eval_knuth.hpp"

#include "text/fonts/fonts.hpp"
#include "text/hyph/hyphenation.hpp"
#include "text/unicode.hpp"

#include <algorithm>
#include <forward_list>

namespace vellum::pack::eval_knuth {

using namespace knuth;

namespace {

float letter_spacing_of(css::style::style const& s) {
    auto const* v = std::get_if<float>(&s.rare_props->rare_props_letter_spacing);
    return v != nullptr ? *v : 0.0f;
}

float word_spacing_of(css::style::style const& s) {
    auto const* v = std::get_if<float>(&s.rare_props->rare_props_word_spacing);
    return v != nullptr ? *v : 0.0f;
}

bool vertical(css::style::style const& s) {
    return s.writing_mode == css::box::writing_mode::vertical;
}

// The text as the style's text-transform shows it: the text itself when there is none, else made in
// `out`. A word item holds no space, so "capitalize" raises its first letter.
std::u32string_view transformed(css::style::style const& s, std::u32string_view text, textbuf::textbuf& out) {
    switch (s.text->text_props_text_transform) {
    case css::text::text_transform::none:
        return text;
    case css::text::text_transform::uppercase:
        out = unicode::to_upper(text);
        return out;
    case css::text::text_transform::lowercase:
        out = unicode::to_lower(text);
        return out;
    case css::text::text_transform::capitalize: {
        out.assign(text);
        auto const first = std::find_if(out.begin(), out.end(), unicode::is_letter_mark_or_number);
        if (first != out.end()) {
            *first = unicode::to_upper(*first);
        }
        return out;
    }
    }
    return text;
}

pack::knuth::graphemes shape(eval_env const& env, measure_form const& f, fonts::direction dir, std::u32string_view text) {
    check(static_cast<bool>(env.env_shape) && f.form_font_req != nullptr, "eval_knuth");
    return env.env_shape(*f.form_font_req, dir, text);
}

float width_of(measure_form const& f, pack::knuth::graphemes const& g, float letter_spacing) {
    return fonts::graphemes_width(false, vertical(*f.form_style), g, letter_spacing, f.form_style->font_size);
}

// The advance of a character in the form's font, without any spacing.
struct char_measure {
    pack::knuth::graphemes char_graphemes;
    float char_width = 0;
};

char_measure measure_char(eval_env const& env, measure_form const& f, char32_t c) {
    auto g = shape(env, f, fonts::direction::ltr, std::u32string_view(&c, 1));
    float const w = width_of(f, g, 0);
    return {.char_graphemes = std::move(g), .char_width = w};
}

measure_form form_of_parts(font_req_ref const& req,
                           style_ref const& style,
                           std::optional<first_line_form> const& first_line,
                           line_kind kind) {
    if (kind == line_kind::first_line && first_line) {
        return {.form_font_req = first_line->first_line_font_req.get(), .form_style = first_line->first_line_style.get()};
    }
    return {.form_font_req = req.get(), .form_style = style.get()};
}

// Shapes a text box's text (after its style's text-transform) and sets its width.
void measure_text(eval_env const& env,
                  text_head& head,
                  fonts::direction dir,
                  std::u32string_view text,
                  line_kind kind) {
    auto const f = form_of(head, kind);
    textbuf::textbuf made;
    head.head_graphemes = shape(env, f, dir, transformed(*f.form_style, text, made));
    head.head_width = width_of(f, head.head_graphemes, letter_spacing_of(*f.form_style));
}

// Re-measures stored graphemes that have no text behind them.
void measure_graphemes(text_head& head, line_kind kind) {
    auto const f = form_of(head, kind);
    head.head_width = width_of(f, head.head_graphemes, letter_spacing_of(*f.form_style));
}

float space_width_of(eval_env const& env, measure_form const& f, prepack::space_width const& w) {
    return std::visit(overloaded{
                          [](prepack::space_zero const&) { return 0.0f; },
                          [&](prepack::space_ems const& e) { return f.form_style->font_size * e.ems; },
                          [&](prepack::space_equal_to const& e) { return measure_char(env, f, e.equal_to).char_width; },
                          [&](prepack::space_equal_to_half const& e) {
                              return 0.5f * measure_char(env, f, e.equal_to_half).char_width;
                          },
                      },
                      w);
}

struct box_eval {
    knuth_box box;
    bool changed = false;
};

box_eval eval_box(eval_env const& env,
                  line_kind kind,
                  std::optional<float> containing_height,
                  page_state const& state,
                  knuth_box b) {
    bool changed = false;
    std::visit(overloaded{
                   [&](word& w) { measure_text(env, w.word_head, w.word_direction, w.word_text, kind); },
                   [&](non_word& w) {
                       measure_text(env, w.non_word_head, w.non_word_direction, w.non_word_text, kind);
                   },
                   [&](grapheme_seq& s) { measure_graphemes(s.seq_head, kind); },
                   [&](glyph_index& g) { measure_graphemes(g.glyph_head, kind); },
                   [&](counter& c) {
                       if (env.env_render_counter) {
                           auto text = (*env.env_render_counter)(c, state);
                           if (text != c.counter_text) {
                               c.counter_text = std::move(text);
                               changed = true;
                           }
                       }
                       measure_text(env, c.counter_head, c.counter_direction, c.counter_text, kind);
                   },
                   [&](pre_space& p) {
                       auto const f = form_of(p.pre_space_head, kind);
                       auto m = measure_char(env, f, U' ');
                       p.pre_space_head.head_graphemes = std::move(m.char_graphemes);
                       p.pre_space_head.head_width = m.char_width + word_spacing_of(*f.form_style);
                   },
                   [&](charlike_space& c) {
                       auto const f = form_of(c.charlike_head, kind);
                       c.charlike_head.head_width =
                           space_width_of(env, f, c.charlike_width) + letter_spacing_of(*f.form_style);
                   },
                   [](newline&) {},
                   [](open&) {},
                   [](close&) {},
                   [&](inline_block& i) {
                       // Packed once: what an inline block holds doesn't change with the page.
                       if (env.env_pack_inline_block && !i.inline_block_box) {
                           auto packed = (*env.env_pack_inline_block)(i, containing_height);
                           i.inline_block_width = packed.packed_width;
                           i.inline_block_box = std::move(packed.packed_box);
                       }
                   },
                   [](indent&) {},
               },
               b);
    return {.box = std::move(b), .changed = changed};
}

// The number of items from the start of `rest` up to, not including, the tail of the script result
// that starts before it.
int items_to_tail(std::span<pack::knuth::knuth const> rest) {
    int depth = 0;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (std::holds_alternative<script_func_head>(rest[i])) {
            ++depth;
        } else if (std::holds_alternative<script_func_tail>(rest[i])) {
            if (depth == 0) {
                return static_cast<int>(i);
            }
            --depth;
        }
    }
    return static_cast<int>(rest.size());
}

} // namespace

measure_form form_of(text_head const& head, line_kind kind) {
    return form_of_parts(head.head_font_req, head.head_style, head.head_first_line, kind);
}

shaper shaper_of(std::shared_ptr<fonts::fonts const> db, std::shared_ptr<fonts::shape_cache::shape_cache> cache) {
    // The database is shared, not copied: a shaper is made for every paragraph.
    if (!cache) {
        return [db = std::move(db)](fonts::font_req const& req, fonts::direction dir, std::u32string_view text) {
            return pack::knuth::graphemes(fonts::text_to_graphemes(*db, req, dir, text));
        };
    }
    return [db = std::move(db), cache = std::move(cache)](fonts::font_req const& req, fonts::direction dir,
                                                          std::u32string_view text) {
        return fonts::shape_cache::shape(*cache, *db, req, dir, text);
    };
}

pattern_source patterns_of(log::log const& log,
                           hyph::hyph& cache,
                           std::shared_ptr<resource::loader::loader const> loader) {
    // The names a paragraph's styles give resolve to the same patterns every time a line asks, and
    // resolving a URL is not cheap: the last answer is kept for the next question.
    struct last_answer {
        css::text::hyphenate_patterns answer_names;
        std::optional<ref<hyphen_parser::hyphen_rules>> answer_rules;
    };
    auto last = std::make_shared<std::optional<last_answer>>();
    return [log, &cache, loader = std::move(loader), last](css::text::hyphenate_patterns const& names)
               -> std::optional<ref<hyphen_parser::hyphen_rules>> {
        if (*last && (*last)->answer_names == names) {
            return (*last)->answer_rules;
        }
        std::optional<ref<hyphen_parser::hyphen_rules>> found;
        // The first file that loads serves; a style may name a fallback after a preferred file.
        for (auto const& name : names) {
            if (auto rules = hyph::get_patterns_for_url(log, cache, *loader, name)) {
                found = std::move(rules);
                break;
            }
        }
        *last = last_answer{.answer_names = names, .answer_rules = found};
        return found;
    };
}

eval_res eval_knuth(eval_env const& env,
                    line_kind kind,
                    std::optional<float> containing_height,
                    page_state state,
                    pack::knuth::knuth const& item,
                    std::span<pack::knuth::knuth const> rest) {
    // The measured item is made from the given one; an item that measuring leaves as it is is copied
    // once, at the end, rather than copied first and then replaced.
    eval_res res{.res_state = std::move(state)};
    bool kept = true;
    std::visit(overloaded{
                   [&](knuth_box const& b) {
                       auto e = eval_box(env, kind, containing_height, res.res_state, b);
                       kept = false;
                       res.res_item = std::move(e.box);
                       res.res_changed = e.changed;
                   },
                   [&](knuth_leader const& l) {
                       knuth_leader out = l;
                       auto const f =
                           form_of_parts(l.leader_font_req, l.leader_style, l.leader_first_line_style, kind);
                       textbuf::textbuf made;
                       out.single_leader_content =
                           shape(env, f, l.leader_direction, transformed(*f.form_style, l.leader_textbuf, made));
                       out.single_leader_width =
                           width_of(f, out.single_leader_content, letter_spacing_of(*f.form_style)) +
                           word_spacing_of(*f.form_style);
                       // The leader fills what the line leaves; composition decides how much that is.
                       out.leader_width = 0;
                       kept = false;
                       res.res_item = std::move(out);
                   },
                   [&](knuth_penalty const& p) {
                       if (auto const* s = std::get_if<soft>(&p)) {
                           soft out = *s;
                           auto const f = form_of_parts(s->penaly_font_req, s->penaly_style,
                                                        s->penalty_first_line_style, kind);
                           out.penalty_content = shape(env, f, fonts::direction::ltr, U"-");
                           out.penalty_width =
                               width_of(f, out.penalty_content, letter_spacing_of(*f.form_style));
                           kept = false;
                           res.res_item = knuth_penalty{std::move(out)};
                       }
                   },
                   [&](knuth_glue const& g) {
                       if (auto const* s = std::get_if<glue>(&g)) {
                           glue out = *s;
                           auto const f =
                               form_of_parts(s->glue_font_req, s->glue_style, s->glue_first_line_style, kind);
                           auto m = measure_char(env, f, U' ');
                           // Every space stretches by half and shrinks by a sixth of its width;
                           // letter spacing has no part in a space.
                           float const w = m.char_width + word_spacing_of(*f.form_style);
                           out.glue_content = std::move(m.char_graphemes);
                           out.glue_width = w;
                           out.stretchability = 0.5f * w;
                           out.shrinkability = w / 6.0f;
                           kept = false;
                           res.res_item = knuth_glue{std::move(out)};
                       } else if (auto const* z = std::get_if<zero_width_cjk>(&g)) {
                           auto const& st = (kind == line_kind::first_line && z->zw_first_line_style)
                                                ? *z->zw_first_line_style->first_line_style
                                                : *z->zw_style;
                           kept = false;
                           res.res_item = knuth_glue{zero_width_cjk{
                               .zw_stretchability = st.font_size + word_spacing_of(st),
                               .zw_style = z->zw_style,
                               .zw_first_line_style = z->zw_first_line_style,
                           }};
                       }
                   },
                   [](forced_break const&) {},
                   [](prohibited_break const&) {},
                   [&](script_func_head const& h) {
                       if (!env.env_call_script) {
                           return;
                       }
                       auto result = (*env.env_call_script)(*h.head_func, res.res_state);
                       if (!result) {
                           return;
                       }
                       res.res_splice = splice{.splice_count = items_to_tail(rest),
                                               .splice_items = std::move(result->result_items)};
                       auto func = *h.head_func;
                       func.script_result = std::move(result->result_text);
                       kept = false;
                       res.res_item = script_func_head{share(std::move(func))};
                       res.res_changed = true;
                   },
                   [](script_func_tail const&) {},
                   [&](footnote const&) { ++res.res_state.footnote_counter; },
               },
               item);
    if (kept) {
        res.res_item = item;
    }
    return res;
}

// ---- Lines ---------------------------------------------------------------------------------------------

namespace {

struct word_view {
    text_head const* head = nullptr;
    fonts::direction dir = fonts::direction::ltr;
    item_text const* text = nullptr;
};

// Two texts end to end, as a text of its own.
item_text end_to_end(std::u32string_view a, std::u32string_view b) {
    textbuf::textbuf out;
    out.reserve(a.size() + b.size());
    out.append(a).append(b);
    return out;
}

std::optional<word_view> word_or_non_word(pack::knuth::knuth const& item) {
    auto const* b = std::get_if<knuth_box>(&item);
    if (b == nullptr) {
        return std::nullopt;
    }
    if (auto const* w = std::get_if<word>(b)) {
        return word_view{&w->word_head, w->word_direction, &w->word_text};
    }
    if (auto const* w = std::get_if<non_word>(b)) {
        return word_view{&w->non_word_head, w->non_word_direction, &w->non_word_text};
    }
    return std::nullopt;
}

bool same_style(style_ref const& a, style_ref const& b) {
    return a == b || (a && b && *a == *b);
}

} // namespace

namespace {

// (a) A word, a soft hyphen and the next piece of the same word rejoin when the line doesn't break at
// that hyphen; the last item of the line is the break and is never joined over. The result points
// into `line`, or into `made` for the words joined again (a list, which allocates nothing until a word
// is joined and never moves what it holds).
std::vector<pack::knuth::knuth const*> join_pieces(eval_env const& env,
                                             line_kind kind,
                                             std::span<pack::knuth::knuth const> line,
                                             std::forward_list<pack::knuth::knuth>& made) {
    std::vector<pack::knuth::knuth const*> joined;
    joined.reserve(line.size());
    auto const replace_back = [&](pack::knuth::knuth item) {
        made.push_front(std::move(item));
        joined.back() = &made.front();
    };
    for (std::size_t i = 0; i < line.size(); ++i) {
        auto const* p = std::get_if<knuth_penalty>(&line[i]);
        if (p != nullptr && std::holds_alternative<soft>(*p) && i + 1 < line.size() && !joined.empty()) {
            auto const before = word_or_non_word(*joined.back());
            auto const after = word_or_non_word(line[i + 1]);
            if (before && after && same_style(before->head->head_style, after->head->head_style) &&
                before->dir == after->dir) {
                auto const& prev_box = std::get<knuth_box>(*joined.back());
                if (auto const* w = std::get_if<word>(&prev_box)) {
                    non_word nw{.non_word_head = w->word_head,
                                .non_word_direction = w->word_direction,
                                .non_word_writing_mode = w->word_writing_mode,
                                .non_word_text = end_to_end(*before->text, *after->text)};
                    measure_text(env, nw.non_word_head, nw.non_word_direction, nw.non_word_text, kind);
                    replace_back(knuth_box{std::move(nw)});
                    ++i;
                    continue;
                }
                // A piece joined into a non_word may be followed by another soft hyphen and piece.
                non_word nw = std::get<non_word>(prev_box);
                nw.non_word_text = end_to_end(nw.non_word_text, *after->text);
                measure_text(env, nw.non_word_head, nw.non_word_direction, nw.non_word_text, kind);
                replace_back(knuth_box{std::move(nw)});
                ++i;
                continue;
            }
        }
        joined.push_back(&line[i]);
    }
    return joined;
}

} // namespace

std::vector<pack::knuth::knuth> trim_line(eval_env const& env, line_kind kind, std::span<pack::knuth::knuth const> line) {
    std::forward_list<pack::knuth::knuth> made;
    auto const pieces = join_pieces(env, kind, line, made);
    // (c) A penalty that ends the line stays: its hyphen is drawn.
    if (!pieces.empty() && is_penalty(*pieces.back())) {
        std::vector<pack::knuth::knuth> joined;
        joined.reserve(pieces.size());
        for (auto const* item : pieces) {
            joined.push_back(*item);
        }
        return joined;
    }
    // (b) The end of the line is stripped as the start of a line would be.
    return stripped_trailing(pieces);
}

pack::knuth::line_sum trimmed_line_sums(eval_env const& env,
                                  line_kind kind,
                                  std::optional<pack::knuth::knuth> const& first,
                                  std::span<pack::knuth::knuth const> line) {
    std::forward_list<pack::knuth::knuth> made;
    auto const pieces = join_pieces(env, kind, line, made);
    return stripped_line_sums(first, pieces);
}

namespace {

// The width of pieces `first`, `first + 2`, ..., `last` of `items` joined into one word, as
// `join_pieces` measures it: the text of all, in the first piece's font, style and direction.
float joined_width(eval_env const& env, line_kind kind, std::span<pack::knuth::knuth const> items, std::size_t first, std::size_t last) {
    auto const head = word_or_non_word(items[first]);
    check(head.has_value(), "joined_width");
    textbuf::textbuf text(head->text->view());
    for (std::size_t i = first + 2; i <= last; i += 2) {
        auto const piece = word_or_non_word(items[i]);
        check(piece.has_value(), "joined_width");
        text += piece->text->view();
    }
    text_head measured = *head->head;
    measure_text(env, measured, head->dir, text, kind);
    return measured.head_width;
}

} // namespace

void measured_push(measured_items& m, pack::knuth::knuth item) {
    pack::knuth::sums_push(m.measured_sums, item);
    m.measured_list.push_back(std::move(item));
    std::size_t const i = m.measured_list.size() - 1;
    if (i < 2) {
        return;
    }
    // A piece after a soft hyphen after a piece of the same style and direction: the three join
    // on any line that holds them and doesn't end at the hyphen.
    auto const& list = m.measured_list;
    auto const* p = std::get_if<knuth_penalty>(&list[i - 1]);
    if (p == nullptr || !std::holds_alternative<soft>(*p)) {
        return;
    }
    auto const before = word_or_non_word(list[i - 2]);
    auto const after = word_or_non_word(list[i]);
    if (!before || !after || !same_style(before->head->head_style, after->head->head_style) ||
        before->dir != after->dir) {
        return;
    }
    if (!m.measured_runs.empty() && m.measured_runs.back().run_last == i - 2) {
        m.measured_runs.back().run_last = i;
    } else {
        m.measured_runs.push_back({.run_first = i - 2, .run_last = i});
    }
}

void measured_truncate(measured_items& m, std::size_t count) {
    if (count >= m.measured_list.size()) {
        return;
    }
    m.measured_list.resize(count);
    pack::knuth::sums_truncate(m.measured_sums, count);
    while (!m.measured_runs.empty()) {
        auto& r = m.measured_runs.back();
        if (r.run_last < count) {
            break;
        }
        // Pieces lie at even distances from the run's first.
        if (count > r.run_first) {
            r.run_last = r.run_first + (count - 1 - r.run_first) / 2 * 2;
        }
        if (count <= r.run_first || r.run_last == r.run_first) {
            m.measured_runs.pop_back();
            continue;
        }
        break;
    }
    std::erase_if(m.measured_joined, [count](auto const& e) { return (e.first & 0xffffffffu) >= count; });
}

pack::knuth::line_sum measured_line_sums(eval_env const& env,
                                   measured_items& m,
                                   std::size_t from,
                                   std::size_t to,
                                   std::optional<pack::knuth::knuth> const& first) {
    check(to <= m.measured_list.size(), "measured_line_sums");
    auto sum = pack::knuth::sums_of_line(m.measured_sums, from, to);
    if (first) {
        sum.sum_width += item_width(*first);
    }
    if (from == to) {
        return sum;
    }
    // The runs of pieces that meet the line, each cut to the pieces on the line: the line's first
    // item may be a piece after a hyphen where the line before broke, and its last may be a hyphen
    // that is not joined over.
    auto const& runs = m.measured_runs;
    auto it = std::lower_bound(runs.begin(), runs.end(), from,
                               [](measured_items::run const& r, std::size_t f) { return r.run_last < f; });
    for (; it != runs.end() && it->run_first < to; ++it) {
        std::size_t const a = from <= it->run_first ? it->run_first : it->run_first + (from - it->run_first + 1) / 2 * 2;
        std::size_t const b = it->run_last < to ? it->run_last : it->run_first + (to - 1 - it->run_first) / 2 * 2;
        if (a >= b) {
            continue;
        }
        auto const key = static_cast<std::uint64_t>(a) << 32 | static_cast<std::uint64_t>(b);
        auto found = m.measured_joined.find(key);
        if (found == m.measured_joined.end()) {
            found = m.measured_joined.emplace(key, joined_width(env, m.measured_kind, m.measured_list, a, b)).first;
        }
        // The pieces count in the prefix sums (the hyphens between them count nothing inside a line);
        // the joined word takes their place.
        auto const& e = m.measured_sums.sums_entries;
        auto const pieces = static_cast<float>(e[b + 1].entry_width - e[a].entry_width);
        sum.sum_width += found->second - pieces;
    }
    return sum;
}

std::optional<hyphenated> try_hyphenate(eval_env const& env,
                                        line_kind kind,
                                        pack::knuth::knuth const* previous,
                                        std::span<pack::knuth::knuth const> items) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        pack::knuth::knuth const* prev = i == 0 ? previous : &items[i - 1];
        if (i > 0 && legal_break(prev, items[i])) {
            return std::nullopt;
        }
        auto const* b = std::get_if<knuth_box>(&items[i]);
        auto const* w = b != nullptr ? std::get_if<word>(b) : nullptr;
        if (w == nullptr) {
            continue;
        }
        // A word next to a penalty is a piece of a word already broken, by a soft hyphen in the text
        // or by an earlier hyphenation: each word is hyphenated once.
        if ((prev != nullptr && is_penalty(*prev)) || (i + 1 < items.size() && is_penalty(items[i + 1]))) {
            continue;
        }
        // On the first line, a word in first-line styling stays whole.
        if (kind == line_kind::first_line && w->word_head.head_first_line) {
            continue;
        }
        auto const& style = *w->word_head.head_style;
        if (style.rare_props->rare_props_hyphens != css::text::hyphens::auto_ ||
            style.rare_props->rare_props_white_space != css::text::white_space::normal ||
            style.rare_props->rare_props_hyphenate_patterns.empty() || !env.env_patterns) {
            continue;
        }
        auto const rules = env.env_patterns(style.rare_props->rare_props_hyphenate_patterns);
        if (!rules) {
            continue;
        }
        auto const hyphenated_word =
            env.env_hyph
                ? hyph::hyphenate(*env.env_hyph, **rules, style.rare_props->rare_props_hyphenate_before,
                                  style.rare_props->rare_props_hyphenate_after, w->word_text)
                : share(hyphenation::hyphenate(**rules, style.rare_props->rare_props_hyphenate_before,
                                               style.rare_props->rare_props_hyphenate_after, w->word_text));
        auto const& parts = *hyphenated_word;
        if (parts.size() < 2) {
            continue;
        }
        hyphenated out{.word_index = i};
        for (std::size_t k = 0; k < parts.size(); ++k) {
            if (k > 0) {
                out.word_parts.push_back(knuth_penalty{soft{
                    .penaly_font_req = w->word_head.head_font_req,
                    .penaly_style = w->word_head.head_style,
                    .penalty_first_line_style = w->word_head.head_first_line,
                }});
            }
            out.word_parts.push_back(knuth_box{word{
                .word_head = {.head_font_req = w->word_head.head_font_req,
                              .head_style = w->word_head.head_style,
                              .head_first_line = w->word_head.head_first_line},
                .word_direction = w->word_direction,
                .word_writing_mode = w->word_writing_mode,
                .word_text = parts[k],
            }});
        }
        return out;
    }
    return std::nullopt;
}

namespace {

// The number of code points that a run of graphemes stands for.
std::size_t code_points_of(std::span<fonts::grapheme const> graphemes) {
    std::size_t n = 0;
    for (auto const& g : graphemes) {
        n += g.base_glyph.glyph_unicodes.size();
        for (auto const& m : g.grapheme_marks) {
            n += m.mark_glyph.glyph_unicodes.size();
        }
    }
    return n;
}

bool skipped_at_end(pack::knuth::knuth const& item) {
    if (std::holds_alternative<knuth_glue>(item) || std::holds_alternative<knuth_penalty>(item)) {
        return true;
    }
    auto const* b = std::get_if<knuth_box>(&item);
    return b != nullptr && std::holds_alternative<close>(*b);
}

} // namespace

overflow_wrap0_res overflow_wrap(eval_env const&, line_kind kind, std::span<pack::knuth::knuth const> line, float width) {
    std::size_t end = line.size();
    while (end > 0 && skipped_at_end(line[end - 1])) {
        --end;
    }
    bool any_text = false;
    for (std::size_t i = end; i-- > 0;) {
        auto const view = word_or_non_word(line[i]);
        if (!view || view->head->head_graphemes.empty()) {
            continue;
        }
        any_text = true;
        auto const f = form_of(*view->head, kind);
        auto const& style = *f.form_style;
        auto const ws = style.rare_props->rare_props_white_space;
        if (style.text->text_props_overflow_wrap != css::text::overflow_wrap::break_word ||
            (ws != css::text::white_space::normal && ws != css::text::white_space::pre_wrap &&
             ws != css::text::white_space::pre_line)) {
            break;
        }
        float const before = line_sums(line.first(i)).sum_width;
        float const letter_spacing = letter_spacing_of(style);
        auto const fit = fonts::fit_graphemes(vertical(style), view->head->head_graphemes, letter_spacing,
                                              style.font_size, width - before - letter_spacing);
        if (!fit || fit->fit_first.empty() || fit->fit_rest.empty()) {
            break;
        }
        std::size_t const cut = std::min(code_points_of(fit->fit_first), view->text->size());
        auto const& b = std::get<knuth_box>(line[i]);
        auto const writing_mode = std::holds_alternative<word>(b) ? std::get<word>(b).word_writing_mode
                                                                  : std::get<non_word>(b).non_word_writing_mode;
        text_head first_head = *view->head;
        first_head.head_graphemes = fit->fit_first;
        first_head.head_width = fit->fit_width;
        // The rest goes to the next line, which is measured when the breaker reaches it; on a first
        // line in first-line styling it is measured there in the paragraph's own style.
        text_head rest_head = *view->head;
        rest_head.head_graphemes = fit->fit_rest;
        rest_head.head_width = fonts::graphemes_width(false, vertical(style), fit->fit_rest, letter_spacing,
                                                      style.font_size);
        // The items behind the word (an inline box's end, the space the line broke at) follow the rest
        // of the word to the next line, so that the space stays between it and the next word.
        truncated out;
        out.truncated_line.assign(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(i));
        out.truncated_line.push_back(knuth_box{non_word{.non_word_head = std::move(first_head),
                                                        .non_word_direction = view->dir,
                                                        .non_word_writing_mode = writing_mode,
                                                        .non_word_text = view->text->part(0, cut)}});
        out.truncated_rest.push_back(knuth_box{non_word{.non_word_head = std::move(rest_head),
                                                        .non_word_direction = view->dir,
                                                        .non_word_writing_mode = writing_mode,
                                                        .non_word_text = view->text->part(cut)}});
        out.truncated_rest.insert(out.truncated_rest.end(), line.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                  line.end());
        return out;
    }
    if (!any_text) {
        return not_truncated_and_no_grapheme{};
    }
    return grapheme_but_not_truncated{};
}

} // namespace vellum::pack::eval_knuth
