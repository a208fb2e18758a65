// Bounds-checked reading of big-endian font data: every read past the end yields zero and marks the
// cursor as overrun, so a table parser reads straight through and checks once at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vellum::opentype::reader {

/// Raw font bytes.
using data = std::span<std::uint8_t const>;

/// A four-byte table or feature tag such as 'head', held big-endian in one integer.
using tag = std::uint32_t;

/// The tag of four characters.
constexpr tag make_tag(char a, char b, char c, char d) {
    return (std::uint32_t(std::uint8_t(a)) << 24) | (std::uint32_t(std::uint8_t(b)) << 16) |
           (std::uint32_t(std::uint8_t(c)) << 8) | std::uint32_t(std::uint8_t(d));
}

/// The tag of a four-character string; shorter strings are padded with blanks.
constexpr tag make_tag(std::string_view s) {
    auto at = [&](std::size_t i) { return i < s.size() ? s[i] : ' '; };
    return make_tag(at(0), at(1), at(2), at(3));
}

/// The four characters of a tag.
std::string tag_text(tag t);

/// A sequential reader over a byte span that never reads outside it.
struct cursor {
    data cursor_data;
    std::size_t cursor_pos = 0;
    /// Set by the first read that did not fit; sticky.
    bool cursor_overrun = false;

    std::uint8_t u8();
    std::int8_t i8() { return std::int8_t(u8()); }
    std::uint16_t u16();
    std::int16_t i16() { return std::int16_t(u16()); }
    std::uint32_t u24();
    std::uint32_t u32();
    std::int32_t i32() { return std::int32_t(u32()); }
    /// Skips bytes; skipping past the end overruns.
    void skip(std::size_t count);
    /// Moves to an absolute offset; an offset beyond the end overruns.
    void seek(std::size_t offset);
    /// Whether count more bytes are there to read.
    bool has(std::size_t count) const;
    /// The bytes left from the current position.
    data rest() const;
    bool ok() const { return !cursor_overrun; }
};

/// A cursor at an offset of the data (overrun at once if the offset lies beyond it).
cursor cursor_at(data d, std::size_t offset);

/// The sub-span [offset, offset + length), or nothing if it does not fit.
[[nodiscard]] std::optional<data> slice(data d, std::size_t offset, std::size_t length);

/// Random-access reads; nothing when out of range.
[[nodiscard]] std::optional<std::uint16_t> read_u16(data d, std::size_t offset);
[[nodiscard]] std::optional<std::uint32_t> read_u32(data d, std::size_t offset);

} // namespace vellum::opentype::reader
