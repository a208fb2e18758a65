#include "text/font_data.hpp"

#include "text/macroman.hpp"
#include "text/opentype/woff.hpp"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace vellum::font_data {

namespace tables = opentype::tables;
using opentype::reader::make_tag;
using opentype::reader::tag;

namespace {

opentype::reader::data view_of(bytes::bytes const& b) {
    return b.view();
}

// Family names lose their blanks in the PostScript-style name made up for TrueType fonts.
std::string without_blanks(std::string s) {
    std::erase(s, ' ');
    return s;
}

truetype::truetype_width width_from_panose(std::array<std::uint8_t, 10> const& panose) {
    // PANOSE family kind 2 is Latin text; its proportion digit (the fourth) tells the width.
    if (panose[0] != 2) {
        return truetype::truetype_width::normal;
    }
    switch (panose[3]) {
    case 5:
        return truetype::truetype_width::expanded;
    case 6:
        return truetype::truetype_width::condensed;
    case 7:
        return truetype::truetype_width::extra_expanded;
    case 8:
        return truetype::truetype_width::extra_condensed;
    default:
        return truetype::truetype_width::normal;
    }
}

tag tag_of(lazy_table t) {
    switch (t) {
    case lazy_table::gdef:
        return make_tag("GDEF");
    case lazy_table::gpos:
        return make_tag("GPOS");
    case lazy_table::gsub:
        return make_tag("GSUB");
    case lazy_table::vhea:
        return make_tag("vhea");
    case lazy_table::vmtx:
        return make_tag("vmtx");
    case lazy_table::kern:
        return make_tag("kern");
    }
    return 0;
}

std::optional<bytes::bytes> read_face_table(void const* context, tag t) {
    return fonts::freetype::load_table(*static_cast<fonts::freetype::face const*>(context), t);
}

// A font file named by path whose first bytes say WOFF; FreeType reads only plain sfnt files from a
// path, so such a file is read whole and unpacked in memory. Nothing for other files (or unreadable
// ones, which FreeType then reports).
std::optional<bytes::bytes> read_if_woff(std::string const& path) {
    std::unique_ptr<std::FILE, decltype(&std::fclose)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!f) {
        return std::nullopt;
    }
    std::uint8_t head[4] = {};
    if (std::fread(head, 1, 4, f.get()) != 4 || !opentype::woff::is_woff(opentype::reader::data(head, 4))) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> all(head, head + 4);
    std::uint8_t buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, f.get())) > 0;) {
        all.insert(all.end(), buffer, buffer + n);
    }
    return bytes::from_vector(std::move(all));
}

result<ref<font_data>> load_font_quietly(log::log const& log, fonts::freetype::freetype const& ft,
                                         font_file const& file, std::string const& location) {
    result<fonts::freetype::face> face = fail("");
    std::optional<bytes::bytes> woff_file;
    if (file.file_bytes.empty() && !file.file_path.empty()) {
        woff_file = read_if_woff(file.file_path);
    }
    if (!file.file_bytes.empty() || file.file_path.empty() || woff_file) {
        auto data = woff_file ? *woff_file : file.file_bytes;
        if (opentype::woff::is_woff(data.view())) {
            auto sfnt = opentype::woff::decode_woff(data.view());
            if (!sfnt) {
                return fail(sfnt.error());
            }
            data = bytes::from_vector(std::move(*sfnt));
        }
        // FreeType passes over directory entries that make no sense; such a file is refused here,
        // since its other offsets are not to be trusted either. Collections hold several directories
        // and are left to FreeType.
        if (opentype::reader::read_u32(data.view(), 0) != make_tag("ttcf")) {
            auto dir = tables::parse_directory(data.view());
            if (!dir) {
                return fail(dir.error());
            }
        }
        face = fonts::freetype::open_memory(ft, data, file.file_face_index);
    } else {
        face = fonts::freetype::open_file(ft, file.file_path, file.file_face_index);
    }
    if (!face) {
        return fail(face.error());
    }

    font_data font{.font_face = *face, .font_location = location};
    auto need = [&](char const* name, bytes::bytes& into) -> bool {
        auto t = fonts::freetype::load_table(*face, make_tag(name));
        if (!t) {
            return false;
        }
        into = *t;
        return true;
    };
    auto& ts = font.font_tables;
    if (!need("cmap", ts.font_tables_cmap)) {
        return fail("could not load cmap table");
    }
    if (!need("head", ts.font_tables_head)) {
        return fail("could not load head table");
    }
    if (!need("hhea", ts.font_tables_hhea)) {
        return fail("could not load hhea table");
    }
    if (!need("hmtx", ts.font_tables_hmtx)) {
        return fail("could not load hmtx table");
    }
    if (!need("maxp", ts.font_tables_maxp)) {
        return fail("could not load maxp table");
    }

    auto info = describe_font(read_face_table, &font.font_face);
    if (!info) {
        return fail(info.error());
    }
    font.font_info = std::move(*info);

    auto maxp = tables::parse_maxp(view_of(ts.font_tables_maxp));
    if (!maxp) {
        return fail(maxp.error());
    }
    font.font_num_glyphs = maxp->maxp_num_glyphs;
    auto hhea = tables::parse_hhea(view_of(ts.font_tables_hhea));
    if (!hhea) {
        return fail(hhea.error());
    }
    auto hmtx = tables::parse_hmtx(view_of(ts.font_tables_hmtx), hhea->hhea_number_of_hmetrics, font.font_num_glyphs);
    if (!hmtx) {
        return fail(hmtx.error());
    }
    font.font_hmtx = std::move(*hmtx);

    auto cmap = opentype::cmap::parse_cmap(view_of(ts.font_tables_cmap));
    if (!cmap) {
        return fail(cmap.error());
    }
    auto sub = opentype::cmap::choose_subtable(*cmap);
    if (!sub) {
        return fail(sub.error());
    }
    font.font_cmap_subtable = *sub;

    // The licence bits decide whether the font may go into the PDF at all.
    auto const& emb = font.font_info.embedding;
    if (auto const* b = std::get_if<truetype::embedding::bogus>(&emb)) {
        char buf[64];
        std::snprintf(buf, sizeof buf, " has invalid embedding bits: 0x%04x", unsigned(b->bogus_bits));
        log::log_debug(log, "\"" + font_info::describe(font.font_info) + "\"" + buf);
    }
    if (truetype::embedding::embedding_verdict(emb) == truetype::embedding::verdict::refused) {
        return fail("\"" + font_info::describe(font.font_info) + "\" does not allow font embedding");
    }
    return share(std::move(font));
}

} // namespace

