#include "mathml/datafile.hpp"

#include "resource/loader.hpp"

#include <cstdlib>

namespace vellum::mathml::datafile {

namespace {

// Appends the UTF-8 form of a code point.
void put_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xc0 | (c >> 6));
        out += char(0x80 | (c & 0x3f));
    } else if (c < 0x10000) {
        out += char(0xe0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3f));
        out += char(0x80 | (c & 0x3f));
    } else {
        out += char(0xf0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3f));
        out += char(0x80 | ((c >> 6) & 0x3f));
        out += char(0x80 | (c & 0x3f));
    }
}

result<std::string> unescape(std::string_view v) {
    std::string out;
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (v[i] != '&') {
            out += v[i];
            continue;
        }
        auto const end = v.find(';', i);
        if (end == std::string_view::npos) {
            return fail("unterminated entity");
        }
        auto const name = v.substr(i + 1, end - i - 1);
        if (name == "amp") {
            out += '&';
        } else if (name == "lt") {
            out += '<';
        } else if (name == "gt") {
            out += '>';
        } else if (name == "quot") {
            out += '"';
        } else if (name == "apos") {
            out += '\'';
        } else if (name.size() > 1 && name[0] == '#') {
            bool const hex = name[1] == 'x' || name[1] == 'X';
            auto const digits = std::string(name.substr(hex ? 2 : 1));
            char* stop = nullptr;
            auto const c = std::strtoul(digits.c_str(), &stop, hex ? 16 : 10);
            if (digits.empty() || *stop != 0 || c > 0x10ffff) {
                return fail("bad character reference &" + std::string(name) + ";");
            }
            put_utf8(out, char32_t(c));
        } else {
            return fail("unknown entity &" + std::string(name) + ";");
        }
        i = end;
    }
    return out;
}

struct scanner {
    std::string_view text;
    std::size_t at = 0;

    void skip_space() {
        while (at < text.size() &&
               (text[at] == ' ' || text[at] == '\n' || text[at] == '\t' || text[at] == '\r')) {
            ++at;
        }
    }

    // Skips text, comments, declarations and processing instructions up to the next tag.
    result<bool> next_tag() {
        for (;;) {
            auto const lt = text.find('<', at);
            if (lt == std::string_view::npos) {
                at = text.size();
                return false;
            }
            at = lt;
            if (text.substr(at, 4) == "<!--") {
                auto const end = text.find("-->", at + 4);
                if (end == std::string_view::npos) {
                    return fail("unclosed comment");
                }
                at = end + 3;
            } else if (text.substr(at, 2) == "<?" || text.substr(at, 2) == "<!") {
                auto const end = text.find('>', at);
                if (end == std::string_view::npos) {
                    return fail("unclosed declaration");
                }
                at = end + 1;
            } else {
                return true;
            }
        }
    }

    // Reads the elements up to the end tag of the parent (or the end of the text at the top).
    result<std::vector<element>> elements(bool top) {
        std::vector<element> out;
        for (;;) {
            auto more = next_tag();
            if (!more) {
                return fail(more.error());
            }
            if (!*more) {
                if (!top) {
                    return fail("unexpected end of file");
                }
                return out;
            }
            if (text.substr(at, 2) == "</") {
                auto const end = text.find('>', at);
                if (end == std::string_view::npos) {
                    return fail("unclosed end tag");
                }
                at = end + 1;
                if (top) {
                    return fail("unexpected end tag");
                }
                return out;
            }
            ++at;
            element e;
            while (at < text.size() && text[at] != ' ' && text[at] != '>' && text[at] != '/' &&
                   text[at] != '\n' && text[at] != '\t' && text[at] != '\r') {
                e.element_name += text[at++];
            }
            bool empty = false;
            for (;;) {
                skip_space();
                if (at >= text.size()) {
                    return fail("unclosed tag <" + e.element_name + ">");
                }
                if (text[at] == '/') {
                    empty = true;
                    ++at;
                    continue;
                }
                if (text[at] == '>') {
                    ++at;
                    break;
                }
                auto const eq = text.find('=', at);
                if (eq == std::string_view::npos || eq + 1 >= text.size()) {
                    return fail("bad attribute in <" + e.element_name + ">");
                }
                auto name = std::string(text.substr(at, eq - at));
                while (!name.empty() && name.back() == ' ') {
                    name.pop_back();
                }
                at = eq + 1;
                skip_space();
                char const q = at < text.size() ? text[at] : 0;
                if (q != '"' && q != '\'') {
                    return fail("unquoted attribute " + name);
                }
                auto const close = text.find(q, at + 1);
                if (close == std::string_view::npos) {
                    return fail("unclosed quote in attribute " + name);
                }
                auto value = unescape(text.substr(at + 1, close - at - 1));
                if (!value) {
                    return fail(value.error());
                }
                e.element_attributes[name] = std::move(*value);
                at = close + 1;
            }
            if (!empty) {
                auto inner = elements(false);
                if (!inner) {
                    return fail(inner.error());
                }
                e.element_children = std::move(*inner);
            }
            out.push_back(std::move(e));
        }
    }
};

} // namespace

result<std::vector<element>> parse_elements(std::string_view text) {
    scanner s{.text = text};
    auto all = s.elements(true);
    if (!all) {
        return fail(all.error());
    }
    if (all->size() != 1) {
        return fail("expected one root element");
    }
    return std::move(all->front().element_children);
}

result<std::string>
read_system_file(log::log const& log, resource::loader::loader const& l, std::string const& name) {
    resource::locator::locator const loc{.locator_url = resource::locator::file{{name}, std::nullopt},
                                         .locator_origin = resource::locator::locator_origin::system_origin};
    auto r = resource::loader::load_resource(log, l, resource::loader::resource_description::document, loc);
    if (!r) {
        return fail(r.error());
    }
    auto b = resource::loader::resource_to_bytes(r->resource_data);
    if (!b) {
        return fail(b.error());
    }
    auto const v = b->view();
    return std::string(reinterpret_cast<char const*>(v.data()), v.size());
}

std::optional<std::string> attribute(element const& e, std::string const& name) {
    auto const it = e.element_attributes.find(name);
    if (it == e.element_attributes.end()) {
        return std::nullopt;
    }
    return it->second;
}

} // namespace vellum::mathml::datafile
