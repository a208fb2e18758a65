#include "pdf/conformance.hpp"

#include <cstdio>

namespace vellum::pdf::conformance {

namespace {

std::string profile_text(profile::pdf_profile p) {
    return std::string(profile::profile_name(p));
}

// The start tag of a description of the document, declaring the namespace its properties use.
std::string description_start(std::string_view prefix, std::string_view uri) {
    return "<rdf:Description rdf:about='' xmlns:" + std::string(prefix) + "='" + std::string(uri) + "'>";
}

// The identification the profile gives itself in the packet.
std::string identification(profile::pdf_profile p) {
    std::string const trapped = description_start("pdf", "http://ns.adobe.com/pdf/1.3/") +
                                "<pdf:Trapped>False</pdf:Trapped></rdf:Description>";
    switch (p) {
    case profile::pdf_profile::pdfa_1a:
    case profile::pdf_profile::pdfa_1b:
        return description_start("pdfaid", "http://www.aiim.org/pdfa/ns/id/") +
               "<pdfaid:part>1</pdfaid:part><pdfaid:conformance>" +
               (p == profile::pdf_profile::pdfa_1a ? "A" : "B") + "</pdfaid:conformance></rdf:Description>";
    case profile::pdf_profile::pdfx_3_2003:
        return description_start("pdfx", "http://ns.adobe.com/pdfx/1.3/") +
               "<pdfx:GTS_PDFXVersion>PDF/X-3:2003</pdfx:GTS_PDFXVersion></rdf:Description>" + trapped;
    case profile::pdf_profile::pdfx_4:
        return description_start("pdfxid", "http://www.npes.org/pdfx/ns/id/") +
               "<pdfxid:GTS_PDFXVersion>PDF/X-4</pdfxid:GTS_PDFXVersion></rdf:Description>" + trapped;
    }
    return "";
}

std::uint32_t be32(std::span<std::uint8_t const> d, std::size_t at) {
    return std::uint32_t(d[at]) << 24 | std::uint32_t(d[at + 1]) << 16 | std::uint32_t(d[at + 2]) << 8 |
           std::uint32_t(d[at + 3]);
}

std::string hex32(std::uint32_t v) {
    char text[12];
    std::snprintf(text, sizeof text, "%08X", v);
    return text;
}

constexpr std::uint32_t signature(char const (&s)[5]) {
    return std::uint32_t(std::uint8_t(s[0])) << 24 | std::uint32_t(std::uint8_t(s[1])) << 16 |
           std::uint32_t(std::uint8_t(s[2])) << 8 | std::uint32_t(std::uint8_t(s[3]));
}

// The text of a description tag: an ASCII text in the textDescriptionType of version 2 profiles, or
// the first record of the UTF-16 multi-localised text of version 4.
std::optional<std::string> description_text(std::span<std::uint8_t const> tag) {
    if (tag.size() < 12) {
        return std::nullopt;
    }
    std::string out;
    if (be32(tag, 0) == signature("desc")) {
        std::size_t const count = be32(tag, 8);
        if (count > tag.size() - 12) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < count && tag[12 + i] != 0; ++i) {
            out.push_back(static_cast<char>(tag[12 + i]));
        }
        return out;
    }
    if (be32(tag, 0) == signature("mluc") && tag.size() >= 28 && be32(tag, 8) > 0) {
        std::size_t const length = be32(tag, 20);
        std::size_t const offset = be32(tag, 24);
        if (offset > tag.size() || length > tag.size() - offset) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i + 1 < length; i += 2) {
            char32_t const unit = char32_t(tag[offset + i]) << 8 | tag[offset + i + 1];
            // The description names a printing condition; anything beyond ASCII is kept as "?".
            out.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
        }
        return out;
    }
    return std::nullopt;
}

} // namespace

metadata::pdf_options apply_profile(log::log const& log, metadata::pdf_options options) {
    if (!options.pdf_profile) {
        return options;
    }
    auto const rules = profile::rules_of(*options.pdf_profile);
    std::string const name = profile_text(*options.pdf_profile);
    if (options.encrypt && !rules.encryption_allowed) {
        options.encrypt = false;
        log::log_error(log, name + " does not support encryption");
    }
    if (!options.embed_fonts && rules.fonts_must_be_embedded) {
        options.embed_fonts = true;
        log::log_error(log, name + " requires fonts to be embedded");
    }
    if (!options.attach.empty() && !rules.attachments_allowed) {
        options.attach.clear();
        log::log_error(log, name + " does not support attachments");
    }
    if (!std::holds_alternative<metadata::open_action_none>(options.pdf_open_action) &&
        !rules.open_actions_allowed) {
        options.pdf_open_action = metadata::open_action_none{};
        log::log_error(log, name + " does not support open actions");
    }
    if (options.pdf_script && !rules.javascript_allowed) {
        options.pdf_script.reset();
        log::log_error(log, name + " does not support JavaScript");
    }
    return options;
}

std::string iso_date(date const& d) {
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", d.year, d.month, d.day);
    std::string out = text;
    if (d.date_time) {
        std::snprintf(text, sizeof text, "T%02d:%02d:%02d", d.date_time->hour, d.date_time->minute,
                      d.date_time->second);
        out += text;
    }
    return out;
}

