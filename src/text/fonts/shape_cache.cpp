#include "text/fonts/shape_cache.hpp"

#include "util/cell.hpp"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace vellum::fonts::shape_cache {

namespace {

// Past this many runs the cache starts again: text that never repeats (generated tables, random
// data) must not hold every run it shaped until the end.
constexpr std::size_t most_entries = 1u << 18;

// A request is interned by the font database and owns its glyph cache, so the glyph cache's address
// names the request for as long as the database lives.
struct entry {
    std::uint64_t entry_hash = 0;
    void const* entry_request = nullptr;
    /// The text's place in the table's text store.
    std::uint32_t entry_text_at = 0;
    std::uint32_t entry_text_size = 0;
    direction entry_dir = direction::ltr;
    shared_graphemes entry_shaped;
};

// Every word of a book is looked up here at every occurrence in every pass, so the table is flat: the
// slots, open-addressed and at most half full, hold the high half of an entry's hash and its place in
// `entries` (plus one; nought is an empty slot), and the texts of all entries lie end to end in one
// store. A lookup reads a slot, then the entry whose hash half matches, then its text.
struct table {
    std::vector<std::uint64_t> slots;
    std::vector<entry> entries;
    std::u32string texts;

    std::u32string_view text_of(entry const& e) const {
        return std::u32string_view(texts).substr(e.entry_text_at, e.entry_text_size);
    }

    // The slot of the key, or the empty slot where it would go.
    std::uint64_t& slot_of(std::uint64_t hash, void const* request, direction dir, std::u32string_view text) {
        std::size_t const mask = slots.size() - 1;
        for (std::size_t i = std::size_t(hash) & mask;; i = (i + 1) & mask) {
            auto& slot = slots[i];
            if (slot == 0) {
                return slot;
            }
            if ((slot >> 32) == (hash >> 32)) {
                auto const& e = entries[(slot & 0xFFFFFFFFu) - 1];
                if (e.entry_hash == hash && e.entry_request == request && e.entry_dir == dir &&
                    text_of(e) == text) {
                    return slot;
                }
            }
        }
    }

    void grow() {
        slots.assign(std::max<std::size_t>(1024, slots.size() * 2), 0);
        std::size_t const mask = slots.size() - 1;
        for (std::size_t k = 0; k < entries.size(); ++k) {
            std::size_t i = std::size_t(entries[k].entry_hash) & mask;
            while (slots[i] != 0) {
                i = (i + 1) & mask;
            }
            slots[i] = (entries[k].entry_hash & ~std::uint64_t(0xFFFFFFFFu)) | std::uint64_t(k + 1);
        }
    }

    void clear() {
        slots.clear();
        entries.clear();
        texts.clear();
    }
};

std::uint64_t hash_of(void const* request, direction dir, std::u32string_view text) {
    std::uint64_t h = std::hash<std::u32string_view>{}(text);
    h ^= (std::uint64_t(reinterpret_cast<std::uintptr_t>(request)) >> 4) * 0x9e3779b97f4a7c15ull;
    h ^= dir == direction::rtl ? 0xc2b2ae3d27d4eb4full : 0;
    h ^= h >> 31;
    h *= 0xbf58476d1ce4e5b9ull;
    h ^= h >> 29;
    return h;
}

} // namespace

struct shape_cache {
    cell<table> shaped;
};

std::shared_ptr<shape_cache> make_shape_cache() {
    return std::make_shared<shape_cache>();
}

shared_graphemes shape(shape_cache& cache, fonts const& db, font_req const& req, direction dir,
                       std::u32string_view text) {
    void const* const request = req.font_req_glyph_cache.get();
    if (request == nullptr) {
        return text_to_graphemes(db, req, dir, text);
    }
    std::uint64_t const hash = hash_of(request, dir, text);
    auto found = cache.shaped.update([&](table& t) -> std::optional<shared_graphemes> {
        if (t.slots.empty()) {
            return std::nullopt;
        }
        auto const slot = t.slot_of(hash, request, dir, text);
        return slot == 0 ? std::nullopt : std::optional(t.entries[(slot & 0xFFFFFFFFu) - 1].entry_shaped);
    });
    if (found) {
        return *found;
    }
    shared_graphemes shaped(text_to_graphemes(db, req, dir, text));
    cache.shaped.update([&](table& t) {
        if (t.entries.size() >= most_entries ||
            t.texts.size() + text.size() > std::numeric_limits<std::uint32_t>::max()) {
            t.clear();
        }
        if ((t.entries.size() + 1) * 2 > t.slots.size()) {
            t.grow();
        }
        auto& slot = t.slot_of(hash, request, dir, text);
        if (slot != 0) {
            return;
        }
        slot = (hash & ~std::uint64_t(0xFFFFFFFFu)) | std::uint64_t(t.entries.size() + 1);
        t.entries.push_back(entry{.entry_hash = hash,
                                  .entry_request = request,
                                  .entry_text_at = std::uint32_t(t.texts.size()),
                                  .entry_text_size = std::uint32_t(text.size()),
                                  .entry_dir = dir,
                                  .entry_shaped = shaped});
        t.texts.append(text);
    });
    return shaped;
}

} // namespace vellum::fonts::shape_cache
