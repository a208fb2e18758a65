// Shaped text kept for a run: a book sets the same words thousands of times, in every pass, and each
// word in one font request and direction is shaped once; every later occurrence shares that run of
// graphemes.
#pragma once

#include "text/fonts/graphemes.hpp"

#include <memory>
#include <string_view>

namespace vellum::fonts::shape_cache {

struct shape_cache;

/// An empty cache.
std::shared_ptr<shape_cache> make_shape_cache();

/// `text_to_graphemes` through the cache.
shared_graphemes shape(shape_cache& cache, fonts const& db, font_req const& req, direction dir,
                       std::u32string_view text);

} // namespace vellum::fonts::shape_cache
