#include "prepack/generated.hpp"
#include "prepack/targets.hpp"
#include "util/textbuf.hpp"

#include <gtest/gtest.h>

#include <map>

namespace vellum::prepack {
namespace {

namespace v = css::value;

log::log quiet() {
    return log::log{};
}

resource::locator::locator doc_locator() {
    return resource::locator::parse_locator(resource::locator::path_or_url::url_strict,
                                            resource::locator::locator_origin::command_line_origin, std::nullopt,
                                            "file:///books/book.html");
}

struct fixture {
    log::log l = quiet();
    std::map<std::string, std::vector<int>> counters;
    std::map<std::string, std::string> attributes;
    int quotes = 0;

    generated::gen_env env() {
        return {.env_log = l,
                .counter_values = [this](std::string const& n) { return counters[n]; },
                .attribute = [this](std::string const& n) -> std::optional<std::string> {
                    auto const it = attributes.find(n);
                    return it == attributes.end() ? std::nullopt : std::optional(it->second);
                },
                .own_text = [] { return std::string("Heading text"); },
                .target_text = [](target_name const& t) -> std::optional<std::string> {
                    if (t.target_id == "intro") {
                        return "Introduction";
                    }
                    return std::nullopt;
                },
                .doc = doc_locator(),
                .base = doc_locator(),
                .quote_depth = &quotes};
    }

    std::vector<generated::piece> eval(std::vector<v::value> items) {
        return generated::evaluate(css::property::content_list{std::move(items)}, env(), "content");
    }

