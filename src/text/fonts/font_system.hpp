// Access to the fonts installed on the system, through fontconfig: the faces of one family with the
// style, weight and width that fontconfig reports for each.
#pragma once

#include "driver/log.hpp"
#include "text/fonts/match.hpp"
#include "util/result.hpp"

#include <string>
#include <vector>

namespace vellum::fonts::font_system {

/// The system fonts, once fontconfig has started.
struct font_system {
    bool font_system_ready = true;
};

/// A face found by a scan: its file and face index, with its description.
struct system_face {
    std::string face_file;
    int face_index = 0;
    match::font_desc0 face_desc;
    bool operator==(system_face const&) const = default;
};

/// Starts fontconfig; "could not access system fonts" when it cannot.
[[nodiscard]] result<font_system> new_font_system();

/// The TrueType and CFF faces of a family, in fontconfig's order. Logs "font scan: " at debug level
/// before and after.
std::vector<system_face> scan_family(log::log const& log, font_system const& fs, std::string const& family);

/// The description of a face from fontconfig's slant, weight and width numbers.
match::font_desc0 desc_from_fontconfig(int slant, int weight, int width);

} // namespace vellum::fonts::font_system
