// A lazily filled per-code-point cache with the two-stage shape of the compiled tables: blocks of 256
// optional values, made on the first store into them.
#pragma once

#include "util/result.hpp"

#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vellum::unicode::unicache {

/// A second store of a different value for the same code point: the cache's users compute each entry
/// from fixed data, so two answers mean an error in the program.
template <class T>
struct duplicate_entry : internal_error {
    duplicate_entry(char32_t cp, T old_value, T new_value)
        : internal_error(message(cp))
        , duplicate_entry_codepoint(cp)
        , duplicate_entry_old(std::move(old_value))
        , duplicate_entry_new(std::move(new_value)) {}

    char32_t duplicate_entry_codepoint;
    T duplicate_entry_old;
    T duplicate_entry_new;

private:
    static std::string message(char32_t cp) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "unicache: duplicate entry for U+%04X.", static_cast<unsigned>(cp));
        return buf;
    }
};

/// The cache. Code points above U+10FFFF are never stored and never found. Not for sharing between
/// threads: its owner (a font, the text preparation) uses it on the main thread only.
template <class T>
struct unicache {
    using block = std::array<std::optional<T>, 256>;

    std::vector<std::unique_ptr<block>> unicache_blocks;

    /// The stored value, or nothing.
    std::optional<T> get(char32_t cp) const {
        auto const hi = static_cast<std::size_t>(cp >> 8);
        if (cp > 0x10FFFF || hi >= unicache_blocks.size() || !unicache_blocks[hi]) {
            return std::nullopt;
        }
        return (*unicache_blocks[hi])[cp & 0xFF];
    }

    /// Stores a value; storing the same value again is harmless, a different one throws duplicate_entry.
    void set(char32_t cp, T value) {
        if (cp > 0x10FFFF) {
            return;
        }
        auto const hi = static_cast<std::size_t>(cp >> 8);
        if (hi >= unicache_blocks.size()) {
            unicache_blocks.resize(hi + 1);
        }
        if (!unicache_blocks[hi]) {
            unicache_blocks[hi] = std::make_unique<block>();
        }
        auto& slot = (*unicache_blocks[hi])[cp & 0xFF];
        if (slot && !(*slot == value)) {
            throw duplicate_entry<T>(cp, *slot, std::move(value));
        }
        slot = std::move(value);
    }

    /// The stored value, or the one `compute(cp)` gives, which is then stored.
    template <class F>
    T get_or_compute(char32_t cp, F&& compute) {
        if (auto v = get(cp)) {
            return *std::move(v);
        }
        T v = std::forward<F>(compute)(cp);
        set(cp, v);
        return v;
    }
};

} // namespace vellum::unicode::unicache