result<font_info::font_info> describe_font(table_reader read, void const* context) {
    font_info::font_info info;

    auto name_bytes = read(context, make_tag("name"));
    std::optional<tables::name> names;
    if (name_bytes) {
        auto n = tables::parse_name(name_bytes->view());
        if (!n) {
            return fail(n.error());
        }
        names = std::move(*n);
    }
    auto name_of = [&](tables::name_id id) -> std::optional<std::string> {
        return names ? tables::find_name(*names, id) : std::nullopt;
    };
    auto family = name_of(tables::name_id::typographic_family);
    if (!family) {
        family = name_of(tables::name_id::family);
    }
    if (!family) {
        return fail("font has no family name");
    }
    info.family_name = *family;
    info.style_name = name_of(tables::name_id::typographic_subfamily);
    if (!info.style_name) {
        info.style_name = name_of(tables::name_id::subfamily);
    }

    auto head_bytes = read(context, make_tag("head"));
    if (!head_bytes) {
        return fail("could not load head table");
    }
    auto head = tables::parse_head(head_bytes->view());
    if (!head) {
        return fail(head.error());
    }
    if (head->head_units_per_em == 0) {
        return fail("font has negative units-per-em");
    }
    info.units_per_em = head->head_units_per_em;

    if (read(context, make_tag("glyf"))) {
        info.outlines = font_info::font_outlines::ttf_outlines;
    } else if (read(context, make_tag("CFF "))) {
        info.outlines = font_info::font_outlines::cff_outlines;
    } else {
        return fail("not a TrueType or OpenType font");
    }

    info.font_bbox = {head->head_x_min, head->head_y_min, head->head_x_max, head->head_y_max};
    auto hhea_bytes = read(context, make_tag("hhea"));
    if (!hhea_bytes) {
        return fail("could not load hhea table");
    }
    auto hhea = tables::parse_hhea(hhea_bytes->view());
    if (!hhea) {
        return fail(hhea.error());
    }
    info.font_metrics = {.ascender = hhea->hhea_ascender,
                         .descender = hhea->hhea_descender,
                         .height = hhea->hhea_ascender - hhea->hhea_descender + hhea->hhea_line_gap,
                         .line_gap = hhea->hhea_line_gap};

    bool const bold = head->head_mac_style & 1;
    bool const italic = head->head_mac_style & 2;
    auto const ps_name = name_of(tables::name_id::postscript_name);
    if (info.outlines == font_info::font_outlines::cff_outlines && ps_name) {
        info.basefont = *ps_name;
    } else {
        info.basefont = without_blanks(info.family_name);
        if (bold && italic) {
            info.basefont += ",BoldItalic";
        } else if (bold) {
            info.basefont += ",Bold";
        } else if (italic) {
            info.basefont += ",Italic";
        }
    }

    auto const upem = info.units_per_em;
    info.underline_position = -upem / 9;
    info.underline_thickness = upem / 20;
    if (auto post_bytes = read(context, make_tag("post"))) {
        auto post = tables::parse_post(post_bytes->view());
        if (!post) {
            return fail(post.error());
        }
        info.italic_angle = post->post_italic_angle >> 16;
        info.is_monospace = post->post_is_fixed_pitch;
        if (post->post_underline_thickness >= 1) {
            info.underline_position = post->post_underline_position;
            info.underline_thickness = post->post_underline_thickness;
        }
    }

    info.embedding = truetype::embedding::permissions{};
    if (auto os2_bytes = read(context, make_tag("OS/2"))) {
        auto os2 = tables::parse_os2(os2_bytes->view());
        if (!os2) {
            return fail(os2.error());
        }
        info.cap_height = os2->os2_version > 1 ? os2->os2_cap_height : 0;
        if (auto w = truetype::weight_of_class(os2->os2_weight_class)) {
            info.truetype_weight = *w;
        } else {
            info.truetype_weight = bold ? truetype::truetype_weight::bold : truetype::truetype_weight::normal;
        }
        auto const width = truetype::width_of_class(os2->os2_width_class);
        info.truetype_width = width && os2->os2_width_class != 5 ? *width : width_from_panose(os2->os2_panose);
        info.first_char_os2 = os2->os2_first_char_index;
        info.embedding = truetype::embedding::parse_embedding(os2->os2_fs_type);
    }
    info.is_italic = italic;
    info.stem_v = 0;
    return info;
}

