#include "text/fonts/fonts.hpp"

#include "css/parser.hpp"
#include "text/fonts/coverage.hpp"
#include "text/fonts/fallback.hpp"
#include "text/macroman.hpp"
#include "text/opentype/language.hpp"

#include <algorithm>
#include <array>
#include <cctype>

namespace vellum::fonts {

namespace {

// Family names compare by the character-wise lowering of the string library, as CSS compares ASCII
// case-insensitively.
std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char ch) { return char(std::tolower(ch)); });
    return s;
}

std::string locator_key(resource::locator::locator const& loc) {
    using namespace resource::locator;
    std::string const origin = std::to_string(int(loc.locator_origin)) + ":";
    return origin +
           std::visit(overloaded{
                          [](web const& w) { return "web:" + w.web_url; },
                          [](file const& f) {
                              return "file:" + f.file_path.path + (f.file_query ? "?" + *f.file_query : "");
                          },
                          [](standard_input const&) { return std::string("stdin:"); },
                          [](data const& d) { return "data:" + d.data_url; },
                          [](other const& o) { return "other:" + o.other_url; },
                          [](invalid const& i) { return "invalid:" + i.invalid_text; },
                          [](unresolvable const& u) { return "unresolvable:" + u.unresolvable_text; },
                      },
                      loc.locator_url);
}

