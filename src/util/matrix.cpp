#include "util/matrix.hpp"

#include <cmath>

namespace vellum::matrix {

matrix translate(float x, float y) {
    return {.tx = x, .ty = y};
}

matrix scale(float sx, float sy) {
    return {.a = sx, .d = sy};
}

matrix rotate(float radians) {
    float const c = std::cos(radians);
    float const s = std::sin(radians);
    return {.a = c, .b = s, .c = -s, .d = c};
}

matrix then(matrix const& m, matrix const& n) {
    // Row vectors: [x y 1] * M * N, as PDF composes `cm` operators.
    return {
        .a = m.a * n.a + m.b * n.c,
        .b = m.a * n.b + m.b * n.d,
        .c = m.c * n.a + m.d * n.c,
        .d = m.c * n.b + m.d * n.d,
        .tx = m.tx * n.a + m.ty * n.c + n.tx,
        .ty = m.tx * n.b + m.ty * n.d + n.ty,
    };
}

std::optional<matrix> invert(matrix const& m) {
    double const det = double(m.a) * m.d - double(m.b) * m.c;
    if (std::abs(det) < 1e-12) {
        return std::nullopt;
    }
    double const ia = m.d / det, ib = -m.b / det, ic = -m.c / det, id = m.a / det;
    return matrix{
        .a = float(ia),
        .b = float(ib),
        .c = float(ic),
        .d = float(id),
        .tx = float(-(m.tx * ia + m.ty * ic)),
        .ty = float(-(m.tx * ib + m.ty * id)),
    };
}

util::pos::pos apply(matrix const& m, util::pos::pos p) {
    return {m.a * p.x + m.c * p.y + m.tx, m.b * p.x + m.d * p.y + m.ty};
}

} // namespace vellum::matrix
