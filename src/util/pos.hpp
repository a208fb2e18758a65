// A point in points (1/72 inch).
#pragma once

namespace vellum::util::pos {

/// A point; in layout the y axis grows upward.
struct pos {
    float x = 0;
    float y = 0;
    bool operator==(pos const&) const = default;
};

} // namespace vellum::util::pos