// A font collection (.ttc) named by URL shows the face whose number the fragment gives ("fonts.ttc#2");
// without one, or with a fragment that is no number, the first face.
int collection_face_index(resource::locator::locator const& loc) {
    auto const& f = loc.locator_fragment;
    if (!f || f->empty() || f->size() > 4 ||
        !std::all_of(f->begin(), f->end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return 0;
    }
    return std::stoi(*f);
}

std::string handle_key(font_handle const& h) {
    return std::visit(overloaded{
                          [](local_font const& l) {
                              return "local " + locator_key(l.local_locator) + "#" +
                                     std::to_string(l.local_face_index);
                          },
                          [](system_font const& s) {
                              return "system " + s.system_file + "#" + std::to_string(s.system_face_index);
                          },
                      },
                      h);
}

// The one cache item of a file and face; a new one starts unloaded.
font_cache_ref cache_item(fonts const& db, font_handle const& h) {
    return db.font_handle_cache->update([&](std::map<std::string, font_cache_ref>& m) {
        auto [it, fresh] = m.try_emplace(handle_key(h));
        if (fresh) {
            it->second = std::make_shared<cell<font_cache_item>>(cell<font_cache_item>{unloaded{h}});
        }
        return it->second;
    });
}

match::request request_of(font_query const& q) {
    return {.request_style = q.query_style,
            .request_weight = q.query_weight,
            .request_width = q.query_width,
            .request_variant = q.query_variant};
}

// The record of a family that fits the request best; the first of equals wins.
family_record const* best_record(match::request const& r, font_family_records const& records) {
    std::vector<match::font_desc0> descs;
    for (auto const& rec : records) {
        descs.push_back(rec.record_desc);
    }
    auto const best = match::best_match(r, descs);
    return best ? &records[*best] : nullptr;
}

std::vector<req_entry> match_families(fonts const& db,
                                      font_query const& q,
                                      std::vector<std::string> const& families,
                                      std::vector<std::string> const& chain);

font_face_match match_source(fonts const& db,
                             font_query const& q,
                             font_source const& src,
                             std::vector<std::string> const& chain) {
    return std::visit(
        overloaded{
            [](source_cache_ref const& s) -> font_face_match { return match_cache_ref{s.source_ref}; },
            [&](system_font_family const& s) -> font_face_match {
                // local() looks among the system fonts only, so a rule cannot answer for itself.
                font_family_records system_records;
                for (auto const& rec : lookup_family(db, s.family_name)) {
                    if (rec.record_desc.font_desc_origin ==
                        match::desc_origin::font_desc_origin_system_font) {
                        system_records.push_back(rec);
                    }
                }
                std::vector<req_entry> entries;
                if (auto const* best = best_record(request_of(q), system_records)) {
                    for (auto const& rs : best->record_sources) {
                        req_entry e{.entry_range = rs.ranged_range};
                        for (auto const& inner : rs.ranged_sources_list) {
                            e.entry_faces.push_back(match_source(db, q, inner, chain));
                        }
                        entries.push_back(std::move(e));
                    }
                }
                return match_redirect{std::make_shared<std::vector<req_entry> const>(std::move(entries))};
            },
            [&](redirect const& r) -> font_face_match {
                auto const key = lower(r.redirect_name);
                if (std::find(chain.begin(), chain.end(), key) != chain.end()) {
                    log::log_warning(db.fonts_log,
                                     "cyclic @font-face redirect to \"" + r.redirect_name + "\"");
                    return match_redirect{std::make_shared<std::vector<req_entry> const>()};
                }
                auto longer = chain;
                longer.push_back(key);
                return match_redirect{std::make_shared<std::vector<req_entry> const>(
                    match_families(db, q, {r.redirect_name}, longer))};
            },
        },
        src);
}

// Pan-CJK families come as one face per region ("Noto Sans CJK JP", "... KR", "... SC", "... TC",
// "... HK"), with the same characters drawn by that region's conventions. Text in another East Asian
// language takes the face of its region, when the system has it.
std::string regional_family(fonts const& db, std::string const& family, std::string const& language) {
    auto const region = opentype::language::cjk_region(language);
    if (!region || family.size() < 7) {
        return family;
    }
    auto const tail = lower(family.substr(family.size() - 7));
    static constexpr std::array<std::string_view, 5> regions{" cjk jp", " cjk kr", " cjk sc", " cjk tc", " cjk hk"};
    if (std::find(regions.begin(), regions.end(), tail) == regions.end()) {
        return family;
    }
    auto const regional = family.substr(0, family.size() - 2) + std::string(*region);
    if (lower(regional) == lower(family) || lookup_family(db, regional).empty()) {
        return family;
    }
    return regional;
}

std::vector<req_entry> match_families(fonts const& db,
                                      font_query const& q,
                                      std::vector<std::string> const& families,
                                      std::vector<std::string> const& chain) {
    std::vector<req_entry> out;
    auto const r = request_of(q);
    for (auto const& family : families) {
        auto const records = lookup_family(db, regional_family(db, family, q.query_language));
        auto const* best = best_record(r, records);
        if (!best) {
            continue;
        }
        for (auto const& rs : best->record_sources) {
            req_entry e{.entry_range = rs.ranged_range};
            for (auto const& src : rs.ranged_sources_list) {
                e.entry_faces.push_back(match_source(db, q, src, chain));
            }
            out.push_back(std::move(e));
        }
    }
    return out;
}

// Reads a font file for a handle; nothing (and a warning) when it cannot be used.
std::optional<ref<font_data::font_data>> load_handle(fonts const& db, font_handle const& h) {
    using namespace resource::locator;
    auto const& log = db.fonts_log;
    return std::visit(
        overloaded{
            [&](local_font const& l) -> std::optional<ref<font_data::font_data>> {
                auto const location = locator_to_string(l.local_locator);
                auto const* f = std::get_if<file>(&l.local_locator.locator_url);
                auto const& prefix = db.fonts_loader.loader_prefix.path;
                // The program's own style sheets name installed font files by their absolute paths;
                // those lie outside the prefix, where the loader would look for system files.
                if (f && l.local_locator.locator_origin == locator_origin::system_origin &&
                    f->file_path.path.starts_with("/") &&
                    (prefix.empty() || !f->file_path.path.starts_with(prefix))) {
                    auto font = font_data::load_font(
                        log, db.fonts_freetype,
                        {.file_path = f->file_path.path, .file_face_index = l.local_face_index}, location);
                    return font ? std::optional(*font) : std::nullopt;
                }
                auto loaded = resource::loader::load_resource(
                    log, db.fonts_loader, resource::loader::resource_description::font, l.local_locator);
                auto data = loaded ? resource::loader::resource_to_bytes(loaded->resource_data)
                                   : result<bytes::bytes>(fail(loaded.error()));
                if (!data) {
                    log::log_file_message(log, log::level::warning, location, data.error());
                    return std::nullopt;
                }
                // A file that claims no data at all is refused here: FreeType would read it from the path.
                if (data->empty()) {
                    log::log_file_message(log, log::level::warning, location, "empty font file");
                    return std::nullopt;
                }
                auto font = font_data::load_font(log, db.fonts_freetype,
                                                 {.file_bytes = *data, .file_face_index = l.local_face_index},
                                                 location);
                return font ? std::optional(*font) : std::nullopt;
            },
            [&](system_font const& s) -> std::optional<ref<font_data::font_data>> {
                check(db.fonts_font_system.has_value(), "cannot load system font without font system");
                auto font = font_data::load_font(
                    log, db.fonts_freetype,
                    {.file_path = s.system_file, .file_face_index = s.system_face_index}, s.system_file);
                return font ? std::optional(*font) : std::nullopt;
            },
        },
        h);
}

// The font of a cache item, loading it on first need; nothing for a font that does not load.
std::optional<ref<font_data::font_data>> bring_to_life(fonts const& db, font_cache_ref const& item) {
    auto const current = item->get();
    return std::visit(
        overloaded{
            [&](unloaded const& u) -> std::optional<ref<font_data::font_data>> {
                auto font = load_handle(db, u.unloaded_handle);
                item->set(font ? font_cache_item(unused{*font}) : font_cache_item(unloadable{}));
                return font;
            },
            [](unused const& u) -> std::optional<ref<font_data::font_data>> { return u.unused_data; },
            [](used const& u) -> std::optional<ref<font_data::font_data>> {
                return u.used_ref->used_font_data;
            },
            [](unloadable const&) -> std::optional<ref<font_data::font_data>> { return std::nullopt; },
        },
        current);
}

// Marks the font of an item as used for a character: the first use gives it an id and an encoding;
// a character outside MacRoman turns a MacRoman font into an Identity one.
font_ref use_font(fonts const& db, font_cache_ref const& item, char32_t c) {
    bool const in_macroman = macroman::from_unicode(c).has_value();
    std::lock_guard guard(process_lock());
    auto const current = item->get();
    if (auto const* u = std::get_if<used>(&current)) {
        if (!in_macroman) {
            u->used_ref->used_font_encoding->set(font_pdf_encoding::identity_encoding);
        }
        return u->used_ref;
    }
    auto const* fresh = std::get_if<unused>(&current);
    check(fresh != nullptr, "use_font");
    int const id = db.font_pdf_recs->update([](font_pdf_recs& r) { return r.next_font_id++; });
    auto const font = share(used_font{
        .used_font_id = id,
        .used_font_encoding = std::make_shared<cell<font_pdf_encoding>>(cell<font_pdf_encoding>{
            in_macroman ? font_pdf_encoding::macroman_encoding : font_pdf_encoding::identity_encoding}),
        .used_font_glyph_cache = std::make_shared<cell<glyph_cache>>(),
        .used_font_data = fresh->unused_data,
        .used_font_subset = std::make_shared<cell<std::optional<bytes::bytes>>>(),
    });
    item->set(used{font});
    db.used_fonts->update([&](std::vector<font_ref>& v) { v.insert(v.begin(), font); });
    log::log_info(db.fonts_log, "used font: " + describe_font(font));
    return font;
}

enum class map_status { map_ok, map_no_glyph, map_no_font };

struct map_glyph_res {
    map_status status = map_status::map_no_font;
    raw_glyph glyph;
};

map_glyph_res map_char(fonts const& db, std::vector<req_entry> const& entries, char32_t c) {
    bool some_font = false;
    for (auto const& entry : entries) {
        if (entry.entry_range && !unicode::range::contains(*entry.entry_range, c)) {
            continue;
        }
        for (auto const& face : entry.entry_faces) {
            // The faces of an entry are alternatives for loading: the first that loads decides.
            auto const r = std::visit(
                overloaded{
                    [&](match_redirect const& m) { return map_char(db, *m.redirect_entries, c); },
                    [&](match_cache_ref const& m) {
                        auto const font = bring_to_life(db, m.match_ref);
                        if (!font) {
                            return map_glyph_res{};
                        }
                        auto const g = font_data::char_to_glyph(**font, c);
                        if (g == 0) {
                            return map_glyph_res{.status = map_status::map_no_glyph};
                        }
                        return map_glyph_res{.status = map_status::map_ok,
                                             .glyph = {.raw_glyph_font_ref = use_font(db, m.match_ref, c),
                                                       .raw_glyph_unicodes = {c},
                                                       .raw_glyph_index = g}};
                    },
                },
                face);
            if (r.status == map_status::map_ok) {
                return r;
            }
            if (r.status == map_status::map_no_glyph) {
                some_font = true;
                break;
            }
        }
    }
    return {.status = some_font ? map_status::map_no_glyph : map_status::map_no_font};
}

// The first font of the entries that loads, ranges aside.
std::optional<ref<font_data::font_data>> first_font(fonts const& db, std::vector<req_entry> const& entries) {
    for (auto const& entry : entries) {
        for (auto const& face : entry.entry_faces) {
            auto const font =
                std::visit(overloaded{
                               [&](match_redirect const& m) { return first_font(db, *m.redirect_entries); },
                               [&](match_cache_ref const& m) { return bring_to_life(db, m.match_ref); },
                           },
                           face);
            if (font) {
                return font;
            }
        }
    }
    return std::nullopt;
}

// The glyph of a character in the font of a cache item, marking the font used; nothing when the font
// does not load or lacks the character.
std::optional<raw_glyph> glyph_in(fonts const& db, font_cache_ref const& item, char32_t c) {
    auto const font = bring_to_life(db, item);
    if (!font) {
        return std::nullopt;
    }
    auto const g = font_data::char_to_glyph(**font, c);
    if (g == 0) {
        return std::nullopt;
    }
    return raw_glyph{
        .raw_glyph_font_ref = use_font(db, item, c), .raw_glyph_unicodes = {c}, .raw_glyph_index = g};
}

// How many faces of fontconfig's sort are tried for one character: the first usually has it, the
// others stand in when it does not load.
constexpr std::size_t coverage_candidates = 4;

// A system face that has a character none of the request's faces has: first the faces found so far
// for the same style and weight, then those fontconfig proposes by coverage. Characters without any
// face are remembered, so fontconfig is asked once for each.
std::optional<raw_glyph> glyph_by_coverage(fonts const& db, font_req const& req, char32_t c) {
    if (!db.font_coverage || !db.fonts_font_system) {
        return std::nullopt;
    }
    auto const key = std::pair{int(req.font_req_style), int(req.font_req_weight)};
    auto const known = db.font_coverage->update(
        [&](coverage::coverage_state& s) -> std::optional<std::vector<font_cache_ref>> {
            if (s.coverage_none.contains(c)) {
                return std::nullopt;
            }
            return s.coverage_faces[key];
        });
    if (!known) {
        return std::nullopt;
    }
    for (auto const& item : *known) {
        if (auto g = glyph_in(db, item, c)) {
            return g;
        }
    }
    auto const faces = coverage::faces_for_char(*db.fonts_font_system, c, req.font_req_style,
                                                req.font_req_weight, coverage_candidates);
    for (auto const& face : faces) {
        auto const item = cache_item(db, system_font{face.face_file, face.face_index});
        if (std::find(known->begin(), known->end(), item) != known->end()) {
            continue;
        }
        if (auto g = glyph_in(db, item, c)) {
            log::log_debug(db.fonts_log,
                           "font fallback: " + face.face_file + " for " + fallback::code_text(c));
            db.font_coverage->update(
                [&](coverage::coverage_state& s) { s.coverage_faces[key].push_back(item); });
            return g;
        }
    }
    db.font_coverage->update([&](coverage::coverage_state& s) { s.coverage_none.insert(c); });
    return std::nullopt;
}

bool is_bold(truetype::truetype_weight w) {
    return truetype::matching_value(w) >= 600;
}

} // namespace

