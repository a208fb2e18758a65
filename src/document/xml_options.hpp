// How an XML document is read: XInclude processing and the loading of its DTD.
#pragma once

namespace vellum::xml {

enum class use_xinclude { no, yes };
enum class load_dtd { no, yes };

/// The switches of the XML reader.
struct xml_options {
    vellum::xml::use_xinclude use_xinclude = vellum::xml::use_xinclude::yes;
    vellum::xml::load_dtd load_dtd = vellum::xml::load_dtd::yes;
    bool operator==(xml_options const&) const = default;
};

} // namespace vellum::xml
