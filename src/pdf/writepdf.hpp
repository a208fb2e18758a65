// The top of PDF output: one forward pass that writes the whole file. Everything that crosses objects is
// numbered first; the catalog goes out early, pages one at a time, and what the pages turned out to use
// (fonts) last, under numbers reserved before the pages.
#pragma once

#include "driver/log.hpp"
#include "pdf/bulkio/output.hpp"
#include "pdf/content.hpp"
#include "pdf/metadata.hpp"
#include "pdf/navigation.hpp"
#include "pdf/object.hpp"
#include "pdf/page_objects.hpp"
#include "pdf/pdf.hpp"
#include "pdf/tagging.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::pdf::writepdf {

/// One page as the file frames it: its media box in points.
struct page_frame {
    float page_width = 595.276f;
    float page_height = 841.89f;
    bool operator==(page_frame const&) const = default;
};

/// The boxes of a page in default user space; bleed and trim are written where they differ from the
/// media box.
struct page_boxes {
    common::rect media_box;
    std::optional<common::rect> bleed_box;
    std::optional<common::rect> trim_box;
};

/// Writes a page's content operators through the state tracker.
using page_painter = std::function<void(content::out const&, content::gs&)>;

/// A link on a page: the area that reacts and where it leads.
struct page_link {
    common::rect link_rect;
    std::variant<dest::dest, action::action> link_target;
};

struct document_page {
    page_boxes boxes;
    /// Nothing paints an empty page.
    page_painter paint;
    std::vector<page_link> links;
    /// For a page painted before the file is written: what its content uses. Without it, what the
    /// painter used while writing the stream.
    std::shared_ptr<content::used_resources const> painted_used;
    /// The painter only replays content recorded before: it neither reads nor changes the graphics
    /// state and logs nothing, so the page's stream may be made on another thread, ahead of its turn.
    bool paint_anywhere = false;
};

enum class page_label_counter_style { lower_roman, upper_roman, lower_alpha, upper_alpha, decimal };

/// How a viewer numbers pages from this page on.
struct page_label {
    std::optional<std::string> label_prefix;
    std::optional<int> label_start;
    std::optional<page_label_counter_style> label_style;
    bool operator==(page_label const&) const = default;
};

/// A file embedded in the PDF, loaded before writing.
struct embedded_file {
    /// The name shown for the file: the last part of its location.
    std::string file_name;
    std::string file_description;
    std::string file_mime_type = "application/octet-stream";
    std::vector<std::uint8_t> file_bytes;
};

/// A finished document, ready to be written.
struct pdf_document {
    metadata::metadata doc_metadata;
    metadata::pdf_options doc_options;
    std::vector<outlines::outline> bookmarks;
    /// Page indexes from 0 with their labels; a page without a label counts in decimals.
    std::vector<std::pair<std::size_t, std::optional<page_label>>> page_labels;
    std::vector<document_page> pages;
    /// Named destinations, for links from other files and for the ids of the document.
    std::vector<std::pair<std::string, dest::dest>> destinations;
    /// The fonts the pages use, by id; each gets its number before the pages are written.
    std::vector<int> used_font_ids;
    /// Writes a font's objects under the number reserved for it, after the pages.
    std::function<void(writer&, int font_id, ref font_ref)> write_font;
    /// The files to embed, in order (the options' attachments, as the engine loaded them).
    std::vector<embedded_file> attachments;
    /// The ICC profile of the output intent, for a file written to a profile; absent when it could not
    /// be loaded.
    std::optional<std::vector<std::uint8_t>> output_intent_icc;
    /// Images, filled areas and spot colours that the pages name, written after the pages.
    std::shared_ptr<page_objects::page_objects> page_objects;
    /// The logical structure the painters marked the content with, for a tagged file.
    std::shared_ptr<tagging::structure> structure;
    /// The natural language of the document's text ("en-GB"), for a tagged file.
    std::optional<std::string> doc_language;
};

/// The name of the n-th embedded file in the name tree: "Attach" and the index in three digits.
std::string attachment_key(std::size_t index);

/// The version a file needs for its options.
pdf_version choose_version(metadata::pdf_options const& options);

/// The information dictionary: metadata entries in a fixed order, the producer, and the dates.
dict info_dict(metadata::metadata const& meta, metadata::pdf_options const& options, date const& now);

/// The /Nums array of page labels: a label that continues the one before is left out.
array page_label_nums(std::vector<std::pair<std::size_t, std::optional<page_label>>> const& labels);

/// Writes the whole file to the output through one 64 KiB buffer.
void write_pdf_document(log::log const& log, bulkio::output::output out, pdf_document const& doc);

/// Writes a file of empty pages of the given sizes.
void write_pdf(log::log const& log,
               bulkio::output::output out,
               metadata::metadata const& meta,
               metadata::pdf_options const& options,
               std::vector<page_frame> const& pages);

} // namespace vellum::pdf::writepdf
