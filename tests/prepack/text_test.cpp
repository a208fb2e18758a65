// Text preparation: fixed-width spaces, white-space values, hyphens, case and break opportunities, and
// the space pass across a paragraph, each checked through the span dump.
#include "prepack/dump.hpp"
#include "prepack/text.hpp"

#include <gtest/gtest.h>

namespace vellum::prepack::text {
namespace {

using css::text::text_transform;
using css::text::white_space;

std::string prepared(std::u32string_view s, white_space ws, text_transform t = text_transform::none) {
    bool start = true;
    textbuf::textbuf store;
    auto spans = prepare_text(store, s, {.white_space = ws, .transform = t}, start);
    collapse_spaces(spans);
    return dump::dump_spans(spans, store);
}

TEST(text, fixed_width_spaces_follow_the_table) {
    EXPECT_EQ(fixed_space_width(0x00A0), space_width{space_equal_to{U' '}});
    EXPECT_EQ(fixed_space_width(0x2002), space_width{space_ems{0.5f}});
    EXPECT_EQ(fixed_space_width(0x2003), space_width{space_ems{1.0f}});
    EXPECT_EQ(fixed_space_width(0x2008), space_width{space_equal_to{U'.'}});
    EXPECT_EQ(fixed_space_width(0x202F), space_width{space_equal_to_half{U' '}});
    EXPECT_EQ(fixed_space_width(0xFEFF), space_width{space_zero{}});
    // The figure space stays an ordinary character.
    EXPECT_FALSE(fixed_space_width(0x2007));
    EXPECT_TRUE(is_word_char(0x2007));
    EXPECT_FALSE(is_word_char(0x200B));
}

TEST(text, each_white_space_value) {
    struct tcase {
        char const* name;
        white_space ws;
        std::string expected;
    } const cases[] = {
        {"normal", white_space::normal, "text \"a\"\nsep space\ntext \"b\"\nsep space\ntext \"c\"\n"},
        {"nowrap", white_space::nowrap, "text \"a\"\nsep nowrap_space\ntext \"b\"\nsep nowrap_space\ntext \"c\"\n"},
        {"pre", white_space::pre,
         "sep pre_space\ntext \"a\"\nsep pre_space\nsep pre_space\ntext \"b\"\nsep pre_space\nsep newline\ntext \"c\"\nsep pre_space\n"},
        // pre-wrap keeps every space too, and a line may end after each run of them.
        {"pre_wrap", white_space::pre_wrap,
         "sep pre_space\nsep wrap_opportunity\ntext \"a\"\nsep pre_space\nsep pre_space\nsep wrap_opportunity\ntext "
         "\"b\"\nsep pre_space\nsep wrap_opportunity\nsep newline\ntext \"c\"\nsep pre_space\nsep wrap_opportunity\n"},
        {"pre_line", white_space::pre_line, "text \"a\"\nsep space\ntext \"b\"\nsep newline\ntext \"c\"\n"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(prepared(U" a  b \nc ", c.ws), c.expected);
    }
}

TEST(text, hyphens_and_break_opportunities) {
    EXPECT_EQ(prepared(U"co\u00ADop", white_space::normal), "text_with_hyphen \"co\" soft\ntext \"op\"\n");
    EXPECT_EQ(prepared(U"well-known", white_space::normal), "text_with_hyphen \"well-\" hard\ntext \"known\"\n");
    // Under nowrap a hyphen is no break.
    EXPECT_EQ(prepared(U"well-known", white_space::nowrap), "text \"well-known\"\n");
    EXPECT_EQ(prepared(U"a\u200Bb", white_space::normal), "text \"a\"\nsep zwsp\ntext \"b\"\n");
    EXPECT_EQ(prepared(U"漢字", white_space::normal), "text \"漢\"\nsep cjk_zw_space\ntext \"字\"\n");
    EXPECT_EQ(prepared(U"a/b", white_space::normal), "text \"a/\"\nsep wrap_opportunity\ntext \"b\"\n");
}

TEST(text, word_break_opens_and_closes_opportunities_inside_words) {
    auto const with = [](std::u32string_view s, css::text::word_break wb) {
        bool start = true;
        textbuf::textbuf store;
        auto const spans = prepare_text(store, s, {.white_space = white_space::normal, .word_break = wb}, start);
        return dump::dump_spans(spans, store);
    };
    using css::text::word_break;
    EXPECT_EQ(with(U"abc", word_break::break_all),
              "text \"a\"\nsep wrap_opportunity\ntext \"b\"\nsep wrap_opportunity\ntext \"c\"\n");
    // A combining mark stays with its letter; punctuation keeps the ordinary rules.
    EXPECT_EQ(with(U"e\u0301x", word_break::break_all), "text \"e\u0301\"\nsep wrap_opportunity\ntext \"x\"\n");
    EXPECT_EQ(with(U"a.", word_break::break_all), "text \"a.\"\n");
    // keep-all keeps CJK letters together, and leaves spaces as they are.
    EXPECT_EQ(with(U"漢字 漢字", word_break::keep_all), "text \"漢字\"\nsep space\ntext \"漢字\"\n");
    // Without wrapping, break-all opens nothing.
    bool start = true;
    textbuf::textbuf store;
    auto const spans =
        prepare_text(store, U"ab", {.white_space = white_space::nowrap, .word_break = word_break::break_all}, start);
    EXPECT_EQ(dump::dump_spans(spans, store), "text \"ab\"\n");
}

TEST(text, case_transforms) {
    EXPECT_EQ(prepared(U"Hello World", white_space::normal, text_transform::uppercase),
              "text \"HELLO\"\nsep space\ntext \"WORLD\"\n");
    EXPECT_EQ(prepared(U"Hello World", white_space::normal, text_transform::lowercase),
              "text \"hello\"\nsep space\ntext \"world\"\n");
    EXPECT_EQ(prepared(U"don't stop", white_space::normal, text_transform::capitalize),
              "text \"Don't\"\nsep space\ntext \"Stop\"\n");
}

TEST(text, spaces_collapse_across_nested_spans) {
    bool start = true;
    textbuf::textbuf store;
    auto inner = prepare_text(store, U" b ", {}, start);
    std::vector<span> spans = prepare_text(store, U" a ", {}, start);
    spans.push_back(span_nested{nested_span{.span_content = inner}});
    auto tail = prepare_text(store, U" c ", {}, start);
    spans.insert(spans.end(), tail.begin(), tail.end());
    collapse_spaces(spans);
    EXPECT_EQ(dump::dump_spans(spans, store), "text \"a\"\nsep space\nspan anonymous\n  text \"b\"\n  sep space\ntext \"c\"\n");
}

// A paragraph of text pieces, each either in the paragraph itself or, written "<...>", in a nested span.
std::string collapsed(std::vector<std::u32string> const& pieces, white_space ws) {
    bool start = true;
    textbuf::textbuf store;
    std::vector<span> spans;
    for (auto const& p : pieces) {
        if (p.size() > 1 && p.front() == U'<' && p.back() == U'>') {
            auto inner =
                prepare_text(store, std::u32string_view(p).substr(1, p.size() - 2), {.white_space = ws}, start);
            spans.push_back(span_nested{nested_span{.span_content = std::move(inner)}});
        } else {
            auto more = prepare_text(store, p, {.white_space = ws}, start);
            spans.insert(spans.end(), more.begin(), more.end());
        }
    }
    collapse_spaces(spans);
    return dump::dump_spans(spans, store);
}

TEST(text, spaces_around_preserved_line_ends_go_across_inline_boundaries) {
    // pre-line: "a <b>x </b>\nb": the space that ends the inline element stands before the line end.
    EXPECT_EQ(collapsed({U"a ", U"<x >", U"\nb"}, white_space::pre_line),
              "text \"a\"\nsep space\nspan anonymous\n  text \"x\"\nsep newline\ntext \"b\"\n");
    // The space before the element, the line end inside it.
    EXPECT_EQ(collapsed({U"a ", U"<\nx>"}, white_space::pre_line),
              "text \"a\"\nspan anonymous\n  sep newline\n  text \"x\"\n");
    // After a line end, a space in the next element goes too; so does one across an empty element.
    EXPECT_EQ(collapsed({U"a\n", U"< x>"}, white_space::pre_line),
              "text \"a\"\nsep newline\nspan anonymous\n  text \"x\"\n");
    EXPECT_EQ(collapsed({U"a ", U"<>", U"\nb"}, white_space::pre_line),
              "text \"a\"\nspan anonymous\nsep newline\ntext \"b\"\n");
    // Preserved spaces stay whatever follows them.
    EXPECT_EQ(collapsed({U"a ", U"<x >", U"\nb"}, white_space::pre_wrap),
              "text \"a\"\nsep pre_space\nsep wrap_opportunity\nspan anonymous\n  text \"x\"\n  sep pre_space\n  sep "
              "wrap_opportunity\nsep newline\ntext \"b\"\n");
}

// The spans of texts prepared one after another in one paragraph, as a string: a word as itself, "_"
// for each preserved space, "|" for a line end, "." for anything else.
std::string line_of(std::vector<std::u32string_view> const& texts, white_space ws) {
    text_position at;
    textbuf::textbuf store;
    std::string out;
    for (auto const t : texts) {
        for (auto const& s : prepare_text(store, t, {.white_space = ws}, at)) {
            if (auto const* w = std::get_if<span_text>(&s)) {
                out += textbuf::to_utf8(text_of(store, w->text));
            } else if (auto const* sep = std::get_if<span_sep>(&s)) {
                if (std::holds_alternative<sep_wrap_opportunity>(sep->sep)) {
                    continue; // where pre-wrap lines may end; columns are what this counts
                }
                out += std::holds_alternative<sep_pre_space>(sep->sep) ? "_"
                       : std::holds_alternative<sep_newline>(sep->sep) ? "|"
                                                                       : ".";
            } else {
                out += ".";
            }
        }
    }
    return out;
}

TEST(text, preserved_tabs_reach_the_next_tab_stop) {
    struct tcase {
        char const* name;
        std::vector<std::u32string_view> texts;
        std::string expected;
    } const cases[] = {
        {"at the line start", {U"\tx"}, "________x"},
        {"after some text", {U"abc\tx"}, "abc_____x"},
        {"at a tab stop", {U"abcdefgh\tx"}, "abcdefgh________x"},
        {"two in a row", {U"a\t\tx"}, "a_______________x"},
        {"after a space", {U"ab \tx"}, "ab______x"},
        {"after a line end", {U"abc\n\tx"}, "abc|________x"},
        {"after a CR LF", {U"abc\r\n\tx"}, "abc|________x"},
        {"across text nodes", {U"ab", U"c\tx"}, "abc_____x"},
        {"combining marks take no column", {U"e\u0301e\u0301\tx"}, "e\u0301e\u0301______x"},
        {"a fixed-width space takes one", {U"a\u00A0\tx"}, "a.______x"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(line_of(c.texts, white_space::pre), c.expected);
        EXPECT_EQ(line_of(c.texts, white_space::pre_wrap), c.expected);
    }
    // Where white space collapses, a tab is one more collapsible space.
    EXPECT_EQ(prepared(U"a\t\tb", white_space::normal), "text \"a\"\nsep space\ntext \"b\"\n");
    EXPECT_EQ(prepared(U"a\tb", white_space::pre_line), "text \"a\"\nsep space\ntext \"b\"\n");
}

css::style::style style_with(css::box::direction d, css::box::unicode_bidi b = css::box::unicode_bidi::normal) {
    auto s = *css::style::initial_style();
    auto rare = *s.rare_props;
    rare.rare_props_direction = d;
    s.rare_props = share(std::move(rare));
    css::style::own_rare_box(s).unicode_bidi = b;
    return s;
}

// Spans with the text they are ranges of.
struct spans_in_text {
    textbuf::textbuf text;
    std::vector<span> spans;
    std::string dumped() const { return dump::dump_spans(spans, text); }
};

spans_in_text bidi_of(std::u32string_view text, css::style::style const& para) {
    bool start = true;
    spans_in_text out;
    out.spans = prepare_text(out.text, text, {}, start);
    collapse_spaces(out.spans);
    apply_bidi(out.spans, out.text, para);
    return out;
}

// Every span the pass made has a style and a level; returns how many it made.
int check_made_spans(std::vector<span> const& spans) {
    int made = 0;
    for (auto const& s : spans) {
        if (auto const* n = std::get_if<span_nested>(&s)) {
            EXPECT_TRUE(n->nested->span_style != nullptr);
            if (std::holds_alternative<type_anonymous>(n->nested->span_type)) {
                EXPECT_TRUE(n->nested->span_direction.has_value());
                ++made;
            }
            made += check_made_spans(n->nested->span_content);
        }
    }
    return made;
}

TEST(text, bidi_level_runs_become_styled_spans) {
    auto const ltr = style_with(css::box::direction::ltr);
    auto const rtl = style_with(css::box::direction::rtl);
    struct tcase {
        char const* name;
        std::u32string_view text;
        css::style::style const& para;
        std::string expected;
    } const cases[] = {
        // The space between two right-to-left words lies in their run (N1), so the run stays whole.
        {"hebrew words in latin", U"a \u05E9\u05DC\u05D5\u05DD \u05E2\u05D5 b", ltr,
         "text \"a\"\nsep space\nspan anonymous level=1\n  text \"\u05E9\u05DC\u05D5\u05DD\"\n  sep space\n"
         "  text \"\u05E2\u05D5\"\nsep space\ntext \"b\"\n"},
        {"arabic after a colon", U"Arabic: \u0645\u0631\u062D\u0628\u0627", ltr,
         "text \"Arabic:\"\nsep space\nspan anonymous level=1\n  text \"\u0645\u0631\u062D\u0628\u0627\"\n"},
        {"latin in a right-to-left paragraph", U"abc def", rtl,
         "span anonymous level=2\n  text \"abc\"\n  sep space\n  text \"def\"\n"},
        {"a lone right-to-left mark", U"x\u200Fy", ltr,
         "text \"x\"\nspan anonymous level=1\n  text \"\u200F\"\ntext \"y\"\n"},
        // Numbers after Arabic letters are Arabic numbers, two levels up inside the run.
        {"numbers in arabic", U"\u0627 12", ltr,
         "span anonymous level=1\n  text \"\u0627\"\n  sep space\n  span anonymous level=2\n    text \"12\"\n"},
        // A European number in right-to-left text is a run of its own, above the paragraph's level.
        {"number in hebrew", U"\u05D0 12 \u05D1", rtl,
         "text \"\u05D0\"\nsep space\nspan anonymous level=2\n  text \"12\"\nsep space\ntext \"\u05D1\"\n"},
        {"soft hyphen in hebrew", U"\u05D0\u05D1\u00AD\u05D2", ltr,
         "span anonymous level=1\n  text_with_hyphen \"\u05D0\u05D1\" soft\n  text \"\u05D2\"\n"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const p = bidi_of(c.text, c.para);
        EXPECT_EQ(p.dumped(), c.expected);
        check_made_spans(p.spans);
    }
    // A paragraph with only left-to-right text is left alone.
    bool start = true;
    textbuf::textbuf store;
    auto plain = prepare_text(store, U"abc def", {}, start);
    auto const before = plain;
    apply_bidi(plain, store, ltr);
    EXPECT_EQ(plain, before);
}

// The highest level any span of the tree was given.
int deepest_level(std::vector<span> const& spans) {
    int deepest = 0;
    for (auto const& s : spans) {
        if (auto const* n = std::get_if<span_nested>(&s)) {
            deepest = std::max({deepest, n->nested->span_direction.value_or(0), deepest_level(n->nested->span_content)});
        }
    }
    return deepest;
}

TEST(text, bidi_control_characters_open_and_close_embeddings) {
    auto const ltr = style_with(css::box::direction::ltr);
    // A right-to-left override makes Latin letters right-to-left: they go one level up.
    auto const rlo = bidi_of(U"x \u202Eabc\u202C y", ltr).dumped();
    EXPECT_NE(rlo.find("span anonymous level=1\n  text \"abc"), std::string::npos) << rlo;
    // A left-to-right embedding inside a right-to-left one: Latin two levels up, Hebrew at one.
    auto const nested = bidi_of(U"\u202B\u05D0 \u202Aabc\u202C\u202C", ltr).dumped();
    EXPECT_NE(nested.find("level=2"), std::string::npos) << nested;
    EXPECT_NE(nested.find("level=1"), std::string::npos) << nested;
    // An isolate reads as an embedding of its direction; first-strong takes that of its first letter.
    auto const fsi = bidi_of(U"a \u2068\u05D0\u05D1\u2069 b", ltr).dumped();
    EXPECT_NE(fsi.find("level=1"), std::string::npos) << fsi;
    // A closing character with nothing open is ignored; an embedding left open ends with the paragraph.
    auto const stray = bidi_of(U"\u202Cab \u202Bcd", ltr);
    EXPECT_EQ(check_made_spans(stray.spans), 1);
    // Deeper than the deepest level, embeddings are counted but raise nothing, and every closing
    // character finds its opening one.
    std::u32string deep;
    for (int i = 0; i < 200; ++i) {
        deep += i % 2 == 0 ? U'\u202B' : U'\u202A';
    }
    deep += U"x";
    deep += std::u32string(200, U'\u202C');
    deep += U" y";
    auto const deep_spans = bidi_of(deep, ltr);
    EXPECT_LE(deepest_level(deep_spans.spans), 126); // 125 explicit, one more by the implicit rules
    EXPECT_GE(deepest_level(deep_spans.spans), 124);
    auto const dumped = deep_spans.dumped();
    EXPECT_EQ(dumped.rfind("text \"y\""), dumped.size() - 9) << dumped.substr(dumped.size() - 60);
}

TEST(text, bidi_embedding_elements_inside_control_characters) {
    auto const ltr = style_with(css::box::direction::ltr);
    auto const embed_rtl = share(style_with(css::box::direction::rtl, css::box::unicode_bidi::embed));
    bool start = true;
    textbuf::textbuf store;
    // An element that embeds inside a left-to-right embedding opened by a character: the element's
    // level is counted from that embedding's, in both passes over the paragraph.
    std::vector<span> spans{span_text{append_text(store, U"\u202Aa")},
                            span_nested{nested_span{.span_content = prepare_text(store, U"\u05D0 b", {}, start),
                                                    .span_style = embed_rtl,
                                                    .span_type = type_remaining{}}},
                            span_text{append_text(store, U"\u202Cc")}};
    apply_bidi(spans, store, ltr);
    auto const out = dump::dump_spans(spans, store);
    EXPECT_NE(out.find("span remaining level=3"), std::string::npos) << out;
}

TEST(text, bidi_spans_inherit_without_box_properties) {
    auto para = style_with(css::box::direction::ltr);
    para.padding_left = 12.0f;
    para.margin_left = 7.0f;
    para.font_size = 20;
    auto const spans = bidi_of(U"a \u05D0", para).spans;
    ASSERT_EQ(spans.size(), 3u);
    auto const* n = std::get_if<span_nested>(&spans[2]);
    ASSERT_TRUE(n && n->nested->span_style);
    EXPECT_EQ(n->nested->span_style->font_size, 20);
    EXPECT_EQ(n->nested->span_style->padding_left, css::box::padding{0.0f});
    EXPECT_EQ(n->nested->span_style->rare_box->unicode_bidi, css::box::unicode_bidi::normal);
}

TEST(text, bidi_embeddings_and_overrides) {
    auto const ltr = style_with(css::box::direction::ltr);
    auto const override_rtl = share(style_with(css::box::direction::rtl, css::box::unicode_bidi::bidi_override));
    auto const element = share(style_with(css::box::direction::ltr));
    bool start = true;
    textbuf::textbuf store;
    // An override gives the element's own span the level; its letters are right-to-left inside it.
    std::vector<span> spans{span_text{append_text(store, U"x")}, span_sep{sep_space{}},
                            span_nested{nested_span{.span_content = prepare_text(store, U"abc def", {}, start),
                                                    .span_style = override_rtl,
                                                    .span_type = type_remaining{}}}};
    apply_bidi(spans, store, ltr);
    EXPECT_EQ(dump::dump_spans(spans, store),
              "text \"x\"\nsep space\nspan remaining level=1\n  text \"abc\"\n  sep space\n  text \"def\"\n");

    // A plain element that lies whole in a right-to-left run goes into the run's span.
    std::vector<span> inside{span_text{append_text(store, U"\u05D0")}, span_sep{sep_space{}},
                             span_nested{nested_span{.span_content = {span_text{append_text(store, U"\u05D1")}},
                                                     .span_style = element,
                                                     .span_type = type_remaining{}}}};
    apply_bidi(inside, store, ltr);
    EXPECT_EQ(dump::dump_spans(inside, store),
              "span anonymous level=1\n  text \"\u05D0\"\n  sep space\n  span remaining\n    text \"\u05D1\"\n");
    EXPECT_EQ(check_made_spans(inside), 1);

    // Inline boxes and generated content stand in as neutrals; none is lost or doubled.
    std::vector<span> objects{span_text{append_text(store, U"\u05D0")}, span_gen_content{gen_content{gen_string{"x"}}},
                              span_text{append_text(store, U"\u05D1")}, span_leader{textbuf::textbuf(U"."), 0},
                              span_text{append_text(store, U"c")}};
    apply_bidi(objects, store, ltr);
    EXPECT_EQ(dump::dump_spans(objects, store).find("span anonymous level=1\n"), 0u);
    EXPECT_EQ(check_made_spans(objects), 1);
}

} // namespace
} // namespace vellum::prepack::text
