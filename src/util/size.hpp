// A width and height in points.
#pragma once

namespace vellum::util::size {

/// A width and a height in points.
struct size {
    float w = 0;
    float h = 0;
    bool operator==(size const&) const = default;
};

} // namespace vellum::util::size