result<fonts> new_fonts(resource::loader::loader const& loader, log::log const& log, bool use_system_fonts) {
    auto ft = freetype::new_freetype();
    if (!ft) {
        return fail(ft.error());
    }
    std::optional<font_system::font_system> fs;
    if (use_system_fonts) {
        auto s = font_system::new_font_system();
        if (!s) {
            return fail(s.error());
        }
        fs = *s;
    }
    return fonts{
        .fonts_log = log,
        .fonts_loader = loader,
        .fonts_freetype = *ft,
        .fonts_font_system = fs,
        .font_handle_cache = std::make_shared<cell<std::map<std::string, font_cache_ref>>>(),
        .font_req_cache = std::make_shared<cell<std::map<font_query, ref<font_req>>>>(),
        .font_family_map = std::make_shared<cell<std::map<std::string, font_family_records>>>(),
        .used_fonts = std::make_shared<cell<std::vector<font_ref>>>(),
        .font_pdf_recs = std::make_shared<cell<vellum::fonts::font_pdf_recs>>(),
        .font_coverage = std::make_shared<cell<coverage::coverage_state>>(),
    };
}

void add_font_faces(fonts const& db, std::vector<font_face::font_face> const& faces) {
    // Requests made before these rules (by an earlier document) would not see them.
    if (!faces.empty()) {
        db.font_req_cache->update([](std::map<font_query, ref<font_req>>& m) { m.clear(); });
    }
    for (auto const& face : faces) {
        match::font_desc0 const desc{.font_desc_origin = match::desc_origin::font_desc_origin_font_face,
                                     .font_desc_style = face.face_style,
                                     .font_desc_weight = face.face_weight,
                                     .font_desc_width = face.face_width,
                                     .font_desc_variant = face.face_variant};
        ranged_sources sources{.ranged_range = face.face_range};
        for (auto const& src : face.face_srcs) {
            sources.ranged_sources_list.push_back(std::visit(
                overloaded{
                    [&](font_face::src_url const& u) -> font_source {
                        return source_cache_ref{
                            cache_item(db, local_font{u.url_locator, collection_face_index(u.url_locator)})};
                    },
                    [](font_face::src_local const& l) -> font_source {
                        return system_font_family{l.local_name};
                    },
                    [](font_face::src_lookup const& l) -> font_source { return redirect{l.lookup_name}; },
                },
                src));
        }
        db.font_family_map->update([&](std::map<std::string, font_family_records>& m) {
            auto& records = m[lower(face.face_family)];
            auto same = std::find_if(records.begin(), records.end(),
                                     [&](family_record const& r) { return r.record_desc == desc; });
            if (same != records.end()) {
                same->record_sources.insert(same->record_sources.begin(), sources);
            } else {
                records.insert(records.begin(),
                               family_record{.record_desc = desc, .record_sources = {sources}});
            }
        });
    }
}

