// Rectangles of layout: an area with its four edges in points, the y axis growing upward, and the
// bands of a container that floats leave free.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
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

/// The bands of a container, from top to bottom. Nearly always there is one, the container itself, and
/// areas are copied for every block and trial: one band is held in place, and only the bands beside
/// floats take the heap.
class band_list {
public:
    band_list() = default;
    band_list(std::initializer_list<area> bands) { assign(bands.begin(), bands.end()); }
    band_list(std::vector<area> const& bands) { assign(bands.data(), bands.data() + bands.size()); }

    area* begin() { return data(); }
    area* end() { return data() + count; }
    area const* begin() const { return data(); }
    area const* end() const { return data() + count; }
    area* data() { return count > 1 ? many.data() : &one; }
    area const* data() const { return count > 1 ? many.data() : &one; }
    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    area& front() { return *data(); }
    area const& front() const { return *data(); }
    area& operator[](std::size_t i) { return data()[i]; }
    area const& operator[](std::size_t i) const { return data()[i]; }

    void push_back(area const& a) {
        if (count == 0) {
            one = a;
        } else {
            if (count == 1) {
                many.assign(1, one);
            }
            many.push_back(a);
        }
        ++count;
    }

    /// Removes the band at `at`; returns where the band after it now is.
    area* erase(area const* at) {
        auto const i = std::size_t(at - data());
        if (count > 1) {
            many.erase(many.begin() + std::ptrdiff_t(i));
            if (count == 2) {
                one = many.front();
                many.clear();
            }
        }
        --count;
        return data() + i;
    }

    bool operator==(band_list const& other) const {
        return std::equal(begin(), end(), other.begin(), other.end());
    }

private:
    void assign(area const* first, area const* last) {
        count = std::size_t(last - first);
        many.clear();
        if (count == 1) {
            one = *first;
        } else if (count > 1) {
            many.assign(first, last);
        }
    }

    /// The only band when there is one; the bands are in `many` when there are more.
    area one;
    std::vector<area> many;
    std::size_t count = 0;
};

/// A container and the bands of it that are free of floats, from top to bottom.
struct areas {
    area container;
    band_list available;
    bool operator==(areas const&) const = default;
};

} // namespace vellum::pack::areas
