#include "svg/path_data.hpp"

#include <charconv>
#include <cmath>
#include <numbers>

namespace vellum::svg::path_data {

namespace {

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// A cursor over attribute text that reads numbers by the SVG number grammar: an optional sign, digits
// with an optional fraction, an optional exponent. "1.5.5" is two numbers and "10-5" too.
struct scanner {
    std::string_view text;
    std::size_t at = 0;

    void skip_space() {
        while (at < text.size() && is_space(text[at])) {
            ++at;
        }
    }

    // White space with at most one comma in it.
    void skip_separator() {
        skip_space();
        if (at < text.size() && text[at] == ',') {
            ++at;
            skip_space();
        }
    }

    bool done() {
        skip_space();
        return at >= text.size();
    }

    std::optional<double> number() {
        skip_space();
        std::size_t p = at;
        if (p < text.size() && (text[p] == '+' || text[p] == '-')) {
            ++p;
        }
        std::size_t const digits_start = p;
        while (p < text.size() && std::isdigit(static_cast<unsigned char>(text[p]))) {
            ++p;
        }
        bool any = p > digits_start;
        if (p < text.size() && text[p] == '.') {
            ++p;
            std::size_t const frac = p;
            while (p < text.size() && std::isdigit(static_cast<unsigned char>(text[p]))) {
                ++p;
            }
            any = any || p > frac;
        }
        if (!any) {
            return std::nullopt;
        }
        if (p < text.size() && (text[p] == 'e' || text[p] == 'E')) {
            std::size_t q = p + 1;
            if (q < text.size() && (text[q] == '+' || text[q] == '-')) {
                ++q;
            }
            if (q < text.size() && std::isdigit(static_cast<unsigned char>(text[q]))) {
                while (q < text.size() && std::isdigit(static_cast<unsigned char>(text[q]))) {
                    ++q;
                }
                p = q;
            }
        }
        // from_chars takes no leading '+'.
        std::size_t const from = text[at] == '+' ? at + 1 : at;
        double v = 0;
        auto const r = std::from_chars(text.data() + from, text.data() + p, v);
        if (r.ec != std::errc{} || !std::isfinite(v)) {
            return std::nullopt;
        }
        at = p;
        return v;
    }

    // An arc flag: one character '0' or '1', which needs no separator after it.
    std::optional<bool> flag() {
        skip_space();
        if (at < text.size() && (text[at] == '0' || text[at] == '1')) {
            return text[at++] == '1';
        }
        return std::nullopt;
    }