std::string xmp_packet(metadata::metadata const& meta,
                       std::optional<std::string> const& producer,
                       document_dates const& dates,
                       profile::pdf_profile profile) {
    // The packet is written as one line; the texts go in as they stand.
    std::string x = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>";
    x += "<x:xmpmeta xmlns:x='adobe:ns:meta/'>";
    x += "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>";
    x += description_start("dc", "http://purl.org/dc/elements/1.1/");
    x += "<dc:format>application/pdf</dc:format>";
    if (meta.title) {
        x += "<dc:title><rdf:Alt><rdf:li xml:lang='x-default'>" + *meta.title + "</rdf:li></rdf:Alt></dc:title>";
    }
    if (meta.subject) {
        x += "<dc:description><rdf:Alt><rdf:li xml:lang='x-default'>" + *meta.subject +
             "</rdf:li></rdf:Alt></dc:description>";
    }
    if (meta.author) {
        x += "<dc:creator><rdf:Seq><rdf:li>" + *meta.author + "</rdf:li></rdf:Seq></dc:creator>";
    }
    x += "</rdf:Description>";
    if (!meta.keywords.empty() || producer) {
        x += description_start("pdf", "http://ns.adobe.com/pdf/1.3/");
        if (!meta.keywords.empty()) {
            x += "<pdf:Keywords>" + metadata::join_keywords(meta.keywords) + "</pdf:Keywords>";
        }
        if (producer) {
            x += "<pdf:Producer>" + *producer + "</pdf:Producer>";
        }
        x += "</rdf:Description>";
    }
    // The information dictionary always states both dates, so the packet does too.
    x += description_start("xmp", "http://ns.adobe.com/xap/1.0/");
    if (meta.creator) {
        x += "<xmp:CreatorTool>" + *meta.creator + "</xmp:CreatorTool>";
    }
    x += "<xmp:CreateDate>" + iso_date(dates.creation) + "</xmp:CreateDate>";
    x += "<xmp:ModifyDate>" + iso_date(dates.modification) + "</xmp:ModifyDate>";
    x += "</rdf:Description>";
    x += identification(profile);
    x += "</rdf:RDF></x:xmpmeta><?xpacket end=\"r\"?>";
    return x;
}

std::string_view default_output_intent(profile::pdf_profile profile) {
    switch (profile) {
    case profile::pdf_profile::pdfa_1a:
    case profile::pdf_profile::pdfa_1b:
        return "icc/sRGB_IEC61966-2-1_black_scaled.icc";
    case profile::pdf_profile::pdfx_3_2003:
    case profile::pdf_profile::pdfx_4:
        return "icc/USWebCoatedSWOP.icc";
    }
    return "";
}

result<icc_summary> read_icc(std::span<std::uint8_t const> data) {
    if (data.size() < 132) {
        return fail("ICC profile is too short");
    }
    std::uint32_t const version = be32(data, 8);
    if ((version >> 24) != 2 && (version >> 24) != 4) {
        return fail("ICC profile unknown version: 0x" + hex32(version));
    }
    if (be32(data, 36) != signature("acsp")) {
        return fail("ICC profile invalid signature field: 0x" + hex32(be32(data, 36)));
    }
    std::uint32_t const device_class = be32(data, 12);
    if (device_class != signature("mntr") && device_class != signature("prtr")) {
        return fail("ICC profile unknown device class: 0x" + hex32(device_class));
    }
    icc_summary out;
    std::uint32_t const space = be32(data, 16);
    if (space == signature("GRAY")) {
        out.icc_components = 1;
    } else if (space == signature("RGB ")) {
        out.icc_components = 3;
    } else if (space == signature("CMYK")) {
        out.icc_components = 4;
    } else {
        return fail("ICC profile unknown color space: 0x" + hex32(space));
    }
    std::size_t const tags = be32(data, 128);
    for (std::size_t i = 0; i < tags && 132 + 12 * (i + 1) <= data.size(); ++i) {
        std::size_t const at = 132 + 12 * i;
        if (be32(data, at) != signature("desc")) {
            continue;
        }
        std::size_t const offset = be32(data, at + 4);
        std::size_t const size = be32(data, at + 8);
        if (offset > data.size() || size > data.size() - offset) {
            return fail("ICC profile description lies outside the profile");
        }
        if (auto text = description_text(data.subspan(offset, size))) {
            out.icc_description = std::move(*text);
        }
        break;
    }
    return out;
}

dict output_intent_dict(profile::pdf_profile profile, std::string const& description, ref icc_stream) {
    bool const pdfx = profile == profile::pdf_profile::pdfx_3_2003 || profile == profile::pdf_profile::pdfx_4;
    return dict{{{"Type", name{"OutputIntent"}},
                 {"S", name{pdfx ? "GTS_PDFX" : "GTS_PDFA1"}},
                 {"Info", text_string(description)},
                 {"OutputConditionIdentifier", text_string(description)},
                 {"RegistryName", text_string("http://www.color.org")},
                 {"DestOutputProfile", icc_stream}}};
}

dict profile_info_entries(profile::pdf_profile profile) {
    auto const rules = profile::rules_of(profile);
    if (!rules.pdfx_version) {
        return {};
    }
    return dict{{{"GTS_PDFXVersion", text_string(std::string(*rules.pdfx_version))}, {"Trapped", name{"False"}}}};
}

} // namespace vellum::pdf::conformance
