#include "text/hyph/hyphen_parser.hpp"

#include "driver/log.hpp"
#include "text/unicode/utf8.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace vellum::hyphen_parser {

namespace {

bool is_blank(unicode::unicode c) {
    return c == U' ' || c == U'\r' || c == U'\n' || c == U'\t';
}

std::vector<hyphen_rule>::iterator lower_bound_letter(std::vector<hyphen_rule>& branches,
                                                      unicode::unicode letter) {
    return std::lower_bound(branches.begin(), branches.end(), letter,
                            [](hyphen_rule const& r, unicode::unicode c) { return r.rule_letter < c; });
}

// The branch for a letter, made (in code point order) when it is not there yet.
node_info& branch_for(std::vector<hyphen_rule>& branches, unicode::unicode letter) {
    auto it = lower_bound_letter(branches, letter);
    if (it == branches.end() || it->rule_letter != letter) {
        it = branches.insert(it, hyphen_rule{.rule_letter = letter});
    }
    return it->rule_node;
}

result<std::string> read_file(virtual_path::physical_path const& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(std::fopen(path.path.c_str(), "rb"), &std::fclose);
    if (!f) {
        return fail(std::string("cannot open file: ") + std::strerror(errno));
    }
    std::string data;
    char buffer[65536];
    for (;;) {
        std::size_t const n = std::fread(buffer, 1, sizeof buffer, f.get());
        data.append(buffer, n);
        if (n < sizeof buffer) {
            break;
        }
    }
    if (std::ferror(f.get()) != 0) {
        return fail(std::string("cannot read file: ") + std::strerror(errno));
    }
    return data;
}

} // namespace

std::optional<hyphen_rule0> parse_pattern(std::u32string_view line) {
    hyphen_rule0 pattern;
    bool has_front = false;
    int letters = 0;
    for (unicode::unicode const c : line) {
        if (is_blank(c)) {
            continue;
        }
        if (c == U'.') {
            // A dot before the letters anchors at the word's start, one after them at its end.
            if (letters == 0) {
                has_front = true;
                pattern.pattern_type = pattern_type::front;
            } else {
                pattern.pattern_type = has_front ? pattern_type::whole : pattern_type::end;
            }
            continue;
        }
        if (c >= U'0' && c <= U'9') {
            pattern.hyphen_points.push_back(
                hyphen_point{.point_index = letters, .point_priority = static_cast<int>(c - U'0')});
            continue;
        }
        if (letters == 0) {
            pattern.node = c;
        } else {
            pattern.tail.push_back(c);
        }
        ++letters;
    }
    if (letters == 0 || pattern.hyphen_points.empty()) {
        return std::nullopt;
    }
    return pattern;
}

void add_pattern(hyphen_rules& rules, hyphen_rule0 const& pattern) {
    node_info* node = &branch_for(rules, pattern.node);
    for (unicode::unicode const c : pattern.tail) {
        node = &branch_for(node->branches, c);
    }
    node->endable.push_back(
        hyphen_info{.info_type = pattern.pattern_type, .info_points = pattern.hyphen_points});
}

hyphen_rules parse_patterns(std::u32string_view text) {
    hyphen_rules rules;
    while (!text.empty()) {
        std::size_t const end = text.find(U'\n');
        std::u32string_view const line = text.substr(0, end);
        text.remove_prefix(end == std::u32string_view::npos ? text.size() : end + 1);
        if (auto pattern = parse_pattern(line)) {
            add_pattern(rules, *pattern);
        }
    }
    return rules;
}

node_info const* find_branch(std::vector<hyphen_rule> const& branches, unicode::unicode letter) {
    // Branch lists are short except at the root; a binary search serves both.
    auto const it =
        std::lower_bound(branches.begin(), branches.end(), letter,
                         [](hyphen_rule const& r, unicode::unicode c) { return r.rule_letter < c; });
    if (it == branches.end() || it->rule_letter != letter) {
        return nullptr;
    }
    return &it->rule_node;
}

result<hyphen_rules> read_patterns(log::log const& log, virtual_path::physical_path const& path) {
    log::log_info(log, "loading hyphenation patterns: " + path.path);
    auto data = read_file(path);
    if (!data) {
        return fail(data.error());
    }
    auto text = unicode::utf8::decode_utf8(*data);
    if (!text) {
        return fail("invalid UTF-8 at byte " + std::to_string(text.error().decode_error_offset));
    }
    return parse_patterns(*text);
}

} // namespace vellum::hyphen_parser
