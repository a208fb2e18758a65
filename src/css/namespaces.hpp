// The namespace prefixes that a style sheet declares with @namespace.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace vellum::css {

/// From prefix to namespace URI; the absent prefix holds the default namespace.
using namespaces = std::map<std::optional<std::string>, std::string>;

} // namespace vellum::css
