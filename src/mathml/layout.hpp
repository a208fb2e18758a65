// Layout of MathML elements into boxes: the context and environment shared by the layout operations,
// and the dispatcher over element names that each of them calls for its children.
#pragma once

#include "document/dom.hpp"
#include "driver/log.hpp"
#include "mathml/math.hpp"
#include "mathml/mathfont.hpp"
#include "mathml/mathstyle.hpp"
#include "mathml/op_table.hpp"
#include "mathml/special_glyphs.hpp"

#include <optional>
#include <string>
#include <vector>

namespace vellum::images {
class images;
} // namespace vellum::images

namespace vellum::mathml::layout {

using mathstyle::mathstyle;
using op_table::op_form;

/// The surroundings an operator stretches to: the height and depth of its row, or the width of the
/// stack it is an under- or overscript of.
struct env_info {
    /// The parent is an embellished operator.
    bool parent_em = false;
    op_form form = op_form::infix;
    double height = 0;
    double depth = 0;
    std::optional<double> env_width;
};

using env = std::optional<env_info>;

/// What every layout operation reads.
struct context {
    log::log const& log;
    fonts::fonts const& db;
    op_table::op_table const& ops;
    special_glyphs::mglyphs const& glyphs;
    /// The image table, for mglyph images; none when the run loads no images.
    images::images* images = nullptr;
};

/// Lays out one element by its name.
math math_of_element(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el);

/// Lays out elements as a row (an explicit mrow, or the inferred row of msqrt, mstyle, math...).
math math_of_row(context const& ctx,
                 mathstyle const& st,
                 env const& e,
                 std::vector<dom::element_ref> const& items);

/// The element children of an element, in order.
std::vector<dom::element_ref> element_children(dom::element_ref const& el);

/// An attribute in no namespace.
std::optional<std::string> attr(dom::element_ref const& el, std::string_view name);

/// The local name of an element.
std::string local_name(dom::element_ref const& el);

/// Whether an element is space-like: mtext, mspace, the alignment marks, or rows of these only.
bool is_space_like_element(dom::element_ref const& el);

/// The operator at the core of an embellished operator, if the element is one.
std::optional<dom::element_ref> core_op(dom::element_ref const& el);

/// The dictionary entry of an mo element in a form, with the attributes of mstyle and of the element
/// applied over it.
op_table::mostyle
op_style_of(context const& ctx, mathstyle const& st, dom::element_ref const& mo, op_form form);

/// An operator's space from the dictionary as it stands at the style's script level: in scripts the
/// spaces wider than a thin space are dropped, unless the element or mstyle sets the space.
double script_space(mathstyle const& st, dom::element_ref const& mo, std::string const& name, double space);

/// The font request and math font of a style.
ref<fonts::font_req> font_req_of(context const& ctx, mathstyle const& st);
mathfont::math_font const& math_font_of(context const& ctx, mathstyle const& st);

/// A constant of the style's math font at its size.
double constant(context const& ctx, mathstyle const& st, opentype::math::constant c);

/// The height of the maths axis above the baseline.
double axis(context const& ctx, mathstyle const& st);

/// A box holding a text run of the given characters in a mathvariant ("" for none).
math text_box(context const& ctx,
              mathstyle const& st,
              std::u32string const& text,
              std::string const& variant);

/// A box holding one glyph of a font (a variant of a stretchy operator), standing for `chars`.
math glyph_box(mathstyle const& st,
               fonts::font_ref const& font,
               std::uint32_t glyph,
               std::u32string const& chars);

/// Logs a problem with a MathML element.
void warn(context const& ctx, std::string const& message);

/// Logs a kind of content that is not laid out as asked, once per run.
void warn_once(context const& ctx, std::string const& message);

/// Reads a length attribute against an em and a base for percentages and bare numbers.
std::optional<double> length_attr(
    context const& ctx, mathstyle const& st, dom::element_ref const& el, std::string_view name, double base);

/// A box that draws its content over a background colour.
math with_background(math m, css::color::color const& c);

/// The element layouts, by element.
math layout_token(context const& ctx,
                  mathstyle const& st,
                  dom::element_ref const& el,
                  std::string const& name);
math layout_mo(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el);
math layout_mglyph(context const& ctx, mathstyle const& st, dom::element_ref const& el);
math layout_mspace(context const& ctx, mathstyle const& st, dom::element_ref const& el);
math layout_mfrac(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el);
math layout_root(context const& ctx, mathstyle const& st, dom::element_ref const& el, bool has_index);
math layout_scripts(context const& ctx,
                    mathstyle const& st,
                    env const& e,
                    dom::element_ref const& el,
                    std::string const& name);
math layout_underover(context const& ctx,
                      mathstyle const& st,
                      env const& e,
                      dom::element_ref const& el,
                      std::string const& name);
math layout_multiscripts(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el);
math layout_mpadded(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el);
math layout_mtable(context const& ctx, mathstyle const& st, dom::element_ref const& el);
math layout_menclose(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el);

/// A radical sign stretched over a base, with its bar, and an index before it if one is given.
math with_radical(context const& ctx, mathstyle const& st, math base, std::optional<math> index);

/// Places the parts of a script stack: base, then a sub- and a superscript (either may be absent).
math attach_scripts(context const& ctx,
                    mathstyle const& st,
                    math const& base,
                    std::optional<math> const& sub,
                    std::optional<math> const& sup);

/// Stretches an operator glyph vertically to a total size, or horizontally to a width.
std::optional<math> stretch_vertical(context const& ctx,
                                     mathstyle const& st,
                                     std::u32string const& text,
                                     double target,
                                     std::optional<double> centre);
std::optional<math>
stretch_horizontal(context const& ctx, mathstyle const& st, std::u32string const& text, double target);

} // namespace vellum::mathml::layout
