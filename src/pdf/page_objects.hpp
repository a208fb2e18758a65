// What pages name beyond fonts: image XObjects, forms that fill an area with a tiling pattern (a
// repeated image) or a shading (a gradient), and spot colour spaces. The painter asks for a name as it
// paints; the page's resource dictionary asks for the object's number, reserved at the first request;
// and everything is written once after the pages, however many pages use it. Patterns sit in forms so
// that they are placed in the space where the form is drawn, whatever transform is in force there.
#pragma once

#include "css/value.hpp"
#include "driver/log.hpp"
#include "image/images.hpp"
#include "pdf/color.hpp"
#include "pdf/object.hpp"
#include "pdf/pdf.hpp"
#include "util/matrix.hpp"

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::pdf::page_objects {

/// An image repeated over an area: one tile of `tile_w` by `tile_h`, repeated every `xstep` and
/// `ystep` (which are larger than the tile where `background-repeat: space` leaves room), placed in
/// the page's space by the matrix.
struct tiling {
    std::string tiling_image;
    double tile_w = 0;
    double tile_h = 0;
    double xstep = 0;
    double ystep = 0;
    matrix::matrix tiling_matrix;
    bool operator==(tiling const&) const = default;
};

/// One stop of a colour ramp, its offset from 0 to 1, and its opacity.
struct ramp_stop {
    double stop_offset = 0;
    color::color stop_color = color::gray{};
    /// Below 1 somewhere on a ramp, the shading is painted through a soft mask made of the opacities.
    double stop_alpha = 1;
    bool operator==(ramp_stop const&) const = default;
};

/// An axial (linear) or radial shading with its colour ramp; coordinates in the page's space.
struct shading {
    bool radial = false;
    /// x0 y0 x1 y1 for an axial shading; x0 y0 r0 x1 y1 r1 for a radial one.
    std::vector<double> shading_coords;
    std::vector<ramp_stop> shading_stops;
    bool extend_start = true;
    bool extend_end = true;
    /// A transform applied to the shading alone (an elliptical radial gradient is a scaled circle).
    std::optional<matrix::matrix> shading_matrix;
    bool operator==(shading const&) const = default;
};

/// A spot colour: its ink name and the process colour that shows it on screen.
struct separation_space {
    std::string separation_name;
    color::color separation_alternate = color::cmyk{};
    bool operator==(separation_space const&) const = default;
};

enum class resource_kind { xobject, colorspace };

/// A rectangle in the space where it is painted.
struct rect_area {
    double x0 = 0;
    double y0 = 0;
    double x1 = 0;
    double y1 = 0;
    bool operator==(rect_area const&) const = default;
};

/// A form XObject that fills an area with a pattern or a shading.
struct fill_form {
    std::variant<tiling, shading> form_fill;
    rect_area form_area;
    bool operator==(fill_form const&) const = default;
};

class page_objects {
public:
    explicit page_objects(images::images* table) : objects_images(table) {}

    /// The image a background's url() names, loaded the first time; nothing (after one warning) when
    /// it cannot be loaded, or when there is no image table.
    std::optional<vellum::ref<images::image_id>> background_image(log::log const& log, css::value::url const& url);

    /// The resource name of an image, noting it for writing.
    std::string use_image(vellum::ref<images::image_id> const& id);
    /// The name of a form that fills the rectangle with a tiling pattern; the same tiling over the same
    /// rectangle is one form, and one tiling is one pattern whatever rectangles it fills.
    std::string use_tiling(tiling const& t, rect_area const& area);
    /// The name of a form that paints a shading clipped to the rectangle.
    std::string use_shading(shading const& s, rect_area const& area);
    /// The colour-space resource name of a spot colour, by its ink name.
    std::string use_separation(separation_space const& s);

    /// The process colours of the spot colours that @vellum-color rules define, by ink name; an ink
    /// that no rule defines prints black on screen.
    std::map<std::string, color::color> spot_alternates;

    /// The objects of the document's fonts by id, for the text that drawings show.
    std::map<int, ref> font_refs;

    /// The number of a named object, reserved the first time; nothing for a name never handed out.
    std::optional<ref> ref_of(writer& w, resource_kind kind, std::string const& name);

    /// Writes every object that a page named: patterns first (they name images), then images.
    void write_all(log::log const& log, writer& w, bool compress);

    /// Whether an image needs PDF 1.5 (16-bit samples).
    bool needs_pdf_1_5() const;

private:
    struct entry {
        std::optional<ref> entry_ref;
        bool written = false;
    };
    images::images* objects_images;
    std::map<std::string, vellum::ref<images::image_id>> image_ids;
    std::map<std::string, entry> images_out;
    std::vector<std::pair<fill_form, std::string>> forms;
    std::map<std::string, entry> forms_out;
    std::vector<std::pair<tiling, ref>> tiling_patterns;
    std::vector<separation_space> separations;
    std::map<std::string, entry> colorspaces_out;
    /// ICC profiles written so far, by component count and bytes.
    std::map<std::pair<int, std::string>, ref> icc_streams;
};

/// The stream dictionary entries and data of an image XObject, with its soft mask written first.
void write_image(log::log const& log,
                 writer& w,
                 ref r,
                 image::image const& img,
                 images::image_magic const& magic,
                 bool compress,
                 std::map<std::pair<int, std::string>, ref>& icc_streams);

/// Whether a ramp has a stop that is not fully opaque.
bool translucent(std::vector<ramp_stop> const& stops);

/// The opacities of a ramp as a ramp of grey levels, for the soft mask of a translucent shading.
std::vector<ramp_stop> alpha_ramp(std::vector<ramp_stop> const& stops);

/// The colour ramp of a shading as a PDF function: one exponential interpolation for two stops, a
/// stitching of them for more.
dict ramp_function(std::vector<ramp_stop> const& stops);

} // namespace vellum::pdf::page_objects
