#include "text/fonts/shape_cache.hpp"

#include "util/cell.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace vellum::fonts::shape_cache {

namespace {

// Past this many runs the cache starts again: text that never repeats (generated tables, random
// data) must not hold every run it shaped until the end.
constexpr std::size_t most_entries = 1u << 18;

struct text_hash {
    using is_transparent = void;
    std::size_t operator()(std::u32string_view s) const { return std::hash<std::u32string_view>{}(s); }
};

using runs = std::unordered_map<std::u32string, shared_graphemes, text_hash, std::equal_to<>>;

// A request is interned by the font database and owns its glyph cache, so the glyph cache's address
// names the request for as long as the database lives.
struct request_key {
    void const* request = nullptr;
    direction dir = direction::ltr;
    bool operator==(request_key const&) const = default;
};

struct request_hash {
    std::size_t operator()(request_key const& k) const {
        return std::hash<void const*>{}(k.request) ^ (k.dir == direction::rtl ? 0x9e3779b9u : 0u);
    }
};

struct table {
    std::unordered_map<request_key, runs, request_hash> by_request;
    std::size_t entries = 0;
};

} // namespace

struct shape_cache {
    cell<table> shaped;
};

std::shared_ptr<shape_cache> make_shape_cache() {
    return std::make_shared<shape_cache>();
}

shared_graphemes shape(shape_cache& cache, fonts const& db, font_req const& req, direction dir,
                       std::u32string_view text) {
    request_key const key{.request = req.font_req_glyph_cache.get(), .dir = dir};
    if (key.request == nullptr) {
        return text_to_graphemes(db, req, dir, text);
    }
    auto found = cache.shaped.update([&](table& t) -> std::optional<shared_graphemes> {
        auto const r = t.by_request.find(key);
        if (r == t.by_request.end()) {
            return std::nullopt;
        }
        auto const run = r->second.find(text);
        return run == r->second.end() ? std::nullopt : std::optional<shared_graphemes>(run->second);
    });
    if (found) {
        return *found;
    }
    shared_graphemes shaped(text_to_graphemes(db, req, dir, text));
    cache.shaped.update([&](table& t) {
        if (t.entries >= most_entries) {
            t.by_request.clear();
            t.entries = 0;
        }
        if (t.by_request[key].emplace(std::u32string(text), shaped).second) {
            ++t.entries;
        }
    });
    return shaped;
}

} // namespace vellum::fonts::shape_cache
