// Strict UTF-8 decoding and encoding of code point lists.
#pragma once

#include "util/bytes.hpp"

#include <cstddef>
#include <cstdint>
#include "util/result.hpp"
#include <string>
#include <string_view>

namespace vellum::unicode::utf8 {

/// Why bytes are not UTF-8: a sequence cut off by the end of the input, or anything else malformed.
enum class encoding_error : std::uint8_t {
    unexpected_eof,
    invalid_sequence,
};

/// The first fault in the input, with the offset of the byte where its sequence starts.
struct decode_error {
    encoding_error decode_error_kind = encoding_error::invalid_sequence;
    std::size_t decode_error_offset = 0;
    bool operator==(decode_error const&) const = default;
};

/// Decodes UTF-8. Overlong forms, surrogates, values above U+10FFFF and stray continuation bytes are
/// `invalid_sequence`; a sequence that the end of input cuts short is `unexpected_eof`.
[[nodiscard]] expected<std::u32string, decode_error> decode_utf8(std::string_view text);

/// The same for a byte block.
[[nodiscard]] expected<std::u32string, decode_error> decode_utf8(bytes::bytes const& data);

/// Encodes code points; surrogates and values above U+10FFFF, which have no UTF-8 form, become U+FFFD.
std::string encode_utf8(std::u32string_view text);

} // namespace vellum::unicode::utf8
