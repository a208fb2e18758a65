// The top of PDF output: one forward pass that writes the whole file for a run's pages, with the
// catalog, the page tree and the information dictionary.
#pragma once

#include "driver/log.hpp"
#include "pdf/bulkio/output.hpp"
#include "pdf/metadata.hpp"
#include "pdf/object.hpp"

#include <vector>

namespace vellum::pdf::writepdf {

/// One page as the file frames it: its media box in points.
struct page_frame {
    float page_width = 595.276f;
    float page_height = 841.89f;
    bool operator==(page_frame const&) const = default;
};

/// The version a file needs for its options.
pdf_version choose_version(metadata::pdf_options const& options);

/// The information dictionary: metadata entries in a fixed order, the producer, and the dates.
dict info_dict(metadata::metadata const& meta, metadata::pdf_options const& options, date const& now);

/// Writes the whole file to the output through one 64 KiB buffer.
void write_pdf(log::log const& log,
               bulkio::output::output out,
               metadata::metadata const& meta,
               metadata::pdf_options const& options,
               std::vector<page_frame> const& pages);

} // namespace vellum::pdf::writepdf