    // The pieces as one text, with generated content that waits for the page as [..] marks.
    std::string text(std::vector<v::value> items) {
        std::string out;
        for (auto const& p : eval(std::move(items))) {
            if (auto const* t = std::get_if<text_thing>(&p)) {
                if (auto const* x = std::get_if<text_thing_text>(t)) {
                    out += textbuf::to_utf8(x->text);
                } else {
                    out += "[gen]";
                }
            } else {
                out += "[leader]";
            }
        }
        return out;
    }
};

v::value fn(std::string name, std::vector<v::value> args) {
    return v::function{std::move(name), std::move(args)};
}
v::value id(std::string s) {
    return v::ident{std::move(s)};
}
v::value str(std::string s) {
    return v::string{std::move(s)};
}

TEST(generated, counters_in_their_scopes_and_styles) {
    fixture f;
    f.counters["chapter"] = {3};
    f.counters["item"] = {2, 4, 1};
    EXPECT_EQ(f.text({fn("counter", {id("chapter")}), str(". ")}), "3. ");
    EXPECT_EQ(f.text({fn("counter", {id("chapter"), id("upper-roman")})}), "III");
    EXPECT_EQ(f.text({fn("counter", {id("item")})}), "1");
    EXPECT_EQ(f.text({fn("counters", {id("item"), str(".")})}), "2.4.1");
    EXPECT_EQ(f.text({fn("counters", {id("item"), str("-"), id("lower-alpha")})}), "b-d-a");
    // A counter never set counts as zero.
    EXPECT_EQ(f.text({fn("counter", {id("missing")})}), "0");
    EXPECT_EQ(f.text({fn("counters", {id("missing"), str(".")})}), "0");
}

TEST(generated, page_counters_and_strings_wait_for_the_page) {
    fixture f;
    auto const pieces = f.eval({str("p. "), fn("counter", {id("page")}), str(" of "), fn("counter", {id("pages")}),
                                fn("string", {id("chapter"), id("first-except")})});
    ASSERT_EQ(pieces.size(), 5u);
    auto gen = [&](std::size_t i) { return std::get<text_thing_gen>(std::get<text_thing>(pieces[i])).gen; };
    EXPECT_EQ(gen(1), gen_content{gen_counter{page_counter{"decimal"}}});
    EXPECT_EQ(gen(3), gen_content{gen_counter{pages_counter{"decimal"}}});
    EXPECT_EQ(gen(4), gen_content(gen_string{.string_name = "chapter", .string_policy = page_policy::first_except}));
}

TEST(generated, target_counters_name_the_target_of_a_link) {
    fixture f;
    f.attributes["href"] = "#sec2";
    auto const pieces = f.eval({fn("target-counter", {v::attr{.attr_name = {.attr_local = "href"}}, id("page")}),
                                fn("target-counters", {v::url{"other.html#fig", ""}, id("figure"), str("."),
                                                       id("lower-roman")})});
    ASSERT_EQ(pieces.size(), 2u);
    auto counter = [&](std::size_t i) {
        return std::get<target_counter>(
            std::get<gen_counter>(std::get<text_thing_gen>(std::get<text_thing>(pieces[i])).gen).counter);
    };
    EXPECT_EQ(targets::key_of(counter(0).target), "/books/book.html#sec2");
    EXPECT_EQ(counter(0).counter_name, "page");
    EXPECT_EQ(counter(0).counter_join, std::nullopt);
    // A URL to another document resolves against the base.
    EXPECT_EQ(targets::key_of(counter(1).target), "/books/other.html#fig");
    EXPECT_EQ(counter(1).counter_join, ".");
    EXPECT_EQ(counter(1).counter_style, "lower-roman");
    // Without a target there is nothing to count.
    EXPECT_TRUE(f.eval({fn("target-counter", {v::attr{.attr_name = {.attr_local = "nohref"}}, id("page")})}).empty());
}

TEST(generated, quotes_nest_and_unbalanced_closes_are_ignored) {
    fixture f;
    EXPECT_EQ(f.text({id("open-quote"), str("a"), id("open-quote"), str("b"), id("close-quote"), id("close-quote")}),
              "\u201Ca\u2018b\u2019\u201D");
    EXPECT_EQ(f.quotes, 0);
    EXPECT_EQ(f.text({id("close-quote"), str("x")}), "x");
    EXPECT_EQ(f.text({id("no-open-quote"), id("open-quote")}), "\u2018");
    EXPECT_EQ(f.quotes, 2);
}

TEST(generated, quote_marks_by_quotes_and_language) {
    using css::box::quote_marks;
    auto const utf8 = [](std::u32string const& t) { return textbuf::to_utf8(t); };
    css::box::quotes const own = quote_marks{{{"<", ">"}, {"[", "]"}}};
    EXPECT_EQ(utf8(generated::quote_mark(own, std::nullopt, 0, true)), "<");
    EXPECT_EQ(utf8(generated::quote_mark(own, std::nullopt, 1, false)), "]");
    // Deeper levels repeat the last pair.
    EXPECT_EQ(utf8(generated::quote_mark(own, std::nullopt, 5, true)), "[");
    EXPECT_EQ(utf8(generated::quote_mark(css::box::none_value{}, std::nullopt, 0, true)), "");
    css::box::quotes const automatic = css::box::auto_value{};
    EXPECT_EQ(utf8(generated::quote_mark(automatic, std::nullopt, 0, true)), "\u201C");
    EXPECT_EQ(utf8(generated::quote_mark(automatic, std::string("de-ch"), 0, true)), "\u201E");
    EXPECT_EQ(utf8(generated::quote_mark(automatic, std::string("fr"), 0, false)), "\u00A0\u00BB");
    EXPECT_EQ(utf8(generated::quote_mark(automatic, std::string("ja"), 1, true)), "\u300E");
    // A language without marks of its own falls back to English.
    EXPECT_EQ(utf8(generated::quote_mark(automatic, std::string("xx"), 1, false)), "\u2019");
}

TEST(generated, attributes_text_leaders_and_targets) {
    fixture f;
    f.attributes["title"] = "T";
    f.attributes["href"] = "#intro";
    EXPECT_EQ(f.text({str("["), v::attr{.attr_name = {.attr_local = "title"}}, str("]")}), "[T]");
    EXPECT_EQ(f.text({v::attr{.attr_name = {.attr_local = "absent"}}}), "");
    EXPECT_EQ(f.text({fn("content", {id("text")})}), "Heading text");
    EXPECT_EQ(f.text({fn("content", {id("first-letter")})}), "H");
    EXPECT_EQ(f.text({fn("target-text", {v::attr{.attr_name = {.attr_local = "href"}}})}), "Introduction");
    EXPECT_EQ(f.text({fn("target-text", {v::url{"#nowhere", ""}})}), "");
    auto const pieces = f.eval({str("Intro"), fn("leader", {id("dotted")}), fn("leader", {str("-"), v::dimension{2, "in"}})});
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(*std::get<span_leader>(pieces[1]).leader_pattern, U". ");
    EXPECT_EQ(*std::get<span_leader>(pieces[2]).leader_pattern, U"-");
    EXPECT_FLOAT_EQ(std::get<span_leader>(pieces[2]).leader_min_width, 144);
    // string-set and bookmark labels take no leaders.
    EXPECT_EQ(generated::text_things(f.eval({str("a"), fn("leader", {id("solid")}), str("b")})).size(), 2u);
}

TEST(generated, script_function_calls_wait_for_layout) {
    fixture f;
    std::FILE* log_file = std::tmpfile();
    f.l.log_stderr = log::console_log::console_log{.console_out = log_file};
    f.attributes["data-word"] = "hi";
    auto const call = fn("-vellum-script", {id("Shout"), v::values{{str("<"), v::attr{.attr_name = {.attr_local = "data-word"}}}},
                                             fn("counter", {id("page")})});
    // Without a script engine the call gives nothing, with one warning for the run.
    EXPECT_EQ(f.text({str("a"), call, str("b")}), "ab");
    EXPECT_EQ(f.text({call}), "");
    script_calls scripts{.script_has = [](std::string const& name) { return name == "Shout"; }};
    auto env = f.env();
    env.scripts = &scripts;
    auto const pieces = generated::evaluate(css::property::content_list{{str("a"), call}}, env, "content");
    ASSERT_EQ(pieces.size(), 2u);
    auto const* t = std::get_if<text_thing>(&pieces[1]);
    ASSERT_NE(t, nullptr);
    auto const* s = std::get_if<text_thing_script>(t);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->func.script_func_name, "Shout");
    ASSERT_EQ(s->func.script_func_args.size(), 2u);
    // The first argument is settled now; the page counter waits for the page.
    EXPECT_EQ(s->func.script_func_args[0], (std::vector<text_thing>{text_thing_text{U"<hi"}}));
    ASSERT_EQ(s->func.script_func_args[1].size(), 1u);
    EXPECT_TRUE(std::holds_alternative<text_thing_gen>(s->func.script_func_args[1][0]));
    // A name the scripts did not register is named in a warning; script names keep their case.
    EXPECT_EQ(generated::text_things(generated::evaluate(css::property::content_list{{fn("-vellum-script", {id("shout")})}},
                                                         env, "content")),
              std::vector<text_thing>{});
    std::fflush(log_file);
    std::rewind(log_file);
    std::string logged;
    for (int c = 0; (c = std::fgetc(log_file)) != EOF;) {
        logged += char(c);
    }
    std::fclose(log_file);
    EXPECT_EQ(logged, "vellum: warning: JavaScript is disabled\n"
                      "vellum: warning: unknown script function shout, register with Vellum.addScriptFunc\n");
}

} // namespace
} // namespace vellum::prepack
