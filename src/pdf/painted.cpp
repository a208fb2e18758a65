#include "pdf/painted.hpp"

#include "pdf/content.hpp"
#include "text/macroman.hpp"

#include <utility>

namespace vellum::pdf::painted {

bool recorder::sink_write(void* target, std::uint8_t const* data, std::size_t size) {
    static_cast<recorder*>(target)->recorder_content.content_bytes.append(reinterpret_cast<char const*>(data), size);
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
    glyph_show s{.show_at = std::uint32_t(c.content_bytes.size()),
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
    out.content_bytes.shrink_to_fit();
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

void replay(recorded_content const& content, bulkio::output::output const& o) {
    auto const bytes = std::string_view(content.content_bytes);
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
