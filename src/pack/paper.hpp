// The geometry of one sheet of paper from its page style: the media, bleed and trim boxes, the margin
// area that holds the margin boxes, and the body area, each in the frame that its content is laid out
// in: the body's frame may be scaled to shrink wide content and turned by a quarter, the margin boxes'
// frame scaled with it or not at all.
#pragma once

#include "css/page.hpp"
#include "css/used_style.hpp"
#include "pack/areas.hpp"
#include "util/matrix.hpp"

#include <optional>

namespace vellum::pack::paper {

/// The areas of one page. The paper frame has its origin at the bottom left corner of the media box,
/// y upward, in points.
struct paper_areas {
    /// Margins, borders and padding of the page body, resolved against the page size.
    css::used_style::used_style used_paper_style;
    /// The whole sheet, with room for the printer's marks: the PDF media box.
    areas::area real_media_box;
    /// How far the background may run: the trim box widened by the bleed.
    areas::area real_bleed_box;
    /// The finished page after cutting: the size the page rule asks for.
    areas::area real_trim_box;
    /// The bleed box, trim box and body area in the body's frame.
    areas::area pa_body_bleed_box;
    areas::area pa_body_trim_box;
    areas::area pa_body_area;
    /// The page box, whose margins hold the margin boxes: the trim box, in the paper frame.
    areas::area margin_area;
    /// The bleed box, trim box and margin area in the margin boxes' frame.
    areas::area hfs_bleed_box;
    areas::area hfs_trim_box;
    areas::area hfs_margin_area;
    /// The page margins in the margin boxes' frame.
    css::page::sides<float> hfs_margins;
    /// How much wider the body's frame is than the paper's, when the content was shrunk to fit.
    std::optional<float> shrink_to_fit;
    bool operator==(paper_areas const&) const = default;
};

/// The factor by which content of the widest unbreakable width `widest` must shrink to fit a body
/// `body_width` wide; nothing when it fits.
[[nodiscard]] std::optional<float> shrink_factor(float widest, float body_width);

/// The areas of a page of this style. `shrink` is the factor that a trial of the content asked for;
/// it applies only when the style lets the page shrink to fit, and only above 1.
paper_areas paper_areas_of(css::page::page_style const& ps, std::optional<float> shrink);

/// The transform from the body's frame to the paper frame: the body's quarter turn about the centre
/// of its area, then the scale that undoes the shrinking.
matrix::matrix body_to_paper(paper_areas const& pa, css::page::vellum_rotate_body rotate);

/// The transform from the margin boxes' frame to the paper frame.
matrix::matrix margin_boxes_to_paper(paper_areas const& pa);

} // namespace vellum::pack::paper
