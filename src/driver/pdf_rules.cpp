#include "driver/pdf_rules.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <optional>

namespace vellum::pdf_rules {

namespace {

std::optional<std::string> ident_of(css::value::value const& v) {
    if (auto const* i = std::get_if<css::value::ident>(&v)) {
        std::string s = i->ident_name;
        std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
        return s;
    }
    if (auto const* vs = std::get_if<css::value::values>(&v); vs && vs->value_list.size() == 1) {
        return ident_of(vs->value_list.front());
    }
    return std::nullopt;
}

template <class E, std::size_t N>
std::optional<E> keyword(css::value::value const& v, std::pair<char const*, E> const (&table)[N]) {
    auto const word = ident_of(v);
    if (!word) {
        return std::nullopt;
    }
    for (auto const& [name, value] : table) {
        if (*word == name) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<metadata::pdf_open_action> open_action(css::value::value const& v) {
    if (auto const word = ident_of(v)) {
        if (*word == "none") {
            return metadata::open_action_none{};
        }
        if (*word == "print") {
            return metadata::open_action_print{};
        }
        return std::nullopt;
    }
    auto const* f = std::get_if<css::value::function>(&v);
    if (f == nullptr || f->function_name != "command" || f->function_args.size() != 1) {
        return std::nullopt;
    }
    if (auto const* s = std::get_if<css::value::string>(&f->function_args.front())) {
        return metadata::open_action_command{s->string_text};
    }
    if (auto const* i = std::get_if<css::value::ident>(&f->function_args.front())) {
        return metadata::open_action_command{i->ident_name};
    }
    return std::nullopt;
}

std::optional<css::value::url> url_of(css::value::value const& v) {
    if (auto const* u = std::get_if<css::value::url>(&v)) {
        return *u;
    }
    if (auto const* vs = std::get_if<css::value::values>(&v); vs && vs->value_list.size() == 1) {
        return url_of(vs->value_list.front());
    }
    return std::nullopt;
}

} // namespace

metadata::pdf_options apply_pdf_rules(log::log const& log,
                                      std::vector<std::pair<std::string, css::declarations>> const& special_rules,
                                      resource::locator::locator const& base,
                                      metadata::pdf_options options) {
    css::declarations decls;
    for (auto const& [key, block] : special_rules) {
        if (key == "vellum-pdf") {
            decls.insert(decls.end(), block.begin(), block.end());
        }
    }
    // The last declaration in the order the sheets were read comes first, and the first valid one wins.
    std::stable_sort(decls.begin(), decls.end(), [](auto const& a, auto const& b) { return a.index > b.index; });
    auto const first_valid = [&](std::string_view property, auto&& parse) {
        for (auto const& d : decls) {
            if (d.prop_name == property) {
                if (auto value = parse(d.value)) {
                    return value;
                }
                log::log_warning(log, "@vellum-pdf: invalid value for " + std::string(property) + ": " +
                                          css::value::to_text(d.value));
            }
        }
        return decltype(parse(decls.front().value)){};
    };
    if (decls.empty()) {
        return options;
    }
    using namespace metadata;
    if (auto a = first_valid("-vellum-pdf-open-action", open_action)) {
        options.pdf_open_action = *a;
    }
    // "auto" and "none" set the option to nothing, which a plain optional result could not tell from
    // an invalid value; these two are read by hand.
    auto const each = [&](std::string_view property, auto&& take) {
        for (auto const& d : decls) {
            if (d.prop_name == property) {
                if (take(d.value)) {
                    return;
                }
                log::log_warning(log, "@vellum-pdf: invalid value for " + std::string(property) + ": " +
                                          css::value::to_text(d.value));
            }
        }
    };
    each("-vellum-pdf-output-intent", [&](css::value::value const& v) {
        if (ident_of(v) == "auto") {
            options.pdf_output_intent.reset();
            return true;
        }
        if (auto const url = url_of(v)) {
            options.pdf_output_intent = resource::locator::resolve_locator(base, url->url_text);
            return true;
        }
        return false;
    });
    static constexpr std::pair<char const*, pdf_page_layout> layouts[] = {
        {"single-page", pdf_page_layout::single_page},
        {"one-column", pdf_page_layout::one_column},
        {"two-column-left", pdf_page_layout::two_column_left},
        {"two-column-right", pdf_page_layout::two_column_right}};
    if (auto l = first_valid("-vellum-pdf-page-layout", [](auto const& v) { return keyword(v, layouts); })) {
        options.pdf_page_layout = *l;
    }
    static constexpr std::pair<char const*, pdf_page_mode> modes[] = {
        {"auto", pdf_page_mode::auto_mode},
        {"show-bookmarks", pdf_page_mode::show_bookmarks},
        {"fullscreen", pdf_page_mode::fullscreen},
        {"show-attachments", pdf_page_mode::show_attachments}};
    if (auto m = first_valid("-vellum-pdf-page-mode", [](auto const& v) { return keyword(v, modes); })) {
        options.pdf_page_mode = *m;
    }
    static constexpr std::pair<char const*, pdf_paper_tray> trays[] = {
        {"auto", pdf_paper_tray::auto_tray}, {"pick-tray-by-pdf-size", pdf_paper_tray::pick_tray_by_pdf_size}};
    if (auto t = first_valid("-vellum-pdf-paper-tray", [](auto const& v) { return keyword(v, trays); })) {
        options.pdf_paper_tray = *t;
    }
    static constexpr std::pair<char const*, pdf_print_scaling> scalings[] = {
        {"auto", pdf_print_scaling::auto_scaling}, {"none", pdf_print_scaling::none}};
    if (auto s = first_valid("-vellum-pdf-print-scaling", [](auto const& v) { return keyword(v, scalings); })) {
        options.pdf_print_scaling = *s;
    }
    each("-vellum-pdf-profile", [&](css::value::value const& v) {
        if (ident_of(v) == "none") {
            options.pdf_profile.reset();
            return true;
        }
        if (auto const* str = std::get_if<css::value::string>(&v)) {
            if (auto const p = pdf::profile::profile_of_name(str->string_text)) {
                options.pdf_profile = *p;
                return true;
            }
        }
        return false;
    });
    if (auto u = first_valid("-vellum-pdf-script", url_of)) {
        options.pdf_script = resource::locator::locator_to_string(resource::locator::resolve_locator(base, u->url_text));
    }
    return options;
}

} // namespace vellum::pdf_rules
