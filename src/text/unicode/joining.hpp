// The joining class of a code point: how Arabic-like scripts connect a letter to its neighbours.
#pragma once

#include <cstdint>

namespace vellum::unicode::joining {

/// How a character joins: on its right side only (it may join the letter before it), on both sides,
/// forcing a join on both neighbours (tatweel, ZWJ), not at all, or transparently (marks are skipped).
enum class joining_class : std::uint8_t {
    jc_right_joining,
    jc_dual_joining,
    jc_join_causing,
    jc_non_joining,
    jc_transparent,
};

/// The joining class. Marks and format characters are transparent unless listed otherwise; the few
/// left-joining letters are taken as non-joining.
joining_class joining_class_of(char32_t cp);

} // namespace vellum::unicode::joining