void add_font_face_sheet(fonts const& db,
                         std::string const& sheet_text,
                         std::string const& sheet_name,
                         font_face::url_resolver const& resolve) {
    auto const no_imports = [](css::value::url const&) -> result<css::parser::fetched_sheet> {
        return fail("imports are not followed in a font sheet");
    };
    auto const env = css::parser::parse_style_sheet(db.fonts_log, no_imports, css::origin::program,
                                                    sheet_name, sheet_text, css::parser::new_env("print"));
    css::parser::log_warnings(db.fonts_log, env);
    add_font_face_rules(db, env.fonts, sheet_name, resolve);
}

void add_font_face_rules(fonts const& db,
                         std::vector<css::declarations> const& rules,
                         std::string const& source_name,
                         font_face::url_resolver const& resolve) {
    std::vector<font_face::font_face> faces;
    for (auto const& decls : rules) {
        auto face = font_face::read_font_face(decls, resolve);
        if (!face) {
            log::log_file_message(db.fonts_log, log::level::warning, source_name, face.error());
            continue;
        }
        faces.push_back(std::move(*face));
    }
    add_font_faces(db, faces);
}

font_family_records lookup_family(fonts const& db, std::string const& family) {
    auto const key = lower(family);
    auto const known = db.font_family_map->update(
        [&](std::map<std::string, font_family_records>& m) -> std::optional<font_family_records> {
            auto it = m.find(key);
            return it == m.end() ? std::nullopt : std::optional(it->second);
        });
    if (known) {
        return *known;
    }
    font_family_records records;
    if (db.fonts_font_system) {
        for (auto const& face : font_system::scan_family(db.fonts_log, *db.fonts_font_system, family)) {
            auto const item = cache_item(db, system_font{face.face_file, face.face_index});
            records.insert(
                records.begin(),
                family_record{.record_desc = face.face_desc,
                              .record_sources = {{.ranged_sources_list = {source_cache_ref{item}}}}});
        }
    }
    // System faces of a family literally named "serif" stay apart from the generic name that the
    // program's own sheet defines.
    db.font_family_map->update([&](std::map<std::string, font_family_records>& m) {
        if (key == "serif") {
            m.emplace("system-serif", records);
            m.emplace(key, font_family_records{});
        } else {
            m.emplace(key, records);
        }
    });
    return key == "serif" ? font_family_records{} : records;
}

