#include "pdf/painted.hpp"

#include "pdf/content.hpp"
#include "text/macroman.hpp"
#include "util/result.hpp"

#include <limits>
#include <optional>
#include <utility>

#include <zlib.h>

namespace vellum::pdf::painted {

namespace {

// Compresses a page's operators for the wait until the file is written. The fastest level does: the
// operators are numbers and a few names that repeat, which even it takes to a fifth or less, and
// every page of the document passes through here. Nothing when zlib cannot start or fails.
std::optional<std::string> packed(std::string_view bytes) {
    z_stream z{};
    if (deflateInit_(&z, Z_BEST_SPEED, ZLIB_VERSION, sizeof(z_stream)) != Z_OK) {
        return std::nullopt;
    }
    std::string out(deflateBound(&z, uLong(bytes.size())), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    z.avail_in = uInt(bytes.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = uInt(out.size());
    int const status = ::deflate(&z, Z_FINISH);
    out.resize(out.size() - z.avail_out);
    deflateEnd(&z);
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    out.shrink_to_fit();
    return out;
}

} // namespace

bool recorder::sink_write(void* target, std::uint8_t const* data, std::size_t size) {
    static_cast<recorder*>(target)->recorder_bytes.append(reinterpret_cast<char const*>(data), size);
    return true;
}

bulkio::output::output recorder::output() {
    return {.output_write = &recorder::sink_write, .output_target = this};
}

recorder* recorder_of(bulkio::output::output const& o) {
    return o.output_write == &recorder::sink_write ? static_cast<recorder*>(o.output_target) : nullptr;
}

void recorder::show(fonts::font_ref const& font, std::span<fonts::glyph const* const> glyphs) {
    auto& c = recorder_content;
    glyph_show s{.show_at = std::uint32_t(recorder_bytes.size()),
                 .show_font = font.get(),
                 .show_first = std::uint32_t(c.content_glyphs.size()),
                 .show_count = std::uint32_t(glyphs.size())};
    for (auto const* gl : glyphs) {
        std::uint8_t mac = '?';
        if (!gl->glyph_unicodes.empty()) {
            mac = macroman::from_unicode(gl->glyph_unicodes.front()).value_or(std::uint8_t('?'));
        }
        glyph_key const key{.key_font = gl->glyph_font_ref.get(), .key_source = gl->glyph_source, .key_macroman = mac};
        auto [it, fresh] = recorder_known.try_emplace(key);
        bool const has_chars = !gl->glyph_unicodes.empty();
        if (fresh || (!it->second.known_chars && has_chars)) {
            // The font's glyph table learns the characters once per page, not at every occurrence: each
            // visit takes the process-wide lock.
            auto index = fonts::record_glyph(gl->glyph_font_ref, gl->glyph_source, gl->glyph_unicodes);
            if (fresh) {
                it->second.known_place = std::uint32_t(c.content_glyph_table.size());
                c.content_glyph_table.push_back({.page_glyph_index = std::move(index), .page_glyph_macroman = mac});
            }
            it->second.known_chars = has_chars;
        }
        c.content_glyphs.push_back(it->second.known_place);
    }
    c.content_shows.push_back(s);
}

recorded_content recorder::take() {
    recorder_known.clear();
    auto out = std::exchange(recorder_content, {});
    // The places of the shows are 32 bits, and so is zlib's count of input.
    check(recorder_bytes.size() <= std::numeric_limits<std::uint32_t>::max(), "recorder::take");
    out.content_size = std::uint32_t(recorder_bytes.size());
    if (auto p = packed(recorder_bytes)) {
        out.content_packed = std::move(*p);
        out.content_compressed = true;
    } else {
        out.content_packed = recorder_bytes;
    }
    recorder_bytes.clear();
    out.content_shows.shrink_to_fit();
    out.content_glyphs.shrink_to_fit();
    out.content_glyph_table.shrink_to_fit();
    return out;
}

std::string show_bytes(recorded_content const& content, glyph_show const& show) {
    auto const encoding = show.show_font->used_font_encoding->get();
    std::string out;
    out.reserve(show.show_count * (encoding == fonts::font_pdf_encoding::identity_encoding ? 2 : 1));
    for (std::uint32_t i = 0; i < show.show_count; ++i) {
        auto const& g = content.content_glyph_table[content.content_glyphs[show.show_first + i]];
        switch (encoding) {
        case fonts::font_pdf_encoding::macroman_encoding:
            out += char(g.page_glyph_macroman);
            break;
        case fonts::font_pdf_encoding::standard_encoding:
            out += char(g.page_glyph_index->get() & 0xFF);
            break;
        case fonts::font_pdf_encoding::identity_encoding: {
            int const n = g.page_glyph_index->get();
            out += char((n >> 8) & 0xFF);
            out += char(n & 0xFF);
            break;
        }
        }
    }
    return out;
}

std::string operator_bytes(recorded_content const& content) {
    if (!content.content_compressed) {
        return content.content_packed;
    }
    std::string out(content.content_size, '\0');
    uLongf size = content.content_size;
    int const status = uncompress(reinterpret_cast<Bytef*>(out.data()), &size,
                                  reinterpret_cast<Bytef const*>(content.content_packed.data()),
                                  uLong(content.content_packed.size()));
    // The data was compressed here, in this run: anything but its own size back is a fault.
    check(status == Z_OK && size == content.content_size, "operator_bytes");
    return out;
}

void replay(recorded_content const& content, bulkio::output::output const& o) {
    auto const operators = operator_bytes(content);
    auto const bytes = std::string_view(operators);
    std::size_t done = 0;
    for (auto const& s : content.content_shows) {
        bulkio::output::write_all(o, bulkio::output::as_bytes(bytes.substr(done, s.show_at - done)));
        done = s.show_at;
        auto const shown = show_bytes(content, s);
        if (s.show_font->used_font_encoding->get() == fonts::font_pdf_encoding::identity_encoding) {
            content::show_hex(o, shown);
        } else {
            content::show_literal(o, shown);
        }
    }
    bulkio::output::write_all(o, bulkio::output::as_bytes(bytes.substr(done)));
}

void add_glyph_cells(recorded_content const& content, std::vector<cell<int> const*>& cells) {
    for (auto const& g : content.content_glyph_table) {
        cells.push_back(g.page_glyph_index.get());
    }
}

} // namespace vellum::pdf::painted
