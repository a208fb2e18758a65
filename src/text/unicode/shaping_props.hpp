// Character properties for shaping: canonical combining classes (the order of marks), and the Indic
// syllabic and positional categories and decompositions that Indic shaping works from.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

namespace vellum::unicode::shaping_props {

/// The canonical combining class; 0 for starters.
std::uint8_t combining_class(char32_t cp);

/// The Indic syllabic category, in the order of the data file's values.
enum class syllabic : std::uint8_t {
    other,
    avagraha,
    bindu,
    brahmi_joining_number,
    cantillation_mark,
    consonant,
    consonant_dead,
    consonant_final,
    consonant_head_letter,
    consonant_initial_postfixed,
    consonant_killer,
    consonant_medial,
    consonant_placeholder,
    consonant_preceding_repha,
    consonant_prefixed,
    consonant_subjoined,
    consonant_succeeding_repha,
    consonant_with_stacker,
    gemination_mark,
    invisible_stacker,
    joiner,
    modifying_letter,
    non_joiner,
    nukta,
    number,
    number_joiner,
    pure_killer,
    register_shifter,
    syllable_modifier,
    tone_letter,
    tone_mark,
    virama,
    visarga,
    vowel,
    vowel_dependent,
    vowel_independent,
};

/// Where a dependent sign stands relative to its consonant.
enum class positional : std::uint8_t {
    na,
    bottom,
    bottom_and_left,
    bottom_and_right,
    left,
    left_and_right,
    overstruck,
    right,
    top,
    top_and_bottom,
    top_and_bottom_and_left,
    top_and_bottom_and_right,
    top_and_left,
    top_and_left_and_right,
    top_and_right,
    visual_order_left,
};

/// The syllabic category; `other` outside the Indic blocks and the joiners and placeholders.
syllabic syllabic_category(char32_t cp);

/// The positional category; `na` where none is given.
positional positional_category(char32_t cp);

/// The two characters an Indic character is shaped as: a vowel sign in two parts, or a letter with nukta
/// that composition does not make.
[[nodiscard]] std::optional<std::pair<char32_t, char32_t>> indic_decomposition(char32_t cp);

/// The primary composite of a starter and a combining mark (U+304B and U+3099 make U+304C), if there is one.
[[nodiscard]] std::optional<char32_t> canonical_composition(char32_t first, char32_t second);

} // namespace vellum::unicode::shaping_props