ref<font_req> get_font_req(fonts const& db, font_query const& query) {
    auto const cached =
        db.font_req_cache->update([&](std::map<font_query, ref<font_req>>& m) -> ref<font_req> {
            auto it = m.find(query);
            return it == m.end() ? nullptr : it->second;
        });
    if (cached) {
        return cached;
    }
    log::log_info(db.fonts_log, "font request: " + describe_query(query));
    auto families = query.query_families;
    bool const has_last_resort = std::any_of(families.begin(), families.end(), [](std::string const& f) {
        auto const l = lower(f);
        return l == "serif" || l == "vellum-no-fallback";
    });
    if (!has_last_resort) {
        families.push_back("serif");
    }
    auto req = share(font_req{
        .font_req_matches = match_families(db, query, families, {}),
        .font_req_variant = query.query_variant,
        .font_req_features = query.query_features,
        .font_req_kerning = query.query_kerning,
        .font_req_language = query.query_language,
        .font_req_vertical = query.query_vertical,
        .font_req_style = query.query_style,
        .font_req_weight = query.query_weight,
        .font_req_glyph_cache = std::make_shared<cell<unicode::unicache::unicache<raw_glyph>>>(),
    });
    db.font_req_cache->update([&](std::map<font_query, ref<font_req>>& m) { m.emplace(query, req); });
    return req;
}

