#include "resource/resource.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <array>

namespace vellum::resource {
namespace {

std::string_view trim(std::string_view s) {
    auto const blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!s.empty() && blank(s.front())) {
        s.remove_prefix(1);
    }
    while (!s.empty() && blank(s.back())) {
        s.remove_suffix(1);
    }
    return s;
}

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c);
    });
    return out;
}

// A parameter value may be a quoted string, in which a backslash escapes the next character.
std::string unquote(std::string_view v) {
    if (v.size() < 2 || v.front() != '"' || v.back() != '"') {
        return std::string(v);
    }
    std::string out;
    for (std::size_t i = 1; i + 1 < v.size(); ++i) {
        if (v[i] == '\\' && i + 2 < v.size()) {
            ++i;
        }
        out.push_back(v[i]);
    }
    return out;
}

struct category_entry {
    std::string_view mimetype;
    resource_category category;
};

} // namespace

resource_category category_of_mimetype(std::string_view mimetype) {
    static std::array<category_entry, 19> const table{{
        {"application/javascript", javascript{}},
        {"application/x-javascript", javascript{}},
        {"application/xhtml", xhtml{}},
        {"application/xhtml+xml", xhtml{}},
        {"application/xml", xml{}},
        {"image/gif", image{image_format::gif}},
        {"image/jpeg", image{image_format::jpeg}},
        {"image/jpg", image{image_format::jpeg}},
        {"image/pjpeg", image{image_format::jpeg}},
        {"image/png", image{image_format::png}},
        {"image/svg+xml", svg{}},
        {"image/svg-xml", svg{}},
        {"image/tiff", image{image_format::tiff}},
        {"image/x-png", image{image_format::png}},
        {"text/css", css{}},
        {"text/ecmascript", javascript{}},
        {"text/html", html{}},
        {"text/javascript", javascript{}},
        {"text/xml", xml{}},
    }};
    for (auto const& e : table) {
        if (e.mimetype == mimetype) {
            return e.category;
        }
    }
    return unknown{};
}

resource_encoding encoding_of_charset(std::string_view charset) {
    std::string const name = lower(trim(charset));
    if (name == "utf-8") {
        return utf8{};
    }
    if (name == "iso-8859-1" || name == "latin1") {
        return iso_8859_1{};
    }
    if (name == "us-ascii") {
        return ascii{};
    }
    return unknown_encoding{name};
}

resource_type parse_resource_type(std::string_view text) {
    resource_type type;
    bool first = true;
    while (true) {
        auto const semi = text.find(';');
        std::string_view const part = trim(text.substr(0, semi));
        if (first) {
            type.mimetype = lower(part);
            first = false;
        } else if (!part.empty()) {
            auto const eq = part.find('=');
            std::string const name = lower(trim(part.substr(0, eq)));
            std::string const value = eq == std::string_view::npos ? "" : unquote(trim(part.substr(eq + 1)));
            if (name == "charset" && !type.resource_encoding) {
                type.resource_encoding = encoding_of_charset(value);
            }
            type.mimetype_params.emplace_back(name, value);
        }
        if (semi == std::string_view::npos) {
            break;
        }
        text.remove_prefix(semi + 1);
    }
    type.category = category_of_mimetype(type.mimetype);
    return type;
}

std::string resource_type_to_string(resource_type const& type) {
    std::string out = type.mimetype.empty() ? "(no type)" : type.mimetype;
    for (auto const& [name, value] : type.mimetype_params) {
        out += "; " + name + "=" + value;
    }
    return out;
}

std::string category_to_string(resource_category const& category) {
    return std::visit(overloaded{
                          [](css const&) -> std::string { return "css"; },
                          [](html const&) -> std::string { return "html"; },
                          [](xhtml const&) -> std::string { return "xhtml"; },
                          [](xml const&) -> std::string { return "xml"; },
                          [](svg const&) -> std::string { return "svg"; },
                          [](image const& i) -> std::string {
                              switch (i.image_format) {
                              case image_format::gif:
                                  return "image/gif";
                              case image_format::jpeg:
                                  return "image/jpeg";
                              case image_format::png:
                                  return "image/png";
                              case image_format::tiff:
                                  return "image/tiff";
                              }
                              return "image";
                          },
                          [](font const&) -> std::string { return "font"; },
                          [](javascript const&) -> std::string { return "javascript"; },
                          [](unknown const&) -> std::string { return "unknown"; },
                      },
                      category);
}

} // namespace vellum::resource
