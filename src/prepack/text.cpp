#include "prepack/text.hpp"

#include "text/unicode.hpp"
#include "text/unicode/bidi.hpp"
#include "text/unicode/category.hpp"
#include "text/unicode/linebreak.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <set>

namespace vellum::prepack::text {

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

// Cuts one word (a run of word characters) into text spans at its break opportunities and hyphens.
// `breaks[i]` says whether the line may end after word[i].
void emit_word(std::vector<span>& out, std::u32string_view word, std::vector<lb::break_action> const& breaks,
               bool wrapping) {
    textbuf::textbuf run;
    auto const flush_text = [&] {
        if (!run.empty()) {
            out.push_back(span_text{std::move(run)});
            run.clear();
        }
    };
    for (std::size_t i = 0; i < word.size(); ++i) {
        char32_t const c = word[i];
        bool const last = i + 1 == word.size();
        if (c == soft_hyphen) {
            // The soft hyphen itself is invisible; it shows only when the line breaks there.
            if (!last && !run.empty()) {
                out.push_back(span_text_with_hyphen{std::move(run), hyphen_type::soft});
                run.clear();
            }
            continue;
        }
        run.push_back(c);
        if (last) {
            break;
        }
        if (is_hard_hyphen(c) && wrapping && run.size() > 1) {
            out.push_back(span_text_with_hyphen{std::move(run), hyphen_type::hard});
            run.clear();
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
struct leaf {
    std::vector<span>* owner = nullptr;
    std::size_t index = 0;
};

void leaves_of(std::vector<span>& spans, std::vector<leaf>& out) {
    for (std::size_t i = 0; i < spans.size(); ++i) {
        if (auto* n = std::get_if<span_nested>(&spans[i])) {
            leaves_of(n->nested.span_content, out);
        } else {
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
            prune(n->nested.span_content, gone);
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

std::vector<span>
prepare_text(std::u32string_view input, text_settings const& settings, text_position& position) {
    auto const ws = settings.white_space;
    auto const text = transform_case(input, settings.transform, position.at_word_start);
    bool const wrapping = wraps(ws);
    auto const breaks = wrapping ? lb::break_opportunities(text) : std::vector<lb::break_action>{};
    bool const preserve_spaces = ws == white_space::pre || ws == white_space::pre_wrap;
    bool const preserve_newlines = preserve_spaces || ws == white_space::pre_line;
    int& column = position.column;

    std::vector<span> out;
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
            emit_word(out, std::u32string_view(text).substr(i, j - i), word_breaks, wrapping);
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
        } else if (preserve_spaces) {
            // Every preserved space counts; whether a line may break after it is the style's to say
            // (pre never breaks, pre-wrap may).
            out.push_back(span_sep{sep_pre_space{}});
            ++column;
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

std::vector<span> prepare_text(std::u32string_view text, text_settings const& settings, bool& at_word_start) {
    text_position position{.at_word_start = at_word_start};
    auto out = prepare_text(text, settings, position);
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
            if (has_content(n->nested.span_content)) {
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
using bd::bidi_class;

// One character of the paragraph as the bidi pass sees it: where it lies, its class and its level.
struct bidi_char {
    span_text* owner = nullptr;
    std::size_t index = 0;
    bidi_class cls = bidi_class::on;
    int level = 0;
};

bool is_strong_rtl(bidi_class c) {
    return c == bidi_class::r || c == bidi_class::al;
}

int next_level(int level, bool rtl) {
    return rtl ? (level + 1) | 1 : (level + 2) & ~1;
}

// Flattens the paragraph into characters with their explicit embedding levels. Spans that are not
// text (separators, inline boxes) stand in as neutrals at their level; they get no entry because their
// level doesn't decide anything but the neutrals around them, which the walk over `chars` handles.
void flatten(std::vector<span>& spans, int level, std::optional<bidi_class> forced, std::vector<bidi_char>& chars,
             bool& needed) {
    for (auto& s : spans) {
        if (auto* n = std::get_if<span_nested>(&s)) {
            int inner = level;
            auto inner_forced = forced;
            if (n->nested.span_style) {
                auto const& st = *n->nested.span_style;
                bool const rtl = st.rare_props && st.rare_props->rare_props_direction == css::box::direction::rtl;
                if (st.unicode_bidi != css::box::unicode_bidi::normal) {
                    needed = true;
                    inner = next_level(level, rtl);
                    if (st.unicode_bidi == css::box::unicode_bidi::bidi_override) {
                        inner_forced = rtl ? bidi_class::r : bidi_class::l;
                    }
                }
            }
            flatten(n->nested.span_content, inner, inner_forced, chars, needed);
        } else if (auto* t = std::get_if<span_text>(&s)) {
            for (std::size_t i = 0; i < t->text.size(); ++i) {
                auto const c = bd::bidi_class_of(t->text[i]);
                needed = needed || is_strong_rtl(c);
                chars.push_back({t, i, forced ? *forced : c, level});
            }
        }
    }
}

// The weak, neutral and implicit rules over the characters, in simplified form: numbers take the
// direction of the strong text before them (W2, W7), separators and terminators between numbers join
// them, neutrals between two strong runs of one direction take it (N1) and otherwise the embedding's
// (N2), then the implicit levels (I1, I2).
void resolve(std::vector<bidi_char>& chars, int base) {
    bidi_class last_strong = base % 2 ? bidi_class::r : bidi_class::l;
    for (auto& ch : chars) {
        if (ch.cls == bidi_class::nsm) {
            ch.cls = bidi_class::on;
        }
        if (ch.cls == bidi_class::l || ch.cls == bidi_class::r || ch.cls == bidi_class::al) {
            last_strong = ch.cls;
        }
        if (ch.cls == bidi_class::al) {
            ch.cls = bidi_class::r;
        } else if (ch.cls == bidi_class::en && last_strong == bidi_class::al) {
            ch.cls = bidi_class::an;
        } else if (ch.cls == bidi_class::en && last_strong == bidi_class::l) {
            ch.cls = bidi_class::l;
        }
    }
    auto const strong_of = [](bidi_class c) -> std::optional<bool> {
        if (c == bidi_class::l) {
            return false;
        }
        if (c == bidi_class::r || c == bidi_class::en || c == bidi_class::an) {
            return true;
        }
        return std::nullopt;
    };
    for (std::size_t i = 0; i < chars.size();) {
        if (strong_of(chars[i].cls)) {
            ++i;
            continue;
        }
        std::size_t j = i;
        while (j < chars.size() && !strong_of(chars[j].cls) && chars[j].level == chars[i].level) {
            ++j;
        }
        int const level = chars[i].level;
        bool const embedding_rtl = level % 2 != 0;
        bool const before = i > 0 && chars[i - 1].level == level ? *strong_of(chars[i - 1].cls) : embedding_rtl;
        bool const after = j < chars.size() && chars[j].level == level ? *strong_of(chars[j].cls) : embedding_rtl;
        for (std::size_t k = i; k < j; ++k) {
            chars[k].cls = (before == after ? before : embedding_rtl) ? bidi_class::r : bidi_class::l;
        }
        i = j;
    }
    for (auto& ch : chars) {
        bool const odd = ch.level % 2 != 0;
        if (!odd) {
            ch.level += ch.cls == bidi_class::r ? 1 : (ch.cls == bidi_class::an || ch.cls == bidi_class::en) ? 2 : 0;
        } else if (ch.cls == bidi_class::l || ch.cls == bidi_class::en || ch.cls == bidi_class::an) {
            ch.level += 1;
        }
    }
}

// Cuts each text span into runs of one level; runs above `context` are wrapped in spans that carry
// their level, so that lines can be reordered once they are broken.
void regroup(std::vector<span>& spans, int context, std::vector<bidi_char> const& chars, std::size_t& next) {
    std::vector<span> out;
    for (auto& s : spans) {
        if (auto* n = std::get_if<span_nested>(&s)) {
            int inner = context;
            if (n->nested.span_style && n->nested.span_style->unicode_bidi != css::box::unicode_bidi::normal) {
                bool const rtl = n->nested.span_style->rare_props &&
                                 n->nested.span_style->rare_props->rare_props_direction == css::box::direction::rtl;
                inner = next_level(context, rtl);
                n->nested.span_direction = inner;
            }
            regroup(n->nested.span_content, inner, chars, next);
            out.push_back(std::move(s));
            continue;
        }
        auto* t = std::get_if<span_text>(&s);
        if (!t) {
            out.push_back(std::move(s));
            continue;
        }
        std::size_t const start = next;
        next += t->text.size();
        std::size_t i = start;
        while (i < next) {
            std::size_t j = i;
            while (j < next && chars[j].level == chars[i].level) {
                ++j;
            }
            span_text piece{t->text.substr(i - start, j - i)};
            if (chars[i].level == context) {
                out.push_back(std::move(piece));
            } else {
                out.push_back(span_nested{nested_span{.span_content = {std::move(piece)},
                                                      .span_direction = chars[i].level}});
            }
            i = j;
        }
    }
    spans = std::move(out);
}

} // namespace

void apply_bidi(std::vector<span>& spans, css::box::direction paragraph_direction) {
    int const base = paragraph_direction == css::box::direction::rtl ? 1 : 0;
    std::vector<bidi_char> chars;
    bool needed = base != 0;
    flatten(spans, base, std::nullopt, chars, needed);
    if (!needed) {
        return;
    }
    resolve(chars, base);
    std::size_t next = 0;
    regroup(spans, base, chars, next);
}

} // namespace vellum::prepack::text
