// The face that a fontconfig pattern describes, shared by the family scan and the search by coverage.
#pragma once

#include "text/fonts/font_system.hpp"

#include <optional>

#include <fontconfig/fontconfig.h>

namespace vellum::fonts::fc_face {

/// The file, face index and description of a pattern's face; nothing for the formats other than
/// TrueType and CFF (Type 1, bitmaps), which cannot be read and embedded, or a pattern without a file.
std::optional<font_system::system_face> sfnt_face_of(FcPattern* p);

} // namespace vellum::fonts::fc_face
