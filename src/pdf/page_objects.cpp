#include "pdf/page_objects.hpp"

#include "css/styledom/sheets.hpp"
#include "image/convert.hpp"
#include "image/icc.hpp"
#include "pdf/content.hpp"
#include "pdf/paint_svg.hpp"

#include <algorithm>

namespace vellum::pdf::page_objects {

namespace {

std::string num(double v) {
    return content::format_number(v);
}

array numbers(std::vector<double> const& values) {
    array a;
    for (double v : values) {
        a.array_items.emplace_back(v);
    }
    return a;
}

int bits_of(image::buffer_kind k) {
    switch (k) {
    case image::buffer_kind::image_buffer_1_bit:
        return 1;
    case image::buffer_kind::image_buffer_8_bit:
    case image::buffer_kind::image_buffer_jpeg:
        return 8;
    case image::buffer_kind::image_buffer_16_bit:
        return 16;
    }
    return 8;
}

int components_of(image::image_color_space s) {
    switch (s) {
    case image::image_color_space::image_color_rgb:
        return 3;
    case image::image_color_space::image_color_gray:
        return 1;
    case image::image_color_space::image_color_cmyk:
        return 4;
    }
    return 3;
}

char const* device_space(image::image_color_space s) {
    switch (s) {
    case image::image_color_space::image_color_rgb:
        return "DeviceRGB";
    case image::image_color_space::image_color_gray:
        return "DeviceGray";
    case image::image_color_space::image_color_cmyk:
        return "DeviceCMYK";
    }
    return "DeviceRGB";
}

// The components of a device colour and the space they are in; a spot colour counts as its tint of
// grey where a ramp has to mix it with others.
std::pair<std::string, std::vector<double>> components(color::color const& c) {
    return std::visit(overloaded{
                          [](color::rgb const& v) {
                              return std::pair<std::string, std::vector<double>>{"DeviceRGB", {v.r, v.g, v.b}};
                          },
                          [](color::cmyk const& v) {
                              return std::pair<std::string, std::vector<double>>{"DeviceCMYK",
                                                                                 {v.c, v.m, v.y, v.k}};
                          },
                          [](color::gray const& v) {
                              double const level = std::visit([](auto x) { return double(x); }, v.level);
                              return std::pair<std::string, std::vector<double>>{"DeviceGray", {level}};
                          },
                          [](color::pattern const&) {
                              return std::pair<std::string, std::vector<double>>{"DeviceGray", {0}};
                          },
                          [](color::separation const& s) {
                              return std::pair<std::string, std::vector<double>>{"DeviceGray", {1 - s.tint}};
                          },
                      },
                      c);
}

// Colours of a ramp in one device space: grey and CMYK stops join RGB ones as RGB.
std::vector<double> as_rgb(color::color const& c) {
    auto [space, v] = components(c);
    if (space == "DeviceGray") {
        return {v[0], v[0], v[0]};
    }
    if (space == "DeviceCMYK") {
        return {(1 - v[0]) * (1 - v[3]), (1 - v[1]) * (1 - v[3]), (1 - v[2]) * (1 - v[3])};
    }
    return v;
}

std::string ramp_space(std::vector<ramp_stop> const& stops) {
    std::string space;
    for (auto const& s : stops) {
        auto const here = components(s.stop_color).first;
        if (space.empty()) {
            space = here;
        } else if (space != here) {
            return "DeviceRGB";
        }
    }
    return space.empty() ? "DeviceRGB" : space;
}

std::vector<double> stop_values(color::color const& c, std::string const& space) {
    auto [own, v] = components(c);
    return own == space ? v : as_rgb(c);
}

// One transparent pixel, standing in for an image that could not be read when the file was written.
image::image blank_image() {
    image::image_data_normal n;
    n.image_data_color_space = image::image_color_space::image_color_gray;
    n.image_data_buffer.buffer_bytes = bytes::from_string(std::string(1, '\xff'));
    n.image_data_alpha.emplace();
    n.image_data_alpha->buffer_bytes = bytes::from_string(std::string(1, '\0'));
    image::image out;
    out.image_info.image_width = 1;
    out.image_info.image_height = 1;
    out.image_info.image_has_alpha = true;
    out.image_data = std::move(n);
    return out;
}

} // namespace

bool translucent(std::vector<ramp_stop> const& stops) {
    return std::any_of(stops.begin(), stops.end(), [](ramp_stop const& r) { return r.stop_alpha < 1; });
}

std::vector<ramp_stop> alpha_ramp(std::vector<ramp_stop> const& stops) {
    std::vector<ramp_stop> out;
    out.reserve(stops.size());
    for (auto const& r : stops) {
        out.push_back({r.stop_offset, color::gray{std::clamp(r.stop_alpha, 0.0, 1.0)}, 1});
    }
    return out;
}

dict ramp_function(std::vector<ramp_stop> const& stops) {
    auto const space = ramp_space(stops);
    auto interpolation = [&](color::color const& a, color::color const& b) {
        return dict{{{"FunctionType", std::int64_t{2}},
                     {"Domain", numbers({0, 1})},
                     {"C0", numbers(stop_values(a, space))},
                     {"C1", numbers(stop_values(b, space))},
                     {"N", std::int64_t{1}}}};
    };
    if (stops.size() == 1) {
        return interpolation(stops[0].stop_color, stops[0].stop_color);
    }
    if (stops.size() == 2 && stops[0].stop_offset <= 0 && stops[1].stop_offset >= 1) {
        return interpolation(stops[0].stop_color, stops[1].stop_color);
    }
    // One interpolation between each pair of neighbouring stops, stitched at the inner offsets.
    array functions;
    array bounds;
    array encode;
    for (std::size_t i = 0; i + 1 < stops.size(); ++i) {
        functions.array_items.emplace_back(interpolation(stops[i].stop_color, stops[i + 1].stop_color));
        encode.array_items.emplace_back(0.0);
        encode.array_items.emplace_back(1.0);
        if (i + 2 < stops.size()) {
            bounds.array_items.emplace_back(std::clamp(stops[i + 1].stop_offset, 0.0, 1.0));
        }
    }
    return dict{{{"FunctionType", std::int64_t{3}},
                 {"Domain", numbers({0, 1})},
                 {"Functions", std::move(functions)},
                 {"Bounds", std::move(bounds)},
                 {"Encode", std::move(encode)}}};
}

std::optional<vellum::ref<images::image_id>> page_objects::background_image(log::log const& log,
                                                                           css::value::url const& url) {
    if (!objects_images) {
        return std::nullopt;
    }
    // The base of a url value is the sheet or document it was written in, which the documents' base
    // tables know.
    auto const loc = objects_images->resolve_css_url(url.url_text, url.url_base)
                         .value_or(styledom::sheets::resolve_url(styledom::sheets::base_table{}, url));
    auto id = objects_images->get_image_id(log, loc);
    if (!id) {
        return std::nullopt;
    }
    return *id;
}

std::string page_objects::use_image(vellum::ref<images::image_id> const& id) {
    image_ids.emplace(id->image_name, id);
    return id->image_name;
}

namespace {

// The name of a filled form, the same for the same fill over the same area on every page.
std::string use_form(std::vector<std::pair<fill_form, std::string>>& forms, fill_form f) {
    for (auto const& [form, name] : forms) {
        if (form == f) {
            return name;
        }
    }
    auto name = "Fm" + std::to_string(forms.size() + 1);
    forms.emplace_back(std::move(f), name);
    return name;
}

} // namespace

std::string page_objects::use_tiling(tiling const& t, rect_area const& area) {
    return use_form(forms, fill_form{t, area});
}

std::string page_objects::use_shading(shading const& s, rect_area const& area) {
    return use_form(forms, fill_form{s, area});
}

std::string page_objects::use_separation(separation_space const& s) {
    for (auto const& known : separations) {
        if (known.separation_name == s.separation_name) {
            return known.separation_name;
        }
    }
    separations.push_back(s);
    return s.separation_name;
}

std::optional<ref> page_objects::ref_of(writer& w, resource_kind kind, std::string const& name) {
    auto reserve = [&](std::map<std::string, entry>& out) -> std::optional<ref> {
        auto& e = out[name];
        if (!e.entry_ref) {
            e.entry_ref = new_ref(w);
        }
        return e.entry_ref;
    };
    switch (kind) {
    case resource_kind::xobject: {
        if (image_ids.contains(name)) {
            return reserve(images_out);
        }
        for (auto const& [form, form_name] : forms) {
            if (form_name == name) {
                return reserve(forms_out);
            }
        }
        return std::nullopt;
    }
    case resource_kind::colorspace: {
        // A separation that the content selected by name: its alternate comes from the colour table.
        auto const found = spot_alternates.find(name);
        use_separation({.separation_name = name,
                        .separation_alternate = found != spot_alternates.end() ? found->second
                                                                               : color::color{color::cmyk{0, 0, 0, 1}}});
        return reserve(colorspaces_out);
    }
    }
    return std::nullopt;
}

void page_objects::write_all(log::log const& log, writer& w, bool compress) {
    stream_filter const filter = compress ? stream_filter::deflate : stream_filter::as_is;
    // Drawings first: painting them names the gradients' forms and the images they show.
    std::vector<std::pair<std::string, vellum::ref<images::image_id>>> drawings;
    for (auto const& [image_name, id] : image_ids) {
        if (std::holds_alternative<images::svg_image>(id->image_source)) {
            drawings.emplace_back(image_name, id);
        }
    }
    for (auto const& [image_name, id] : drawings) {
        auto const r = ref_of(w, resource_kind::xobject, image_name);
        auto& e = images_out[image_name];
        if (!r || e.written) {
            continue;
        }
        e.written = true;
        paint_svg::write_svg_form(log, w, *r, *std::get<images::svg_image>(id->image_source).svg_image_block, *this,
                                  compress);
    }
    // Forms, with the patterns and shadings they paint; their images are reserved here and written below.
    for (auto const& [form, form_name] : forms) {
        auto found = forms_out.find(form_name);
        if (found == forms_out.end() || found->second.written) {
            continue;
        }
        found->second.written = true;
        auto const& a = form.form_area;
        std::string body;
        dict resources;
        if (auto const* t = std::get_if<tiling>(&form.form_fill)) {
            std::optional<ref> pattern;
            for (auto const& [known, r] : tiling_patterns) {
                if (known == *t) {
                    pattern = r;
                }
            }
            if (!pattern) {
                auto const id = image_ids.find(t->tiling_image);
                auto const image_ref = ref_of(w, resource_kind::xobject, t->tiling_image);
                if (id == image_ids.end() || !image_ref) {
                    throw internal_error("missing image: " + t->tiling_image);
                }
                pattern = new_ref(w);
                tiling_patterns.emplace_back(*t, *pattern);
                auto const& m = t->tiling_matrix;
                dict params{{{"Type", name{"Pattern"}},
                             {"PatternType", std::int64_t{1}},
                             {"PaintType", std::int64_t{1}},
                             {"TilingType", std::int64_t{1}},
                             {"BBox", numbers({0, 0, t->tile_w, t->tile_h})},
                             {"XStep", t->xstep},
                             {"YStep", t->ystep},
                             {"Resources", dict{{{"XObject", dict{{{t->tiling_image, *image_ref}}}}}}},
                             {"Matrix", numbers({m.a, m.b, m.c, m.d, m.tx, m.ty})}}};
                std::string const tile = "q " + num(t->tile_w) + " 0 0 " + num(t->tile_h) + " 0 0 cm /" +
                                         t->tiling_image + " Do Q\n";
                write_stream_bytes(w, *pattern, filter, std::move(params),
                                   {reinterpret_cast<std::uint8_t const*>(tile.data()), tile.size()});
            }
            resources.dict_entries.emplace_back("Pattern", dict{{{"P0", *pattern}}});
            body = "/Pattern cs /P0 scn " + num(a.x0) + " " + num(a.y0) + " " + num(a.x1 - a.x0) + " " +
                   num(a.y1 - a.y0) + " re f\n";
        } else {
            auto s = std::get<shading>(form.form_fill);
            if (forbids_device_rgb(w)) {
                for (auto& stop : s.shading_stops) {
                    stop.stop_color = color::without_rgb(stop.stop_color);
                }
            }
            auto const shading_of = [&](std::vector<ramp_stop> const& stops) {
                return dict{{{"ShadingType", std::int64_t{s.radial ? 3 : 2}},
                             {"ColorSpace", name{ramp_space(stops)}},
                             {"Coords", numbers(s.shading_coords)},
                             {"Function", ramp_function(stops)},
                             {"Extend", array{{s.extend_start, s.extend_end}}}}};
            };
            resources.dict_entries.emplace_back("Shading", dict{{{"Sh0", shading_of(s.shading_stops)}}});
            body = num(a.x0) + " " + num(a.y0) + " " + num(a.x1 - a.x0) + " " + num(a.y1 - a.y0) + " re W n ";
            if (s.shading_matrix) {
                auto const& m = *s.shading_matrix;
                body += num(m.a) + " " + num(m.b) + " " + num(m.c) + " " + num(m.d) + " " + num(m.tx) + " " +
                        num(m.ty) + " cm ";
            }
            body += "/Sh0 sh\n";
            if (translucent(s.shading_stops)) {
                // The opacities are the same shading in grey, painted in a group of its own whose
                // luminosity is the soft mask of the colours: where a stop is transparent the mask is
                // black and nothing of the colour shows.
                ref const mask_group = new_ref(w);
                write_stream_bytes(
                    w, mask_group, filter,
                    dict{{{"Type", name{"XObject"}},
                          {"Subtype", name{"Form"}},
                          {"BBox", numbers({a.x0, a.y0, a.x1, a.y1})},
                          {"Group", dict{{{"Type", name{"Group"}},
                                          {"S", name{"Transparency"}},
                                          {"CS", name{"DeviceGray"}}}}},
                          {"Resources", dict{{{"Shading", dict{{{"Sh0", shading_of(alpha_ramp(s.shading_stops))}}}}}}}}},
                    {reinterpret_cast<std::uint8_t const*>(body.data()), body.size()});
                dict const mask{{{"Type", name{"Mask"}}, {"S", name{"Luminosity"}}, {"G", mask_group}}};
                resources.dict_entries.emplace_back(
                    "ExtGState", dict{{{"GS0", dict{{{"Type", name{"ExtGState"}}, {"SMask", mask}}}}}});
                body = "/GS0 gs " + body;
            }
        }
        dict params{{{"Type", name{"XObject"}},
                     {"Subtype", name{"Form"}},
                     {"BBox", numbers({a.x0, a.y0, a.x1, a.y1})},
                     {"Resources", std::move(resources)}}};
        write_stream_bytes(w, *found->second.entry_ref, filter, std::move(params),
                           {reinterpret_cast<std::uint8_t const*>(body.data()), body.size()});
    }
    for (auto const& s : separations) {
        auto found = colorspaces_out.find(s.separation_name);
        if (found == colorspaces_out.end() || found->second.written) {
            continue;
        }
        found->second.written = true;
        auto [space, values] =
            components(forbids_device_rgb(w) ? color::without_rgb(s.separation_alternate) : s.separation_alternate);
        if (space != "DeviceRGB" && space != "DeviceCMYK") {
            throw internal_error("unexpected alternate color space");
        }
        std::vector<double> zero(values.size(), 0.0);
        if (space == "DeviceRGB") {
            zero.assign(3, 1.0);
        }
        dict tint{{{"FunctionType", std::int64_t{2}},
                   {"Domain", numbers({0, 1})},
                   {"Range", numbers(space == "DeviceRGB" ? std::vector<double>{0, 1, 0, 1, 0, 1}
                                                         : std::vector<double>{0, 1, 0, 1, 0, 1, 0, 1})},
                   {"C0", numbers(zero)},
                   {"C1", numbers(values)},
                   {"N", std::int64_t{1}}}};
        write_object(w, *found->second.entry_ref,
                     array{{name{"Separation"}, name{s.separation_name}, name{space}, std::move(tint)}});
    }
    for (auto const& [image_name, id] : image_ids) {
        auto found = images_out.find(image_name);
        if (found == images_out.end() || found->second.written) {
            continue;
        }
        found->second.written = true;
        auto decoded = objects_images ? objects_images->read_image(log, *id) : fail("no image table");
        if (!decoded) {
            // The file changed or broke since its header was read: a transparent pixel keeps the file whole.
            log::log_file_message(
                log, log::level::warning,
                std::holds_alternative<images::external_image>(id->image_source)
                    ? resource::locator::locator_to_string(
                          std::get<images::external_image>(id->image_source).external.image_url)
                    : id->image_name,
                decoded.error());
            decoded = blank_image();
        }
        write_image(log, w, *found->second.entry_ref, *decoded, id->image_magic, compress, icc_streams);
    }
}

bool page_objects::needs_pdf_1_5() const {
    return objects_images && objects_images->any_16bit_image();
}

namespace {

// The image's XObject as its data stands, with its mask first.
void write_image_data(log::log const& log,
                      writer& w,
                      ref r,
                      image::image const& img,
                      images::image_magic const& magic,
                      bool compress,
                      std::map<std::pair<int, std::string>, ref>& icc_streams) {
    auto const& info = img.image_info;
    stream_filter const flate = compress ? stream_filter::deflate : stream_filter::ascii_hex;
    // Samples that wait compressed go in as they stand.
    auto const filter_of = [&](image::image_buffer const& b) {
        return b.buffer_deflated ? stream_filter::flate_encoded : flate;
    };
    dict d{{{"Type", name{"XObject"}},
            {"Subtype", name{"Image"}},
            {"Width", std::int64_t{info.image_width}},
            {"Height", std::int64_t{info.image_height}}}};
    bool const keep_alpha = !strips_transparency(w);
    auto const alpha_dropped = [&] {
        log::log_warning_once(log, std::string(w.writer_profile ? profile::profile_name(*w.writer_profile)
                                                                : std::string_view("PDF profile")) +
                                       " does not support transparent images");
    };
    std::visit(
        overloaded{
            [&](image::image_data_normal const& n) {
                int const comps = components_of(n.image_data_color_space);
                d.dict_entries.emplace_back("BitsPerComponent", std::int64_t{bits_of(n.image_data_buffer.image_buffer_kind)});
                object space = name{device_space(n.image_data_color_space)};
                if (n.image_data_icc_profile && !magic.ignore_icc_profile) {
                    auto const& profile = *n.image_data_icc_profile;
                    if (auto checked = icc::parse_icc(profile, comps); !checked) {
                        log::log_warning(log, checked.error());
                    } else {
                        auto const key = std::pair{comps, std::string(profile.chars())};
                        auto found = icc_streams.find(key);
                        if (found == icc_streams.end()) {
                            ref const icc = new_ref(w);
                            write_stream_bytes(w, icc, stream_filter::deflate,
                                               dict{{{"N", std::int64_t{comps}},
                                                     {"Alternate", name{device_space(n.image_data_color_space)}}}},
                                               profile.view());
                            found = icc_streams.emplace(key, icc).first;
                        }
                        space = array{{name{"ICCBased"}, found->second}};
                    }
                }
                d.dict_entries.emplace_back("ColorSpace", std::move(space));
                if (n.image_data_polarity == image::image_polarity::image_polarity_inverted) {
                    std::vector<double> decode;
                    for (int i = 0; i < comps; ++i) {
                        decode.push_back(1);
                        decode.push_back(0);
                    }
                    array a;
                    for (double v : decode) {
                        a.array_items.emplace_back(std::int64_t(v));
                    }
                    d.dict_entries.emplace_back("Decode", std::move(a));
                }
                if (n.image_data_alpha && !keep_alpha) {
                    alpha_dropped();
                }
                if (n.image_data_alpha && keep_alpha) {
                    ref const mask = new_ref(w);
                    write_stream_bytes(w, mask, filter_of(*n.image_data_alpha),
                                       dict{{{"Type", name{"XObject"}},
                                             {"Subtype", name{"Image"}},
                                             {"Width", std::int64_t{info.image_width}},
                                             {"Height", std::int64_t{info.image_height}},
                                             {"BitsPerComponent", std::int64_t{bits_of(n.image_data_alpha->image_buffer_kind)}},
                                             {"ColorSpace", name{"DeviceGray"}}}},
                                       n.image_data_alpha->buffer_bytes.view());
                    d.dict_entries.emplace_back("SMask", mask);
                }
                bool const jpeg = n.image_data_buffer.image_buffer_kind == image::buffer_kind::image_buffer_jpeg;
                write_stream_bytes(w, r, jpeg ? stream_filter::dctdecode : filter_of(n.image_data_buffer), std::move(d),
                                   n.image_data_buffer.buffer_bytes.view());
            },
            [&](image::image_data_indexed const& x) {
                auto const& ix = x.indexed;
                d.dict_entries.emplace_back("BitsPerComponent", std::int64_t{8});
                d.dict_entries.emplace_back(
                    "ColorSpace", array{{name{"Indexed"}, name{"DeviceRGB"}, std::int64_t{ix.image_indexed_colors - 1},
                                         hex{std::string(ix.image_indexed_palette.chars())}}});
                if (ix.image_indexed_mask && !keep_alpha) {
                    alpha_dropped();
                }
                if (ix.image_indexed_mask && keep_alpha) {
                    d.dict_entries.emplace_back("Mask", array{{std::int64_t{*ix.image_indexed_mask},
                                                               std::int64_t{*ix.image_indexed_mask}}});
                }
                write_stream_bytes(w, r, filter_of(x.buffer), std::move(d), x.buffer.buffer_bytes.view());
            },
        },
        img.image_data);
}

} // namespace

void write_image(log::log const& log,
                 writer& w,
                 ref r,
                 image::image const& img,
                 images::image_magic const& magic,
                 bool compress,
                 std::map<std::pair<int, std::string>, ref>& icc_streams) {
    // Samples kept compressed are expanded for what works on them: a conversion, or hexadecimal output.
    std::optional<image::image> expanded;
    if ((forbids_device_rgb(w) || !compress) && image::has_deflated_buffers(img)) {
        auto plain = image::inflate_buffers(img);
        if (!plain) {
            log::log_warning(log, plain.error());
            plain = blank_image();
        }
        expanded = std::move(*plain);
    }
    image::image const& source = expanded ? *expanded : img;
    // A press profile gets process colours: device RGB pixels are turned to CMYK first.
    std::optional<image::image> converted;
    if (forbids_device_rgb(w)) {
        auto cmyk = image::convert::device_cmyk(source);
        if (!cmyk) {
            log::log_warning(log, cmyk.error());
        } else {
            converted = std::move(*cmyk);
        }
    }
    image::image const& shown = converted ? *converted : source;
    write_image_data(log, w, r, shown, magic, compress, icc_streams);
}

} // namespace vellum::pdf::page_objects
