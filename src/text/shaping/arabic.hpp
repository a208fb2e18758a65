// Arabic and Syriac joining: which form (isolated, initial, medial, final) each letter takes, from the
// joining types of its neighbours, with transparent marks passed over.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace vellum::shaping::arabic {

/// The contextual form of a character; `none` for characters that take no form (marks, non-joining).
enum class form : std::uint8_t { none, isol, fina, medi, init };

/// The form of each character of a run in logical order.
std::vector<form> joining_forms(std::u32string_view text);

} // namespace vellum::shaping::arabic
