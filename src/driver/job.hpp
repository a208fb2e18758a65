// What one run has to do: the input documents in command-line order, where the PDF goes, and the
// metadata and PDF options the command line gave. Plain, immutable data.
#pragma once

#include "document/doctype.hpp"
#include "document/style_info.hpp"
#include "document/xml_options.hpp"
#include "pdf/metadata.hpp"
#include "resource/locator.hpp"

#include <optional>
#include <variant>
#include <vector>

namespace vellum::job {

/// The PDF goes to standard output (the output name "-").
struct standard_output {
    bool operator==(standard_output const&) const = default;
};

/// The PDF goes to a file.
struct file {
    virtual_path::physical_path file_path;
    bool operator==(file const&) const = default;
};

/// Where the PDF goes.
using output_dest = std::variant<standard_output, file>;

/// The source of an input document.
using input_src = resource::locator::locator;

/// One input document and how to read it.
struct input_document {
    /// Absent means that the format is sniffed.
    std::optional<doctype::doctype> input_doctype;
    /// The value of --baseurl.
    std::optional<resource::locator::locator> input_base;
    job::input_src input_src;
    dom::doc_style_info style_info;
    xml::xml_options xml_options;
    bool operator==(input_document const&) const = default;
};

/// What one run has to do.
struct job {
    std::vector<input_document> input_documents;
    vellum::job::output_dest output_dest = standard_output{};
    vellum::metadata::metadata metadata;
    vellum::metadata::pdf_options pdf_options;
    bool operator==(job const&) const = default;
};

} // namespace vellum::job
