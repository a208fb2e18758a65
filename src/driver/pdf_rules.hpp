// The `@vellum-pdf` rule of a document's style sheets: PDF options set from style. For each option the
// last declaration that gives it a valid value wins, and it overrides what the command line set.
#pragma once

#include "css/declaration.hpp"
#include "driver/log.hpp"
#include "pdf/metadata.hpp"
#include "resource/locator.hpp"

#include <string>
#include <utility>
#include <vector>

namespace vellum::pdf_rules {

/// Applies the declarations of every "vellum-pdf" block among `special_rules` to `options`. URLs
/// resolve against `base`.
metadata::pdf_options apply_pdf_rules(log::log const& log,
                                      std::vector<std::pair<std::string, css::declarations>> const& special_rules,
                                      resource::locator::locator const& base,
                                      metadata::pdf_options options);

} // namespace vellum::pdf_rules
