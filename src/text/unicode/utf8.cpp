#include "text/unicode/utf8.hpp"

namespace vellum::unicode::utf8 {

expected<std::u32string, decode_error> decode_utf8(std::string_view text) {
    std::u32string out;
    out.reserve(text.size());
    std::size_t i = 0;
    auto const n = text.size();
    while (i < n) {
        auto const start = i;
        auto const lead = static_cast<std::uint8_t>(text[i]);
        if (lead < 0x80) {
            out.push_back(lead);
            ++i;
            continue;
        }
        // The lead byte gives the length and the payload bits; C0, C1 and F5..FF never lead.
        int extra = 0;
        char32_t cp = 0;
        char32_t min = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            extra = 1;
            cp = lead & 0x1F;
            min = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            extra = 2;
            cp = lead & 0x0F;
            min = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            extra = 3;
            cp = lead & 0x07;
            min = 0x10000;
        } else {
            return unexpected<decode_error>(decode_error{encoding_error::invalid_sequence, start});
        }
        ++i;
        for (int k = 0; k < extra; ++k, ++i) {
            if (i == n) {
                return unexpected<decode_error>(decode_error{encoding_error::unexpected_eof, start});
            }
            auto const b = static_cast<std::uint8_t>(text[i]);
            if ((b & 0xC0) != 0x80) {
                return unexpected<decode_error>(decode_error{encoding_error::invalid_sequence, start});
            }
            cp = (cp << 6) | (b & 0x3F);
        }
        // Overlong forms would give a second spelling of the same text; surrogates are not characters.
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            return unexpected<decode_error>(decode_error{encoding_error::invalid_sequence, start});
        }
        out.push_back(cp);
    }
    return out;
}

expected<std::u32string, decode_error> decode_utf8(bytes::bytes const& data) {
    return decode_utf8(data.chars());
}

std::string encode_utf8(std::u32string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char32_t cp : text) {
        if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

} // namespace vellum::unicode::utf8
