#include "pdf/conformance.hpp"

#include "image/icc.hpp"

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

// Character data for the packet: the markup characters as references, and the control characters that
// XML 1.0 does not allow dropped (a tab, a line feed and a carriage return stay).
std::string xml_text(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&apos;";
            break;
        default:
            if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n' || c == '\r') {
                out.push_back(c);
            }
        }
    }
    return out;
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
    // The packet is written as one line; texts are escaped, so that a title with "&" or "<" keeps the
    // packet well-formed XML.
    std::string x = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>";
    x += "<x:xmpmeta xmlns:x='adobe:ns:meta/'>";
    x += "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>";
    x += description_start("dc", "http://purl.org/dc/elements/1.1/");
    x += "<dc:format>application/pdf</dc:format>";
    if (meta.title) {
        x += "<dc:title><rdf:Alt><rdf:li xml:lang='x-default'>" + xml_text(*meta.title) + "</rdf:li></rdf:Alt></dc:title>";
    }
    if (meta.subject) {
        x += "<dc:description><rdf:Alt><rdf:li xml:lang='x-default'>" + xml_text(*meta.subject) +
             "</rdf:li></rdf:Alt></dc:description>";
    }
    if (meta.author) {
        x += "<dc:creator><rdf:Seq><rdf:li>" + xml_text(*meta.author) + "</rdf:li></rdf:Seq></dc:creator>";
    }
    x += "</rdf:Description>";
    if (!meta.keywords.empty() || producer) {
        x += description_start("pdf", "http://ns.adobe.com/pdf/1.3/");
        if (!meta.keywords.empty()) {
            x += "<pdf:Keywords>" + xml_text(metadata::join_keywords(meta.keywords)) + "</pdf:Keywords>";
        }
        if (producer) {
            x += "<pdf:Producer>" + xml_text(*producer) + "</pdf:Producer>";
        }
        x += "</rdf:Description>";
    }
    // The information dictionary always states both dates, so the packet does too.
    x += description_start("xmp", "http://ns.adobe.com/xap/1.0/");
    if (meta.creator) {
        x += "<xmp:CreatorTool>" + xml_text(*meta.creator) + "</xmp:CreatorTool>";
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
    auto info = icc::read_icc(data);
    if (!info) {
        return fail(info.error());
    }
    // An output intent describes a device of grey, RGB or CMYK.
    auto const space = info->icc_color_space;
    if (space != icc::color_space::color_space_gray && space != icc::color_space::color_space_rgb &&
        space != icc::color_space::color_space_cmyk) {
        std::uint32_t signature = 0;
        for (std::size_t i = 16; i < 20; ++i) {
            signature = signature << 8 | data[i];
        }
        return fail("ICC profile unknown color space: " + icc::hex_field(signature));
    }
    return icc_summary{.icc_components = info->icc_components, .icc_description = info->icc_desc};
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
