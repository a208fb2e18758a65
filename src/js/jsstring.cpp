#include "js/jsstring.hpp"

#include <algorithm>

#include "util/textbuf.hpp"

namespace vellum::jsstring {

namespace {

std::shared_ptr<text_buffer> new_buffer(std::size_t capacity)
{
    auto buf = std::make_shared<text_buffer>();
    buf->capacity = capacity;
    buf->data = std::make_unique_for_overwrite<char32_t[]>(capacity);
    return buf;
}

} // namespace

js_string::js_string(std::u32string_view text) : len_(text.size())
{
    if (text.empty())
        return;
    buf_ = new_buffer(text.size());
    std::copy(text.begin(), text.end(), buf_->data.get());
    buf_->used = text.size();
}

std::strong_ordering js_string::operator<=>(js_string const& other) const
{
    return code_points().compare(other.code_points()) <=> 0;
}

js_string from_utf8(std::string_view text)
{
    return js_string(textbuf::from_utf8(text));
}

std::string to_utf8(js_string const& text)
{
    return textbuf::to_utf8(text.code_points());
}

bool has_nul(js_string const& text)
{
    return text.code_points().find(U'\0') != std::u32string_view::npos;
}

js_string concat(js_string const& a, js_string const& b)
{
    if (a.empty())
        return b;
    if (b.empty())
        return a;
    std::size_t const total = a.len_ + b.len_;
    text_buffer& ab = *a.buf_;
    // Append in place when `a` is the buffer's whole contents so far and the room is there. `b` may
    // share the buffer (s + s): its elements lie below `a.len_`, so the copy does not overlap.
    if (ab.used == a.len_ && ab.capacity >= total) {
        std::copy_n(b.buf_->data.get(), b.len_, ab.data.get() + a.len_);
        ab.used = total;
        return js_string(a.buf_, total);
    }
    // A fresh buffer with room to grow, so that a run of appends copies each element a bounded number
    // of times. Short results get no slack: most of them are never appended to.
    std::size_t const capacity = total < 32 ? total : total * 2;
    auto buf = new_buffer(capacity);
    std::copy_n(a.buf_->data.get(), a.len_, buf->data.get());
    std::copy_n(b.buf_->data.get(), b.len_, buf->data.get() + a.len_);
    buf->used = total;
    return js_string(std::move(buf), total);
}

} // namespace vellum::jsstring
