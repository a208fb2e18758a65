// SVG files: parsed as XML, styled by their own style sheets, and built into a drawing. The image table
// calls this for every SVG image it meets, once per file and run.
#pragma once

#include "image/images.hpp"
#include "resource/loader.hpp"

namespace vellum::svg::file {

/// The reader the image table uses for SVG files; `table` serves the images that the drawings show.
images::svg_reader svg_file_reader(resource::loader::loader const& loader, images::images* table);

} // namespace vellum::svg::file
