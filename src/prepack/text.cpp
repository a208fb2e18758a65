#include "prepack/text.hpp"

#include "text/grapheme_boundary.hpp"
#include "css/style.hpp"
#include "text/unicode.hpp"
#include "text/unicode/bidi.hpp"
#include "text/unicode/category.hpp"
#include "text/unicode/linebreak.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <limits>
#include <set>
#include <type_traits>

namespace vellum::prepack::text {

text_settings settings_of(css::style::style const& s) {
    return {.white_space = s.rare_props ? s.rare_props->rare_props_white_space : css::text::white_space::normal,
            .transform = s.text ? s.text->text_props_text_transform : css::text::text_transform::none,
            .word_break = s.text ? s.text->text_props_word_break : css::text::word_break::normal};
}

namespace {

using css::text::white_space;
namespace lb = unicode::linebreak;

constexpr char32_t soft_hyphen = 0x00AD;
constexpr char32_t zero_width_space = 0x200B;

bool is_hard_hyphen(char32_t c) {
    return c == U'-' || c == 0x2010;
}

bool is_white(char32_t c) {
    return c == U' ' || c == U'\t' || c == U'\n' || c == U'\r';
}

bool is_cjk(char32_t c) {
    auto const k = lb::line_break_class_of(c);
    return k == lb::line_break_class::id || k == lb::line_break_class::cj || k == lb::line_break_class::h2 ||
           k == lb::line_break_class::h3 || k == lb::line_break_class::jl || k == lb::line_break_class::jt ||
           k == lb::line_break_class::jv;
}

// How many columns a character of a word takes on a line of preserved text: none for combining marks,
// format characters and the soft hyphen, one for the rest, as a monospaced font sets them.
int cells(char32_t c) {
    using unicode::category::general_category;
    auto const k = unicode::category::category_of(c);
    bool const zero = c == soft_hyphen || k == general_category::category_mn ||
                      k == general_category::category_me || k == general_category::category_cf;
    return zero ? 0 : 1;
}

bool wraps(white_space w) {
    return w == white_space::normal || w == white_space::pre_wrap || w == white_space::pre_line;
}

// Cuts one word (a run of word characters) into text spans at its break opportunities and hyphens, its
// characters appended to the paragraph text `store`. `breaks[i]` says whether the line may end after
// word[i].
void emit_word(std::vector<span>& out, textbuf::textbuf& store, std::u32string_view word,
               std::vector<lb::break_action> const& breaks, bool wrapping) {
    // The run being cut off lies at the end of the store, from `run_start` on.
    std::size_t run_start = store.size();
    auto const run_empty = [&] { return store.size() == run_start; };
    auto const take_run = [&] {
        text_range const r{.text_offset = static_cast<std::uint32_t>(run_start),
                           .text_length = static_cast<std::uint32_t>(store.size() - run_start)};
        run_start = store.size();
        return r;
    };
    auto const flush_text = [&] {
        if (!run_empty()) {
            out.push_back(span_text{take_run()});
        }
    };
    for (std::size_t i = 0; i < word.size(); ++i) {
        char32_t const c = word[i];
        bool const last = i + 1 == word.size();
        if (c == soft_hyphen) {
            // The soft hyphen itself is invisible; it shows only when the line breaks there.
            if (!last && !run_empty()) {
                out.push_back(span_text_with_hyphen{take_run(), hyphen_type::soft});
            }
            continue;
        }
        store.push_back(c);
        if (last) {
            break;
        }
        if (is_hard_hyphen(c) && wrapping && store.size() - run_start > 1) {
            out.push_back(span_text_with_hyphen{take_run(), hyphen_type::hard});
        } else if (wrapping && breaks[i] == lb::break_action::allowed) {
            bool const cjk = is_cjk(c) && is_cjk(word[i + 1]);
            flush_text();
            if (cjk) {
                out.push_back(span_sep{sep_cjk_zw_space{}});
            } else {
                out.push_back(span_sep{sep_wrap_opportunity{}});
            }
        }
    }
    flush_text();
}

bool is_collapsible(span const& s) {
    auto const* sep = std::get_if<span_sep>(&s);
    return sep && (std::holds_alternative<sep_space>(sep->sep) || std::holds_alternative<sep_nowrap_space>(sep->sep));
}

bool is_newline(span const& s) {
    auto const* sep = std::get_if<span_sep>(&s);
    return sep && std::holds_alternative<sep_newline>(sep->sep);
}

// A leaf span of a paragraph as the space pass sees it: the list that holds it and its place there.
// Nested spans are transparent: white space collapses across inline element boundaries.
// A box taken out of the line by absolute or fixed positioning: the spaces around it collapse as if it
// weren't there.
bool out_of_flow(span const& s) {
    auto const* ib = std::get_if<span_inline_block>(&s);
    if (!ib || !ib->inline_block || !ib->inline_block->block_style) {
        return false;
    }
    auto const* k = std::get_if<css::box::position_kind>(&ib->inline_block->block_style->bit_props.bit_props_position);
    return k && (*k == css::box::position_kind::absolute || *k == css::box::position_kind::fixed);
}

struct leaf {
    std::vector<span>* owner = nullptr;
    std::size_t index = 0;
};

void leaves_of(std::vector<span>& spans, std::vector<leaf>& out) {
    for (std::size_t i = 0; i < spans.size(); ++i) {
        if (auto* n = std::get_if<span_nested>(&spans[i])) {
            leaves_of(n->nested->span_content, out);
        } else if (!out_of_flow(spans[i])) {
            out.push_back({&spans, i});
        }
    }
}

using removals = std::set<std::pair<std::vector<span> const*, std::size_t>>;

// Drops the marked spans; inner lists first, while the outer ones (whose elements hold them) are still
// where they were when the marks were made.
void prune(std::vector<span>& spans, removals const& gone) {
    for (auto& s : spans) {
        if (auto* n = std::get_if<span_nested>(&s)) {
            prune(n->nested->span_content, gone);
        }
    }
    std::vector<span> kept;
    kept.reserve(spans.size());
    for (std::size_t i = 0; i < spans.size(); ++i) {
        if (!gone.contains({&spans, i})) {
            kept.push_back(std::move(spans[i]));
        }
    }
    spans = std::move(kept);
}

} // namespace

std::optional<space_width> fixed_space_width(char32_t c) {
    switch (c) {
    case 0x00A0:
        return space_equal_to{U' '};
    case 0x2000:
    case 0x2002:
        return space_ems{0.5f};
    case 0x2001:
    case 0x2003:
        return space_ems{1.0f};
    case 0x2004:
        return space_ems{1.0f / 3};
    case 0x2005:
        return space_ems{0.25f};
    case 0x2006:
        return space_ems{1.0f / 6};
    case 0x2008:
        return space_equal_to{U'.'};
    case 0x2009:
    case 0x2061:
        return space_ems{0.2f};
    case 0x200A:
        return space_ems{0.1f};
    case 0x202F:
        return space_equal_to_half{U' '};
    case 0x205F:
        return space_ems{2.0f / 9};
    case 0x2062:
    case 0xFEFF:
        return space_zero{};
    default:
        return std::nullopt;
    }
}

bool is_word_char(char32_t c) {
    return !is_white(c) && c != zero_width_space && !fixed_space_width(c);
}

// `word-break` over the line-breaking opportunities between two word characters: `break-all` opens
// every grapheme boundary between letters, numbers and the like (not next to punctuation, which keeps
// its own rules), `keep-all` closes those between two CJK letters.
void apply_word_break(std::u32string_view text, css::text::word_break wb, std::vector<lb::break_action>& breaks) {
    if (wb == css::text::word_break::normal) {
        return;
    }
    for (std::size_t k = 0; k + 1 < text.size(); ++k) {
        char32_t const a = text[k];
        char32_t const b = text[k + 1];
        if (!is_word_char(a) || !is_word_char(b) || breaks[k] == lb::break_action::mandatory) {
            continue;
        }
        if (wb == css::text::word_break::break_all) {
            bool const letters = unicode::is_letter_mark_or_number(a) && unicode::is_letter_mark_or_number(b);
            if (letters && grapheme_boundary::grapheme_end(text, k) == k + 1) {
                breaks[k] = lb::break_action::allowed;
            }
        } else if (is_cjk(a) && is_cjk(b)) {
            breaks[k] = lb::break_action::prohibited;
        }
    }
}

textbuf::textbuf transform_case(std::u32string_view text, css::text::text_transform t, bool& at_word_start) {
    using css::text::text_transform;
    switch (t) {
    case text_transform::none:
        break;
    case text_transform::uppercase:
        return unicode::to_upper(text);
    case text_transform::lowercase:
        return unicode::to_lower(text);
    case text_transform::capitalize: {
        textbuf::textbuf out(text);
        for (auto& c : out) {
            bool const letter = unicode::is_letter_mark_or_number(c);
            if (letter && at_word_start) {
                c = unicode::to_upper(c);
            }
            // An apostrophe or a hyphen inside a word doesn't start a new one ("don't", "well-known").
            at_word_start = !letter && c != U'\'' && c != 0x2019 && c != U'-' && c != soft_hyphen;
        }
        return out;
    }
    }
    if (!text.empty()) {
        at_word_start = !unicode::is_letter_mark_or_number(text.back());
    }
    return textbuf::textbuf(text);
}

std::vector<span> prepare_text(textbuf::textbuf& store,
                               std::u32string_view input,
                               text_settings const& settings,
                               text_position& position) {
    // Offsets into the store are 32 bits; whatever this text adds must stay within them.
    check(store.size() + input.size() * 3 <= std::numeric_limits<std::uint32_t>::max(), "prepare_text");
    auto const ws = settings.white_space;
    auto const text = transform_case(input, settings.transform, position.at_word_start);
    bool const wrapping = wraps(ws);
    auto breaks = wrapping ? lb::break_opportunities(text) : std::vector<lb::break_action>{};
    if (wrapping) {
        apply_word_break(text, settings.word_break, breaks);
    }
    bool const preserve_spaces = ws == white_space::pre || ws == white_space::pre_wrap;
    bool const preserve_newlines = preserve_spaces || ws == white_space::pre_line;
    int& column = position.column;

    std::vector<span> out;
    // In pre-wrap text a line may end after a run of preserved spaces (never inside one), as after a
    // collapsible space.
    auto const wrap_after_spaces = [&](std::size_t at) {
        bool const run_ends = at + 1 == text.size() || (text[at + 1] != U' ' && text[at + 1] != U'\t');
        if (ws == white_space::pre_wrap && run_ends) {
            out.push_back(span_sep{sep_wrap_opportunity{}});
        }
    };
    std::size_t i = 0;
    while (i < text.size()) {
        char32_t const c = text[i];
        if (is_word_char(c)) {
            std::size_t j = i;
            while (j < text.size() && is_word_char(text[j])) {
                column += cells(text[j]);
                ++j;
            }
            std::vector<lb::break_action> word_breaks;
            if (wrapping) {
                word_breaks.assign(breaks.begin() + static_cast<std::ptrdiff_t>(i),
                                   breaks.begin() + static_cast<std::ptrdiff_t>(j));
            }
            emit_word(out, store, std::u32string_view(text).substr(i, j - i), word_breaks, wrapping);
            i = j;
            continue;
        }
        if (c == zero_width_space) {
            out.push_back(span_sep{sep_zwsp{}});
        } else if (auto const w = fixed_space_width(c)) {
            out.push_back(span_sep{sep_charlike_space{*w}});
            ++column;
        } else if ((c == U'\n' || c == U'\r') && preserve_newlines) {
            // A CR LF pair is one line end.
            if (!(c == U'\r' && i + 1 < text.size() && text[i + 1] == U'\n')) {
                out.push_back(span_sep{sep_newline{}});
                column = 0;
            }
        } else if (c == U'\t' && preserve_spaces) {
            // A tab reaches to the next tab stop: as many preserved spaces as columns are left to it.
            int const n = tab_stop - column % tab_stop;
            for (int k = 0; k < n; ++k) {
                out.push_back(span_sep{sep_pre_space{}});
            }
            column += n;
            wrap_after_spaces(i);
        } else if (preserve_spaces) {
            // Every preserved space counts; whether a line may break after it is the style's to say
            // (pre never breaks, pre-wrap may).
            out.push_back(span_sep{sep_pre_space{}});
            ++column;
            wrap_after_spaces(i);
        } else {
            // A run of collapsible white space is one space.
            if (out.empty() || !is_collapsible(out.back())) {
                out.push_back(span_sep{ws == white_space::nowrap ? separator{sep_nowrap_space{}} : sep_space{}});
                ++column;
            }
        }
        ++i;
    }
    return out;
}

std::vector<span> prepare_text(textbuf::textbuf& store,
                               std::u32string_view text,
                               text_settings const& settings,
                               bool& at_word_start) {
    text_position position{.at_word_start = at_word_start};
    auto out = prepare_text(store, text, settings, position);
    at_word_start = position.at_word_start;
    return out;
}

void collapse_spaces(std::vector<span>& spans) {
    std::vector<leaf> leaves;
    leaves_of(spans, leaves);
    removals gone;
    // Whether a collapsible space here would start a line or follow another space: then it goes.
    bool at_line_start = true;
    // The last space kept, while nothing but spaces follows it: it goes if a line end comes next.
    constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::size_t pending = none;
    auto const drop = [&](std::size_t i) { gone.insert({leaves[i].owner, leaves[i].index}); };
    for (std::size_t i = 0; i < leaves.size(); ++i) {
        auto const& s = (*leaves[i].owner)[leaves[i].index];
        if (is_collapsible(s)) {
            if (at_line_start) {
                drop(i);
            } else {
                at_line_start = true;
                pending = i;
            }
            continue;
        }
        bool const newline = is_newline(s);
        if (newline && pending != none) {
            // A space before a preserved line end goes, as the line ends there anyway.
            drop(pending);
        }
        pending = none;
        at_line_start = newline;
    }
    // And so does a space at the end of the paragraph.
    if (pending != none) {
        drop(pending);
    }
    if (!gone.empty()) {
        prune(spans, gone);
    }
}

bool has_content(std::vector<span> const& spans) {
    for (auto const& s : spans) {
        if (auto const* n = std::get_if<span_nested>(&s)) {
            if (has_content(n->nested->span_content)) {
                return true;
            }
        } else if (!is_collapsible(s)) {
            return true;
        }
    }
    return false;
}

namespace {

namespace bd = unicode::bidi;
using bd::add_text;
using bd::bidi_class;
using bd::bidi_thing;
using bd::explicit_stack;
using bd::first_strong_rtl;
using bd::is_strong_rtl;
using bd::next_level;
using bd::resolve;

bool is_rtl(css::style::style const& s) {
    return s.rare_props && s.rare_props->rare_props_direction == css::box::direction::rtl;
}

// The level an inline element's content is embedded at, if it opens an embedding.
std::optional<int> embedding_of(nested_span const& n, int level) {
    if (!n.span_style || n.span_style->rare_box->unicode_bidi == css::box::unicode_bidi::normal) {
        return std::nullopt;
    }
    return next_level(level, is_rtl(*n.span_style));
}

// How a separator takes part in the algorithm.
bidi_thing thing_of(separator const& s, int level) {
    return std::visit(overloaded{
                          [&](sep_newline const&) { return bidi_thing{bidi_class::s, level}; },
                          [&](sep_space const&) { return bidi_thing{bidi_class::ws, level}; },
                          [&](sep_nowrap_space const&) { return bidi_thing{bidi_class::ws, level}; },
                          [&](sep_pre_space const&) { return bidi_thing{bidi_class::ws, level}; },
                          [&](sep_zwsp const&) { return bidi_thing{bidi_class::bn, level, true}; },
                          [&](sep_wrap_opportunity const&) { return bidi_thing{bidi_class::bn, level, true}; },
                          [&](sep_cjk_zw_space const&) { return bidi_thing{bidi_class::bn, level, true}; },
                          [&](sep_charlike_space const&) { return bidi_thing{bidi_class::cs, level}; },
                      },
                      s);
}

// Flattens the paragraph into things with their explicit embedding levels, in the order `regroup`
// visits them again.
// `contexts` gets, for each nested span in the order visited, the level around it: its parent's level, or
// that of an embedding its parent's text opened with control characters before it.
void flatten(std::vector<span> const& spans, std::u32string_view text, int level, std::optional<bidi_class> forced,
             std::vector<bidi_thing>& things, std::vector<int>& contexts, bool& needed) {
    explicit_stack stack;
    auto const current = [&] { return stack.entries.empty() ? level : stack.entries.back().level; };
    auto const current_forced = [&] { return stack.entries.empty() ? forced : stack.entries.back().forced; };
    for (auto const& s : spans) {
        auto const object = [&] { things.push_back({current_forced() ? *current_forced() : bidi_class::on, current()}); };
        std::visit(overloaded{
                       [&](span_nested const& n) {
                           int inner = current();
                           contexts.push_back(inner);
                           auto inner_forced = current_forced();
                           if (auto const e = embedding_of(*n.nested, inner)) {
                               needed = true;
                               inner = *e;
                               if (n.nested->span_style->rare_box->unicode_bidi ==
                                   css::box::unicode_bidi::bidi_override) {
                                   inner_forced = is_rtl(*n.nested->span_style) ? bidi_class::r : bidi_class::l;
                               }
                           }
                           flatten(n.nested->span_content, text, inner, inner_forced, things, contexts, needed);
                       },
                       [&](span_text const& t) { add_text(text_of(text, t.text), level, forced, stack, things, needed); },
                       [&](span_text_with_hyphen const& t) {
                           add_text(text_of(text, t.text), level, forced, stack, things, needed);
                       },
                       [&](span_sep const& sep) {
                           auto t = thing_of(sep.sep, current());
                           if (current_forced() && !t.transparent) {
                               t.cls = *current_forced();
                           }
                           things.push_back(t);
                       },
                       [&](span_footnote const&) { object(); },
                       [&](span_inline_block const&) { object(); },
                       [&](span_glyph_index const&) { object(); },
                       [&](span_leader const&) { object(); },
                       [&](span_gen_content const&) { object(); },
                       [&](span_script_func const&) { object(); },
                       [&](span_first_letter const& f) {
                           add_text(text_of(text, f.first_letter_text), level, forced, stack, things, needed);
                       },
                   },
                   s);
    }
}

// A piece of the regrouped paragraph with the lowest level of what it holds.
struct unit {
    prepack::span unit_span;
    int unit_level = 0;
};

// Spans made by the pass inherit what they may from the text around them, and nothing else: no
// borders, padding or backgrounds of the element they lie in. One style serves every run of a context.
struct run_style {
    css::style::style const& around;
    ref<css::style::style> made;

