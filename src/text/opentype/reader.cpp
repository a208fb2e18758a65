#include "text/opentype/reader.hpp"

namespace vellum::opentype::reader {

std::string tag_text(tag t) {
    std::string s(4, ' ');
    for (int i = 0; i < 4; ++i) {
        s[i] = char((t >> (24 - 8 * i)) & 0xff);
    }
    return s;
}

bool cursor::has(std::size_t count) const {
    return !cursor_overrun && cursor_pos <= cursor_data.size() && cursor_data.size() - cursor_pos >= count;
}

std::uint8_t cursor::u8() {
    if (!has(1)) {
        cursor_overrun = true;
        return 0;
    }
    return cursor_data[cursor_pos++];
}

std::uint16_t cursor::u16() {
    if (!has(2)) {
        cursor_overrun = true;
        return 0;
    }
    auto const* p = cursor_data.data() + cursor_pos;
    cursor_pos += 2;
    return std::uint16_t((p[0] << 8) | p[1]);
}

std::uint32_t cursor::u24() {
    if (!has(3)) {
        cursor_overrun = true;
        return 0;
    }
    auto const* p = cursor_data.data() + cursor_pos;
    cursor_pos += 3;
    return (std::uint32_t(p[0]) << 16) | (std::uint32_t(p[1]) << 8) | p[2];
}

std::uint32_t cursor::u32() {
    if (!has(4)) {
        cursor_overrun = true;
        return 0;
    }
    auto const* p = cursor_data.data() + cursor_pos;
    cursor_pos += 4;
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) | p[3];
}

void cursor::skip(std::size_t count) {
    if (!has(count)) {
        cursor_overrun = true;
        return;
    }
    cursor_pos += count;
}

void cursor::seek(std::size_t offset) {
    if (offset > cursor_data.size()) {
        cursor_overrun = true;
        return;
    }
    cursor_pos = offset;
}

data cursor::rest() const {
    if (cursor_overrun || cursor_pos > cursor_data.size()) {
        return {};
    }
    return cursor_data.subspan(cursor_pos);
}

cursor cursor_at(data d, std::size_t offset) {
    cursor c{.cursor_data = d};
    c.seek(offset);
    return c;
}

std::optional<data> slice(data d, std::size_t offset, std::size_t length) {
    if (offset > d.size() || d.size() - offset < length) {
        return std::nullopt;
    }
    return d.subspan(offset, length);
}

std::optional<std::uint16_t> read_u16(data d, std::size_t offset) {
    auto c = cursor_at(d, offset);
    auto v = c.u16();
    if (!c.ok()) {
        return std::nullopt;
    }
    return v;
}

std::optional<std::uint32_t> read_u32(data d, std::size_t offset) {
    auto c = cursor_at(d, offset);
    auto v = c.u32();
    if (!c.ok()) {
        return std::nullopt;
    }
    return v;
}

} // namespace vellum::opentype::reader
