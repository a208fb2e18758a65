// 2D affine transforms as the six numbers of a PDF `cm` operator.
#pragma once

#include "util/pos.hpp"

#include <optional>

namespace vellum::matrix {

/// The transform x' = a*x + c*y + tx, y' = b*x + d*y + ty.
struct matrix {
    float a = 1;
    float b = 0;
    float c = 0;
    float d = 1;
    float tx = 0;
    float ty = 0;
    bool operator==(matrix const&) const = default;
};

/// The identity transform.
inline constexpr matrix identity{};

/// A translation by (x, y).
matrix translate(float x, float y);

/// A scaling by sx horizontally and sy vertically.
matrix scale(float sx, float sy);

/// A rotation by the angle in radians, counter-clockwise in a y-up system.
matrix rotate(float radians);

/// The transform that applies `first`, then `second`.
matrix then(matrix const& first, matrix const& second);

/// The inverse transform, or nothing when the matrix is singular.
[[nodiscard]] std::optional<matrix> invert(matrix const& m);

/// Applies the transform to a point.
util::pos::pos apply(matrix const& m, util::pos::pos p);

} // namespace vellum::matrix
