// Rectangles of layout: an area with its four edges in points, the y axis growing upward, and the
// bands of a container that floats leave free.
#pragma once

#include <vector>

namespace vellum::pack::areas {

/// A rectangle in points; `top` is above `bottom`, so its height is top - bottom.
struct area {
    float top = 0;
    float bottom = 0;
    float left = 0;
    float right = 0;
    bool operator==(area const&) const = default;
};

/// The width of an area.
inline float width_of(area const& a) {
    return a.right - a.left;
}

/// The height of an area.
inline float height_of(area const& a) {
    return a.top - a.bottom;
}

/// A container and the bands of it that are free of floats, from top to bottom.
struct areas {
    area container;
    std::vector<area> available;
    bool operator==(areas const&) const = default;
};

} // namespace vellum::pack::areas
