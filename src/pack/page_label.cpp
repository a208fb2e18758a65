#include "pack/page_label.hpp"

#include "pack/page_info.hpp"
#include "pack/static.hpp"
#include "prepack/generated.hpp"
#include "util/ref.hpp"
#include "util/textbuf.hpp"

namespace vellum::pack {

namespace {

// The PDF numbering style of a CSS counter style, if PDF has one that writes the same.
std::optional<page_label_counter_style> pdf_style(std::string const& css_style, int n) {
    if (css_style == "decimal") {
        return page_label_counter_style::decimal;
    }
    if (css_style == "lower-roman" && n < 4000) {
        return page_label_counter_style::lower_roman;
    }
    if (css_style == "upper-roman" && n < 4000) {
        return page_label_counter_style::upper_roman;
    }
    // Past "z" the two count differently: CSS goes on with "aa", "ab", PDF with "aa", "bb".
    if ((css_style == "lower-alpha" || css_style == "lower-latin") && n <= 26) {
        return page_label_counter_style::lower_alpha;
    }
    if ((css_style == "upper-alpha" || css_style == "upper-latin") && n <= 26) {
        return page_label_counter_style::upper_alpha;
    }
    return std::nullopt;
}

// The style of a counter(page) or counter(page, style) term.
std::optional<std::string> page_counter_style(css::value::value const& v) {
    auto const* f = std::get_if<css::value::function>(&v);
    if (f == nullptr || f->function_args.empty() || f->function_args.size() > 2) {
        return std::nullopt;
    }
    std::string name = f->function_name;
    for (auto& c : name) {
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    if (name != "counter" || prepack::generated::ident_of(f->function_args[0]) != "page") {
        return std::nullopt;
    }
    if (f->function_args.size() == 1) {
        return "decimal";
    }
    return prepack::generated::ident_of(f->function_args[1]);
}

} // namespace

std::optional<page_label> page_label_of(page_info const& info, css::page::vellum_pdf_page_label const& spec) {
    int const n = info.general.user_page_num;
    return std::visit(
        overloaded{
            [&](css::box::auto_value const&) -> std::optional<page_label> {
                if (n < 1) {
                    return std::nullopt;
                }
                return page_label{.label_counter = page_label_number{n, page_label_counter_style::decimal}};
            },
            [&](css::property::content_list const& list) -> std::optional<page_label> {
                auto const& items = list.content_items;
                if (!items.empty() && n >= 1) {
                    if (auto const css_style = page_counter_style(items.back())) {
                        if (auto const style = pdf_style(*css_style, n)) {
                            css::property::content_list const head{{items.begin(), items.end() - 1}};
                            auto prefix = textbuf::to_utf8(static_::eval_content(info, head).text_value);
                            page_label out{.label_counter = page_label_number{n, *style}};
                            if (!prefix.empty()) {
                                out.label_prefix = std::move(prefix);
                            }
                            return out;
                        }
                    }
                }
                return page_label{.label_prefix = textbuf::to_utf8(static_::eval_content(info, list).text_value)};
            },
        },
        spec);
}

} // namespace vellum::pack
