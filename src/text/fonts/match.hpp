// Choosing a face within a family: the quality of a face description for a request (style, then width,
// then weight, then small capitals), and the classes of fontconfig's numbers for faces found by a scan.
#pragma once

#include "text/truetype.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <tuple>

namespace vellum::fonts::match {

/// The CSS font-style of a face or a request.
enum class font_style { normal, italic, oblique };

/// The CSS font-variant as matching sees it: small capitals, or OpenType features chosen by the
/// document, which never count against a face.
enum class font_variant { normal, small_caps, vellum_opentype };

/// Where a face description comes from.
enum class desc_origin { font_desc_origin_font_face, font_desc_origin_system_font };

/// The description of a face that matching compares.
struct font_desc0 {
    desc_origin font_desc_origin = desc_origin::font_desc_origin_font_face;
    font_style font_desc_style = font_style::normal;
    truetype::truetype_weight font_desc_weight = truetype::truetype_weight::normal;
    truetype::truetype_width font_desc_width = truetype::truetype_width::normal;
    font_variant font_desc_variant = font_variant::normal;
    bool operator==(font_desc0 const&) const = default;
};

/// What a request asks for.
struct request {
    font_style request_style = font_style::normal;
    truetype::truetype_weight request_weight = truetype::truetype_weight::normal;
    truetype::truetype_width request_width = truetype::truetype_width::normal;
    font_variant request_variant = font_variant::normal;
    bool operator==(request const&) const = default;
};

/// Four costs compared in order; less is better.
struct quality {
    int quality_style = 0;
    int quality_width = 0;
    int quality_weight = 0;
    int quality_variant = 0;
    auto operator<=>(quality const&) const = default;
};

/// How well a face fits a request. Italic and oblique count as the same; a wrong style costs 1000, more
/// than any width or weight difference.
quality font_desc_quality(request const& r, font_desc0 const& d);

/// The index of the best description; the first of equals wins. Nothing for an empty list.
[[nodiscard]] std::optional<std::size_t> best_match(request const& r, std::span<font_desc0 const> descs);

/// The weight class of fontconfig's FC_WEIGHT value.
truetype::truetype_weight weight_from_fontconfig(int fc_weight);

/// The width class of fontconfig's FC_WIDTH value.
truetype::truetype_width width_from_fontconfig(int fc_width);

} // namespace vellum::fonts::match
