// mglyph: a character that no encoding has, given either as a glyph of a font by its number
// (`fontfamily` and `index`) or as an image (`src`, with `width`, `height` and `valign`). The `alt`
// text stands in when neither can be had.
#include "css/styledom/tree.hpp"
#include "image/images.hpp"
#include "mathml/layout.hpp"
#include "resource/locator.hpp"
#include "text/font_data.hpp"
#include "text/fonts/fonts.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace vellum::mathml::layout {

namespace {

bool same_name(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

bool generic_family(std::string_view f) {
    static constexpr std::string_view names[] = {"serif",   "sans-serif", "monospace", "cursive",
                                                 "fantasy", "math",       "system-ui"};
    return std::any_of(std::begin(names), std::end(names),
                       [&](std::string_view n) { return same_name(n, f); });
}

math alt_text(context const& ctx, mathstyle const& st, dom::element_ref const& el) {
    auto const alt = attr(el, "alt").value_or("");
    return alt.empty() ? empty_math() : text_box(ctx, st, textbuf::from_utf8(alt), "");
}

// The image of an mglyph, its bottom `valign` above the baseline (a negative value lowers it). Without
// a width or height the image's own size counts, in CSS pixels; with one of them the other keeps the
// image's proportions.
std::optional<math>
glyph_image(context const& ctx, mathstyle const& st, dom::element_ref const& el, std::string const& src) {
    if (!ctx.images) {
        warn_once(ctx, "images are not loaded in this run: mglyph images are shown by their alt text");
        return std::nullopt;
    }
    auto const url = resource::locator::resolve_locator(dom::element_base(*el), src);
    auto const id = ctx.images->get_image_id(ctx.log, url);
    if (!id) {
        return std::nullopt;
    }
    double iw = 0;
    double ih = 0;
    auto const* drawing = std::get_if<images::svg_image>(&(*id)->image_source);
    if (drawing) {
        iw = drawing->svg_image_block->viewport_width;
        ih = drawing->svg_image_block->viewport_height;
    } else {
        iw = (*id)->image_info.image_width;
        ih = (*id)->image_info.image_height;
    }
    if (iw <= 0 || ih <= 0) {
        warn(ctx, "mglyph: image without a size: " + src);
        return std::nullopt;
    }
    auto w = length_attr(ctx, st, el, "width", st.fontsize);
    auto h = length_attr(ctx, st, el, "height", st.fontsize);
    if (!w && !h) {
        w = iw * 0.75;
        h = ih * 0.75;
    } else if (!w) {
        w = *h * iw / ih;
    } else if (!h) {
        h = *w * ih / iw;
    }
    if (*w <= 0 || *h <= 0) {
        return empty_math();
    }
    double const valign = length_attr(ctx, st, el, "valign", st.fontsize).value_or(0);
    double const top = -(valign + *h);
    svg::svg item;
    if (drawing) {
        auto const& b = *drawing->svg_image_block;
        svg::svg inner{.svg_transform = b.root_transform, .svgbody = svg::compound{b.svg_content}};
        item.svg_transform = svg::then(svg::scaling(*w / iw, *h / ih), svg::translation(0, top));
        item.svgbody = svg::compound{{std::move(inner)}};
    } else {
        // The image's unit square, its first row at the top, onto the rectangle.
        item.svgbody = svg::image{.image_content = *id,
                                  .image_placement = svg::transform{*w, 0, 0, -*h, 0, top + *h},
                                  .image_viewport = svg::bbox{0, top, *w, top + *h}};
    }
    return simple_math({std::move(item)}, *w, std::max(0.0, -top), std::max(0.0, top + *h));
}

// The glyph of an mglyph by number in the font of `fontfamily` (or of the current family).
std::optional<math> glyph_by_index(context const& ctx,
                                   mathstyle const& st,
                                   dom::element_ref const& el,
                                   std::string const& index) {
    unsigned number = 0;
    auto const [end, ec] = std::from_chars(index.data(), index.data() + index.size(), number);
    if (ec != std::errc{} || end != index.data() + index.size()) {
        return std::nullopt;
    }
    auto s = st;
    auto const family = attr(el, "fontfamily");
    if (family) {
        s.fontquery.query_families = {*family};
    }
    auto const req = fonts::get_font_req(ctx.db, s.fontquery);
    auto const font = fonts::first_font_ref(ctx.db, *req);
    if (!font) {
        return std::nullopt;
    }
    auto const& data = *(*font)->used_font_data;
    // A family that is not installed would fall back to another font, whose glyph numbers mean
    // something else.
    if (family && !generic_family(*family) && !same_name(data.font_info.family_name, *family)) {
        return std::nullopt;
    }
    if (number == 0 || number >= data.font_num_glyphs) {
        return std::nullopt;
    }
    auto const alt = textbuf::from_utf8(attr(el, "alt").value_or(""));
    return glyph_box(s, *font, number, alt);
}

} // namespace

math layout_mglyph(context const& ctx, mathstyle const& st, dom::element_ref const& el) {
    if (auto src = attr(el, "src")) {
        if (auto m = glyph_image(ctx, st, el, *src)) {
            return std::move(*m);
        }
        return alt_text(ctx, st, el);
    }
    if (auto index = attr(el, "index")) {
        if (auto m = glyph_by_index(ctx, st, el, *index)) {
            return std::move(*m);
        }
        warn(ctx, "unknown glyph");
        return alt_text(ctx, st, el);
    }
    warn(ctx, "mglyph needs a src or an index");
    return alt_text(ctx, st, el);
}

} // namespace vellum::mathml::layout
