// Building blocks of property value parsing, shared by the longhand parsers and the shorthand
// expansions: keyword tables, term lists, and the parsers of individual value types.
#pragma once

#include "css/property.hpp"

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace vellum::css::property::parse {

/// The identifier lower-cased, or nothing for any other term.
std::optional<std::string> keyword_of(value::value const& v);

/// Whether the term is this identifier, in any case.
bool is_keyword(value::value const& v, std::string_view word);

/// The terms of a value: the list of `values`, or the value alone.
std::span<value::value const> terms_of(value::value const& v);

/// The runs of terms between commas.
std::vector<std::vector<value::value>> comma_runs(value::value const& v);

/// A run of terms as one value again.
value::value as_value(std::span<value::value const> run);

template <class E, std::size_t N>
using keyword_table = std::array<std::pair<std::string_view, E>, N>;

/// The enumerator of a keyword, compared without regard to case.
template <class E, std::size_t N>
std::optional<E> keyword(value::value const& v, keyword_table<E, N> const& table) {
    auto const word = keyword_of(v);
    if (!word) {
        return std::nullopt;
    }
    for (auto const& [name, e] : table) {
        if (name == *word) {
            return e;
        }
    }
    return std::nullopt;
}

// Value types that shorthands also read, one term each.
std::optional<color::spec_color> parse_color(value::value const& v);
std::optional<box::line_style> parse_line_style(value::value const& v);
std::optional<box::spec_border_width> parse_border_width(value::value const& v);
std::optional<box::spec_margin> parse_margin(value::value const& v);
std::optional<box::spec_padding> parse_padding(value::value const& v);
std::optional<box::spec_radius> parse_radius(value::value const& v);
std::optional<box::column_count> parse_column_count(value::value const& v);
std::optional<box::spec_column_width> parse_column_width(value::value const& v);
std::optional<fonts::font_family> parse_font_family(value::value const& v);
std::optional<fonts::spec_font_size> parse_font_size(value::value const& v);
std::optional<fonts::font_stretch> parse_font_stretch(value::value const& v);
std::optional<fonts::font_style> parse_font_style(value::value const& v);
std::optional<fonts::font_variant_caps> parse_font_variant_caps(value::value const& v);
std::optional<fonts::spec_font_weight> parse_font_weight(value::value const& v);
std::optional<fonts::spec_line_height> parse_line_height(value::value const& v);
std::optional<box::url_or_none> parse_url_or_none(value::value const& v);
std::optional<box::list_style_position> parse_list_style_position(value::value const& v);
std::optional<box::list_style_type> parse_list_style_type(value::value const& v);
std::optional<text::text_line_style> parse_text_line_style(value::value const& v);
std::optional<box::background_attachment> parse_bg_attachment(value::value const& v);
std::optional<box::background_box> parse_bg_box(value::value const& v);
std::optional<box::bg_image> parse_bg_image(value::value const& v);
std::optional<box::background_repeat0> parse_repeat0(value::value const& v);

/// The five font-variant longhands, as the font-variant shorthand sets them.
struct font_variant_values {
    fonts::font_variant_caps variant_caps = fonts::font_variant_caps::normal;
    fonts::font_variant_ligatures variant_ligatures;
    fonts::font_variant_numeric variant_numeric;
    fonts::font_variant_position variant_position = fonts::font_variant_position::normal;
    fonts::font_variant_east_asian variant_east_asian;
};

/// "normal", "none" (no ligatures) or keywords of any of the five longhands, each group at most once.
std::optional<font_variant_values> parse_font_variant_terms(std::span<value::value const> terms);

/// A background position from its terms: one or two keywords or lengths, or four with offsets.
std::optional<box::spec_bg_position> parse_position_terms(std::span<value::value const> terms);

/// A background size from one or two terms.
std::optional<box::spec_bg_size> parse_size_terms(std::span<value::value const> terms);

/// A length not below zero, as borders, padding and gaps need.
std::optional<units::length> non_negative_length(value::value const& v);

} // namespace vellum::css::property::parse

namespace vellum::css::property {

/// A shorthand's expansion into all its members, or nothing if any part is invalid.
std::optional<property> parse_shorthand(prop_name p, value::value const& v);

/// A longhand set to a value of its type.
template <longhand L>
property set(longhand_value_t<L> v) {
    return prop<L>{std::move(v)};
}

} // namespace vellum::css::property
