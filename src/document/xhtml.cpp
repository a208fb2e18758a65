#include "document/xhtml.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <cctype>

namespace vellum::xhtml {

namespace {

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

std::string to_lower(std::string text) {
    for (char& c : text) {
        c = char(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// The joined text of the element's own text children.
std::string child_text(xml::element const& e) {
    std::string out;
    for (auto const& child : e.element_children) {
        if (auto const* t = std::get_if<xml::text>(&child)) {
            out += t->text_value;
        }
    }
    return out;
}

// The content of the first scheme-less meta of that name.
std::optional<std::string> meta_content(xhtml const& head, std::string_view name) {
    for (auto const& [key, content] : head.xhtml_meta) {
        if (auto const* plain = std::get_if<meta_name>(&key); plain && plain->meta_name_value == name) {
            return collapse_white_space(content);
        }
    }
    return std::nullopt;
}

// Reads exactly `count` digits.
std::optional<int> read_digits(std::string_view& text, std::size_t count) {
    if (text.size() < count) {
        return std::nullopt;
    }
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
            return std::nullopt;
        }
        value = value * 10 + (text[i] - '0');
    }
    text.remove_prefix(count);
    return value;
}

bool take(std::string_view& text, char c) {
    if (!text.empty() && text.front() == c) {
        text.remove_prefix(1);
        return true;
    }
    return false;
}

} // namespace

std::string collapse_white_space(std::string_view text) {
    std::string out;
    bool pending_blank = false;
    for (char c : text) {
        if (is_space(c)) {
            pending_blank = !out.empty();
            continue;
        }
        if (pending_blank) {
            out += ' ';
            pending_blank = false;
        }
        out += c;
    }
    return out;
}

xhtml read_head(xml::document const& doc) {
    xhtml out;
    auto const& root = doc.doc_root;
    if (xml::name_local(root.element_name) != "html") {
        return out;
    }
    auto const root_ns = xml::name_namespace(root.element_name);
    xml::element const* head = nullptr;
    for (auto const& child : root.element_children) {
        if (auto const* e = std::get_if<xml::element>(&child)) {
            if (xml::name_local(e->element_name) == "head" &&
                xml::name_namespace(e->element_name) == root_ns) {
                head = e;
                break;
            }
        }
    }
    if (!head) {
        return out;
    }
    // Attributes of head elements are matched in no namespace, as both HTML and XHTML write them.
    auto attr = [](xml::element const& e, std::string_view n) {
        return xml::find_attribute(e, xml::make_name(n));
    };
    for (auto const& child : head->element_children) {
        auto const* e = std::get_if<xml::element>(&child);
        if (!e || xml::name_namespace(e->element_name) != root_ns) {
            continue;
        }
        auto const& local = xml::name_local(e->element_name);
        if (local == "title") {
            out.xhtml_title = child_text(*e);
        } else if (local == "meta") {
            auto const name = attr(*e, "name");
            auto const content = attr(*e, "content");
            if (name && content) {
                auto const scheme = attr(*e, "scheme");
                meta key = scheme ? meta{meta_scheme_name{*scheme, to_lower(*name)}}
                                  : meta{meta_name{to_lower(*name)}};
                out.xhtml_meta.emplace_back(std::move(key), *content);
            }
        } else if (local == "base") {
            if (auto const href = attr(*e, "href")) {
                out.xhtml_base = *href;
            }
        }
    }
    return out;
}

metadata::metadata head_metadata(xhtml const& head) {
    metadata::metadata out;
    if (head.xhtml_title) {
        out.title = collapse_white_space(*head.xhtml_title);
    }
    out.subject = meta_content(head, "subject");
    out.author = meta_content(head, "author");
    if (auto const keywords = meta_content(head, "keywords")) {
        out.keywords = metadata::split_keywords(*keywords);
    }
    out.creator = meta_content(head, "generator");
    if (auto const date = meta_content(head, "date")) {
        out.creation_date = parse_iso_date(*date);
    }
    return out;
}

metadata::metadata merge_metadata(metadata::metadata const& given, metadata::metadata const& from_head) {
    auto fill = [](std::optional<std::string> const& mine, std::optional<std::string> const& other) {
        return mine && !mine->empty() ? mine : other;
    };
    metadata::metadata out = given;
    out.title = fill(given.title, from_head.title);
    out.subject = fill(given.subject, from_head.subject);
    out.author = fill(given.author, from_head.author);
    out.creator = fill(given.creator, from_head.creator);
    if (given.keywords.empty()) {
        out.keywords = from_head.keywords;
    }
    if (!given.creation_date) {
        out.creation_date = from_head.creation_date;
    }
    return out;
}

std::optional<metadata::date> parse_iso_date(std::string_view text) {
    metadata::date out;
    auto const year = read_digits(text, 4);
    if (!year) {
        return std::nullopt;
    }
    out.year = *year;
    if (take(text, '-')) {
        auto const month = read_digits(text, 2);
        if (!month || *month < 1 || *month > 12) {
            return std::nullopt;
        }
        out.month = *month;
        if (take(text, '-')) {
            auto const day = read_digits(text, 2);
            if (!day || *day < 1 || *day > 31) {
                return std::nullopt;
            }
            out.day = *day;
            if (take(text, 'T')) {
                auto const hour = read_digits(text, 2);
                if (!hour || !take(text, ':')) {
                    return std::nullopt;
                }
                auto const minute = read_digits(text, 2);
                if (!minute || *hour > 23 || *minute > 59) {
                    return std::nullopt;
                }
                metadata::time_of_day t{.hour = *hour, .minute = *minute};
                if (take(text, ':')) {
                    auto const second = read_digits(text, 2);
                    if (!second || *second > 60) {
                        return std::nullopt;
                    }
                    t.second = *second;
                    // Fractions of a second are dropped.
                    if (take(text, '.')) {
                        while (!text.empty() && std::isdigit(static_cast<unsigned char>(text.front()))) {
                            text.remove_prefix(1);
                        }
                    }
                }
                out.time = t;
                // The metadata carries no zone: "Z" or "+hh:mm" is accepted and dropped.
                if (!take(text, 'Z') && !text.empty() && (text.front() == '+' || text.front() == '-')) {
                    text.remove_prefix(1);
                    if (!read_digits(text, 2) || !take(text, ':') || !read_digits(text, 2)) {
                        return std::nullopt;
                    }
                }
            }
        }
    }
    if (!text.empty()) {
        return std::nullopt;
    }
    return out;
}

} // namespace vellum::xhtml