    // Whether a number may start here (after separators), so that an argument group repeats.
    bool number_ahead() {
        skip_separator();
        if (at >= text.size()) {
            return false;
        }
        char const c = text[at];
        return std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '+';
    }
};

std::string_view message_of(char command) {
    switch (std::toupper(static_cast<unsigned char>(command))) {
    case 'M':
    case 'L':
        return "svg: path: command L/l: (x, y)+ required.";
    case 'H':
        return "svg: path: command H/h: (x)+ required.";
    case 'V':
        return "svg: path: command V/v: (y)+ required.";
    case 'C':
        return "svg: path: command C/c: (x1 y1 x2 y2 x y)+ required.";
    case 'S':
        return "svg: path: command S/s: (x2 y2 x y)+ required.";
    case 'Q':
        return "svg: path: command Q/q: (x1 y1 x y)+ required.";
    case 'T':
        return "svg: path: command T/t: (x y)+ required.";
    case 'A':
        return "svg: path: command A/a: (rx ry x_rotate large_arc sweep x y)+ required.";
    default:
        return "svg: path: parse error.";
    }
}

double angle_between(double ux, double uy, double vx, double vy) {
    double const a = std::atan2(ux * vy - uy * vx, ux * vx + uy * vy);
    return a;
}

} // namespace

std::vector<command> endpoint_arc(point from,
                                  double rx,
                                  double ry,
                                  double x_rotate_degrees,
                                  bool large_arc,
                                  bool sweep,
                                  point to,
                                  bool& denominator_zero) {
    if (from == to) {
        return {};
    }
    rx = std::abs(rx);
    ry = std::abs(ry);
    if (rx == 0 || ry == 0) {
        return {lineto{to}};
    }
    // The conversion from endpoint to centre parameters: move the midpoint to the origin and undo the
    // rotation, scale radii that are too small, then find the centre and the two angles.
    double const phi = x_rotate_degrees * std::numbers::pi / 180;
    double const cos_phi = std::cos(phi);
    double const sin_phi = std::sin(phi);
    double const dx = (from.x - to.x) / 2;
    double const dy = (from.y - to.y) / 2;
    double const x1 = cos_phi * dx + sin_phi * dy;
    double const y1 = -sin_phi * dx + cos_phi * dy;
    double const lambda = (x1 * x1) / (rx * rx) + (y1 * y1) / (ry * ry);
    if (lambda > 1) {
        rx *= std::sqrt(lambda);
        ry *= std::sqrt(lambda);
    }
    double const denominator = rx * rx * y1 * y1 + ry * ry * x1 * x1;
    if (denominator == 0) {
        denominator_zero = true;
        return {lineto{to}};
    }
    double num = rx * rx * ry * ry - denominator;
    num = std::max(0.0, num);
    double factor = std::sqrt(num / denominator);
    if (large_arc == sweep) {
        factor = -factor;
    }
    double const cx1 = factor * rx * y1 / ry;
    double const cy1 = -factor * ry * x1 / rx;
    point const center{cos_phi * cx1 - sin_phi * cy1 + (from.x + to.x) / 2,
                       sin_phi * cx1 + cos_phi * cy1 + (from.y + to.y) / 2};
    double const ux = (x1 - cx1) / rx;
    double const uy = (y1 - cy1) / ry;
    double const vx = (-x1 - cx1) / rx;
    double const vy = (-y1 - cy1) / ry;
    double const start = angle_between(1, 0, ux, uy);
    double delta = angle_between(ux, uy, vx, vy);
    if (!sweep && delta > 0) {
        delta -= 2 * std::numbers::pi;
    } else if (sweep && delta < 0) {
        delta += 2 * std::numbers::pi;
    }
    return {arc{.ellipse_center = center,
                .arc_rx = rx,
                .arc_ry = ry,
                .arc_rotate = phi,
                .arc_start = start,
                .arc_sweep = delta}};
}

parsed_path parse_path(std::string_view d) {
    parsed_path out;
    auto& cmds = out.path_commands;
    scanner s{d};
    if (s.done()) {
        return out;
    }
    if (d[s.at] != 'M' && d[s.at] != 'm') {
        out.path_warnings.emplace_back("svg: path[@d]: command M/m expected at the beginning.");
        return out;
    }
    point current;
    point start;
    // The reflected control point of the previous C/S or Q/T, for the smooth forms.
    std::optional<point> last_cubic;
    std::optional<point> last_quad;
    bool arc_warned = false;
    auto fail_with = [&](char c) { out.path_warnings.emplace_back(message_of(c)); };
    auto cubic = [&](point c1, point c2, point end) {
        cmds.push_back(c_curveto{c1, c2, end});
        last_cubic = c2;
        current = end;
    };
    auto quad = [&](point q, point end) {
        cmds.push_back(c_curveto{{current.x + 2.0 / 3 * (q.x - current.x), current.y + 2.0 / 3 * (q.y - current.y)},
                                 {end.x + 2.0 / 3 * (q.x - end.x), end.y + 2.0 / 3 * (q.y - end.y)},
                                 end});
        last_quad = q;
        current = end;
    };
    while (!s.done()) {
        char const c = d[s.at];
        if (!std::isalpha(static_cast<unsigned char>(c))) {
            out.path_warnings.emplace_back("svg: path: parse error.");
            return out;
        }
        ++s.at;
        bool const rel = std::islower(static_cast<unsigned char>(c)) != 0;
        char const k = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        auto const base = [&]() { return rel ? current : point{}; };
        if (k == 'Z') {
            cmds.push_back(closepath{});
            current = start;
            last_cubic.reset();
            last_quad.reset();
            continue;
        }
        // One command, its argument group repeated while numbers follow.
        bool first = true;
        do {
            std::optional<point> keep_cubic;
            std::optional<point> keep_quad;
            auto const read = [&](int n) -> std::optional<std::vector<double>> {
                std::vector<double> v;
                for (int i = 0; i < n; ++i) {
                    if (i > 0) {
                        s.skip_separator();
                    }
                    auto x = s.number();
                    if (!x) {
                        return std::nullopt;
                    }
                    v.push_back(*x);
                }
                return v;
            };
            switch (k) {
            case 'M':
            case 'L': {
                auto v = read(2);
                if (!v) {
                    fail_with(c);
                    return out;
                }
                point const p{base().x + (*v)[0], base().y + (*v)[1]};
                if (k == 'M' && first) {
                    cmds.push_back(moveto{p});
                    start = p;
                } else {
                    cmds.push_back(lineto{p});
                }
                current = p;
                break;
            }
            case 'H':
            case 'V': {
                auto v = read(1);
                if (!v) {
                    fail_with(c);
                    return out;
                }
                point p = current;
                (k == 'H' ? p.x : p.y) = (rel ? (k == 'H' ? current.x : current.y) : 0) + (*v)[0];
                cmds.push_back(lineto{p});
                current = p;
                break;
            }
            case 'C': {
                auto v = read(6);
                if (!v) {
                    fail_with(c);
                    return out;
                }
                auto const b = base();
                cubic({b.x + (*v)[0], b.y + (*v)[1]}, {b.x + (*v)[2], b.y + (*v)[3]}, {b.x + (*v)[4], b.y + (*v)[5]});
                keep_cubic = last_cubic;
                break;
            }
            case 'S': {
                auto v = read(4);
                if (!v) {
                    fail_with(c);
                    return out;
                }
                auto const b = base();
                point const c1 = last_cubic ? point{2 * current.x - last_cubic->x, 2 * current.y - last_cubic->y}
                                            : current;
                cubic(c1, {b.x + (*v)[0], b.y + (*v)[1]}, {b.x + (*v)[2], b.y + (*v)[3]});
                keep_cubic = last_cubic;
                break;
            }
            case 'Q': {
                auto v = read(4);
                if (!v) {
                    fail_with(c);
                    return out;
                }
                auto const b = base();
                quad({b.x + (*v)[0], b.y + (*v)[1]}, {b.x + (*v)[2], b.y + (*v)[3]});
                keep_quad = last_quad;
                break;
            }
            case 'T': {
                auto v = read(2);
                if (!v) {
                    fail_with(c);
                    return out;
                }
                auto const b = base();
                point const q =
                    last_quad ? point{2 * current.x - last_quad->x, 2 * current.y - last_quad->y} : current;
                quad(q, {b.x + (*v)[0], b.y + (*v)[1]});
                keep_quad = last_quad;
                break;
            }
            case 'A': {
                auto const rx = s.number();
                s.skip_separator();
                auto const ry = rx ? s.number() : std::nullopt;
                s.skip_separator();
                auto const rot = ry ? s.number() : std::nullopt;
                s.skip_separator();
                auto const large = rot ? s.flag() : std::nullopt;
                s.skip_separator();
                auto const sweep = large ? s.flag() : std::nullopt;
                s.skip_separator();
                auto const x = sweep ? s.number() : std::nullopt;
                s.skip_separator();
                auto const y = x ? s.number() : std::nullopt;
                if (!y) {
                    fail_with(c);
                    return out;
                }
                auto const b = base();
                point const to{b.x + *x, b.y + *y};
                bool zero = false;
                for (auto& a : endpoint_arc(current, *rx, *ry, *rot, *large, *sweep, to, zero)) {
                    cmds.push_back(std::move(a));
                }
                if (zero && !arc_warned) {
                    out.path_warnings.emplace_back("svg: arc denominator is zero");
                    arc_warned = true;
                }
                current = to;
                break;
            }
            default:
                out.path_warnings.emplace_back("svg: path: parse error.");
                return out;
            }
            last_cubic = keep_cubic;
            last_quad = keep_quad;
            first = false;
        } while (s.number_ahead());
    }
    return out;
}

std::optional<std::vector<double>> parse_numbers(std::string_view text) {
    scanner s{text};
    std::vector<double> out;
    while (!s.done()) {
        auto v = s.number();
        if (!v) {
            return std::nullopt;
        }
        out.push_back(*v);
        s.skip_separator();
    }
    return out;
}

std::optional<transform> parse_transform(std::string_view text) {
    scanner s{text};
    transform t;
    while (!s.done()) {
        std::size_t const name_start = s.at;
        while (s.at < text.size() && std::isalpha(static_cast<unsigned char>(text[s.at]))) {
            ++s.at;
        }
        auto const name = text.substr(name_start, s.at - name_start);
        s.skip_space();
        if (s.at >= text.size() || text[s.at] != '(') {
            return std::nullopt;
        }
        ++s.at;
        std::vector<double> args;
        for (;;) {
            s.skip_separator();
            if (s.at < text.size() && text[s.at] == ')') {
                ++s.at;
                break;
            }
            auto v = s.number();
            if (!v) {
                return std::nullopt;
            }
            args.push_back(*v);
        }
        auto const n = args.size();
        transform m;
        double const rad = n > 0 ? args[0] * std::numbers::pi / 180 : 0;
        if (name == "matrix" && n == 6) {
            m = {args[0], args[1], args[2], args[3], args[4], args[5]};
        } else if (name == "translate" && (n == 1 || n == 2)) {
            m = translation(args[0], n == 2 ? args[1] : 0);
        } else if (name == "scale" && (n == 1 || n == 2)) {
            m = scaling(args[0], n == 2 ? args[1] : args[0]);
        } else if (name == "rotate" && (n == 1 || n == 3)) {
            m = {std::cos(rad), std::sin(rad), -std::sin(rad), std::cos(rad), 0, 0};
            if (n == 3) {
                m = then(then(translation(-args[1], -args[2]), m), translation(args[1], args[2]));
            }
        } else if (name == "skewX" && n == 1) {
            m = {1, 0, std::tan(rad), 1, 0, 0};
        } else if (name == "skewY" && n == 1) {
            m = {1, std::tan(rad), 0, 1, 0, 0};
        } else {
            return std::nullopt;
        }
        // Each transform of the list applies inside the ones before it.
        t = then(m, t);
        s.skip_separator();
    }
    return t;
}

result<viewbox> parse_viewbox(std::string_view text) {
    auto v = parse_numbers(text);
    if (!v || v->size() != 4) {
        return fail("svg: invalid value for viewBox attribute");
    }
    if ((*v)[2] < 0) {
        return fail("svg: viewBox width negative.");
    }
    if ((*v)[3] < 0) {
        return fail("svg: viewBox height negative.");
    }
    return viewbox{(*v)[0], (*v)[1], (*v)[2], (*v)[3]};
}

par parse_par(std::string_view text) {
    std::vector<std::string_view> words;
    std::size_t at = 0;
    while (at < text.size()) {
        while (at < text.size() && is_space(text[at])) {
            ++at;
        }
        std::size_t const from = at;
        while (at < text.size() && !is_space(text[at])) {
            ++at;
        }
        if (at > from) {
            words.push_back(text.substr(from, at - from));
        }
    }
    std::size_t i = 0;
    if (i < words.size() && words[i] == "defer") {
        ++i;
    }
    if (i >= words.size()) {
        return {};
    }
    par p;
    if (words[i] == "none") {
        p.align_none = true;
    } else {
        auto const w = words[i];
        auto const pos = [](std::string_view s) -> std::optional<align_pos> {
            if (s == "Min") {
                return align_pos::min;
            }
            if (s == "Mid") {
                return align_pos::mid;
            }
            if (s == "Max") {
                return align_pos::max;
            }
            return std::nullopt;
        };
        if (w.size() != 8 || w[0] != 'x' || w[4] != 'Y') {
            return {};
        }
        auto const x = pos(w.substr(1, 3));
        auto const y = pos(w.substr(5, 3));
        if (!x || !y) {
            return {};
        }
        p.x_align = *x;
        p.y_align = *y;
    }
    ++i;
    if (i < words.size()) {
        if (words[i] == "slice") {
            p.slice = true;
        } else if (words[i] != "meet") {
            return {};
        }
        ++i;
    }
    if (i != words.size()) {
        return {};
    }
    return p;
}

} // namespace vellum::svg::path_data
