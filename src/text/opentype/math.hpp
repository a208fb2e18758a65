// The OpenType MATH table: the constants that place fractions, scripts, limits and radicals, italic
// corrections, and the larger variants and part assemblies from which stretchy glyphs are built.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace vellum::opentype::math {

/// The constants of the table, in the order the table stores them.
enum class constant : std::uint8_t {
    script_percent_scale_down,
    script_script_percent_scale_down,
    delimited_sub_formula_min_height,
    display_operator_min_height,
    math_leading,
    axis_height,
    accent_base_height,
    flattened_accent_base_height,
    subscript_shift_down,
    subscript_top_max,
    subscript_baseline_drop_min,
    superscript_shift_up,
    superscript_shift_up_cramped,
    superscript_bottom_min,
    superscript_baseline_drop_max,
    sub_superscript_gap_min,
    superscript_bottom_max_with_subscript,
    space_after_script,
    upper_limit_gap_min,
    upper_limit_baseline_rise_min,
    lower_limit_gap_min,
    lower_limit_baseline_drop_min,
    stack_top_shift_up,
    stack_top_display_style_shift_up,
    stack_bottom_shift_down,
    stack_bottom_display_style_shift_down,
    stack_gap_min,
    stack_display_style_gap_min,
    stretch_stack_top_shift_up,
    stretch_stack_bottom_shift_down,
    stretch_stack_gap_above_min,
    stretch_stack_gap_below_min,
    fraction_numerator_shift_up,
    fraction_numerator_display_style_shift_up,
    fraction_denominator_shift_down,
    fraction_denominator_display_style_shift_down,
    fraction_numerator_gap_min,
    fraction_num_display_style_gap_min,
    fraction_rule_thickness,
    fraction_denominator_gap_min,
    fraction_denom_display_style_gap_min,
    skewed_fraction_horizontal_gap,
    skewed_fraction_vertical_gap,
    overbar_vertical_gap,
    overbar_rule_thickness,
    overbar_extra_ascender,
    underbar_vertical_gap,
    underbar_rule_thickness,
    underbar_extra_descender,
    radical_vertical_gap,
    radical_display_style_vertical_gap,
    radical_rule_thickness,
    radical_extra_ascender,
    radical_kern_before_degree,
    radical_kern_after_degree,
    radical_degree_bottom_raise_percent,
};

inline constexpr std::size_t constant_count = 56;

/// One larger form of a glyph and its size along the direction of stretching (font units).
struct variant {
    std::uint16_t variant_glyph = 0;
    std::uint16_t variant_advance = 0;
    bool operator==(variant const&) const = default;
};

/// A piece of an assembled glyph: the connectors are the lengths at each end that may overlap the
/// neighbouring piece; an extender may be repeated.
struct part {
    std::uint16_t part_glyph = 0;
    std::uint16_t part_start_connector = 0;
    std::uint16_t part_end_connector = 0;
    std::uint16_t part_full_advance = 0;
    bool part_extender = false;
    bool operator==(part const&) const = default;
};

/// The ways to make a glyph larger in one direction: ready variants, smallest first, and an assembly
/// of parts (bottom to top, or left to right) for sizes beyond them.
struct construction {
    std::vector<variant> construction_variants;
    std::vector<part> construction_parts;
    bool operator==(construction const&) const = default;
};

/// What the table says, in font units.
struct math_table {
    std::array<std::int16_t, constant_count> math_constants{};
    std::uint16_t min_connector_overlap = 0;
    std::map<std::uint16_t, std::int16_t> italics_corrections;
    std::map<std::uint16_t, std::int16_t> top_accent_attachments;
    std::map<std::uint16_t, construction> vertical_constructions;
    std::map<std::uint16_t, construction> horizontal_constructions;
    bool operator==(math_table const&) const = default;
};

/// Reads a MATH table; a table too short for its header or constants is an error.
[[nodiscard]] result<math_table> parse_math(reader::data d);

/// A constant's value (a percentage for the scale-down and raise-percent entries).
inline int value_of(math_table const& t, constant c) {
    return t.math_constants[std::size_t(c)];
}

/// A fixed assembly: how many times each extender repeats and how much the pieces overlap.
struct assembly_plan {
    /// The glyphs bottom to top (left to right), with the offset of each from the start.
    std::vector<std::pair<std::uint16_t, double>> plan_glyphs;
    /// The size reached.
    double plan_size = 0;
    bool operator==(assembly_plan const&) const = default;
};

/// Plans an assembly of at least `target` units with overlaps of at least `min_overlap`; nothing for an
/// assembly without parts.
[[nodiscard]] std::optional<assembly_plan>
plan_assembly(std::vector<part> const& parts, double target, double min_overlap);

} // namespace vellum::opentype::math
