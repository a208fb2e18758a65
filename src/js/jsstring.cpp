#include "js/jsstring.hpp"

#include "util/textbuf.hpp"

namespace vellum::jsstring {

std::strong_ordering js_string::operator<=>(js_string const& other) const
{
    return code_points.compare(other.code_points) <=> 0;
}

js_string from_utf8(std::string_view text)
{
    return {.code_points = textbuf::from_utf8(text)};
}

std::string to_utf8(js_string const& text)
{
    return textbuf::to_utf8(text.code_points);
}

bool has_nul(js_string const& text)
{
    return text.code_points.find(U'\0') != std::u32string::npos;
}

js_string concat(js_string const& a, js_string const& b)
{
    if (a.empty())
        return b;
    if (b.empty())
        return a;
    return {.code_points = a.code_points + b.code_points};
}

} // namespace vellum::jsstring