raw_glyph char_to_glyph(fonts const& db, font_req const& req, char32_t c) {
    auto const cached = req.font_req_glyph_cache->update(
        [&](unicode::unicache::unicache<raw_glyph> const& u) { return u.get(c); });
    if (cached) {
        return *cached;
    }
    auto r = map_char(db, req.font_req_matches, c);
    if (r.status != map_status::map_ok) {
        if (auto g = glyph_by_coverage(db, req, c)) {
            r = {.status = map_status::map_ok, .glyph = *g};
        }
    }
    if (r.status != map_status::map_ok) {
        auto const choice = fallback::choose_fallback(c);
        if (choice.fallback_known) {
            log::log_debug(db.fonts_log, choice.fallback_message);
        } else if (db.font_coverage) {
            // One summary for the run says which characters had no glyph anywhere; each is noted
            // here only for debugging.
            log::log_debug(db.fonts_log, choice.fallback_message);
            db.font_coverage->update([&](coverage::coverage_state& s) { s.coverage_missing.insert(c); });
        } else {
            log::log_warning(db.fonts_log, choice.fallback_message);
        }
        r = map_char(db, req.font_req_matches, choice.fallback_char);
        if (r.status != map_status::map_ok) {
            throw no_available_fonts();
        }
    }
    req.font_req_glyph_cache->update([&](unicode::unicache::unicache<raw_glyph>& u) { u.set(c, r.glyph); });
    return r.glyph;
}

