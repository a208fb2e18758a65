#include "driver/pdf_rules.hpp"

#include <gtest/gtest.h>

namespace vellum {
namespace {

namespace v = css::value;

css::declaration decl(std::string name, v::value value, int index) {
    return {.prop_name = std::move(name), .value = std::move(value), .index = index};
}

resource::locator::locator base() {
    return resource::locator::parse_locator(resource::locator::path_or_url::url_strict,
                                            resource::locator::locator_origin::command_line_origin, std::nullopt,
                                            "http://example.com/book/index.html");
}

metadata::pdf_options apply(css::declarations decls, metadata::pdf_options options = {}) {
    return pdf_rules::apply_pdf_rules(log::log{}, {{"vellum-pdf", std::move(decls)}}, base(), std::move(options));
}

TEST(pdf_rules, the_last_valid_declaration_of_each_option_wins) {
    auto const o = apply({decl("-vellum-pdf-page-layout", v::ident{"one-column"}, 1),
                          decl("-vellum-pdf-page-layout", v::ident{"two-column-left"}, 2),
                          decl("-vellum-pdf-page-layout", v::ident{"sideways"}, 3),
                          decl("-vellum-pdf-page-mode", v::ident{"fullscreen"}, 4),
                          decl("-vellum-pdf-print-scaling", v::ident{"none"}, 5),
                          decl("-vellum-pdf-paper-tray", v::ident{"pick-tray-by-pdf-size"}, 6)});
    EXPECT_EQ(o.pdf_page_layout, metadata::pdf_page_layout::two_column_left);
    EXPECT_EQ(o.pdf_page_mode, metadata::pdf_page_mode::fullscreen);
    EXPECT_EQ(o.pdf_print_scaling, metadata::pdf_print_scaling::none);
    EXPECT_EQ(o.pdf_paper_tray, metadata::pdf_paper_tray::pick_tray_by_pdf_size);
}

TEST(pdf_rules, open_actions_profiles_and_urls) {
    auto const o = apply({decl("-vellum-pdf-open-action", v::function{"command", {v::string{"FullScreen"}}}, 1),
                          decl("-vellum-pdf-profile", v::string{"pdf/x-4"}, 2),
                          decl("-vellum-pdf-output-intent", v::url{"icc/press.icc", ""}, 3),
                          decl("-vellum-pdf-script", v::url{"init.js", ""}, 4)});
    EXPECT_EQ(o.pdf_open_action, metadata::pdf_open_action{metadata::open_action_command{"FullScreen"}});
    EXPECT_EQ(o.pdf_profile, pdf::profile::pdf_profile::pdfx_4);
    ASSERT_TRUE(o.pdf_output_intent.has_value());
    EXPECT_EQ(resource::locator::locator_to_string(*o.pdf_output_intent), "http://example.com/book/icc/press.icc");
    EXPECT_EQ(o.pdf_script, "http://example.com/book/init.js");
    // "none" and "auto" take back what the command line set.
    metadata::pdf_options given;
    given.pdf_profile = pdf::profile::pdf_profile::pdfa_1b;
    given.pdf_output_intent = base();
    given.pdf_open_action = metadata::open_action_print{};
    auto const back = apply({decl("-vellum-pdf-profile", v::ident{"none"}, 1),
                             decl("-vellum-pdf-output-intent", v::ident{"auto"}, 2),
                             decl("-vellum-pdf-open-action", v::ident{"none"}, 3)},
                            given);
    EXPECT_EQ(back.pdf_profile, std::nullopt);
    EXPECT_EQ(back.pdf_output_intent, std::nullopt);
    EXPECT_EQ(back.pdf_open_action, metadata::pdf_open_action{metadata::open_action_none{}});
    // An unknown profile name leaves the option as it was.
    EXPECT_EQ(apply({decl("-vellum-pdf-profile", v::string{"PDF/Z"}, 1)}, given).pdf_profile,
              pdf::profile::pdf_profile::pdfa_1b);
}

TEST(pdf_rules, other_rules_and_no_rules_change_nothing) {
    metadata::pdf_options given;
    given.pdf_page_mode = metadata::pdf_page_mode::show_bookmarks;
    EXPECT_EQ(pdf_rules::apply_pdf_rules(log::log{}, {{"other", {decl("-vellum-pdf-page-mode", v::ident{"auto"}, 1)}}},
                                         base(), given),
              given);
    EXPECT_EQ(apply({}, given), given);
}

} // namespace
} // namespace vellum
