// The small languages of SVG attributes: path data, number lists and point lists, transform lists,
// viewBox and preserveAspectRatio. Each parser returns its value and the warnings it met, so that the
// builder logs them against the file they came from.
#pragma once

#include "svg/svg.hpp"
#include "util/result.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::svg::path_data {

/// Path commands and what went wrong; on an error the commands read before it are kept.
struct parsed_path {
    std::vector<command> path_commands;
    std::vector<std::string> path_warnings;
};

/// Parses the `d` attribute of a path: every command, arcs converted to their centre form, quadratic
/// curves raised to cubics.
parsed_path parse_path(std::string_view d);

/// The arc from `from` to `to` with the endpoint parameters of SVG, as a centre arc; a line when a radius
/// is zero; nothing when the endpoints are equal. `denominator_zero` is set when the centre could not be
/// computed and the arc became a line.
std::vector<command> endpoint_arc(point from,
                                  double rx,
                                  double ry,
                                  double x_rotate_degrees,
                                  bool large_arc,
                                  bool sweep,
                                  point to,
                                  bool& denominator_zero);

/// A list of numbers separated by white space or commas; nothing if one of them is not a number.
[[nodiscard]] std::optional<std::vector<double>> parse_numbers(std::string_view text);

/// A transform list; nothing for an invalid list, which is ignored as a whole.
[[nodiscard]] std::optional<transform> parse_transform(std::string_view text);

/// A viewBox: four numbers; an error message for a bad one.
[[nodiscard]] result<viewbox> parse_viewbox(std::string_view text);

/// A preserveAspectRatio value; a bad one counts as the default.
par parse_par(std::string_view text);

} // namespace vellum::svg::path_data
