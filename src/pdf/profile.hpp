// The conformance profiles of the PDF output, their names, and the table of what each allows.
#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace vellum::pdf::profile {

enum class pdf_profile { pdfa_1a, pdfa_1b, pdfx_3_2003, pdfx_4 };

/// Every profile, in declaration order.
inline constexpr std::array<pdf_profile, 4> all_profiles{pdf_profile::pdfa_1a, pdf_profile::pdfa_1b,
                                                         pdf_profile::pdfx_3_2003, pdf_profile::pdfx_4};

/// The name of a profile, as messages and options write it.
constexpr std::string_view profile_name(pdf_profile p) {
    switch (p) {
    case pdf_profile::pdfa_1a:
        return "PDF/A-1a";
    case pdf_profile::pdfa_1b:
        return "PDF/A-1b";
    case pdf_profile::pdfx_3_2003:
        return "PDF/X-3:2003";
    case pdf_profile::pdfx_4:
        return "PDF/X-4";
    }
    return "";
}

/// The profile of a name, case ignored ("PDF/A-1b", "pdf/x-4").
[[nodiscard]] inline std::optional<pdf_profile> profile_of_name(std::string_view name) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    for (pdf_profile p : all_profiles) {
        std::string_view const n = profile_name(p);
        if (n.size() == name.size() && std::equal(n.begin(), n.end(), name.begin(),
                                                  [&](char a, char b) { return lower(a) == lower(b); })) {
            return p;
        }
    }
    return std::nullopt;
}

/// What a profile allows and requires.
struct profile_rules {
    bool encryption_allowed = false;
    bool attachments_allowed = false;
    bool open_actions_allowed = false;
    bool javascript_allowed = false;
    bool fonts_must_be_embedded = true;
    bool transparency_allowed = false;
    bool link_annotations_allowed = false;
    bool dates_required = false;
    bool page_boxes_required = false;
    /// Colours and images in device RGB; a printing profile wants them as the press's CMYK.
    bool device_rgb_allowed = true;
    /// The value of /GTS_PDFXVersion, for the PDF/X profiles; these also write /Trapped /False.
    std::optional<std::string_view> pdfx_version;
    bool operator==(profile_rules const&) const = default;
};

/// The table of the profiles.
constexpr profile_rules rules_of(pdf_profile p) {
    switch (p) {
    case pdf_profile::pdfa_1a:
    case pdf_profile::pdfa_1b:
        return {.link_annotations_allowed = true};
    case pdf_profile::pdfx_3_2003:
        return {.dates_required = true,
                .page_boxes_required = true,
                .device_rgb_allowed = false,
                .pdfx_version = "PDF/X-3:2003"};
    case pdf_profile::pdfx_4:
        return {.transparency_allowed = true,
                .dates_required = true,
                .page_boxes_required = true,
                .device_rgb_allowed = false,
                .pdfx_version = "PDF/X-4"};
    }
    return {};
}

} // namespace vellum::pdf::profile
