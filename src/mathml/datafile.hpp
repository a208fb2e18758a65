// The two data files of the MathML layout are flat lists of empty elements with attributes; this reads
// such a list without a full XML parser, and finds the files under the program's prefix.
#pragma once

#include "driver/log.hpp"
#include "resource/loader.hpp"
#include "util/result.hpp"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::mathml::datafile {

/// One element: its name, its attributes and the elements inside it.
struct element {
    std::string element_name;
    std::map<std::string, std::string> element_attributes;
    std::vector<element> element_children;
    bool operator==(element const&) const = default;
};

/// The top-level elements under the root element of a document (entities and character references
/// resolved, comments and declarations skipped); an unclosed tag or quote is an error.
[[nodiscard]] result<std::vector<element>> parse_elements(std::string_view text);

/// Reads a file of the program ("math/operators.xml") from the prefix of the loader.
[[nodiscard]] result<std::string>
read_system_file(log::log const& log, resource::loader::loader const& l, std::string const& name);

/// An attribute's value, if present.
[[nodiscard]] std::optional<std::string> attribute(element const& e, std::string const& name);

} // namespace vellum::mathml::datafile