    ref<css::style::style> const& get() {
        if (!made) {
            made = share(css::style::inherit_from(around));
        }
        return made;
    }
};

// Wraps the units that lie above `context` into spans with their level, nested where a run holds
// higher levels still.
std::vector<span> wrap_runs(std::vector<unit>& units, std::size_t from, std::size_t to, int context,
                            run_style& style) {
    std::vector<span> out;
    for (std::size_t i = from; i < to;) {
        if (units[i].unit_level <= context) {
            out.push_back(std::move(units[i].unit_span));
            ++i;
            continue;
        }
        std::size_t j = i;
        int low = units[i].unit_level;
        while (j < to && units[j].unit_level > context) {
            low = std::min(low, units[j].unit_level);
            ++j;
        }
        auto* lone = j == i + 1 ? std::get_if<span_nested>(&units[i].unit_span) : nullptr;
        if (lone && lone->nested->span_direction == low) {
            // An embedding that is its own run needs no second span around it.
            out.push_back(std::move(units[i].unit_span));
        } else {
            out.push_back(span_nested{nested_span{.span_content = wrap_runs(units, i, j, low, style),
                                                  .span_style = style.get(),
                                                  .span_direction = low}});
        }
        i = j;
    }
    return out;
}

int lowest_level(std::vector<unit> const& units, int fallback) {
    if (units.empty()) {
        return fallback;
    }
    int low = units.front().unit_level;
    for (auto const& u : units) {
        low = std::min(low, u.unit_level);
    }
    return low;
}

// Cuts a text span into pieces of one level; only the last piece keeps a hyphen after it.
template <class Text>
void cut_text(Text& t, std::vector<bidi_thing> const& things, std::size_t& next, std::vector<unit>& out) {
    std::size_t const start = next;
    std::size_t const end = next + t.text.text_length;
    next = end;
    for (std::size_t i = start; i < end;) {
        std::size_t j = i;
        while (j < end && things[j].level == things[i].level) {
            ++j;
        }
        auto const piece = sub_range(t.text, i - start, j - i);
        if constexpr (std::is_same_v<Text, span_text_with_hyphen>) {
            if (j == end) {
                out.push_back({span_text_with_hyphen{piece, t.hyphen}, things[i].level});
            } else {
                out.push_back({span_text{piece}, things[i].level});
            }
        } else {
            out.push_back({span_text{piece}, things[i].level});
        }
        i = j;
    }
}

// The spans of a list with their resolved levels, walking the flattened things in the order
// `flatten` made them. Nested spans are regrouped on the way: an embedding from its own level, and a
// plain inline element from the lowest level it holds, so that an element that lies whole in a run
// goes into that run's span and the run stays one piece when the line is reordered.
std::vector<unit> units_of(std::vector<span>& spans, int context, css::style::style const& around,
                           std::vector<bidi_thing> const& things, std::vector<int> const& contexts,
                           std::size_t& next, std::size_t& next_context) {
    std::vector<unit> units;
    units.reserve(spans.size());
    for (auto& s : spans) {
        if (auto* n = std::get_if<span_nested>(&s)) {
            auto& nested = *n->nested;
            auto const& style = nested.span_style ? *nested.span_style : around;
            int const around_level = contexts.at(next_context++);
            auto const embedding = embedding_of(nested, around_level);
            int const inner_context = embedding.value_or(around_level);
            auto inner = units_of(nested.span_content, inner_context, style, things, contexts, next, next_context);
            int const level = embedding ? *embedding : lowest_level(inner, around_level);
            if (embedding) {
                nested.span_direction = *embedding;
            }
            run_style runs{style, nullptr};
            nested.span_content = wrap_runs(inner, 0, inner.size(), level, runs);
            units.push_back({std::move(s), level});
        } else if (auto* t = std::get_if<span_text>(&s)) {
            cut_text(*t, things, next, units);
        } else if (auto* h = std::get_if<span_text_with_hyphen>(&s)) {
            cut_text(*h, things, next, units);
        } else {
            // A first letter is one piece; it takes the level of its first character.
            auto const* f = std::get_if<span_first_letter>(&s);
            std::size_t const count = f ? f->first_letter_text.text_length : 1;
            int const level = count > 0 ? things[next].level : context;
            next += count;
            units.push_back({std::move(s), level});
        }
    }
    return units;
}

} // namespace

void apply_bidi(std::vector<span>& spans, std::u32string_view text, css::style::style const& paragraph_style) {
    int const base = is_rtl(paragraph_style) ? 1 : 0;
    std::vector<bidi_thing> things;
    bool needed = base != 0;
    // An override on the paragraph's own block forces the direction of all of its text.
    std::optional<bidi_class> forced;
    if (paragraph_style.rare_box->unicode_bidi == css::box::unicode_bidi::bidi_override) {
        needed = true;
        forced = base != 0 ? bidi_class::r : bidi_class::l;
    }
    std::vector<int> contexts;
    flatten(spans, text, base, forced, things, contexts, needed);
    if (!needed) {
        return;
    }
    resolve(things, base);
    std::size_t next = 0;
    std::size_t next_context = 0;
    auto units = units_of(spans, base, paragraph_style, things, contexts, next, next_context);
    check(next == things.size() && next_context == contexts.size(), "apply_bidi");
    // Runs above the paragraph's level carry the paragraph's inherited style.
    run_style runs{paragraph_style, nullptr};
    spans = wrap_runs(units, 0, units.size(), base, runs);
}

} // namespace vellum::prepack::text
