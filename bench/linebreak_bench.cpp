// Times the optimum-fit line breaker on justified text: a generated English-like text of many words
// (100,000 by default) in paragraphs of 60 to 180 words, set in DejaVu Sans at 10pt with US English
// hyphenation, broken into lines of one width. Shaping and hyphenation happen inside the breaker, as they
// do in layout, so they are part of the time. Reports lines per second, best of several runs.
// Usage: linebreak_bench [WORDS] [WIDTH_PT] [RUNS] [PATTERNS]   (linebreak_bench.sh runs it)
#include "pack/knuth.hpp"
#include "pack/spans_to_knuth.hpp"
#include "pack/total_fit.hpp"
#include "resource/loader.hpp"
#include "resource/locator.hpp"
#include "text/fonts/fonts.hpp"
#include "text/hyph/hyphen_parser.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace vellum;
using namespace vellum::pack;
using knuth::font_req_ref;
using knuth::style_ref;
using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

// Common English words, drawn about three times in four, and longer ones that give hyphenation work.
char32_t const* const common_words[] = {
    U"the",     U"of",      U"and",     U"to",      U"in",      U"a",      U"is",      U"that",   U"for",
    U"it",      U"as",      U"was",     U"with",    U"be",      U"by",     U"on",      U"not",    U"he",
    U"this",    U"are",     U"or",      U"his",     U"from",    U"at",     U"which",   U"but",    U"have",
    U"an",      U"had",     U"they",    U"you",     U"were",    U"their",  U"one",     U"all",    U"we",
    U"can",     U"her",     U"has",     U"there",   U"been",    U"if",     U"more",    U"when",   U"will",
    U"would",   U"who",     U"so",      U"no",      U"line",    U"page",   U"word",    U"text",   U"letter",
    U"space",   U"width",   U"break",   U"point",   U"column",  U"margin", U"printer", U"reader", U"writer",
    U"history", U"another", U"between", U"through", U"because", U"before", U"should",  U"people", U"little",
    U"always",  U"several", U"without", U"however", U"against",
};
char32_t const* const long_words[] = {
    U"paragraph",     U"typography",    U"justification",  U"hyphenation",    U"algorithm",
    U"demonstration", U"particularly",  U"information",    U"development",    U"government",
    U"understanding", U"independent",   U"organization",   U"significant",    U"relationship",
    U"environment",   U"international", U"consideration",  U"responsibility", U"characteristic",
    U"communication", U"experimental",  U"interpretation", U"manuscript",     U"publication",
    U"composition",   U"measurement",   U"probability",    U"distribution",   U"approximately",
    U"nevertheless",  U"extraordinary", U"representative", U"circumstances",  U"unfortunately",
    U"establishment",
};

struct paragraph_items {
    std::vector<std::vector<knuth::knuth>> paragraphs;
    int words = 0;
};

