// What a conformance profile asks of a whole file: the options brought within what the profile allows,
// the XMP metadata packet with the profile's identification, and the output intent with its ICC profile.
#pragma once

#include "driver/log.hpp"
#include "pdf/metadata.hpp"
#include "pdf/object.hpp"
#include "pdf/profile.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vellum::pdf::conformance {

/// The options changed to fit their profile, each change reported at error level; without a profile,
/// or with options that already fit, they come back as they are and nothing is reported.
metadata::pdf_options apply_profile(log::log const& log, metadata::pdf_options options);

/// A date in the ISO form of XMP: "2024-05-01", with "T12:30:00" when the time is known.
std::string iso_date(date const& d);

/// The dates the information dictionary and the XMP packet both state.
struct document_dates {
    date creation;
    date modification;
};

/// The XMP packet: Dublin Core title, description and creator, the PDF schema's keywords and producer,
/// the basic schema's creator tool and dates, and the profile's identification last.
std::string xmp_packet(metadata::metadata const& meta,
                       std::optional<std::string> const& producer,
                       document_dates const& dates,
                       profile::pdf_profile profile);

/// The resource name of the ICC profile a profile's output intent uses by default, under the prefix.
std::string_view default_output_intent(profile::pdf_profile profile);

/// What the output intent needs to know of an ICC profile.
struct icc_summary {
    /// The number of colour components of its colour space: 1, 3 or 4.
    int icc_components = 0;
    /// The text of its description tag.
    std::string icc_description;
    bool operator==(icc_summary const&) const = default;
};

/// Reads the header and the description tag of an ICC profile; a failure says what is wrong.
[[nodiscard]] result<icc_summary> read_icc(std::span<std::uint8_t const> data);

/// The output intent dictionary for the profile, with the ICC stream's reference.
dict output_intent_dict(profile::pdf_profile profile, std::string const& description, ref icc_stream);

/// The identification entries the profile puts first in the information dictionary.
dict profile_info_entries(profile::pdf_profile profile);

} // namespace vellum::pdf::conformance
