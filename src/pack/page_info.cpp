#include "pack/page_info.hpp"

#include <string>

namespace vellum::pack {

namespace {

// The number in a counter style. Decimal only for now: the other counter styles come with
// generated content's formatting, which will serve both.
textbuf::textbuf format_number(int n, std::string const&) {
    auto const digits = std::to_string(n);
    return textbuf::textbuf(std::u32string(digits.begin(), digits.end()));
}

} // namespace

eval_knuth::eval_env env_of(page_info const& info) {
    auto const& g = info.general;
    eval_knuth::eval_env env{
        .env_log = g.log,
        .env_shape = eval_knuth::shaper_of(g.fonts),
        .env_patterns = [](css::text::hyphenate_patterns const&) {
            return std::optional<ref<hyphen_parser::hyphen_rules>>();
        },
    };
    if (g.loader) {
        env.env_patterns = eval_knuth::patterns_of(g.log, *g.hyph, *g.loader);
    }
    int const page = g.user_page_num;
    std::optional<int> pages = g.user_pages_counter;
    if (!pages && !g.user_pages_totals.empty()) {
        pages = g.user_pages_totals.front();
    }
    env.env_render_counter = [page, pages](knuth::counter const& c,
                                           eval_knuth::page_state const& state) -> textbuf::textbuf {
        return std::visit(overloaded{
                              [&](prepack::page_counter const& p) { return format_number(page, p.counter_style); },
                              [&](prepack::pages_counter const& p) {
                                  // On the first pass the total is not known yet; the page count so far
                                  // stands in, and the next pass corrects it.
                                  return format_number(pages.value_or(page), p.counter_style);
                              },
                              [&](prepack::footnote_counter const& f) {
                                  return format_number(state.footnote_counter, f.counter_style);
                              },
                              // Counters at targets are read from the previous pass's targets, which
                              // come with cross-references: until then the text stays as it is.
                              [&](prepack::target_counter const&) { return c.counter_text; },
                          },
                          c.counter_content);
    };
    return env;
}

eval_knuth::page_state state_of(page_info const& info) {
    return {.footnote_counter = info.general.footnote_counter, .page_footnotes = info.accum.page_footnotes};
}

page_info with_state(page_info info, eval_knuth::page_state const& state) {
    info.general.footnote_counter = state.footnote_counter;
    info.accum.page_footnotes = state.page_footnotes;
    return info;
}

} // namespace vellum::pack
