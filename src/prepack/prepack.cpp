#include "prepack/prepack.hpp"

#include "util/result.hpp"

#include <algorithm>
#include <limits>

namespace vellum::prepack {

// Written out rather than defaulted: clang (14 to 16) crashes on a defaulted comparison of a record that
// holds vectors of the variant that holds the record.
bool script_func::operator==(script_func const& o) const {
    return script_func_name == o.script_func_name && script_func_args == o.script_func_args;
}

// These records hold lists of blocks or spans, which are complete only here.
// Spans and blocks, variants of recursive records, are compared alternative by alternative here, in one
// place, rather than by the standard variant's operator== at every use: its instantiation over these
// types is more than some compilers can take.
template <class Variant>
static bool same_alternative(Variant const& a, Variant const& b) {
    if (a.index() != b.index()) {
        return false;
    }
    return std::visit([&b](auto const& x) { return x == std::get<std::decay_t<decltype(x)>>(b); }, a);
}

bool operator==(span const& a, span const& b) {
    return same_alternative<span_alternative>(a, b);
}

bool block::operator==(block const& o) const {
    return same_alternative(block_content, o.block_content) && block_style == o.block_style &&
           block_type == o.block_type && block_bg == o.block_bg;
}

bool nested_span::operator==(nested_span const&) const = default;
bool footnote::operator==(footnote const&) const = default;
bool inline_footnote::operator==(inline_footnote const&) const = default;
bool list_item::operator==(list_item const&) const = default;
bool blocks_with_column::operator==(blocks_with_column const&) const = default;
bool table_anony_box::operator==(table_anony_box const&) const = default;
bool computed_table_anony_box::operator==(computed_table_anony_box const&) const = default;
bool bcontent_blocks::operator==(bcontent_blocks const&) const = default;

std::u32string_view text_of(std::u32string_view text, text_range r) {
    check(std::size_t{r.text_offset} + r.text_length <= text.size(), "text_of");
    return text.substr(r.text_offset, r.text_length);
}

std::u32string_view text_of(para_text const& text, text_range r) {
    if (r.text_length == 0) {
        return {};
    }
    check(text != nullptr, "text_of");
    return text_of(*text, r);
}

text_range sub_range(text_range r, std::size_t from, std::size_t count) {
    check(from <= r.text_length && count <= r.text_length - from, "sub_range");
    return {.text_offset = r.text_offset + static_cast<std::uint32_t>(from),
            .text_length = static_cast<std::uint32_t>(count)};
}

text_range append_text(textbuf::textbuf& text, std::u32string_view more) {
    // Offsets are 32 bits: four thousand million code points of text in one document.
    check(text.size() + more.size() <= std::numeric_limits<std::uint32_t>::max(), "append_text");
    text_range const r{.text_offset = static_cast<std::uint32_t>(text.size()),
                       .text_length = static_cast<std::uint32_t>(more.size())};
    text.append(more);
    return r;
}

block_list::block_list(std::vector<block> blocks)
    : list_rest(blocks.empty() ? nullptr : std::make_shared<std::vector<block> const>(std::move(blocks))) {}

block_list::block_list(std::vector<block> head, block_list const& rest, std::size_t from)
    : list_head(std::move(head)) {
    // The rest's own head blocks past `from` are copied (there are few); its shared list is kept.
    std::size_t const own = rest.list_head.size();
    for (std::size_t i = from; i < own; ++i) {
        list_head.push_back(rest.list_head[i]);
    }
    list_rest = rest.list_rest;
    list_from = rest.list_from + (from > own ? from - own : 0);
}

std::size_t block_list::size() const {
    std::size_t const shared = list_rest ? list_rest->size() - std::min(list_from, list_rest->size()) : 0;
    return list_head.size() + shared;
}

block const& block_list::operator[](std::size_t i) const {
    if (i < list_head.size()) {
        return list_head[i];
    }
    return (*list_rest)[list_from + i - list_head.size()];
}

block_list block_list::suffix(std::size_t from) const {
    return block_list({}, *this, from);
}

block& block_list::own_front() {
    if (list_head.empty()) {
        list_head.push_back((*list_rest)[list_from]);
        ++list_from;
    }
    return list_head.front();
}

bool block_list::operator==(block_list const& other) const {
    if (size() != other.size()) {
        return false;
    }
    for (std::size_t i = 0; i < size(); ++i) {
        if (!((*this)[i] == other[i])) {
            return false;
        }
    }
    return true;
}

} // namespace vellum::prepack