namespace {

std::optional<font_ref> first_font_ref_of(fonts const& db, std::vector<req_entry> const& entries) {
    for (auto const& entry : entries) {
        for (auto const& face : entry.entry_faces) {
            auto const font = std::visit(
                overloaded{
                    [&](match_redirect const& m) { return first_font_ref_of(db, *m.redirect_entries); },
                    [&](match_cache_ref const& m) -> std::optional<font_ref> {
                        if (!bring_to_life(db, m.match_ref)) {
                            return std::nullopt;
                        }
                        // A character outside MacRoman asks for the Identity encoding that glyph
                        // numbers need.
                        return use_font(db, m.match_ref, U'\uFFFD');
                    },
                },
                face);
            if (font) {
                return font;
            }
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<font_ref> first_font_ref(fonts const& db, font_req const& req) {
    return first_font_ref_of(db, req.font_req_matches);
}

void log_missing_glyphs(fonts const& db) {
    if (!db.font_coverage) {
        return;
    }
    auto const missing = db.font_coverage->update(
        [](coverage::coverage_state& s) { return std::exchange(s.coverage_missing, {}); });
    if (!missing.empty()) {
        log::log_warning(db.fonts_log, coverage::missing_summary(missing));
    }
}

font_metrics::font_metrics_scaled primary_font_metrics(fonts const& db, font_req const& req, double size) {
    auto const font = first_font(db, req.font_req_matches);
    if (!font) {
        throw no_available_fonts();
    }
    return font_data::scaled_metrics(**font, size);
}

std::vector<font_ref> used_fonts(fonts const& db) {
    return db.used_fonts->get();
}

std::shared_ptr<cell<int>> record_glyph(font_ref const& font, std::uint32_t source, unicode::unicodes const& chars) {
    return font->used_font_glyph_cache->update([&](glyph_cache& c) {
        auto [it, fresh] = c.glyph_cache_positions.try_emplace(source, c.glyph_cache_entries.size());
        if (fresh) {
            c.glyph_cache_entries.push_back(
                {.entry_source = source, .entry_index = std::make_shared<cell<int>>(cell<int>{int(source)})});
        }
        auto& entry = c.glyph_cache_entries[it->second];
        if (entry.entry_unicodes.empty()) {
            entry.entry_unicodes = chars;
        }
        return entry.entry_index;
    });
}

std::string font_tag_of_id(int id) {
    int const n = id - 1;
    std::string tag = "QZ";
    for (int div : {26 * 26 * 26, 26 * 26, 26, 1}) {
        tag += char('A' + (n / div) % 26);
    }
    return tag;
}

std::optional<std::string> pdf_font_tag(font_ref const& font) {
    if (!font->used_font_subset->get()) {
        return std::nullopt;
    }
    return font_tag_of_id(font->used_font_id);
}

synthesis synthesis_needed(font_req const& req, font_ref const& font) {
    auto const& info = font->used_font_data->font_info;
    bool const face_slanted = info.is_italic || info.italic_angle != 0;
    return {.synthesis_bold = is_bold(req.font_req_weight) && !is_bold(info.truetype_weight),
            .synthesis_italic = req.font_req_style != match::font_style::normal && !face_slanted};
}

std::string describe_font(font_ref const& font) {
    return font_info::describe(font->used_font_data->font_info);
}

std::string describe_query(font_query const& q) {
    std::string out;
    if (q.query_weight != truetype::truetype_weight::normal) {
        out += font_face::weight_keyword(q.query_weight) + std::string(" ");
    }
    switch (q.query_style) {
    case match::font_style::normal:
        break;
    case match::font_style::italic:
        out += "italic ";
        break;
    case match::font_style::oblique:
        out += "oblique ";
        break;
    }
    if (q.query_width != truetype::truetype_width::normal) {
        out += font_face::width_keyword(q.query_width) + std::string(" ");
    }
    if (q.query_variant == match::font_variant::small_caps) {
        out += "small-caps ";
    }
    for (std::size_t i = 0; i < q.query_families.size(); ++i) {
        out += (i ? ", " : "") + q.query_families[i];
    }
    return out;
}

} // namespace vellum::fonts
