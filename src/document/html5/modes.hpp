// Tree construction: the insertion modes and the dispatch between HTML and foreign content.
#pragma once

#include "document/html5/builder.hpp"

namespace vellum::html5::modes {

/// Hands one token to tree construction (HTML rules of the current mode, or the foreign content rules).
void process_token(builder::builder& b, token::token& t);

} // namespace vellum::html5::modes
