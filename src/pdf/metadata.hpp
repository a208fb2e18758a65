// The document metadata and the options of the PDF output, as the command line, the document's head,
// style rules and scripts set them. Plain data, with the producer text and the splitting of keywords.
#pragma once

#include "pdf/profile.hpp"
#include "resource/locator.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vellum::metadata {

/// A time of day.
struct time_of_day {
    int hour = 0;
    int minute = 0;
    int second = 0;
    bool operator==(time_of_day const&) const = default;
};

/// A calendar date with an optional time, as an ISO date gives it; no time zone.
struct date {
    int year = 0;
    int month = 1;
    int day = 1;
    std::optional<time_of_day> time;
    bool operator==(date const&) const = default;
};

/// What the information dictionary and the XMP packet say about the document.
struct metadata {
    std::optional<std::string> title;
    std::optional<std::string> subject;
    std::optional<std::string> author;
    std::vector<std::string> keywords;
    std::optional<std::string> creator;
    std::optional<date> creation_date;
    std::optional<date> modification_date;
    bool operator==(metadata const&) const = default;
};

/// A file to embed in the PDF, with its description.
struct pdf_attach {
    resource::locator::locator attach_locator;
    std::string attach_desc;
    bool operator==(pdf_attach const&) const = default;
};

/// The size of the encryption key in bits: 40 or 128.
struct key_bits {
    int bits = 40;
    bool operator==(key_bits const&) const = default;
};

/// What a reader of the encrypted file may do without the owner password.
struct permissions {
    bool can_print = true;
    bool can_modify = true;
    bool can_copy = true;
    bool can_annotate = true;
    bool operator==(permissions const&) const = default;
};

/// The settings of the standard security handler.
struct encrypt {
    vellum::metadata::key_bits key_bits;
    std::optional<std::string> user_password;
    std::optional<std::string> owner_password;
    vellum::metadata::permissions permissions;
    bool operator==(encrypt const&) const = default;
};

/// No action when the document opens.
struct open_action_none {
    bool operator==(open_action_none const&) const = default;
};

/// Open the print dialogue when the document opens.
struct open_action_print {
    bool operator==(open_action_print const&) const = default;
};

/// Run a named viewer command when the document opens.
struct open_action_command {
    std::string command_name;
    bool operator==(open_action_command const&) const = default;
};

/// What the viewer does when the document opens.
using pdf_open_action = std::variant<open_action_none, open_action_print, open_action_command>;

enum class pdf_page_layout { single_page, one_column, two_column_left, two_column_right };
enum class pdf_page_mode { auto_mode, show_bookmarks, fullscreen, show_attachments };
enum class pdf_paper_tray { auto_tray, pick_tray_by_pdf_size };
enum class pdf_print_scaling { auto_scaling, none };

/// How the PDF is written.
struct pdf_options {
    bool embed_fonts = true;
    bool subset_fonts = true;
    bool artificial_fonts = true;
    bool compress = true;
    bool encrypt = false;
    vellum::metadata::encrypt encrypt_info;
    std::vector<pdf_attach> attach;
    /// The /Producer entry; absent writes none.
    std::optional<std::string> producer;
    /// The file identifier as hexadecimal text; absent makes one.
    std::optional<std::string> pdf_id;
    /// Document-level JavaScript.
    std::optional<std::string> pdf_script;
    vellum::metadata::pdf_open_action pdf_open_action = open_action_none{};
    /// The ICC profile of the output intent.
    std::optional<resource::locator::locator> pdf_output_intent;
    vellum::metadata::pdf_page_layout pdf_page_layout = vellum::metadata::pdf_page_layout::single_page;
    vellum::metadata::pdf_page_mode pdf_page_mode = vellum::metadata::pdf_page_mode::auto_mode;
    vellum::metadata::pdf_paper_tray pdf_paper_tray = vellum::metadata::pdf_paper_tray::auto_tray;
    vellum::metadata::pdf_print_scaling pdf_print_scaling = vellum::metadata::pdf_print_scaling::auto_scaling;
    std::optional<pdf::profile::pdf_profile> pdf_profile;
    bool operator==(pdf_options const&) const = default;
};

/// The producer entry written unless it is switched off: the product and its version.
inline std::string default_producer(std::string_view version) {
    return "Vellum " + std::string(version);
}

/// Splits a keywords text at commas; each keyword is trimmed of white space and empty ones are dropped.
/// The writer joins them again with ", ".
inline std::vector<std::string> split_keywords(std::string_view text) {
    auto is_space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; };
    std::vector<std::string> out;
    while (true) {
        auto const comma = text.find(',');
        std::string_view piece = text.substr(0, comma);
        while (!piece.empty() && is_space(piece.front())) {
            piece.remove_prefix(1);
        }
        while (!piece.empty() && is_space(piece.back())) {
            piece.remove_suffix(1);
        }
        if (!piece.empty()) {
            out.emplace_back(piece);
        }
        if (comma == std::string_view::npos) {
            break;
        }
        text.remove_prefix(comma + 1);
    }
    return out;
}

/// The keywords as one text, joined with ", ", as the information dictionary and XMP state them.
inline std::string join_keywords(std::vector<std::string> const& keywords) {
    std::string out;
    for (auto const& k : keywords) {
        if (!out.empty()) {
            out += ", ";
        }
        out += k;
    }
    return out;
}

} // namespace vellum::metadata