result<ref<font_data>> load_font(log::log const& log, fonts::freetype::freetype const& ft, font_file const& file,
                                 std::string const& location) {
    auto font = load_font_quietly(log, ft, file, location);
    if (!font) {
        log::log_file_message(log, log::level::warning, location, font.error());
    }
    return font;
}

std::uint32_t char_to_glyph(font_data const& font, char32_t c) {
    auto const cached = font.font_state->update([&](font_state& s) -> std::optional<std::uint32_t> {
        auto it = s.state_unicache.find(c);
        return it == s.state_unicache.end() ? std::nullopt : std::optional(it->second);
    });
    if (cached) {
        return *cached;
    }
    auto const cmap = view_of(font.font_tables.font_tables_cmap);
    auto const& sub = font.font_cmap_subtable;
    std::int64_t code = -1;
    if (sub.subtable_encoding == opentype::cmap::cmap_encoding::unicode) {
        code = c;
    } else if (auto mac = macroman::from_unicode(c);
               mac && sub.subtable_encoding == opentype::cmap::cmap_encoding::apple_roman) {
        code = *mac;
    } else {
        // Symbol fonts put their characters at U+F020 and on, or wherever usFirstCharIndex says.
        std::int64_t v = c;
        if (v >= 0xF000 && v <= 0xF0FF) {
            v -= 0xF000;
        }
        code = v - 32 + font.font_info.first_char_os2;
    }
    std::uint32_t glyph = 0;
    if (code >= 0 && code <= 0x10FFFF) {
        glyph = opentype::cmap::lookup(cmap, sub, std::uint32_t(code));
    }
    // A cmap that points past the last glyph lies; the character counts as missing.
    if (glyph >= font.font_num_glyphs) {
        glyph = 0;
    }
    font.font_state->update([&](font_state& s) { s.state_unicache.emplace(c, glyph); });
    return glyph;
}

int glyph_advance(font_data const& font, std::uint32_t glyph) {
    return tables::advance_of(font.font_hmtx, glyph);
}

font_metrics::font_metrics_scaled scaled_metrics(font_data const& font, double size) {
    auto const cached = font.font_state->update([&](font_state& s) -> std::optional<font_metrics::font_metrics_scaled> {
        auto it = s.state_size_cache.find(size);
        return it == s.state_size_cache.end() ? std::nullopt : std::optional(it->second);
    });
    if (cached) {
        return *cached;
    }
    auto const m = font_metrics::scale_metrics(font.font_info, size);
    font.font_state->update([&](font_state& s) { s.state_size_cache.emplace(size, m); });
    return m;
}

std::optional<bytes::bytes> get_lazy_table(font_data const& font, lazy_table t) {
    auto const slot = std::size_t(t);
    auto const current = font.font_state->update([&](font_state& s) { return s.state_tables[slot]; });
    if (auto const* l = std::get_if<loaded>(&current)) {
        return l->loaded_bytes;
    }
    if (std::holds_alternative<unloadable>(current)) {
        return std::nullopt;
    }
    auto b = fonts::freetype::load_table(font.font_face, tag_of(t));
    font_table next = b ? font_table(loaded{*b}) : font_table(unloadable{});
    font.font_state->update([&](font_state& s) { s.state_tables[slot] = next; });
    return b;
}

int glyph_vert_advance(font_data const& font, std::uint32_t glyph) {
    auto const known = font.font_state->update([](font_state& s) { return s.state_vertical; });
    std::optional<vertical_metrics> vm;
    if (known) {
        vm = *known;
    } else {
        auto vhea = get_lazy_table(font, lazy_table::vhea);
        auto vmtx = get_lazy_table(font, lazy_table::vmtx);
        if (vhea && vmtx) {
            auto h = tables::parse_hhea(vhea->view());
            if (h) {
                auto m = tables::parse_hmtx(vmtx->view(), h->hhea_number_of_hmetrics, font.font_num_glyphs);
                if (m) {
                    vm = vertical_metrics{std::move(*m)};
                }
            }
        }
        font.font_state->update([&](font_state& s) { s.state_vertical = vm; });
    }
    if (vm) {
        return tables::advance_of(vm->vertical_advances, glyph);
    }
    return font.font_info.font_metrics.ascender - font.font_info.font_metrics.descender;
}

} // namespace vellum::font_data
