#include "mathml/make_math.hpp"

#include "mathml/layout.hpp"
#include "resource/loader.hpp"
#include "text/fonts/fonts.hpp"

namespace vellum::mathml::make_math {

math_drawing make_math(log::log const& log,
                       fonts::fonts const& db,
                       dom::element_ref const& element,
                       ref<css::style::style> const& style,
                       images::images* image_table) {
    auto const& ops = op_table::load_operators(log, db.fonts_loader);
    auto const& glyphs = special_glyphs::load_glyphs(log, db.fonts_loader);
    layout::context const ctx{.log = log, .db = db, .ops = ops, .glyphs = glyphs, .images = image_table};
    auto st = mathstyle::initial(style);
    auto const display = layout::attr(element, "display");
    bool const block = display && *display == "block";
    if (block) {
        st.displaystyle = true;
    }
    if (auto v = layout::attr(element, "displaystyle")) {
        st.displaystyle = *v == "true";
    }
    auto const m = layout::math_of_row(ctx, st, std::nullopt, layout::element_children(element));
    math_drawing out;
    out.drawing_width = m.mwidth;
    out.drawing_up = m.mup;
    out.drawing_down = m.mdown;
    out.drawing_display = block;
    // The drawing's user units are points, its origin the top left corner: the baseline lies `up`
    // below the top.
    out.drawing.svg_content = flatten(m, 0, m.mup);
    out.drawing.viewport_width = std::max(m.mwidth, 0.01);
    out.drawing.viewport_height = std::max(m.mup + m.mdown, 0.01);
    out.drawing.viewport_sized = true;
    return out;
}

} // namespace vellum::mathml::make_math
