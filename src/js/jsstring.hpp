// Script strings: immutable arrays of Unicode code points (one element per code point, never UTF-16
// units), converted from and to the UTF-8 text of the rest of the program at the boundary.
#pragma once

#include <compare>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace vellum::jsstring {

/// The storage behind script strings. A buffer is shared by every string that is a prefix of its
/// contents; `used` only grows, and elements below `used` never change, so each string sees a fixed
/// text. That lets `s += t` append in place when `s` ends where the buffer's contents end and there is
/// room, which makes a loop of appends linear instead of quadratic. The elements never move (the
/// buffer does not reallocate), so views handed out stay valid while a string holds the buffer.
struct text_buffer {
    std::size_t used = 0;
    std::size_t capacity = 0;
    std::unique_ptr<char32_t[]> data;
};

/// A script string. `length`, indices, `charAt` and `charCodeAt` count code points; a supplementary
/// character is one element. NUL is an ordinary element. Equality and ordering are by code point.
/// Copies share the buffer, so passing strings around the run loop costs a reference count.
class js_string {
public:
    js_string() = default;
    explicit js_string(std::u32string_view text);
    explicit js_string(std::u32string const& text) : js_string(std::u32string_view(text)) {}
    explicit js_string(char32_t const* text) : js_string(std::u32string_view(text)) {}

    std::u32string_view code_points() const { return {buf_ ? buf_->data.get() : nullptr, len_}; }
    std::u32string text() const { return std::u32string(code_points()); }
    std::size_t length() const { return len_; }
    bool empty() const { return len_ == 0; }
    char32_t operator[](std::size_t i) const { return buf_->data[i]; }
    bool operator==(js_string const& other) const { return code_points() == other.code_points(); }
    std::strong_ordering operator<=>(js_string const& other) const;

    friend js_string concat(js_string const& a, js_string const& b);

private:
    js_string(std::shared_ptr<text_buffer> buf, std::size_t len) : buf_(std::move(buf)), len_(len) {}

    std::shared_ptr<text_buffer> buf_;
    std::size_t len_ = 0;
};

/// The longest string scripts may make (a gibibyte of code points); operations that would exceed it throw
/// a RangeError rather than exhaust memory.
inline constexpr std::size_t max_length = std::size_t{1} << 28;

/// Decodes UTF-8; invalid sequences become U+FFFD.
js_string from_utf8(std::string_view text);

/// Encodes as UTF-8. Lone surrogates (which `"\uD800"` can make) become U+FFFD, since UTF-8 cannot
/// carry them.
std::string to_utf8(js_string const& text);

/// Whether the string holds a NUL code point (such a string cannot be a plain UTF-8 property key).
bool has_nul(js_string const& text);

/// `a` followed by `b`; amortised in the length of `b` when `a` was itself the last string appended to.
js_string concat(js_string const& a, js_string const& b);

} // namespace vellum::jsstring