paragraph_items make_text(int words, font_req_ref const& req, style_ref const& style) {
    std::mt19937 rng(12345);
    std::uniform_int_distribution<std::size_t> pick_common(0, std::size(common_words) - 1);
    std::uniform_int_distribution<std::size_t> pick_long(0, std::size(long_words) - 1);
    std::bernoulli_distribution common(0.75);
    std::uniform_int_distribution<int> length(60, 180);
    paragraph_items out;
    while (out.words < words) {
        int const n = std::min(length(rng), words - out.words);
        std::vector<knuth::knuth> items;
        items.reserve(2 * n + 1);
        for (int k = 0; k < n; ++k) {
            if (k > 0) {
                items.push_back(knuth::knuth_glue{knuth::glue{.glue_font_req = req, .glue_style = style}});
            }
            items.push_back(knuth::knuth_box{knuth::word{
                .word_head = {.head_font_req = req, .head_style = style},
                .word_text = common(rng) ? common_words[pick_common(rng)] : long_words[pick_long(rng)]}});
        }
        items.push_back(knuth::forced_break{});
        out.paragraphs.push_back(std::move(items));
        out.words += n;
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    int const words = argc > 1 ? std::max(1, std::atoi(argv[1])) : 100000;
    float const width = argc > 2 ? static_cast<float>(std::atof(argv[2])) : 300.0f;
    int const runs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 3;
    std::string const patterns = argc > 4 ? argv[4] : VELLUM_SOURCE_DIR "/resources/hyph/en-us.pat";

    log::log quiet{.log_stderr = log::no_stderr_log{}};
    auto loader = resource::loader::new_loader(quiet, {"/nonexistent"}, {"/tmp"}, {.network = false});
    if (!loader) {
        std::fprintf(stderr, "linebreak_bench: %s\n", loader.error().c_str());
        return 1;
    }
    auto db = fonts::new_fonts(*loader, quiet, false);
    if (!db) {
        std::fprintf(stderr, "linebreak_bench: %s\n", db.error().c_str());
        return 1;
    }
    fonts::add_font_face_sheet(*db,
                               "@font-face { font-family: Sans; src: "
                               "url(\"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf\") }\n",
                               "bench.css", [](std::string const& text, std::string const&) {
                                   return resource::locator::parse_locator(
                                       resource::locator::path_or_url::path_or_url,
                                       resource::locator::locator_origin::command_line_origin, std::nullopt,
                                       text);
                               });
    auto const rules = hyphen_parser::read_patterns(quiet, {patterns});
    if (!rules) {
        std::fprintf(stderr, "linebreak_bench: %s\n", rules.error().c_str());
        return 1;
    }
    auto const shared_rules = share(*rules);

    auto s = *css::style::initial_style();
    s.font_size = 10;
    auto& rare = css::style::own_rare_props(s);
    rare.rare_props_hyphens = css::text::hyphens::auto_;
    rare.rare_props_hyphenate_patterns = {css::value::url{.url_text = patterns}};
    auto fp = *s.font_props;
    fp.font_props_font_family = {"Sans", "vellum-no-fallback"};
    s.font_props = share(fp);
    auto text = *s.text;
    text.text_props_text_align = css::text::text_align::justify;
    s.text = share(text);
    style_ref const style = share(s);
    auto const req = spans_to_knuth::font_req_of(*db, *style);

    eval_knuth::eval_env const env{
        .env_log = quiet,
        .env_shape = eval_knuth::shaper_of(std::make_shared<fonts::fonts const>(*db)),
        .env_patterns =
            [shared_rules](css::text::hyphenate_patterns const&) {
                return std::optional<ref<hyphen_parser::hyphen_rules>>(shared_rules);
            },
    };

    auto const input = make_text(words, req, style);
    std::printf("%d words in %zu paragraphs, lines of %.1fpt in DejaVu Sans 10pt, US English hyphenation\n",
                input.words, input.paragraphs.size(), static_cast<double>(width));

    double best = 0;
    for (int run = 0; run < runs; ++run) {
        std::size_t lines = 0;
        std::size_t hyphenated = 0;
        std::size_t loose = 0;
        auto const start = clock_type::now();
        for (auto const& p : input.paragraphs) {
            auto const res = total_fit::break_lines(env, {.width = width}, {}, p);
            lines += res.res_lines.size();
            for (auto const& l : res.res_lines) {
                hyphenated += l.break_type == knuth::break_type::hyphen;
                auto const* r = std::get_if<knuth::ratio>(&l.adjustment_ratio);
                loose += r == nullptr || r->ratio_value > 2.0f || r->ratio_value < -1.0f;
            }
        }
        double const t = seconds_since(start);
        double const rate = static_cast<double>(lines) / t;
        best = std::max(best, rate);
        std::printf("run %d: %zu lines (%zu ending in a hyphen, %zu outside the tolerance) in %.3f s: "
                    "%.0f lines/s, %.0f words/s\n",
                    run + 1, lines, hyphenated, loose, t, rate, input.words / t);
    }
    std::printf("best: %.0f lines/s\n", best);
    return 0;
}
